// SPDX-License-Identifier: Apache-2.0
// Connections that take as long as on a network: request, reply and confirmation are on their way for a while each.
#include "loopback/rdma_side.h"

namespace nq::test
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Every message of a set-up takes 100 ms. To be made before the first RDMA call.
class LoopbackConnectTime : public testing::Test
{
  protected:
    void SetUp() override { setenv("NQ_RDMA_LOOPBACK_CONNECT_MS", "100", 1); }
};

} // namespace

TEST_F(LoopbackConnectTime, EachMessageOfTheSetUpIsOnItsWayForThatLong)
{
    Meeting pair;
    const auto start = Clock::now();
    pair.Request();
    const auto accepted = Clock::now();
    EXPECT_GE(accepted - start, milliseconds(100)) << "the request";
    ASSERT_EQ(rdma_accept(pair.passive.id, nullptr), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_GE(Clock::now() - accepted, milliseconds(100)) << "the reply";
    Expect(pair.passive.channel, RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_GE(Clock::now() - accepted, milliseconds(200)) << "the confirmation";
}

TEST_F(LoopbackConnectTime, RequestIsNotThereWhileItIsOnItsWay)
{
    setenv("NQ_RDMA_LOOPBACK_CONNECT_MS", "3600000", 1);
    Meeting pair;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(pair.active.id, nullptr), 0);
    EXPECT_FALSE(Readable(pair.listener.channel->fd, 300));
    EXPECT_FALSE(Readable(pair.active.channel->fd, 0));
}

TEST_F(LoopbackConnectTime, ConnectionCarriesMessages)
{
    Connected pair;
    Memory& from = pair.active.Register(60);
    Memory& to = pair.passive.Register(60);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
}

TEST_F(LoopbackConnectTime, WhatWasOnItsWayWhenTheIdWentComesBeforeTheEnd)
{
    Meeting pair;
    pair.Request();
    ASSERT_EQ(rdma_accept(pair.passive.id, nullptr), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_ESTABLISHED);
    pair.active.DropQueuePair();
    ASSERT_EQ(rdma_destroy_id(std::exchange(pair.active.id, nullptr)), 0);
    Expect(pair.passive.channel, RDMA_CM_EVENT_ESTABLISHED);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
}

} // namespace nq::test
