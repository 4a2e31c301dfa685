// SPDX-License-Identifier: Apache-2.0
// One consumer whose camera is killed by somebody else once this program says "streaming": how long it takes from the
// stop until nothing of the acquisition is left.
#include "roce/roce_consumer.h"

#include <chrono>
#include <iostream>
#include <thread>

namespace
{

using Clock = std::chrono::steady_clock;

/// A hang, and no late guest: the stop waits 600 ms for the camera's answer, twice when the heartbeat waits too, and
/// 800 ms for each of three threads.
constexpr auto kPatience = std::chrono::seconds(30);

long MillisecondsSince(Clock::time_point start)
{
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

} // namespace

TEST(Loss, AStopAfterTheCameraIsKilledReturnsAndAllThreadsGo)
{
    nq::test::RoceConsumer consumer;
    ASSERT_NE(consumer.stream, nullptr) << "no camera answered";
    const long threads = nq::test::CountOf("task");
    ASSERT_EQ(consumer.Start(), 0);
    for (int frame = 0; frame < 5; ++frame)
    {
        ASSERT_TRUE(consumer.TakeFrame(30000)) << "frame " << frame;
    }
    EXPECT_GT(nq::test::CountOf("task"), threads);
    std::cout << "streaming" << std::endl;
    while (consumer.TakeFrame(5000))
    {
    }
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(consumer.Stop(), 0);
    std::cout << "the stop returned after " << MillisecondsSince(start) << " ms, ";
    while (nq::test::CountOf("task") > threads && Clock::now() - start < kPatience)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::cout << "all threads were gone after " << MillisecondsSince(start) << " ms" << std::endl;
    EXPECT_LE(nq::test::CountOf("task"), threads)
        << "the heartbeat goes with its camera, the acquisition with the stop";
    EXPECT_LT(Clock::now() - start, kPatience);
}
