// SPDX-License-Identifier: Apache-2.0
// A connection that another thread takes down while it is made: the wait for the camera ends, and nothing is left.
#include "support/endpoint_flow_fixture.h"

#include <gmock/gmock.h>
#include <ostream>
#include <stdexcept>
#include <thread>

using nq::test::Descriptors;
using nq::test::EndpointFlowFixture;
using nq::test::LivingThreads;
using nq::test::Texts;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace
{

struct Silence
{
    const char* name;
    int answers;          ///< That come before it.
    const char* lastCall; ///< That goes unanswered.
    Texts teardown;
};

std::ostream& operator<<(std::ostream& out, const Silence& silence)
{
    return out << silence.name;
}

class LvEndpointCancel : public EndpointFlowFixture
{
};

class LvEndpointSilence : public LvEndpointCancel, public testing::WithParamInterface<Silence>
{
};

TEST_P(LvEndpointSilence, IsEndedByATeardownOnAnotherThread)
{
    const long threads = LivingThreads();
    const long descriptors = Descriptors();
    fake.answers = GetParam().answers;
    bool connected = true;
    std::thread start([&] { connected = endpoint->Init(&address); });
    fake.WaitForCalls(GetParam().lastCall, 1);
    endpoint->DeInit();
    auto left = fake.LiveObjects();
    left.erase("protection domain");
    EXPECT_THAT(left, IsEmpty()) << "DeInit returns when the connection is down";
    start.join();

    EXPECT_FALSE(connected);
    EXPECT_THAT(trace.At(2), ElementsAre("Init GC_ERR_ERROR Failed "));
    const Texts calls = fake.Calls();
    Texts teardown;
    for (const std::string& call : calls)
    {
        if (call == "rdma_disconnect" || call.find("destroy") != std::string::npos)
        {
            teardown.push_back(call);
        }
    }
    EXPECT_EQ(teardown, GetParam().teardown) << "each object goes once";
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
    endpoint.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

const Texts kQueuePair = {"rdma_disconnect",          "ibv_destroy_qp",  "ibv_destroy_cq",
                          "ibv_destroy_comp_channel", "rdma_destroy_id", "rdma_destroy_event_channel"};

const Silence kSilences[] = {{"Address", 0, "rdma_resolve_addr", {"rdma_destroy_id", "rdma_destroy_event_channel"}},
                             {"Route", 1, "rdma_resolve_route", kQueuePair},
                             {"Connection", 2, "rdma_connect", kQueuePair}};

INSTANTIATE_TEST_SUITE_P(OfThe, LvEndpointSilence, testing::ValuesIn(kSilences),
                         [](const auto& silence) { return std::string(silence.param.name); });

TEST_F(LvEndpointCancel, AnAnswerThatComesLateStillConnects)
{
    fake.answers = 2;
    std::thread late([this] {
        fake.WaitForCalls("rdma_connect", 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));
        fake.RaiseEvent(RDMA_CM_EVENT_ESTABLISHED);
    });
    EXPECT_TRUE(endpoint->Init(&address));
    late.join();
    EXPECT_THAT(trace.At(2), IsEmpty());
}

TEST_F(LvEndpointCancel, AfterATeardownNothingIsMadeAnyMore)
{
    Connect();
    endpoint->DeInit();
    EXPECT_THROW(Register(2), std::runtime_error);
    EXPECT_THROW(endpoint->StartWorkerThread(), std::runtime_error);
    EXPECT_FALSE(endpoint->Init(&address)) << "an endpoint connects once";
    EXPECT_EQ(fake.Count("ibv_reg_mr"), 0);
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain"));
}

TEST_F(LvEndpointCancel, ATeardownBetweenRegistrationAndFlowLeavesNoRegionAndNoThread)
{
    const long threads = LivingThreads();
    Connect();
    Register(2);
    endpoint->DeInit();
    EXPECT_THROW(endpoint->StartWorkerThread(), std::runtime_error);
    EXPECT_EQ(LivingThreads(), threads);
    endpoint.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(LvEndpointCancel, ATeardownDuringRegistrationWaitsForItsEnd)
{
    Connect();
    std::thread teardown;
    fake.OnCall("ibv_reg_mr", [&] {
        teardown = std::thread([this] { endpoint->DeInit(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    });
    Register(2);
    teardown.join();
    EXPECT_EQ(fake.Count("ibv_reg_mr"), 4);
    EXPECT_EQ(fake.Count("ibv_dereg_mr"), 4);
    EXPECT_THAT(fake.LiveObjects(), UnorderedElementsAre("protection domain"));
}

} // namespace
