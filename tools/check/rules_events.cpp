// SPDX-License-Identifier: Apache-2.0
// Rules: registration, waits, kills and what an event tells of itself.
#include "acquisition.h"
#include "families.h"

#include <atomic>
#include <chrono>
#include <fmt/format.h>
#include <thread>

namespace nq::check
{

namespace
{

using namespace GenTL;
using Clock = std::chrono::steady_clock;

constexpr auto kSettle = std::chrono::milliseconds(150); // from a thread's call to its wait

long MillisecondsSince(Clock::time_point began)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
}

/// Waits of other threads for an event. They are left alone when they do not end: the process ends with them.
class Waiters
{
  public:
    Waiters(Context& c, EVENT_HANDLE event, int count)
    {
        for (int index = 0; index < count; ++index)
        {
            std::thread([&c, event, began = m_began, ended = m_ended, aborted = m_aborted] {
                char data[256];
                size_t size = sizeof data;
                ++*began;
                const GC_ERROR code = c.gentl.EventGetData(event, data, &size, GENTL_INFINITE);
                *aborted += code == GC_ERR_ABORT ? 1 : 0;
                ++*ended;
            }).detach();
        }
        while (*m_began < count)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(kSettle);
    }

    bool WaitFor(int count) const
    {
        for (int tries = 0; tries < 200 && *m_ended < count; ++tries)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return *m_ended >= count;
    }
    int Ended() const { return *m_ended; }
    int Aborted() const { return *m_aborted; }

