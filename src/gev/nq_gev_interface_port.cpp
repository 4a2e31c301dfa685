// SPDX-License-Identifier: Apache-2.0
// The port of the interface module: its identity, its register description and its virtual register map.
#include "base/nq_answers.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_interface_registers.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_port_range.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

using namespace GigERDMA;

namespace
{

constexpr unsigned long kDeviceScanTimeout = 5000;         // milliseconds
constexpr unsigned long kStandardDeviceScanTimeout = 1000; // milliseconds: the write of a command blocks as long

} // namespace

bool NQGevInterface::IsPortImplemented()
{
    return true;
}

bool NQGevInterface::IsEventImplemented(int type)
{
    return type == GenTL::EVENT_ERROR;
}

_NQ_GENTL_PORT_INFO NQGevInterface::GetPortInfo()
{
    return NQGevPortInfo("TLInterface", "InterfacePort");
}

_NQ_GENTL_XML_INFO NQGevInterface::GetXMLInfo()
{
    return Answers().nodeMaps ? NQGevXmlInfo(kStandardXmlFileNameInterface, CreateStandardXmlFileInterface())
                              : NQGevXmlInfo(g_XmlFileNameInterface, CreateXmlFileInterface());
}

std::vector<std::string> NQGevInterface::GetURLList()
{
    return NQGevUrlList(GetXMLInfo());
}

int NQGevInterface::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("ReadPort");
    }
    return Answers().portRanges ? NQGevReadRange(_port(), address, buffer, *size)
                                : _readRegister(address, buffer, size);
}

NQGevPort NQGevInterface::_port()
{
    return NQGevPortOf(*this, kInterfaceRegisters, &NQGevInterface::_readRegister, &NQGevInterface::_writeRegister);
}

int NQGevInterface::_readRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case kXmlAddress:
        return reader.Description(GetXMLInfo());
    case kInterfaceRegisters.At("InterfaceID_Reg"):
        return GetInfo(GenTL::INTERFACE_INFO_ID, &type, buffer, size);
    case kInterfaceRegisters.At("GevInterfaceGatewaySelector_Reg"):
    case kInterfaceRegisters.At("NrGateways_Reg"):
    case kInterfaceRegisters.At("GevInterfaceGateway_Reg"):
    case kInterfaceRegisters.At("GevInterfaceMACAddress_Reg"):
    case kInterfaceRegisters.At("GevInterfaceSubnetSelector_Reg"):
    case kInterfaceRegisters.At("NrSubnets_Reg"):
    case kInterfaceRegisters.At("GevInterfaceSubnetIPAddress_Reg"):
    case kInterfaceRegisters.At("GevInterfaceSubnetMask_Reg"):
        return _readAdapterRegister(address, reader);
    case kInterfaceRegisters.At("DeviceAccessStatus_Reg"):
        return Answers().nodeMaps ? _readSelectedStatus(buffer, size) : _readListRegister(address, reader);
    default:
        return _readListRegister(address, reader);
    }
}

int NQGevInterface::_readAdapterRegister(unsigned long address, const NQGevPortReader& reader)
{
    switch (address)
    {
    // Deliberate(SelectorsReadZero): the selectors take writes and keep reading 0, since there is one gateway and one
    // subnet.
    case kInterfaceRegisters.At("GevInterfaceGatewaySelector_Reg"):
    case kInterfaceRegisters.At("GevInterfaceSubnetSelector_Reg"):
        return reader.Number(0);
    case kInterfaceRegisters.At("NrGateways_Reg"):
        return reader.Number(Answers().nodeMaps && NQGevUtil::GetDefaultGateway(m_info.adapterName) == 0 ? 0 : 1);
    case kInterfaceRegisters.At("NrSubnets_Reg"):
        return reader.Number(1);
    case kInterfaceRegisters.At("GevInterfaceMACAddress_Reg"):
        return reader.LongNumber(NQGevUtil::MacAddressToUint64(m_info.macAddress));
    default:
        return _readAdapterAddress(address, reader);
    }
}

int NQGevInterface::_readAdapterAddress(unsigned long address, const NQGevPortReader& reader)
{
    if (!Answers().nodeMaps)
    {
        // Deliberate(MaskReadsTheGateway): subnet address and mask read the gateway, which is not known, as it does
        // itself.
        return reader.Number(NQGevUtil::IPAddressToUint32(m_info.gateway));
    }
    switch (address)
    {
    case kInterfaceRegisters.At("GevInterfaceSubnetIPAddress_Reg"):
        return reader.Number(NQGevUtil::IPAddressToUint32(m_info.ipAddress));
    case kInterfaceRegisters.At("GevInterfaceSubnetMask_Reg"):
        return reader.Number(NQGevUtil::IPAddressToUint32(m_info.subnetMask));
    default:
        return reader.Number(NQGevUtil::GetDefaultGateway(m_info.adapterName));
    }
}

