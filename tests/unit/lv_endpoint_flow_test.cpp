// SPDX-License-Identifier: Apache-2.0
// The flow of frames through the endpoint: registered memory, work requests, queues, and how each of them ends.
#include "rdma/lvEndPoint.h"

#include "support/endpoint_flow_fixture.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

using nq::test::Bytes;
using nq::test::EndpointFlowFixture;
using nq::test::kBlock;
using nq::test::kPayload;
using nq::test::LivingThreads;
using nq::test::Posts;
using nq::test::Texts;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class LvEndpointFlow : public EndpointFlowFixture
{
};

// ---- memory

TEST_F(LvEndpointFlow, EachBlockAndEachReadyMessageIsRegisteredInTurn)
{
    Connect();
    Register(2);
    EXPECT_THAT(fake.regionLengths, ElementsAre(kBlock, 60, kBlock, 60));
    EXPECT_THAT(fake.regionAccess, ElementsAre(IBV_ACCESS_LOCAL_WRITE, 0, IBV_ACCESS_LOCAL_WRITE, 0));
    EXPECT_EQ(LvEndpointAccess::Receive(*endpoint, 1)->length, kBlock);
    EXPECT_EQ(LvEndpointAccess::Send(*endpoint, 1)->length, 0U);
    endpoint->DeInit();
    endpoint.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(LvEndpointFlow, ABlockTooLargeFor32BitsThrowsBeforeAnythingIsRegistered)
{
    Connect();
    gevrdmaBufferSettings settings{};
    settings.payloadSize = 0xFFFFFFFF;
    settings.bufferCount = 2;
    endpoint->SetBufferSettings(settings);
    EXPECT_THROW(endpoint->AllocateAndRegisterMemory(), std::length_error);
    EXPECT_EQ(fake.Count("ibv_reg_mr"), 0);
}

TEST_F(LvEndpointFlow, AReceiveOf2To31BytesOrMoreStaysOutOfTheFlowSilently)
{
    for (const std::uint64_t size : {0x80000000ULL, 0xFFFFFFFFULL})
    {
        endpoint = std::make_unique<LvEndpoint>();
        Connect();
        Register(2, size - 176);
        endpoint->StartWorkerThread();
        EXPECT_EQ(endpoint->RequeueBufferByID(reinterpret_cast<void*>(IdOf(0))), 0);
        endpoint->DeInit();
        EXPECT_EQ(fake.Count("ibv_reg_mr"), 0) << size;
        EXPECT_THAT(Posts(fake.Calls()), IsEmpty()) << size;
        EXPECT_THAT(trace.At(2), IsEmpty());
    }
}

TEST_F(LvEndpointFlow, AReceiveOfOneByteLessFlows)
{
    Connect();
    Register(2, 0x7FFFFFFFULL - 176);
    endpoint->StartWorkerThread();
    fake.WaitForSent(2);
    EXPECT_THAT(fake.ReceiveLengths(), ElementsAre(0x7FFFFFFF, 0x7FFFFFFF));
    endpoint->DeInit();
    EXPECT_EQ(fake.Count("ibv_dereg_mr"), 4);
}

/// Lets registration `refused` of 8 fail; expects that many receives and ready messages in the flow.
class LvEndpointRefusal : public LvEndpointFlow, public testing::WithParamInterface<int>
{
};

TEST_P(LvEndpointRefusal, ARefusedRegionEndsRegistrationSilentlyAndLaterBlocksStayOutOfTheFlow)
{
    const int refused = GetParam();
    const int receives = refused / 2;
    const int sends = (refused - 1) / 2;
    fake.Fail("ibv_reg_mr", ENOMEM, refused);
    Connect();
    Register(4);
    EXPECT_EQ(fake.Count("ibv_reg_mr"), refused);
    endpoint->StartWorkerThread();
    fake.WaitForCalls("ibv_post_recv", receives);
    fake.WaitForCalls("ibv_post_send", sends);
    for (int frame = 0; frame < receives; ++frame)
    {
        fake.DeliverFrame(Bytes(kBlock, 7));
        gevrdmaBuffer buffer{};
        ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
        endpoint->HandOver(buffer.id);
    }
    for (int index = 0; index < 4; ++index)
    {
        EXPECT_EQ(endpoint->RequeueBufferByID(reinterpret_cast<void*>(IdOf(static_cast<std::size_t>(index)))), 0);
    }
    const int requeues = std::min(receives, sends);
    fake.WaitForCalls("ibv_post_send", sends + requeues);
    endpoint->DeInit();
    EXPECT_THAT(fake.ReceiveIds(), Each(testing::Le(receives == 0 ? 0 : IdOf(static_cast<std::size_t>(receives) - 1))));
    EXPECT_THAT(trace.At(2), IsEmpty());
    endpoint.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EachRegion, LvEndpointRefusal, testing::Range(1, 9));

// ---- the worker

TEST_F(LvEndpointFlow, AllReceivesArePostedBeforeTheFirstReadyMessage)
{
    Stream(3);
    EXPECT_THAT(Posts(fake.Calls()), ElementsAre("ibv_post_recv", "ibv_post_recv", "ibv_post_recv", "ibv_post_send",
                                                 "ibv_post_send", "ibv_post_send"));
    EXPECT_THAT(fake.ReceiveIds(), ElementsAre(IdOf(0), IdOf(1), IdOf(2)));
    EXPECT_THAT(fake.ReceiveLengths(), Each(kBlock));
}

TEST_F(LvEndpointFlow, TheReadyMessageIs60BytesWithBytes0And3Set)
{
    Stream(2);
    Bytes expected(60, 0);
    expected[0] = 1;
    expected[3] = 1;
    ASSERT_THAT(fake.Sent(), SizeIs(2));
    for (const auto& message : fake.Sent())
    {
        EXPECT_EQ(message.bytes, expected);
        EXPECT_EQ(message.flags, IBV_SEND_SIGNALED);
        EXPECT_EQ(message.opcode, IBV_WR_SEND);
    }
}

TEST_F(LvEndpointFlow, WithABufferCountOfZeroTheWorkerPostsNothingAndGetBufferBlocksUntilStop)
{
    Stream(0);
    fake.OnCall("ibv_destroy_qp", [this] { EXPECT_THAT(Posts(fake.Calls()), IsEmpty()); });
    int result = 0;
    std::thread consumer([&] {
        gevrdmaBuffer buffer{};
        result = endpoint->GetBuffer(&buffer);
    });
    fake.RaiseEvent(RDMA_CM_EVENT_DISCONNECTED);
    consumer.join();
    EXPECT_EQ(result, -1004);
    endpoint->DeInit();
}

TEST_F(LvEndpointFlow, AReturnedBlockCostsOneReceiveAndThenOneReadyMessage)
{
    Stream(2);
    fake.DeliverFrame(Bytes(kBlock, 7));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    fake.ForgetCalls();
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    fake.WaitForCalls("ibv_post_send", 1);
    EXPECT_THAT(Posts(fake.Calls()), ElementsAre("ibv_post_recv", "ibv_post_send"));
    EXPECT_EQ(fake.ReceiveIds().back(), IdOf(0));
}

TEST_F(LvEndpointFlow, AReadyMessageWaitsUntilAnEarlierOneHasCompleted)
{
    fake.completesSends = false;
    Stream(1);
    fake.DeliverFrame(Bytes(kBlock, 7));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    endpoint->HandOver(buffer.id);
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0);
    EXPECT_EQ(fake.Count("ibv_post_recv"), 1);
    fake.CompleteSend();
    fake.WaitForCalls("ibv_post_send", 2);
    EXPECT_EQ(fake.Count("ibv_post_recv"), 2);
}