  private:
    std::shared_ptr<std::atomic<int>> m_began = std::make_shared<std::atomic<int>>(0);
    std::shared_ptr<std::atomic<int>> m_ended = std::make_shared<std::atomic<int>>(0);
    std::shared_ptr<std::atomic<int>> m_aborted = std::make_shared<std::atomic<int>>(0);
};

GC_ERROR Poll(Context& c, EVENT_HANDLE event, uint64_t ms)
{
    char data[256];
    size_t size = sizeof data;
    return c.gentl.EventGetData(event, data, &size, ms);
}

void RegisterTwice(Context& c)
{
    const Acquisition tree(c, 1);
    EVENT_HANDLE other = nullptr;
    c.Code(c.gentl.GCRegisterEvent(tree.stream, EVENT_NEW_BUFFER, &other), {GC_ERR_RESOURCE_IN_USE},
           "a second GCRegisterEvent");
    c.Code(c.gentl.GCUnregisterEvent(tree.stream, EVENT_NEW_BUFFER), {GC_ERR_SUCCESS}, "GCUnregisterEvent");
    c.Code(c.gentl.GCUnregisterEvent(tree.stream, EVENT_NEW_BUFFER), {GC_ERR_NOT_INITIALIZED},
           "a second GCUnregisterEvent");
}

void WrongEvents(Context& c)
{
    const Tree tree(c, Depth::System);
    EVENT_HANDLE event = nullptr;
    c.Code(c.gentl.GCRegisterEvent(tree.system, EVENT_NEW_BUFFER, &event),
           {GC_ERR_NOT_IMPLEMENTED, GC_ERR_NOT_AVAILABLE}, "GCRegisterEvent of the new buffer on the system");
    c.Code(c.gentl.GCRegisterEvent(tree.system, 888, &event), {GC_ERR_NOT_IMPLEMENTED, GC_ERR_NOT_AVAILABLE},
           "GCRegisterEvent of type 888");
}

void RemotePortIsNoSource(Context& c)
{
    const Tree tree(c, Depth::Device);
    for (const EVENT_TYPE type : {EVENT_ERROR, EVENT_MODULE, EVENT_FEATURE_CHANGE})
    {
        EVENT_HANDLE event = nullptr;
        c.Expect(c.gentl.GCRegisterEvent(tree.remote, type, &event) != GC_ERR_SUCCESS,
                 fmt::format("GCRegisterEvent of type {} on the remote port succeeds", type));
    }
}

void TimeOuts(Context& c)
{
    const Acquisition tree(c, 1);
    auto began = Clock::now();
    c.Code(Poll(c, tree.event, 0), {GC_ERR_TIMEOUT}, "EventGetData of 0 ms without an event");
    c.Expect(MillisecondsSince(began) < 200, "EventGetData of 0 ms waits");
    began = Clock::now();
    c.Code(Poll(c, tree.event, 100), {GC_ERR_TIMEOUT}, "EventGetData of 100 ms without an event");
    c.Expect(MillisecondsSince(began) >= 98,
             fmt::format("EventGetData of 100 ms ends after {} ms", MillisecondsSince(began)));
}

void EndsInTime(Context& c)
{
    const Acquisition tree(c, 1);
    const auto began = Clock::now();
    c.Code(Poll(c, tree.event, 100), {GC_ERR_TIMEOUT}, "EventGetData of 100 ms without an event");
    const long took = MillisecondsSince(began);
    c.Expect(took < 2100, fmt::format("EventGetData of 100 ms ends after {} ms", took));
}

void WithoutLimit(Context& c)
{
    Acquisition tree(c, 4);
    const Waiters waiter(c, tree.event, 1);
    tree.QueueAll();
    tree.Start();
    c.Expect(waiter.WaitFor(1), "a wait without limit goes on when frames come");
    c.Expect(waiter.Aborted() == 0, "a wait without limit is aborted when frames come");
    tree.Stop();
}

void KillEndsOne(Context& c)
{
    const Acquisition tree(c, 1);
    const Waiters waiters(c, tree.event, 3);
    for (int kills = 1; kills <= 3; ++kills)
    {
        c.Code(c.gentl.EventKill(tree.event), {GC_ERR_SUCCESS}, "EventKill");
        c.Expect(waiters.WaitFor(kills), fmt::format("{} kills end {} of 3 waits", kills, waiters.Ended()));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        c.Expect(waiters.Ended() <= kills, fmt::format("{} kills end {} of 3 waits", kills, waiters.Ended()));
    }
    c.Expect(waiters.Aborted() == waiters.Ended(), "a wait that was killed does not tell of an abort");
}

void IdleKill(Context& c)
{
    const Acquisition tree(c, 1);
    for (const uint64_t ms : {uint64_t{100}, uint64_t{0}})
    {
        c.Code(c.gentl.EventKill(tree.event), {GC_ERR_SUCCESS}, "EventKill");
        c.Code(Poll(c, tree.event, ms), {GC_ERR_ABORT}, fmt::format("EventGetData of {} ms after EventKill", ms));
        c.Code(Poll(c, tree.event, 0), {GC_ERR_TIMEOUT}, "EventGetData after the aborted one");
    }
}

void KillBeforeData(Context& c)
{
    Acquisition tree(c, 4);
    tree.QueueAll();
    tree.Start();
    if (!tree.WaitForOutput(1))
    {
        Context::NotTried("no frame came in 3 s");
    }
    tree.Stop();
    const uint64_t before = tree.InQueue().value_or(0);
    const auto fired = [&] {
        return Info<uint64_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.EventGetInfo(tree.event, EVENT_NUM_FIRED, type, buffer, size);
        });
    };
    const auto firedBefore = fired();
    c.Code(c.gentl.EventKill(tree.event), {GC_ERR_SUCCESS}, "EventKill");
    NewBuffer data{};
    size_t size = sizeof data;
    c.Code(c.gentl.EventGetData(tree.event, &data, &size, 0), {GC_ERR_ABORT},
           "EventGetData after EventKill, with data");
    const uint64_t after = tree.InQueue().value_or(0);
    c.Expect(before == after, fmt::format("{} events are queued before the abort, {} after it", before, after));
    c.Expect(fired() == firedBefore, "EVENT_NUM_FIRED changes by a kill");
}

void KillsAddUp(Context& c)
{
    const Acquisition tree(c, 1);
    for (int kill = 0; kill < 3; ++kill)
    {
        c.gentl.EventKill(tree.event);
    }
    for (int kill = 0; kill < 3; ++kill)
    {
        c.Code(Poll(c, tree.event, 0), {GC_ERR_ABORT}, fmt::format("EventGetData {} after three kills", kill + 1));
    }
}