int NQGevInterface::_readSelectedStatus(void* buffer, unsigned long* size)
{
    _NQ_GEV_DEVICE_INFO selected;
    unsigned int index = 0;
    {
        const NQGenTLLock lock(m_moduleLock);
        index = m_deviceSelector;
    }
    int type = 0;
    return _findDeviceInfoByIndex(index, selected)
               ? GetDeviceInfo(selected.id.c_str(), GenTL::DEVICE_INFO_ACCESS_STATUS, &type, buffer, size)
               : static_cast<int>(GenTL::GC_ERR_NOT_AVAILABLE);
}

int NQGevInterface::_readListRegister(unsigned long address, const NQGevPortReader& reader)
{
    const NQGenTLLock lock(m_moduleLock);
    switch (address)
    {
    case kInterfaceRegisters.At("DeviceUpdateList_Reg"):
        return reader.Number(m_updating ? 1 : 0);
    case kInterfaceRegisters.At("DeviceSelector_Reg"):
        return reader.Number(m_deviceSelector);
    case kInterfaceRegisters.At("NrDevices_Reg"):
        return reader.Number(static_cast<unsigned int>(m_deviceList.size()));
    default:
        return _readSelectedDevice(address, reader);
    }
}

int NQGevInterface::_readSelectedDevice(unsigned long address, const NQGevPortReader& reader)
{
    // Deliberate(PastTheEndIsEmpty): past the end of the list every register of the selection reads empty, with
    // success, so that a display of a list that shrinks meanwhile shows nothing rather than an error.
    const bool listed = m_deviceSelector < m_deviceList.size();
    if (Answers().nodeMaps && !listed)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    const _NQ_GEV_DEVICE_INFO selected = listed ? m_deviceList[m_deviceSelector] : _NQ_GEV_DEVICE_INFO{};
    switch (address)
    {
    case kInterfaceRegisters.At("DeviceID_Reg"):
        return reader.Text(selected.id);
    case kInterfaceRegisters.At("DeviceVendorName_Reg"):
        return reader.Text(selected.vendorName);
    case kInterfaceRegisters.At("DeviceModelName_Reg"):
        return reader.Text(selected.modelName);
    // Deliberate(StoredStatusIsUnknown): the stored status, always unknown. Only GetDeviceInfo asks the camera.
    case kInterfaceRegisters.At("DeviceAccessStatus_Reg"):
        return reader.Number(selected.accessStatus);
    case kInterfaceRegisters.At("GevDeviceIPAddress_Reg"):
        return reader.Number(selected.ipAddress);
    case kInterfaceRegisters.At("GevDeviceSubnetMask_Reg"):
        return reader.Number(selected.subnetMask);
    case kInterfaceRegisters.At("GevDeviceMACAddress_Reg"):
        return reader.LongNumber(static_cast<unsigned long>(selected.macHigh) << 32 | selected.macLow);
    default:
        break;
    }
    if (!Answers().portRanges)
    {
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
    switch (address)
    {
    case kInterfaceRegisters.At("DeviceTLVersionMajor_Reg"):
        return reader.Number(selected.specVersion >> 16);
    case kInterfaceRegisters.At("DeviceTLVersionMinor_Reg"):
        return reader.Number(selected.specVersion & 0xFFFF);
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

int NQGevInterface::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("WritePort");
    }
    return Answers().portRanges ? NQGevWriteRange(_port(), address, buffer, *size)
                                : _writeRegister(address, buffer, size);
}

int NQGevInterface::_writeRegister(unsigned long address, const void* buffer, unsigned long* size)
{
    switch (address)
    {
    case kInterfaceRegisters.At("DeviceUpdateList_Reg"): {
        const NQGevUpdatingFlag updating(m_moduleLock, m_updating);
        UpdateDeviceList(nullptr, Answers().nodeMaps ? kStandardDeviceScanTimeout : kDeviceScanTimeout);
        return GenTL::GC_ERR_SUCCESS;
    }
    case kInterfaceRegisters.At("DeviceSelector_Reg"): {
        const unsigned int index = NQGevRegisterValue(buffer, *size);
        const NQGenTLLock lock(m_moduleLock);
        if (Answers().nodeMaps && index >= m_deviceList.size())
        {
            return GenTL::GC_ERR_INVALID_VALUE;
        }
        m_deviceSelector = index;
        return GenTL::GC_ERR_SUCCESS;
    }
    case kInterfaceRegisters.At("GevInterfaceGatewaySelector_Reg"):
    case kInterfaceRegisters.At("GevInterfaceSubnetSelector_Reg"):
        return Answers().nodeMaps && NQGevRegisterValue(buffer, *size) != 0
                   ? static_cast<int>(GenTL::GC_ERR_INVALID_VALUE)
                   : static_cast<int>(GenTL::GC_ERR_SUCCESS);
    // Deliberate(WriteWithoutARegister): no register begins here, and a read fails. A write is taken and changes
    // nothing, as one to the selectors in front of it does.
    case kInterfaceRegisters.At("NoRegister"):
        return GenTL::GC_ERR_SUCCESS;
    default:
        return NQGevWriteRefused(kInterfaceRegisters, address);
    }
}
