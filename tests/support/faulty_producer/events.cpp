// SPDX-License-Identifier: Apache-2.0
// Events: registration, waits, kills, infos.
#include "state.h"

#include <algorithm>
#include <chrono>

using namespace GenTL;

namespace nq::faulty
{

namespace
{

using Lock = std::unique_lock<std::mutex>;

bool Offers(Kind kind, EVENT_TYPE type)
{
    switch (type)
    {
    case EVENT_ERROR:
    case EVENT_MODULE:
        return kind == Kind::System || kind == Kind::Interface || kind == Kind::Device || kind == Kind::Stream;
    case EVENT_NEW_BUFFER:
        return kind == Kind::Stream;
    case EVENT_FEATURE_INVALIDATE:
    case EVENT_FEATURE_CHANGE:
    case EVENT_REMOTE_DEVICE:
        return kind == Kind::Device;
    default:
        return false;
    }
}

std::shared_ptr<Event> Find(void* module, EVENT_TYPE type)
{
    for (const auto& [handle, event] : The().events)
    {
        if (event->module == module && event->type == type)
        {
            return event;
        }
    }
    return nullptr;
}

size_t Queued(const Event& event)
{
    return event.type == EVENT_NEW_BUFFER ? The().output.size() : event.queue.size();
}

void Unqueue()
{
    for (Buffer* buffer : The().output)
    {
        buffer->place = Place::Unqueued;
    }
    The().output.clear();
}

void End(const std::shared_ptr<Event>& event)
{
    event->ended = !Fault("waiters_sleep_on");
    if (event->type == EVENT_NEW_BUFFER && !Fault("unregister_keeps_output"))
    {
        Unqueue();
    }
    The().events.erase(event->handle);
    The().changed.notify_all();
}

std::vector<char> First(const Event& event)
{
    if (event.type != EVENT_NEW_BUFFER)
    {
        return event.queue.front();
    }
    const Buffer* buffer = The().output.front();
    EVENT_NEW_BUFFER_DATA data{buffer->handle, Fault("user_pointer_lost") ? nullptr : buffer->user};
    std::vector<char> bytes(sizeof data);
    std::memcpy(bytes.data(), &data, sizeof data);
    return bytes;
}

void TakeFirst(Event& event, bool wanted)
{
    if (event.type != EVENT_NEW_BUFFER)
    {
        event.queue.pop_front();
        return;
    }
    Buffer* buffer = The().output.front();
    The().output.pop_front();
    buffer->place = Place::Unqueued;
    if (!wanted && Fault("dropped_event_requeues"))
    {
        Requeue(buffer);
    }
}

GC_ERROR Deliver(Event& event, void* buffer, size_t* size)
{
    if (buffer == nullptr)
    {
        if (Fault("null_event_buffer_is_query"))
        {
            *size = First(event).size();
            return GC_ERR_SUCCESS;
        }
        TakeFirst(event, false);
        return GC_ERR_SUCCESS;
    }
    const std::vector<char> bytes = First(event);
    if (*size < bytes.size())
    {
        if (Fault("small_event_buffer_drops"))
        {
            TakeFirst(event, false);
        }
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, bytes.data(), bytes.size());
    if (!Fault("event_size_stays"))
    {
        *size = bytes.size();
    }
    TakeFirst(event, true);
    return GC_ERR_SUCCESS;
}

/// True when there is data to take; else what the wait ended with.
bool Wait(Lock& lock, Event& event, uint64_t timeout, GC_ERROR& code)
{
    const auto due = [&] { return event.ended || event.kills > 0 || Queued(event) > 0; };
    ++event.waiting;
    if (Fault("idle_wait_holds_lock") && timeout != GENTL_INFINITE && timeout >= 1000 && !The().running)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(timeout));
    }
    if (timeout == GENTL_INFINITE)
    {
        The().changed.wait(lock, [&] {
            return event.ended || event.kills > 0 || (Queued(event) > 0 && !Fault("endless_wait_is_deaf"));
        });
    }
    else
    {
        const uint64_t late = Fault("wait_is_late") && timeout == 100 ? 2500 : 0;
        const uint64_t ms = late > 0                   ? late
                            : Fault("wait_is_early")   ? timeout / 2
                            : Fault("zero_wait_waits") ? timeout + 300
                                                       : timeout;
        The().changed.wait_for(lock, std::chrono::milliseconds(std::min<uint64_t>(ms, 1000000000)), due);
    }
    --event.waiting;
    if (event.ended)
    {
        code = GC_ERR_ABORT;
        return false;
    }
    if (event.kills > 0 && !(Fault("kill_after_data") && Queued(event) > 0))
    {
        event.kills -= Fault("kill_ends_all") && event.waiting > 0 ? 0 : 1;
        code = GC_ERR_ABORT;
        return false;
    }
    code = Fault("timeout_is_no_data") ? GC_ERR_NO_DATA : GC_ERR_TIMEOUT;
    return Queued(event) > 0;
}

GC_ERROR EventInfo(const Event& event, EVENT_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    const bool frames = event.type == EVENT_NEW_BUFFER;
    switch (command)
    {
    case EVENT_EVENT_TYPE:
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, Fault("event_type_wrong") ? 77 : event.type, type, buffer,
                                    size);
    case EVENT_NUM_IN_QUEUE:
        return AnswerValue<uint64_t>(INFO_DATATYPE_SIZET, Queued(event), type, buffer, size);
    case EVENT_NUM_FIRED:
        return AnswerValue<uint64_t>(INFO_DATATYPE_UINT64, Fault("fired_counts_half") ? event.fired / 2 : event.fired,
                                     type, buffer, size);
    case EVENT_SIZE_MAX:
        return AnswerValue<uint64_t>(INFO_DATATYPE_SIZET,
                                     Fault("event_size_wrong") ? 8
                                     : frames                  ? 16
                                                               : 64,
                                     type, buffer, size);
    case EVENT_INFO_DATA_SIZE_MAX:
        return AnswerValue<uint64_t>(INFO_DATATYPE_SIZET, frames ? 8 : 64, type, buffer, size);
    default:
        return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
    }
}

} // namespace

