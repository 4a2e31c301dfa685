// SPDX-License-Identifier: Apache-2.0
// The flow of blocks and ready messages: any number of buffers, regions and posts that are refused, and stops wherever
// a thread waits.
#include "support/stream_consumer.h"

#include <future>
#include <gmock/gmock.h>

namespace
{

using nq::test::Consumer;
using nq::test::ExpectAWholeRun;
using nq::test::ExpectNoSendWaited;
using nq::test::Holdings;
using nq::test::Idle;
using nq::test::Ids;
using nq::test::LoopbackControl;
using nq::test::Settled;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

/// How many blocks the camera can fill, with so many buffers announced.
struct Buffers
{
    int announced;
    std::size_t blocks;
};

std::ostream& operator<<(std::ostream& out, const Buffers& buffers)
{
    return out << buffers.announced << " buffers";
}

class StreamBufferCount : public testing::TestWithParam<Buffers>
{
};

TEST_P(StreamBufferCount, EveryBlockThatTheQueuePairTakesGoesRound)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(GetParam().announced);
    const Holdings idle = Idle(consumer);
    consumer.QueueAll();
    consumer.seen.clear();
    ASSERT_EQ(consumer.Start(), 0);
    const int frames = 2 * GetParam().announced + 10;
    EXPECT_EQ(consumer.Take(frames), Ids(1, static_cast<std::uint64_t>(frames)));
    EXPECT_EQ(consumer.seen.size(), GetParam().blocks);
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 0U);
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_EQ(Settled(idle), idle);
    if (GetParam().announced <= 100) // More than the queue pair takes may be told to the camera and not posted.
    {
        ExpectNoSendWaited();
    }
}

INSTANTIATE_TEST_SUITE_P(Blocks, StreamBufferCount,
                         testing::Values(Buffers{1, 1}, Buffers{2, 2}, Buffers{10, 10}, Buffers{50, 50},
                                         Buffers{99, 99}, Buffers{100, 100}, Buffers{101, 100}, Buffers{500, 100}),
                         [](const auto& count) { return "Of" + std::to_string(count.param.announced); });

TEST(StreamFlow, WithoutBuffersTheStreamRunsAndStops)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    const long threads = nq::test::LivingThreads();
    consumer.RegisterEvent();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Stop(), 0);
    Holdings idle = Holdings::Now();
    idle.threads = threads + 1;
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Next(300), nullptr);
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 0U) << "the camera heard of no block";
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_EQ(Settled(idle), idle);
}

/// With three buffers: the call that fails at the start, and the blocks that go round nevertheless.
struct Refusal
{
    const char* name;
    const char* fault;
    std::size_t blocks;
};

std::ostream& operator<<(std::ostream& out, const Refusal& refusal)
{
    return out << refusal.fault;
}

class StreamRefusal : public testing::TestWithParam<Refusal>
{
};

TEST_P(StreamRefusal, CostsItsBlockAndTheNextRunHasAll)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    const LoopbackControl loopback{};
    const Holdings idle = Idle(consumer);
    consumer.QueueAll();
    consumer.seen.clear();
    ASSERT_EQ(loopback.fail(GetParam().fault), 0);
    ASSERT_EQ(consumer.Start(), 0);
    if (GetParam().blocks == 0)
    {
        EXPECT_EQ(consumer.Next(300), nullptr);
    }
    else
    {
        EXPECT_EQ(consumer.Take(20), Ids(1, 20));
    }
    EXPECT_EQ(consumer.seen.size(), GetParam().blocks);
    EXPECT_EQ(consumer.Stop(), 0);
    loopback.clear();
    EXPECT_EQ(Settled(idle), idle);
    ExpectAWholeRun(consumer);
}

const Refusal kRefusals[] = {
    {"FirstBlock", "ibv_reg_mr:1:ENOMEM", 0},      {"FirstReadyMessage", "ibv_reg_mr:2:ENOMEM", 0},
    {"SecondBlock", "ibv_reg_mr:3:ENOMEM", 1},     {"SecondReadyMessage", "ibv_reg_mr:4:ENOMEM", 2},
    {"ThirdBlock", "ibv_reg_mr:5:ENOMEM", 2},      {"ThirdReadyMessage", "ibv_reg_mr:6:ENOMEM", 3},
    {"FirstReceive", "ibv_post_recv:1:ENOMEM", 2}, {"LastReceive", "ibv_post_recv:3:ENOMEM", 2},
    {"FirstSend", "ibv_post_send:1:ENOMEM", 3},    {"LastSend", "ibv_post_send:3:ENOMEM", 3},
    {"AllReceives", "ibv_post_recv:*:ENOMEM", 0},  {"AllSends", "ibv_post_send:*:ENOMEM", 0}};

