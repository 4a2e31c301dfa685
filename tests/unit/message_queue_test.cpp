// SPDX-License-Identifier: Apache-2.0
// The FIFO between the endpoint's threads.
#include "rdma/message_queue.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace
{

const auto running = [] { return false; };

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
            EXPECT_EQ(queue.Pop(running), &messages[taken++]);
        }
    }
    while (taken < 40)
    {
        EXPECT_EQ(queue.Pop(running), &messages[taken++]);
    }
}

TEST(MessageQueue, AStoppedPopTakesNothing)
{
    msg_buffer_mem message{};
    MessageQueue queue;
    queue.Push(&message);
    EXPECT_EQ(queue.Pop([] { return true; }), nullptr);
    EXPECT_EQ(queue.Pop(running), &message);
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
    EXPECT_EQ(queue.Pop(running), &message);
}

TEST(MessageQueue, ASleepingPopIsWokenByAPush)
{
    msg_buffer_mem message{};
    MessageQueue queue;
    msg_buffer_mem* taken = nullptr;
    std::thread consumer([&] { taken = queue.Pop(running); });
    queue.Push(&message);
    consumer.join();
    EXPECT_EQ(taken, &message);
}

} // namespace
