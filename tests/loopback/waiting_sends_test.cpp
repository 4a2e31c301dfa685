// SPDX-License-Identifier: Apache-2.0
// Sends that find no receive posted, which network cards punish: they wait, and they are counted on both sides.
#include "loopback/loopback_control.h"
#include "loopback/rdma_side.h"

#include <chrono>
#include <thread>

namespace nq::test
{

namespace
{

/// Both sides are in this process: what one has sent too early the other has got too early.
void ExpectWaiting(unsigned long long count)
{
    const nq_loopback_waiting_sends sends = LoopbackControl().WaitingSends();
    EXPECT_EQ(sends.own, count);
    EXPECT_EQ(sends.of_peers, count);
}

/// Returns once both sides have counted a send that waits.
void AwaitWaiting()
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatience);
    nq_loopback_waiting_sends sends{};
    while ((sends.own == 0 || sends.of_peers == 0) && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        sends = LoopbackControl().WaitingSends();
    }
}

void Send(Connected& pair, uint64_t number, size_t size)
{
    Memory& from = pair.active.Register(size);
    ASSERT_EQ(pair.active.PostSend(number, {from.Whole()}), 0);
}

void Receive(Connected& pair, uint64_t number, size_t size)
{
    Memory& to = pair.passive.Register(size);
    ASSERT_EQ(pair.passive.PostReceive(number, {to.Whole()}), 0);
}

void ExpectCarried(Connected& pair, int messages)
{
    for (int message = 0; message < messages; ++message)
    {
        ASSERT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
        ASSERT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
    }
}

} // namespace

TEST(LoopbackWaitingSends, SendIntoAPostedReceiveIsNotCounted)
{
    Connected pair;
    for (uint64_t number = 0; number < 10; ++number)
    {
        Receive(pair, number, 100);
        Send(pair, number, 100);
        ExpectCarried(pair, 1);
    }
    ExpectWaiting(0);
}

TEST(LoopbackWaitingSends, SendBeforeItsReceiveIsCountedOnce)
{
    Connected pair;
    Send(pair, 1, 100);
    // At once, so that mostly nobody has looked at the message yet.
    Receive(pair, 1, 100);
    ExpectCarried(pair, 1);
    ExpectWaiting(1);
}

TEST(LoopbackWaitingSends, SendThatWaitsIsCountedBeforeItsReceiveComes)
{
    Connected pair;
    Send(pair, 1, 3'000'000);
    ibv_req_notify_cq(pair.active.queue, 0);
    AwaitWaiting();
    EXPECT_FALSE(Readable(pair.active.completions->fd, 300));
    ExpectWaiting(1);
    Receive(pair, 1, 3'000'000);
    ExpectCarried(pair, 1);
    ExpectWaiting(1);
}

TEST(LoopbackWaitingSends, EachSendThatFindsTheQueueEmptyIsCounted)
{
    Connected pair;
    for (uint64_t number = 0; number < 3; ++number)
    {
        Send(pair, number, 8);
    }
    for (uint64_t number = 0; number < 3; ++number)
    {
        Receive(pair, number, 8);
        ASSERT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
        ASSERT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
    }
    ExpectWaiting(3);
}

TEST(LoopbackWaitingSends, EmptyMessageThatWaitedArrives)
{
    Connected pair;
    Receive(pair, 1, 8);
    ASSERT_EQ(pair.active.PostSend(1, {}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {}), 0);
    ExpectCarried(pair, 1);
    ibv_req_notify_cq(pair.active.queue, 0);
    EXPECT_FALSE(Readable(pair.active.completions->fd, 100));
    Receive(pair, 2, 8);
    ExpectCarried(pair, 1);
    ExpectWaiting(1);
}

} // namespace nq::test
