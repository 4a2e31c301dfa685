// SPDX-License-Identifier: Apache-2.0
// The port of the interface module: its identity, its register description and its virtual register map.
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

#include <algorithm>
#include <cstring>

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
    _NQ_GENTL_PORT_INFO info;
    info.id = "NQGenTLGevRDMA";
    info.vendor = "Nerquil Optic";
    info.model = "GEVRDMATL";
    info.tlType = "GEV";
    info.module = "TLInterface";
    info.littleEndian = true;
    info.accessRead = true;
    info.accessWrite = true;
    info.version = "2.5.5";
    info.portName = "InterfacePort";
    return info;
}

_NQ_GENTL_XML_INFO NQGevInterface::GetXMLInfo()
{
    _NQ_GENTL_XML_INFO info;
    info.fileName = g_XmlFileNameInterface;
    info.xml = CreateXmlFileInterface();
    info.size = info.xml.size() + 1;
    return info;
}

std::vector<std::string> NQGevInterface::GetURLList()
{
    const _NQ_GENTL_XML_INFO info = GetXMLInfo();
    return {NQGenTLUtil::BuildLocalURL(info.fileName, info.xml, g_XmlAddress)};
}

int NQGevInterface::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", "ReadPort");
    }
    int type = 0;
    switch (address)
    {
    case g_XmlAddress: {
        const _NQ_GENTL_XML_INFO info = GetXMLInfo();
        std::memcpy(buffer, info.xml.c_str(), std::min(*size, info.size));
        return GenTL::GC_ERR_SUCCESS;
    }
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
        return _readAdapterRegister(address, buffer, size);
    default:
        return _readListRegister(address, buffer, size);
    }
}

int NQGevInterface::_readAdapterRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    switch (address)
    {
    // Deliberate: the selectors take writes and keep reading 0, since there is one gateway and one subnet.
    case g_GatewaySelector:
    case g_SubnetSelector:
        return NQGenTLUtil::CopyInfoUint32(0, &type, buffer, size);
    case g_NrGateways:
    case g_NrSubnets:
        return NQGenTLUtil::CopyInfoUint32(1, &type, buffer, size);
    case g_MACAddress:
        return NQGenTLUtil::CopyInfoUint64(NQGevUtil::MacAddressToUint64(m_info.macAddress), &type, buffer, size);
    // Deliberate: subnet address and mask read the gateway, which is not known, as it does itself.
    default:
        return NQGenTLUtil::CopyInfoUint32(NQGevUtil::IPAddressToUint32(m_info.gateway), &type, buffer, size);
    }
}

int NQGevInterface::_readListRegister(unsigned long address, void* buffer, unsigned long* size)
{
    const NQGenTLLock lock(m_moduleLock);
    int type = 0;
    switch (address)
    {
    case g_DeviceUpdateList:
        return NQGenTLUtil::CopyInfoUint32(m_updating ? 1 : 0, &type, buffer, size);
    case g_DeviceSelector:
        return NQGenTLUtil::CopyInfoUint32(m_deviceSelector, &type, buffer, size);
    case g_NrDevices:
        return NQGenTLUtil::CopyInfoUint32(static_cast<unsigned int>(m_deviceList.size()), &type, buffer, size);
    default:
        return _readSelectedDevice(address, buffer, size);
    }
}

int NQGevInterface::_readSelectedDevice(unsigned long address, void* buffer, unsigned long* size)
{
    // Deliberate: past the end of the list every register of the selection reads empty, with success.
    const bool listed = m_deviceSelector < m_deviceList.size();
    const _NQ_GEV_DEVICE_INFO selected = listed ? m_deviceList[m_deviceSelector] : _NQ_GEV_DEVICE_INFO{};
    int type = 0;
    switch (address)
    {
    case g_DeviceID:
        return NQGenTLUtil::CopyInfoString(selected.id, &type, buffer, size);
    case g_DeviceVendorName:
        return NQGenTLUtil::CopyInfoString(selected.vendorName, &type, buffer, size);
    case g_DeviceModelName:
        return NQGenTLUtil::CopyInfoString(selected.modelName, &type, buffer, size);
    // Deliberate: the stored status, always unknown. Only GetDeviceInfo asks the camera.
    case g_DeviceAccessStatus:
        return NQGenTLUtil::CopyInfoUint32(selected.accessStatus, &type, buffer, size);
    case g_DeviceIPAddress:
        return NQGenTLUtil::CopyInfoUint32(selected.ipAddress, &type, buffer, size);
    case g_DeviceSubnetMask:
        return NQGenTLUtil::CopyInfoUint32(selected.subnetMask, &type, buffer, size);
    case g_DeviceMACAddress:
        return NQGenTLUtil::CopyInfoUint64(static_cast<unsigned long>(selected.macHigh) << 32 | selected.macLow, &type,
                                           buffer, size);
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

int NQGevInterface::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", "WritePort");
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
