// SPDX-License-Identifier: Apache-2.0
// What starts, stops and closes leave behind: no thread, no descriptor, and a stream that can start again.
#include "support/stream_consumer.h"

#include <gmock/gmock.h>

namespace
{

using nq::test::Consumer;
using nq::test::Descriptors;
using nq::test::Ids;
using nq::test::LivingThreads;
using nq::test::SmallFrames;
using nq::test::ThreadsDownTo;
using nq::test::VirtualCamera;

TEST(StreamLifetime, TwentyStartsAndStopsLeaveNoThreadAndNoDescriptor)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    const long idleThreads = LivingThreads();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(2), Ids(1, 2));
    EXPECT_EQ(consumer.Stop(), 0);
    const long threads = ThreadsDownTo(idleThreads + 1);
    EXPECT_EQ(threads, idleThreads + 1) << "only the software RDMA has a thread more";
    const long descriptors = Descriptors();
    for (int round = 0; round < 20; ++round)
    {
        consumer.QueueAll();
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_EQ(consumer.TakeOfNewRun(2), Ids(1, 2));
        EXPECT_EQ(consumer.Stop(), 0);
        EXPECT_EQ(Descriptors(), descriptors) << "round " << round;
    }
    EXPECT_EQ(ThreadsDownTo(threads), threads);
    EXPECT_EQ(Descriptors(), descriptors);
}

TEST(StreamLifetime, AStopMayMeetTheStopOfTheStreamItselfAndTheNextStartWorks)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    for (int round = 0; round < 5; ++round)
    {
        ASSERT_EQ(consumer.Start(2), 0);
        EXPECT_EQ(consumer.TakeOfNewRun(2), Ids(1, 2));
        // In each round the stream's own stop has come a little further.
        std::this_thread::sleep_for(std::chrono::milliseconds(round * round));
        EXPECT_THAT(consumer.Stop(), testing::AnyOf(0, -1004));
        EXPECT_EQ(consumer.Stop(), -1004);
        consumer.QueueAll();
    }
}

/// What closes a stream that another thread works on: its acquisition thread, or one that starts it.
struct Closing
{
    const char* name;
    void (*close)(Consumer&);
};

const Closing kClosings[] = {
    {"DSClose", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.DSClose(consumer.stream), 0); }},
    {"DevClose", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.DevClose(consumer.device), 0); }},
    {"GCCloseLib", [](Consumer& consumer) { consumer.CloseLibrary(); }}};

class StreamSelfStop : public testing::TestWithParam<Closing>
{
};

TEST_P(StreamSelfStop, MayBeClosedAtOnce)
{
    const VirtualCamera camera(SmallFrames());
    const long threads = LivingThreads() + 1; // that of the software RDMA
    long descriptors = 0;
    for (int round = 0; round < 4; ++round)
    {
        {
            Consumer consumer;
            consumer.AnnounceAndQueue(3);
            ASSERT_EQ(consumer.Start(2), 0);
            EXPECT_EQ(consumer.Take(2), Ids(1, 2));
            // In each round the stop has come a little further.
            std::this_thread::sleep_for(std::chrono::milliseconds(round * round));
            GetParam().close(consumer);
        }
        EXPECT_EQ(ThreadsDownTo(threads), threads);
        descriptors = round == 0 ? Descriptors() : descriptors;
        EXPECT_EQ(Descriptors(), descriptors);
    }
}

INSTANTIATE_TEST_SUITE_P(By, StreamSelfStop, testing::ValuesIn(kClosings),
                         [](const auto& closing) { return closing.param.name; });

/// Returns once a start on another thread has come to the connection.
void AwaitConnecting()
{
    while (nq::test::LoopbackControl().Objects().queue_pairs == 0)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

class StreamStart : public testing::TestWithParam<Closing>
{
};

TEST_P(StreamStart, ThatWaitsForTheCameraIsEndedByAClose)
{
    const VirtualCamera camera(SmallFrames());
    const long idleThreads = LivingThreads();
    {
        // What the software RDMA keeps for the life of the process is there before anything is counted. A close can
        // come before a start has connected.
        Consumer consumer;
        consumer.AnnounceAndQueue(3);
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_EQ(consumer.Take(1), Ids(1, 1));
    }
    camera.Fault("slow-accept:600000");
    const long threads = ThreadsDownTo(idleThreads + 1);
    EXPECT_EQ(threads, idleThreads + 1) << "only the software RDMA has a thread more";
    const long descriptors = Descriptors();
    for (int round = 0; round < 3; ++round)
    {
        {
            Consumer consumer;
            consumer.AnnounceAndQueue(3);
            int started = 0;
            std::thread start([&] { started = consumer.Start(); });
            AwaitConnecting();
            // In each round the start has come a little further.
            std::this_thread::sleep_for(std::chrono::milliseconds(100 * round));
            GetParam().close(consumer);
            EXPECT_EQ(nq::test::LoopbackControl().Objects().queue_pairs, 0) << "the connection is down";
            start.join();
            EXPECT_EQ(started, -1001);
        }
        EXPECT_EQ(ThreadsDownTo(threads), threads);
        EXPECT_EQ(Descriptors(), descriptors);
    }
}

INSTANTIATE_TEST_SUITE_P(By, StreamStart, testing::ValuesIn(kClosings),
                         [](const auto& closing) { return closing.param.name; });

TEST(StreamLifetime, AStreamWhoseStartWasEndedByACloseWorksOnceItIsOpenAgain)
{
    const VirtualCamera camera(SmallFrames({"--fault", "slow-accept:600000"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    int started = 0;
    std::thread start([&] { started = consumer.Start(); });
    AwaitConnecting();
    EXPECT_EQ(consumer.gentl.DSClose(consumer.stream), 0);
    start.join();
    EXPECT_EQ(started, -1001);
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":"slow-accept"})"), R"({"ok":true})");
    EXPECT_EQ(consumer.gentl.DevOpenDataStream(consumer.device, "Stream:0", &consumer.stream), 0);
    nq::test::ExpectAWholeRun(consumer);
}

TEST(StreamLifetime, ClosingTheLibraryDuringAcquisitionLeavesNoThreadAndNoDescriptor)
{
    const VirtualCamera camera(SmallFrames());
    const long threads = LivingThreads() + 1; // that of the software RDMA
    long descriptors = 0;
    for (int round = 0; round < 3; ++round)
    {
        {
            Consumer consumer;
            consumer.AnnounceAndQueue(3);
            ASSERT_EQ(consumer.Start(), 0);
            EXPECT_EQ(consumer.Take(5), Ids(1, 5));
        }
        EXPECT_EQ(ThreadsDownTo(threads), threads);
        descriptors = round == 0 ? Descriptors() : descriptors;
        EXPECT_EQ(Descriptors(), descriptors);
    }
}

} // namespace