void EndEvents(void* module)
{
    std::vector<std::shared_ptr<Event>> ended;
    for (const auto& [handle, event] : The().events)
    {
        if (module != nullptr && event->module == module)
        {
            ended.push_back(event);
        }
    }
    for (const auto& event : ended)
    {
        if (Fault("close_leaves_waiters") && event->waiting > 0)
        {
            The().events.erase(event->handle);
            continue;
        }
        End(event);
    }
}

} // namespace nq::faulty

using namespace nq::faulty;

extern "C" GC_API GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    const Kind kind = KindOf(hEventSrc);
    if (!s.open || kind == Kind::None || kind == Kind::Event || kind == Kind::Buffer)
    {
        return Result(CheckHandle(hEventSrc, hEventSrc == nullptr ? Kind::System : Kind::Remote));
    }
    if (kind == Kind::Remote && !Fault("remote_port_has_events"))
    {
        return Result(GC_ERR_INVALID_HANDLE);
    }
    if (phEvent == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (!Offers(kind == Kind::Remote ? Kind::Device : kind, iEventID))
    {
        return Result(Fault("unknown_event_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED);
    }
    if (const auto registered = Find(hEventSrc, iEventID); registered != nullptr)
    {
        *phEvent = registered->handle;
        return Result(Fault("register_twice") ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE);
    }
    const auto event = std::make_shared<Event>();
    event->handle = *phEvent = NewHandle();
    event->module = hEventSrc;
    event->type = iEventID;
    s.events[event->handle] = event;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID)
{
    const std::lock_guard lock(The().mutex);
    const Kind kind = KindOf(hEventSrc);
    if (!The().open || kind == Kind::None || kind == Kind::Event || kind == Kind::Buffer)
    {
        return Result(CheckHandle(hEventSrc, hEventSrc == nullptr ? Kind::System : Kind::Remote));
    }
    const auto event = Find(hEventSrc, iEventID);
    if (event == nullptr)
    {
        return Result(Offers(kind, iEventID) ? GC_ERR_NOT_INITIALIZED : GC_ERR_NOT_IMPLEMENTED);
    }
    End(event);
    return GC_ERR_SUCCESS;
}

extern "C" GC_API EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout)
{
    Lock lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hEvent, Kind::Event); code != 0)
    {
        return Result(code);
    }
    if (piSize == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    const std::shared_ptr<Event> event = The().events[hEvent];
    GC_ERROR code = 0;
    return Result(Wait(lock, *event, iTimeout, code) ? Deliver(*event, pBuffer, piSize) : code);
}

extern "C" GC_API EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize,
                                   EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pOutBuffer,
                                   size_t* piOutSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hEvent, Kind::Event); code != 0)
    {
        return Result(code);
    }
    if (pInBuffer == nullptr || iInSize == 0)
    {
        return Result(Fault("event_info_without_data") ? GC_ERR_NO_DATA : GC_ERR_INVALID_PARAMETER);
    }
    if (The().events[hEvent]->type != EVENT_NEW_BUFFER || iInSize < sizeof(EVENT_NEW_BUFFER_DATA) || iInfoCmd > 2)
    {
        return Result(GC_ERR_NOT_IMPLEMENTED);
    }
    EVENT_NEW_BUFFER_DATA data{};
    std::memcpy(&data, pInBuffer, sizeof data);
    if (iInfoCmd == EVENT_DATA_NUMID)
    {
        return Result(GC_ERR_NOT_AVAILABLE);
    }
    const bool first = iInfoCmd == EVENT_DATA_ID;
    const INFO_DATATYPE type = Fault("event_data_type_wrong") ? INFO_DATATYPE_UINT64 : INFO_DATATYPE_PTR;
    return Result(
        AnswerValue<void*>(type, first ? data.BufferHandle : data.pUserPointer, piType, pOutBuffer, piOutSize));
}

extern "C" GC_API EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                               size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hEvent, Kind::Event); code != 0)
    {
        return Result(code);
    }
    return Result(EventInfo(*The().events[hEvent], iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API EventFlush(EVENT_HANDLE hEvent)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hEvent, Kind::Event); code != 0)
    {
        return Result(code);
    }
    const auto event = The().events[hEvent];
    if (!Fault("event_flush_keeps"))
    {
        event->queue.clear();
        if (event->type == EVENT_NEW_BUFFER)
        {
            Unqueue();
        }
    }
    return GC_ERR_SUCCESS;
}

extern "C" GC_API EventKill(EVENT_HANDLE hEvent)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hEvent, Kind::Event); code != 0)
    {
        return Result(code);
    }
    Event& event = *The().events[hEvent];
    const bool lost = Fault("kill_missed_once_in_100") && ++The().allKills % 100 == 0;
    const bool idle = event.waiting == 0 && Fault("idle_kill_forgotten");
    if (!lost && !idle)
    {
        event.fired += Fault("kill_counts_as_fired") ? 1 : 0;
        event.kills = Fault("kills_are_one") ? 1 : event.kills + 1;
    }
    The().changed.notify_all();
    return GC_ERR_SUCCESS;
}
