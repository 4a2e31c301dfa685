// SPDX-License-Identifier: Apache-2.0
// The port of the system module: its identity, its register description and its virtual register map.
#include "gentl/nq_gentl_clear.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_system.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

using namespace GigERDMA;

namespace
{

constexpr unsigned long kTLVendorName = 0x50000;
constexpr unsigned long kTLModelName = 0x50100;
constexpr unsigned long kTLID = 0x50200;
constexpr unsigned long kTLVersion = 0x50300;
constexpr unsigned long kTLPath = 0x50400;
constexpr unsigned long kGenTLVersionMajor = 0x50504;
constexpr unsigned long kGenTLVersionMinor = 0x50508;
constexpr unsigned long kInterfaceUpdateList = 0x5050C;
constexpr unsigned long kInterfaceSelector = 0x50510;
constexpr unsigned long kInterfaceID = 0x50514;
constexpr unsigned long kNrInterfaces = 0x50614;
constexpr unsigned long kMACAddress = 0x50618;
constexpr unsigned long kDefaultIPAddress = 0x50620;
constexpr unsigned long kDefaultSubnetMask = 0x50624;
constexpr unsigned long kDefaultGateway = 0x50628;

constexpr unsigned long kPortScanTimeout = 5000; // milliseconds

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
    ClearForPort(Answers(), buffer, size);
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case kXmlAddress:
        return reader.Description(GetXMLInfo());
    case kTLVendorName:
        return GetInfo(GenTL::TL_INFO_VENDOR, &type, buffer, size);
    case kTLModelName:
        return GetInfo(GenTL::TL_INFO_MODEL, &type, buffer, size);
    case kTLID:
        return GetInfo(GenTL::TL_INFO_ID, &type, buffer, size);
    case kTLVersion:
        return GetInfo(GenTL::TL_INFO_VERSION, &type, buffer, size);
    case kTLPath:
        return GetInfo(GenTL::TL_INFO_PATHNAME, &type, buffer, size);
    case kGenTLVersionMajor:
        return GetInfo(GenTL::TL_INFO_GENTL_VER_MAJOR, &type, buffer, size);
    case kGenTLVersionMinor:
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
    case kInterfaceUpdateList:
        return reader.Number(m_updating ? 1 : 0);
    case kInterfaceSelector:
        return reader.Number(m_interfaceSelector);
    case kNrInterfaces:
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
    case kInterfaceID:
        return reader.Text(selected.id);
    case kMACAddress:
        return reader.LongNumber(NQGevUtil::MacAddressToUint64(selected.macAddress));
    case kDefaultIPAddress:
        return reader.Number(NQGevUtil::IPAddressToUint32(selected.ipAddress));
    // Deliberate: the gateway reads the mask, since no gateway is known.
    case kDefaultSubnetMask:
    case kDefaultGateway:
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
    case kInterfaceUpdateList: {
        const NQGevUpdatingFlag updating(m_moduleLock, m_updating);
        UpdateInterfaceList(nullptr, kPortScanTimeout);
        return GenTL::GC_ERR_SUCCESS;
    }
    case kInterfaceSelector: {
        const NQGenTLLock lock(m_moduleLock);
        m_interfaceSelector = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    case kXmlAddress:
    case kTLVendorName:
    case kTLModelName:
    case kTLID:
    case kTLVersion:
    case kTLPath:
    case kGenTLVersionMajor:
    case kGenTLVersionMinor:
    case kInterfaceID:
    case kNrInterfaces:
    case kMACAddress:
    case kDefaultIPAddress:
    case kDefaultSubnetMask:
    case kDefaultGateway:
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
    case kXmlAddress:
    case kTLVendorName:
    case kTLModelName:
    case kTLID:
    case kTLVersion:
    case kTLPath:
    case kGenTLVersionMajor:
    case kGenTLVersionMinor:
    case kInterfaceUpdateList:
    case kInterfaceSelector:
    case kInterfaceID:
    case kNrInterfaces:
        return true;
    default:
        return false;
    }
}
