// SPDX-License-Identifier: Apache-2.0
// Memory access of GigETL::Camera against a scripted peer.
#include "gige/gige_camera.h"
#include "support/gvcp_camera.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <functional>
#include <numeric>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace
{

using GigETL::Camera;
using GigETL::Command;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;
using namespace nq::test::gvcp;

constexpr unsigned int kLoopback = 0x7F000001;

/// The read of `count` bytes at 0x00010200.
Bytes Read(unsigned char id, unsigned char countHigh, unsigned char countLow)
{
    return {0x42, 0x01, 0x00, 0x84, 0x00, 0x08, 0x00, id, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, countHigh, countLow};
}

/// The write of the bytes 1, 2, 3, 4 at 0x00010200.
Bytes Write(unsigned char id)
{
    return {0x42, 0x01, 0x00, 0x86, 0x00, 0x08, 0x00, id, 0x00, 0x01, 0x02, 0x00, 1, 2, 3, 4};
}

/// Waits on the thread of the test that are still to fail.
thread_local int failingWaits = 0;

} // namespace

/// Takes the place of the C library's function, so that single waits can be made to fail.
extern "C" int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t*)
{
    if (failingWaits > 0)
    {
        --failingWaits;
        errno = ENOMEM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_ppoll, entries, count, timeout, nullptr, 0));
}

namespace
{

class CameraMemory : public testing::Test
{
  protected:
    NQGigE_RETURN ReadBytes(unsigned int count)
    {
        m_data.assign(1024, 0xCC);
        return m_camera.readCameraMemory(0x00010200, m_data.data(), count);
    }

    NQGigE_RETURN WriteFour()
    {
        std::array<unsigned char, 4> data{1, 2, 3, 4};
        return m_camera.writeCameraMemory(0x00010200, data.data(), 4);
    }

    GvcpCamera m_peer;
    Camera m_camera{kLoopback, 3956, kLoopback, MULTICAST_OFF};
    Bytes m_data;
};

TEST_F(CameraMemory, ReadAsksForAddressAndCountAndCopiesTheData)
{
    m_peer.Next(Memory({9, 8, 7, 6}));
    EXPECT_EQ(ReadBytes(4), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0, 4)));
    m_data.resize(5);
    EXPECT_THAT(m_data, ElementsAre(9, 8, 7, 6, 0xCC));
}

TEST_F(CameraMemory, AnswerMayHoldMoreThanWasAskedFor)
{
    m_peer.Next(Memory({9, 8, 7, 6, 5, 4, 3, 2}));
    EXPECT_EQ(ReadBytes(4), 0);
    EXPECT_EQ(m_data[3], 6);
    EXPECT_EQ(m_data[4], 0xCC);
}

TEST_F(CameraMemory, AnswerOfThreeBytesForACountOfFourIsAWrongSize)
{
    m_peer.Next(Memory({9, 8, 7}));
    EXPECT_EQ(ReadBytes(4), -21);
    EXPECT_THAT(m_data, Each(0xCC));
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(CameraMemory, AnswerOfTheHeaderAloneIsAWrongSizeForEveryCount)
{
    m_peer.Otherwise(Acknowledge());
    EXPECT_EQ(ReadBytes(4), -21);
    EXPECT_EQ(ReadBytes(0), -21);
    EXPECT_EQ(ReadBytes(0xFFFFFFFF), -21);
}

TEST_F(CameraMemory, ReadOfZeroBytesIsSent)
{
    EXPECT_EQ(ReadBytes(0), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0, 0)));
    EXPECT_THAT(m_data, Each(0xCC));
}

TEST_F(CameraMemory, ReadDeliversAtMost536Bytes)
{
    Bytes data(536);
    std::iota(data.begin(), data.end(), static_cast<unsigned char>(0));
    m_peer.SetMemory(0x00010200, data);
    EXPECT_EQ(ReadBytes(536), 0);
    EXPECT_EQ(Bytes(m_data.begin(), m_data.begin() + 536), data);
    EXPECT_EQ(ReadBytes(537), -21);
    EXPECT_THAT(m_data, Each(0xCC));
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0x02, 0x18), Read(2, 0x02, 0x19)));
}

TEST_F(CameraMemory, CountOfAReadIsSentInItsLowerSixteenBits)
{
    EXPECT_EQ(ReadBytes(0x00030004), -21);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0, 4)));
}

TEST_F(CameraMemory, SilentCameraGetsExactlyTwoReadsWithTheSameId)
{
    m_peer.Otherwise(Silent());
    EXPECT_EQ(ReadBytes(4), -212);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0, 4), Read(1, 0, 4)));
    EXPECT_THAT(m_data, Each(0xCC));
}

TEST_F(CameraMemory, LostAnswerOfAReadIsMadeUpForByOneResend)
{
    m_peer.Next(Silent());
    EXPECT_EQ(ReadBytes(4), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(CameraMemory, ReadWithAWrongAnswerIsNotTriedAgain)
{
    m_peer.Otherwise(WrongId(Memory({1, 2, 3, 4})));
    EXPECT_EQ(ReadBytes(4), -110);
    m_peer.Otherwise(WithCode(0x0087, Memory({1, 2, 3, 4})));
    EXPECT_EQ(ReadBytes(4), -110);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0, 4), Read(2, 0, 4)));
    EXPECT_THAT(m_data, Each(0xCC));
}

TEST_F(CameraMemory, StatusOfTheCameraIsPassedUp)
{
    m_peer.Otherwise(Acknowledge({}, 0x8003));
    EXPECT_EQ(ReadBytes(4), 32771);
    EXPECT_EQ(WriteFour(), 32771);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(CameraMemory, WriteSendsAddressAndData)
{
    EXPECT_EQ(WriteFour(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1)));
    EXPECT_THAT(m_peer.GetMemory(0x00010200, 4), ElementsAre(1, 2, 3, 4));
}

