// SPDX-License-Identifier: Apache-2.0
// The wrapper of one POSIX thread: joining, giving up, and a body that outlives its object.
#include "gentl/CLThread.h"

#include "support/asleep.h"
#include "support/no_threads.h"
#include "support/process_counts.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

using GigERDMA::NQSync::thread;

namespace
{

/// A body that tells when it runs and ends when it is told to.
struct Body
{
    std::promise<pthread_t> started;
    std::promise<void> release;
    bool detachItself = false;
    std::atomic<bool> returned = false;

    static void Run(void* argument)
    {
        auto* body = static_cast<Body*>(argument);
        body->started.set_value(pthread_self());
        body->release.get_future().wait();
        if (body->detachItself)
        {
            pthread_detach(pthread_self());
        }
        body->returned = true;
    }
};

void Nothing(void*) {}

void AwaitFinish(const thread& worker)
{
    while (!worker.IsFinished())
    {
        std::this_thread::yield();
    }
}

} // namespace

TEST(Thread, CallsTheFunctionWithTheArgumentOnAnotherThread)
{
    Body body;
    thread worker(Body::Run, &body);
    EXPECT_FALSE(pthread_equal(body.started.get_future().get(), pthread_self()));
    EXPECT_FALSE(worker.IsFinished());
    EXPECT_FALSE(worker.IsCurrent());
    body.release.set_value();
    worker.join();
    EXPECT_TRUE(body.returned);
    EXPECT_TRUE(worker.IsFinished());
}

TEST(Thread, JoinWaitsForARunningBody)
{
    Body body;
    thread worker(Body::Run, &body);
    nq::test::CallingThread joiner([&] { worker.join(); });
    joiner.AwaitAsleep();
    EXPECT_FALSE(body.returned);
    body.release.set_value();
    joiner.Join();
    EXPECT_TRUE(body.returned);
}

TEST(Thread, ASecondJoinReturnsAtOnce)
{
    thread worker(Nothing, nullptr);
    worker.join();
    worker.join();
}

// Deliberate(FinishedIsNotJoined)
TEST(Thread, JoinOfAFinishedBodyReturnsWithoutJoiningAndTheDestructorDetaches)
{
    thread worker(Nothing, nullptr);
    AwaitFinish(worker);
    worker.join();
    EXPECT_TRUE(worker.IsFinished());
}

TEST(Thread, ADetachedBodyOutlivesItsObject)
{
    Body body;
    auto worker = std::make_unique<thread>(Body::Run, &body);
    body.started.get_future().wait();
    nq::test::CallingThread observer([&] {
        while (!body.returned)
        {
            std::this_thread::yield();
        }
    });
    worker.reset();
    EXPECT_FALSE(body.returned);
    body.release.set_value();
    observer.Join();
}

// Deliberate(TimedJoinNeverWaits): the time is taken for an instant in the past, so even a minute waits for nothing,
// and the thread is then neither joined nor detached.
TEST(Thread, TimedJoinDoesNotWaitAndGivesTheThreadUp)
{
    Body body;
    body.detachItself = true; // or it would be a leak, as told above
    thread worker(Body::Run, &body);
    body.started.get_future().wait();
    worker.timedjoin(60000);
    EXPECT_FALSE(body.returned);
    EXPECT_FALSE(worker.IsFinished());
    worker.join(); // no thread any more: returns at once
    EXPECT_FALSE(body.returned);
    body.release.set_value();
    AwaitFinish(worker);
}

TEST(Thread, TimedJoinOfAFinishedBodyReturnsAtOnce)
{
    thread worker(Nothing, nullptr);
    AwaitFinish(worker);
    worker.timedjoin(60000);
}

TEST(Thread, ARefusedThreadIsFinishedAndNeverCallsTheFunction)
{
    const nq::test::NoThreads refusal;
    bool called = false;
    thread worker([](void* flag) { *static_cast<bool*>(flag) = true; }, &called);
    EXPECT_TRUE(worker.IsFinished());
    worker.join();
    worker.timedjoin(1);
    worker.WaitUntilGone();
    EXPECT_FALSE(called);
}

TEST(Thread, WaitUntilGoneWaitsForTheBodyAndMayBeRepeated)
{
    Body body;
    thread worker(Body::Run, &body);
    nq::test::CallingThread waiter([&] { worker.WaitUntilGone(); });
    waiter.AwaitAsleep();
    EXPECT_FALSE(body.returned);
    body.release.set_value();
    waiter.Join();
    EXPECT_TRUE(body.returned);
    worker.WaitUntilGone();
}

TEST(Thread, WaitUntilGoneJoinsAlsoABodyThatHasReturned)
{
    const long before = nq::test::LivingThreads();
    thread worker(Nothing, nullptr);
    AwaitFinish(worker);
    worker.WaitUntilGone();
    EXPECT_EQ(nq::test::LivingThreads(), before);
}

TEST(Thread, AnExceptionThatLeavesTheBodyEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            thread worker([](void*) { throw std::runtime_error("body"); }, nullptr);
            worker.join();
        },
        "");
}
