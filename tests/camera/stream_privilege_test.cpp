// SPDX-License-Identifier: Apache-2.0
// Who may have the camera's one stream connection, and for how long.
#include "camera/plain_rdma_host.h"
#include "camera/raw_host.h"

#include <gtest/gtest.h>
#include <thread>

using namespace nq::test;

namespace
{

constexpr std::size_t kFrame = 176 + 64 * 48;
/// A second address of the test's host.
constexpr const char* kOtherAddress = "10.77.0.3";

class CameraStreamPrivilege : public testing::Test
{
  protected:
    void AddOtherAddress() const { Shell(std::string("ip address add ") + kOtherAddress + "/24 dev host0"); }

    bool WaitForStatus(const std::string& text) const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < end)
        {
            if (m_camera.Control(R"({"cmd":"status"})").find(text) != std::string::npos)
            {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    /// Asks for a connection, time and again, until it is established; false when it never is.
    static bool ConnectsAtLast()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < end)
        {
            if (PlainRdmaHost(kFrame).Connect() == RDMA_CM_EVENT_ESTABLISHED)
            {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    const VirtualCamera m_camera{{"--width", "64", "--height", "48", "--heartbeat", "60000"}};
};

} // namespace

TEST_F(CameraStreamPrivilege, WithoutControlNobodyConnects)
{
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    EXPECT_TRUE(WaitForStatus(R"("connections_rejected":1,)"));
}

TEST_F(CameraStreamPrivilege, StrangerGetsNoFramesThatTheHolderStarted)
{
    AddOtherAddress();
    const RawHost holder(kOtherAddress);
    holder.TakeControl();
    EXPECT_EQ(holder.Write(1, 0xE030, 0x80000000), 0U);
    PlainRdmaHost stranger(kFrame);
    EXPECT_EQ(stranger.Connect(), RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(holder.Read(0xE030), 0x80000000U);
}

TEST_F(CameraStreamPrivilege, ConnectionGoesWithThePrivilegeFromHostToHost)
{
    AddOtherAddress();
    const RawHost first;
    const RawHost second(kOtherAddress);
    first.TakeControl();
    PlainRdmaHost host(kFrame);
    ASSERT_EQ(host.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_EQ(first.Write(1, 0x0A00, 0), 0U);
    EXPECT_EQ(host.NextEvent(), RDMA_CM_EVENT_DISCONNECTED);
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    second.TakeControl();
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(second.Write(2, 0x0A00, 0), 0U);
    EXPECT_EQ(first.Write(3, 0x0A00, 1), 0U); // exclusive access
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_ESTABLISHED);
}

TEST_F(CameraStreamPrivilege, NobodyConnectsWhilePrivilegeIsTaken)
{
    m_camera.Fault("privilege-taken");
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
}

TEST_F(CameraStreamPrivilege, RequestThatIsNeverEstablishedIsGivenUp)
{
    const RawHost holder;
    holder.TakeControl();
    PlainRdmaHost mute(kFrame);
    mute.Request();
    ASSERT_TRUE(WaitForStatus(R"("connections_accepted":1,)"));
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    EXPECT_TRUE(ConnectsAtLast());
}

TEST_F(CameraStreamPrivilege, RequestThatWaitsForItsAcceptGivesWayToTheNextOne)
{
    const RawHost holder;
    holder.TakeControl();
    m_camera.Fault("slow-accept:60000:1");
    PlainRdmaHost first(kFrame);
    first.Request();
    ASSERT_TRUE(WaitForStatus(R"("slow-accept":{"armed":false,"strikes":1})"));
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_EQ(first.NextEvent(), RDMA_CM_EVENT_REJECTED);
}

TEST_F(CameraStreamPrivilege, HostWhoseConfirmationTakesSixSecondsIsWaitedFor)
{
    const RawHost holder;
    holder.TakeControl();
    // Of this program alone: the camera has begun without it, so that request and reply take no time.
    setenv("NQ_RDMA_LOOPBACK_CONNECT_MS", "6000", 1);
    PlainRdmaHost slow(kFrame);
    EXPECT_EQ(slow.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_TRUE(WaitForStatus(R"("connected":true,)"));
    EXPECT_EQ(slow.NextEvent(std::chrono::milliseconds(100)), -1);
}

TEST_F(CameraStreamPrivilege, RequestThatIsNeverEstablishedDoesNotSurviveAReboot)
{
    const RawHost holder;
    holder.TakeControl();
    PlainRdmaHost mute(kFrame);
    mute.Request();
    ASSERT_TRUE(WaitForStatus(R"("connections_accepted":1,)"));
    m_camera.Fault("reboot:0");
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(holder.Write(1, 0x0A00, 2), 0U);
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_ESTABLISHED);
}

TEST_F(CameraStreamPrivilege, RequestThatWaitsForItsAcceptanceEndsWithControl)
{
    m_camera.Fault("slow-accept:600000");
    const RawHost holder;
    holder.TakeControl();
    PlainRdmaHost host(kFrame);
    host.Request();
    ASSERT_TRUE(WaitForStatus(R"("slow-accept":{"armed":true,"strikes":1})"));
    EXPECT_EQ(holder.Write(1, 0x0A00, 0), 0U);
    EXPECT_EQ(host.NextEvent(), RDMA_CM_EVENT_REJECTED);
    m_camera.Control(R"({"cmd":"clear"})");
    EXPECT_EQ(holder.Write(2, 0x0A00, 2), 0U);
    EXPECT_TRUE(ConnectsAtLast());
}
