// SPDX-License-Identifier: Apache-2.0
// The base of the worker threads: starting, waiting, and ending without leaving a body behind.
#include "gentl/nq_gentl_thread_base.h"

#include "support/asleep.h"
#include "support/no_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace
{

class Worker : public GigERDMA::NQGenTLThreadBase
{
  public:
    explicit Worker(std::function<void()> function) : m_body(std::move(function)) {}
    ~Worker() override { WaitUntilEnded(); }

    using NQGenTLThreadBase::m_threadLock;
    using NQGenTLThreadBase::WaitUntilEnded;

    void Run() override
    {
        ++runs;
        m_body();
    }

    std::atomic<int> runs = 0;

  private:
    std::function<void()> m_body;
};

} // namespace

TEST(ThreadBase, StartRunsTheBody)
{
    std::promise<void> ran;
    Worker worker([&] { ran.set_value(); });
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_TRUE(worker.Start());
    ran.get_future().wait();
    worker.Wait();
}

TEST(ThreadBase, ASecondStartIsRefusedAndKeepsTheFirstThread)
{
    std::promise<void> release;
    Worker worker([&] { release.get_future().wait(); });
    EXPECT_TRUE(worker.Start());
    EXPECT_FALSE(worker.Start());
    release.set_value();
    worker.Wait();
    EXPECT_EQ(worker.runs, 1);
}

TEST(ThreadBase, AfterTheBodyHasReturnedItCountsAsRunningUntilWait)
{
    Worker worker([] {});
    worker.Start();
    worker.WaitUntilEnded();
    EXPECT_EQ(worker.runs, 1);
    EXPECT_TRUE(worker.IsRunning());
    EXPECT_FALSE(worker.Start());
    worker.Wait();
    EXPECT_FALSE(worker.IsRunning());
}

TEST(ThreadBase, WaitOnAWorkerNeverStartedReturnsAtOnce)
{
    Worker worker([] {});
    worker.Wait();
    worker.TimedWait(60000);
    worker.WaitUntilEnded();
    EXPECT_FALSE(worker.IsRunning());
}

TEST(ThreadBase, CanBeStartedAgainAfterWait)
{
    Worker worker([] {});
    EXPECT_TRUE(worker.Start());
    worker.Wait();
    EXPECT_TRUE(worker.Start());
    worker.Wait();
    EXPECT_EQ(worker.runs, 2);
}

TEST(ThreadBase, WaitHoldsTheMutexUntilTheBodyHasReturned)
{
    std::promise<void> release;
    Worker worker([&] { release.get_future().wait(); });
    worker.Start();
    nq::test::CallingThread waiter([&] { worker.Wait(); });
    waiter.AwaitAsleep();
    bool running = true;
    nq::test::CallingThread asker([&] { running = worker.IsRunning(); });
    asker.AwaitAsleep();
    release.set_value();
    asker.Join();
    EXPECT_FALSE(running);
}

TEST(ThreadBase, StartAnswersTrueEvenWhenTheSystemRefusesTheThread)
{
    const nq::test::NoThreads refusal;
    Worker worker([] {});
    EXPECT_TRUE(worker.Start());
    EXPECT_TRUE(worker.IsRunning());
    worker.WaitUntilEnded();
    worker.Wait();
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.runs, 0);
}

TEST(ThreadBase, TimedWaitGivesTheThreadUpWithoutWaiting)
{
    std::promise<void> release;
    std::promise<void> ended;
    Worker worker([&] {
        release.get_future().wait();
        pthread_detach(pthread_self()); // nobody else does: the thread is neither joined nor detached
        ended.set_value();
    });
    worker.Start();
    worker.TimedWait(60000);
    EXPECT_FALSE(worker.IsRunning());
    release.set_value();
    ended.get_future().wait();
}

TEST(ThreadBase, WaitUntilEndedLetsTheBodyUseTheMutex)
{
    std::promise<void> asked;
    std::promise<void> release;
    Worker* self = nullptr;
    Worker worker([&] {
        release.get_future().wait();
        GigERDMA::NQGenTLLock lock(self->m_threadLock);
        asked.set_value();
    });
    self = &worker;
    worker.Start();
    nq::test::CallingThread waiter([&] { worker.WaitUntilEnded(); });
    waiter.AwaitAsleep();
    release.set_value();
    asked.get_future().wait();
    waiter.Join();
}

TEST(ThreadBase, AWorkerDoesNotWaitForItself)
{
    std::promise<void> passed;
    Worker* self = nullptr;
    Worker worker([&] {
        self->WaitUntilEnded();
        passed.set_value();
    });
    self = &worker;
    worker.Start();
    passed.get_future().wait();
    worker.Wait();
}

TEST(ThreadBase, ManyMayWaitForTheEndWhileTheWorkerIsWaitedForAndStartedAnew)
{
    for (int round = 0; round < 50; ++round)
    {
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();
        std::atomic<int> ended = 0;
        Worker worker([&, released] {
            released.wait();
            ++ended;
        });
        worker.Start();
        std::vector<std::thread> waiters;
        for (int i = 0; i < 3; ++i)
        {
            waiters.emplace_back([&] {
                worker.WaitUntilEnded();
                EXPECT_GE(ended, 1);
            });
        }
        waiters.emplace_back([&] { worker.Wait(); });
        release.set_value();
        for (std::thread& waiter : waiters)
        {
            waiter.join();
        }
        EXPECT_FALSE(worker.IsRunning());
        EXPECT_TRUE(worker.Start());
        worker.Wait();
        EXPECT_EQ(ended, 2);
    }
}

TEST(ThreadBase, DestructionWaitsForTheBody)
{
    for (int i = 0; i < 200; ++i)
    {
        auto touched = std::make_unique<int>(0);
        std::atomic<bool> stop = false;
        {
            Worker worker([&] {
                while (!stop)
                {
                    ++*touched;
                }
            });
            worker.Start();
            stop = true;
        }
        touched.reset();
    }
}

TEST(ThreadBase, AWorkerThatDeletesItselfLeavesNothingBehind)
{
    std::promise<void> started;
    std::promise<void> gone;
    Worker* worker = nullptr;
    worker = new Worker([&] {
        std::promise<void>& told = gone; // the captures go with the worker
        started.get_future().wait();
        delete worker;
        told.set_value();
    });
    worker->Start();
    started.set_value();
    gone.get_future().wait();
}
