// SPDX-License-Identifier: Apache-2.0
// Steps of the RDMA connection that fail, links that break and teardowns that are refused: what the consumer sees, that
// nothing is left, and that the next acquisition works.
#include "support/fake_logger.h"
#include "support/stream_consumer.h"
#include "support/temporary_folder.h"

#include <gmock/gmock.h>

namespace
{

using nq::test::Consumer;
using nq::test::ExpectAWholeRun;
using nq::test::Holdings;
using nq::test::Idle;
using nq::test::Ids;
using nq::test::LoopbackControl;
using nq::test::ProducerTrace;
using nq::test::Settled;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

/// The lines of the library at the levels for failures and for expected conditions.
Texts Failures(ProducerTrace& trace)
{
    Texts lines = trace.Take();
    std::erase_if(lines, [](const std::string& line) {
        const bool failure = line.starts_with("NQGenTL 2 ") || line.starts_with("NQGenTL 8 ");
        return !failure || line.find(" GetAccessStatus ") != std::string::npos; // the heartbeat asks at any time
    });
    return lines;
}

/// A fault of the software RDMA, under a name.
struct Fault
{
    const char* name;
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Fault& fault)
{
    return out << fault.text;
}

std::string NameOf(const testing::TestParamInfo<Fault>& fault)
{
    return fault.param.name;
}

/// One consumer with three buffers on a camera that streams, and the software RDMA to spoil it.
class StreamConnection : public testing::TestWithParam<Fault>
{
  protected:
    StreamConnection() { consumer.AnnounceAndQueue(3); }

    const VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    const LoopbackControl loopback{};
};

class StreamConnectionStep : public StreamConnection
{
};

TEST_P(StreamConnectionStep, FailsTheStartWithOneLineAndTheNextStartWorks)
{
    const Holdings idle = Idle(consumer);
    ProducerTrace trace(consumer.gentl);
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        trace.Take();
        ASSERT_EQ(loopback.fail(GetParam().text), 0);
        EXPECT_EQ(consumer.Start(), -1001);
        loopback.clear();
        loopback.link(1);
        EXPECT_THAT(Failures(trace),
                    ElementsAre("NQGenTL 2 DoStartAcquisition ENTER", "NQGenTL 2 Init GC_ERR_ERROR Failed ",
                                "NQGenTL 2 DoStartAcquisition m_pRdma->ConnectR Failed   CamAddr: 10.77.0.2",
                                "NQGenTL 2 StartAcquisition DoStartAcquisition Failed! ret:-1001",
                                "NQGenTL 2 DSStartAcquisition Failed:-1001"));
        EXPECT_EQ(Settled(idle), idle);
        EXPECT_LE(loopback.Objects().protection_domains, 1);
        EXPECT_EQ(consumer.Stop(), -1004);
    }
    ExpectAWholeRun(consumer);
    EXPECT_EQ(Settled(idle), idle);
}

const Fault kFailingSteps[] = {{"CreateEventChannel", "rdma_create_event_channel:1:ENODEV"},
                               {"CreateId", "rdma_create_id:1:ENOMEM"},
                               {"ResolveAddr", "rdma_resolve_addr:1:ENETUNREACH"},
                               {"FirstEventUnread", "rdma_get_cm_event:1:EIO"},
                               {"FirstEventOther", "rdma_get_cm_event:1:event=RDMA_CM_EVENT_ADDR_ERROR"},
                               {"AllocPd", "ibv_alloc_pd:1:ENOMEM"},
                               {"CreateCompChannel", "ibv_create_comp_channel:1:EMFILE"},
                               {"CreateCq", "ibv_create_cq:1:EINVAL"},
                               {"ReqNotify", "ibv_req_notify_cq:1:EIO"},
                               {"CreateQp", "rdma_create_qp:1:ENOSPC"},
                               {"ResolveRoute", "rdma_resolve_route:1:EINVAL"},
                               {"SecondEventUnread", "rdma_get_cm_event:2:EIO"},
                               {"SecondEventOther", "rdma_get_cm_event:2:event=RDMA_CM_EVENT_ROUTE_ERROR"},
                               {"Connect", "rdma_connect:1:ECONNREFUSED"},
                               {"ThirdEventUnread", "rdma_get_cm_event:3:EIO"},
                               {"Refused", "rdma_get_cm_event:3:event=RDMA_CM_EVENT_REJECTED"},
                               {"Unanswered", "rdma_get_cm_event:3:event=RDMA_CM_EVENT_UNREACHABLE"},
                               {"ConnectError", "rdma_get_cm_event:3:event=RDMA_CM_EVENT_CONNECT_ERROR"},
                               {"DisconnectedDuringSetup", "rdma_get_cm_event:3:event=RDMA_CM_EVENT_DISCONNECTED"},
                               {"DeviceGone", "rdma_get_cm_event:3:event=RDMA_CM_EVENT_DEVICE_REMOVAL"},
                               {"LinkDown", "rdma_resolve_route:1:link=down"}};

