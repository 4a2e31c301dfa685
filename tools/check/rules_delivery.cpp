// SPDX-License-Identifier: Apache-2.0
// Rules: what a delivered frame tells of itself.
#include "acquisition.h"
#include "families.h"
#include "info_sets.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <map>
#include <sys/wait.h>

namespace nq::check
{

namespace
{

using namespace GenTL;

constexpr size_t kCount = 4;
constexpr int kFrames = 40;

/// Calls `rule` for each of some frames, for so long at least; they are queued again behind it.
void ForEachFrame(Context& c, const std::function<void(const Acquisition&, BUFFER_HANDLE)>& rule,
                  std::chrono::milliseconds least = {})
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.WaitForOutput(2); // so that their order shows
    const auto end = std::chrono::steady_clock::now() + least;
    for (int frame = 0; frame < kFrames || std::chrono::steady_clock::now() < end; ++frame)
    {
        const NewBuffer next = s.Frame();
        rule(s, next.BufferHandle);
        Context::Needs(c.gentl.DSQueueBuffer(s.stream, next.BufferHandle), "DSQueueBuffer of a delivered buffer");
    }
    s.Stop();
}

void IdsRise(Context& c)
{
    std::optional<uint64_t> before;
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const auto id = s.Number(buffer, BUFFER_INFO_FRAMEID);
        c.Expect(id.has_value(), "BUFFER_INFO_FRAMEID fails");
        c.Expect(!before || !id || *id > *before,
                 fmt::format("frame {} comes after {}", id.value_or(0), before.value_or(0)));
        before = id;
    });
}

void TimesRise(Context& c)
{
    std::optional<uint64_t> before;
    std::optional<uint64_t> beforeNs;
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const auto ticks = s.Number(buffer, BUFFER_INFO_TIMESTAMP);
        const auto ns = s.Number(buffer, BUFFER_INFO_TIMESTAMP_NS);
        c.Expect(!before || !ticks || *ticks >= *before, "BUFFER_INFO_TIMESTAMP goes back");
        c.Expect(!beforeNs || !ns || *ns >= *beforeNs, "BUFFER_INFO_TIMESTAMP_NS goes back");
        before = ticks;
        beforeNs = ns;
    });
}

/// The counter against the clock of this computer, which shows a frequency that is another one's. When the counter was
/// read is not known: behind the queueing of the frame's buffer, and before the frame was taken.
struct Pace
{
    std::chrono::steady_clock::time_point since;
    std::chrono::steady_clock::time_point until;
    uint64_t ticks = 0;
};

/// Beside that a camera may have had the frame ready for so long, in seconds, before there was a buffer for it.
constexpr double kWaited = 0.3;

/// For that long the two clocks are compared: long enough to tell one that stands from one that waited.
constexpr std::chrono::milliseconds kCompared{700};

void ComparePace(Context& c, const Pace& first, const Pace& last, uint64_t frequency)
{
    const double shortest = std::chrono::duration<double>(last.since - first.until).count();
    const double longest = std::chrono::duration<double>(last.until - first.since).count();
    const double counted = static_cast<double>(last.ticks - first.ticks) / static_cast<double>(frequency);
    c.Expect(counted >= (shortest - kWaited) / 4 && counted <= longest * 4 + kWaited,
             fmt::format("in {:.3f} s to {:.3f} s the counter of {} Hz counts {:.3f} s", std::max(shortest, 0.0),
                         longest, frequency, counted));
}

void TimesFit(Context& c)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    std::map<BUFFER_HANDLE, Clock::time_point> queued; // at the earliest
    std::optional<Pace> first;
    size_t frames = 0;
    const auto fits = [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const Clock::time_point taken = Clock::now(); // before anything else, which may take any time
        const auto ticks = s.Number(buffer, BUFFER_INFO_TIMESTAMP);
        const auto ns = s.Number(buffer, BUFFER_INFO_TIMESTAMP_NS);
        const auto frequency = Info<uint64_t>([&](INFO_DATATYPE* type, void* bytes, size_t* size) {
            return c.gentl.DevGetInfo(s.device, DEVICE_INFO_TIMESTAMP_FREQUENCY, type, bytes, size);
        });
        if (!ticks || !frequency || *frequency == 0)
        {
            Context::NotTried("the producer tells no time stamp, or no frequency");
        }
        c.Expect(*frequency <= 100000000000, fmt::format("the counter is said to run at {} Hz", *frequency));
        if (frames++ >= kCount) // those that were there before anybody looked tell nothing of the pace
        {
            const Pace now{queued.try_emplace(buffer, start).first->second, taken, *ticks};
            first = first.value_or(now);
            ComparePace(c, *first, now, *frequency);
        }
        const double expected = static_cast<double>(*ticks) / static_cast<double>(*frequency) * 1e9;
        const double told = static_cast<double>(ns.value_or(static_cast<uint64_t>(expected)));
        c.Expect(told > expected * 0.999 - 1000 && told < expected * 1.001 + 1000,
                 fmt::format("{} ticks at {} Hz are said to be {} ns", *ticks, *frequency, ns.value_or(0)));
        queued[buffer] = Clock::now();
    };
    ForEachFrame(c, fits, kCompared);
}

