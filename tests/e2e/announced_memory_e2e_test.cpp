// SPDX-License-Identifier: Apache-2.0
// Memory of a consumer's that frames come straight into, by the standard's answers: every byte, no copy, and nothing of
// it changes once a stop or a close has returned, whatever the camera sends.
#include "support/standard_answers.h"
#include "support/stream_consumer.h"

#include <atomic>
#include <functional>
#include <memory>
#include <sys/mman.h>

using namespace nq::test;

namespace
{

constexpr std::size_t kFrame = 1024;
constexpr std::size_t kMapping = 8192;
constexpr std::size_t kOdd = 1237; ///< Where a buffer begins in its mapping.
constexpr unsigned char kGuard = 0xC3;
constexpr std::uint64_t kCopiedFrames = 0x80168;

/// A consumer whose buffers lie in a mapping each, at an odd address, among bytes of a pattern.
class MappedMemory : public testing::Test
{
  protected:
    MappedMemory() { consumer.RegisterEvent(); }

    ~MappedMemory() override
    {
        consumer.CloseLibrary();
        Free();
    }

    void AnnounceAndQueue(int count)
    {
        for (int index = 0; index < count; ++index)
        {
            auto* const start = static_cast<unsigned char*>(
                mmap(nullptr, kMapping, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            std::fill_n(start, kMapping, kGuard);
            mappings.push_back(start);
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(consumer.gentl.DSAnnounceBuffer(consumer.stream, start + kOdd, kFrame, nullptr, &buffer), 0);
            ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
            consumer.buffers.push_back(buffer);
        }
    }

    void Free()
    {
        for (unsigned char* const start : mappings)
        {
            munmap(start, kMapping);
        }
        mappings.clear();
        consumer.buffers.clear();
    }

    /// Bytes from `first` to before `last` of every mapping are those of the pattern.
    bool AreGuards(std::size_t first, std::size_t last) const
    {
        return std::all_of(mappings.begin(), mappings.end(), [&](const unsigned char* start) {
            return std::all_of(start + first, start + last, [](unsigned char byte) { return byte == kGuard; });
        });
    }

    /// Runs a moment, with a thread that takes and gives back what comes, and ends the run by `end`.
    void RunUntil(const std::function<void()>& end, std::chrono::milliseconds moment)
    {
        ASSERT_EQ(consumer.Start(), 0);
        std::atomic<bool> over = false;
        std::thread taker([&] {
            while (!over)
            {
                if (const GenTL::BUFFER_HANDLE buffer = consumer.Next(1))
                {
                    consumer.gentl.DSQueueBuffer(consumer.stream, buffer);
                }
            }
        });
        EXPECT_NE(AwaitDelivered(), 0U);
        std::this_thread::sleep_for(moment);
        end();
        over = true;
        taker.join();
    }

    std::uint64_t AwaitDelivered()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (consumer.StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED) == 0 &&
               std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return consumer.StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED);
    }

    static std::size_t Regions() { return static_cast<std::size_t>(LoopbackControl().Objects().memory_regions); }

    const StandardAnswers asked;
    VirtualCamera camera{SmallFrames()};
    std::vector<unsigned char*> mappings;
    Consumer consumer;
};

TEST_F(MappedMemory, TakesFramesWithoutACopyAndNotAByteBeside)
{
    AnnounceAndQueue(4);
    EXPECT_EQ(Regions(), 0U);
    for (int run = 0; run < 2; ++run)
    {
        consumer.QueueAll();
        consumer.seen.clear();
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_EQ(Regions(), 9U) << "the ready message, and headers and pixels of four buffers";
        EXPECT_EQ(consumer.Take(40), Ids(1, 40));
        EXPECT_EQ(consumer.seen.size(), 4U);
        EXPECT_EQ(consumer.Register64(kCopiedFrames), 0U);
        EXPECT_EQ(consumer.Stop(), 0);
        EXPECT_EQ(Regions(), 0U);
    }
    EXPECT_TRUE(AreGuards(0, kOdd));
    EXPECT_TRUE(AreGuards(kOdd + kFrame, kMapping));
}

TEST_F(MappedMemory, ChangesNoMoreOnceAStopHasReturned)
{
    AnnounceAndQueue(8);
    for (int round = 0; round < 6; ++round)
    {
        const GenTL::ACQ_STOP_FLAGS flags = round % 2 == 0 ? GenTL::ACQ_STOP_FLAGS_KILL : GenTL::ACQ_STOP_FLAGS_DEFAULT;
        RunUntil(
            [&] {
                EXPECT_EQ(consumer.gentl.DSStopAcquisition(consumer.stream, flags), 0);
                for (unsigned char* const start : mappings)
                {
                    std::fill_n(start, kMapping, kGuard);
                }
            },
            std::chrono::milliseconds(3 * round));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(AreGuards(0, kMapping));
        consumer.QueueAll();
    }
}

TEST_F(MappedMemory, MayBeFreedAsSoonAsAStopHasReturned)
{
    for (int round = 0; round < 4; ++round)
    {
        AnnounceAndQueue(8);
        const std::vector<GenTL::BUFFER_HANDLE> handles = consumer.buffers;
        RunUntil(
            [&] {
                EXPECT_EQ(consumer.Stop(), 0);
                Free();
            },
            std::chrono::milliseconds(2 * round));
        EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        for (const GenTL::BUFFER_HANDLE buffer : handles)
        {
            EXPECT_EQ(consumer.gentl.DSRevokeBuffer(consumer.stream, buffer, nullptr, nullptr), 0);
        }
    }
}

TEST_F(MappedMemory, MayBeFreedAsSoonAsACloseHasReturned)
{
    std::array<char, 64> id{};
    std::size_t size = id.size();
    ASSERT_EQ(consumer.gentl.DevGetDataStreamID(consumer.device, 0, id.data(), &size), 0);
    for (int round = 0; round < 3; ++round)
    {
        AnnounceAndQueue(8);
        RunUntil(
            [&] {
                EXPECT_EQ(consumer.gentl.DSClose(consumer.stream), 0);
                Free();
                EXPECT_EQ(Regions(), 0U);
            },
            std::chrono::milliseconds(2 * round));
        ASSERT_EQ(consumer.gentl.DevOpenDataStream(consumer.device, id.data(), &consumer.stream), 0);
        consumer.RegisterEvent();
    }
}

/// As above, on the heap, where a sanitizer knows of every byte that is gone.
TEST_F(MappedMemory, OnTheHeapMayBeFreedAsSoonAsAStopHasReturned)
{
    consumer.bringsMemory = true;
    consumer.bufferSize = kFrame;
    for (int round = 0; round < 3; ++round)
    {
        consumer.AnnounceAndQueueSilently(8);
        RunUntil(
            [&] {
                EXPECT_EQ(consumer.Stop(), 0);
                consumer.memory.clear();
            },
            std::chrono::milliseconds(round));
        EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        for (const GenTL::BUFFER_HANDLE buffer : std::exchange(consumer.buffers, {}))
        {
            EXPECT_EQ(consumer.gentl.DSRevokeBuffer(consumer.stream, buffer, nullptr, nullptr), 0);
        }
    }
}

} // namespace
