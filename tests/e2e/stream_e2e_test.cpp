// SPDX-License-Identifier: Apache-2.0
// Acquisition through the exported interface alone, from a camera that does everything right.
#include "support/stream_consumer.h"

#include <gmock/gmock.h>

namespace
{

using nq::test::Consumer;
using nq::test::ExpectNoSendWaited;
using nq::test::Ids;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

TEST(Stream, FramesTravelToTheBuffersAndTheBlocksGoRound)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(50), Ids(1, 50));
    EXPECT_EQ(consumer.Register64(0x80110), 0U);
    EXPECT_GE(consumer.Register64(0x80114), 49U) << "a frame counts as received behind its delivery";
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 0U);
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectNoSendWaited();
}

TEST(Stream, AllocatedBuffersPointIntoTheFrameBlocks)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(2);
    ASSERT_EQ(consumer.Start(), 0);
    std::set<void*> bases;
    for (int frame = 0; frame < 10; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_WIDTH), 64U);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_HEIGHT), 16U);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), 1024U);
        bases.insert(consumer.Info<void*>(buffer, GenTL::BUFFER_INFO_BASE));
        ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(bases.size(), 2U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, MemoryOfTheConsumerTakesACopyThatIsCutToItsSize)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    std::vector<unsigned char> large(1100, 0xEE);
    std::vector<unsigned char> small(100, 0xEE);
    for (auto* memory : {&large, &small})
    {
        GenTL::BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(consumer.gentl.DSAnnounceBuffer(consumer.stream, memory->data(), memory->size(), nullptr, &buffer),
                  0);
        ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    consumer.RegisterEvent();
    ASSERT_EQ(consumer.Start(), 0);
    const GenTL::BUFFER_HANDLE first = consumer.Next();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(consumer.Info<void*>(first, GenTL::BUFFER_INFO_BASE), large.data());
    EXPECT_TRUE(consumer.ShowsItsFrame(first));
    EXPECT_EQ(large[1024], 0xEE);
    const GenTL::BUFFER_HANDLE second = consumer.Next();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(consumer.Info<void*>(second, GenTL::BUFFER_INFO_BASE), small.data());
    EXPECT_TRUE(consumer.ShowsItsFrame(second, 100));
    EXPECT_EQ(consumer.Info<std::uint64_t>(second, GenTL::BUFFER_INFO_SIZE_FILLED), 1024U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, ALimitOnLockedMemoryLeavesTheBlocksRegisteredUntilThen)
{
    const VirtualCamera camera({"--width", "128", "--height", "64", "--fps", "100"});
    setenv("NQ_RDMA_LOOPBACK_MEMLOCK", "30000", 1); // the camera runs already and keeps its own
    Consumer consumer;
    consumer.AnnounceAndQueue(8);
    ASSERT_EQ(consumer.Start(), 0);
    for (int frame = 0; frame < 30; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, TheFrameAfterTheLastOneAskedForStopsTheStream)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(5), 0);
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
    consumer.AwaitEndOfRun();
    EXPECT_EQ(consumer.Next(0), nullptr);
    EXPECT_EQ(consumer.Stop(), -1004) << "it stopped by itself";
    consumer.QueueAll();
    ASSERT_EQ(consumer.Start(5), 0);
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
}

// Deliberate(NobodyRegistered): nobody is told of the frames, and the buffers do not come back.
TEST(Stream, WithoutTheEventFramesCountForNothingAndCostTheirBuffers)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueueSilently(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_QUEUED, 0));
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED), 0U);
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 0U);
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY), 0U);
    EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, consumer.buffers[0]), -1004) << "flagged for ever";
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, FramesThatFindNoBufferAreUnderrunsAndCostTheirBlocks)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_UNDERRUN, 3));
    consumer.QueueAll();
    EXPECT_EQ(consumer.Next(200), nullptr) << "no block is left for a frame";
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 3U);
    EXPECT_EQ(consumer.Stop(), 0);
    consumer.QueueAll();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10), Ids(1, 10));
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, FramesThatAwaitTheConsumerStayReadableThroughARestart)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    ASSERT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY, 3));
    const GenTL::BUFFER_HANDLE taken = consumer.Next();
    EXPECT_EQ(consumer.Stop(), 0);
    for (int restart = 0; restart < 2; ++restart)
    {
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_UNDERRUN, 3)) << "no buffer is queued for the new frames";
        EXPECT_EQ(consumer.Stop(), 0);
    }
    EXPECT_EQ(consumer.FrameId(taken), 1U);
    EXPECT_TRUE(consumer.ShowsItsFrame(taken));
    EXPECT_EQ(consumer.Take(2), Ids(2, 3));
    consumer.QueueAll();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10), Ids(1, 10));
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, QueuesMayBeFlushedWhileFramesArrive)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    for (int round = 0; round < 20; ++round)
    {
        for (const GenTL::ACQ_QUEUE_TYPE operation :
             {GenTL::ACQ_QUEUE_INPUT_TO_OUTPUT, GenTL::ACQ_QUEUE_OUTPUT_DISCARD, GenTL::ACQ_QUEUE_ALL_TO_INPUT,
              GenTL::ACQ_QUEUE_UNQUEUED_TO_INPUT, GenTL::ACQ_QUEUE_ALL_DISCARD})
        {
            EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, operation), 0);
            for (const GenTL::BUFFER_HANDLE buffer : consumer.buffers)
            {
                consumer.gentl.DSQueueBuffer(consumer.stream, buffer);
            }
            consumer.Next(1);
        }
    }
    EXPECT_EQ(consumer.Stop(), 0);
    consumer.QueueAll();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.TakeOfNewRun(10), Ids(1, 10));
    EXPECT_EQ(consumer.Stop(), 0);
}

} // namespace
