// SPDX-License-Identifier: Apache-2.0
// The interface module with its scan, merge and probe in reach, for unit and wire tests.
#pragma once

#include "base/nq_answers.h"
#include "gev/nq_gev_interface.h"
#include "support/gvcp_camera.h"
#include "support/module_queries.h"
#include "support/network.h"

#include <string>
#include <vector>

namespace nq::test
{

inline _NQ_GEV_INTERFACE_INFO Adapter(const std::string& ip = "10.9.0.1", const std::string& mask = "255.255.255.0")
{
    _NQ_GEV_INTERFACE_INFO info;
    info.id = "Linux Socket:02-00-00-00-00-01";
    info.displayName = "cam0:" + ip;
    info.tlType = "GEV";
    info.adapterName = "cam0";
    info.macAddress = "02-0a-0b-01-02-03";
    info.ipAddress = ip;
    info.subnetMask = mask;
    return info;
}

inline _NQ_GEV_DEVICE_INFO Device(const std::string& id, const std::string& vendor = "vendor")
{
    _NQ_GEV_DEVICE_INFO info;
    info.id = id;
    info.vendorName = vendor;
    info.modelName = "model of " + id;
    info.tlType = "GEV";
    info.macHigh = 0x020A;
    info.macLow = 0x0B010203;
    info.ipAddress = 0x0A090005;
    info.subnetMask = 0xFFFFFF00;
    return info;
}

class InterfaceModule : public NQGevInterface
{
  public:
    using NQGevInterface::_discoverDevices;
    using NQGevInterface::_findDeviceInfoById;
    using NQGevInterface::_findDeviceInfoByIndex;
    using NQGevInterface::_getDeviceAccessStatus;
    using NQGevInterface::_getDeviceInfo;
    using NQGevInterface::_updateDeviceAccessStatus;
    using NQGevInterface::_updateDeviceInfoById;
    using NQGevInterface::_updateDeviceInfoByIndex;
    using NQGevInterface::_updateDeviceList;

    explicit InterfaceModule(const _NQ_GEV_INTERFACE_INFO& info = Adapter(),
                             GigERDMA::NQGenTLModuleBase* parent = nullptr)
        : NQGevInterface(info, parent)
    {
    }

    bool Merge(const std::vector<_NQ_GEV_DEVICE_INFO>& found)
    {
        bool changed = true;
        _updateDeviceList(found, &changed);
        return changed;
    }

    /// Scans for `timeout` milliseconds, by default long enough for a peer on a busy machine; whether the list changed.
    bool Scan(unsigned long timeout = 1000)
    {
        bool changed = true;
        EXPECT_EQ(UpdateDeviceList(&changed, timeout), 0);
        return changed;
    }

    std::vector<_NQ_GEV_DEVICE_INFO> Devices()
    {
        std::vector<_NQ_GEV_DEVICE_INFO> devices;
        _NQ_GEV_DEVICE_INFO info;
        while (_findDeviceInfoByIndex(static_cast<unsigned int>(devices.size()), info))
        {
            devices.push_back(info);
        }
        unsigned int count = 0;
        EXPECT_EQ(GetNumDevices(&count), 0);
        EXPECT_EQ(count, devices.size());
        return devices;
    }

    std::vector<std::string> Ids()
    {
        std::vector<std::string> ids;
        for (const _NQ_GEV_DEVICE_INFO& info : Devices())
        {
            ids.push_back(info.id);
        }
        return ids;
    }

    Info DeviceInfo(const std::string& id, int command)
    {
        return Ask([&](int* type, void* buffer,
                       unsigned long* size) { return GetDeviceInfo(id.c_str(), command, type, buffer, size); },
                   &Answers() == &kStandardAnswers);
    }

    Info OwnInfo(int command)
    {
        return Ask([&](int* type, void* buffer, unsigned long* size) { return GetInfo(command, type, buffer, size); });
    }

    void Select(unsigned int index) { EXPECT_EQ(WriteResult(*this, 0x60108, index), 0); }
};

/// Waits until both ends of a cable carry packets; before that the kernel drops them. Not all kernels tell: after half
/// a minute the case goes on.
inline void WaitForCarrier(const Host& host, const std::string& here, const std::string& there)
{
    const auto until = [](const std::string& name) {
        return "for wait in $(seq 1500); do ! ip link show dev " + name +
               " | grep -q 'state UP' || break; sleep 0.02; done";
    };
    Shell(until(here));
    host.Shell(until(there));
}

/// The adapter cam0 with 10.9.0.1/24 here, and a host behind it at 10.9.0.5.
class CameraNetwork
{
  public:
    CameraNetwork()
    {
        host.Connect("cam0", "10.9.0.1/24", "eth0", "10.9.0.5/24");
        WaitForCarrier(host, "cam0", "eth0");
    }

    Host host;
};

/// What a camera at 10.9.0.5 answers to a discovery.
inline GvcpDiscovery Camera()
{
    GvcpDiscovery camera;
    camera.ipAddress = 0x0A090005;
    camera.subnetMask = 0xFFFFFF00;
    camera.gateway = 0x0A0900FE;
    camera.manufacturer = "Nerquil";
    camera.model = "Eye";
    camera.deviceVersion = "3.1.0";
    camera.macHigh = 0x020A;
    camera.macLow = 0x0B010203;
    return camera;
}

} // namespace nq::test
