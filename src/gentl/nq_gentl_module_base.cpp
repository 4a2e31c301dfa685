// SPDX-License-Identifier: Apache-2.0
// Opening and closing, port information and registered events of all modules.
#include "gentl/nq_gentl_module_base.h"

#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_event_device_connection.h"
#include "gentl/nq_gentl_event_error.h"
#include "gentl/nq_gentl_event_module.h"
#include "gentl/nq_gentl_event_new_buffer.h"
#include "gentl/nq_gentl_event_remote_device.h"
#include "gentl/nq_gentl_util.h"
#include "nq_gev_gentl.h"

#include <algorithm>
#include <cstring>

namespace GigERDMA
{

namespace
{

/// Null for an id that has no event.
std::unique_ptr<NQGenTLEvent> MakeEvent(int id)
{
    switch (id)
    {
    case GenTL::EVENT_ERROR:
        return std::make_unique<NQGenTLEventError>();
    case GenTL::EVENT_NEW_BUFFER:
        return std::make_unique<NQGenTLEventNewBuffer>();
    case GenTL::EVENT_REMOTE_DEVICE:
        return std::make_unique<NQGenTLEventRemoteDevice>();
    case GenTL::EVENT_MODULE:
        return std::make_unique<NQGenTLEventModule>();
    case GenTL::NQ_EVENT_DEVICE_CONNECTION:
        return std::make_unique<NQGenTLEventDeviceConnection>();
    default:
        return nullptr;
    }
}

/// Serves the entries of a stack up to the first failure, with `tellDone` putting the number before it in their place.
template <typename Access>
int ForEachEntry(const GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries, bool tellDone,
                 Access access)
{
    if (entries == nullptr || piNumEntries == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    const unsigned long count = *piNumEntries;
    for (unsigned long i = 0; i < count; ++i)
    {
        // Deliberate(StackedSizesStay): a size the port changes stays in this copy: the entries are the consumer's
        // request, which it may use again as it stands.
        unsigned long size = entries[i].Size;
        if (const int error = access(entries[i].Address, entries[i].pBuffer, &size))
        {
            if (tellDone)
            {
                *piNumEntries = i;
            }
            return error;
        }
    }
    return GenTL::GC_ERR_SUCCESS;
}

} // namespace

NQGenTLModuleBase::NQGenTLModuleBase(NQGenTLModuleBase* parent)
    : NQGenTLModuleBase(parent, parent != nullptr ? parent->m_answers : kStatedAnswers)
{
}

NQGenTLModuleBase::NQGenTLModuleBase(NQGenTLModuleBase* parent, const NQAnswers& answers)
    : m_pParent(parent), m_answers(answers)
{
}

NQGenTLModuleBase::~NQGenTLModuleBase()
{
    EndEvents(false); // What they have may be gone by now.
}

/// Unregisters all events. With `flush` what they still have is given back, as UnregisterEvent does.
void NQGenTLModuleBase::EndEvents(bool flush)
{
    std::vector<std::unique_ptr<NQGenTLEvent>> events; // Go without the lock: somebody may be inside.
    {
        NQGenTLLock lock(m_moduleLock);
        m_events.swap(events);
        m_hasEvents = false;
        for (std::size_t i = 0; flush && i < events.size(); ++i)
        {
            events[i]->Flush();
        }
    }
    for (const auto& event : events)
    {
        event->EndWaits();
    }
}

int NQGenTLModuleBase::Open()
{
    NQGenTLLock opening(m_openLock);
    if (IsOpen())
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "Open");
    }
    if (const int error = DoOpen())
    {
        return NQFailed(error, "%s ret", "Open");
    }
    NQGenTLLock lock(m_moduleLock);
    m_bOpen = true;
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLModuleBase::Close()
{
    if (!IsOpen())
    {
        if (m_answers.closedIsInvalid)
        {
            return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "Close");
        }
        return NQFailed(GenTL::GC_ERR_ERROR, "%s GC_ERR_ERROR", "Close");
    }
    if (m_answers.waitersEnd)
    {
        EndEvents(true);
    }
    if (const int error = DoClose())
    {
        return NQFailed(error, "%s ret", "Close");
    }
    NQGenTLLock lock(m_moduleLock);
    m_bOpen = false;
    return GenTL::GC_ERR_SUCCESS;
}

bool NQGenTLModuleBase::IsOpen()
{
    NQGenTLLock lock(m_moduleLock);
    return m_bOpen;
}

int NQGenTLModuleBase::ReadPortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries)
{
    return ForEachEntry(
        entries, piNumEntries, m_answers.stackTellsDone,
        [this](unsigned long address, void* buffer, unsigned long* size) { return ReadPort(address, buffer, size); });
}

int NQGenTLModuleBase::WritePortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries)
{
    return ForEachEntry(entries, piNumEntries, m_answers.stackTellsDone,
                        [this](unsigned long address, const void* buffer, unsigned long* size) {
                            return WritePort(address, buffer, size);
                        });
}

