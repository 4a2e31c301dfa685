// SPDX-License-Identifier: Apache-2.0
// The remote device's search for the largest packet, step by step as the camera sees it.
#include "gev/nq_gev_remote_device.h"

#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/no_sockets.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using testing::ElementsAre;

namespace
{

/// UDP ports taken for the time of a test.
class TakenPorts
{
  public:
    TakenPorts(unsigned short first, unsigned short last)
    {
        for (unsigned int port = first; port <= last; ++port)
        {
            sockaddr_in local = {};
            local.sin_family = AF_INET;
            local.sin_port = htons(static_cast<unsigned short>(port));
            m_sockets.push_back(socket(AF_INET, SOCK_DGRAM, 0));
            EXPECT_EQ(bind(m_sockets.back(), reinterpret_cast<sockaddr*>(&local), sizeof local), 0) << port;
        }
    }
    ~TakenPorts()
    {
        for (const int taken : m_sockets)
        {
            close(taken);
        }
    }
    TakenPorts(const TakenPorts&) = delete;
    TakenPorts& operator=(const TakenPorts&) = delete;

  private:
    std::vector<int> m_sockets;
};

/// While it is set, waits on sockets at a port of the test range fail.
std::atomic<bool> failingWaits = false;

/// The lowest descriptor that is free.
int NextDescriptor()
{
    const int next = dup(0);
    close(next);
    return next;
}

bool IsTestSocket(int descriptor)
{
    sockaddr_in local = {};
    socklen_t length = sizeof local;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &length);
    return ntohs(local.sin_port) >= 3500 && ntohs(local.sin_port) <= 3564;
}

class PacketSize : public testing::Test
{
  protected:
    PacketSize()
    {
        camera.SetRegister(0x0938, 60000);
        device = std::make_unique<NQGevRemoteDevice>(&tl, LoopbackCamera(), 3, nullptr);
        EXPECT_EQ(device->Open(), 0);
        camera.Forget();
    }

    /// Lets the camera answer the test bit with a packet of this many bytes of UDP payload, and keep only the size.
    void SendTestPacketsOf(std::size_t payload)
    {
        camera.OnWrite([this, payload](std::uint32_t address, std::uint32_t value) {
            if (address == 0x0D04 && (value & 0x80000000) != 0)
            {
                camera.Send(nq::test::Bytes(payload, 0x55), "127.0.0.1",
                            static_cast<std::uint16_t>(camera.GetRegister(0x0D00)));
                camera.SetRegister(0x0D04, value & 0xFFFF);
            }
        });
    }

    GvcpCamera camera;
    NQGevTL tl;
    std::unique_ptr<NQGevRemoteDevice> device;
};

} // namespace

/// Takes the place of the C library's function, so that single waits can be made to fail.
extern "C" int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t*)
{
    if (failingWaits && IsTestSocket(entries->fd))
    {
        errno = ENOMEM;
        return -1;
    }
    return poll(entries, count,
                timeout == nullptr ? -1
                                   : static_cast<int>(timeout->tv_sec * 1000 + (timeout->tv_nsec + 999999) / 1000000));
}

namespace
{

TEST_F(PacketSize, APacketThatArrivesWholeGivesItsSize)
{
    SendTestPacketsOf(9000 - 28);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 9000U);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0D04 = 0x00002328", "write 0x0D18 = 0x7F000002", "write 0x0D00 = 0x00000DAC",
                            "read 0x0D04", "write 0x0D04 = 0xC0002328", "write 0x0D00 = 0x00000000",
                            "write 0x0D04 = 0x00002328", "read 0x0D04"));
}

TEST_F(PacketSize, LeavesTheStreamPortAtZero)
{
    SendTestPacketsOf(9000 - 28);
    device->GetMaxSizeMTU(0, 16000);
    EXPECT_EQ(camera.GetRegister(0x0D00), 0U);
    camera.OnWrite(nullptr);
    device->GetMaxSizeMTU(0, 16000);
    EXPECT_EQ(camera.GetRegister(0x0D00), 0U);
}

// Deliberate(OneBudgetForAllTests)
TEST_F(PacketSize, DeliberatelyFourTestsShareOneBudgetOfTime)
{
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 1500U);
    EXPECT_EQ(camera.Count("write 0x0D04 = 0xC0002328"), 4U);
    EXPECT_EQ(camera.GetRegister(0x0D04), 1500U);
}

TEST_F(PacketSize, APacketOfAnotherSizeGivesFifteenHundred)
{
    SendTestPacketsOf(1000);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 1500U);
}

TEST_F(PacketSize, APacketThatTheBlockCutsShortGivesFifteenHundred)
{
    SendTestPacketsOf(9000 - 28);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 100), 1500U);
}

