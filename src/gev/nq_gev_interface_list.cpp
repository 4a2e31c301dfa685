// SPDX-License-Identifier: Apache-2.0
// Look-ups and queries on the device list of an interface module.
#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_query.h"
#include "nq_gev_gentl.h"

#include <algorithm>

using namespace GigERDMA;

bool NQGevInterface::_findDeviceInfoByIndex(unsigned int index, _NQ_GEV_DEVICE_INFO& info)
{
    const NQGenTLLock lock(m_moduleLock);
    if (index >= m_deviceList.size())
    {
        return false;
    }
    info = m_deviceList[index];
    return true;
}

bool NQGevInterface::_findDeviceInfoById(const std::string& id, _NQ_GEV_DEVICE_INFO& info)
{
    const NQGenTLLock lock(m_moduleLock);
    const auto found = std::find_if(m_deviceList.begin(), m_deviceList.end(), NQGevHasId(id));
    if (found == m_deviceList.end())
    {
        return false;
    }
    info = *found;
    return true;
}

void NQGevInterface::_updateDeviceInfoById(const std::string& id, const _NQ_GEV_DEVICE_INFO& info)
{
    const NQGenTLLock lock(m_moduleLock);
    const auto found = std::find_if(m_deviceList.begin(), m_deviceList.end(), NQGevHasId(id));
    if (found != m_deviceList.end())
    {
        *found = info;
    }
}

void NQGevInterface::_updateDeviceInfoByIndex(unsigned int index, const _NQ_GEV_DEVICE_INFO& info)
{
    const NQGenTLLock lock(m_moduleLock);
    if (index < m_deviceList.size())
    {
        m_deviceList[index] = info;
    }
}

// Deliberate(NoStatusIsStored): nothing is stored; a status is only worth what the camera says at the moment of the
// question.
void NQGevInterface::_updateDeviceAccessStatus(const std::string& /*id*/, unsigned int /*status*/) {}

int NQGevInterface::GetDeviceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size)
{
    if (id == nullptr || size == nullptr)
    {
        return NQGevInvalidParameter("GetDeviceInfo");
    }
    if (auto* const device = dynamic_cast<NQGenTLDevice*>(m_devices.FindById(id, false)))
    {
        return device->GetInfo(command, type, buffer, size);
    }
    return _getDeviceInfo(id, command, type, buffer, size);
}

int NQGevInterface::_getDeviceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size)
{
    _NQ_GEV_DEVICE_INFO info;
    if (!_findDeviceInfoById(id, info))
    {
        return NQFailed(GenTL::GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", "_getDeviceInfo");
    }
    if (type == nullptr || size == nullptr)
    {
        return NQGevInvalidParameter("_getDeviceInfo");
    }
    ClearForInfo(Answers(), buffer, size);
    switch (command)
    {
    case GenTL::DEVICE_INFO_ID:
        return NQGenTLUtil::CopyInfoString(info.id, type, buffer, size);
    case GenTL::DEVICE_INFO_VENDOR:
        return NQGenTLUtil::CopyInfoString(info.vendorName, type, buffer, size);
    case GenTL::DEVICE_INFO_MODEL:
        return NQGenTLUtil::CopyInfoString(info.modelName, type, buffer, size);
    case GenTL::DEVICE_INFO_TLTYPE:
        return NQGenTLUtil::CopyInfoString(info.tlType, type, buffer, size);
    case GenTL::DEVICE_INFO_DISPLAYNAME:
        return NQGenTLUtil::CopyInfoString(info.displayName, type, buffer, size);
    case GenTL::DEVICE_INFO_ACCESS_STATUS: {
        const unsigned int status = _getListedAccessStatus(info);
        return NQGenTLUtil::CopyInfoInt32(static_cast<int>(status), type, buffer, size);
    }
    case GenTL::DEVICE_INFO_USER_DEFINED_NAME:
        return NQGenTLUtil::CopyInfoString(info.userDefinedName, type, buffer, size);
    case GenTL::DEVICE_INFO_SERIAL_NUMBER:
        return NQGenTLUtil::CopyInfoString(info.serialNumber, type, buffer, size);
    case GenTL::DEVICE_INFO_VERSION:
        return NQGenTLUtil::CopyInfoString(info.deviceVersion, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_MAC:
        return NQGenTLUtil::CopyInfoUint64(static_cast<unsigned long>(info.macHigh) << 32 | info.macLow, type, buffer,
                                           size);
    case GenTL::NQ_DEVICE_INFO_IP:
        return NQGenTLUtil::CopyInfoUint32(info.ipAddress, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_SUBNET:
        return NQGenTLUtil::CopyInfoUint32(info.subnetMask, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_GATEWAY:
        return NQGenTLUtil::CopyInfoUint32(info.gateway, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_IPCONFIG_CURRENT:
        return NQGenTLUtil::CopyInfoUint32(info.ipConfigCurrent, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_IPCONFIG_OPTIONS:
        return NQGenTLUtil::CopyInfoUint32(info.ipConfigOptions, type, buffer, size);
    default:
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", "_getDeviceInfo", command);
    }
}
