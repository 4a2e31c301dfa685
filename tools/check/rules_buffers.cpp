// SPDX-License-Identifier: Apache-2.0
// Rules: announcing, queueing, revoking, flushing, and counts that add up.
#include "acquisition.h"
#include "families.h"

#include <algorithm>
#include <fmt/format.h>
#include <thread>

namespace nq::check
{

namespace
{

using namespace GenTL;

constexpr size_t kCount = 4;

void BothAnnounce(Context& c)
{
    const Acquisition s(c, 1);
    BUFFER_HANDLE own = nullptr;
    c.Code(c.gentl.DSAllocAndAnnounceBuffer(s.stream, s.payload, nullptr, &own), {GC_ERR_SUCCESS},
           "DSAllocAndAnnounceBuffer");
    for (const BUFFER_HANDLE buffer : {s.buffers[0].handle, own})
    {
        c.Expect(!s.Flag(buffer, BUFFER_INFO_IS_QUEUED).value_or(false), "a buffer is queued when it is announced");
    }
    c.Expect(s.Stream(STREAM_INFO_NUM_QUEUED) == 0, "STREAM_INFO_NUM_QUEUED counts announced buffers");
}

void AnnounceParameters(Context& c)
{
    const Acquisition s(c, 1);
    BUFFER_HANDLE buffer = nullptr;
    c.Code(c.gentl.DSAnnounceBuffer(s.stream, nullptr, 64, nullptr, &buffer), {GC_ERR_INVALID_PARAMETER},
           "DSAnnounceBuffer of null");
    c.Code(c.gentl.DSAnnounceBuffer(s.stream, Memory(s.payload).begin, s.payload, nullptr, nullptr),
           {GC_ERR_INVALID_PARAMETER}, "DSAnnounceBuffer without output");
    c.Code(c.gentl.DSAllocAndAnnounceBuffer(s.stream, s.payload, nullptr, nullptr), {GC_ERR_INVALID_PARAMETER},
           "DSAllocAndAnnounceBuffer without output");
    c.Code(c.gentl.DSAnnounceBuffer(s.stream, s.buffers[0].memory, s.payload, nullptr, &buffer),
           {GC_ERR_RESOURCE_IN_USE}, "DSAnnounceBuffer of the same memory");
}

void Misaligned(Context& c)
{
    const Acquisition s(c, 1);
    BUFFER_HANDLE buffer = nullptr;
    c.Code(c.gentl.DSAnnounceBuffer(s.stream, Memory(s.payload + 1).begin + 1, s.payload, nullptr, &buffer),
           {GC_ERR_SUCCESS, GC_ERR_INVALID_BUFFER}, "DSAnnounceBuffer at an odd address");
}

void OrderOfBuffers(Context& c)
{
    Acquisition s(c, kCount);
    const auto expect = [&] {
        BUFFER_HANDLE handle = nullptr;
        for (uint32_t index = 0; index < s.buffers.size(); ++index)
        {
            c.Code(c.gentl.DSGetBufferID(s.stream, index, &handle), {GC_ERR_SUCCESS}, "DSGetBufferID");
            c.Expect(handle == s.buffers[index].handle,
                     fmt::format("DSGetBufferID of index {} of {} gives another buffer", index, s.buffers.size()));
        }
        c.Code(c.gentl.DSGetBufferID(s.stream, static_cast<uint32_t>(s.buffers.size()), &handle),
               {GC_ERR_INVALID_INDEX}, "DSGetBufferID of the number of buffers");
    };
    expect();
    c.Require(c.gentl.DSRevokeBuffer(s.stream, s.buffers[1].handle, nullptr, nullptr),
              "DSRevokeBuffer without outputs");
    s.buffers.erase(s.buffers.begin() + 1);
    expect();
}

void Unfilled(Context& c)
{
    const Acquisition s(c, 1);
    const Announced& buffer = s.buffers[0];
    const auto address = [](void* pointer) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer)); };
    c.Expect(s.Number(buffer.handle, BUFFER_INFO_BASE) == address(buffer.memory),
             "BUFFER_INFO_BASE is another address");
    c.Expect(s.Number(buffer.handle, BUFFER_INFO_SIZE) == s.payload, "BUFFER_INFO_SIZE is another size");
    c.Expect(s.Number(buffer.handle, BUFFER_INFO_USER_PTR).value_or(address(buffer.user)) == address(buffer.user),
             "BUFFER_INFO_USER_PTR is another pointer");
    c.Expect(s.Flag(buffer.handle, BUFFER_INFO_NEW_DATA) == false, "BUFFER_INFO_NEW_DATA is not false");
}

