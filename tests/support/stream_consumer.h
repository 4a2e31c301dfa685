// SPDX-License-Identifier: Apache-2.0
// A GenTL consumer with a stream of the virtual camera, for tests that see only the exported interface. The program
// that includes it runs on the software RDMA.
#pragma once

#include "loopback/loopback_control.h"
#include "support/ask_until.h"
#include "support/preload_loopback.h"
#include "support/process_counts.h"
#include "support/producer.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace nq::test
{

/// A consumer with the first camera's first stream open.
class Consumer
{
  public:
    /// `library` is loaded with `flags` of dlopen, 0 for the usual ones.
    explicit Consumer(const std::string& library = NQ_CTI_PATH, int flags = 0) : gentl(library, flags)
    {
        RdmaFolder();
        EXPECT_EQ(gentl.GCInitLib(), 0);
        EXPECT_EQ(gentl.TLOpen(&system), 0);
        EXPECT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
        std::uint32_t interfaces = 0;
        EXPECT_EQ(gentl.TLGetNumInterfaces(system, &interfaces), 0);
        for (std::uint32_t index = 0; index < interfaces && stream == nullptr; ++index)
        {
            OpenFirstCamera(index);
        }
        EXPECT_NE(stream, nullptr) << "no camera answered";
        m_threadsAtRest = LibraryThreads();
    }

    ~Consumer()
    {
        if (m_initialised)
        {
            EXPECT_EQ(gentl.TLClose(system), 0);
            EXPECT_EQ(gentl.GCCloseLib(), 0);
        }
    }
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;

    /// Closes everything at once, as a consumer in a hurry does.
    void CloseLibrary()
    {
        m_initialised = false;
        EXPECT_EQ(gentl.GCCloseLib(), 0);
    }

    /// Lets the library allocate `count` buffers, or brings memory for them, and queues them.
    void AnnounceAndQueueSilently(int count)
    {
        for (int index = 0; index < count; ++index)
        {
            GenTL::BUFFER_HANDLE buffer = nullptr;
            if (bringsMemory)
            {
                constexpr std::size_t kOdd = 13;
                memory.push_back(std::make_unique<unsigned char[]>(kOdd + bufferSize));
                ASSERT_EQ(gentl.DSAnnounceBuffer(stream, memory.back().get() + kOdd, bufferSize, nullptr, &buffer), 0);
            }
            else
            {
                ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(stream, bufferSize, nullptr, &buffer), 0);
            }
            ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
            buffers.push_back(buffer);
        }
    }

    void RegisterEvent() { ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0); }

    void AnnounceAndQueue(int count)
    {
        AnnounceAndQueueSilently(count);
        RegisterEvent();
    }

    int Start(std::uint64_t frames = GENTL_INFINITE)
    {
        return gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, frames);
    }

    /// Forgets all frames that nobody fetched and queues every buffer.
    void QueueAll()
    {
        EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        for (const GenTL::BUFFER_HANDLE buffer : buffers)
        {
            gentl.DSQueueBuffer(stream, buffer);
        }
    }

    /// Revokes every buffer and announces as many new ones: a buffer that once was incomplete stays so.
    void RenewBuffers()
    {
        EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        for (const GenTL::BUFFER_HANDLE buffer : buffers)
        {
            EXPECT_EQ(gentl.DSRevokeBuffer(stream, buffer, nullptr, nullptr), 0);
        }
        const auto count = static_cast<int>(buffers.size());
        buffers.clear();
        memory.clear();
        AnnounceAndQueueSilently(count);
    }

    int Stop() { return gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL); }

    /// The next buffer with a frame, null when none came in time.
    GenTL::BUFFER_HANDLE Next(std::uint64_t timeout = 5000)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::size_t size = sizeof data;
        return gentl.EventGetData(event, &data, &size, timeout) == 0 ? data.BufferHandle : nullptr;
    }

    template <typename Value>
    Value Info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command)
    {
        Value value{};
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(gentl.DSGetBufferInfo(stream, buffer, command, &type, &value, &size), 0);
        return value;
    }

    std::uint64_t FrameId(GenTL::BUFFER_HANDLE buffer)
    {
        return Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID);
    }

    /// Whether the first `count` pixels are those that the camera draws for the buffer's frame id.
    bool ShowsItsFrame(GenTL::BUFFER_HANDLE buffer, std::size_t count = 64 * 16)
    {
        const auto* const pixels = Info<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE);
        const std::uint64_t frame = FrameId(buffer);
        for (std::size_t pixel = 0; pixel < count; ++pixel)
        {
            if (pixels[pixel] != static_cast<unsigned char>(pixel % 64 + pixel / 64 + 7 * frame))
            {
                return false;
            }
        }
        return true;
    }

    /// Takes `count` whole frames, looks at every pixel, and gives each buffer back. Their ids.
    std::vector<std::uint64_t> Take(int count)
    {
        std::vector<std::uint64_t> ids;
        for (int frame = 0; frame < count; ++frame)
        {
            const GenTL::BUFFER_HANDLE buffer = Next();
            if (buffer == nullptr)
            {
                break;
            }
            ids.push_back(FrameId(buffer));
            seen.insert(buffer);
            EXPECT_FALSE(Info<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE));
            EXPECT_EQ(Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), 1024U);
            EXPECT_TRUE(ShowsItsFrame(buffer));
            EXPECT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
        }
        return ids;
    }

    /// The first `count` whole frames of a new run, taken as Take does; their ids. By the library's own answers a stop
    /// does not wait for the thread that has a last frame in its hands: that one may come before those of the next run,
    /// which begin with 1, and is left out.
    std::vector<std::uint64_t> TakeOfNewRun(int count)
    {
        std::vector<std::uint64_t> ids = Take(count);
        if (ids.size() > 1 && ids[1] == 1 && std::getenv("NQ_GEV_TL_STANDARD") == nullptr)
        {
            ids.erase(ids.begin());
            const std::vector<std::uint64_t> last = Take(1);
            ids.insert(ids.end(), last.begin(), last.end());
        }
        return ids;
    }

    /// Returns once the thread of a run that was stopped, or stops by itself, has left and delivers nothing more. No
    /// other thread of the test may run meanwhile.
    void AwaitEndOfRun() const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (LibraryThreads() > m_threadsAtRest && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_LE(LibraryThreads(), m_threadsAtRest) << "the run has not ended";
    }

    std::uint64_t StreamInfo(GenTL::STREAM_INFO_CMD command)
    {
        std::uint64_t value = 0;
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(gentl.DSGetInfo(stream, command, &type, &value, &size), 0);
        return value;
    }

    /// Waits until the stream tells `value`; false when it does not in 20 s.
    bool Await(GenTL::STREAM_INFO_CMD command, std::uint64_t value)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (StreamInfo(command) != value && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return StreamInfo(command) == value;
    }

    std::uint64_t Register64(std::uint64_t address)
    {
        std::uint64_t value = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(gentl.GCReadPort(stream, address, &value, &size), 0);
        return value;
    }

    Producer gentl;
    GenTL::TL_HANDLE system = nullptr;
    GenTL::IF_HANDLE interface = nullptr;
    GenTL::DEV_HANDLE device = nullptr;
    GenTL::DS_HANDLE stream = nullptr;
    GenTL::EVENT_HANDLE event = nullptr;
    std::vector<GenTL::BUFFER_HANDLE> buffers;
    std::size_t bufferSize = 64; ///< Of those to come; by the library's own answers it changes nothing.
    bool bringsMemory = false;   ///< At odd addresses.
    std::vector<std::unique_ptr<unsigned char[]>> memory;
    std::set<GenTL::BUFFER_HANDLE> seen; ///< The buffers that Take has had.

  private:
    bool m_initialised = true;
    long m_threadsAtRest = 0; ///< Those of the test included.

    /// Without that of the software RDMA, which comes with the first run and stays.
    static long LibraryThreads() { return LivingThreads("nq-loopback"); }

    void OpenFirstCamera(std::uint32_t index)
    {
        std::array<char, 256> id{};
        std::size_t size = id.size();
        std::uint32_t cameras = 0;
        EXPECT_EQ(gentl.TLGetInterfaceID(system, index, id.data(), &size), 0);
        EXPECT_EQ(gentl.TLOpenInterface(system, id.data(), &interface), 0);
        for (int attempt = 0; attempt < 10 && cameras == 0; ++attempt) // an answer may come too late
        {
            EXPECT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
            EXPECT_EQ(gentl.IFGetNumDevices(interface, &cameras), 0);
        }
        if (cameras == 0)
        {
            return;
        }
        size = id.size();
        EXPECT_EQ(gentl.IFGetDeviceID(interface, 0, id.data(), &size), 0);
        const auto open = [&] {
            return gentl.IFOpenDevice(interface, id.data(), GenTL::DEVICE_ACCESS_CONTROL, &device);
        };
        ASSERT_EQ(AskUntil(0, open), 0);
        size = id.size();
        EXPECT_EQ(gentl.DevGetDataStreamID(device, 0, id.data(), &size), 0);
        ASSERT_EQ(AskUntil(0, [&] { return gentl.DevOpenDataStream(device, id.data(), &stream); }), 0);
    }
};

