// SPDX-License-Identifier: Apache-2.0
// The device's info commands: its record's texts, and what is asked of the camera at each call.
#include "GenTL/GenTL.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_remote_device.h"
#include "gige/gvcp_wire.h"
#include "nq_gev_gentl.h"

#include <cstring>
#include <netinet/in.h>

int NQGevDevice::GetInfo(int command, int* type, void* buffer, unsigned long* size)
{
    if (type == nullptr || size == nullptr)
    {
        return NQGevInvalidParameter("GetInfo");
    }
    GigERDMA::ClearForInfo(Answers(), buffer, size);
    switch (command)
    {
    case GenTL::DEVICE_INFO_ID:
        return _getId(type, buffer, size);
    case GenTL::DEVICE_INFO_VENDOR:
        return _getVendor(type, buffer, size);
    case GenTL::DEVICE_INFO_MODEL:
        return _getModel(type, buffer, size);
    case GenTL::DEVICE_INFO_TLTYPE:
        return _getTLType(type, buffer, size);
    case GenTL::DEVICE_INFO_DISPLAYNAME:
        return _getDisplayName(type, buffer, size);
    case GenTL::DEVICE_INFO_ACCESS_STATUS:
        return _getAccessStatus(type, buffer, size);
    case GenTL::DEVICE_INFO_USER_DEFINED_NAME:
        return _getUserDefinedName(type, buffer, size);
    case GenTL::DEVICE_INFO_SERIAL_NUMBER:
        return _getSerialNumber(type, buffer, size);
    case GenTL::DEVICE_INFO_VERSION:
        return _getVersion(type, buffer, size);
    case GenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY:
        return _getTimestampFreq(type, buffer, size);
    default:
        return GetAddressInfo(command, type, buffer, size);
    }
}

int NQGevDevice::GetAddressInfo(int command, int* type, void* buffer, unsigned long* size)
{
    // Deliberate(AnswersFromAnEmptyRecord): the first six answer from an empty record, not from the camera's; the port
    // registers tell its values.
    const _NQ_GEV_DEVICE_INFO empty;
    switch (command)
    {
    case GenTL::NQ_DEVICE_INFO_MAC:
        return NQGenTLUtil::CopyInfoUint64((static_cast<unsigned long>(empty.macHigh) << 32) | empty.macLow, type,
                                           buffer, size);
    case GenTL::NQ_DEVICE_INFO_IP:
        return NQGenTLUtil::CopyInfoUint32(empty.ipAddress, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_SUBNET:
        return NQGenTLUtil::CopyInfoUint32(empty.subnetMask, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_GATEWAY:
        return NQGenTLUtil::CopyInfoUint32(empty.gateway, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_IPCONFIG_CURRENT:
        return NQGenTLUtil::CopyInfoUint32(empty.ipConfigCurrent, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_IPCONFIG_OPTIONS:
        return NQGenTLUtil::CopyInfoUint32(empty.ipConfigOptions, type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_PERSISTENT_IP:
        return _getPersistentIP(type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_PERSISTENT_SUBNET:
        return _getPersistentSubnet(type, buffer, size);
    case GenTL::NQ_DEVICE_INFO_PERSISTENT_GATEWAY:
        return _getPersistentGateway(type, buffer, size);
    default:
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", "GetInfo", command);
    }
}

int NQGevDevice::_getId(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.id, type, buffer, size);
}

int NQGevDevice::_getVendor(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.vendorName, type, buffer, size);
}

int NQGevDevice::_getModel(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.modelName, type, buffer, size);
}

int NQGevDevice::_getTLType(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.tlType, type, buffer, size);
}

int NQGevDevice::_getDisplayName(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.displayName, type, buffer, size);
}

int NQGevDevice::_getAccessStatus(int* type, void* buffer, unsigned long* size)
{
    const int status = m_remote ? m_remote->GetAccessStatus() : GenTL::DEVICE_ACCESS_STATUS_UNKNOWN;
    return NQGenTLUtil::CopyInfoInt32(status, type, buffer, size);
}

int NQGevDevice::_getUserDefinedName(int* type, void* buffer, unsigned long* size)
{
    char name[512] = {};
    const int result = ReadCamera(gvcp_wire::kRegUserDefinedName, name, sizeof name);
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return NQFailed(result, "%s ReadPort(GVCP_USERDEFINED_NAME):%d", "_getUserDefinedName", result);
    }
    return NQGenTLUtil::CopyInfoString(std::string(name, strnlen(name, sizeof name)), type, buffer, size);
}

