// SPDX-License-Identifier: Apache-2.0
// Rules: start, stop, limits, statistics, and memory that belongs to the consumer.
#include "acquisition.h"
#include "families.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <thread>

namespace nq::check
{

namespace
{

using namespace GenTL;
using Clock = std::chrono::steady_clock;

constexpr size_t kCount = 4;
constexpr std::chrono::milliseconds kStarved{700}; // for which the camera finds no buffer

void StartParameters(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    c.Code(c.gentl.DSStartAcquisition(s.stream, ACQ_START_FLAGS_DEFAULT, 0), {GC_ERR_INVALID_PARAMETER},
           "DSStartAcquisition of 0 frames");
    c.Code(c.gentl.DSStartAcquisition(s.stream, 55, GENTL_INFINITE), {GC_ERR_NOT_IMPLEMENTED},
           "DSStartAcquisition with flags 55");
}

void StartWithoutBuffers(Context& c)
{
    Tree tree(c, Depth::Stream);
    const uint64_t least = StreamNumber(c, tree.stream, STREAM_INFO_BUF_ANNOUNCE_MIN).value_or(0);
    if (least == 0)
    {
        Context::NotTried("the stream needs no buffer");
    }
    c.Code(c.gentl.DSStartAcquisition(tree.stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), {GC_ERR_INVALID_BUFFER},
           fmt::format("DSStartAcquisition without a buffer, of which {} are needed", least));
}

/// The camera has long begun when there is somewhere to put its frames: what was meant for them must not be used up.
void QueueAfterStart(Context& c)
{
    Acquisition s(c, kCount);
    c.Require(s.StartStream(), "DSStartAcquisition with nothing queued");
    s.StartCamera();
    std::this_thread::sleep_for(kStarved);
    s.QueueAll();
    c.Expect(s.Next(5000).has_value(), "no frame comes into buffers that are queued after the start");
    s.Stop();
}

void WrongStates(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    c.Code(c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_DEFAULT), {GC_ERR_RESOURCE_IN_USE},
           "DSStopAcquisition before a start");
    Context::Needs(s.StartStream(), "DSStartAcquisition");
    c.Code(s.StartStream(), {GC_ERR_RESOURCE_IN_USE}, "a second DSStartAcquisition");
    c.Code(c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_KILL), {GC_ERR_SUCCESS}, "DSStopAcquisition");
    c.Code(c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_DEFAULT), {GC_ERR_RESOURCE_IN_USE},
           "a second DSStopAcquisition");
}

