// SPDX-License-Identifier: Apache-2.0
// The system module: its identity, its list of adapters and the interfaces opened on it.
#include "gev/nq_gev_system.h"

#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_util.h"
#include "nq_gev_gentl.h"

#include <algorithm>
#include <memory>

using namespace GigERDMA;

namespace
{

constexpr unsigned long kOpenScanTimeout = 1000; // milliseconds

std::string NameOfThisFile()
{
    const std::string path = NQGenTLUtil::GetCtiPath();
    return path.substr(path.rfind('/') + 1);
}

/// Gives each entry the values of the first adapter found with its id. Whether any has changed.
bool RefreshAdapters(std::vector<_NQ_GEV_INTERFACE_INFO>& listed, const std::vector<_NQ_GEV_INTERFACE_INFO>& found)
{
    bool changed = false;
    for (_NQ_GEV_INTERFACE_INFO& entry : listed)
    {
        const auto now = std::find_if(found.begin(), found.end(), NQGevHasId(entry.id));
        if (now != found.end() && (now->ipAddress != entry.ipAddress || now->subnetMask != entry.subnetMask ||
                                   now->adapterName != entry.adapterName))
        {
            entry = *now;
            changed = true;
        }
    }
    return changed;
}

} // namespace

NQGevSystem::NQGevSystem(const NQAnswers& answers) : NQGenTLSystem(nullptr, answers) {}

std::string NQGevSystem::GetId()
{
    return "NQGenTLGevRDMA";
}

