// SPDX-License-Identifier: Apache-2.0
// The endpoint's connection against a scripted device: setup, every failing step, events, and the order of teardown.
#include "rdma/lvEndPoint.h"

#include "support/endpoint_access.h"
#include "support/fake_verbs_symbols.h"
#include "support/trace_capture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <ostream>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>

using nq::test::CameraAddress;
using nq::test::Descriptors;
using nq::test::FakeVerbs;
using nq::test::LivingThreads;
using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using Texts = std::vector<std::string>;

namespace
{

Texts Without(Texts calls, const std::set<std::string>& left)
{
    std::erase_if(calls, [&](const std::string& call) { return left.contains(call); });
    return calls;
}

/// Calls that the endpoint's own threads make at any time.
const std::set<std::string> kThreadCalls = {"ibv_get_cq_event", "ibv_ack_cq_events", "ibv_req_notify_cq",
                                            "ibv_poll_cq",      "rdma_get_cm_event", "rdma_ack_cm_event"};

void StartStreaming(LvEndpoint& endpoint, std::uint32_t buffers)
{
    const sockaddr_in address = CameraAddress();
    ASSERT_TRUE(endpoint.Init(&address));
    gevrdmaBufferSettings settings{};
    settings.payloadSize = 1024;
    settings.bufferCount = buffers;
    endpoint.SetBufferSettings(settings);
    endpoint.AllocateAndRegisterMemory();
    endpoint.StartWorkerThread();
}

class LvEndpointConnection : public testing::Test
{
  protected:
    ~LvEndpointConnection() override
    {
        EXPECT_THAT(fake.Violations(), IsEmpty());
        nq::test::AllowThreads();
    }

    TraceCapture trace;
    FakeVerbs fake;
    sockaddr_in address = CameraAddress();
};

TEST_F(LvEndpointConnection, InitGoesThroughTheConnectionManagerInOrder)
{
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    EXPECT_THAT(Without(fake.Calls(), {}),
                ElementsAre("rdma_create_event_channel", "rdma_create_id", "rdma_resolve_addr", "rdma_get_cm_event",
                            "ibv_alloc_pd", "ibv_create_comp_channel", "ibv_create_cq", "ibv_req_notify_cq",
                            "rdma_create_qp", "rdma_resolve_route", "rdma_ack_cm_event", "rdma_get_cm_event",
                            "rdma_connect", "rdma_ack_cm_event", "rdma_get_cm_event", "rdma_ack_cm_event"));
    EXPECT_THAT(trace.At(2), IsEmpty());
}

TEST_F(LvEndpointConnection, TheObjectsOfTheConnectionHaveTheirFixedValues)
{
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    EXPECT_EQ(fake.portSpace, RDMA_PS_TCP);
    EXPECT_EQ(fake.resolvedAddress.sin_addr.s_addr, address.sin_addr.s_addr);
    EXPECT_EQ(fake.resolvedAddress.sin_port, htons(4791));
    EXPECT_FALSE(fake.resolveHadSource);
    EXPECT_EQ(fake.resolveAddressTimeout, 500);
    EXPECT_EQ(fake.resolveRouteTimeout, 20000);
    EXPECT_EQ(fake.cqEntries, 500);
    EXPECT_FALSE(fake.cqHadContext);
    EXPECT_EQ(fake.cqVector, 0);
    EXPECT_EQ(fake.qpAttributes.qp_context, nullptr);
    EXPECT_EQ(fake.qpAttributes.srq, nullptr);
    EXPECT_NE(fake.qpAttributes.send_cq, nullptr);
    EXPECT_EQ(fake.qpAttributes.send_cq, fake.qpAttributes.recv_cq);
    EXPECT_EQ(fake.qpAttributes.qp_type, IBV_QPT_RC);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_sge, 1U);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_sge, 1U);
    EXPECT_EQ(fake.qpAttributes.cap.max_inline_data, 0U);
    EXPECT_EQ(fake.qpAttributes.sq_sig_all, 0);
}

