// SPDX-License-Identifier: Apache-2.0
// Giving frame blocks back: when, by whom, and which of them reach the queue pair.
#include "rdma/lvEndPoint.h"

#include "support/endpoint_flow_fixture.h"

using nq::test::Bytes;
using nq::test::kBlock;
using nq::test::Posts;
using nq::test::Texts;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class LvEndpointRequeue : public nq::test::EndpointFlowFixture
{
};

// Deliberate(RequeueNamesAnotherFailure)
TEST_F(LvEndpointRequeue, ARequeueBeforeInitReturnsNotConnectedAndOneBeforeRegistrationPostsNothing)
{
    msg_buffer_mem early{};
    gevrdmaBuffer buffer{};
    buffer.id = &early;
    EXPECT_EQ(endpoint->RequeueBufferByID(&early), -1003);
    EXPECT_THAT(trace.At(8), ElementsAre("RequeueBufferByID GC_ERR_ERROR connection not established "));
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), -1003);
    EXPECT_THAT(trace.At(8), SizeIs(1));
    Connect();
    EXPECT_EQ(endpoint->RequeueBufferByID(&early), 0);
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    Register(1);
    endpoint->StartWorkerThread();
    fake.WaitForSent(1);
    EXPECT_THAT(fake.ReceiveIds(), ElementsAre(IdOf(0)));
}

TEST_F(LvEndpointRequeue, ARequeueAfterDeInitReturnsNotConnectedAndPostsNothing)
{
    Stream(1);
    fake.DeliverFrame(Bytes(kBlock, 7));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    endpoint->DeInit();
    const auto posted = fake.ReceiveIds().size();
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), -1003);
    Texts lines = trace.At(8);
    std::erase(lines, "On_cm_event RDMA_CM_EVENT_DISCONNECTED ");
    EXPECT_THAT(lines, IsEmpty()) << "a requeue by handle is silent";
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), -1003);
    EXPECT_TRUE(trace.Has(8, "RequeueBufferByID GC_ERR_ERROR connection not established "));
    EXPECT_EQ(fake.ReceiveIds().size(), posted);
}

TEST_F(LvEndpointRequeue, AnIdThatIsNotOfThisEndpointNeverReachesAPost)
{
    Stream(2);
    gevrdmaBuffer taken{};
    for (int frame = 0; frame < 2; ++frame)
    {
        fake.DeliverFrame(Bytes(kBlock, 7));
        ASSERT_EQ(endpoint->GetBuffer(&taken), 0);
        endpoint->HandOver(taken.id);
    }
    fake.ForgetCalls();
    msg_buffer_mem foreign{};
    endpoint->HandOver(&foreign);
    endpoint->HandOver(nullptr);
    gevrdmaBuffer buffer{};
    buffer.id = &foreign;
    EXPECT_EQ(endpoint->RequeueBufferByID(&foreign), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(nullptr), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(LvEndpointAccess::Send(*endpoint, 0)), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(reinterpret_cast<void*>(IdOf(0) + 8)), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(reinterpret_cast<void*>(IdOf(2))), 0);
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(LvEndpointAccess::Receive(*endpoint, 1)), 0);
    fake.WaitForCalls("ibv_post_send", 1);
    EXPECT_THAT(Posts(fake.Calls()), ElementsAre("ibv_post_recv", "ibv_post_send"));
}

TEST_F(LvEndpointRequeue, ABlockThatIsNotWithTheConsumerIsNotPostedASecondTime)
{
    Stream(2);
    EXPECT_EQ(endpoint->RequeueBufferByID(LvEndpointAccess::Receive(*endpoint, 0)), 0) << "it is posted already";
    fake.DeliverFrame(Bytes(kBlock, 7));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0);
    fake.WaitForSent(3);
    fake.DeliverFrame(Bytes(kBlock, 8)); // in the other block
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    fake.WaitForSent(4);
    EXPECT_THAT(fake.ReceiveIds(), ElementsAre(IdOf(0), IdOf(1), IdOf(0), IdOf(1)));
}

TEST_F(LvEndpointRequeue, ABlockThatIsBeingDecodedOrDeliveredIsNotGivenBackByItsId)
{
    Stream(2);
    fake.WaitForSent(2);
    fake.DeliverFrame(Bytes(kBlock, 7));
    gevrdmaBuffer buffer{};
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0) << "no error: its buffer gets the frame";
    endpoint->HandOver(LvEndpointAccess::Receive(*endpoint, 1)); // the camera's still: nothing to hand over
    EXPECT_EQ(endpoint->RequeueBufferByID(LvEndpointAccess::Receive(*endpoint, 1)), 0);
    endpoint->HandOver(buffer.id);
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0);
    endpoint->HandOver(buffer.id); // given back meanwhile
    EXPECT_EQ(endpoint->RequeueBufferByID(buffer.id), 0);
    fake.DeliverFrame(Bytes(kBlock, 8));
    ASSERT_EQ(endpoint->GetBuffer(&buffer), 0);
    EXPECT_EQ(endpoint->RequeueBuffer(&buffer), 0);
    fake.WaitForSent(4);
    EXPECT_THAT(fake.ReceiveIds(), ElementsAre(IdOf(0), IdOf(1), IdOf(0), IdOf(1)));
}

} // namespace