int NQGevSystem::DoOpen()
{
    g_Controller.RegisterModule(this);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevSystem::DoClose()
{
    while (NQGenTLModuleBase* const child = m_interfaces.FindByIndex(0, true))
    {
        g_Controller.UnregisterModule(child, true);
    }
    g_Controller.UnregisterModule(this, false);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevSystem::GetInfo(int command, int* type, void* buffer, unsigned long* size)
{
    if (type == nullptr || size == nullptr)
    {
        return NQGevInvalidParameter("GetInfo");
    }
    ClearForInfo(Answers(), buffer, size);
    const _NQ_GENTL_PORT_INFO port = GetPortInfo();
    switch (command)
    {
    case GenTL::TL_INFO_ID:
        return NQGenTLUtil::CopyInfoString(port.id, type, buffer, size);
    case GenTL::TL_INFO_VENDOR:
        return NQGenTLUtil::CopyInfoString(port.vendor, type, buffer, size);
    case GenTL::TL_INFO_MODEL:
        return NQGenTLUtil::CopyInfoString(port.model, type, buffer, size);
    case GenTL::TL_INFO_VERSION:
        return NQGenTLUtil::CopyInfoString(port.version, type, buffer, size);
    case GenTL::TL_INFO_TLTYPE:
        return NQGenTLUtil::CopyInfoString(port.tlType, type, buffer, size);
    case GenTL::TL_INFO_NAME:
        return NQGenTLUtil::CopyInfoString(Answers().nameOfFile ? NameOfThisFile() : "nq_gev_tl_rdma.cti", type, buffer,
                                           size);
    case GenTL::TL_INFO_PATHNAME:
        return NQGenTLUtil::CopyInfoString(NQGenTLUtil::GetCtiPath(), type, buffer, size);
    case GenTL::TL_INFO_DISPLAYNAME:
        return NQGenTLUtil::CopyInfoString("NQO GigE RDMA TL Beta", type, buffer, size);
    case GenTL::TL_INFO_CHAR_ENCODING:
        return NQGenTLUtil::CopyInfoInt32(GenTL::TL_CHAR_ENCODING_ASCII, type, buffer, size);
    case GenTL::TL_INFO_GENTL_VER_MAJOR:
        return NQGenTLUtil::CopyInfoUint32(1, type, buffer, size);
    case GenTL::TL_INFO_GENTL_VER_MINOR:
        return NQGenTLUtil::CopyInfoUint32(5, type, buffer, size);
    default:
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", "GetInfo", command);
    }
}

int NQGevSystem::UpdateInterfaceList(bool* changed, unsigned long /*timeout*/)
{
    std::vector<_NQ_GEV_INTERFACE_INFO> found;
    NQGevUtil::DiscoverInterfaces(g_Controller.GetTLType(), found);
    _updateInterfaceList(found, changed);
    return GenTL::GC_ERR_SUCCESS;
}

void NQGevSystem::_updateInterfaceList(const std::vector<_NQ_GEV_INTERFACE_INFO>& found, bool* changed)
{
    bool differs = false;
    {
        const NQGenTLLock lock(m_moduleLock);
        differs = std::erase_if(m_interfaceList, [&found](const _NQ_GEV_INTERFACE_INFO& listed) {
                      return std::none_of(found.begin(), found.end(), NQGevHasId(listed.id));
                  }) != 0;
        // Deliberate(StayingAdapterKeepsItsValues): an entry that stays keeps the values of the scan that brought it;
        // only the id tells adapters apart.
        for (const _NQ_GEV_INTERFACE_INFO& info : found)
        {
            if (std::none_of(m_interfaceList.begin(), m_interfaceList.end(), NQGevHasId(info.id)))
            {
                m_interfaceList.push_back(info);
                differs = true;
            }
        }
        differs = (Answers().adaptersRefreshed && RefreshAdapters(m_interfaceList, found)) || differs;
        if (Answers().nodeMaps && m_interfaceSelector >= m_interfaceList.size())
        {
            m_interfaceSelector = 0;
        }
    }
    if (changed != nullptr)
    {
        *changed = differs;
    }
}

int NQGevSystem::GetNumInterfaces(unsigned int* count)
{
    if (count == nullptr)
    {
        return NQGevInvalidParameter("GetNumInterfaces");
    }
    const NQGenTLLock lock(m_moduleLock);
    *count = static_cast<unsigned int>(m_interfaceList.size());
    return GenTL::GC_ERR_SUCCESS;
}

bool NQGevSystem::_findInterfaceInfoByIndex(unsigned int index, _NQ_GEV_INTERFACE_INFO& info)
{
    const NQGenTLLock lock(m_moduleLock);
    if (index >= m_interfaceList.size())
    {
        return false;
    }
    info = m_interfaceList[index];
    return true;
}

bool NQGevSystem::_findInterfaceInfoById(const std::string& id, _NQ_GEV_INTERFACE_INFO& info)
{
    const NQGenTLLock lock(m_moduleLock);
    const auto found = std::find_if(m_interfaceList.begin(), m_interfaceList.end(), NQGevHasId(id));
    if (found == m_interfaceList.end())
    {
        return false;
    }
    info = *found;
    return true;
}

int NQGevSystem::GetInterfaceID(unsigned int index, char* buffer, unsigned long* size)
{
    if (size == nullptr)
    {
        return NQGevInvalidParameter("GetInterfaceID");
    }
    _NQ_GEV_INTERFACE_INFO info;
    if (!_findInterfaceInfoByIndex(index, info))
    {
        return NQFailed(GenTL::GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", "GetInterfaceID");
    }
    ClearForInfo(Answers(), buffer, size);
    int type = 0;
    return NQGenTLUtil::CopyInfoString(info.id, &type, buffer, size);
}

int NQGevSystem::GetInterfaceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size)
{
    if (size == nullptr)
    {
        return NQGevInvalidParameter("GetInterfaceInfo");
    }
    if (auto* const module = dynamic_cast<NQGenTLInterface*>(m_interfaces.FindById(id, false)))
    {
        return module->GetInfo(command, type, buffer, size);
    }
    return _getInterfaceInfo(id, command, type, buffer, size);
}

int NQGevSystem::_getInterfaceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size)
{
    _NQ_GEV_INTERFACE_INFO info;
    if (id == nullptr || !_findInterfaceInfoById(id, info))
    {
        return NQFailed(GenTL::GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", "_getInterfaceInfo");
    }
    if (type == nullptr || size == nullptr)
    {
        return NQGevInvalidParameter("_getInterfaceInfo");
    }
    ClearForInfo(Answers(), buffer, size);
    switch (command)
    {
    case GenTL::INTERFACE_INFO_ID:
        return NQGenTLUtil::CopyInfoString(info.id, type, buffer, size);
    case GenTL::INTERFACE_INFO_DISPLAYNAME:
        return NQGenTLUtil::CopyInfoString(info.displayName, type, buffer, size);
    case GenTL::INTERFACE_INFO_TLTYPE:
        return NQGenTLUtil::CopyInfoString(info.tlType, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_MAC:
        return NQGenTLUtil::CopyInfoString(info.macAddress, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_IP:
        return NQGenTLUtil::CopyInfoString(info.ipAddress, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_SUBNET:
        return NQGenTLUtil::CopyInfoString(info.subnetMask, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_GATEWAY:
        return NQGenTLUtil::CopyInfoString(info.gateway, type, buffer, size);
    default:
        // Deliberate(NotAvailableWhileClosed): an open interface answers such a command with GC_ERR_NOT_IMPLEMENTED
        // instead; for one that is not open this list may merely lack the value.
        return NQFailed(GenTL::GC_ERR_NOT_AVAILABLE, "%s GC_ERR_NOT_AVAILABLE :%d", "_getInterfaceInfo", command);
    }
}

/// Looks for an adapter that is not listed.
bool NQGevSystem::_discoverInterface(const std::string& id, _NQ_GEV_INTERFACE_INFO& info)
{
    if (!Answers().interfaceListStays)
    {
        UpdateInterfaceList(nullptr, kOpenScanTimeout);
        return _findInterfaceInfoById(id, info);
    }
    std::vector<_NQ_GEV_INTERFACE_INFO> adapters;
    NQGevUtil::DiscoverInterfaces(g_Controller.GetTLType(), adapters);
    const auto found = std::find_if(adapters.begin(), adapters.end(), NQGevHasId(id));
    if (found == adapters.end())
    {
        return false;
    }
    info = *found;
    return true;
}

int NQGevSystem::OpenInterface(const char* id, void** handle)
{
    if (id == nullptr || handle == nullptr)
    {
        return NQGevInvalidParameter("OpenInterface");
    }
    const NQGenTLOpenings::Turn turn(m_openings, id);
    if (m_interfaces.FindById(id, false) != nullptr)
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "OpenInterface");
    }
    _NQ_GEV_INTERFACE_INFO info;
    if (!_findInterfaceInfoById(id, info) && !_discoverInterface(id, info))
    {
        return NQFailed(GenTL::GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", "OpenInterface");
    }
    auto module = std::make_unique<NQGevInterface>(info, this);
    const int result = module->Open();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return result;
    }
    try
    {
        m_interfaces.Add(module.get());
    }
    catch (...)
    {
        module->Close(); // it is registered, so it must not just go
        throw;
    }
    *handle = module.release();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevSystem::CloseInterface(void* handle)
{
    NQGenTLModuleBase* const module = m_interfaces.FindByHandle(handle, true);
    if (module == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "CloseInterface");
    }
    const int result = module->Close();
    // Deliberate(RefusedCloseIsNotDeleted): a module that refuses to close is out of the list but not deleted, for it
    // is still at work.
    if (result == GenTL::GC_ERR_SUCCESS)
    {
        delete module;
    }
    return result;
}

void NQGevSystem::Abandon()
{
    std::vector<_NQ_GEV_INTERFACE_INFO> list;
    const NQGenTLLock lock(m_moduleLock);
    m_interfaceList.swap(list);
}
