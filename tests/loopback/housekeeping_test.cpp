// SPDX-License-Identifier: Apache-2.0
// What the software RDMA keeps, counts and leaves behind, and where it is stricter than real devices.
#include "loopback/loopback_control.h"
#include "loopback/rdma_side.h"
#include "support/process_counts.h"
#include "support/temporary_folder.h"

#include <fstream>
#include <iterator>
#include <thread>

namespace nq::test
{

TEST(LoopbackHousekeeping, LoadingStartsNothing)
{
#ifdef __SANITIZE_THREAD__
    EXPECT_EQ(LivingThreads(), 2) << "one is ThreadSanitizer's";
#else
    EXPECT_EQ(LivingThreads(), 1);
#endif
    const nq_loopback_objects objects = LoopbackControl().Objects();
    EXPECT_EQ(objects.contexts, 0);
}

TEST(LoopbackHousekeeping, LiveObjectsAreCounted)
{
    const LoopbackControl control;
    {
        Connected pair;
        pair.active.Register(100);
        const nq_loopback_objects objects = control.Objects();
        EXPECT_EQ(objects.event_channels, 3);
        EXPECT_EQ(objects.cm_ids, 3);
        EXPECT_EQ(objects.protection_domains, 2);
        EXPECT_EQ(objects.completion_channels, 2);
        EXPECT_EQ(objects.completion_queues, 2);
        EXPECT_EQ(objects.queue_pairs, 2);
        EXPECT_EQ(objects.memory_regions, 1);
        EXPECT_EQ(objects.contexts, 1);
    }
    const nq_loopback_objects objects = control.Objects();
    EXPECT_EQ(objects.event_channels, 0);
    EXPECT_EQ(objects.cm_ids, 0);
    EXPECT_EQ(objects.cm_events, 0);
    EXPECT_EQ(objects.protection_domains, 0);
    EXPECT_EQ(objects.completion_channels, 0);
    EXPECT_EQ(objects.completion_queues, 0);
    EXPECT_EQ(objects.queue_pairs, 0);
    EXPECT_EQ(objects.memory_regions, 0);
}

TEST(LoopbackHousekeeping, EventCountsUntilItIsAcknowledged)
{
    const LoopbackControl control;
    Meeting pair;
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    rdma_cm_event* event = nullptr;
    ASSERT_EQ(rdma_get_cm_event(pair.active.channel, &event), 0);
    EXPECT_EQ(control.Objects().cm_events, 1);
    ASSERT_EQ(rdma_ack_cm_event(event), 0);
    EXPECT_EQ(control.Objects().cm_events, 0);
}

TEST(LoopbackHousekeeping, ConnectionsLeaveNoDescriptorsAndNoThreads)
{
    {
        const Connected first;
    }
    // A waiting period may still hold the sockets of the other side.
    const long descriptors = Descriptors();
    const long threads = LivingThreads();
    for (int count = 0; count < 20; ++count)
    {
        const Connected again;
    }
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_EQ(LivingThreads(), threads);
}

TEST(LoopbackHousekeeping, IdThatIsGoneIsRefused)
{
    Meeting pair;
    rdma_cm_id* id = std::exchange(pair.active.id, nullptr);
    ASSERT_EQ(rdma_destroy_id(id), 0);
    EXPECT_EQ(rdma_destroy_id(id), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rdma_disconnect(id), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(LoopbackHousekeeping, ChannelThatGoesTakesItsIdsOutOfService)
{
    Connected pair;
    rdma_event_channel* gone = std::exchange(pair.active.channel, rdma_create_event_channel());
    rdma_destroy_event_channel(gone);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
    EXPECT_EQ(rdma_disconnect(pair.active.id), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(LoopbackHousekeeping, QueuePairDestroyedByVerbsLeavesItsIdUsable)
{
    Connected pair;
    ASSERT_EQ(ibv_destroy_qp(std::exchange(pair.active.id->qp, nullptr)), 0);
    EXPECT_EQ(rdma_disconnect(pair.active.id), 0);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
}

TEST(LoopbackHousekeeping, SendWhoseRegionGoesWhileItWaitsFails)
{
    Connected pair;
    constexpr size_t kSize = 16'000'000; // more than the sockets hold
    {
        const Memory from(pair.active.domain, kSize);
        ASSERT_EQ(pair.active.PostSend(1, {from.Whole()}), 0);
    }
    Memory& to = pair.passive.Register(kSize);
    ASSERT_EQ(pair.passive.PostReceive(2, {to.Whole()}), 0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_LOC_PROT_ERR);
}

TEST(LoopbackHousekeeping, FullCompletionQueueEndsTheQueuePair)
{
    Connected pair({}, {.completions = 2});
    Memory& from = pair.active.Register(8);
    Memory& to = pair.passive.Register(8);
    for (uint64_t number = 0; number < 3; ++number)
    {
        ASSERT_EQ(pair.passive.PostReceive(number, {to.Whole()}), 0);
        ASSERT_EQ(pair.active.PostSend(number, {from.Whole()}), 0);
    }
    ibv_async_event event{};
    ASSERT_EQ(ibv_get_async_event(pair.passive.id->verbs, &event), 0);
    EXPECT_EQ(event.event_type, IBV_EVENT_CQ_ERR);
    EXPECT_EQ(event.element.cq, pair.passive.queue);
    ibv_ack_async_event(&event);
    ASSERT_EQ(ibv_get_async_event(pair.passive.id->verbs, &event), 0);
    EXPECT_EQ(event.event_type, IBV_EVENT_QP_FATAL);
    EXPECT_EQ(event.element.qp, pair.passive.id->qp);
    ibv_ack_async_event(&event);
    EXPECT_EQ(pair.passive.State(), IBV_QPS_ERR);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
}

TEST(LoopbackHousekeeping, CompletionQueueCanBeMadeLonger)
{
    Connected pair({}, {.completions = 1});
    ASSERT_EQ(ibv_resize_cq(pair.passive.queue, 3), 0);
    EXPECT_EQ(pair.passive.queue->cqe, 3);
}

TEST(LoopbackHousekeeping, WhatTheDeviceDoesNotHaveIsRefused)
{
    Connected pair;
    EXPECT_EQ(ibv_create_srq(pair.active.domain, nullptr), nullptr);
    EXPECT_EQ(errno, EOPNOTSUPP);
    ibv_qp_init_attr attributes = pair.active.Attributes();
    attributes.qp_type = IBV_QPT_UD;
    EXPECT_EQ(ibv_create_qp(pair.active.domain, &attributes), nullptr);
    EXPECT_EQ(errno, EOPNOTSUPP);
    ibv_send_wr work{};
    work.opcode = IBV_WR_RDMA_WRITE;
    ibv_send_wr* bad = nullptr;
    EXPECT_EQ(ibv_post_send(pair.active.id->qp, &work, &bad), EOPNOTSUPP);
    EXPECT_EQ(bad, &work);
    rdma_cm_id* id = nullptr;
    EXPECT_EQ(rdma_create_id(pair.active.channel, &id, nullptr, RDMA_PS_UDP), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
}

TEST(LoopbackHousekeeping, LogGoesToItsFileAndNowhereElse)
{
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    setenv("NQ_RDMA_LOOPBACK_LOG", path.c_str(), 1);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        const Connected pair;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::ifstream file(path);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    EXPECT_NE(text.find("RDMA_CM_EVENT_ESTABLISHED"), std::string::npos);
}

} // namespace nq::test
