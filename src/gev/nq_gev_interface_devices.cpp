// SPDX-License-Identifier: Apache-2.0
// The interface module's opening and closing of device modules.
#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_query.h"

#include <algorithm>
#include <memory>

namespace
{

constexpr unsigned long kScanTimeout = 2000; // milliseconds
constexpr unsigned int kStatusReadWrite = 1;
constexpr unsigned int kStatusNoAccess = 3;

/// Flags between the standard's values and the custom range. Others are refused only once the device is known.
bool IsReservedFlag(int flags)
{
    return flags > GenTL::DEVICE_ACCESS_EXCLUSIVE && flags < GenTL::DEVICE_ACCESS_CUSTOM_ID;
}

bool IsAccessMode(int flags)
{
    return flags == GenTL::DEVICE_ACCESS_READONLY || flags == GenTL::DEVICE_ACCESS_CONTROL ||
           flags == GenTL::DEVICE_ACCESS_EXCLUSIVE;
}

/// Reading is granted on a camera of unknown status too; control needs a camera that says it is free.
bool IsGranted(int flags, unsigned int status)
{
    return status != kStatusNoAccess && (flags == GenTL::DEVICE_ACCESS_READONLY || status == kStatusReadWrite);
}

} // namespace

int NQGevInterface::OpenDevice(const char* id, int flags, void** handle)
{
    if (id == nullptr || handle == nullptr || IsReservedFlag(flags))
    {
        return NQGevInvalidParameter("OpenDevice");
    }
    const GigERDMA::NQGenTLOpenings::Turn turn(m_openings, id);
    if (m_devices.FindById(id, false) != nullptr)
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "OpenDevice");
    }
    _NQ_GEV_DEVICE_INFO info;
    if (!_findForOpening(id, info))
    {
        return NQFailed(GenTL::GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", "OpenDevice");
    }
    if (!IsAccessMode(flags))
    {
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED", "OpenDevice");
    }
    const unsigned int status = _getDeviceAccessStatus(&info.controlAddress, info.interfaceIp, info.interfaceMask,
                                                       info.ipAddress, info.subnetMask);
    if (!IsGranted(flags, status))
    {
        return NQFailed(GenTL::GC_ERR_ACCESS_DENIED, "%s failed! Device not accessible", "OpenDevice");
    }
    auto device = std::make_unique<NQGevDevice>(g_Controller.GetTL(), info, flags, this);
    const int result = device->Open();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return result;
    }
    *handle = device.get();
    m_devices.Add(device.get());
    static_cast<void>(device.release());
    return GenTL::GC_ERR_SUCCESS;
}

/// The camera of that id, from the list or from a scan.
bool NQGevInterface::_findForOpening(const char* id, _NQ_GEV_DEVICE_INFO& info)
{
    if (_findDeviceInfoById(id, info))
    {
        return true;
    }
    if (!Answers().openEndsWithAnswer)
    {
        UpdateDeviceList(nullptr, kScanTimeout);
        return _findDeviceInfoById(id, info);
    }
    std::vector<_NQ_GEV_DEVICE_INFO> found;
    _discoverDevices(found, kScanTimeout, id);
    const auto answer =
        std::find_if(found.rbegin(), found.rend(), [id](const _NQ_GEV_DEVICE_INFO& each) { return each.id == id; });
    if (answer == found.rend())
    {
        return false;
    }
    info = *answer;
    return true;
}

int NQGevInterface::CloseDevice(void* handle)
{
    std::unique_ptr<GigERDMA::NQGenTLModuleBase> device(m_devices.FindByHandle(handle, true));
    if (!device)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "CloseDevice");
    }
    const int result = device->Close();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        // Deliberate(RefusedCloseIsNotDeleted): a device that refuses to close is given up, not deleted: its threads
        // may still use it.
        static_cast<void>(device.release());
    }
    return result;
}