/// Frames of 64 x 16 pixels in Mono8, 1200 bytes with their descriptor, as fast as the host takes them, so that their
/// ids follow each other without a gap.
inline std::vector<std::string> SmallFrames(const std::vector<std::string>& more = {})
{
    std::vector<std::string> arguments = {"--width", "64", "--height", "16", "--fps", "0"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

/// The ids from `first` to `last`.
inline std::vector<std::uint64_t> Ids(std::uint64_t first, std::uint64_t last)
{
    std::vector<std::uint64_t> ids(last - first + 1);
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}

/// Ten whole frames in every buffer of a camera of SmallFrames, from a start to a stop, whatever happened before.
inline void ExpectAWholeRun(Consumer& consumer)
{
    consumer.QueueAll();
    consumer.seen.clear();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.TakeOfNewRun(10), Ids(1, 10));
    EXPECT_EQ(consumer.seen.size(), std::min<std::size_t>(10, consumer.buffers.size())) << "all blocks go round";
    EXPECT_EQ(consumer.Stop(), 0);
}

/// Takes whole frames and gives them back until the camera has used up the fault, and what it had sent before is taken.
inline void TakeUntilStruck(Consumer& consumer, const VirtualCamera& camera, const std::string& fault)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    bool over = false;
    while (!over && std::chrono::steady_clock::now() < deadline)
    {
        const bool struck = camera.HasStruck(fault);
        const GenTL::BUFFER_HANDLE buffer = consumer.Next(200);
        if (buffer != nullptr)
        {
            ASSERT_TRUE(consumer.ShowsItsFrame(buffer));
            EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
        }
        over = struck && buffer == nullptr;
    }
    EXPECT_TRUE(over) << fault;
}

