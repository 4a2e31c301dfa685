// SPDX-License-Identifier: Apache-2.0
// The system module with its merge in reach, for unit tests, and adapters for it to find.
#pragma once

#include "gev/nq_gev_system.h"
#include "support/module_queries.h"
#include "support/network.h"

#include <string>
#include <vector>

namespace nq::test
{

class SystemModule : public NQGevSystem
{
  public:
    using NQGevSystem::_getInterfaceInfo;
    using NQGevSystem::_updateInterfaceList;
    using NQGevSystem::NQGevSystem;

    bool Merge(const std::vector<_NQ_GEV_INTERFACE_INFO>& found)
    {
        bool changed = true;
        _updateInterfaceList(found, &changed);
        return changed;
    }

    std::string IdAt(unsigned int index)
    {
        char id[256];
        unsigned long size = sizeof id;
        return GetInterfaceID(index, id, &size) == 0 ? id : "(none)";
    }

    std::vector<std::string> Ids()
    {
        unsigned int count = 99;
        EXPECT_EQ(GetNumInterfaces(&count), 0);
        std::vector<std::string> ids;
        for (unsigned int i = 0; i < count; ++i)
        {
            ids.push_back(IdAt(i));
        }
        return ids;
    }

    Info InterfaceInfo(const char* id, int command)
    {
        return Ask([&](int* type, void* buffer,
                       unsigned long* size) { return GetInterfaceInfo(id, command, type, buffer, size); },
                   &Answers() == &kStandardAnswers);
    }

    Info OwnInfo(int command)
    {
        return Ask([&](int* type, void* buffer, unsigned long* size) { return GetInfo(command, type, buffer, size); });
    }

    void Select(unsigned int index) { EXPECT_EQ(WriteResult(*this, 0x50510, index), 0); }
};

inline _NQ_GEV_INTERFACE_INFO Entry(const std::string& id, const std::string& ip = "10.0.0.1")
{
    _NQ_GEV_INTERFACE_INFO info;
    info.id = id;
    info.displayName = "display " + ip;
    info.tlType = "GEV";
    info.adapterName = "adapter";
    info.macAddress = "02-0a-0b-01-02-03";
    info.ipAddress = ip;
    info.subnetMask = "255.255.0.0";
    return info;
}

inline void AddAdapter(const std::string& name, const std::string& mac, const std::string& address)
{
    Shell("ip link add " + name + " address " + mac + " type veth peer name p" + name);
    Shell("ip addr add " + address + " brd + dev " + name + " && ip link set " + name + " up");
}

} // namespace nq::test
