// SPDX-License-Identifier: Apache-2.0
// The image stream of the virtual camera, seen by a host of plain verbs.
#include "camera/plain_rdma_host.h"
#include "camera/raw_host.h"

#include <array>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <thread>

using namespace nq::test;
using testing::HasSubstr;

namespace
{

constexpr std::size_t kDescriptor = 176;
constexpr std::size_t kPixels = 64 * 48;
constexpr std::size_t kFrame = kDescriptor + kPixels;
constexpr std::chrono::milliseconds kAWhile{100};

/// A small camera under control of a raw host, with a connected stream host of four buffers.
class CameraStream : public testing::Test
{
  protected:
    void Start(std::vector<std::string> arguments = {}, bool enable = true)
    {
        arguments.insert(arguments.end(), {"--width", "64", "--height", "48"});
        Connect(arguments);
        if (enable)
        {
            Enable();
        }
    }

    void Connect(const std::vector<std::string>& arguments)
    {
        m_camera = std::make_unique<VirtualCamera>(arguments);
        m_control = std::make_unique<RawHost>();
        m_control->KeepControl();
        m_host = std::make_unique<PlainRdmaHost>(kFrame);
        ASSERT_EQ(m_host->Connect(), RDMA_CM_EVENT_ESTABLISHED) << m_camera->Process().Output();
    }

    void Enable() { ASSERT_EQ(m_control->Write(0x200, 0xE030, 0x80000000), 0U); }