TEST_F(PacketSize, ACameraThatKeepsMoreThanAskedIsAskedForFiveHundredAndTwelveLess)
{
    camera.OnWrite([this](std::uint32_t address, std::uint32_t value) {
        if (address == 0x0D04)
        {
            camera.SetRegister(0x0D04, value == 1500 ? 4000U : value);
        }
    });
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 3488U);
    const std::vector<std::string> accesses = camera.Accesses();
    ASSERT_GE(accesses.size(), 4U);
    EXPECT_THAT(std::vector<std::string>(accesses.end() - 4, accesses.end()),
                ElementsAre("write 0x0D04 = 0x000005DC", "read 0x0D04", "write 0x0D04 = 0x00000DA0", "read 0x0D04"));
}

TEST_F(PacketSize, ACameraThatKeepsLessHasTheLastWord)
{
    camera.OnWrite([this](std::uint32_t address, std::uint32_t) {
        if (address == 0x0D04)
        {
            camera.SetRegister(0x0D04, 576);
        }
    });
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 576U);
}

TEST_F(PacketSize, WithAllPortsTakenNineThousandIsSetWithoutATestPacket)
{
    const TakenPorts taken(3500, 3564);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 9000U);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0D04 = 0x00002328", "read 0x0D04"));
}

TEST_F(PacketSize, WithAllPortsTakenWhatTheCameraReadsBackIsTheAnswer)
{
    const TakenPorts taken(3500, 3564);
    camera.OnWrite([this](std::uint32_t, std::uint32_t) { camera.SetRegister(0x0D04, 8000); });
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 8000U);
}

TEST_F(PacketSize, TheFirstFreePortIsTaken)
{
    const TakenPorts taken(3500, 3563);
    device->GetMaxSizeMTU(0, 16000);
    EXPECT_EQ(camera.Count("write 0x0D00 = 0x00000DEC"), 1U);
}

TEST(PacketSizeOpener, IsEightZeroBytesToTheSamePortOfTheCamera)
{
    const nq::test::Host far;
    far.Connect("here", "10.9.0.1/24", "there", "10.9.0.2/24");
    GvcpCamera camera(&far);
    int listener = -1;
    far.Run([&listener] {
        sockaddr_in local = {};
        local.sin_family = AF_INET;
        local.sin_port = htons(3500);
        listener = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
    });
    _NQ_GEV_DEVICE_INFO record = LoopbackCamera();
    record.ipAddress = 0x0A090002;
    camera.SetRegister(0x0938, 60000);
    NQGevTL tl;
    NQGevRemoteDevice device(&tl, record, 3, nullptr);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_EQ(device.GetMaxSizeMTU(0, 16000), 1500U);
    unsigned char opener[16] = {1, 1, 1, 1, 1, 1, 1, 1};
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    ASSERT_EQ(recvfrom(listener, opener, sizeof opener, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &length), 8);
    EXPECT_THAT(std::vector<unsigned char>(opener, opener + 8), testing::Each(0));
    EXPECT_EQ(ntohs(from.sin_port), 3500);
    close(listener);
}

TEST_F(PacketSize, TheSocketIsClosedAgain)
{
    const int before = NextDescriptor();
    device->GetMaxSizeMTU(0, 16000);
    EXPECT_EQ(NextDescriptor(), before);
}

// Deliberate(PortlessSocketStaysOpen)
TEST_F(PacketSize, DeliberatelyTheSocketStaysOpenWhenAllPortsAreTaken)
{
    const TakenPorts taken(3500, 3564);
    const int before = NextDescriptor();
    device->GetMaxSizeMTU(0, 16000);
    EXPECT_EQ(NextDescriptor(), before + 1);
    EXPECT_EQ(fcntl(before, F_GETFD), FD_CLOEXEC) << "no child inherits it";
}

TEST_F(PacketSize, WithoutASocketNineThousandIsSetWithoutATestPacket)
{
    nq::test::WithoutSockets([this] { EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 9000U); });
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0D04 = 0x00002328", "read 0x0D04"));
}

TEST_F(PacketSize, AWaitThatFailsGivesNineThousand)
{
    camera.OnWrite([](std::uint32_t address, std::uint32_t value) {
        failingWaits = address == 0x0D04 && (value & 0x80000000) != 0;
    });
    // The answer to the read of the tested size tells nothing, so only the failed wait can give 9000.
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 9000U);
    EXPECT_EQ(camera.Count("write 0x0D04 = 0xC0002328"), 1U) << "no further attempt";
    EXPECT_EQ(camera.GetRegister(0x0D00), 0U);
}

TEST_F(PacketSize, ABlockSizeThatWrapsInThirtyTwoBitsIsHarmless)
{
    SendTestPacketsOf(9000 - 28);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 0xFFFFFFFF), 9000U);
}

} // namespace
