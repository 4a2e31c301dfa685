// SPDX-License-Identifier: Apache-2.0
// A consumer that relies on the standard alone, on the virtual camera: buffers of its own, every info of a frame, a run
// of so many frames, stops, flushes and closes.
#include "support/standard_answers.h"
#include "support/stream_consumer.h"

#include <memory>

using namespace nq::test;

namespace
{

class StandardRun : public testing::Test
{
  protected:
    void AnnounceAndQueue(int count)
    {
        for (int index = 0; index < count; ++index)
        {
            memory.push_back(std::make_unique<unsigned char[]>(1024));
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(consumer.gentl.DSAnnounceBuffer(consumer.stream, memory.back().get(), 1024, nullptr, &buffer), 0);
            ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
            consumer.buffers.push_back(buffer);
        }
        consumer.RegisterEvent();
    }

    bool IsGrabbing()
    {
        bool value = false;
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(consumer.gentl.DSGetInfo(consumer.stream, GenTL::STREAM_INFO_IS_GRABBING, &type, &value, &size), 0);
        return value;
    }

    const StandardAnswers asked;
    VirtualCamera camera{SmallFrames()};
    std::vector<std::unique_ptr<unsigned char[]>> memory; ///< Frames come into it as long as there is a consumer.
    Consumer consumer;
};

TEST_F(StandardRun, EveryInfoOfAFrameIsThere)
{
    AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_TRUE(IsGrabbing());
    std::uint64_t before = 0;
    for (int frame = 0; frame < 20; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        for (const auto& [command, value] : {std::pair(9, 1024UL),
                                             {10, 64UL},
                                             {11, 16UL},
                                             {12, 0UL},
                                             {13, 0UL},
                                             {14, 0UL},
                                             {15, 0UL},
                                             {18, 0UL},
                                             {20, 0x01080001UL},
                                             {21, 4UL},
                                             {22, 16UL},
                                             {27, 1024UL}})
        {
            EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, command), value) << command;
        }
        EXPECT_EQ(consumer.Info<std::int32_t>(buffer, 26), 1);
        EXPECT_FALSE(consumer.Info<bool>(buffer, 29));
        EXPECT_FALSE(consumer.Info<bool>(buffer, 7));
        EXPECT_TRUE(consumer.Info<bool>(buffer, 4));
        const auto now = consumer.Info<std::uint64_t>(buffer, 28);
        EXPECT_GT(now, before);
        before = now;
        EXPECT_TRUE(consumer.ShowsItsFrame(buffer));
        ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_FALSE(IsGrabbing());
}

TEST_F(StandardRun, OfSoManyFramesEndsWithTheLast)
{
    AnnounceAndQueue(4);
    for (int run = 0; run < 3; ++run)
    {
        ASSERT_EQ(consumer.Start(5), 0);
        EXPECT_TRUE(IsGrabbing()) << "four buffers do not hold five frames";
        const GenTL::BUFFER_HANDLE first = consumer.Next();
        ASSERT_NE(first, nullptr);
        ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, first), 0);
        for (int frame = 1; frame < 5; ++frame)
        {
            ASSERT_NE(consumer.Next(), nullptr);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (IsGrabbing() && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_FALSE(IsGrabbing());
        EXPECT_EQ(consumer.gentl.DSStopAcquisition(consumer.stream, 0), 0);
        EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_TO_INPUT), 0);
    }
}

TEST_F(StandardRun, AStopKillAndACloseLeaveNothingBehind)
{
    AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    ASSERT_NE(consumer.Next(), nullptr);
    ASSERT_EQ(consumer.gentl.EventKill(consumer.event), 0);
    EXPECT_EQ(consumer.Next(), nullptr) << "aborted";
    EXPECT_EQ(consumer.gentl.DSClose(consumer.stream), 0);
    EXPECT_EQ(consumer.gentl.DSStopAcquisition(consumer.stream, 0), -1006);
    ASSERT_EQ(consumer.gentl.DevOpenDataStream(consumer.device, "Stream:0", &consumer.stream), 0);
    AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(3), 0);
    EXPECT_NE(consumer.Next(), nullptr);
}

/// What ends the waits of a consumer that gives every buffer back.
int EndOfFrames(Consumer& consumer)
{
    GenTL::S_EVENT_NEW_BUFFER data{};
    std::size_t size = sizeof data;
    int result = 0;
    while ((result = consumer.gentl.EventGetData(consumer.event, &data, &size, 20000)) == 0)
    {
        consumer.gentl.DSQueueBuffer(consumer.stream, data.BufferHandle);
    }
    return result;
}

TEST_F(StandardRun, ACameraThatFallsSilentEndsTheWaits)
{
    AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    ASSERT_NE(consumer.Next(), nullptr);
    camera.Fault("silent");
    EXPECT_EQ(EndOfFrames(consumer), -1012);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST_F(StandardRun, ACameraThatDisconnectsEndsTheWaits)
{
    AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    ASSERT_NE(consumer.Next(), nullptr);
    camera.Fault("disconnect-mid-frame");
    EXPECT_EQ(EndOfFrames(consumer), -1012);
    EXPECT_EQ(consumer.Stop(), 0);
    ASSERT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_TO_INPUT), 0);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_NE(consumer.Next(), nullptr);
}

TEST_F(StandardRun, AllocatedBuffersKeepTheirMemoryThroughFlushesAndRestarts)
{
    std::vector<const unsigned char*> bases;
    for (int index = 0; index < 4; ++index)
    {
        GenTL::BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(consumer.gentl.DSAllocAndAnnounceBuffer(consumer.stream, 1024, nullptr, &buffer), 0);
        consumer.buffers.push_back(buffer);
        bases.push_back(consumer.Info<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE));
        ASSERT_NE(bases.back(), nullptr);
    }
    consumer.RegisterEvent();
    for (int run = 0; run < 3; ++run)
    {
        ASSERT_EQ(consumer.Start(), 0) << "with nothing queued";
        EXPECT_EQ(consumer.Next(100), nullptr);
        consumer.QueueAll();
        EXPECT_EQ(consumer.Take(20), Ids(1, 20)) << "without a gap: the camera waits for a buffer";
        consumer.QueueAll(); // the camera has all of them already
        consumer.seen.clear();
        EXPECT_EQ(consumer.Take(20).size(), 20U);
        EXPECT_EQ(consumer.seen.size(), 4U) << "no block is lost";
        for (std::size_t index = 0; index < bases.size(); ++index)
        {
            EXPECT_EQ(consumer.Info<const unsigned char*>(consumer.buffers[index], GenTL::BUFFER_INFO_BASE),
                      bases[index]);
        }
        EXPECT_EQ(consumer.Stop(), 0);
        EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    }
    for (const GenTL::BUFFER_HANDLE buffer : consumer.buffers)
    {
        EXPECT_EQ(consumer.gentl.DSRevokeBuffer(consumer.stream, buffer, nullptr, nullptr), 0);
    }
}

TEST_F(StandardRun, ABufferQueuedFirstAndTheRestLaterAllTakeFrames)
{
    AnnounceAndQueue(1);
    ASSERT_EQ(consumer.Start(), 0);
    ASSERT_NE(consumer.Next(), nullptr);
    consumer.AnnounceAndQueueSilently(3);
    for (int frame = 0; frame < 3; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), 64U);
        consumer.seen.insert(buffer);
    }
    EXPECT_EQ(consumer.seen.size(), 3U);
    EXPECT_EQ(consumer.Next(100), nullptr) << "all are held";
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 0U) << "the camera has waited";
    EXPECT_EQ(consumer.Stop(), 0);
}

} // namespace
