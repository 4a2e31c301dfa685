// SPDX-License-Identifier: Apache-2.0
// The FIFO between the endpoint's threads.
#include "rdma/message_queue.h"

#include "support/asleep.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace
{

const auto kRunning = [] { return false; };

TEST(MessageQueue, GivesEntriesInTheOrderOfPushing)
{
    msg_buffer_mem messages[40] = {};
    MessageQueue queue;
    queue.Reserve(4);
    int taken = 0;
    for (int pushed = 0; pushed < 40; ++pushed)
    {
        queue.Push(&messages[pushed]);
        if (pushed % 3 == 2)
        {
            EXPECT_EQ(queue.Pop(kRunning), &messages[taken++]);
        }
    }
    while (taken < 40)
    {
        EXPECT_EQ(queue.Pop(kRunning), &messages[taken++]);
    }
}

TEST(MessageQueue, AStoppedPopTakesNothing)
{
    msg_buffer_mem message{};
    MessageQueue queue;
    queue.Push(&message);
    EXPECT_EQ(queue.Pop([] { return true; }), nullptr);
    EXPECT_EQ(queue.Pop(kRunning), &message);
}

TEST(MessageQueue, AStopSeenAfterAWakeLeavesTheEntryOfThatWake)
{
    msg_buffer_mem message{};
    MessageQueue queue;
    std::atomic<int> asked = 0;
    msg_buffer_mem* taken = &message;
    std::thread consumer([&] { taken = queue.Pop([&] { return asked++ > 0; }); });
    while (asked == 0)
    {
        std::this_thread::yield();
    }
    queue.Push(&message);
    consumer.join();
    EXPECT_EQ(taken, nullptr);
    EXPECT_EQ(queue.Pop(kRunning), &message);
}

TEST(MessageQueue, ASleepingPopIsWokenByAPush)
{
    msg_buffer_mem message{};
    MessageQueue queue;
    msg_buffer_mem* taken = nullptr;
    std::thread consumer([&] { taken = queue.Pop(kRunning); });
    queue.Push(&message);
    consumer.join();
    EXPECT_EQ(taken, &message);
}

TEST(MessageQueue, EachPushWakesASleepingPopLongBeforeItsDeadline)
{
    // Back and forth between two sleepers: at 800 ms for each way this would last for ten minutes.
    constexpr int kRounds = 400;
    msg_buffer_mem message{};
    MessageQueue there;
    MessageQueue back;
    std::thread other([&] {
        for (int round = 0; round < kRounds; ++round)
        {
            back.Push(there.Pop(kRunning));
        }
    });
    for (int round = 0; round < kRounds; ++round)
    {
        there.Push(&message);
        ASSERT_EQ(back.Pop(kRunning), &message);
    }
    other.join();
}

TEST(MessageQueue, APushWakesAllThatSleep)
{
    // Each waiter sees the stop at the push, and none of them at its deadline: that would take minutes.
    msg_buffer_mem message{};
    for (int round = 0; round < 200; ++round)
    {
        MessageQueue queue;
        std::atomic<bool> stop = false;
        const auto sleep = [&] { EXPECT_EQ(queue.Pop([&] { return stop.load(); }), nullptr); };
        nq::test::CallingThread first(sleep);
        nq::test::CallingThread second(sleep);
        first.AwaitAsleep();
        second.AwaitAsleep();
        stop = true;
        queue.Push(&message);
    }
}

} // namespace
