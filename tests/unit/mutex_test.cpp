// SPDX-License-Identifier: Apache-2.0
// The recursive mutex, its guard and its condition.
#include "gentl/nq_gentl_mutex.h"

#include "support/asleep.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

using namespace GigERDMA;
using nq::test::CallingThread;

TEST(Mutex, TheSameThreadMayLockItAgainAndOthersWaitForTheLastUnlock)
{
    NQGenTLMutex mutex;
    int value = 0;
    mutex.Lock();
    mutex.Lock();
    CallingThread other([&] {
        NQGenTLLock lock(mutex);
        value = 2;
    });
    other.AwaitAsleep();
    mutex.Unlock();
    value = 1; // still held once
    mutex.Unlock();
    other.Join();
    EXPECT_EQ(value, 2);
}

TEST(Mutex, TheGuardReleasesWhenAnExceptionPasses)
{
    NQGenTLMutex mutex;
    try
    {
        NQGenTLLock lock(mutex);
        throw std::runtime_error("on the way out");
    }
    catch (const std::runtime_error&)
    {
    }
    CallingThread([&] { NQGenTLLock lock(mutex); }).Join();
}

TEST(Condition, ADeadlineThatHasPassedEndsTheWait)
{
    NQGenTLMutex mutex;
    NQGenTLCondition condition;
    NQGenTLLock lock(mutex);
    EXPECT_EQ(condition.WaitUntil(mutex, timespec{1, 0}), ETIMEDOUT);
}

TEST(Condition, ASignalWakesAWaiter)
{
    NQGenTLMutex mutex;
    NQGenTLCondition condition;
    bool ready = false;
    CallingThread waiter([&] {
        NQGenTLLock lock(mutex);
        while (!ready)
        {
            EXPECT_EQ(condition.Wait(mutex), 0);
        }
    });
    waiter.AwaitAsleep();
    {
        NQGenTLLock lock(mutex);
        ready = true;
    }
    condition.Signal();
    waiter.Join();
}