void Revoke(Context& c)
{
    Acquisition s(c, 2);
    const Announced& buffer = s.buffers[0];
    Context::Needs(s.Queue(buffer), "DSQueueBuffer");
    c.Code(c.gentl.DSRevokeBuffer(s.stream, buffer.handle, nullptr, nullptr), {GC_ERR_BUSY},
           "DSRevokeBuffer of a queued buffer");
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    void* memory = nullptr;
    void* user = nullptr;
    c.Code(c.gentl.DSRevokeBuffer(s.stream, buffer.handle, &memory, &user), {GC_ERR_SUCCESS},
           "DSRevokeBuffer of an unqueued buffer");
    c.Expect(memory == buffer.memory && user == buffer.user, "DSRevokeBuffer gives other pointers back");
    c.Code(c.gentl.DSRevokeBuffer(s.stream, buffer.handle, &memory, &user), {GC_ERR_INVALID_HANDLE},
           "DSRevokeBuffer of a revoked buffer");
    c.Code(s.Queue(buffer), {GC_ERR_INVALID_HANDLE}, "DSQueueBuffer of a revoked buffer");
}

void RevokeOwn(Context& c)
{
    const Acquisition s(c, 1);
    BUFFER_HANDLE own = nullptr;
    int user = 0;
    Context::Needs(c.gentl.DSAllocAndAnnounceBuffer(s.stream, s.payload, &user, &own), "DSAllocAndAnnounceBuffer");
    void* memory = &user;
    void* back = nullptr;
    c.Code(c.gentl.DSRevokeBuffer(s.stream, own, &memory, &back), {GC_ERR_SUCCESS}, "DSRevokeBuffer");
    c.Expect(memory == nullptr, "DSRevokeBuffer gives memory of the producer");
    c.Expect(back == &user, "DSRevokeBuffer gives another user pointer");
}

void QueueTwice(Context& c)
{
    Acquisition s(c, 2);
    Context::Needs(s.Queue(s.buffers[0]), "DSQueueBuffer");
    c.Code(s.Queue(s.buffers[0]), {GC_ERR_RESOURCE_IN_USE}, "DSQueueBuffer of a queued buffer");
}