INSTANTIATE_TEST_SUITE_P(Each, StreamConnectionStep, testing::ValuesIn(kFailingSteps), NameOf);

/// A link that breaks at one call of the acquisition.
class StreamConnectionBreak : public StreamConnection
{
};

TEST_P(StreamConnectionBreak, LeavesNothingAndTheNextStartWorks)
{
    const Holdings idle = Idle(consumer);
    consumer.QueueAll();
    ASSERT_EQ(loopback.fail((std::string(GetParam().text) + ":link=break").c_str()), 0);
    const int started = consumer.Start();
    EXPECT_THAT(started, testing::AnyOf(0, -1001));
    if (started == 0)
    {
        while (const GenTL::BUFFER_HANDLE buffer = consumer.Next(200))
        {
            ASSERT_TRUE(consumer.ShowsItsFrame(buffer));
            ASSERT_LT(consumer.FrameId(buffer), 100000U) << "the stream goes on";
            if (consumer.FrameId(buffer) > 20)
            {
                break;
            }
            EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
        }
        EXPECT_EQ(consumer.Stop(), 0);
    }
    loopback.clear();
    EXPECT_EQ(Settled(idle), idle);
    ExpectAWholeRun(consumer);
}

const Fault kBreaks[] = {{"Connecting", "rdma_get_cm_event:3"},
                         {"Registering", "ibv_reg_mr:1"},
                         {"RegisteringTheLast", "ibv_reg_mr:6"},
                         {"PostingReceives", "ibv_post_recv:1"},
                         {"PostingTheLastReceive", "ibv_post_recv:3"},
                         {"SendingReadyMessages", "ibv_post_send:1"},
                         {"SendingTheLastReadyMessage", "ibv_post_send:3"},
                         {"ReturningABlock", "ibv_post_recv:5"},
                         {"ReturningABlocksReadyMessage", "ibv_post_send:5"},
                         {"Completing", "ibv_poll_cq:4"},
                         {"Disconnecting", "rdma_disconnect:1"},
                         {"DestroyingTheQueuePair", "ibv_destroy_qp:1"},
                         {"DestroyingTheId", "rdma_destroy_id:1"}};

INSTANTIATE_TEST_SUITE_P(At, StreamConnectionBreak, testing::ValuesIn(kBreaks), NameOf);

/// A call of the completion thread that fails: the flow ends, the consumer is told nothing.
class StreamCompletionFailure : public StreamConnection
{
};