/// A message that finds no receive is sent again by a network card after 655 ms: neither side may ever do that.
inline void ExpectNoSendWaited()
{
    const nq_loopback_waiting_sends sends = LoopbackControl().WaitingSends();
    EXPECT_EQ(sends.own, 0U) << "ready messages";
    EXPECT_EQ(sends.of_peers, 0U) << "frames";
}

/// What the process holds of the system and of the software RDMA.
struct Holdings
{
    long descriptors;
    long threads;
    nq_loopback_objects objects;

    static Holdings Now() { return {Descriptors(), LivingThreads(), LoopbackControl().Objects()}; }

    /// Protection domains are left out: the endpoint of the last run keeps its own until the next start.
    bool operator==(const Holdings& other) const
    {
        const nq_loopback_objects& mine = objects;
        const nq_loopback_objects& others = other.objects;
        return descriptors == other.descriptors && threads == other.threads &&
               mine.memory_regions == others.memory_regions && mine.completion_channels == others.completion_channels &&
               mine.completion_queues == others.completion_queues && mine.queue_pairs == others.queue_pairs &&
               mine.event_channels == others.event_channels && mine.cm_ids == others.cm_ids &&
               mine.cm_events == others.cm_events;
    }

    friend std::ostream& operator<<(std::ostream& out, const Holdings& held)
    {
        const nq_loopback_objects& all = held.objects;
        return out << held.descriptors << " descriptors, " << held.threads << " threads, " << all.memory_regions
                   << " regions, " << all.completion_channels << " completion channels, " << all.completion_queues
                   << " completion queues, " << all.queue_pairs << " queue pairs, " << all.event_channels
                   << " event channels, " << all.cm_ids << " ids, " << all.cm_events << " events, "
                   << all.protection_domains << " domains";
    }
};

/// The acquisition thread leaves a while after a stop, and any thread a moment after it was joined: waits until no more
/// than `count` are left.
inline long ThreadsDownTo(long count)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (LivingThreads() > count && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return LivingThreads();
}

/// What the process holds once that is no more than `idle`, as the acquisition thread and the peer take a while to go;
/// what is still there after 20 s otherwise.
inline Holdings Settled(const Holdings& idle)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!(Holdings::Now() == idle) && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return Holdings::Now();
}

/// What an idle stream of the consumer holds. One run goes before, because the first one starts the software RDMA.
inline Holdings Idle(Consumer& consumer)
{
    const long threads = LivingThreads();
    ExpectAWholeRun(consumer);
    ThreadsDownTo(threads + 1);
    return Holdings::Now();
}

} // namespace nq::test