// Deliberate(ParametersAreDropped)
TEST_F(LvEndpointConnection, BuildParamsHasNoEffectOnWhatConnectSends)
{
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    EXPECT_FALSE(fake.connectHadParameters);
}

TEST_F(LvEndpointConnection, BuildParamsFillsTheRecordAndLeavesTheRest)
{
    rdma_conn_param params{};
    params.srq = 7;
    params.qp_num = 0xABCDEF;
    build_params(&params);
    ASSERT_NE(params.private_data, nullptr);
    EXPECT_EQ(params.private_data_len, 24);
    EXPECT_EQ(std::memcmp(params.private_data, "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 24), 0);
    EXPECT_EQ(params.responder_resources, 1);
    EXPECT_EQ(params.initiator_depth, 3);
    EXPECT_EQ(params.flow_control, 0);
    EXPECT_EQ(params.retry_count, 10);
    EXPECT_EQ(params.rnr_retry_count, 7);
    EXPECT_EQ(params.srq, 7);
    EXPECT_EQ(params.qp_num, 0xABCDEFU);
}

// Deliberate(RandomNumberUsedUp)
TEST_F(LvEndpointConnection, BuildParamsUsesUpOneRandomNumber)
{
    std::srand(1);
    std::rand();
    const int second = std::rand();
    std::srand(1);
    rdma_conn_param params{};
    build_params(&params);
    EXPECT_EQ(std::rand(), second);
}

// ---- failing steps

struct FailingStep
{
    const char* name;
    std::function<void(FakeVerbs&)> provoke;
    const char* text;
    Texts teardown;
};

/// What a failure leaves to undo, by how far the connection had come.
const Texts kNothing = {};
const Texts kChannel = {"rdma_destroy_event_channel"};
const Texts kId = {"rdma_destroy_id", "rdma_destroy_event_channel"};
const Texts kCompletionChannel = {"ibv_destroy_comp_channel", "rdma_destroy_id", "rdma_destroy_event_channel"};
const Texts kCompletionQueue = {"ibv_destroy_cq", "ibv_destroy_comp_channel", "rdma_destroy_id",
                                "rdma_destroy_event_channel"};
const Texts kQueuePair = {"rdma_disconnect",          "ibv_destroy_qp",  "ibv_destroy_cq",
                          "ibv_destroy_comp_channel", "rdma_destroy_id", "rdma_destroy_event_channel"};

std::ostream& operator<<(std::ostream& out, const FailingStep& step)
{
    return out << step.name;
}

class LvEndpointFailure : public LvEndpointConnection, public testing::WithParamInterface<FailingStep>
{
};

TEST_P(LvEndpointFailure, IsRaisedWithItsText)
{
    GetParam().provoke(fake);
    LvEndpoint endpoint;
    std::string text;
    try
    {
        LvEndpointAccess::Connect(endpoint, address);
    }
    catch (const std::runtime_error& error)
    {
        text = error.what();
    }
    EXPECT_EQ(text, GetParam().text);
    endpoint.DeInit();
}

TEST_P(LvEndpointFailure, IsUndoneInTheOrderOfTeardown)
{
    GetParam().provoke(fake);
    LvEndpoint endpoint;
    EXPECT_THROW(LvEndpointAccess::Connect(endpoint, address), std::runtime_error);
    fake.ForgetCalls();
    endpoint.DeInit();
    EXPECT_EQ(Without(fake.Calls(), kThreadCalls), GetParam().teardown);
}

TEST_P(LvEndpointFailure, MakesInitReturnFalseWithOneLogLineAndNothingLeft)
{
    const long descriptors = Descriptors();
    const long threads = LivingThreads();
    GetParam().provoke(fake);
    {
        LvEndpoint endpoint;
        EXPECT_FALSE(endpoint.Init(&address));
        EXPECT_THAT(trace.At(2), ElementsAre("Init GC_ERR_ERROR Failed "));
        EXPECT_THAT(trace.At(8), IsEmpty());
        EXPECT_FALSE(LvEndpointAccess::Connected(endpoint));
        EXPECT_EQ(Descriptors(), descriptors);
        EXPECT_EQ(LivingThreads(), threads);
        auto left = fake.LiveObjects();
        left.erase("protection domain");
        EXPECT_THAT(left, IsEmpty()) << "only the domain may wait for the destructor";

        fake.ForgetCalls();
        endpoint.DeInit();
        EXPECT_THAT(fake.Calls(), IsEmpty()) << "nothing is left to undo";
    }
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

const FailingStep kFailingSteps[] = {
    {"CreateEventChannel", [](FakeVerbs& fake) { fake.Fail("rdma_create_event_channel", ENODEV); },
     "Error rdma_create_event_channel(): [No such device]", kNothing},
    {"CreateId", [](FakeVerbs& fake) { fake.Fail("rdma_create_id", ENOMEM); },
     "Error rdma_create_id(): [Cannot allocate memory]", kChannel},
    {"ResolveAddr", [](FakeVerbs& fake) { fake.Fail("rdma_resolve_addr", ENETUNREACH); },
     "Error rdma_resolve_addr(): [Network is unreachable]", kId},
    {"FirstEventUnread", [](FakeVerbs& fake) { fake.Fail("rdma_get_cm_event", EIO, 1); },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ADDR_RESOLVED], received [no event], Result: [-1]", kId},
    {"FirstEventOther", [](FakeVerbs& fake) { fake.addressAnswer = RDMA_CM_EVENT_ADDR_ERROR; },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ADDR_RESOLVED], received [RDMA_CM_EVENT_ADDR_ERROR], Result: [0]",
     kId},
    {"AllocPd", [](FakeVerbs& fake) { fake.Fail("ibv_alloc_pd", ENOMEM); }, "ibv_alloc_pd(): [Cannot allocate memory]",
     kId},
    {"CreateCompChannel", [](FakeVerbs& fake) { fake.Fail("ibv_create_comp_channel", EMFILE); },
     "ibv_create_comp_channel(): [Too many open files]", kId},
    {"CreateCq", [](FakeVerbs& fake) { fake.Fail("ibv_create_cq", EINVAL); }, "ibv_create_cq(): [Invalid argument]",
     kCompletionChannel},
    {"ReqNotify", [](FakeVerbs& fake) { fake.Fail("ibv_req_notify_cq", EIO); },
     "ibv_req_notify_cq(): [Input/output error]", kCompletionQueue},
    {"CreateQp", [](FakeVerbs& fake) { fake.Fail("rdma_create_qp", ENOSPC); },
     "rdma_create_qp(): [No space left on device], Result: [-1]", kCompletionQueue},
    {"ResolveRoute", [](FakeVerbs& fake) { fake.Fail("rdma_resolve_route", EINVAL); },
     "rdma_resolve_route(): [Invalid argument], Result: [-1]", kQueuePair},
    {"SecondEventUnread", [](FakeVerbs& fake) { fake.Fail("rdma_get_cm_event", EIO, 2); },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ROUTE_RESOLVED], received [no event], Result: [-1]", kQueuePair},
    {"SecondEventOther", [](FakeVerbs& fake) { fake.routeAnswer = RDMA_CM_EVENT_ROUTE_ERROR; },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ROUTE_RESOLVED], received [RDMA_CM_EVENT_ROUTE_ERROR], Result: [0]",
     kQueuePair},
    {"Connect", [](FakeVerbs& fake) { fake.Fail("rdma_connect", ECONNREFUSED); },
     "rdma_connect(): [Connection refused], Result: [-1]", kQueuePair},
    {"ThirdEventUnread", [](FakeVerbs& fake) { fake.Fail("rdma_get_cm_event", EIO, 3); },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ESTABLISHED], received [no event], Result: [-1]", kQueuePair},
    {"CameraRefuses", [](FakeVerbs& fake) { fake.connectAnswer = RDMA_CM_EVENT_REJECTED; },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ESTABLISHED], received [RDMA_CM_EVENT_REJECTED], Result: [0]",
     kQueuePair},
    {"CameraNeverAnswers", [](FakeVerbs& fake) { fake.connectAnswer = RDMA_CM_EVENT_UNREACHABLE; },
     "rdma_get_cm_event(): Expected [RDMA_CM_EVENT_ESTABLISHED], received [RDMA_CM_EVENT_UNREACHABLE], Result: [0]",
     kQueuePair},
    {"CompletionThread", [](FakeVerbs& fake) { fake.OnCall("ibv_req_notify_cq", nq::test::RefuseThreads); },
     "Error pthread_create(): [11]", kCompletionQueue},
    {"EventThread", [](FakeVerbs& fake) { fake.OnCall("rdma_ack_cm_event", nq::test::RefuseThreads, 3); },
     "Error pthread_create(): [11]", kQueuePair}};

