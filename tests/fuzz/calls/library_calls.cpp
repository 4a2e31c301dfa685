// SPDX-License-Identifier: Apache-2.0
// Calls of the library and of the events.
#include "fuzz/calls/caller.h"

#include <algorithm>

namespace nq::fuzz
{
namespace
{

bool HasEvent(Kind kind, int id)
{
    switch (kind)
    {
    case Kind::Interface:
        return id == 0;
    case Kind::Device:
        return id == 4 || id == 5 || id == 4000;
    case Kind::Stream:
        return id == 1 || id == 5;
    default:
        return false;
    }
}

std::size_t RecordSize(int id)
{
    switch (id)
    {
    case 0:
        return 1028;
    case 1:
        return 16;
    case 4:
        return 546;
    case 5:
        return 548;
    default:
        return 260;
    }
}

int EventId(FuzzInput& input)
{
    static constexpr int kIds[] = {0, 1, 4, 5, 4000, 5000, 2, -1};
    return kIds[input.Below(std::size(kIds))];
}

} // namespace

void Caller::GCInitLib()
{
    Expect("GCInitLib", GenTL::GCInitLib(), m_model.initialised ? -1004 : 0);
    m_model.initialised = true;
}

void Caller::GCCloseLib()
{
    // Rarely, or no sequence gets anywhere.
    if (m_model.initialised && m_input.Below(4) != 0)
    {
        return;
    }
    Expect("GCCloseLib", GenTL::GCCloseLib(), m_model.initialised ? 0 : -1002);
    if (m_model.initialised)
    {
        m_model.Close();
    }
}

void Caller::GCGetInfo()
{
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    const int result = GenTL::GCGetInfo(info.command, info.typePointer, info.buffer, info.sizePointer);
    const int refused = !m_model.initialised                    ? -1002
                        : info.Incomplete()                     ? -1009
                        : info.command < 0 || info.command > 10 ? -1003
                                                                : 0;
    ExpectInfo("GCGetInfo", result, info, refused);
}

void Caller::GCGetLastError()
{
    const bool noCode = m_input.Below(16) == 1;
    const bool noSize = m_input.Below(16) == 1;
    const bool noText = m_input.Below(4) == 1;
    const std::size_t space = m_input.Below(40);
    const auto text = std::make_unique<char[]>(space);
    std::size_t size = space;
    int code = 12345;
    const int result =
        GenTL::GCGetLastError(noCode ? nullptr : &code, noText ? nullptr : text.get(), noSize ? nullptr : &size);
    if (!m_model.initialised)
    {
        Expect("GCGetLastError", result, -1002);
        return;
    }
    if (noCode || noSize)
    {
        Require(result == -1009, "GCGetLastError without a code or a size", result);
        return;
    }
    Require(result == 0 || (result == -1016 && !noText && size == space && code == 12345),
            "GCGetLastError succeeds or touches nothing", result);
    Require(result != 0 || code == Model::LastError(), "the last error is the thread's last failure", code);
    Require(result != 0 || noText || size <= space, "the text fits", static_cast<long>(size));
}

void Caller::GCRegisterEvent()
{
    void* const source = m_model.Pick(m_input, Kind::Stream);
    const int id = EventId(m_input);
    const bool noOutput = m_input.Below(16) == 1;
    void* event = nullptr;
    const int result = GenTL::GCRegisterEvent(source, id, noOutput ? nullptr : &event);
    Module* const module = m_model.Find(source);
    if (!Reaches("GCRegisterEvent", result, module != nullptr))
    {
        return;
    }
    const int expected = !HasEvent(module->kind, id)    ? -1003
                         : module->events.count(id) > 0 ? -1004
                         : noOutput                     ? -1009
                                                        : 0;
    Expect("GCRegisterEvent", result, expected);
    if (result == 0)
    {
        Require(event != nullptr && m_model.FindEvent(event) == nullptr, "a new event has a new handle");
        module->events[id] = std::make_unique<Event>(Event{event, id, module, false, {}});
    }
}

void Caller::GCUnregisterEvent()
{
    void* const source = m_model.Pick(m_input, Kind::Stream);
    const int id = EventId(m_input);
    const int result = GenTL::GCUnregisterEvent(source, id);
    Module* const module = m_model.Find(source);
    if (!Reaches("GCUnregisterEvent", result, module != nullptr))
    {
        return;
    }
    const int expected = !HasEvent(module->kind, id) ? -1003 : module->events.count(id) == 0 ? -1002 : 0;
    Expect("GCUnregisterEvent", result, expected);
    if (result == 0)
    {
        m_model.stale.push_back(module->events[id]->handle);
        module->events.erase(id);
    }
}

void Caller::EventGetData()
{
    static constexpr std::uint64_t kTimeouts[] = {0, 1, 100, 0xFFFFFFFFFFFFFFFF, 0x100000000};
    void* const handle = m_model.Pick(m_input, Kind::Event);
    const std::uint64_t timeout = kTimeouts[m_input.Below(std::size(kTimeouts))];
    const unsigned char nulls = m_input.Byte();
    Event* const event = m_model.FindEvent(handle);
    const std::size_t needed = event == nullptr ? 16 : RecordSize(event->id);
    const std::size_t space = (nulls & 3) == 1 ? m_input.Byte() : needed;
    const auto memory = std::make_unique<unsigned char[]>(space);
    unsigned char* const buffer = (nulls & 12) == 4 ? nullptr : memory.get();
    std::size_t size = space;
    const bool noSize = (nulls & 0x70) == 0x10;
    const int result = GenTL::EventGetData(handle, buffer, noSize ? nullptr : &size, timeout);
    if (!Reaches("EventGetData", result, event != nullptr))
    {
        return;
    }
    if (noSize || (buffer != nullptr && space < needed) || event->killed)
    {
        Expect("EventGetData", result, noSize ? -1009 : buffer != nullptr && space < needed ? -1016 : -1012);
        Require(result != -1016 || size == needed, "the size that is needed");
        return;
    }
    // A timeout is no last error. The connection event may have come meanwhile.
    const bool mayCome = event->id == 4000;
    Require(result == 0 || result == -1011, "EventGetData succeeds or times out", result);
    Require(mayCome || (result == 0) == !event->waiting.empty(), "what waits is delivered at once", result);
    if (result == 0 && !mayCome)
    {
        Module* const delivered = m_model.Find(event->waiting.front(), Kind::Buffer);
        event->waiting.pop_front();
        delivered->queued = false;
        void* pair[2] = {delivered->handle, delivered->user};
        Require(buffer == nullptr || std::memcmp(buffer, pair, sizeof pair) == 0, "buffers come in their order");
    }
}

void Caller::EventGetDataInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Event);
    InfoArguments info(m_input, {0, 1, 2});
    Bytes record = m_input.Take(16);
    record.resize(1100, 0);
    const bool noRecord = m_input.Below(16) == 1;
    const std::size_t recordSize = m_input.Below(16) == 1 ? 0 : record.size();
    const int result = GenTL::EventGetDataInfo(handle, noRecord ? nullptr : record.data(), recordSize, info.command,
                                               info.typePointer, info.buffer, info.sizePointer);
    if (!Reaches("EventGetDataInfo", result, m_model.FindEvent(handle) != nullptr))
    {
        return;
    }
    const int refused = info.Incomplete() || recordSize == 0   ? -1009
                        : noRecord                             ? -1006
                        : info.command < 0 || info.command > 2 ? -1003
                                                               : 0;
    ExpectInfo("EventGetDataInfo", result, info, refused);
}