int NQGenTLModuleBase::GetPortURL(char* sURL, unsigned long* piSize)
{
    if (piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    return _getPortURL(sURL, piSize);
}

int NQGenTLModuleBase::GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    using Getter = int (NQGenTLModuleBase::*)(int*, void*, unsigned long*);
    static constexpr Getter kGetters[] = {
        &NQGenTLModuleBase::_getId,        &NQGenTLModuleBase::_getVendor,     &NQGenTLModuleBase::_getModel,
        &NQGenTLModuleBase::_getTLType,    &NQGenTLModuleBase::_getModule,     &NQGenTLModuleBase::_getLittleEndian,
        &NQGenTLModuleBase::_getBigEndian, &NQGenTLModuleBase::_getAccessRead, &NQGenTLModuleBase::_getAccessWrite,
        &NQGenTLModuleBase::_getAccessNA,  &NQGenTLModuleBase::_getAccessNI,   &NQGenTLModuleBase::_getVersion,
        &NQGenTLModuleBase::_getPortName,
    };
    static_assert(std::size(kGetters) == GenTL::PORT_INFO_PORTNAME + 1);

    if (piType == nullptr || piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    ClearForInfo(m_answers, pBuffer, piSize);
    if (iInfoCmd < 0 || iInfoCmd > GenTL::PORT_INFO_PORTNAME)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    return (this->*kGetters[iInfoCmd])(piType, pBuffer, piSize);
}

int NQGenTLModuleBase::GetNumPortURLs(unsigned int* piNumURLs)
{
    if (piNumURLs == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    *piNumURLs = static_cast<unsigned int>(GetURLList().size());
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLModuleBase::GetPortURLInfo(unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer,
                                      unsigned long* piSize)
{
    if (piSize == nullptr || piType == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    if (iInfoCmd != GenTL::URL_INFO_URL)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    return _getURLInfoURL(iURLIndex, piType, pBuffer, piSize);
}

NQGenTLEvent* NQGenTLModuleBase::FindEventByHandle(void* handle, bool enter)
{
    if (!m_hasEvents)
    {
        return nullptr;
    }
    NQGenTLLock lock(m_moduleLock);
    const auto found =
        std::find_if(m_events.begin(), m_events.end(), [&](const auto& event) { return event.get() == handle; });
    if (found == m_events.end())
    {
        return nullptr;
    }
    if (enter)
    {
        (*found)->Enter();
    }
    return found->get();
}

NQGenTLEvent* NQGenTLModuleBase::FindEventById(int id, bool remove)
{
    NQGenTLLock lock(m_moduleLock);
    NQGenTLEvent* const event = RegisteredEvent(id);
    if (event != nullptr && remove)
    {
        const auto found =
            std::find_if(m_events.begin(), m_events.end(), [&](const auto& each) { return each.get() == event; });
        static_cast<void>(found->release());
        m_events.erase(found);
        m_hasEvents = !m_events.empty();
    }
    return event;
}

NQGenTLEvent* NQGenTLModuleBase::RegisteredEvent(int id)
{
    const auto found =
        std::find_if(m_events.begin(), m_events.end(), [&](const auto& event) { return event->GetEventId() == id; });
    return found != m_events.end() ? found->get() : nullptr;
}

bool NQGenTLModuleBase::SignalEvent(int id, void* entry)
{
    NQGenTLLock lock(m_moduleLock);
    NQGenTLEvent* const event = RegisteredEvent(id);
    return event != nullptr && event->Signal(entry);
}

int NQGenTLModuleBase::RegisterEvent(int iEventID, void** phEvent)
{
    if (!IsEventImplemented(iEventID))
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }

    // One step for other threads, or two registrations at once could both succeed.
    NQGenTLLock lock(m_moduleLock);
    if (FindEventById(iEventID, false) != nullptr)
    {
        return GenTL::GC_ERR_RESOURCE_IN_USE;
    }
    auto event = MakeEvent(iEventID);
    if (!event)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    if (phEvent == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    event->UseAnswers(m_answers);
    m_events.push_back(std::move(event));
    m_hasEvents = true;
    *phEvent = m_events.back().get();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLModuleBase::UnregisterEvent(int iEventID)
{
    if (!IsEventImplemented(iEventID))
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    std::unique_ptr<NQGenTLEvent> event;
    {
        NQGenTLLock lock(m_moduleLock);
        event.reset(FindEventById(iEventID, true));
        if (event && m_answers.waitersEnd)
        {
            // What it still has is the consumer's again, in one step with its end: from here on nothing takes a buffer
            // that is revoked out of it.
            event->Flush();
        }
    }
    if (event)
    {
        event->EndWaits();
    }
    // Deliberate(UnregisteredIsNotInitialized): an event that was never registered answers like one that is not
    // initialised, which tells it from one that the module does not offer.
    return event ? GenTL::GC_ERR_SUCCESS : GenTL::GC_ERR_NOT_INITIALIZED;
}

int NQGenTLModuleBase::_getId(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(m_answers.portIdOfModule ? GetId() : GetPortInfo().id, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getVendor(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(GetPortInfo().vendor, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getModel(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(GetPortInfo().model, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getTLType(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(GetPortInfo().tlType, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getModule(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(GetPortInfo().module, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getLittleEndian(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(GetPortInfo().littleEndian, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getBigEndian(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(GetPortInfo().bigEndian, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getAccessRead(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(GetPortInfo().accessRead, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getAccessWrite(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(GetPortInfo().accessWrite, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getAccessNA(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(GetPortInfo().accessNA, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getAccessNI(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(GetPortInfo().accessNI, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getVersion(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(GetPortInfo().version, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getPortName(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(GetPortInfo().portName, piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getURLInfoURL(unsigned int index, int* piType, void* pBuffer, unsigned long* piSize)
{
    const std::vector<std::string> urls = GetURLList();
    if (index >= urls.size())
    {
        return GenTL::GC_ERR_INVALID_INDEX;
    }
    return NQGenTLUtil::CopyInfoString(urls[index], piType, pBuffer, piSize);
}

int NQGenTLModuleBase::_getPortURL(char* sURL, unsigned long* piSize)
{
    std::string all;
    for (const std::string& url : GetURLList())
    {
        all.append(url).push_back('\0');
    }
    int type = GenTL::INFO_DATATYPE_UNKNOWN;
    return NQGenTLUtil::CopyInfoString(all, &type, sURL, piSize);
}

} // namespace GigERDMA