void SizesFit(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const auto filled = s.Number(buffer, BUFFER_INFO_SIZE_FILLED);
        const auto data = s.Number(buffer, BUFFER_INFO_DATA_SIZE);
        const uint64_t size = s.Number(buffer, BUFFER_INFO_SIZE).value_or(0);
        const bool complete = s.Flag(buffer, BUFFER_INFO_IS_INCOMPLETE) == false;
        c.Expect(!filled || *filled <= size, fmt::format("{} bytes filled of {}", filled.value_or(0), size));
        c.Expect(!filled || !data || *filled <= *data,
                 fmt::format("{} bytes filled of {} meant", filled.value_or(0), data.value_or(0)));
        c.Expect(!filled || !data || !complete || *filled == *data,
                 fmt::format("complete, with {} bytes of {}", filled.value_or(0), data.value_or(0)));
    });
}

void QueuedHasNothing(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    const NewBuffer frame = s.Frame();
    s.Stop();
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    Context::Needs(c.gentl.DSQueueBuffer(s.stream, frame.BufferHandle), "DSQueueBuffer");
    for (const BUFFER_INFO_CMD command : {BUFFER_INFO_SIZE_FILLED, BUFFER_INFO_DATA_SIZE})
    {
        const uint64_t size = s.Number(frame.BufferHandle, command).value_or(0);
        c.Expect(size == 0, fmt::format("a queued buffer tells {} bytes by command {}", size, command));
    }
    c.Expect(s.Flag(frame.BufferHandle, BUFFER_INFO_NEW_DATA) != true, "a queued buffer has new data");
}

void ImageFits(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const uint64_t type = s.Number(buffer, BUFFER_INFO_PAYLOADTYPE).value_or(0);
        c.Expect(type != PAYLOAD_TYPE_IMAGE || s.Flag(buffer, BUFFER_INFO_IMAGEPRESENT) != false,
                 "a payload of type image has none");
        const auto height = s.Number(buffer, BUFFER_INFO_HEIGHT);
        const auto lines = s.Number(buffer, BUFFER_INFO_DELIVERED_IMAGEHEIGHT);
        c.Expect(!height || !lines || *lines <= *height,
                 fmt::format("{} lines of an image of {}", lines.value_or(0), height.value_or(0)));
    });
}

void NumbersAreLegal(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const auto legal = [&](const char* name, std::optional<uint64_t> value, uint64_t most) {
            c.Expect(!value || *value <= most || *value >= 1000, fmt::format("{} is {}", name, value.value_or(0)));
        };
        legal("BUFFER_INFO_PAYLOADTYPE", s.Number(buffer, BUFFER_INFO_PAYLOADTYPE), PAYLOAD_TYPE_MULTI_PART);
        legal("BUFFER_INFO_PIXELFORMAT_NAMESPACE", s.Number(buffer, BUFFER_INFO_PIXELFORMAT_NAMESPACE),
              PIXELFORMAT_NAMESPACE_PFNC_32BIT);
        const int32_t endianness =
            Info<int32_t>([&](INFO_DATATYPE* type, void* bytes, size_t* size) {
                return c.gentl.DSGetBufferInfo(s.stream, buffer, BUFFER_INFO_PIXEL_ENDIANNESS, type, bytes, size);
            }).value_or(PIXELENDIANNESS_UNKNOWN);
        c.Expect(endianness >= PIXELENDIANNESS_UNKNOWN && endianness <= PIXELENDIANNESS_BIG,
                 fmt::format("BUFFER_INFO_PIXEL_ENDIANNESS is {}", endianness));
    });
}

void Parts(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        uint32_t count = 0;
        const GC_ERROR code = c.gentl.DSGetNumBufferParts(s.stream, buffer, &count);
        if (s.Number(buffer, BUFFER_INFO_PAYLOADTYPE) != PAYLOAD_TYPE_MULTI_PART)
        {
            c.Code(code, {GC_ERR_NO_DATA, GC_ERR_NOT_IMPLEMENTED}, "DSGetNumBufferParts of a single part");
        }
    });
}

void Chunks(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        size_t count = 0;
        const GC_ERROR code = c.gentl.DSGetBufferChunkData(s.stream, buffer, nullptr, &count);
        if (s.Flag(buffer, BUFFER_INFO_CONTAINS_CHUNKDATA) == true)
        {
            c.Code(code, {GC_ERR_SUCCESS}, "DSGetBufferChunkData of a buffer with chunks");
        }
        else
        {
            c.Code(code, {GC_ERR_NO_DATA, GC_ERR_NOT_IMPLEMENTED}, "DSGetBufferChunkData of a buffer without chunks");
        }
    });
}