INSTANTIATE_TEST_SUITE_P(EachStep, LvEndpointFailure, testing::ValuesIn(kFailingSteps),
                         [](const auto& step) { return std::string(step.param.name); });

class LvEndpointSignal : public LvEndpointConnection, public testing::WithParamInterface<int>
{
};

TEST_P(LvEndpointSignal, ThatInterruptsTheWaitForAnEventChangesNothing)
{
    fake.Fail("rdma_get_cm_event", EINTR, GetParam());
    LvEndpoint endpoint;
    EXPECT_TRUE(endpoint.Init(&address));
    EXPECT_THAT(trace.At(2), IsEmpty());
    EXPECT_EQ(fake.Count("rdma_get_cm_event"), 4) << "three events and the one that did not come";
}

INSTANTIATE_TEST_SUITE_P(BeforeEvent, LvEndpointSignal, testing::Values(1, 2, 3));

TEST_F(LvEndpointConnection, AProcessWithoutDescriptorsLeftFailsInitCleanly)
{
    fake.OnCall("ibv_req_notify_cq", [] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &limit);
    });
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    LvEndpoint endpoint;
    EXPECT_FALSE(endpoint.Init(&address));
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_THAT(trace.At(2), ElementsAre("Init GC_ERR_ERROR Failed "));
}