TEST_P(StreamCompletionFailure, EndsTheFlowAndTheNextStartWorks)
{
    const Holdings idle = Idle(consumer);
    consumer.QueueAll();
    ASSERT_EQ(loopback.fail(GetParam().text), 0);
    ASSERT_EQ(consumer.Start(), 0);
    while (const GenTL::BUFFER_HANDLE buffer = consumer.Next(1000))
    {
        ASSERT_TRUE(consumer.ShowsItsFrame(buffer));
        ASSERT_LT(consumer.FrameId(buffer), 100U) << "the stream goes on";
        EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(consumer.Start(), -1004) << "to the consumer the stream still runs";
    loopback.clear();
    EXPECT_EQ(consumer.Stop(), 0);
    EXPECT_EQ(Settled(idle), idle);
    ExpectAWholeRun(consumer);
}

const Fault kCompletionFailures[] = {
    {"GetEvent", "ibv_get_cq_event:2:EIO"}, {"Arming", "ibv_req_notify_cq:3:EIO"}, {"Polling", "ibv_poll_cq:5:EIO"}};

INSTANTIATE_TEST_SUITE_P(Of, StreamCompletionFailure, testing::ValuesIn(kCompletionFailures), NameOf);

/// A call of the teardown that is refused, and the lines that tell of it and of what cannot go because of it.
struct RefusedTeardown
{
    const char* name;
    const char* fault;
    Texts lines;
    int lostIds = 0;
};

std::ostream& operator<<(std::ostream& out, const RefusedTeardown& refused)
{
    return out << refused.name;
}

class StreamTeardown : public testing::TestWithParam<RefusedTeardown>
{
};

TEST_P(StreamTeardown, IsLoggedCarriedOnAndMadeUpForByTheNextStart)
{
    const VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    const LoopbackControl loopback{};
    const Holdings idle = Idle(consumer);
    consumer.QueueAll();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
    ASSERT_EQ(loopback.fail(GetParam().fault), 0);
    ProducerTrace trace(consumer.gentl);
    EXPECT_EQ(consumer.Stop(), 0);
    Texts lines = Failures(trace);
    std::erase_if(lines, [](const std::string& line) { return line.find(" DeInit ") == std::string::npos; });
    EXPECT_EQ(lines, GetParam().lines);
    loopback.clear();
    ExpectAWholeRun(consumer);
    if (GetParam().lostIds == 0)
    {
        EXPECT_EQ(Settled(idle), idle);
    }
    EXPECT_EQ(loopback.Objects().cm_ids, GetParam().lostIds);
    EXPECT_EQ(loopback.Objects().protection_domains, 1);
}

const char* const kQueuePairStays = "NQGenTL 8 DeInit ibv_destroy_qp Failed ";
const char* const kQueueStays = "NQGenTL 8 DeInit ibv_destroy_cq Failed ";
const char* const kChannelStays = "NQGenTL 2 DeInit GC_ERR_ERROR Exit ibv_destroy_comp_channel";
const char* const kIdStays = "NQGenTL 8 DeInit GC_ERR_ERROR rdma_destroy_id m_cm_id_connection Failed";

const RefusedTeardown kRefusedTeardowns[] = {
    {"Disconnect", "rdma_disconnect:1:EINVAL", {}},
    {"QueuePair", "ibv_destroy_qp:1:EBUSY", {kQueuePairStays, kQueueStays, kChannelStays}},
    {"CompletionQueue", "ibv_destroy_cq:1:EBUSY", {kQueueStays, kChannelStays}},
    {"CompletionChannel", "ibv_destroy_comp_channel:1:EBUSY", {kChannelStays}},
    {"Region", "ibv_dereg_mr:1:EBUSY", {}},
    // An id that is not destroyed is forgotten; nothing tries again.
    {"Id", "rdma_destroy_id:1:EBUSY", {kIdStays}, 1}};

INSTANTIATE_TEST_SUITE_P(Of, StreamTeardown, testing::ValuesIn(kRefusedTeardowns),
                         [](const auto& refused) { return refused.param.name; });

TEST(StreamAddress, AHostThatNobodyReachesByRdmaFailsTheStart)
{
    const VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    // The camera answers on its control channel; this process looks for RDMA listeners elsewhere.
    const nq::test::TemporaryFolder nobody;
    setenv("NQ_RDMA_LOOPBACK_DIR", nobody.Path().c_str(), 1);
    consumer.AnnounceAndQueue(3);
    const long threads = nq::test::LivingThreads();
    EXPECT_EQ(consumer.Start(), -1001);
    const Holdings idle = Holdings::Now();
    EXPECT_EQ(idle.threads, threads + 1) << "that of the software RDMA";
    EXPECT_EQ(consumer.Start(), -1001);
    EXPECT_EQ(Settled(idle), idle);
    EXPECT_EQ(consumer.Stop(), -1004);
    setenv("NQ_RDMA_LOOPBACK_DIR", nq::test::RdmaFolder().c_str(), 1);
}

TEST(StreamAddress, AHostThatListensOnAnotherPortRefusesAndTheNextStartWorks)
{
    const VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    const Holdings idle = Idle(consumer);
    // What the camera's listener is known by, given another port for a while.
    std::vector<std::filesystem::path> listeners(std::filesystem::directory_iterator(nq::test::RdmaFolder()), {});
    std::erase_if(listeners, [](const auto& path) { return !path.filename().string().starts_with("4791_"); });
    ASSERT_EQ(listeners.size(), 1U);
    std::filesystem::path moved = listeners[0];
    moved.replace_filename("4792" + listeners[0].filename().string().substr(4));
    std::filesystem::rename(listeners[0], moved);
    EXPECT_EQ(consumer.Start(), -1001);
    EXPECT_EQ(Settled(idle), idle);
    std::filesystem::rename(moved, listeners[0]);
    ExpectAWholeRun(consumer);
}

TEST(StreamConnectTime, AConnectionThatTakesHalfASecondToBeMadeWorks)
{
    setenv("NQ_RDMA_LOOPBACK_CONNECT_MS", "170", 1); // The camera inherits it.
    const VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    const Holdings idle = Idle(consumer);
    ExpectAWholeRun(consumer);
    ExpectAWholeRun(consumer);
    EXPECT_EQ(Settled(idle), idle);
    nq::test::ExpectNoSendWaited();
}

} // namespace