void FollowsItsWay(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        c.Expect(s.Flag(buffer, BUFFER_INFO_IS_QUEUED) == false, "a delivered buffer is queued");
        c.Expect(s.Flag(buffer, BUFFER_INFO_NEW_DATA) == true, "a delivered buffer has no new data");
        c.Expect(s.Flag(buffer, BUFFER_INFO_IS_ACQUIRING).value_or(false) == false, "a delivered buffer is filled");
    });
    Acquisition s(c, 1);
    s.QueueAll();
    c.Expect(s.Flag(s.buffers[0].handle, BUFFER_INFO_IS_QUEUED) == true, "a queued buffer is not queued");
}

void PayloadIsEnough(Context& c)
{
    ForEachFrame(c, [&](const Acquisition& s, BUFFER_HANDLE buffer) {
        const uint64_t data = s.Number(buffer, BUFFER_INFO_DATA_SIZE).value_or(0);
        c.Expect(data <= s.payload, fmt::format("{} bytes come, {} were promised", data, s.payload));
        c.Expect(s.Flag(buffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER) != true,
                 "a frame does not fit a buffer of the promised size");
    });
}

void TypesOfInfos(Context& c)
{
    const auto rows = BufferInfos();
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    const NewBuffer frame = s.Frame();
    for (int32_t command = 0; command < static_cast<int32_t>(rows.size()); ++command)
    {
        const auto [expected, mandatory] = rows[static_cast<size_t>(command)];
        INFO_DATATYPE type = -1;
        char bytes[1024];
        size_t size = sizeof bytes;
        const GC_ERROR code = c.gentl.DSGetBufferInfo(s.stream, frame.BufferHandle, command, &type, bytes, &size);
        c.Expect(!mandatory || code != GC_ERR_NOT_IMPLEMENTED,
                 fmt::format("buffer info {} is mandatory, and not implemented", command));
        c.Expect(code != GC_ERR_SUCCESS || type == expected,
                 fmt::format("buffer info {} is of type {} instead of {}", command, type, expected));
    }
    s.Stop();
}

/// Takes frames and queues them again until one is incomplete.
BUFFER_HANDLE NextIncomplete(Context& c, const Acquisition& s)
{
    for (int frame = 0; frame < 10 * kFrames; ++frame)
    {
        const NewBuffer next = s.Frame();
        const bool incomplete = s.Flag(next.BufferHandle, BUFFER_INFO_IS_INCOMPLETE) == true;
        Context::Needs(c.gentl.DSQueueBuffer(s.stream, next.BufferHandle), "DSQueueBuffer of a delivered buffer");
        if (incomplete)
        {
            return next.BufferHandle;
        }
    }
    Context::NotTried("no frame is incomplete after the command that disturbs the camera");
}

/// One frame that is not whole, and the ones behind it in the same buffer and in others.
void DisturbedFrame(Context& c)
{
    Acquisition s(c, kCount);
    s.QueueAll();
    s.Start();
    s.Run(kCount);
    if (const int code = std::system(c.target.disturb.c_str()); code != 0)
    {
        Context::NotTried(fmt::format("the command that disturbs the camera ends with {}", WEXITSTATUS(code)));
    }
    const BUFFER_HANDLE hit = NextIncomplete(c, s);
    int same = 0;
    int broken = 0;
    int othersWhole = 0;
    for (int frame = 0; frame < kFrames; ++frame)
    {
        const NewBuffer next = s.Frame();
        const bool incomplete = s.Flag(next.BufferHandle, BUFFER_INFO_IS_INCOMPLETE) == true;
        same += next.BufferHandle == hit ? 1 : 0;
        broken += next.BufferHandle == hit && incomplete ? 1 : 0;
        othersWhole += next.BufferHandle != hit && !incomplete ? 1 : 0;
        Context::Needs(c.gentl.DSQueueBuffer(s.stream, next.BufferHandle), "DSQueueBuffer of a delivered buffer");
    }
    s.Stop();
    if (same == 0 || othersWhole == 0)
    {
        Context::NotTried("the buffer of the incomplete frame does not come again, or no frame is whole any more");
    }
    c.Expect(broken < same, fmt::format("a buffer is incomplete with all of {} frames behind an incomplete one, while "
                                        "{} frames in other buffers are whole",
                                        same, othersWhole));
}

