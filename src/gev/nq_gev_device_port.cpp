// SPDX-License-Identifier: Apache-2.0
// The virtual register map of the device port.
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_mutex.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_port.h"
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

} // namespace

int NQGevDevice::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("ReadPort");
    }
    GigERDMA::ClearForPort(Answers(), buffer, size);
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case kXmlAddress:
        return reader.Description(GetXMLInfo());
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
        return ReadStreamRegister(address, reader);
    case deviceMacAddress:
    case deviceIpAddress:
    case deviceSubnetMask:
    case deviceGateway:
        return ReadAddressRegister(address, reader);
    default:
        return ReadStoredRegister(address, reader);
    }
}

int NQGevDevice::ReadStreamRegister(unsigned long address, const NQGevPortReader& reader)
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    switch (address)
    {
    case streamSelector:
        return reader.Number(m_streamSelector);
    case nrStreams:
        return reader.Number(m_streams.GetCount());
    default: {
        GigERDMA::NQGenTLModuleBase* const stream = m_streams.FindByIndex(m_streamSelector, false);
        return reader.Text(stream != nullptr ? stream->GetId() : "");
    }
    }
}

int NQGevDevice::ReadAddressRegister(unsigned long address, const NQGevPortReader& reader)
{
    const _NQ_GEV_DEVICE_INFO info = m_remote ? m_remote->GetDeviceInfo() : m_info;
    switch (address)
    {
    case deviceMacAddress:
        return reader.LongNumber((static_cast<unsigned long>(info.macHigh) << 32) | info.macLow);
    case deviceIpAddress:
        return reader.Number(info.ipAddress);
    case deviceSubnetMask:
        return reader.Number(info.subnetMask);
    default:
        return reader.Number(info.gateway);
    }
}

int NQGevDevice::ReadStoredRegister(unsigned long address, const NQGevPortReader& reader)
{
    switch (address)
    {
    case updateXmlFile: {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        return reader.Text(std::string(m_updateFile, strnlen(m_updateFile, sizeof m_updateFile)));
    }
    case updateXml:
        return reader.Number(0);
    case eventNotification:
        return reader.Number(m_eventNotification.load(std::memory_order_relaxed));
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

int NQGevDevice::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("WritePort");
    }
    switch (address)
    {
    case streamSelector: {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        m_streamSelector = NQGevRegisterValue(buffer, *size);
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
        m_eventNotification.store(NQGevRegisterValue(buffer, *size), std::memory_order_relaxed);
        return GenTL::GC_ERR_SUCCESS;
    case kXmlAddress:
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
