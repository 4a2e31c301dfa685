// SPDX-License-Identifier: Apache-2.0
// The virtual register map of the device port.
#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_mutex.h"
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_device_registers.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_remote_device.h"

#include <algorithm>
#include <cstring>

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
