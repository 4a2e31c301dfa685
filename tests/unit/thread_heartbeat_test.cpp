// SPDX-License-Identifier: Apache-2.0
// The heartbeat thread: its period, its end and its restart.
#include "gentl/nq_gentl_thread_heartbeat.h"

#include "support/asleep.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>

namespace
{

class Heart : public GigERDMA::NQGenTLThreadHeartbeat
{
  public:
    ~Heart() override
    {
        RequestExit();
        WaitUntilEnded();
    }
    void OnHeartBeat() override
    {
        ++beats;
        if (onBeat)
        {
            onBeat();
        }
    }

    std::atomic<int> beats = 0;
    std::function<void()> onBeat;
};

} // namespace

TEST(Heartbeat, TheFirstBeatComesHalfATimeoutAfterTheStart)
{
    Heart heart;
    std::promise<void> beaten;
    heart.onBeat = [&] {
        beaten.set_value();
        heart.RequestExit();
    };
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(heart.Start(201));
    beaten.get_future().wait();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(100));
    heart.Wait();
}

TEST(Heartbeat, ATimeoutOfZeroBeatsWithoutAPause)
{
    Heart heart;
    std::promise<void> enough;
    heart.onBeat = [&] {
        if (heart.beats == 1000)
        {
            enough.set_value();
            heart.RequestExit();
        }
    };
    EXPECT_TRUE(heart.Start(0));
    enough.get_future().wait();
    heart.Wait();
    EXPECT_EQ(heart.beats, 1000);
}

TEST(Heartbeat, AnExitRequestedDuringABeatEndsTheThreadBeforeTheNext)
{
    Heart heart;
    heart.onBeat = [&] { heart.RequestExit(); };
    EXPECT_TRUE(heart.Start(2));
    heart.Wait();
    EXPECT_EQ(heart.beats, 1);
}

TEST(Heartbeat, AnExitRequestedWhileItSleepsEndsTheThreadWithoutABeat)
{
    Heart heart;
    EXPECT_TRUE(heart.Start(3600000));
    heart.RequestExit();
    heart.Wait();
    EXPECT_EQ(heart.beats, 0);
}

TEST(Heartbeat, AStartWhileItRunsIsRefused)
{
    Heart heart;
    EXPECT_TRUE(heart.Start(3600000));
    EXPECT_FALSE(heart.Start(0));
    heart.RequestExit();
    heart.Wait();
    EXPECT_EQ(heart.beats, 0);
}

TEST(Heartbeat, CanBeStartedAgainThoughItWasKilled)
{
    Heart heart;
    heart.onBeat = [&] { heart.RequestExit(); };
    for (int run = 1; run <= 3; ++run)
    {
        heart.RequestExit(); // stays pending and is cleared by the start
        EXPECT_TRUE(heart.Start(2));
        heart.Wait();
        EXPECT_EQ(heart.beats, run);
    }
}

TEST(Heartbeat, CountsAsRunningUntilItIsWaitedFor)
{
    Heart heart;
    std::promise<void> beaten;
    heart.onBeat = [&] {
        heart.RequestExit();
        beaten.set_value();
    };
    heart.Start(0);
    beaten.get_future().wait();
    EXPECT_TRUE(heart.IsRunning());
    EXPECT_FALSE(heart.Start(0));
    heart.Wait();
    EXPECT_FALSE(heart.IsRunning());
}

// The wait holds the thread's lock: a body that asked for the timeout under it would never end.
TEST(Heartbeat, AWaitRightAfterTheStartDoesNotHang)
{
    for (int i = 0; i < 500; ++i)
    {
        Heart heart;
        heart.Start(3600000);
        heart.RequestExit();
        heart.Wait();
    }
}