int NQGevDevice::_getSerialNumber(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.serialNumber, type, buffer, size);
}

int NQGevDevice::_getVersion(int* type, void* buffer, unsigned long* size)
{
    return NQGenTLUtil::CopyInfoString(m_info.deviceVersion, type, buffer, size);
}

int NQGevDevice::_getTimestampFreq(int* type, void* buffer, unsigned long* size)
{
    if (Answers().timestampInHertz)
    {
        return GetTickFrequencyInfo(type, buffer, size);
    }
    // Deliberate(FrequencyKeepsNetworkOrder): each half keeps the network order in which the port delivers it, as the
    // bytes of a register do in a read of the port: a consumer swaps both alike.
    unsigned int low = 0;
    int result = ReadCamera(gvcp_wire::kRegTimestampFrequencyLow, &low, sizeof low);
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return NQFailed(result, "%s ReadPort(GVCP_TIMESTAMP_TICK_FREQUENCY_LO):%d", "_getTimestampFreq", result);
    }
    unsigned int high = 0;
    result = ReadCamera(gvcp_wire::kRegTimestampFrequencyHigh, &high, sizeof high);
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return NQFailed(result, "%s ReadPort(GVCP_TIMESTAMP_TICK_FREQUENCY_HI):%d", "_getTimestampFreq", result);
    }
    return NQGenTLUtil::CopyInfoUint64((static_cast<unsigned long>(high) << 32) | low, type, buffer, size);
}

int NQGevDevice::GetTickFrequencyInfo(int* type, void* buffer, unsigned long* size)
{
    const unsigned long frequency = m_remote ? m_remote->GetTickFrequency() : 0;
    if (frequency == 0)
    {
        return NQFailed(GenTL::GC_ERR_NOT_AVAILABLE, "%s GC_ERR_NOT_AVAILABLE", "_getTimestampFreq");
    }
    return NQGenTLUtil::CopyInfoUint64(frequency, type, buffer, size);
}

int NQGevDevice::_getPersistentIP(int* type, void* buffer, unsigned long* size)
{
    return GetPersistentAddress("_getPersistentIP", gvcp_wire::kRegPersistentIp, type, buffer, size);
}

int NQGevDevice::_getPersistentSubnet(int* type, void* buffer, unsigned long* size)
{
    return GetPersistentAddress("_getPersistentSubnet", gvcp_wire::kRegPersistentSubnet, type, buffer, size);
}

int NQGevDevice::_getPersistentGateway(int* type, void* buffer, unsigned long* size)
{
    return GetPersistentAddress("_getPersistentGateway", gvcp_wire::kRegPersistentGateway, type, buffer, size);
}

int NQGevDevice::GetPersistentAddress(const char* operation, unsigned long address, int* type, void* buffer,
                                      unsigned long* size)
{
    unsigned int value = 0;
    const int result = ReadCamera(address, &value, sizeof value);
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        // Deliberate(TextNamesTheTimestamp): the text names the timestamp register, whichever was read: it is one text
        // for all, and the operation in front of it tells which register it was.
        return NQFailed(result, "%s ReadPort(GVCP_TIMESTAMP_TICK_FREQUENCY_LO):%d", operation, result);
    }
    return NQGenTLUtil::CopyInfoUint32(ntohl(value), type, buffer, size);
}

int NQGevDevice::ReadCamera(unsigned long address, void* buffer, unsigned long size)
{
    return m_remote ? m_remote->ReadPort(address, buffer, &size) : static_cast<int>(GenTL::GC_ERR_IO);
}