/// A buffer too small for a frame where there is no command that disturbs the camera.
void IncompleteIsOfTheFrame(Context& c)
{
    if (!c.target.disturb.empty())
    {
        DisturbedFrame(c);
        return;
    }
    Acquisition s(c, 1);
    const size_t large = s.buffers.size();
    s.Announce(1, s.payload / 2);
    const BUFFER_HANDLE small = s.buffers[large].handle;
    Context::Needs(s.Queue(s.buffers[large]), "DSQueueBuffer");
    const GC_ERROR code = s.StartStream();
    if (code != GC_ERR_SUCCESS)
    {
        Context::NotTried("a start with a buffer too small is refused");
    }
    s.StartCamera();
    if (!s.Next(2000) || s.Flag(small, BUFFER_INFO_IS_INCOMPLETE) != true)
    {
        s.Stop(ACQ_STOP_FLAGS_KILL);
        Context::NotTried("a buffer too small is not delivered as incomplete, and there is no --disturb");
    }
    s.Stop(ACQ_STOP_FLAGS_KILL);
    Context::Needs(s.Flush(ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    Context::Needs(c.gentl.DSQueueBuffer(s.stream, small), "DSQueueBuffer");
    c.Expect(s.Flag(small, BUFFER_INFO_IS_INCOMPLETE).value_or(false) == false,
             "a queued buffer is as incomplete as its frame before");
}

/// From announce to delivery, of both kinds of memory.
void AddressStays(Context& c)
{
    Acquisition s(c, 2);
    Announced own;
    Context::Needs(c.gentl.DSAllocAndAnnounceBuffer(s.stream, s.payload, nullptr, &own.handle),
                   "DSAllocAndAnnounceBuffer");
    s.buffers.push_back(own);
    std::map<BUFFER_HANDLE, uint64_t> bases;
    for (const Announced& buffer : s.buffers)
    {
        bases[buffer.handle] = s.Number(buffer.handle, BUFFER_INFO_BASE).value_or(0);
        c.Expect(bases[buffer.handle] != 0, "BUFFER_INFO_BASE of an announced buffer is null");
    }
    s.QueueAll();
    s.Start();
    for (int frame = 0; frame < kFrames / 4; ++frame)
    {
        const NewBuffer next = s.Frame();
        c.Expect(s.Number(next.BufferHandle, BUFFER_INFO_BASE) == bases[next.BufferHandle],
                 "BUFFER_INFO_BASE changes with a frame");
        Context::Needs(c.gentl.DSQueueBuffer(s.stream, next.BufferHandle), "DSQueueBuffer of a delivered buffer");
    }
    s.Stop();
}

constexpr Rule kRules[] = {
    {"DL-001", "frame ids rise, and none comes twice", "5.3.1", Severity::Must, Needs::Stream, IdsRise,
     "ids of 16 bits wrap to 1"},
    {"DL-002", "time stamps do not go back", "6.4.4.4", Severity::Should, Needs::Stream, TimesRise},
    {"DL-003", "ticks, frequency and nanoseconds fit each other", "6.4.4.4", Severity::Should, Needs::Stream, TimesFit},
    {"DL-004", "no more is filled than was meant and fits; a complete frame has all", "6.4.4.4", Severity::Must,
     Needs::Stream, SizesFit, kClarifiedIn16},
    {"DL-005", "a queued buffer has no data", "6.4.4.4", Severity::Must, Needs::Stream, QueuedHasNothing,
     kClarifiedIn16},
    {"DL-006", "an image is present, with no more lines than its height", "6.4.4.4", Severity::Should, Needs::Stream,
     ImageFits},
    {"DL-007", "payload type, namespace and endianness are ones of the standard", "6.4.4.5, 6.4.4.6, 6.4.4.7",
     Severity::Must, Needs::Stream, NumbersAreLegal},
    {"DL-008", "a single part has no parts", "6.3.5.15", Severity::Must, Needs::Stream, Parts},
    {"DL-009", "chunks are there when they are told of, and only then", "6.3.5.13", Severity::Must, Needs::Stream,
     Chunks},
    {"DL-010", "the flags of a buffer follow its way", "6.4.4.4", Severity::Must, Needs::Stream, FollowsItsWay},
    {"DL-011", "frames fit the size that was promised", "5.2.1", Severity::Must, Needs::Stream, PayloadIsEnough},
    {"DL-012", "the infos of a frame have their types, and the mandatory ones are implemented", "6.4.4.4",
     Severity::Must, Needs::Stream, TypesOfInfos},
    {"DL-013", "incomplete is said of the frame in the buffer, not of one before", "6.4.4.4", Severity::Must,
     Needs::Stream, IncompleteIsOfTheFrame},
    {"DL-014", "the address of a buffer is known at once, and stays", "5.2.9", Severity::Should, Needs::Stream,
     AddressStays},
};

} // namespace

std::span<const Rule> DeliveryRules()
{
    return kRules;
}

} // namespace nq::check
