// SPDX-License-Identifier: Apache-2.0
// Register access of GigETL::Camera: every datagram that a scripted peer sees, and what follows from its answers.
#include "gige/gige_camera.h"
#include "support/gvcp_camera.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace
{

using GigETL::Camera;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using testing::ElementsAre;
using testing::SizeIs;
using namespace nq::test::gvcp;
using namespace std::chrono_literals;

constexpr unsigned int kLoopback = 0x7F000001;

/// The write of 0x11223344 to register 0xE030, with request id `id`.
Bytes Write(unsigned char id)
{
    return {0x42, 0x01, 0x00, 0x82, 0x00, 0x08, 0x00, id, 0x00, 0x00, 0xE0, 0x30, 0x11, 0x22, 0x33, 0x44};
}

/// The read of register 0xE030, with request id `id`.
Bytes Read(unsigned char id)
{
    return {0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, id, 0x00, 0x00, 0xE0, 0x30};
}

/// The answer to a read with this id and value.
Bytes ReadAnswer(unsigned char id, unsigned char value)
{
    return {0x00, 0x00, 0x00, 0x81, 0x00, 0x04, 0x00, id, 0x00, 0x00, 0x00, value};
}

class CameraRegister : public testing::Test
{
  protected:
    NQGigE_RETURN Set() { return m_camera.setGigECameraRegister(0xE030, 0x11223344); }
    NQGigE_RETURN Get() { return m_camera.getGigECameraRegister(0xE030, &m_value); }

    /// Has the datagram stand at the camera's socket before the next call.
    void Waiting(const Bytes& datagram)
    {
        m_peer.Send(datagram, "127.0.0.1", static_cast<std::uint16_t>(m_camera.getLocalPort()));
    }

    GvcpCamera m_peer;
    Camera m_camera{kLoopback, 3956, kLoopback, MULTICAST_OFF};
    unsigned int m_value = 0x55555555;
};

TEST_F(CameraRegister, WriteSendsOneDatagramAndTakesItsAcknowledge)
{
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1)));
    EXPECT_EQ(m_peer.GetRegister(0xE030), 0x11223344U);
}

TEST_F(CameraRegister, ReadStoresTheValueInHostOrder)
{
    m_peer.Next(Value(0x01020304));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 0x01020304U);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1)));
}

TEST_F(CameraRegister, SilentCameraGetsExactlyTwoWritesWithTheSameIdAndCosts600Ms)
{
    m_peer.Otherwise(Silent());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Set(), -212);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 600ms);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1), Write(1)));
}

TEST_F(CameraRegister, SilentCameraGetsExactlyTwoReadsWithTheSameId)
{
    m_peer.Otherwise(Silent());
    EXPECT_EQ(Get(), -212);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(1)));
}

TEST_F(CameraRegister, LostAnswerIsMadeUpForByOneResend)
{
    m_peer.Next(Silent());
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1), Write(1)));
}

TEST_F(CameraRegister, AnswerThatComesAfter200MsMeetsTheResend)
{
    m_peer.Next(Late(500ms, Value(6))); // of the 400 ms for which the resend, after 200 ms, is waited for
    m_peer.Next(Silent());
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 6U);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(1)));
}

TEST_F(CameraRegister, ResendOfAFreshAttemptRepeatsItsNewId)
{
    m_peer.Next(WrongId(Value(1)));
    m_peer.Next(Silent());
    m_peer.Next(Value(2));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 2U);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(2), Read(2)));
}

TEST_F(CameraRegister, WrongIdLeadsToThreeFurtherWritesEachWithANewId)
{
    m_peer.Otherwise(WrongId(Acknowledge()));
    EXPECT_EQ(Set(), -110);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1), Write(2), Write(3), Write(4)));
}

TEST_F(CameraRegister, WrongCodeLeadsToThreeFurtherReadsAndTheErrorValue)
{
    m_peer.Otherwise(WithCode(0x0083, Value(9)));
    EXPECT_EQ(Get(), -110);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(2), Read(3), Read(4)));
}

TEST_F(CameraRegister, FourthAttemptMaySucceed)
{
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        m_peer.Next(WrongId(Value(1)));
    }
    m_peer.Next(Value(0x44));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 0x44U);
}

TEST_F(CameraRegister, TimeoutOfALaterAttemptEndsTheCall)
{
    m_peer.Next(WrongId(Value(1)));
    m_peer.Otherwise(Silent());
    EXPECT_EQ(Get(), -212);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(2), Read(2)));
}

TEST_F(CameraRegister, OldAcknowledgeWithTheRightOneBehindItCostsOneAttempt)
{
    Waiting(ReadAnswer(0xFF, 1));
    Waiting(ReadAnswer(0x01, 2)); // drained with the stale one, so that the second attempt does not meet it
    m_peer.Next(Silent());
    m_peer.Next(Value(3));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 3U);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(2)));
}

