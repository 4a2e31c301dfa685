// SPDX-License-Identifier: Apache-2.0
// The port of the system module: its identity, its register description and its virtual register map.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_system.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

using namespace GigERDMA;

namespace
{

constexpr unsigned long g_TLVendorName = 0x50000;
constexpr unsigned long g_TLModelName = 0x50100;
constexpr unsigned long g_TLID = 0x50200;
constexpr unsigned long g_TLVersion = 0x50300;
constexpr unsigned long g_TLPath = 0x50400;
constexpr unsigned long g_GenTLVersionMajor = 0x50504;
constexpr unsigned long g_GenTLVersionMinor = 0x50508;
constexpr unsigned long g_InterfaceUpdateList = 0x5050C;
constexpr unsigned long g_InterfaceSelector = 0x50510;
constexpr unsigned long g_InterfaceID = 0x50514;
constexpr unsigned long g_NrInterfaces = 0x50614;
constexpr unsigned long g_MACAddress = 0x50618;
constexpr unsigned long g_DefaultIPAddress = 0x50620;
constexpr unsigned long g_DefaultSubnetMask = 0x50624;
constexpr unsigned long g_DefaultGateway = 0x50628;

constexpr unsigned long g_PortScanTimeout = 5000; // milliseconds

} // namespace

bool NQGevSystem::IsPortImplemented()
{
    return true;
}

bool NQGevSystem::IsEventImplemented(int /*type*/)
{
    return false;
}

_NQ_GENTL_PORT_INFO NQGevSystem::GetPortInfo()
{
    return NQGevPortInfo("TLSystem", "TLPort");
}

_NQ_GENTL_XML_INFO NQGevSystem::GetXMLInfo()
{
    return NQGevXmlInfo(g_XmlFileNameSystem, CreateXmlFileSystem());
}

std::vector<std::string> NQGevSystem::GetURLList()
{
    return NQGevUrlList(GetXMLInfo());
}

int NQGevSystem::ReadPort(unsigned long address, void* buffer, unsigned long* size)
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
    case g_TLVendorName:
        return GetInfo(GenTL::TL_INFO_VENDOR, &type, buffer, size);
    case g_TLModelName:
        return GetInfo(GenTL::TL_INFO_MODEL, &type, buffer, size);
    case g_TLID:
        return GetInfo(GenTL::TL_INFO_ID, &type, buffer, size);
    case g_TLVersion:
        return GetInfo(GenTL::TL_INFO_VERSION, &type, buffer, size);
    case g_TLPath:
        return GetInfo(GenTL::TL_INFO_PATHNAME, &type, buffer, size);
    case g_GenTLVersionMajor:
        return GetInfo(GenTL::TL_INFO_GENTL_VER_MAJOR, &type, buffer, size);
    case g_GenTLVersionMinor:
        return GetInfo(GenTL::TL_INFO_GENTL_VER_MINOR, &type, buffer, size);
    default:
        return _readListRegister(address, reader);
    }
}

int NQGevSystem::_readListRegister(unsigned long address, const NQGevPortReader& reader)
{
    const NQGenTLLock lock(m_moduleLock);
    switch (address)
    {
    case g_InterfaceUpdateList:
        return reader.Number(m_updating ? 1 : 0);
    case g_InterfaceSelector:
        return reader.Number(m_interfaceSelector);
    case g_NrInterfaces:
        return reader.Number(static_cast<unsigned int>(m_interfaceList.size()));
    default:
        return _readSelectedInterface(address, reader);
    }
}

int NQGevSystem::_readSelectedInterface(unsigned long address, const NQGevPortReader& reader)
{
    // Deliberate: past the end of the list every register of the selection reads empty, with success.
    const bool listed = m_interfaceSelector < m_interfaceList.size();
    const _NQ_GEV_INTERFACE_INFO selected = listed ? m_interfaceList[m_interfaceSelector] : _NQ_GEV_INTERFACE_INFO{};
    switch (address)
    {
    case g_InterfaceID:
        return reader.Text(selected.id);
    case g_MACAddress:
        return reader.LongNumber(NQGevUtil::MacAddressToUint64(selected.macAddress));
    case g_DefaultIPAddress:
        return reader.Number(NQGevUtil::IPAddressToUint32(selected.ipAddress));
    // Deliberate: the gateway reads the mask, since no gateway is known.
    case g_DefaultSubnetMask:
    case g_DefaultGateway:
        return reader.Number(NQGevUtil::IPAddressToUint32(selected.subnetMask));
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

int NQGevSystem::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("WritePort");
    }
    switch (address)
    {
    case g_InterfaceUpdateList: {
        const NQGevUpdatingFlag updating(m_moduleLock, m_updating);
        UpdateInterfaceList(nullptr, g_PortScanTimeout);
        return GenTL::GC_ERR_SUCCESS;
    }
    case g_InterfaceSelector: {
        const NQGenTLLock lock(m_moduleLock);
        m_interfaceSelector = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    case g_XmlAddress:
    case g_TLVendorName:
    case g_TLModelName:
    case g_TLID:
    case g_TLVersion:
    case g_TLPath:
    case g_GenTLVersionMajor:
    case g_GenTLVersionMinor:
    case g_InterfaceID:
    case g_NrInterfaces:
    case g_MACAddress:
    case g_DefaultIPAddress:
    case g_DefaultSubnetMask:
    case g_DefaultGateway:
        return GenTL::GC_ERR_ACCESS_DENIED;
    default:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

// Deliberate: the four address registers are missing, and nothing here asks: reads and writes match for themselves.
bool NQGevSystem::_isAddressValid(unsigned long address)
{
    switch (address)
    {
    case g_XmlAddress:
    case g_TLVendorName:
    case g_TLModelName:
    case g_TLID:
    case g_TLVersion:
    case g_TLPath:
    case g_GenTLVersionMajor:
    case g_GenTLVersionMinor:
    case g_InterfaceUpdateList:
    case g_InterfaceSelector:
    case g_InterfaceID:
    case g_NrInterfaces:
        return true;
    default:
        return false;
    }
}
