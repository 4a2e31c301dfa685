// SPDX-License-Identifier: Apache-2.0
// The port of the interface module: its identity, its register description and its virtual register map.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

using namespace GigERDMA;

namespace
{

constexpr unsigned long g_InterfaceID = 0x60000;
constexpr unsigned long g_DeviceUpdateList = 0x60104;
constexpr unsigned long g_DeviceSelector = 0x60108;
constexpr unsigned long g_DeviceID = 0x6010C;
constexpr unsigned long g_DeviceVendorName = 0x6020C;
constexpr unsigned long g_DeviceModelName = 0x6030C;
constexpr unsigned long g_DeviceAccessStatus = 0x6040C;
constexpr unsigned long g_NrDevices = 0x60410;
constexpr unsigned long g_GatewaySelector = 0x60414;
constexpr unsigned long g_NrGateways = 0x60418;
constexpr unsigned long g_Gateway = 0x6041C;
constexpr unsigned long g_MACAddress = 0x60420;
constexpr unsigned long g_SubnetSelector = 0x60428;
constexpr unsigned long g_NrSubnets = 0x60430;
constexpr unsigned long g_SubnetIPAddress = 0x60434;
constexpr unsigned long g_SubnetMask = 0x60438;
constexpr unsigned long g_DeviceIPAddress = 0x6043C;
constexpr unsigned long g_DeviceSubnetMask = 0x60440;
constexpr unsigned long g_DeviceMACAddress = 0x60444;
constexpr unsigned long g_NoRegister = 0x60448;

constexpr unsigned long g_PortScanTimeout = 5000; // milliseconds

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
    return NQGevXmlInfo(g_XmlFileNameInterface, CreateXmlFileInterface());
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
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case g_XmlAddress:
        return reader.Description(GetXMLInfo());
    case g_InterfaceID:
        return GetInfo(GenTL::INTERFACE_INFO_ID, &type, buffer, size);
    case g_GatewaySelector:
    case g_NrGateways:
    case g_Gateway:
    case g_MACAddress:
    case g_SubnetSelector:
    case g_NrSubnets:
    case g_SubnetIPAddress:
    case g_SubnetMask:
        return _readAdapterRegister(address, reader);
    default:
        return _readListRegister(address, reader);
    }
}

int NQGevInterface::_readAdapterRegister(unsigned long address, const NQGevPortReader& reader)
{
    switch (address)
    {
    // Deliberate: the selectors take writes and keep reading 0, since there is one gateway and one subnet.
    case g_GatewaySelector:
    case g_SubnetSelector:
        return reader.Number(0);
    case g_NrGateways:
    case g_NrSubnets:
        return reader.Number(1);
    case g_MACAddress:
        return reader.LongNumber(NQGevUtil::MacAddressToUint64(m_info.macAddress));
    // Deliberate: subnet address and mask read the gateway, which is not known, as it does itself.
    default:
        return reader.Number(NQGevUtil::IPAddressToUint32(m_info.gateway));
    }
}

int NQGevInterface::_readListRegister(unsigned long address, const NQGevPortReader& reader)
{
    const NQGenTLLock lock(m_moduleLock);
    switch (address)
    {
    case g_DeviceUpdateList:
        return reader.Number(m_updating ? 1 : 0);
    case g_DeviceSelector:
        return reader.Number(m_deviceSelector);
    case g_NrDevices:
        return reader.Number(static_cast<unsigned int>(m_deviceList.size()));
    default:
        return _readSelectedDevice(address, reader);
    }
}

int NQGevInterface::_readSelectedDevice(unsigned long address, const NQGevPortReader& reader)
{
    // Deliberate: past the end of the list every register of the selection reads empty, with success.
    const bool listed = m_deviceSelector < m_deviceList.size();
    const _NQ_GEV_DEVICE_INFO selected = listed ? m_deviceList[m_deviceSelector] : _NQ_GEV_DEVICE_INFO{};
    switch (address)
    {
    case g_DeviceID:
        return reader.Text(selected.id);
    case g_DeviceVendorName:
        return reader.Text(selected.vendorName);
    case g_DeviceModelName:
        return reader.Text(selected.modelName);
    // Deliberate: the stored status, always unknown. Only GetDeviceInfo asks the camera.
    case g_DeviceAccessStatus:
        return reader.Number(selected.accessStatus);
    case g_DeviceIPAddress:
        return reader.Number(selected.ipAddress);
    case g_DeviceSubnetMask:
        return reader.Number(selected.subnetMask);
    case g_DeviceMACAddress:
        return reader.LongNumber(static_cast<unsigned long>(selected.macHigh) << 32 | selected.macLow);
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
    switch (address)
    {
    case g_DeviceUpdateList: {
        const NQGevUpdatingFlag updating(m_moduleLock, m_updating);
        UpdateDeviceList(nullptr, g_PortScanTimeout);
        return GenTL::GC_ERR_SUCCESS;
    }
    case g_DeviceSelector: {
        const NQGenTLLock lock(m_moduleLock);
        m_deviceSelector = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    // Deliberate: there is no register at the last of these, but a write to it has always been taken.
    case g_GatewaySelector:
    case g_SubnetSelector:
    case g_NoRegister:
        return GenTL::GC_ERR_SUCCESS;
    case g_XmlAddress:
    case g_InterfaceID:
    case g_DeviceID:
    case g_DeviceVendorName:
    case g_DeviceModelName:
    case g_DeviceAccessStatus:
    case g_NrDevices:
    case g_NrGateways:
    case g_Gateway:
    case g_MACAddress:
    case g_NrSubnets:
    case g_SubnetIPAddress:
    case g_SubnetMask:
    case g_DeviceIPAddress:
    case g_DeviceSubnetMask:
    case g_DeviceMACAddress:
        return GenTL::GC_ERR_ACCESS_DENIED;
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}