INSTANTIATE_TEST_SUITE_P(Of, StreamRefusal, testing::ValuesIn(kRefusals),
                         [](const auto& refusal) { return refusal.param.name; });

/// One consumer with three buffers, whose threads are brought to where they wait, and are stopped there.
class StreamStop : public testing::Test
{
  protected:
    ~StreamStop() override
    {
        EXPECT_EQ(consumer.Stop(), 0);
        EXPECT_EQ(Settled(idle), idle);
        ExpectAWholeRun(consumer);
        EXPECT_EQ(Settled(idle), idle);
    }

    void StartWithAllQueued()
    {
        consumer.QueueAll();
        ASSERT_EQ(consumer.Start(), 0);
    }

    const VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    const LoopbackControl loopback{};
    Holdings idle = (consumer.AnnounceAndQueue(3), Idle(consumer));
};

TEST_F(StreamStop, RightAfterTheStart)
{
    StartWithAllQueued();
}

TEST_F(StreamStop, WhileAllBlocksAreWithTheConsumer)
{
    StartWithAllQueued();
    for (int frame = 0; frame < 3; ++frame)
    {
        EXPECT_NE(consumer.Next(), nullptr);
    }
    EXPECT_EQ(consumer.Next(100), nullptr);
}

TEST_F(StreamStop, WhileFramesAwaitTheConsumer)
{
    StartWithAllQueued();
    EXPECT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY, 3));
}

TEST_F(StreamStop, WhileTheWorkerWaitsForAReadyMessageToComplete)
{
    StartWithAllQueued();
    EXPECT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY, 3));
    // Ready messages that nobody acknowledges: three are under way, so the blocks that come back have none to wait for.
    loopback.link(0);
    for (int round = 0; round < 2; ++round)
    {
        consumer.QueueAll();
    }
    loopback.link(1);
}

TEST_F(StreamStop, WhileTheConsumerWaitsForAFrame)
{
    ASSERT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_TRUE(consumer.Await(GenTL::STREAM_INFO_NUM_UNDERRUN, 3));
    auto waiting = std::async(std::launch::async, [this] { return consumer.Next(1500); });
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_EQ(waiting.get(), nullptr) << "a stop delivers nothing";
    StartWithAllQueued();
}

TEST_F(StreamStop, WhileFramesGoRound)
{
    StartWithAllQueued();
    EXPECT_EQ(consumer.Take(50), Ids(1, 50));
}

TEST_F(StreamStop, AfterTheCameraHasDisconnected)
{
    StartWithAllQueued();
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
    camera.Fault("disconnect-mid-frame");
    nq::test::TakeUntilStruck(consumer, camera, "disconnect-mid-frame");
}

TEST_F(StreamStop, WhileTheLinkIsDown)
{
    StartWithAllQueued();
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
    loopback.link(0);
    while (const GenTL::BUFFER_HANDLE buffer = consumer.Next(1000))
    {
        EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(consumer.Stop(), 0);
    loopback.link(1);
    StartWithAllQueued();
}

TEST(StreamFlow, BuffersQueuedBeforeDuringAndAfterAnAcquisitionAllTakePartInTheNext)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(20), Ids(1, 20));
    std::vector<GenTL::BUFFER_HANDLE> held;
    for (int frame = 0; frame < 3; ++frame)
    {
        held.push_back(consumer.Next());
        ASSERT_NE(held.back(), nullptr);
    }
    EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, held[0]), 0);
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_TRUE(consumer.ShowsItsFrame(held[2])) << "a stop leaves the blocks";
    consumer.QueueAll();
    EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, held[1]), -1004) << "queued already";
    ASSERT_EQ(consumer.Start(), 0);
    consumer.seen.clear();
    EXPECT_EQ(consumer.TakeOfNewRun(20), Ids(1, 20));
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

} // namespace
