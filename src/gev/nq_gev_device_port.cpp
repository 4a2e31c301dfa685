// SPDX-License-Identifier: Apache-2.0
// The virtual register map of the device port.
#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "gentl/nq_gentl_mutex.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_device_registers.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_port_range.h"
#include "gev/nq_gev_remote_device.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr unsigned int kEndianessMechanisms = 2; // legacy and standard

} // namespace

int NQGevDevice::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("ReadPort");
    }
    return Answers().portRanges ? NQGevReadRange(Port(), address, buffer, *size) : ReadRegister(address, buffer, size);
}

NQGevPort NQGevDevice::Port()
{
    return NQGevPortOf(*this, kDeviceRegisters, &NQGevDevice::ReadRegister, &NQGevDevice::WriteRegister);
}

int NQGevDevice::ReadRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case kXmlAddress:
        return reader.Description(GetXMLInfo());
    case kDeviceRegisters.At("DeviceID_Reg"):
        return GetInfo(GenTL::DEVICE_INFO_ID, &type, buffer, size);
    case kDeviceRegisters.At("DeviceVendorName_Reg"):
        return GetInfo(GenTL::DEVICE_INFO_VENDOR, &type, buffer, size);
    case kDeviceRegisters.At("DeviceModelName_Reg"):
        return GetInfo(GenTL::DEVICE_INFO_MODEL, &type, buffer, size);
    case kDeviceRegisters.At("DeviceAccessStatus_Reg"):
        return GetInfo(GenTL::DEVICE_INFO_ACCESS_STATUS, &type, buffer, size);
    case kDeviceRegisters.At("StreamSelector_Reg"):
    case kDeviceRegisters.At("StreamID_Reg"):
    case kDeviceRegisters.At("NrStreams_Reg"):
        return ReadStreamRegister(address, reader);
    case kDeviceRegisters.At("GevDeviceMACAddress_Reg"):
    case kDeviceRegisters.At("GevDeviceIPAddress_Reg"):
    case kDeviceRegisters.At("GevDeviceSubnetMask_Reg"):
    case kDeviceRegisters.At("GevDeviceGateway_Reg"):
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
    case kDeviceRegisters.At("StreamSelector_Reg"):
        return reader.Number(m_streamSelector);
    case kDeviceRegisters.At("NrStreams_Reg"):
        return reader.Number(m_streams.GetCount());
    default: {
        GigERDMA::NQGenTLModuleBase* const stream = m_streams.FindByIndex(m_streamSelector, false);
        if (stream == nullptr && Answers().nodeMaps)
        {
            return GenTL::GC_ERR_NOT_AVAILABLE;
        }
        return reader.Text(stream != nullptr ? stream->GetId() : "");
    }
    }
}

int NQGevDevice::ReadAddressRegister(unsigned long address, const NQGevPortReader& reader)
{
    const _NQ_GEV_DEVICE_INFO info = m_remote ? m_remote->GetDeviceInfo() : m_info;
    switch (address)
    {
    case kDeviceRegisters.At("GevDeviceMACAddress_Reg"):
        return reader.LongNumber((static_cast<unsigned long>(info.macHigh) << 32) | info.macLow);
    case kDeviceRegisters.At("GevDeviceIPAddress_Reg"):
        return reader.Number(info.ipAddress);
    case kDeviceRegisters.At("GevDeviceSubnetMask_Reg"):
        return reader.Number(info.subnetMask);
    default:
        return reader.Number(info.gateway);
    }
}

int NQGevDevice::ReadStoredRegister(unsigned long address, const NQGevPortReader& reader)
{
    switch (address)
    {
    case kDeviceRegisters.At("UpdateXMLFile_Reg"): {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        return reader.Text(std::string(m_updateFile, strnlen(m_updateFile, sizeof m_updateFile)));
    }
    case kDeviceRegisters.At("UpdateXML_Reg"):
        return reader.Number(0);
    case kDeviceRegisters.At("EventNotification_Reg"):
        return reader.Number(m_eventNotification.load(std::memory_order_relaxed));
    default:
        break;
    }
    if (Answers().portRanges && address == kDeviceRegisters.At("DeviceEndianessMechanism_Reg"))
    {
        return reader.Number(m_endianessMechanism);
    }
    return GenTL::GC_ERR_INVALID_ADDRESS;
}

int NQGevDevice::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("WritePort");
    }
    return Answers().portRanges ? NQGevWriteRange(Port(), address, buffer, *size)
                                : WriteRegister(address, buffer, size);
}

/// The two registers that the standard's answers let be written.
int NQGevDevice::WriteStandardRegister(unsigned long address, unsigned int value)
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    const bool selects = address == kDeviceRegisters.At("StreamSelector_Reg");
    if (value >= (selects ? m_streams.GetCount() : kEndianessMechanisms))
    {
        return GenTL::GC_ERR_INVALID_VALUE;
    }
    if (selects)
    {
        m_streamSelector = value;
    }
    else
    {
        m_endianessMechanism = value;
    }
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevDevice::WriteRegister(unsigned long address, const void* buffer, unsigned long* size)
{
    if (Answers().portRanges)
    {
        return WriteStandardRegister(address, NQGevRegisterValue(buffer, *size));
    }
    switch (address)
    {
    case kDeviceRegisters.At("StreamSelector_Reg"): {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        m_streamSelector = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    case kDeviceRegisters.At("UpdateXMLFile_Reg"): {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        std::memcpy(m_updateFile, buffer, std::min<unsigned long>(*size, sizeof m_updateFile));
        return GenTL::GC_ERR_SUCCESS;
    }
    case kDeviceRegisters.At("UpdateXML_Reg"):
        return GenTL::GC_ERR_SUCCESS;
    case kDeviceRegisters.At("EventNotification_Reg"):
        m_eventNotification.store(NQGevRegisterValue(buffer, *size), std::memory_order_relaxed);
        return GenTL::GC_ERR_SUCCESS;
    default:
        // Deliberate(UpdateStatusIsDenied): denied like a register, though nothing can be read there: the register map
        // lists it as one that is read only.
        return NQGevWriteRefused(kDeviceRegisters, address);
    }
}