void Caller::EventGetInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Event);
    InfoArguments info(m_input, {0, 1, 2, 3, 4});
    const int result = GenTL::EventGetInfo(handle, info.command, info.typePointer, info.buffer, info.sizePointer);
    const Event* const event = m_model.FindEvent(handle);
    if (!Reaches("EventGetInfo", result, event != nullptr))
    {
        return;
    }
    const bool known = info.command == 0 || info.command == 1 || info.command == 3 || info.command == 4;
    ExpectInfo("EventGetInfo", result, info, info.Incomplete() ? -1009 : known ? 0 : -1003);
    if (result == 0 && info.buffer != nullptr && info.command == 1 && event->id != 4000)
    {
        std::size_t waiting = 0;
        std::memcpy(&waiting, info.buffer, sizeof waiting);
        Require(waiting == event->waiting.size(), "the number of entries that wait", static_cast<long>(waiting));
    }
}

void Caller::EventFlush()
{
    void* const handle = m_model.Pick(m_input, Kind::Event);
    const int result = GenTL::EventFlush(handle);
    Event* const event = m_model.FindEvent(handle);
    if (!Reaches("EventFlush", result, event != nullptr))
    {
        return;
    }
    Expect("EventFlush", result, 0);
    for (void* const buffer : event->waiting)
    {
        m_model.Find(buffer)->queued = false;
    }
    event->waiting.clear();
    event->killed = false;
}

void Caller::EventKill()
{
    void* const handle = m_model.Pick(m_input, Kind::Event);
    const int result = GenTL::EventKill(handle);
    Event* const event = m_model.FindEvent(handle);
    if (Reaches("EventKill", result, event != nullptr))
    {
        Expect("EventKill", result, 0);
        event->killed = true;
    }
}

} // namespace nq::fuzz