/// A consumer's thread that ends by a kill must end by each.
void EveryKill(Context& c)
{
    const Acquisition tree(c, 1);
    for (int round = 0; round < 150; ++round)
    {
        c.gentl.EventKill(tree.event);
        if (!c.Code(Poll(c, tree.event, 50), {GC_ERR_ABORT}, fmt::format("EventGetData after kill {}", round + 1)))
        {
            return;
        }
    }
}

void UnregisterEndsWaits(Context& c)
{
    Acquisition tree(c, 1);
    const Waiters waiters(c, tree.event, 2);
    c.Code(c.gentl.GCUnregisterEvent(tree.stream, EVENT_NEW_BUFFER), {GC_ERR_SUCCESS}, "GCUnregisterEvent");
    c.Expect(waiters.WaitFor(2) && waiters.Aborted() == 2,
             fmt::format("of two waits {} ended, {} aborted", waiters.Ended(), waiters.Aborted()));
}

void RegisterAnewForgetsKills(Context& c)
{
    Acquisition tree(c, 1);
    c.gentl.EventKill(tree.event);
    c.Require(c.gentl.GCUnregisterEvent(tree.stream, EVENT_NEW_BUFFER), "GCUnregisterEvent");
    c.Require(c.gentl.GCRegisterEvent(tree.stream, EVENT_NEW_BUFFER, &tree.event), "GCRegisterEvent");
    c.Code(Poll(c, tree.event, 0), {GC_ERR_TIMEOUT}, "EventGetData of an event registered after a kill");
}

void CloseEndsWaits(Context& c)
{
    Acquisition tree(c, 1);
    const Waiters waiters(c, tree.event, 2);
    c.Code(c.gentl.DSClose(tree.stream), {GC_ERR_SUCCESS}, "DSClose");
    c.Expect(waiters.WaitFor(2), fmt::format("of two waits {} ended with their stream", waiters.Ended()));
}

void Sizes(Context& c)
{
    const Acquisition tree(c, 1);
    const auto ask = [&](EVENT_INFO_CMD command) {
        return [&c, &tree, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.EventGetInfo(tree.event, command, type, buffer, size);
        };
    };
    const int32_t type = Info<int32_t>(ask(EVENT_EVENT_TYPE)).value_or(-1);
    const uint64_t size = Info<uint64_t>(ask(EVENT_SIZE_MAX)).value_or(0);
    c.Expect(type == EVENT_NEW_BUFFER, fmt::format("the type of the new-buffer event is {}", type));
    c.Expect(size == sizeof(NewBuffer), fmt::format("the size of the new-buffer event is {}", size));
}

void SmallEventBuffer(Context& c)
{
    Acquisition tree(c, 4);
    tree.QueueAll();
    tree.Start();
    if (!tree.WaitForOutput(1))
    {
        Context::NotTried("no frame came in 3 s");
    }
    tree.Stop();
    const uint64_t before = tree.InQueue().value_or(0);
    char data[64];
    size_t size = 1;
    c.Code(c.gentl.EventGetData(tree.event, data, &size, 0), {GC_ERR_BUFFER_TOO_SMALL}, "EventGetData into one byte");
    c.Code(c.gentl.EventGetData(tree.event, data, nullptr, 0), {GC_ERR_INVALID_PARAMETER}, "EventGetData without size");
    c.Expect(tree.InQueue() == before, "a call that failed took an event");
    size = 64;
    c.Code(c.gentl.EventGetData(tree.event, data, &size, 0), {GC_ERR_SUCCESS}, "EventGetData into 64 bytes");
    c.Expect(size == sizeof(NewBuffer), fmt::format("EventGetData tells {} bytes written instead of 16", size));
}