TEST_F(CameraMemory, WriteOfFiveBytesIsPaddedWithThreeZeros)
{
    std::array<unsigned char, 5> data{1, 2, 3, 4, 5};
    EXPECT_EQ(m_camera.writeCameraMemory(0x00010200, data.data(), 5), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(),
                ElementsAre(Bytes{0x42, 1, 0, 0x86, 0, 0x0C, 0, 1, 0, 1, 2, 0, 1, 2, 3, 4, 5, 0, 0, 0}));
}

TEST_F(CameraMemory, WriteOfZeroBytesSendsTheAddressAlone)
{
    EXPECT_EQ(m_camera.writeCameraMemory(0x00010200, nullptr, 0), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Bytes{0x42, 1, 0, 0x86, 0, 4, 0, 1, 0, 1, 2, 0}));
}

TEST_F(CameraMemory, WriteOf520BytesIsSent)
{
    std::vector<unsigned char> data(520, 0x5A);
    EXPECT_EQ(m_camera.writeCameraMemory(0x00010200, data.data(), 520), 0);
    ASSERT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
    const Bytes sent = m_peer.ReceivedBytes()[0];
    ASSERT_THAT(sent, SizeIs(532));
    EXPECT_EQ(sent[4], 0x02);
    EXPECT_EQ(sent[5], 0x0C);
    EXPECT_EQ(sent[531], 0x5A);
}

TEST_F(CameraMemory, WriteOf521BytesIsAWrongSizeAndSendsNothing)
{
    std::vector<unsigned char> data(521);
    EXPECT_EQ(m_camera.writeCameraMemory(0x00010200, data.data(), 521), -21);
    EXPECT_EQ(m_camera.writeCameraMemory(0x00010200, data.data(), 0xFFFFFFFF), -21);
    EXPECT_EQ(Command::getRequestID(), 0U);
    EXPECT_EQ(WriteFour(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1)));
}

TEST_F(CameraMemory, SilentCameraGetsExactlyTwoWritesWithTheSameId)
{
    m_peer.Otherwise(Silent());
    EXPECT_EQ(WriteFour(), -212);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1), Write(1)));
}

TEST_F(CameraMemory, LostAnswerOfAWriteIsMadeUpForByOneResend)
{
    m_peer.Next(Silent());
    EXPECT_EQ(WriteFour(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1), Write(1)));
}

TEST_F(CameraMemory, WriteWithAWrongAnswerIsNotTriedAgain)
{
    m_peer.Otherwise(WrongId(Acknowledge()));
    EXPECT_EQ(WriteFour(), -110);
    m_peer.Otherwise(WithCode(0x0083, Acknowledge()));
    EXPECT_EQ(WriteFour(), -110);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1), Write(2)));
}

TEST_F(CameraMemory, PendingAcknowledgeExtendsBothAccesses)
{
    m_peer.Next(Sequence({Pending(5000), Late(std::chrono::milliseconds(250), Memory({4, 3, 2, 1}))}));
    EXPECT_EQ(ReadBytes(4), 0);
    m_peer.Next(Sequence({Pending(5000), Late(std::chrono::milliseconds(250), Acknowledge())}));
    EXPECT_EQ(WriteFour(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(CameraMemory, BroadcastStateRefusesAndUsesUpOneIdPerCall)
{
    Camera broadcast(0, 3956, kLoopback, MULTICAST_OFF);
    std::array<unsigned char, 4> data{};
    EXPECT_EQ(broadcast.writeCameraMemory(0, data.data(), 4), -208);
    EXPECT_EQ(Command::getRequestID(), 1U);
    EXPECT_EQ(broadcast.readCameraMemory(0, data.data(), 4), -208);
    EXPECT_EQ(Command::getRequestID(), 2U);
    // The lock is free again.
    EXPECT_EQ(WriteFour(), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(3)));
}

TEST_F(CameraMemory, FailedSendEndsTheCall)
{
    Camera unreachable(0x0A090002, 3956, 0, MULTICAST_OFF);
    std::array<unsigned char, 4> data{};
    EXPECT_EQ(unreachable.writeCameraMemory(0, data.data(), 4), -212);
    EXPECT_EQ(unreachable.readCameraMemory(0, data.data(), 4), -212);
}

/// An access whose first wait fails.
class FailedCameraMemoryWait : public CameraMemory
{
  protected:
    NQGigE_RETURN Run(const std::function<NQGigE_RETURN()>& access)
    {
        m_peer.Next(Silent());
        failingWaits = 1;
        const NQGigE_RETURN result = access();
        EXPECT_TRUE(m_peer.WaitForCount(1));
        return result;
    }
};

TEST_F(FailedCameraMemoryWait, ReadIsSentAgainAfterAFailedWaitToo)
{
    m_peer.Otherwise(Memory({9, 8, 7, 6}));
    EXPECT_EQ(Run([this] { return ReadBytes(4); }), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Read(1, 0, 4), Read(1, 0, 4)));
    EXPECT_EQ(m_data[0], 9);
}

TEST_F(FailedCameraMemoryWait, WriteIsNotSentAgainAfterAFailedWait)
{
    EXPECT_EQ(Run([this] { return WriteFour(); }), -10);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Write(1)));
}

TEST_F(FailedCameraMemoryWait, RegisterAccessIsNotSentAgainAfterAFailedWait)
{
    unsigned int value = 0;
    EXPECT_EQ(Run([this, &value] { return m_camera.getGigECameraRegister(0xE030, &value); }), -10);
    EXPECT_EQ(value, 0xFFFFFFFFU);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

} // namespace
