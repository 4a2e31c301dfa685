// SPDX-License-Identifier: Apache-2.0
// The events of the modules of one camera, as they come.
#include "module_events.h"

#include "info_value.h"
#include "nq_gev_gentl.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

constexpr uint64_t kWaitMs = 200; ///< of a thread for an event, so that it ends soon
constexpr size_t kMostRecordBytes = size_t{1} << 20;
constexpr size_t kUsualRecordBytes = 65536;

struct EventKind
{
    const char* name;
    GenTL::EVENT_TYPE type;
};

constexpr EventKind kKinds[] = {{"error", GenTL::EVENT_ERROR},
                                {"feature-invalidate", GenTL::EVENT_FEATURE_INVALIDATE},
                                {"feature-change", GenTL::EVENT_FEATURE_CHANGE},
                                {"remote-device", GenTL::EVENT_REMOTE_DEVICE},
                                {"module", GenTL::EVENT_MODULE},
                                {"connection", GenTL::NQ_EVENT_DEVICE_CONNECTION}};

size_t RecordBytes(GenTLLibrary& library, GenTL::EVENT_HANDLE event)
{
    const uint64_t told = GenTLLibrary::Number([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
                              return library.EventGetInfo(event, GenTL::EVENT_SIZE_MAX, type, buffer, size);
                          }).value_or(0);
    return told == 0 ? kUsualRecordBytes : std::min<uint64_t>(told, kMostRecordBytes);
}

void TakeConnection(HeardEvent& heard, const std::string& record)
{
    int32_t status = 0;
    std::memcpy(&status, record.data(), std::min(sizeof status, record.size()));
    heard.id = status;
    heard.text = AccessStatusText(static_cast<uint64_t>(status));
    heard.lost = status == GenTL::DEVICE_ACCESS_STATUS_NOACCESS || status == GenTL::DEVICE_ACCESS_STATUS_UNKNOWN;
}

} // namespace

ModuleEvents::ModuleEvents(ModuleSession& session) : m_session(session)
{
    Register("system", session.SystemHandle());
    Register("interface", session.InterfaceHandle());
    Register("device", session.DeviceHandle());
    Register("stream", session.StreamHandle());
    m_listening = m_sources.size();
    m_threads.reserve(m_sources.size());
    try
    {
        for (const Source& source : m_sources)
        {
            m_threads.emplace_back([this, &source] { Listen(source); });
        }
    }
    catch (...)
    {
        End();
        throw;
    }
}

ModuleEvents::~ModuleEvents()
{
    End();
}

void ModuleEvents::End()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_threads.clear(); // waits for each
    for (const Source& source : m_sources)
    {
        m_session.Library().GCUnregisterEvent(source.handle, source.type);
    }
}

void ModuleEvents::Register(const char* module, GenTL::EVENTSRC_HANDLE handle)
{
    for (const EventKind& kind : kKinds)
    {
        const bool known = kind.type < GenTL::EVENT_CUSTOM_ID || m_session.IsOurs();
        Source source{module, handle, kind.name, kind.type, handle, nullptr};
        if (kind.type == GenTL::EVENT_REMOTE_DEVICE)
        {
            source.port = m_session.RemotePort();
        }
        if (handle != nullptr && known &&
            m_session.Library().GCRegisterEvent(handle, kind.type, &source.event) == GenTL::GC_ERR_SUCCESS)
        {
            m_sources.push_back(source);
        }
    }
}

void ModuleEvents::Listen(const Source& source)
{
    GenTLLibrary& library = m_session.Library();
    std::string record(RecordBytes(library, source.event), '\0');
    std::unique_lock lock(m_mutex);
    while (!m_stop)
    {
        lock.unlock();
        size_t size = record.size();
        const GenTL::GC_ERROR code = library.EventGetData(source.event, record.data(), &size, kWaitMs);
        std::optional<HeardEvent> heard;
        if (code == GenTL::GC_ERR_SUCCESS)
        {
            heard = Taken(source, record.substr(0, std::min(size, record.size())));
        }
        else if (code != GenTL::GC_ERR_TIMEOUT)
        {
            heard = HeardEvent{std::chrono::system_clock::now(), source.module, source.kind, {}, {}, {}, {}};
            heard->text = fmt::format("no more of them: EventGetData failed: {} ({})", ErrorName(code), code);
        }
        lock.lock();
        if (heard)
        {
            m_heard.emplace_back(&source, std::move(*heard));
            m_changed.notify_one();
        }
        if (code != GenTL::GC_ERR_SUCCESS && code != GenTL::GC_ERR_TIMEOUT)
        {
            break;
        }
    }
    --m_listening;
    m_changed.notify_one();
}

HeardEvent ModuleEvents::Taken(const Source& source, const std::string& record) const
{
    HeardEvent heard{std::chrono::system_clock::now(), source.module, source.kind, {}, {}, {}, {}};
    if (source.type == GenTL::NQ_EVENT_DEVICE_CONNECTION)
    {
        TakeConnection(heard, record);
        return heard;
    }
    const auto ask = [&](GenTL::EVENT_DATA_INFO_CMD command) {
        return AskInfo([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_session.Library().EventGetDataInfo(source.event, record.data(), record.size(), command, type,
                                                        buffer, size);
        });
    };
    const InfoAnswer id = ask(GenTL::EVENT_DATA_ID);
    const InfoAnswer value = ask(GenTL::EVENT_DATA_VALUE);
    switch (source.type)
    {
    case GenTL::EVENT_ERROR:
        heard.id = InfoInteger(id);
        heard.name = heard.id ? std::optional(ErrorName(static_cast<GenTL::GC_ERROR>(*heard.id))) : std::nullopt;
        heard.text = InfoString(value);
        break;
    case GenTL::EVENT_FEATURE_INVALIDATE:
    case GenTL::EVENT_FEATURE_CHANGE:
        heard.name = InfoString(id);
        heard.text = InfoString(value);
        break;
    default:
        heard.id = EventNumber(m_session.Library(), source.event, record);
        heard.data =
            value.code == GenTL::GC_ERR_SUCCESS && value.type == GenTL::INFO_DATATYPE_BUFFER ? value.bytes : record;
        break;
    }
    return heard;
}

std::optional<HeardEvent> ModuleEvents::Next(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, timeout, [this] { return !m_heard.empty() || m_listening == 0; });
    if (m_heard.empty())
    {
        return m_listening != 0 ? std::nullopt
                                : throw ToolFailure(ExitCode::Failure, "the producer tells no events (any more) of " +
                                                                           m_session.Port().Who());
    }
    auto [source, heard] = std::move(m_heard.front());
    m_heard.pop_front();
    lock.unlock();
    const bool numbered = source->type == GenTL::EVENT_REMOTE_DEVICE || source->type == GenTL::EVENT_MODULE;
    Features* const names = numbered && heard.id ? NamesOf(source->port) : nullptr;
    if (names != nullptr)
    {
        heard.name = names->EventName(static_cast<uint64_t>(*heard.id));
    }
    return heard;
}

void ModuleEvents::LearnNames()
{
    NamesOf(m_session.RemotePort());
}

Features* ModuleEvents::NamesOf(GenTL::PORT_HANDLE port)
{
    const auto known = m_names.find(port);
    if (known != m_names.end())
    {
        return known->second.get();
    }
    std::unique_ptr<Features>& names = m_names[port];
    try
    {
        names = std::make_unique<Features>(m_session.Port().Other(port), false);
    }
    catch (const std::exception&)
    {
        names.reset(); // numbers have to do
    }
    return names.get();
}

} // namespace nq::tool