void NullDrops(Context& c)
{
    Acquisition tree(c, 4);
    tree.QueueAll();
    tree.Start();
    if (!tree.WaitForOutput(2))
    {
        Context::NotTried("no two frames came in 3 s");
    }
    tree.Stop();
    const uint64_t before = tree.InQueue().value_or(0);
    const size_t queued = tree.CountQueued();
    size_t size = 0;
    c.Code(c.gentl.EventGetData(tree.event, nullptr, &size, 0), {GC_ERR_SUCCESS}, "EventGetData without buffer");
    c.Expect(tree.InQueue().value_or(0) + 1 == before, "EventGetData without buffer drops no event");
    c.Expect(tree.CountQueued() + 1 == queued, "the buffer of the dropped event is queued");
}

void NewBufferData(Context& c)
{
    Acquisition tree(c, 4);
    tree.QueueAll();
    tree.Start();
    const NewBuffer frame = tree.Frame();
    bool known = false;
    for (const Announced& buffer : tree.buffers)
    {
        known = known || (buffer.handle == frame.BufferHandle && buffer.user == frame.pUserPointer);
    }
    c.Expect(known, "the event names no announced buffer with its user pointer");
    for (const EVENT_DATA_INFO_CMD command : {EVENT_DATA_ID, EVENT_DATA_VALUE})
    {
        INFO_DATATYPE type = 0;
        void* value = nullptr;
        size_t size = sizeof value;
        c.Code(c.gentl.EventGetDataInfo(tree.event, &frame, sizeof frame, command, &type, &value, &size),
               {GC_ERR_SUCCESS}, fmt::format("EventGetDataInfo, command {}", command));
        c.Expect(type == INFO_DATATYPE_PTR, fmt::format("EventGetDataInfo, command {}: type {}", command, type));
        c.Expect(value == (command == EVENT_DATA_ID ? frame.BufferHandle : frame.pUserPointer),
                 fmt::format("EventGetDataInfo, command {}, gives another pointer", command));
    }
    INFO_DATATYPE type = 0;
    size_t size = 0;
    c.Code(c.gentl.EventGetDataInfo(tree.event, nullptr, 16, EVENT_DATA_ID, &type, nullptr, &size),
           {GC_ERR_INVALID_PARAMETER}, "EventGetDataInfo without data");
    c.Code(c.gentl.EventGetDataInfo(tree.event, &frame, 0, EVENT_DATA_ID, &type, nullptr, &size),
           {GC_ERR_INVALID_PARAMETER}, "EventGetDataInfo of 0 bytes");
}

void FlushEvents(Context& c)
{
    Acquisition tree(c, 4);
    tree.QueueAll();
    tree.Start();
    if (!tree.WaitForOutput(2))
    {
        Context::NotTried("no two frames came in 3 s");
    }
    tree.Stop();
    const uint64_t waiting = tree.InQueue().value_or(0);
    const size_t queued = tree.CountQueued();
    c.Code(c.gentl.EventFlush(tree.event), {GC_ERR_SUCCESS}, "EventFlush");
    c.Expect(tree.InQueue() == 0U, "events are left after EventFlush");
    c.Expect(tree.CountQueued() + waiting == queued, "EventFlush does not unqueue the buffers of its events");
}

void FiredAddsUp(Context& c)
{
    Acquisition tree(c, 4);
    tree.QueueAll();
    tree.Start();
    tree.Run(5);
    const bool three = tree.WaitForOutput(3);
    tree.Stop();
    c.Require(three ? GC_ERR_SUCCESS : GC_ERR_TIMEOUT, "three frames in the output queue");
    const uint64_t flushed = tree.InQueue().value_or(0);
    c.gentl.EventFlush(tree.event);
    const auto fired = Info<uint64_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return c.gentl.EventGetInfo(tree.event, EVENT_NUM_FIRED, type, buffer, size);
    });
    if (!fired)
    {
        Context::NotTried("EVENT_NUM_FIRED is not offered");
    }
    c.Expect(*fired == 5 + flushed,
             fmt::format("EVENT_NUM_FIRED is {} after 5 delivered and {} flushed events", *fired, flushed));
}