// Deliberate(FirstEventStays)
TEST_F(LvEndpointConnection, AMismatchOfTheFirstEventIsAcknowledgedOnlyByTeardown)
{
    fake.addressAnswer = RDMA_CM_EVENT_ADDR_ERROR;
    LvEndpoint endpoint;
    EXPECT_THROW(LvEndpointAccess::Connect(endpoint, address), std::runtime_error);
    EXPECT_EQ(fake.Count("rdma_ack_cm_event"), 0);
    fake.ForgetCalls();
    endpoint.DeInit();
    EXPECT_THAT(fake.Calls(), ElementsAre("rdma_ack_cm_event", "rdma_destroy_id", "rdma_destroy_event_channel"));
}

TEST_F(LvEndpointConnection, AMismatchOfALaterEventIsAcknowledgedAtOnce)
{
    fake.connectAnswer = RDMA_CM_EVENT_REJECTED;
    LvEndpoint endpoint;
    EXPECT_THROW(LvEndpointAccess::Connect(endpoint, address), std::runtime_error);
    EXPECT_EQ(fake.Count("rdma_ack_cm_event"), 3);
    endpoint.DeInit();
    EXPECT_EQ(fake.Count("rdma_ack_cm_event"), 3);
}

// ---- events

TEST_F(LvEndpointConnection, ADisconnectFromTheCameraStopsTheFlowAndLeavesTheObjectConnected)
{
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    fake.RaiseEvent(RDMA_CM_EVENT_DISCONNECTED);
    gevrdmaBuffer buffer{};
    EXPECT_EQ(endpoint.GetBuffer(&buffer), -1004);
    EXPECT_TRUE(LvEndpointAccess::Stopped(endpoint));
    EXPECT_TRUE(LvEndpointAccess::Connected(endpoint));
    endpoint.DeInit();
    EXPECT_TRUE(trace.Has(8, "On_cm_event RDMA_CM_EVENT_DISCONNECTED "));
    EXPECT_FALSE(LvEndpointAccess::Connected(endpoint));
}

