// SPDX-License-Identifier: Apache-2.0
// Forks while frames are coming: the child closes what it inherited or starts anew, and the parent loses no frame.
#include "support/asleep.h"
#include "support/forked.h"
#include "support/stream_consumer.h"

#include <gmock/gmock.h>

namespace
{

using nq::test::CallingThread;
using nq::test::Consumer;
using nq::test::ExpectAWholeRun;
using nq::test::Forked;
using nq::test::Ids;
using nq::test::LoopbackControl;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

/// A way to close what streams, in the child.
struct ForkClosing
{
    const char* name;
    void (*close)(Consumer&);
};

void CloseEverything(Consumer& consumer)
{
    EXPECT_EQ(consumer.gentl.EventKill(consumer.event), 0);
    EXPECT_EQ(consumer.gentl.DSStopAcquisition(consumer.stream, GenTL::ACQ_STOP_FLAGS_DEFAULT), 0);
    EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    EXPECT_EQ(consumer.gentl.GCUnregisterEvent(consumer.stream, GenTL::EVENT_NEW_BUFFER), 0);
    for (const GenTL::BUFFER_HANDLE buffer : consumer.buffers)
    {
        EXPECT_EQ(consumer.gentl.DSRevokeBuffer(consumer.stream, buffer, nullptr, nullptr), 0);
    }
    EXPECT_EQ(consumer.gentl.DSClose(consumer.stream), 0);
    EXPECT_EQ(consumer.gentl.DevClose(consumer.device), 0);
    EXPECT_EQ(consumer.gentl.TLClose(consumer.system), 0);
    EXPECT_EQ(consumer.gentl.GCCloseLib(), 0);
}

const ForkClosing kForkClosings[] = {
    {"GCCloseLib", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.GCCloseLib(), 0); }},
    {"TLClose", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.TLClose(consumer.system), 0); }},
    {"IFClose", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.IFClose(consumer.interface), 0); }},
    {"DevClose", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.DevClose(consumer.device), 0); }},
    {"DSClose", [](Consumer& consumer) { EXPECT_EQ(consumer.gentl.DSClose(consumer.stream), 0); }},
    {"All", CloseEverything}};

class StreamFork : public testing::TestWithParam<ForkClosing>
{
};

TEST_P(StreamFork, WhatAChildClosesGoesOnInTheParent)
{
#if NQ_SANITIZED
    GTEST_SKIP() << "a sanitizer's allocator may be in use by another thread at the fork";
#endif
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(5);
    ASSERT_EQ(consumer.Start(), 0);
    std::vector<std::uint64_t> ids = consumer.Take(20);
    for (int round = 0; round < 10; ++round)
    {
        Forked child([&] { GetParam().close(consumer); });
        const std::vector<std::uint64_t> more = consumer.Take(20); // while the child closes
        ids.insert(ids.end(), more.begin(), more.end());
    }
    EXPECT_EQ(ids, Ids(1, 220));
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

INSTANTIATE_TEST_SUITE_P(Fork, StreamFork, testing::ValuesIn(kForkClosings),
                         [](const auto& closing) { return std::string(closing.param.name); });

TEST(StreamForkWithWaiters, TheParentsThreadsGoOnInEventGetData)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(5);
    std::vector<std::uint64_t> ids;
    CallingThread fetcher([&] { ids = consumer.Take(100); });
    fetcher.AwaitAsleep();
    Forked([&] { EXPECT_EQ(consumer.gentl.GCCloseLib(), 0); });
    ASSERT_EQ(consumer.Start(), 0);
    fetcher.Join();
    EXPECT_EQ(ids, Ids(1, 100));
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(StreamForkWhileConnecting, TheParentsStartGoesOn)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(5);
    LoopbackControl().fail("rdma_connect:1:delay=1000");
    CallingThread starter([&] { EXPECT_EQ(consumer.Start(), 0); });
    while (LoopbackControl().Objects().queue_pairs == 0) // until it is past the exchanges with the camera
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    starter.AwaitAsleep();
    Forked([&] { EXPECT_EQ(consumer.gentl.GCCloseLib(), 0); });
    starter.Join();
    EXPECT_EQ(consumer.Take(20), Ids(1, 20));
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(StreamForkAnew, TheChildStreamsOnceTheParentHasGivenTheCameraBack)
{
#if NQ_SANITIZED
    GTEST_SKIP() << "a sanitizer's allocator may be in use by another thread at the fork";
#endif
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(5);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(20), Ids(1, 20));
    int given[2];
    ASSERT_EQ(pipe(given), 0);
    Forked child([&] {
        close(given[1]);
        EXPECT_EQ(consumer.gentl.GCCloseLib(), 0);
        char go = 0;
        EXPECT_EQ(read(given[0], &go, 1), 1);
        Consumer own;
        own.AnnounceAndQueue(3);
        ExpectAWholeRun(own);
        ExpectAWholeRun(own);
    });
    EXPECT_EQ(consumer.Take(20), Ids(21, 40));
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_EQ(consumer.gentl.DevClose(consumer.device), 0);
    EXPECT_EQ(write(given[1], "!", 1), 1);
    child.Join();
}

} // namespace