    /// Polls the camera's status until it contains this text.
    bool WaitForStatus(const std::string& text) const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < end)
        {
            if (m_camera->Control(R"({"cmd":"status"})").find(text) != std::string::npos)
            {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    static void ExpectRamp(const ReceivedFrame& frame, std::uint64_t id)
    {
        ASSERT_TRUE(frame.good);
        ASSERT_EQ(frame.bytes.size(), kFrame);
        EXPECT_EQ(frame.Id(), id);
        for (std::size_t y = 0; y < 48; ++y)
        {
            for (std::size_t x = 0; x < 64; ++x)
            {
                ASSERT_EQ(frame.bytes[kDescriptor + y * 64 + x], (x + y + 7 * id) % 256);
            }
        }
    }

    std::unique_ptr<VirtualCamera> m_camera;
    std::unique_ptr<RawHost> m_control;
    std::unique_ptr<PlainRdmaHost> m_host;
};

} // namespace

TEST_F(CameraStream, EachCreditBringsOneFrame)
{
    Start();
    m_host->GrantAll();
    for (std::uint64_t id = 1; id <= 4; ++id)
    {
        ExpectRamp(m_host->NextFrame(), id);
    }
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    m_host->Return();
    ExpectRamp(m_host->NextFrame(), 5);
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
}

/// A frame a millisecond, and a picture that takes many to draw: the second is due before the first has left.
TEST_F(CameraStream, CreditsThatComeWhileAPictureIsDrawnAreThereForTheNext)
{
    constexpr std::size_t kLarge = kDescriptor + 640UL * 480;
    VirtualCamera camera({"--width", "640", "--height", "480", "--pattern", "Scene", "--fps", "1000"});
    RawHost control;
    control.KeepControl();
    PlainRdmaHost host(kLarge);
    ASSERT_EQ(host.Connect(), RDMA_CM_EVENT_ESTABLISHED) << camera.Process().Output();
    ASSERT_EQ(control.Write(0x200, 0xE030, 0x80000000), 0U);
    host.GrantAll();
    for (std::uint64_t id = 1; id <= 4; ++id)
    {
        const ReceivedFrame frame = host.NextFrame(std::chrono::seconds(60));
        ASSERT_TRUE(frame.good) << "instead of frame " << id;
        EXPECT_EQ(frame.Id(), id);
    }
}

TEST_F(CameraStream, HundredsOfFramesComeInOrderAndWhole)
{
    Start();
    m_host->GrantAll();
    for (std::uint64_t id = 1; id <= 600; ++id)
    {
        ExpectRamp(m_host->NextFrame(), id);
        m_host->Return();
    }
}

TEST_F(CameraStream, DescriptorTellsWhereThePixelsAre)
{
    Start();
    m_host->GrantAll();
    const ReceivedFrame frame = m_host->NextFrame();
    ASSERT_EQ(frame.bytes.size(), kFrame);
    EXPECT_EQ(frame.Little32(56), 64U);
    EXPECT_NE(frame.Little32(88), 0U);
    EXPECT_EQ(frame.Little32(112), 120U);
    EXPECT_EQ(frame.Little32(120 + 8), 0x01080001U);
    EXPECT_EQ(frame.Little32(120 + 24), kPixels);
    EXPECT_EQ(frame.Little32(120 + 32), 176U);
    EXPECT_EQ(frame.Little32(120 + 40), 64U);
    EXPECT_EQ(frame.Little32(120 + 44), 48U);
}

TEST_F(CameraStream, NothingComesBeforeTheStreamIsEnabled)
{
    Start({}, false);
    m_host->GrantAll();
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    Enable();
    ExpectRamp(m_host->NextFrame(), 1);
}

TEST_F(CameraStream, WithoutFreeRunningItWaitsForAcquisitionStart)
{
    Start({"--no-free-run"});
    m_host->GrantAll();
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    EXPECT_EQ(m_control->Write(1, 0x10024, 1), 0U);
    ExpectRamp(m_host->NextFrame(), 1);
}

TEST_F(CameraStream, AcquisitionStopAndStreamOffEndTheFrames)
{
    Start({"--no-free-run"});
    EXPECT_EQ(m_control->Write(1, 0x10028, 1), 0U);
    m_host->GrantAll();
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    EXPECT_EQ(m_control->Write(2, 0xE030, 0), 0U);
    EXPECT_EQ(m_control->Write(3, 0x10024, 1), 0U);
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
}

TEST_F(CameraStream, SoftwareTriggerBringsOneFrameEach)
{
    Start({}, false);
    EXPECT_EQ(m_control->Write(1, 0x10040, 1), 0U);
    Enable();
    m_host->GrantAll();
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    EXPECT_EQ(m_control->Write(2, 0x10048, 1), 0U);
    ExpectRamp(m_host->NextFrame(), 1);
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    EXPECT_EQ(m_camera->Control(R"({"cmd":"trigger"})"), R"({"ok":true})");
    ExpectRamp(m_host->NextFrame(), 2);
}

TEST_F(CameraStream, TriggerOfTheControlSocketIsTheSelectedOne)
{
    Start({}, false);
    EXPECT_EQ(m_control->Write(1, 0x10200, 1), 0U) << "FrameBurstStart";
    EXPECT_EQ(m_control->Write(2, 0x10140, 1), 0U) << "its TriggerMode";
    EXPECT_EQ(m_control->Write(3, 0x10220, 2), 0U) << "frames of a burst";
    Enable();
    m_host->GrantAll();
    EXPECT_EQ(m_camera->Control(R"({"cmd":"trigger"})"), R"({"ok":true})");
    ExpectRamp(m_host->NextFrame(), 1);
    ExpectRamp(m_host->NextFrame(), 2);
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
}

TEST_F(CameraStream, SingleFrameModeSendsOne)
{
    Start({}, false);
    EXPECT_EQ(m_control->Write(1, 0x10020, 1), 0U);
    Enable();
    m_host->GrantAll();
    EXPECT_EQ(m_control->Write(2, 0x10024, 1), 0U);
    ExpectRamp(m_host->NextFrame(), 1);
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
}

TEST_F(CameraStream, PicturesWithoutMemoryEndTheConnectionAndNotTheCamera)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "built with sanitizers, which end a process that has no memory";
    }
    Connect({"--pattern", "Scene", "--width", "12000", "--height", "12000"});
    // The scene is drawn for the whole sensor with the first picture.
    const rlimit all{256U << 20, 256U << 20};
    ASSERT_EQ(prlimit(m_camera->Process().Pid(), RLIMIT_AS, &all, nullptr), 0);
    Enable();
    m_host->GrantAll();
    EXPECT_EQ(m_host->NextEvent(), RDMA_CM_EVENT_DISCONNECTED);
    EXPECT_TRUE(WaitForStatus(R"("connected":false)"));
}

