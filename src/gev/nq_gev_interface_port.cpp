// SPDX-License-Identifier: Apache-2.0
// The port of the interface module: its identity, its register description and its virtual register map.
#include "gentl/nq_gentl_clear.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

using namespace GigERDMA;

namespace
{

constexpr unsigned long kInterfaceID = 0x60000;
constexpr unsigned long kDeviceUpdateList = 0x60104;
constexpr unsigned long kDeviceSelector = 0x60108;
constexpr unsigned long kDeviceID = 0x6010C;
constexpr unsigned long kDeviceVendorName = 0x6020C;
constexpr unsigned long kDeviceModelName = 0x6030C;
constexpr unsigned long kDeviceAccessStatus = 0x6040C;
constexpr unsigned long kNrDevices = 0x60410;
constexpr unsigned long kGatewaySelector = 0x60414;
constexpr unsigned long kNrGateways = 0x60418;
constexpr unsigned long kGateway = 0x6041C;
constexpr unsigned long kMACAddress = 0x60420;
constexpr unsigned long kSubnetSelector = 0x60428;
constexpr unsigned long kNrSubnets = 0x60430;
constexpr unsigned long kSubnetIPAddress = 0x60434;
constexpr unsigned long kSubnetMask = 0x60438;
constexpr unsigned long kDeviceIPAddress = 0x6043C;
constexpr unsigned long kDeviceSubnetMask = 0x60440;
constexpr unsigned long kDeviceMACAddress = 0x60444;
constexpr unsigned long kNoRegister = 0x60448;

constexpr unsigned long kPortScanTimeout = 5000; // milliseconds

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
    ClearForPort(Answers(), buffer, size);
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case kXmlAddress:
        return reader.Description(GetXMLInfo());
    case kInterfaceID:
        return GetInfo(GenTL::INTERFACE_INFO_ID, &type, buffer, size);
    case kGatewaySelector:
    case kNrGateways:
    case kGateway:
    case kMACAddress:
    case kSubnetSelector:
    case kNrSubnets:
    case kSubnetIPAddress:
    case kSubnetMask:
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
    case kGatewaySelector:
    case kSubnetSelector:
        return reader.Number(0);
    case kNrGateways:
    case kNrSubnets:
        return reader.Number(1);
    case kMACAddress:
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
    case kDeviceUpdateList:
        return reader.Number(m_updating ? 1 : 0);
    case kDeviceSelector:
        return reader.Number(m_deviceSelector);
    case kNrDevices:
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
    case kDeviceID:
        return reader.Text(selected.id);
    case kDeviceVendorName:
        return reader.Text(selected.vendorName);
    case kDeviceModelName:
        return reader.Text(selected.modelName);
    // Deliberate: the stored status, always unknown. Only GetDeviceInfo asks the camera.
    case kDeviceAccessStatus:
        return reader.Number(selected.accessStatus);
    case kDeviceIPAddress:
        return reader.Number(selected.ipAddress);
    case kDeviceSubnetMask:
        return reader.Number(selected.subnetMask);
    case kDeviceMACAddress:
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
    case kDeviceUpdateList: {
        const NQGevUpdatingFlag updating(m_moduleLock, m_updating);
        UpdateDeviceList(nullptr, kPortScanTimeout);
        return GenTL::GC_ERR_SUCCESS;
    }
    case kDeviceSelector: {
        const NQGenTLLock lock(m_moduleLock);
        m_deviceSelector = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    // Deliberate: there is no register at the last of these, but a write to it has always been taken.
    case kGatewaySelector:
    case kSubnetSelector:
    case kNoRegister:
        return GenTL::GC_ERR_SUCCESS;
    case kXmlAddress:
    case kInterfaceID:
    case kDeviceID:
    case kDeviceVendorName:
    case kDeviceModelName:
    case kDeviceAccessStatus:
    case kNrDevices:
    case kNrGateways:
    case kGateway:
    case kMACAddress:
    case kNrSubnets:
    case kSubnetIPAddress:
    case kSubnetMask:
    case kDeviceIPAddress:
    case kDeviceSubnetMask:
    case kDeviceMACAddress:
        return GenTL::GC_ERR_ACCESS_DENIED;
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}
