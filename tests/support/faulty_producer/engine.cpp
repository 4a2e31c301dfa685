// SPDX-License-Identifier: Apache-2.0
// The thread that makes frames up, and the ways of a buffer through the queues.
#include "state.h"

#include <algorithm>
#include <chrono>

using namespace GenTL;

namespace nq::faulty
{

namespace
{

constexpr std::chrono::milliseconds kInterval{2};

uint64_t Ticks()
{
    const auto ticks = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    if (Fault("counter_fast"))
    {
        return ticks * 75;
    }
    return Fault("counter_slow") ? ticks / 75 : ticks;
}

void Number(Frame& frame)
{
    State& s = The();
    frame.id = s.frameId;
    frame.timestamp = Ticks();
    if (Fault("id_repeats_after_20") && s.frameId > 20)
    {
        frame.id = s.frameId - 1 - s.frameId % 2;
    }
    if (Fault("time_goes_back_after_20") && s.frameId > 20)
    {
        frame.timestamp = kFrequency - s.frameId;
    }
}

void Fill(Buffer* buffer)
{
    State& s = The();
    Frame& frame = buffer->frame;
    const size_t size = std::min(buffer->size, kPayload);
    std::memset(buffer->base, static_cast<int>(s.frameId), size);
    Number(frame);
    frame.fresh = true;
    frame.larger = buffer->size < kPayload;
    frame.incomplete =
        (frame.larger && !Fault("small_buffer_is_complete")) || (frame.incomplete && Fault("incomplete_for_ever"));
    frame.filled = Fault("filled_above_size") ? kPayload : size;
    ++s.started;
    ++s.delivered;
    buffer->place = Place::Output;
    if (Fault("newest_first"))
    {
        s.output.push_front(buffer);
    }
    else
    {
        s.output.push_back(buffer);
    }
    for (const auto& [handle, event] : s.events)
    {
        event->fired += event->type == EVENT_NEW_BUFFER ? 1 : 0;
    }
}

void WriteWhereItMustNot()
{
    const State& s = The();
    for (const auto& buffer : s.buffers)
    {
        if (buffer->place == Place::Unqueued && buffer->frame.fresh && Fault("writes_after_delivery"))
        {
            buffer->base[0] = static_cast<char>(buffer->base[0] + 1);
        }
    }
}

void OneFrame()
{
    State& s = The();
    ++s.frameId;
    if (s.creditsLost >= 4)
    {
        return;
    }
    if (s.input.empty())
    {
        s.creditsLost += Fault("frames_without_buffer_use_credits") ? 1 : 0;
        s.underruns += Fault("underruns_uncounted") ? 0 : 1;
        return;
    }
    Buffer* buffer = s.input.front();
    s.input.pop_front();
    Fill(buffer);
    if (s.left != GENTL_INFINITE && --s.left == 0)
    {
        s.running = false;
    }
    s.changed.notify_all();
}

void Run()
{
    State& s = The();
    std::unique_lock lock(s.mutex);
    while (!s.engineEnds)
    {
        WriteWhereItMustNot();
        s.cameraSends = s.cameraSends && !OwnerIsDisturbed();
        if (s.running && s.cameraSends)
        {
            OneFrame();
        }
        s.changed.wait_for(lock, kInterval, [&] { return s.engineEnds; });
    }
}

void Move(std::deque<Buffer*>& from, Place to)
{
    for (Buffer* buffer : from)
    {
        buffer->place = to;
        if (to == Place::Input)
        {
            Requeue(buffer);
        }
    }
    from.clear();
}

void InputToOutput()
{
    State& s = The();
    for (Buffer* buffer : s.input)
    {
        buffer->frame.fresh = Fault("flushed_is_new_data");
        buffer->place = Place::Output;
        s.output.push_back(buffer);
        for (const auto& [handle, event] : s.events)
        {
            event->fired += event->type == EVENT_NEW_BUFFER ? 1 : 0;
        }
    }
    s.input.clear();
    s.changed.notify_all();
}

void UnqueuedToInput()
{
    for (const auto& buffer : The().buffers)
    {
        if (buffer->place == Place::Unqueued)
        {
            Requeue(buffer.get());
        }
    }
}

} // namespace

void Remove(std::deque<Buffer*>& queue, const Buffer* buffer)
{
    std::erase(queue, buffer);
}

void Requeue(Buffer* buffer)
{
    const bool incomplete = buffer->frame.incomplete;
    if (!Fault("new_data_stays"))
    {
        buffer->frame = {};
    }
    buffer->frame.incomplete = incomplete && Fault("incomplete_for_ever");
    buffer->place = Place::Input;
    The().input.push_back(buffer);
}

void Flush(ACQ_QUEUE_TYPE operation)
{
    State& s = The();
    switch (operation)
    {
    case ACQ_QUEUE_INPUT_TO_OUTPUT:
        if (!Fault("flush_0_does_nothing"))
        {
            InputToOutput();
        }
        break;
    case ACQ_QUEUE_OUTPUT_DISCARD:
        Move(s.output, Fault("flush_1_to_input") ? Place::Input : Place::Unqueued);
        break;
    case ACQ_QUEUE_ALL_TO_INPUT:
        if (!Fault("flush_2_keeps_output"))
        {
            Move(s.output, Place::Input);
        }
        UnqueuedToInput();
        break;
    case ACQ_QUEUE_UNQUEUED_TO_INPUT:
        if (Fault("flush_3_takes_output"))
        {
            Move(s.output, Place::Input);
        }
        UnqueuedToInput();
        break;
    default:
        if (!Fault("flush_4_keeps_input"))
        {
            Move(s.input, Place::Unqueued);
        }
        Move(s.output, Place::Unqueued);
        break;
    }
    if (++s.flushes == 3 && Fault("buffer_lost_after_flush_3") && !s.input.empty())
    {
        s.input.pop_front();
    }
}

void StartEngine()
{
    The().engineEnds = false;
    The().engine = std::thread(Run);
}

void CloseStream(std::unique_lock<std::mutex>& lock)
{
    State& s = The();
    if (s.stream == nullptr)
    {
        return;
    }
    EndEvents(s.stream);
    s.lastStream = s.stream;
    s.memory.erase(s.stream);
    s.stream = nullptr;
    s.running = s.stopDue = false;
    if (!Fault("close_stream_keeps_buffers"))
    {
        s.input.clear();
        s.output.clear();
        s.buffers.clear();
    }
    s.underruns = s.started = s.delivered = 0;
    s.flushes = 0;
    s.engineEnds = true;
    s.changed.notify_all();
    std::thread engine = std::move(s.engine);
    lock.unlock();
    engine.join();
    lock.lock();
}

} // namespace nq::faulty