TEST_F(LvEndpointFlow, StopDuringTheWaitForAFreeSendDropsTheDescriptorAlreadyTaken)
{
    const long threads = LivingThreads();
    fake.completesSends = false;
    Stream(1);
    fake.DeliverFrame(Bytes(kBlock, 7));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    endpoint->HandOver(buffer.id);
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0);
    LvEndpointAccess::Stop(*endpoint);
    while (LivingThreads() > threads + 1)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(fake.Count("ibv_post_recv"), 1) << "worker and event thread have ended, nothing was posted";
    endpoint->DeInit();
}

/// How many blocks are made; the queue pair holds 100 work requests in each direction.
class LvEndpointCount : public LvEndpointFlow, public testing::WithParamInterface<std::uint32_t>
{
};

TEST_P(LvEndpointCount, EveryReceiveAndThenEveryReadyMessageIsPostedAndWhatTheQueuePairRefusesIsLostSilently)
{
    const std::uint32_t count = GetParam();
    const std::uint32_t taken = std::min<std::uint32_t>(count, 100);
    fake.completesSends = false;
    Stream(count);
    Texts expected(count, "ibv_post_recv");
    expected.insert(expected.end(), count, "ibv_post_send");
    EXPECT_EQ(Posts(fake.Calls()), expected);
    std::vector<std::uint64_t> ids;
    for (std::uint32_t index = 0; index < count; ++index)
    {
        ids.push_back(IdOf(index));
    }
    EXPECT_EQ(fake.ReceiveIds(), ids);

    gevrdmaBuffer buffer{};
    for (std::uint32_t frame = 0; frame < taken; ++frame)
    {
        fake.DeliverFrame(Bytes(kBlock, 7));
        ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
        EXPECT_EQ(buffer.id, LvEndpointAccess::Receive(*endpoint, frame));
    }
    if (count > 0)
    {
        fake.CompleteSend();
        fake.ForgetCalls();
        EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
        fake.WaitForCalls("ibv_post_send", 1);
        EXPECT_THAT(Posts(fake.Calls()), ElementsAre("ibv_post_recv", "ibv_post_send"));
    }
    EXPECT_FALSE(LvEndpointAccess::Stopped(*endpoint));
    EXPECT_THAT(trace.At(2), IsEmpty());
    EXPECT_THAT(trace.At(8), IsEmpty());
    endpoint.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Blocks, LvEndpointCount, testing::Values(0, 1, 2, 99, 100, 101, 500));