void UnregisterUnqueues(Context& c)
{
    Acquisition tree(c, 6);
    for (size_t index = 0; index < 3; ++index)
    {
        Context::Needs(tree.Queue(tree.buffers[index]), "DSQueueBuffer");
    }
    tree.Start();
    const bool filled = tree.WaitForOutput(3);
    tree.Stop();
    if (!filled)
    {
        Context::NotTried("no three frames came in 3 s");
    }
    Context::Needs(tree.Queue(tree.buffers[4]), "DSQueueBuffer");
    c.Code(c.gentl.GCUnregisterEvent(tree.stream, EVENT_NEW_BUFFER), {GC_ERR_SUCCESS}, "GCUnregisterEvent");
    const size_t queued = tree.CountQueued();
    c.Expect(queued == 1, fmt::format("with one buffer in the input pool {} are queued", queued));
}

constexpr Rule kRules[] = {
    {"EV-001", "an event registers once; unregistering what is not registered is refused", "6.3.7.6, 6.3.7.7",
     Severity::Must, Needs::Camera, RegisterTwice},
    {"EV-002", "an event that a module does not have is not implemented", "6.3.7.6", Severity::Must, Needs::Nothing,
     WrongEvents},
    {"EV-003", "the remote port is no source of events", "6.3.4.5", Severity::Should, Needs::Camera,
     RemotePortIsNoSource},
    {"EV-004", "a wait of 0 ends at once, another not early", "6.3.7.2", Severity::Must, Needs::Camera, TimeOuts},
    {"EV-005", "a kill ends exactly one of several waits", "6.3.7.5", Severity::Must, Needs::Camera, KillEndsOne},
    {"EV-006", "a kill with nobody waiting ends the next wait, also one of 0", "4.2.3.2", Severity::Must, Needs::Camera,
     IdleKill},
    {"EV-007", "a kill comes before queued events, loses none and is not counted", "4.2.3.2", Severity::Must,
     Needs::Stream, KillBeforeData},
    {"EV-008", "several kills with nobody waiting end as many waits", "4.2.3.2", Severity::May, Needs::Camera,
     KillsAddUp, "whether they add up is left open"},
    {"EV-009", "no kill of 150 is missed", "6.3.7.5", Severity::Must, Needs::Camera, EveryKill},
    {"EV-010",
     "unregistering ends all waits by an abort",
     "6.3.7.7",
     Severity::Must,
     Needs::Camera,
     UnregisterEndsWaits,
     {},
     8},
    {"EV-011", "registering anew forgets kills", "6.3.7.5", Severity::Must, Needs::Camera, RegisterAnewForgetsKills},
    {"EV-012",
     "closing a module ends the waits for its events",
     "4.2.3.1",
     Severity::Must,
     Needs::Camera,
     CloseEndsWaits,
     {},
     8},
    {"EV-013", "the new-buffer event tells its type and its 16 bytes", "6.4.6.2", Severity::Must, Needs::Camera, Sizes},
    {"EV-014", "a buffer too small for an event is told, and the event kept", "6.3.7.2", Severity::Must, Needs::Stream,
     SmallEventBuffer},
    {"EV-015", "EventGetData without buffer drops one event", "6.3.7.2", Severity::Must, Needs::Stream, NullDrops},
    {"EV-016", "the new-buffer event gives an announced buffer with its user pointer", "6.5.2.1, 6.4.6.3",
     Severity::Must, Needs::Stream, NewBufferData},
    {"EV-017", "EventFlush empties the queue, and unqueues the buffers", "5.2.8", Severity::Must, Needs::Stream,
     FlushEvents},
    {"EV-018", "EVENT_NUM_FIRED is what was delivered and flushed", "6.4.6.2", Severity::Should, Needs::Stream,
     FiredAddsUp},
    {"EV-019", "unregistering the new-buffer event unqueues the output, and keeps the input pool", "6.3.7.7",
     Severity::Must, Needs::Stream, UnregisterUnqueues},
    {"EV-020", "a wait ends soon after its time, with a margin of two seconds", "6.3.7.2", Severity::Should,
     Needs::Camera, EndsInTime},
    {"EV-021", "a wait without limit ends with the next event", "6.3.7.2", Severity::Must, Needs::Stream, WithoutLimit},
};

} // namespace

std::span<const Rule> EventRules()
{
    return kRules;
}

} // namespace nq::check
