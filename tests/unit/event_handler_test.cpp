// SPDX-License-Identifier: Apache-2.0
// The bit-mask signal: which bits it takes, when a wait returns, and what becomes of a kill.
#include "gentl/nq_event_handler.h"

#include "support/asleep.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using GigERDMA::NQEventHandler;
using nq::test::CallingThread;

namespace
{

constexpr unsigned int kKill = 0xF0000000;
constexpr unsigned int kGreatestLowValue = 0x0FFFFFFF;

} // namespace

TEST(EventHandler, StartsWithoutBits)
{
    NQEventHandler handler(1);
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
}

TEST(EventHandler, ABitOutsideTheMaskDoesNothing)
{
    NQEventHandler handler(1);
    handler.SetEvent(2);
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
}

TEST(EventHandler, OneCommonBitSetsTheWholeArgument)
{
    NQEventHandler handler(1);
    handler.SetEvent(3);
    EXPECT_EQ(handler.WaitForEvent(0), 3U);
}

TEST(EventHandler, SettingBitsAddsToThoseThatAreSet)
{
    NQEventHandler handler(0x0F);
    handler.SetEvent(1);
    handler.SetEvent(4);
    EXPECT_EQ(handler.WaitForEvent(0), 5U);
}

TEST(EventHandler, ResetClearsTheWholeArgumentWhenOneBitIsInTheMask)
{
    NQEventHandler handler(1);
    handler.SetEvent(7);
    handler.ResetEvent(3);
    EXPECT_EQ(handler.WaitForEvent(0), 4U);
}

TEST(EventHandler, ResetOfBitsOutsideTheMaskDoesNothing)
{
    NQEventHandler handler(1);
    handler.SetEvent(3);
    handler.ResetEvent(2);
    EXPECT_EQ(handler.WaitForEvent(0), 3U);
}

TEST(EventHandler, TheKillBitsAreAlwaysInTheMask)
{
    NQEventHandler handler(0);
    handler.SetEvent(1);
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
    handler.SetEvent(0x10000000);
    EXPECT_EQ(handler.WaitForEvent(0), 0x10000000U);
}

TEST(EventHandler, ATimeoutOfZeroDoesNotWait)
{
    NQEventHandler handler(1);
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
}

TEST(EventHandler, AnUnlimitedWaitReturnsASetBitAtOnceAndLeavesItSet)
{
    NQEventHandler handler(1);
    handler.SetEvent(1);
    EXPECT_EQ(handler.WaitForEvent(-1), 1U);
    EXPECT_EQ(handler.WaitForEvent(-1), 1U);
    handler.ResetEvent(1);
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
}

TEST(EventHandler, ALimitedWaitWithoutBitsTakesItsWholeTime)
{
    NQEventHandler handler(1);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(handler.WaitForEvent(1050), 0U);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1050));
}

TEST(EventHandler, AKillWithoutAWaiterStaysUntilItIsReset)
{
    NQEventHandler handler(1);
    handler.Kill();
    EXPECT_EQ(handler.WaitForEvent(-1), kKill);
    EXPECT_EQ(handler.WaitForEvent(0), kKill);
    handler.ResetEvent(kKill);
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
}

TEST(EventHandler, AKillBesideOtherBitsGivesBoth)
{
    NQEventHandler handler(1);
    handler.SetEvent(1);
    handler.Kill();
    EXPECT_EQ(handler.WaitForEvent(-1), kKill | 1U);
    EXPECT_EQ(handler.WaitForEvent(-1), kKill | 1U);
}

TEST(EventHandler, AKillThatWakesASleeperIsUsedUp)
{
    NQEventHandler handler(1);
    unsigned int seen = 0;
    CallingThread sleeper([&] { seen = handler.WaitForEvent(-1); });
    sleeper.AwaitAsleep();
    handler.Kill();
    sleeper.Join();
    EXPECT_GT(seen, kGreatestLowValue);

    CallingThread next([&] { seen = handler.WaitForEvent(-1); });
    next.AwaitAsleep();
    handler.SetEvent(1);
    next.Join();
    EXPECT_EQ(seen, 1U);
}

TEST(EventHandler, ASignalThatWakesASleeperStaysSet)
{
    NQEventHandler handler(1);
    unsigned int seen = 0;
    CallingThread sleeper([&] { seen = handler.WaitForEvent(60000); });
    sleeper.AwaitAsleep();
    handler.SetEvent(1);
    sleeper.Join();
    EXPECT_EQ(seen, 1U);
    EXPECT_EQ(handler.WaitForEvent(0), 1U);
}

TEST(EventHandler, OneSignalWakesOneWaiter)
{
    NQEventHandler handler(1);
    std::atomic<int> woken = 0;
    auto wait = [&] {
        EXPECT_EQ(handler.WaitForEvent(-1), 1U);
        ++woken;
    };
    CallingThread first(wait);
    CallingThread second(wait);
    first.AwaitAsleep();
    second.AwaitAsleep();
    first.AwaitAsleep(); // it may have slept for the lock that the second had

    handler.SetEvent(1);
    while (woken == 0)
    {
        std::this_thread::yield();
    }
    handler.ResetEvent(1);
    EXPECT_EQ(woken, 1);

    handler.SetEvent(1);
    first.Join();
    second.Join();
    EXPECT_EQ(woken, 2);
}

// Deliberate(WaitHasNoLoop): an unlimited wait woken without a bit returns 0, which its caller takes for a timeout.
TEST(EventHandler, AWakeUpWithoutABitEndsEvenAnUnlimitedWait)
{
    NQEventHandler handler(1);
    std::atomic<bool> done = false;
    CallingThread setter([&] {
        while (!done)
        {
            handler.SetEvent(1);
            handler.ResetEvent(1); // sometimes before the sleeper can look
        }
    });
    while (handler.WaitForEvent(-1) != 0)
    {
    }
    done = true;
}

// Each side waits for the other without limit: one lost signal between test and sleep would hang the pair for good.
TEST(EventHandler, NoSignalIsLostBetweenTheTestOfTheBitsAndTheSleep)
{
    constexpr int kRounds = 20000;
    NQEventHandler ping(1);
    NQEventHandler pong(1);
    auto take = [](NQEventHandler& handler) {
        while (handler.WaitForEvent(-1) == 0)
        {
        }
        handler.ResetEvent(1);
    };
    std::thread other([&] {
        for (int i = 0; i < kRounds; ++i)
        {
            take(ping);
            pong.SetEvent(1);
        }
    });
    for (int i = 0; i < kRounds; ++i)
    {
        ping.SetEvent(1);
        take(pong);
    }
    other.join();
}

TEST(EventHandler, AKillIsNeverLostBetweenTheTestOfTheBitsAndTheSleep)
{
    for (int i = 0; i < 2000; ++i)
    {
        NQEventHandler handler(1);
        std::thread waiter([&] { EXPECT_GT(handler.WaitForEvent(-1), kGreatestLowValue); });
        handler.Kill();
        waiter.join();
    }
}

TEST(EventHandler, ManyThreadsMaySetAndResetAtOnce)
{
    NQEventHandler handler(0xFF);
    std::vector<std::thread> threads;
    for (unsigned int bit = 1; bit <= 8; bit <<= 1)
    {
        threads.emplace_back([&handler, bit] {
            for (int i = 0; i < 1000; ++i)
            {
                handler.SetEvent(bit);
                EXPECT_NE(handler.WaitForEvent(0) & bit, 0U);
                handler.ResetEvent(bit);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(handler.WaitForEvent(0), 0U);
}