TEST_F(LvEndpointConnection, AnotherEventAfterSetupIsAcknowledgedAndIgnored)
{
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    fake.RaiseEvent(RDMA_CM_EVENT_TIMEWAIT_EXIT);
    fake.WaitForCalls("rdma_ack_cm_event", 4);
    EXPECT_FALSE(LvEndpointAccess::Stopped(endpoint));
    EXPECT_THAT(trace.At(8), IsEmpty());
}

TEST_F(LvEndpointConnection, AFailedReadOfAnEventIsPrintedAndTheLoopGoesOn)
{
    fake.Fail("rdma_get_cm_event", EIO, 4);
    testing::internal::CaptureStderr();
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    fake.RaiseEvent(RDMA_CM_EVENT_TIMEWAIT_EXIT);
    fake.WaitForCalls("rdma_ack_cm_event", 4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cm_event_loop(): rdma_get_cm_event failed.: Input/output error\n");
}

TEST_F(LvEndpointConnection, AChannelThatCannotBeMadeNonBlockingIsReadUntilAReadFails)
{
    testing::internal::CaptureStderr();
    LvEndpoint endpoint;
    fake.OnCall(
        "rdma_ack_cm_event", [this] { fake.ShowEventChannelAs(1000); }, 3);
    fake.Fail("rdma_get_cm_event", EBADF, 4);
    ASSERT_TRUE(endpoint.Init(&address));
    fake.WaitForCalls("rdma_get_cm_event", 4);
    endpoint.DeInit();
    EXPECT_EQ(fake.Count("rdma_get_cm_event"), 4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LvEndpointConnection, AnErrorOnTheChannelIsNoEventAndTheLoopStillEnds)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    close(pipe[1]); // the other end now shows POLLHUP, which never passes
    fake.OnCall(
        "rdma_ack_cm_event", [&] { fake.ShowEventChannelAs(pipe[0]); }, 3);
    testing::internal::CaptureStderr();
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    endpoint.DeInit();
    EXPECT_EQ(fake.Count("rdma_get_cm_event"), 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    close(pipe[0]);
}

// ---- teardown

TEST_F(LvEndpointConnection, DeInitGoesInItsOrder)
{
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    fake.WaitForCalls("ibv_post_send", 2);
    fake.ForgetCalls();
    endpoint.DeInit();
    EXPECT_THAT(Without(fake.Calls(), kThreadCalls),
                ElementsAre("rdma_disconnect", "ibv_post_recv", "ibv_destroy_qp", "ibv_destroy_cq",
                            "ibv_destroy_comp_channel", "ibv_dereg_mr", "ibv_dereg_mr", "ibv_dereg_mr", "ibv_dereg_mr",
                            "rdma_destroy_id", "rdma_destroy_event_channel"));
    EXPECT_EQ(fake.ReceiveIds().back(), reinterpret_cast<std::uint64_t>(LvEndpointAccess::Receive(endpoint, 0)));
    EXPECT_EQ(LvEndpointAccess::Blocks(endpoint), 2U) << "the frame memory stays";
    EXPECT_EQ(LvEndpointAccess::Send(endpoint, 0)->addr, nullptr);
    EXPECT_FALSE(LvEndpointAccess::Connected(endpoint));
    EXPECT_TRUE(LvEndpointAccess::Stopped(endpoint)) << "the flushed completion raised the flag";
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain"));
}

TEST_F(LvEndpointConnection, DeInitOnAHealthyConnectionEndsAllThreeThreads)
{
    const long threads = LivingThreads();
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    EXPECT_EQ(LivingThreads(), threads + 3);
    endpoint.DeInit();
    EXPECT_EQ(LivingThreads(), threads);
}

TEST_F(LvEndpointConnection, DeInitEndsTheThreadsEvenIfNothingIsEverFlushed)
{
    const long threads = LivingThreads();
    fake.flushes = false;
    fake.Fail("rdma_disconnect", EINVAL);
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    endpoint.DeInit();
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain"));
}

TEST_F(LvEndpointConnection, DeInitWaitsAWhileForAFlushThatComesLate)
{
    fake.Fail("rdma_disconnect", EINVAL); // so that nothing comes by itself, not even the event
    LvEndpoint endpoint;
    StartStreaming(endpoint, 1);
    fake.WaitForCalls("ibv_poll_cq", 2);
    std::thread flush;
    fake.OnCall(
        "ibv_post_recv",
        [&] {
            flush = std::thread([this] {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                fake.RaiseCompletion(0, IBV_WC_WR_FLUSH_ERR, IBV_WC_RECV, 0);
            });
        },
        2);
    endpoint.DeInit();
    flush.join();
    EXPECT_TRUE(LvEndpointAccess::Stopped(endpoint));
    EXPECT_EQ(fake.Count("ibv_get_cq_event"), 2) << "the ready message, then the flush";
}

TEST_F(LvEndpointConnection, ItsOwnDescriptorMayBeNumberZeroAndIsClosedOnExec)
{
    const int standardInput = dup(0);
    fake.OnCall("ibv_req_notify_cq", [] { close(0); });
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    EXPECT_EQ(fcntl(0, F_GETFD), FD_CLOEXEC);
    endpoint.DeInit();
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "it ended the completion thread, and is gone";
    dup2(standardInput, 0);
    close(standardInput);
}

TEST_F(LvEndpointConnection, DeInitOfAConnectionWithoutBlocksPostsNothing)
{
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    fake.ForgetCalls();
    endpoint.DeInit();
    EXPECT_THAT(Without(fake.Calls(), kThreadCalls),
                ElementsAre("rdma_disconnect", "ibv_destroy_qp", "ibv_destroy_cq", "ibv_destroy_comp_channel",
                            "rdma_destroy_id", "rdma_destroy_event_channel"));
}

TEST_F(LvEndpointConnection, EveryFailingDestroyIsLoggedAndTeardownCarriesOn)
{
    for (const char* function : {"ibv_destroy_qp", "ibv_destroy_cq", "ibv_destroy_comp_channel", "rdma_destroy_id"})
    {
        fake.Fail(function, EBUSY);
    }
    LvEndpoint endpoint;
    ASSERT_TRUE(endpoint.Init(&address));
    endpoint.DeInit();
    Texts expected = trace.At(8);
    std::erase(expected, "On_cm_event RDMA_CM_EVENT_DISCONNECTED ");
    EXPECT_THAT(expected, ElementsAre("DeInit ibv_destroy_qp Failed ", "DeInit ibv_destroy_cq Failed ",
                                      "DeInit GC_ERR_ERROR rdma_destroy_id m_cm_id_connection Failed"));
    EXPECT_THAT(trace.At(2), ElementsAre("DeInit GC_ERR_ERROR Exit ibv_destroy_comp_channel"));
    EXPECT_EQ(fake.Count("rdma_destroy_event_channel"), 1);
    EXPECT_FALSE(LvEndpointAccess::Connected(endpoint));

    endpoint.DeInit();
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain")) << "what stayed is tried again";
    EXPECT_EQ(fake.Count("rdma_destroy_id"), 1);
}

TEST_F(LvEndpointConnection, ARegionThatCannotGoIsTriedAgainByTheNextTeardown)
{
    fake.Fail("ibv_dereg_mr", EBUSY, 2);
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    endpoint.DeInit();
    EXPECT_EQ(fake.Count("ibv_dereg_mr"), 4);
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain", "region"));
    endpoint.DeInit();
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain"));
}

// Deliberate(UndestroyedIdIsForgotten)
TEST_F(LvEndpointConnection, AListenerIsDestroyedBehindTheConnectionAndForgottenEvenIfThatFails)
{
    for (const int nth : {2, 4})
    {
        LvEndpoint endpoint;
        ASSERT_TRUE(endpoint.Init(&address));
        rdma_cm_id* listener = nullptr;
        ASSERT_EQ(rdma_create_id(nullptr, &listener, nullptr, RDMA_PS_TCP), 0);
        LvEndpointAccess::SetListener(endpoint, listener);
        if (nth == 4)
        {
            fake.Fail("rdma_destroy_id", EBUSY, nth);
        }
        endpoint.DeInit();
        EXPECT_EQ(fake.Count("rdma_destroy_id"), nth);
        endpoint.DeInit();
        EXPECT_EQ(fake.Count("rdma_destroy_id"), nth);
        EXPECT_EQ(fake.Calls().back(), "rdma_destroy_event_channel");
        EXPECT_EQ(trace.Has(8, "DeInit GC_ERR_ERROR rdma_destroy_id m_cm_id_listener Failed"), nth == 4);
    }
    EXPECT_FALSE(trace.Has(8, "DeInit GC_ERR_ERROR rdma_destroy_id m_cm_id_connection Failed"));
}

TEST_F(LvEndpointConnection, AProtectionDomainThatCannotGoIsLeftSilently)
{
    fake.Fail("ibv_dealloc_pd", EBUSY);
    {
        LvEndpoint endpoint;
        ASSERT_TRUE(endpoint.Init(&address));
    }
    EXPECT_EQ(fake.Count("ibv_dealloc_pd"), 1);
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain"));
    EXPECT_THAT(trace.At(2), IsEmpty());
}

TEST_F(LvEndpointConnection, DeInitASecondTimeDoesNothing)
{
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    endpoint.DeInit();
    fake.ForgetCalls();
    endpoint.DeInit();
    EXPECT_THAT(fake.Calls(), IsEmpty());
}

TEST_F(LvEndpointConnection, DeInitFromTwoThreadsAtOnceTearsDownOnce)
{
    LvEndpoint endpoint;
    StartStreaming(endpoint, 2);
    std::thread other([&] { endpoint.DeInit(); });
    endpoint.DeInit();
    EXPECT_FALSE(LvEndpointAccess::Connected(endpoint));
    other.join();
    EXPECT_EQ(fake.Count("rdma_disconnect"), 1);
    EXPECT_EQ(fake.Count("ibv_destroy_qp"), 1);
}

TEST_F(LvEndpointConnection, TheDestructorTearsDownAndGivesTheProtectionDomainBackLast)
{
    {
        LvEndpoint endpoint;
        StartStreaming(endpoint, 1);
        fake.WaitForCalls("ibv_post_send", 1);
        fake.ForgetCalls();
    }
    EXPECT_THAT(Without(fake.Calls(), kThreadCalls),
                ElementsAre("rdma_disconnect", "ibv_post_recv", "ibv_destroy_qp", "ibv_destroy_cq",
                            "ibv_destroy_comp_channel", "ibv_dereg_mr", "ibv_dereg_mr", "rdma_destroy_id",
                            "rdma_destroy_event_channel", "ibv_dealloc_pd"));
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(LvEndpointConnection, AnEndpointNeverConnectedMakesNoCall)
{
    {
        LvEndpoint endpoint;
        endpoint.DeInit();
    }
    EXPECT_THAT(fake.Calls(), IsEmpty());
}

} // namespace
