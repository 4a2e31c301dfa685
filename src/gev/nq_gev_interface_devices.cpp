// SPDX-License-Identifier: Apache-2.0
// The interface module's opening and closing of device modules.
#include "entry/nq_gev_controller.h"
#include "entry/nq_logger.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_interface.h"

#include <GenTL/GenTL.h>
#include <memory>

namespace
{

constexpr unsigned long scanTimeout = 2000; // milliseconds
constexpr unsigned int statusReadWrite = 1;
constexpr unsigned int statusNoAccess = 3;

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
    return status != statusNoAccess && (flags == GenTL::DEVICE_ACCESS_READONLY || status == statusReadWrite);
}

int Failed(const char* operation, const char* format, int result)
{
    NQLogger::getInstance().TraceA("NQGenTL", 2, format, operation);
    return result;
}

} // namespace

int NQGevInterface::OpenDevice(const char* id, int flags, void** handle)
{
    if (id == nullptr || handle == nullptr || IsReservedFlag(flags))
    {
        return Failed("OpenDevice", "%s GC_ERR_INVALID_PARAMETER", GenTL::GC_ERR_INVALID_PARAMETER);
    }
    if (m_devices.FindById(id, false) != nullptr)
    {
        return Failed("OpenDevice", "%s GC_ERR_RESOURCE_IN_USE", GenTL::GC_ERR_RESOURCE_IN_USE);
    }
    _NQ_GEV_DEVICE_INFO info;
    if (!_findDeviceInfoById(id, info))
    {
        UpdateDeviceList(nullptr, scanTimeout);
        if (!_findDeviceInfoById(id, info))
        {
            return Failed("OpenDevice", "%s GC_ERR_INVALID_ID", GenTL::GC_ERR_INVALID_ID);
        }
    }
    if (!IsAccessMode(flags))
    {
        return Failed("OpenDevice", "%s GC_ERR_NOT_IMPLEMENTED", GenTL::GC_ERR_NOT_IMPLEMENTED);
    }
    const unsigned int status = _getDeviceAccessStatus(&info.controlAddress, info.interfaceIp, info.interfaceMask,
                                                       info.ipAddress, info.subnetMask);
    if (!IsGranted(flags, status))
    {
        return Failed("OpenDevice", "%s failed! Device not accessible", GenTL::GC_ERR_ACCESS_DENIED);
    }
    auto device = std::make_unique<NQGevDevice>(g_Controller.GetTL(), info, flags, this);
    const int result = device->Open();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return result;
    }
    *handle = device.get();
    m_devices.Add(device.get());
    device.release();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevInterface::CloseDevice(void* handle)
{
    std::unique_ptr<GigERDMA::NQGenTLModuleBase> device(m_devices.FindByHandle(handle, true));
    if (!device)
    {
        return Failed("CloseDevice", "%s GC_ERR_INVALID_HANDLE", GenTL::GC_ERR_INVALID_HANDLE);
    }
    const int result = device->Close();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        // Deliberate: a device that refuses to close is given up, not deleted: its threads may still use it.
        device.release();
    }
    return result;
}