TEST_F(CameraStream, FrameLimitEndsTheFrames)
{
    Start({"--frames", "3"});
    m_host->GrantAll();
    for (std::uint64_t id = 1; id <= 3; ++id)
    {
        ExpectRamp(m_host->NextFrame(), id);
    }
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    EXPECT_TRUE(WaitForStatus(R"("frames_sent":3,)"));
}

TEST_F(CameraStream, FrameRateIsNotExceeded)
{
    Start({"--fps", "50"}, false);
    m_host->GrantAll(); // A frame whose time comes before is lost.
    const auto start = std::chrono::steady_clock::now();
    Enable();
    for (std::uint64_t id = 1; id <= 4; ++id)
    {
        ExpectRamp(m_host->NextFrame(), id);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
}

TEST_F(CameraStream, StrangeMessagesAreNoCredits)
{
    Start();
    m_host->PostReceive(0);
    m_host->SendReady(59);
    m_host->SendReady(60, 2);
    EXPECT_TRUE(WaitForStatus(R"("strange_messages":2,)"));
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    m_host->SendReady();
    ExpectRamp(m_host->NextFrame(), 1);
}

TEST_F(CameraStream, EveryByteOfTheReadyMessageCounts)
{
    Start();
    m_host->PostReceive(0);
    for (std::size_t at = 0; at < 60; ++at)
    {
        m_host->SendReadyWithWrongByte(at);
    }
    EXPECT_TRUE(WaitForStatus(R"("strange_messages":60,)"));
    EXPECT_FALSE(m_host->NextFrame(kAWhile).good);
    m_host->SendReady();
    ExpectRamp(m_host->NextFrame(), 1);
}

TEST_F(CameraStream, SecondConnectionIsRejectedWhileTheFirstStands)
{
    Start();
    PlainRdmaHost second(kFrame);
    EXPECT_EQ(second.Connect(), RDMA_CM_EVENT_REJECTED);
    m_host->GrantAll();
    ExpectRamp(m_host->NextFrame(), 1);
}

TEST_F(CameraStream, NextHostConnectsOnceTheFirstHasGone)
{
    Start();
    m_host->GrantAll();
    ExpectRamp(m_host->NextFrame(), 1);
    m_host.reset();
    EXPECT_TRUE(WaitForStatus(R"("connected":false,)"));
    EXPECT_EQ(m_control->Write(1, 0xE030, 0), 0U);
    PlainRdmaHost next(kFrame);
    ASSERT_EQ(next.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_EQ(m_control->Write(2, 0xE030, 0x80000000), 0U);
    next.GrantAll();
    ExpectRamp(next.NextFrame(), 1);
}

TEST_F(CameraStream, LossOfControlEndsTheConnection)
{
    Start();
    EXPECT_EQ(m_control->Write(1, 0x0A00, 0), 0U);
    EXPECT_EQ(m_host->NextEvent(), RDMA_CM_EVENT_DISCONNECTED);
}

TEST_F(CameraStream, QuietHostLosesItsConnection)
{
    Start();
    EXPECT_EQ(m_control->Write(0x201, 0x0938, 500), 0U);
    EXPECT_EQ(m_host->NextEvent(), RDMA_CM_EVENT_DISCONNECTED);
}

TEST_F(CameraStream, RebootEndsTheConnection)
{
    Start();
    m_camera->Fault("reboot:0");
    EXPECT_EQ(m_host->NextEvent(), RDMA_CM_EVENT_DISCONNECTED);
}

TEST_F(CameraStream, EveryPixelFormatFillsItsPayload)
{
    Start({}, false);
    const std::vector<std::pair<std::uint32_t, std::size_t>> formats{{0x01080009, 1}, {0x01100003, 2}};
    std::uint16_t id = 1;
    for (const auto& [format, bytes] : formats)
    {
        m_host.reset();
        EXPECT_TRUE(WaitForStatus(R"("connected":false,)"));
        EXPECT_EQ(m_control->Write(id++, 0xE030, 0), 0U);
        EXPECT_EQ(m_control->Write(id++, 0x10010, format), 0U);
        PlainRdmaHost host(kDescriptor + kPixels * bytes);
        ASSERT_EQ(host.Connect(), RDMA_CM_EVENT_ESTABLISHED);
        EXPECT_EQ(m_control->Write(id++, 0xE030, 0x80000000), 0U);
        host.GrantAll();
        const ReceivedFrame frame = host.NextFrame();
        EXPECT_EQ(frame.bytes.size(), kDescriptor + kPixels * bytes);
        EXPECT_EQ(frame.Little32(128), format);
    }
}

TEST_F(CameraStream, StillPictureIsWholeInEveryFrame)
{
    constexpr std::array<std::uint8_t, 8> kBars{255, 225, 178, 149, 105, 76, 29, 0};
    Start({"--pattern", "ColorBar"});
    m_host->GrantAll();
    for (std::uint64_t id = 1; id <= 20; ++id)
    {
        const ReceivedFrame frame = m_host->NextFrame();
        ASSERT_EQ(frame.bytes.size(), kFrame);
        EXPECT_EQ(frame.Id(), id);
        for (std::size_t pixel = 0; pixel < kPixels; ++pixel)
        {
            ASSERT_EQ(frame.bytes[kDescriptor + pixel], kBars[pixel % 64 / 8]) << "frame " << id << ", pixel " << pixel;
        }
        m_host->Return();
    }
}

TEST_F(CameraStream, StillPictureGoesWithItsPattern)
{
    Start({"--pattern", "ColorBar"});
    m_host->GrantAll();
    EXPECT_EQ(m_host->NextFrame().bytes[kDescriptor], 255);
    m_host.reset();
    EXPECT_TRUE(WaitForStatus(R"("connected":false,)"));
    EXPECT_EQ(m_control->Write(0x300, 0xE030, 0), 0U);
    EXPECT_EQ(m_control->Write(0x301, 0x1003C, 0), 0U);
    PlainRdmaHost host(kFrame);
    ASSERT_EQ(host.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_EQ(m_control->Write(0x302, 0xE030, 0x80000000), 0U);
    host.GrantAll();
    for (std::uint64_t id = 1; id <= 4; ++id)
    {
        ExpectRamp(host.NextFrame(), id);
    }
}

TEST_F(CameraStream, FrameEventsFollowTheirNotification)
{
    Start({"--frames", "1"}, false);
    const RawHost events;
    m_control->Write(1, 0x0B10, 0x0A4D0001);
    m_control->Write(2, 0x0B00, events.Port());
    m_control->Write(3, 0x10084, 1);
    m_control->Write(4, 0x10088, 1);
    Enable();
    m_host->GrantAll();
    ExpectRamp(m_host->NextFrame(), 1);
    const Octets exposureEnd = events.Receive();
    const Octets frameEnd = events.Receive();
    ASSERT_EQ(exposureEnd.size(), 24U);
    ASSERT_EQ(frameEnd.size(), 24U);
    EXPECT_EQ(Octets(exposureEnd.begin() + 8, exposureEnd.begin() + 16), Hex("00 00 90 01 00 00 00 01"));
    EXPECT_EQ(Octets(frameEnd.begin() + 8, frameEnd.begin() + 16), Hex("00 00 90 02 00 00 00 01"));
}

TEST_F(CameraStream, FaultShortFrameCutsTheEnd)
{
    Start({"--fault", "short-frame", "--fault", "short-frame:100"});
    m_host->GrantAll();
    EXPECT_EQ(m_host->NextFrame().bytes.size(), kFrame - 100);
    ExpectRamp(m_host->NextFrame(), 2);
    ExpectRamp(m_host->NextFrame(), 3);
    ExpectRamp(m_host->NextFrame(), 4);
    m_camera->Fault("short-frame");
    m_host->Return();
    EXPECT_EQ(m_host->NextFrame().bytes.size(), kFrame - kPixels / 2);
}

TEST_F(CameraStream, FaultEmptyFrameSendsNoBytes)
{
    Start({"--fault", "empty-frame"});
    m_host->GrantAll();
    const ReceivedFrame frame = m_host->NextFrame();
    EXPECT_TRUE(frame.good);
    EXPECT_TRUE(frame.bytes.empty());
    ExpectRamp(m_host->NextFrame(), 2);
}

TEST_F(CameraStream, FaultsOfTheDescriptorChangeTheirFieldOnly)
{
    Start({"--fault", "wrong-component-offset", "--no-free-run"});
    m_host->GrantAll();
    EXPECT_EQ(m_control->Write(1, 0x10020, 1), 0U);
    std::uint16_t id = 0x300;
    const auto take = [&] {
        m_control->Write(id++, 0x10024, 1);
        return m_host->NextFrame();
    };
    EXPECT_EQ(take().Little32(56), 128U);
    m_camera->Fault("wild-part-offset");
    EXPECT_EQ(take().Little32(112), 0xFFFFFF00U);
    m_camera->Fault("wild-data-offset:0x12345678");
    const ReceivedFrame wild = take();
    EXPECT_EQ(wild.Little32(120 + 32), 0x12345678U);
    EXPECT_EQ(wild.Little32(120 + 24), kPixels);
    m_camera->Fault("huge-data-size");
    const ReceivedFrame huge = take();
    EXPECT_EQ(huge.Little32(120 + 24), 0xFFFFFFFFU);
    EXPECT_EQ(huge.Little32(120 + 28), 0x7FFFFFFFU);
    EXPECT_EQ(huge.bytes.size(), kFrame);
}

TEST_F(CameraStream, FaultsOfTheIdShiftItFromThereOn)
{
    Start({"--fault", "id-jump"});
    m_host->GrantAll();
    ExpectRamp(m_host->NextFrame(), 11);
    ExpectRamp(m_host->NextFrame(), 12);
    ExpectRamp(m_host->NextFrame(), 13);
    ExpectRamp(m_host->NextFrame(), 14);
    m_camera->Fault("id-backwards");
    m_host->Return();
    ExpectRamp(m_host->NextFrame(), 10);
    m_host->Return();
    ExpectRamp(m_host->NextFrame(), 11);
}

TEST_F(CameraStream, FaultRejectConnectLastsUntilCleared)
{
    m_camera = std::make_unique<VirtualCamera>(std::vector<std::string>{"--fault", "reject-connect"});
    const RawHost holder;
    holder.KeepControl();
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_REJECTED);
    m_camera->Control(R"({"cmd":"clear"})");
    EXPECT_EQ(PlainRdmaHost(kFrame).Connect(), RDMA_CM_EVENT_ESTABLISHED);
}

TEST_F(CameraStream, FaultSlowAcceptTakesItsTime)
{
    m_camera = std::make_unique<VirtualCamera>(std::vector<std::string>{"--fault", "slow-accept:150"});
    const RawHost holder;
    holder.KeepControl();
    PlainRdmaHost host(kFrame);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(host.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
}

TEST_F(CameraStream, FaultDisconnectMidFrameEndsTheConnection)
{
    Start({"--fault", "disconnect-mid-frame"});
    m_host->GrantAll();
    EXPECT_EQ(m_host->NextEvent(), RDMA_CM_EVENT_DISCONNECTED);
    m_host.reset();
    EXPECT_EQ(m_control->Read(0xE030), 0U) << "a stream whose connection has ended is not enabled";
    PlainRdmaHost next(kFrame);
    EXPECT_EQ(next.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    Enable();
    next.GrantAll();
    EXPECT_TRUE(next.NextFrame().good);
}