TEST_F(CameraRegister, AtMostOneFurtherDatagramIsDrainedPerWrongAnswer)
{
    Waiting(ReadAnswer(0xFF, 1)); // fails the first attempt
    Waiting(ReadAnswer(0xFE, 1)); // drained
    Waiting(ReadAnswer(0xFD, 1)); // fails the second attempt
    m_peer.Next(Silent());
    m_peer.Next(Silent());
    m_peer.Next(Value(3));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 3U);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(2), Read(3)));
}

TEST_F(CameraRegister, DuplicateAnswerIsAStaleOneToTheNextCall)
{
    m_peer.Next(Value(1));
    ASSERT_EQ(Get(), 0);
    Waiting(ReadAnswer(0x01, 1));
    m_peer.Next(Silent());
    m_peer.Next(Value(3));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 3U);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1), Read(2), Read(3)));
}

TEST_F(CameraRegister, StatusOfTheCameraIsPassedUpWithNoRetry)
{
    m_peer.Otherwise(Acknowledge({0, 0, 0, 5}, 0x8006));
    EXPECT_EQ(Get(), 32774);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
    EXPECT_EQ(Set(), 32774);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(CameraRegister, HighestStatusIsPositive)
{
    m_peer.Otherwise(Acknowledge({}, 0xFFFF));
    EXPECT_EQ(Set(), 65535);
}

TEST_F(CameraRegister, PendingAcknowledgeHoldsTheCameraOpen)
{
    m_peer.Next(Sequence({Pending(5000), Late(700ms, Value(0x77))}));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 0x77U);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(CameraRegister, AcknowledgeWithoutAValueReadsZero)
{
    m_peer.Next(Short(8, Value(0x12345678)));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 0U);
}

TEST_F(CameraRegister, ValueOfAnEarlierWrongAnswerIsNotSeenBehindAShortOne)
{
    m_peer.Next(WrongId(Value(0x12345678)));
    m_peer.Next(Short(8, Value(0x12345678)));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 0U);
}

TEST_F(CameraRegister, DatagramShorterThanAHeaderIsABadAcknowledge)
{
    m_peer.Next(Short(7, Value(1)));
    m_peer.Next(Short(1, Value(1)));
    m_peer.Next(Literal({}));
    m_peer.Next(Value(5));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 5U);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(4));
}

TEST_F(CameraRegister, OversizedAcknowledgeCountsByItsHeader)
{
    m_peer.Next(Oversized(5000, Value(0x31)));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 0x31U);
}

TEST_F(CameraRegister, LengthFieldOfTheAnswerIsNotRead)
{
    m_peer.Next(Literal({0, 0, 0x00, 0x81, 0xFF, 0xFF, 0x00, 0x01, 0, 0, 0, 8}));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 8U);
}

TEST_F(CameraRegister, FailedSendEndsTheCallWithoutAResend)
{
    Camera unreachable(0x0A090002, 3956, 0, MULTICAST_OFF);
    EXPECT_EQ(unreachable.setGigECameraRegister(0xE030, 1), -212);
    EXPECT_EQ(unreachable.getGigECameraRegister(0xE030, &m_value), -212);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(0));
}

TEST_F(CameraRegister, BroadcastStateRefusesAndStoresTheErrorValueAndTakesNoId)
{
    Camera broadcast(0, 3956, kLoopback, MULTICAST_OFF);
    EXPECT_EQ(broadcast.getGigECameraRegister(0xE030, &m_value), -208);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
    EXPECT_EQ(broadcast.setGigECameraRegister(0xE030, 1), -208);
    EXPECT_EQ(GigETL::Command::getRequestID(), 0U);
    // The lock is free again.
    EXPECT_EQ(Set(), 0);
}

TEST_F(CameraRegister, TwoWritesHappenInOrderAndStopAtTheFirstFailure)
{
    EXPECT_EQ(m_camera.setGigECameraRegister(0x10, 1, 0x20, 2), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Bytes{0x42, 1, 0, 0x82, 0, 8, 0, 1, 0, 0, 0, 0x10, 0, 0, 0, 1},
                                                    Bytes{0x42, 1, 0, 0x82, 0, 8, 0, 2, 0, 0, 0, 0x20, 0, 0, 0, 2}));
    m_peer.Forget();
    m_peer.Next(Acknowledge({}, 0x8003));
    EXPECT_EQ(m_camera.setGigECameraRegister(0x10, 1, 0x20, 2), 0x8003);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
    m_peer.Next(Acknowledge());
    m_peer.Next(Acknowledge({}, 0x8004));
    EXPECT_EQ(m_camera.setGigECameraRegister(0x10, 1, 0x20, 2), 0x8004);
}