TEST_F(LvEndpointFlow, BlocksReturnedTogetherCostOneReceiveAndOneReadyMessageEachReceiveFirst)
{
    Stream(3);
    for (int frame = 0; frame < 3; ++frame)
    {
        fake.DeliverFrame(Bytes(kBlock, 7));
    }
    fake.ForgetCalls();
    for (int frame = 0; frame < 3; ++frame)
    {
        gevrdmaBuffer buffer{};
        ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
        endpoint->HandOver(buffer.id);
        EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0);
    }
    fake.WaitForCalls("ibv_post_send", 3);
    EXPECT_THAT(Posts(fake.Calls()), ElementsAre("ibv_post_recv", "ibv_post_send", "ibv_post_recv", "ibv_post_send",
                                                 "ibv_post_recv", "ibv_post_send"));
}

TEST_F(LvEndpointFlow, ARefusedWorkerThreadIsRaisedWithItsText)
{
    Connect();
    Register(1);
    nq::test::RefuseThreads();
    std::string text;
    try
    {
        endpoint->StartWorkerThread();
    }
    catch (const std::runtime_error& error)
    {
        text = error.what();
    }
    EXPECT_EQ(text, "Failed to create worker thread: [11]");
}

// ---- completions

TEST_F(LvEndpointFlow, AFrameIsHandedOnByItsPointers)
{
    Stream(2);
    Bytes frame(kBlock, 0);
    frame[0] = 0x47;
    frame[kBlock - 1] = 0x99;
    fake.DeliverFrame(frame);
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    EXPECT_EQ(buffer.id, LvEndpointAccess::Receive(*endpoint, 0));
    EXPECT_EQ(buffer.data, LvEndpointAccess::Receive(*endpoint, 0)->addr);
    EXPECT_EQ(buffer.size, kBlock);
    EXPECT_EQ(buffer.received, kBlock);
    EXPECT_EQ(buffer.data[0], 0x47);
    EXPECT_EQ(buffer.data[kBlock - 1], 0x99);
}

