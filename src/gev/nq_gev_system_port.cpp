// SPDX-License-Identifier: Apache-2.0
// The port of the system module: its identity, its register description and its virtual register map.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_port_range.h"
#include "gev/nq_gev_system.h"
#include "gev/nq_gev_system_registers.h"
#include "gev/nq_gev_updating_flag.h"
#include "gev/nq_gev_util.h"

using namespace GigERDMA;

namespace
{

constexpr unsigned long kInterfaceScanTimeout = 5000; // milliseconds

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
    return Answers().nodeMaps ? NQGevXmlInfo(kStandardXmlFileNameSystem, CreateStandardXmlFileSystem())
                              : NQGevXmlInfo(g_XmlFileNameSystem, CreateXmlFileSystem());
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
    return Answers().portRanges ? NQGevReadRange(_port(), address, buffer, *size)
                                : _readRegister(address, buffer, size);
}

NQGevPort NQGevSystem::_port()
{
    return NQGevPortOf(*this, kSystemRegisters, &NQGevSystem::_readRegister, &NQGevSystem::_writeRegister);
}

int NQGevSystem::_readRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    const NQGevPortReader reader(buffer, size);
    switch (address)
    {
    case kXmlAddress:
        return reader.Description(GetXMLInfo());
    case kSystemRegisters.At("TLVendorName_Reg"):
        return GetInfo(GenTL::TL_INFO_VENDOR, &type, buffer, size);
    case kSystemRegisters.At("TLModelName_Reg"):
        return GetInfo(GenTL::TL_INFO_MODEL, &type, buffer, size);
    case kSystemRegisters.At("TLID_Reg"):
        return GetInfo(GenTL::TL_INFO_ID, &type, buffer, size);
    case kSystemRegisters.At("TLVersion_Reg"):
        return GetInfo(GenTL::TL_INFO_VERSION, &type, buffer, size);
    case kSystemRegisters.At("TLPath_Reg"):
        return GetInfo(GenTL::TL_INFO_PATHNAME, &type, buffer, size);
    case kSystemRegisters.At("GenTLVersionMajor_Reg"):
        return GetInfo(GenTL::TL_INFO_GENTL_VER_MAJOR, &type, buffer, size);
    case kSystemRegisters.At("GenTLVersionMinor_Reg"):
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
    case kSystemRegisters.At("InterfaceUpdateList_Reg"):
        return reader.Number(m_updating ? 1 : 0);
    case kSystemRegisters.At("InterfaceSelector_Reg"):
        return reader.Number(m_interfaceSelector);
    case kSystemRegisters.At("NrInterfaces_Reg"):
        return reader.Number(static_cast<unsigned int>(m_interfaceList.size()));
    default:
        return _readSelectedInterface(address, reader);
    }
}

int NQGevSystem::_readSelectedInterface(unsigned long address, const NQGevPortReader& reader)
{
    // Deliberate(PastTheEndIsEmpty): past the end of the list every register of the selection reads empty, with
    // success, so that a display of a list that shrinks meanwhile shows nothing rather than an error.
    const bool listed = m_interfaceSelector < m_interfaceList.size();
    if (Answers().nodeMaps && !listed)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    const _NQ_GEV_INTERFACE_INFO selected = listed ? m_interfaceList[m_interfaceSelector] : _NQ_GEV_INTERFACE_INFO{};
    switch (address)
    {
    case kSystemRegisters.At("InterfaceID_Reg"):
        return reader.Text(selected.id);
    case kSystemRegisters.At("GevInterfaceMACAddress_Reg"):
        return reader.LongNumber(NQGevUtil::MacAddressToUint64(selected.macAddress));
    case kSystemRegisters.At("GevInterfaceDefaultIPAddress_Reg"):
        return reader.Number(NQGevUtil::IPAddressToUint32(selected.ipAddress));
    case kSystemRegisters.At("GevInterfaceDefaultSubnetMask_Reg"):
        return reader.Number(NQGevUtil::IPAddressToUint32(selected.subnetMask));
    case kSystemRegisters.At("GevInterfaceDefaultGateway_Reg"):
        // Deliberate(GatewayReadsTheMask): the gateway reads the mask, as the record of an adapter has none.
        return reader.Number(Answers().nodeMaps ? NQGevUtil::GetDefaultGateway(selected.adapterName)
                                                : NQGevUtil::IPAddressToUint32(selected.subnetMask));
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
    return Answers().portRanges ? NQGevWriteRange(_port(), address, buffer, *size)
                                : _writeRegister(address, buffer, size);
}

int NQGevSystem::_writeRegister(unsigned long address, const void* buffer, unsigned long* size)
{
    switch (address)
    {
    case kSystemRegisters.At("InterfaceUpdateList_Reg"): {
        const NQGevUpdatingFlag updating(m_moduleLock, m_updating);
        UpdateInterfaceList(nullptr, kInterfaceScanTimeout);
        return GenTL::GC_ERR_SUCCESS;
    }
    case kSystemRegisters.At("InterfaceSelector_Reg"): {
        const unsigned int index = NQGevRegisterValue(buffer, *size);
        const NQGenTLLock lock(m_moduleLock);
        if (Answers().nodeMaps && index >= m_interfaceList.size())
        {
            return GenTL::GC_ERR_INVALID_VALUE;
        }
        m_interfaceSelector = index;
        return GenTL::GC_ERR_SUCCESS;
    }
    default:
        return NQGevWriteRefused(kSystemRegisters, address);
    }
}

// Deliberate(AddressPredicateIsShort): the four address registers are missing, and nothing here asks: reads and writes
// match for themselves.
bool NQGevSystem::_isAddressValid(unsigned long address)
{
    const NQGevRegister* const row = kSystemRegisters.Find(address);
    return row != nullptr && row->kind != NQGevRowKind::NotListed;
}