bool WaitForEnd(Context& c, const Acquisition& s)
{
    for (int tries = 0; tries < 300; ++tries)
    {
        if (StreamFlag(c, s.stream, STREAM_INFO_IS_GRABBING) == false)
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

void SoManyFrames(Context& c)
{
    Acquisition s(c, kCount);
    for (int run = 0; run < 2; ++run)
    {
        Context::Needs(s.Flush(ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
        s.Start(3);
        size_t frames = 0;
        while (frames < 4 && s.Next(frames < 3 ? 3000 : 200))
        {
            ++frames;
        }
        c.Expect(frames == 3, fmt::format("{} frames come of 3 that were asked for", frames));
        c.Expect(WaitForEnd(c, s), "the stream says it is grabbing after the last frame");
        c.Code(s.Stop(), {GC_ERR_SUCCESS, GC_ERR_RESOURCE_IN_USE}, "the stop after the last frame");
    }
}

void Restart(Context& c)
{
    Acquisition s(c, kCount);
    for (int run = 0; run < 4; ++run)
    {
        Context::Needs(s.Flush(ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
        c.Require(s.StartStream(), "DSStartAcquisition");
        s.StartCamera();
        c.Expect(s.Next(5000).has_value(), fmt::format("no frame comes after start {}", run + 1));
        c.Require(s.Stop(), "DSStopAcquisition");
        c.Expect(StreamFlag(c, s.stream, STREAM_INFO_IS_GRABBING) == false, "the stream is grabbing after its stop");
    }
}

void StopKeepsQueues(Context& c)
{
    Acquisition s(c, kCount);
    for (size_t index = 0; index < 2; ++index)
    {
        Context::Needs(s.Queue(s.buffers[index]), "DSQueueBuffer");
    }
    s.Start();
    if (!s.WaitForOutput(2))
    {
        Context::NotTried("no two frames came in 3 s");
    }
    s.StopCamera();
    Context::Needs(s.Queue(s.buffers[2]), "DSQueueBuffer");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    c.Require(c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
    c.Expect(s.InQueue().value_or(0) >= 2, "filled buffers are gone after a stop");
    c.Expect(s.CountQueued() == 3, fmt::format("{} of three buffers are held after a stop", s.CountQueued()));
    c.Expect(s.Next(0).has_value(), "a filled buffer cannot be fetched after a stop");
}

void IdleStop(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    Context::Needs(s.StartStream(), "DSStartAcquisition");
    const auto began = Clock::now();
    c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_DEFAULT);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
    c.Expect(took < 5000, fmt::format("DSStopAcquisition without a frame takes {} ms", took));
}

void Statistics(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.Run(10);
    c.Require(s.Stop(), "DSStopAcquisition");
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    const uint64_t started = s.Stream(STREAM_INFO_NUM_STARTED);
    s.Start();
    s.Run(1);
    const uint64_t delivered = s.Stream(STREAM_INFO_NUM_DELIVERED);
    const uint64_t startedAfter = StreamNumber(c, s.stream, STREAM_INFO_NUM_STARTED).value_or(UINT64_MAX);
    s.Stop();
    c.Expect(delivered < 10, fmt::format("STREAM_INFO_NUM_DELIVERED is {} after a new start", delivered));
    c.Expect(startedAfter >= started, "STREAM_INFO_NUM_STARTED begins anew with a start");
}

/// Frames for which there is no buffer, told by the count or by the ids that are missing, whichever way the producer
/// and its camera deal with them. When the count rises is not said: it has to have risen with the next frame.
void CountsWhatIsLost(Context& c, Acquisition& s)
{
    const uint64_t last = s.Number(s.Frame().BufferHandle, BUFFER_INFO_FRAMEID).value_or(0);
    std::this_thread::sleep_for(kStarved);
    Context::Needs(s.Queue(s.buffers[1]), "DSQueueBuffer");
    const auto frame = s.Next(5000);
    c.Expect(frame.has_value(), "no frame comes after a buffer is queued at last");
    const uint64_t next = frame ? s.Number(frame->BufferHandle, BUFFER_INFO_FRAMEID).value_or(0) : 0;
    const uint64_t counted = s.Stream(STREAM_INFO_NUM_UNDERRUN);
    if (frame && counted == 0 && next <= last + 1)
    {
        Context::NotTried("the camera loses no frame while there is no buffer");
    }
    c.Expect(!frame || counted > 0,
             fmt::format("without a buffer frame {} comes after {}, and STREAM_INFO_NUM_UNDERRUN is 0", next, last));
}

void Underruns(Context& c)
{
    Acquisition s(c, kCount);
    Context::Needs(s.Queue(s.buffers[0]), "DSQueueBuffer");
    if (!StreamNumber(c, s.stream, STREAM_INFO_NUM_UNDERRUN))
    {
        Context::NotTried("STREAM_INFO_NUM_UNDERRUN is not offered");
    }
    s.Start();
    CountsWhatIsLost(c, s);
    s.Stop();
    const uint64_t before = s.Stream(STREAM_INFO_NUM_UNDERRUN);
    Context::Needs(s.StartStream(), "DSStartAcquisition");
    const uint64_t after = s.Stream(STREAM_INFO_NUM_UNDERRUN);
    c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_KILL);
    c.Expect(after >= before, fmt::format("STREAM_INFO_NUM_UNDERRUN goes from {} to {} with a start", before, after));
}

void TooSmall(Context& c)
{
    Acquisition s(c, 0);
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    for (const Announced& buffer : s.buffers)
    {
        Context::Needs(c.gentl.DSRevokeBuffer(s.stream, buffer.handle, nullptr, nullptr), "DSRevokeBuffer");
    }
    s.buffers.clear();
    const size_t small = s.payload / 2;
    s.Announce(kCount, small);
    s.QueueAll();
    const GC_ERROR code = s.StartStream();
    if (!c.Code(code, {GC_ERR_SUCCESS, GC_ERR_BUFFER_TOO_SMALL, GC_ERR_INVALID_BUFFER},
                "DSStartAcquisition with buffers too small") ||
        code != GC_ERR_SUCCESS)
    {
        return;
    }
    s.StartCamera();
    if (const auto frame = s.Next(2000))
    {
        c.Expect(s.Flag(frame->BufferHandle, BUFFER_INFO_IS_INCOMPLETE) == true, "a frame cut short is not incomplete");
        const uint64_t filled = s.Number(frame->BufferHandle, BUFFER_INFO_SIZE_FILLED).value_or(0);
        c.Expect(filled <= small, fmt::format("BUFFER_INFO_SIZE_FILLED is {} of a buffer of {}", filled, small));
    }
    for (const Announced& buffer : s.buffers)
    {
        c.Expect(std::all_of(buffer.memory + small, buffer.memory + small + 64, [](char byte) { return byte == 0x5A; }),
                 "a frame is written beyond its buffer");
    }
    s.Stop(ACQ_STOP_FLAGS_KILL);
}

void NoWriteAfterClose(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.Run(3);
    c.Code(c.gentl.DSClose(s.stream), {GC_ERR_SUCCESS}, "DSClose while frames come");
    for (const Announced& buffer : s.buffers)
    {
        std::memset(buffer.memory, 0x77, s.payload);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (const Announced& buffer : s.buffers)
    {
        c.Expect(std::all_of(buffer.memory, buffer.memory + s.payload, [](char byte) { return byte == 0x77; }),
                 "a buffer is written to after DSClose");
    }
}

void NoWriteAfterDelivery(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    const NewBuffer held = s.Frame();
    const auto buffer = std::find_if(s.buffers.begin(), s.buffers.end(),
                                     [&](const Announced& one) { return one.handle == held.BufferHandle; });
    if (buffer == s.buffers.end())
    {
        Context::NotTried("the event names no announced buffer");
    }
    const std::string before(buffer->memory, s.payload);
    s.Run(10);
    c.Expect(std::memcmp(before.data(), buffer->memory, s.payload) == 0, "a delivered buffer is written to");
    s.Stop();
}

void CloseForgetsBuffers(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    Context::Needs(c.gentl.DSClose(s.stream), "DSClose");
    c.Require(c.gentl.DevOpenDataStream(s.device, s.streamId.c_str(), &s.stream), "DevOpenDataStream after DSClose");
    const uint64_t announced = s.Stream(STREAM_INFO_NUM_ANNOUNCED);
    c.Expect(announced == 0, fmt::format("{} buffers are announced on a new stream", announced));
    BUFFER_HANDLE buffer = nullptr;
    c.Code(c.gentl.DSGetBufferID(s.stream, 0, &buffer), {GC_ERR_INVALID_INDEX}, "DSGetBufferID of a new stream");
}

/// The camera goes on sending.
void KillWhileFramesCome(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.Run(3);
    c.Code(c.gentl.DSStopAcquisition(s.stream, ACQ_STOP_FLAGS_KILL), {GC_ERR_SUCCESS},
           "DSStopAcquisition that kills, while frames come");
    c.Expect(StreamFlag(c, s.stream, STREAM_INFO_IS_GRABBING) == false, "the stream is grabbing after its stop");
    const uint64_t delivered = s.Stream(STREAM_INFO_NUM_DELIVERED);
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    c.Expect(s.Stream(STREAM_INFO_NUM_DELIVERED) == delivered && s.InQueue().value_or(0) == 0,
             "frames are delivered after a stop that kills");
    s.StopCamera();
}

constexpr Rule kRules[] = {
    {"AC-001", "a start of nothing is refused, unknown flags are not implemented", "6.3.5.11", Severity::Must,
     Needs::Camera, StartParameters},
    {"AC-002", "a start with too few buffers is refused", "6.3.5.11", Severity::Must, Needs::Camera,
     StartWithoutBuffers},
    {"AC-003", "a start with nothing queued waits for buffers", "6.3.5.11", Severity::Must, Needs::Stream,
     QueueAfterStart},
    {"AC-004", "a second start, a second stop and a stop before a start are refused", "6.3.5.11, 6.3.5.12",
     Severity::Must, Needs::Camera, WrongStates},
    {"AC-005", "N frames are exactly N, and then the stream is not grabbing", "6.3.5.11, 6.3.5.12", Severity::Must,
     Needs::Stream, SoManyFrames, "what a stop answers then is left open"},
    {"AC-006", "a stream restarts as often as one likes", "6.3.5.11, 6.3.5.12", Severity::Must, Needs::Stream, Restart},
    {"AC-007", "a stop keeps input pool and output queue", "5.2.7", Severity::Must, Needs::Stream, StopKeepsQueues},
    {"AC-008", "a stop without frames ends in 5 s", "", Severity::Should, Needs::Camera, IdleStop,
     "no limit is stated"},
    {"AC-009", "STREAM_INFO_NUM_DELIVERED begins anew with a start, NUM_STARTED does not", "6.4.4.8", Severity::Must,
     Needs::Stream, Statistics},
    {"AC-010", "frames without a buffer are counted, from open to close, and do not end the stream", "5.3.1, 6.4.4.8",
     Severity::Must, Needs::Stream, Underruns},
    {"AC-011", "buffers too small are refused, or delivered as incomplete", "5.2.1", Severity::Must, Needs::Stream,
     TooSmall},
    {"AC-012", "nothing is written to a buffer after DSClose", "3.5", Severity::Must, Needs::Stream, NoWriteAfterClose},
    {"AC-013", "nothing is written to a delivered buffer", "5.1.3", Severity::Must, Needs::Stream,
     NoWriteAfterDelivery},
    {"AC-014", "DSClose revokes all buffers", "3.5, 6.3.5.4", Severity::Must, Needs::Camera, CloseForgetsBuffers},
    {"AC-015", "a stop that kills ends the acquisition while frames come", "6.3.5.12", Severity::Must, Needs::Stream,
     KillWhileFramesCome},
};

} // namespace

std::span<const Rule> AcquisitionRules()
{
    return kRules;
}

} // namespace nq::check