void NoWriteAfterRevoke(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.Run(3);
    s.Stop();
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    for (const Announced& buffer : s.buffers)
    {
        c.Require(c.gentl.DSRevokeBuffer(s.stream, buffer.handle, nullptr, nullptr), "DSRevokeBuffer after a flush");
        std::memset(buffer.memory, 0x77, s.payload);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (const Announced& buffer : s.buffers)
    {
        c.Expect(std::all_of(buffer.memory, buffer.memory + s.payload, [](char byte) { return byte == 0x77; }),
                 "a revoked buffer is written to");
    }
}

/// Brought to the output by a flush, so that it needs no frame.
void AwaitingIsHeld(Context& c)
{
    Acquisition s(c, 2);
    Context::Needs(s.Queue(s.buffers[0]), "DSQueueBuffer");
    Context::Needs(s.Flush(ACQ_QUEUE_INPUT_TO_OUTPUT), "DSFlushQueue");
    if (s.InQueue() != 1U)
    {
        Context::NotTried("DSFlushQueue to the output does not bring a buffer there");
    }
    c.Code(s.Queue(s.buffers[0]), {GC_ERR_RESOURCE_IN_USE}, "DSQueueBuffer of a buffer that awaits delivery");
    c.Code(c.gentl.DSRevokeBuffer(s.stream, s.buffers[0].handle, nullptr, nullptr), {GC_ERR_BUSY},
           "DSRevokeBuffer of a buffer that awaits delivery");
    c.Expect(s.InQueue() == 1U, "a call that was refused takes the buffer's event");
}

void WhileFramesCome(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.Run(3);
    BUFFER_HANDLE buffer = nullptr;
    const GC_ERROR announced = c.gentl.DSAnnounceBuffer(s.stream, Memory(s.payload).begin, s.payload, nullptr, &buffer);
    c.Code(announced, {GC_ERR_SUCCESS, GC_ERR_BUSY}, "DSAnnounceBuffer while frames come");
    if (announced == GC_ERR_SUCCESS)
    {
        c.Code(c.gentl.DSQueueBuffer(s.stream, buffer), {GC_ERR_SUCCESS},
               "DSQueueBuffer of a buffer announced while frames come");
    }
    const NewBuffer taken = s.Frame();
    c.Code(c.gentl.DSRevokeBuffer(s.stream, taken.BufferHandle, nullptr, nullptr), {GC_ERR_SUCCESS, GC_ERR_BUSY},
           "DSRevokeBuffer of a delivered buffer while frames come");
    c.Expect(s.Next().has_value(), "no frame comes any more");
    s.Stop();
}

void AddsUp(Context& c, const Acquisition& s, std::string_view when)
{
    const size_t held = s.CountQueued();
    const uint64_t announced = s.Stream(STREAM_INFO_NUM_ANNOUNCED);
    const uint64_t queued = s.Stream(STREAM_INFO_NUM_QUEUED);
    const uint64_t awaiting = s.Stream(STREAM_INFO_NUM_AWAIT_DELIVERY);
    c.Expect(announced == s.buffers.size(),
             fmt::format("{}: {} are announced, not {}", when, announced, s.buffers.size()));
    c.Expect(queued + awaiting == held, fmt::format("{}: {} are queued and {} await delivery, but {} say they are held",
                                                    when, queued, awaiting, held));
}

void CountsAddUp(Context& c)
{
    Acquisition s(c, kCount);
    AddsUp(c, s, "announced");
    Context::Needs(s.Queue(s.buffers[0]), "DSQueueBuffer");
    Context::Needs(s.Queue(s.buffers[1]), "DSQueueBuffer");
    AddsUp(c, s, "two queued");
    c.Expect(s.Stream(STREAM_INFO_NUM_QUEUED) == 2, "STREAM_INFO_NUM_QUEUED is not 2 after two were queued");
    Context::Needs(s.Flush(ACQ_QUEUE_INPUT_TO_OUTPUT), "DSFlushQueue");
    AddsUp(c, s, "flushed to the output");
}

void UnknownFlush(Context& c)
{
    const Acquisition s(c, 1);
    c.Code(s.Flush(999), {GC_ERR_NOT_IMPLEMENTED}, "DSFlushQueue of operation 999");
}

/// One buffer in the input pool, two in the output queue (flushed there), one unqueued.
class Mixed : public Acquisition
{
  public:
    explicit Mixed(Context& c) : Acquisition(c, kCount)
    {
        Context::Needs(Queue(buffers[0]), "DSQueueBuffer");
        Context::Needs(Queue(buffers[1]), "DSQueueBuffer");
        Context::Needs(Flush(ACQ_QUEUE_INPUT_TO_OUTPUT), "DSFlushQueue");
        Context::Needs(Queue(buffers[2]), "DSQueueBuffer");
        if (InQueue() != 2U || CountQueued() != 3)
        {
            Context::NotTried("DSFlushQueue to the output does not bring two buffers there");
        }
    }

    void Expect(Context& c, size_t output, size_t input) const
    {
        c.Expect(InQueue() == output, fmt::format("{} events instead of {}", InQueue().value_or(0), output));
        c.Expect(CountQueued() == output + input,
                 fmt::format("{} buffers are held instead of {}", CountQueued(), output + input));
        const uint64_t queued = Stream(STREAM_INFO_NUM_QUEUED);
        c.Expect(queued == input, fmt::format("STREAM_INFO_NUM_QUEUED is {} instead of {}", queued, input));
    }
};

void FlushInputToOutput(Context& c)
{
    Acquisition s(c, kCount);
    Context::Needs(s.Queue(s.buffers[0]), "DSQueueBuffer");
    Context::Needs(s.Queue(s.buffers[1]), "DSQueueBuffer");
    c.Require(s.Flush(ACQ_QUEUE_INPUT_TO_OUTPUT), "DSFlushQueue");
    c.Expect(s.InQueue() == 2U,
             fmt::format("{} events after two buffers were flushed to the output", s.InQueue().value_or(0)));
    c.Expect(s.CountQueued() == 2, "buffers in the output queue are not held");
    const auto frame = s.Next(1000);
    c.Expect(frame.has_value(), "no event comes for a flushed buffer");
}

void FlushedIsNotNew(Context& c)
{
    Acquisition s(c, kCount);
    Context::Needs(s.Queue(s.buffers[0]), "DSQueueBuffer");
    Context::Needs(s.Flush(ACQ_QUEUE_INPUT_TO_OUTPUT), "DSFlushQueue");
    const auto frame = s.Next(1000);
    if (!frame)
    {
        Context::NotTried("no event comes for a flushed buffer");
    }
    c.Expect(s.Flag(frame->BufferHandle, BUFFER_INFO_NEW_DATA) == false, "a flushed buffer has new data");
}

void FlushOutput(Context& c)
{
    const Mixed s(c);
    c.Require(s.Flush(ACQ_QUEUE_OUTPUT_DISCARD), "DSFlushQueue");
    s.Expect(c, 0, 1);
}

void FlushAllToInput(Context& c)
{
    const Mixed s(c);
    c.Require(s.Flush(ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    s.Expect(c, 0, kCount);
}

void FlushUnqueuedToInput(Context& c)
{
    const Mixed s(c);
    c.Require(s.Flush(ACQ_QUEUE_UNQUEUED_TO_INPUT), "DSFlushQueue");
    s.Expect(c, 2, kCount - 2);
}

void FlushAll(Context& c)
{
    const Mixed s(c);
    c.Require(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    s.Expect(c, 0, 0);
}

/// Buffers must not get lost on their way, however often they go round.
void FlushesLoseNothing(Context& c)
{
    Acquisition s(c, kCount);
    for (int round = 1; round <= 10; ++round)
    {
        c.Require(s.Flush(ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue to the input");
        const uint64_t queued = s.Stream(STREAM_INFO_NUM_QUEUED);
        c.Expect(queued == s.buffers.size(), fmt::format("after flush {} to the input {} of {} buffers are there",
                                                         round, queued, s.buffers.size()));
        c.Require(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue of all");
    }
}

constexpr Rule kRules[] = {
    {"BF-001", "both announce functions work, and neither queues", "3.6, 6.3.5.2", Severity::Must, Needs::Camera,
     BothAnnounce},
    {"BF-002", "announcing checks its arguments, and takes memory once", "6.3.5.2", Severity::Must, Needs::Camera,
     AnnounceParameters},
    {"BF-003", "memory that is not aligned is taken, or an invalid buffer", "6.3.5.2, 6.4.4.8", Severity::Must,
     Needs::Camera, Misaligned, kClarifiedIn16},
    {"BF-004", "DSGetBufferID gives the order of announcing, without holes", "6.3.5.6", Severity::Must, Needs::Camera,
     OrderOfBuffers},
    {"BF-005", "an unfilled buffer tells its address, size and pointer, and no new data", "6.4.4.4", Severity::Must,
     Needs::Camera, Unfilled, kClarifiedIn16},
    {"BF-006", "a queued buffer is not revoked, a free one gives its pointers back", "6.3.5.10", Severity::Must,
     Needs::Camera, Revoke},
    {"BF-007", "revoking memory of the producer gives none", "6.3.5.10", Severity::Must, Needs::Camera, RevokeOwn},
    {"BF-008", "a queued buffer is not queued again", "6.3.5.9", Severity::Must, Needs::Camera, QueueTwice},
    {"BF-009", "nothing is written to a revoked buffer", "5.1.3", Severity::Must, Needs::Stream, NoWriteAfterRevoke},
    {"BF-010", "a buffer that awaits delivery is neither queued nor revoked", "6.3.5.9, 6.3.5.10", Severity::Must,
     Needs::Camera, AwaitingIsHeld},
    {"BF-011", "announcing and revoking while frames come works, or is told to be busy", "5.2.2", Severity::Must,
     Needs::Stream, WhileFramesCome},
    {"QU-001", "the counts of a stream add up", "6.4.4.8", Severity::Must, Needs::Camera, CountsAddUp},
    {"QU-002", "an unknown flush is not implemented", "6.3.5.5", Severity::Must, Needs::Camera, UnknownFlush},
    {"QU-003", "INPUT_TO_OUTPUT brings the input pool to the output, with events", "6.4.4.1", Severity::Must,
     Needs::Camera, FlushInputToOutput},
    {"QU-004", "buffers flushed to the output have no new data", "6.4.4.1", Severity::Must, Needs::Camera,
     FlushedIsNotNew, kClarifiedIn16},
    {"QU-005", "OUTPUT_DISCARD unqueues the output, and nothing else", "6.4.4.1", Severity::Must, Needs::Camera,
     FlushOutput},
    {"QU-006", "ALL_TO_INPUT queues every buffer", "6.4.4.1", Severity::Must, Needs::Camera, FlushAllToInput},
    {"QU-007", "UNQUEUED_TO_INPUT queues the unqueued ones, and nothing else", "6.4.4.1", Severity::Must, Needs::Camera,
     FlushUnqueuedToInput},
    {"QU-008", "ALL_DISCARD unqueues every buffer", "6.4.4.1", Severity::Must, Needs::Camera, FlushAll},
    {"QU-009", "flushes lose no buffer", "6.4.4.1", Severity::Must, Needs::Camera, FlushesLoseNothing},
};

} // namespace

std::span<const Rule> BufferRules()
{
    return kRules;
}

} // namespace nq::check