TEST_F(LvEndpointFlow, AFrameShorterThanItsBlockCompletesNormallyWithReceivedBelowSize)
{
    Stream(1);
    fake.DeliverFrame(Bytes(300, 1));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    EXPECT_EQ(buffer.size, kBlock);
    EXPECT_EQ(buffer.received, 300U);
    EXPECT_FALSE(LvEndpointAccess::Stopped(*endpoint));
}

TEST_F(LvEndpointFlow, AFrameLongerThanItsBlockIsAFailedCompletionAndEndsTheFlow)
{
    Stream(2);
    fake.RaiseCompletion(IdOf(0), IBV_WC_LOC_LEN_ERR, IBV_WC_RECV, kBlock + 1);
    gevrdmaBuffer buffer{};
    EXPECT_EQ(endpoint->GetBuffer(&buffer), -1004);
    EXPECT_EQ(buffer.id, nullptr);
    EXPECT_EQ(LvEndpointAccess::Receive(*endpoint, 0)->received, 0U);
    EXPECT_TRUE(LvEndpointAccess::Stopped(*endpoint));
}

TEST_F(LvEndpointFlow, FramesComeInTheOrderOfTheirArrival)
{
    Stream(3);
    for (unsigned char value = 1; value <= 3; ++value)
    {
        fake.DeliverFrame(Bytes(kBlock, value));
    }
    for (unsigned char value = 1; value <= 3; ++value)
    {
        gevrdmaBuffer buffer{};
        ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
        EXPECT_EQ(buffer.data[0], value);
    }
}

TEST_F(LvEndpointFlow, EachCompletionEventIsAcknowledgedAndTheQueueArmedBeforeTheDrain)
{
    Stream(0);
    fake.ForgetCalls();
    fake.RaiseCompletion(0, IBV_WC_SUCCESS, IBV_WC_RDMA_WRITE, 0);
    fake.WaitForCalls("ibv_poll_cq", 2);
    EXPECT_THAT(fake.Calls(), ElementsAre("ibv_get_cq_event", "ibv_ack_cq_events", "ibv_req_notify_cq", "ibv_poll_cq",
                                          "ibv_poll_cq"));
}

TEST_F(LvEndpointFlow, SignalsThatInterruptTheThreadsChangeNothing)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Stream(1);
    const auto interruptAll = [] {
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        {
            tgkill(getpid(), std::stoi(task.path().filename()), SIGUSR1);
        }
    };
    gevrdmaBuffer frame{};
    for (int round = 0; round < 20; ++round)
    {
        interruptAll();
        fake.DeliverFrame(Bytes(kBlock, 1));
        ASSERT_EQ(endpoint->GetBuffer(&frame), 0);
        interruptAll();
        ASSERT_EQ(endpoint->RequeueBuffer(&frame), 0);
    }
    EXPECT_FALSE(LvEndpointAccess::Stopped(*endpoint));
    endpoint->DeInit();
}

TEST_F(LvEndpointFlow, ACompletionOfAnotherKindDoesNothing)
{
    Stream(1);
    ibv_wc completion{};
    completion.status = IBV_WC_SUCCESS;
    completion.opcode = IBV_WC_RDMA_READ;
    EXPECT_EQ(endpoint->On_completion(&completion), 0);
    EXPECT_FALSE(LvEndpointAccess::Stopped(*endpoint));
}

