// SPDX-License-Identifier: Apache-2.0
// The virtual register map of the device port.
#include "gentl/nq_gentl_mutex.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_remote_device.h"

#include <GenTL/GenTL.h>
#include <algorithm>
#include <cstring>

namespace
{

constexpr unsigned long deviceId = 0x70000;
constexpr unsigned long deviceVendorName = 0x70100;
constexpr unsigned long deviceModelName = 0x70200;
constexpr unsigned long deviceAccessStatus = 0x70300;
constexpr unsigned long streamSelector = 0x70304;
constexpr unsigned long streamId = 0x70308;
constexpr unsigned long nrStreams = 0x70408;
constexpr unsigned long deviceMacAddress = 0x7040C;
constexpr unsigned long deviceIpAddress = 0x70410;
constexpr unsigned long deviceSubnetMask = 0x70414;
constexpr unsigned long deviceGateway = 0x70418;
constexpr unsigned long updateXmlFile = 0x7041C;
constexpr unsigned long updateXmlStatus = 0x7051C;
constexpr unsigned long updateXml = 0x7052C;
constexpr unsigned long eventNotification = 0x70530;

int InvalidParameter(const char* operation)
{
    return NQGevFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", operation);
}

/// The first four bytes of what the consumer writes, filled up with zeros where it gives fewer.
unsigned int RegisterValue(const void* buffer, unsigned long size)
{
    unsigned int value = 0;
    std::memcpy(&value, buffer, std::min<unsigned long>(size, sizeof value));
    return value;
}

} // namespace

int NQGevDevice::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return InvalidParameter("ReadPort");
    }
    int type = 0;
    switch (address)
    {
    case g_XmlAddress: {
        const GigERDMA::_NQ_GENTL_XML_INFO info = GetXMLInfo();
        std::memcpy(buffer, info.xml.c_str(), std::min<unsigned long>(*size, info.size));
        return GenTL::GC_ERR_SUCCESS;
    }
    case deviceId:
        return GetInfo(GenTL::DEVICE_INFO_ID, &type, buffer, size);
    case deviceVendorName:
        return GetInfo(GenTL::DEVICE_INFO_VENDOR, &type, buffer, size);
    case deviceModelName:
        return GetInfo(GenTL::DEVICE_INFO_MODEL, &type, buffer, size);
    case deviceAccessStatus:
        return GetInfo(GenTL::DEVICE_INFO_ACCESS_STATUS, &type, buffer, size);
    case streamSelector:
    case streamId:
    case nrStreams:
        return ReadStreamRegister(address, buffer, size);
    case deviceMacAddress:
    case deviceIpAddress:
    case deviceSubnetMask:
    case deviceGateway:
        return ReadAddressRegister(address, buffer, size);
    default:
        return ReadStoredRegister(address, buffer, size);
    }
}

int NQGevDevice::ReadStreamRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    switch (address)
    {
    case streamSelector:
        return NQGenTLUtil::CopyInfoUint32(m_streamSelector, &type, buffer, size);
    case nrStreams:
        return NQGenTLUtil::CopyInfoUint32(m_streams.GetCount(), &type, buffer, size);
    default: {
        GigERDMA::NQGenTLModuleBase* const stream = m_streams.FindByIndex(m_streamSelector, false);
        return NQGenTLUtil::CopyInfoString(stream != nullptr ? stream->GetId() : "", &type, buffer, size);
    }
    }
}

int NQGevDevice::ReadAddressRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    const _NQ_GEV_DEVICE_INFO info = m_remote ? m_remote->GetDeviceInfo() : m_info;
    switch (address)
    {
    case deviceMacAddress:
        return NQGenTLUtil::CopyInfoUint64((static_cast<unsigned long>(info.macHigh) << 32) | info.macLow, &type,
                                           buffer, size);
    case deviceIpAddress:
        return NQGenTLUtil::CopyInfoUint32(info.ipAddress, &type, buffer, size);
    case deviceSubnetMask:
        return NQGenTLUtil::CopyInfoUint32(info.subnetMask, &type, buffer, size);
    default:
        return NQGenTLUtil::CopyInfoUint32(info.gateway, &type, buffer, size);
    }
}

int NQGevDevice::ReadStoredRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    switch (address)
    {
    case updateXmlFile: {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        return NQGenTLUtil::CopyInfoString(std::string(m_updateFile, strnlen(m_updateFile, sizeof m_updateFile)), &type,
                                           buffer, size);
    }
    case updateXml:
        return NQGenTLUtil::CopyInfoUint32(0, &type, buffer, size);
    case eventNotification:
        return NQGenTLUtil::CopyInfoUint32(m_eventNotification.load(std::memory_order_relaxed), &type, buffer, size);
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

int NQGevDevice::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return InvalidParameter("WritePort");
    }
    switch (address)
    {
    case streamSelector: {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        m_streamSelector = RegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    case updateXmlFile: {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        std::memcpy(m_updateFile, buffer, std::min<unsigned long>(*size, sizeof m_updateFile));
        return GenTL::GC_ERR_SUCCESS;
    }
    case updateXml:
        return GenTL::GC_ERR_SUCCESS;
    case eventNotification:
        m_eventNotification.store(RegisterValue(buffer, *size), std::memory_order_relaxed);
        return GenTL::GC_ERR_SUCCESS;
    case g_XmlAddress:
    case deviceId:
    case deviceVendorName:
    case deviceModelName:
    case deviceAccessStatus:
    case streamId:
    case nrStreams:
    case deviceMacAddress:
    case deviceIpAddress:
    case deviceSubnetMask:
    case deviceGateway:
    case updateXmlStatus: // Deliberate: denied like a register, though nothing can be read there.
        return GenTL::GC_ERR_ACCESS_DENIED;
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}