TEST_F(CameraRegister, TwoReadsStoreTheirValuesOnlyWhenBothSucceed)
{
    unsigned int first = 5;
    unsigned int second = 6;
    m_peer.Next(Value(0x11));
    m_peer.Next(Value(0x22));
    EXPECT_EQ(m_camera.getGigECameraRegister2(0x10, &first, 0x20, &second), 0);
    EXPECT_EQ(first, 0x11U);
    EXPECT_EQ(second, 0x22U);
    m_peer.Next(Value(0x11));
    m_peer.Next(Acknowledge({}, 0x8006));
    EXPECT_EQ(m_camera.getGigECameraRegister2(0x10, &first, 0x20, &second), 0x8006);
    EXPECT_EQ(first, 0U);
    EXPECT_EQ(second, 0U);
    m_peer.Forget();
    m_peer.Next(Acknowledge({}, 0x8002));
    EXPECT_EQ(m_camera.getGigECameraRegister2(0x10, &first, 0x20, &second), 0x8002);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(CameraRegister, UnlinkWritesZeroToStreamPortAndThenToStreamDestination)
{
    EXPECT_EQ(m_camera.processUnlink(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Bytes{0x42, 1, 0, 0x82, 0, 8, 0, 1, 0, 0, 0x0D, 0x00, 0, 0, 0, 0},
                                                    Bytes{0x42, 1, 0, 0x82, 0, 8, 0, 2, 0, 0, 0x0D, 0x18, 0, 0, 0, 0}));
    m_peer.Forget();
    m_peer.Next(Acknowledge({}, 0x8006));
    EXPECT_EQ(m_camera.processUnlink(), 0x8006);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(CameraRegister, IdentityComesFromAddressAndNetwork)
{
    EXPECT_EQ(m_camera.handle(), 0x7F000001UL + 3956UL);
    EXPECT_EQ(m_camera.getIP(), kLoopback);
    EXPECT_EQ(m_camera.getLocalIP(), kLoopback);
    EXPECT_NE(m_camera.getLocalPort(), 0U);
    EXPECT_NE(m_camera.getNetwork(), nullptr);
    EXPECT_EQ(m_camera.getControlConnection(), m_camera.getNetwork());
    EXPECT_FALSE(m_camera.isConnected());
    EXPECT_EQ(m_camera.isNetworkInterfaceValid(), 0);
    EXPECT_EQ(m_camera.isNetworkInterfaceValid2(), 0);
    EXPECT_EQ(m_camera.getInterfaceIP(), 0U);
    EXPECT_EQ(m_camera.getInterfaceSubnetMask(), 0U);
    EXPECT_EQ(m_camera.checkBuildNumber(12), 0);
}

TEST_F(CameraRegister, HandleIsA32BitSum)
{
    const Camera camera(0xFFFFFFFF, 3956, kLoopback, MULTICAST_OFF);
    EXPECT_EQ(camera.handle(), 3955UL);
}

TEST_F(CameraRegister, EveryModeOpensTheSameCamera)
{
    for (const MULTICAST_MODE mode : {MULTICAST_OFF, MULTICAST_LISTEN, MULTICAST_ON, MULTICAST_MODE{99}})
    {
        Camera camera(kLoopback, 3956, kLoopback, mode);
        EXPECT_EQ(camera.handle(), m_camera.handle());
        EXPECT_EQ(camera.setGigECameraRegister(0xE030, 1), 0);
    }
}

TEST_F(CameraRegister, ValidateAckGivesTheStatusOfAMatchingAnswer)
{
    GigETL::Command ack;
    ack.setDWord(0, 0x80060081);
    ack.setDWord(4, 0x00040123);
    EXPECT_EQ(Camera::validateAck(*m_camera.getNetwork(), ack, 0x0123, 0x0081), 0x8006);
    ack.setDWord(0, 0x00000081);
    EXPECT_EQ(Camera::validateAck(*m_camera.getNetwork(), ack, 0x0123, 0x0081), 0);
}

TEST_F(CameraRegister, ValidateAckRefusesEitherMismatch)
{
    GigETL::Command ack;
    ack.setDWord(0, 0x00000081);
    ack.setDWord(4, 0x00040123);
    EXPECT_EQ(Camera::validateAck(*m_camera.getNetwork(), ack, 0x0124, 0x0081), -110);
    EXPECT_EQ(Camera::validateAck(*m_camera.getNetwork(), ack, 0x0123, 0x0083), -110);
    EXPECT_EQ(Camera::validateAck(*m_camera.getNetwork(), ack, 0x10123, 0x0081), -110);
}

TEST_F(CameraRegister, ExchangesOfSeveralCamerasOnSeveralThreadsNeverMixTheirAnswers)
{
    GvcpCamera second(nullptr, "127.0.0.1", 3957);
    m_peer.Otherwise(Value(0x11));
    second.Otherwise(Value(0x22));
    Camera other(kLoopback, 3957, kLoopback, MULTICAST_OFF);
    std::atomic<int> failures{0};
    std::thread thread([&] {
        for (int round = 0; round < 200; ++round)
        {
            unsigned int value = 0;
            failures += other.getGigECameraRegister(0x0A00, &value) != 0 || value != 0x22 ? 1 : 0;
        }
    });
    for (int round = 0; round < 200; ++round)
    {
        failures += Get() != 0 || m_value != 0x11 ? 1 : 0;
    }
    thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(200));
    EXPECT_THAT(second.ReceivedBytes(), SizeIs(200));
}

} // namespace