TEST_F(LvEndpointFlow, AFailedCompletionEndsAllFlowWithoutALookAtItsIdAndWithoutALine)
{
    Stream(1);
    fake.RaiseCompletion(0xDEAD, IBV_WC_REM_OP_ERR, IBV_WC_RECV, 10);
    gevrdmaBuffer buffer{};
    EXPECT_EQ(endpoint->GetBuffer(&buffer), -1004);
    EXPECT_TRUE(LvEndpointAccess::Stopped(*endpoint));
    EXPECT_TRUE(LvEndpointAccess::Connected(*endpoint));
    EXPECT_THAT(trace.At(2), IsEmpty());
    EXPECT_THAT(trace.At(8), IsEmpty());
}

TEST_F(LvEndpointFlow, AFailedPollOfTheQueueEndsTheFlow)
{
    Stream(0);
    fake.Fail("ibv_poll_cq", EIO, 1);
    fake.RaiseCompletion(0, IBV_WC_SUCCESS, IBV_WC_RDMA_WRITE, 0);
    gevrdmaBuffer buffer{};
    EXPECT_EQ(endpoint->GetBuffer(&buffer), -1004);
    EXPECT_TRUE(LvEndpointAccess::Stopped(*endpoint));
}

TEST_F(LvEndpointFlow, AFailedReadOfTheChannelEndsTheCompletionThreadAndTeardownStillEnds)
{
    const long threads = LivingThreads();
    fake.Fail("ibv_get_cq_event", EIO, 1);
    Stream(2);
    fake.WaitForCalls("ibv_get_cq_event", 1);
    endpoint->DeInit();
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(fake.Count("ibv_get_cq_event"), 1);
}

TEST_F(LvEndpointFlow, AFailedArmingEndsTheCompletionThreadAndTeardownStillEnds)
{
    const long threads = LivingThreads();
    fake.Fail("ibv_req_notify_cq", EIO, 2);
    Stream(2);
    fake.WaitForCalls("ibv_req_notify_cq", 2);
    endpoint->DeInit();
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(fake.Count("ibv_poll_cq"), 0);
}

// ---- the consumer's calls

TEST_F(LvEndpointFlow, GetBufferBeforeInitAndAfterDeInitReturnsNotConnectedWithoutBlocking)
{
    gevrdmaBuffer buffer{};
    EXPECT_EQ(endpoint->GetBuffer(&buffer), -1003);
    Stream(1);
    endpoint->DeInit();
    EXPECT_EQ(endpoint->GetBuffer(&buffer), -1003);
    EXPECT_EQ(buffer.id, nullptr);
}

TEST_F(LvEndpointFlow, AStopWinsOverAFrameThatArrivedInTheSameWake)
{
    Stream(1);
    LvEndpointAccess::Stop(*endpoint);
    ibv_wc completion{};
    completion.status = IBV_WC_SUCCESS;
    completion.opcode = IBV_WC_RECV;
    completion.wr_id = IdOf(0);
    completion.byte_len = 10;
    ASSERT_EQ(endpoint->On_completion(&completion), 0);
    gevrdmaBuffer buffer{};
    EXPECT_EQ(endpoint->GetBuffer(&buffer), -1004);
    EXPECT_EQ(buffer.id, nullptr);
}

TEST_F(LvEndpointFlow, StoppingEndsEachWaitingThreadAtItsNextDeadline)
{
    Stream(1);
    std::vector<int> results(3, 0);
    std::vector<std::thread> consumers;
    for (int& result : results)
    {
        consumers.emplace_back([this, &result] {
            gevrdmaBuffer buffer{};
            result = endpoint->GetBuffer(&buffer);
        });
    }
    LvEndpointAccess::Stop(*endpoint);
    for (std::thread& consumer : consumers)
    {
        consumer.join();
    }
    EXPECT_THAT(results, Each(-1004));
}

} // namespace
