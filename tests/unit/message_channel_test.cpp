// SPDX-License-Identifier: Apache-2.0
// A camera's message channel: its set-up, what it takes for an event, and its end, also after a failed set-up.
#include "gev/nq_gev_message_stream.h"

#include "gev/nq_gev_remote_device.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/fake_device.h"
#include "support/gvcp_camera.h"
#include "support/no_sockets.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using nq::test::FakeDevice;
using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using nq::test::RegisteredEvent;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = nq::test::Bytes;

namespace
{

constexpr int kRemoteDeviceEvent = 4;

/// An event packet: header, then 16 bytes of which the third and fourth are the event id 0x9001.
const Bytes kEventPacket = {0x42, 0x01, 0x00, 0xC0, 0x00, 0x10, 0x00, 0x07, 0x00, 0x00, 0x90, 0x01,
                            0xFF, 0xFF, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

/// An IPv4 UDP socket on a port, and on all addresses unless one is given.
class UdpSocket
{
  public:
    explicit UdpSocket(unsigned int port, unsigned int address = 0) : m_socket(socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in local = {};
        local.sin_family = AF_INET;
        local.sin_port = htons(static_cast<unsigned short>(port));
        local.sin_addr.s_addr = htonl(address);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr*>(&local), sizeof local), 0) << port;
    }
    ~UdpSocket() { close(m_socket); }
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    Bytes Receive(sockaddr_in& from) const
    {
        timeval patience = {5, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        Bytes bytes(64);
        socklen_t length = sizeof from;
        const ssize_t size =
            recvfrom(m_socket, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    }

    void Send(unsigned short port, const Bytes& datagram) const
    {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(0x7F000001);
        sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    }

  private:
    int m_socket;
};

std::vector<std::unique_ptr<UdpSocket>> TakePorts(unsigned int first, unsigned int last)
{
    std::vector<std::unique_ptr<UdpSocket>> taken;
    for (unsigned int port = first; port <= last; ++port)
    {
        taken.push_back(std::make_unique<UdpSocket>(port));
    }
    return taken;
}

/// Processor time of this process, in seconds.
double ProcessorTime()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class MessageChannel : public testing::Test
{
  protected:
    MessageChannel() : event(parent, kRemoteDeviceEvent), remote(&tl, LoopbackCamera(), 3, &parent)
    {
        camera.SetRegister(0x0938, 60000);
        EXPECT_EQ(remote.Open(), 0);
        camera.Forget();
    }

    /// Sends something and then an event, so that the something has been handled when the event arrives.
    void ExpectDropped(const Bytes& datagram)
    {
        camera.Send(datagram, "127.0.0.1", 3456);
        camera.Send(kEventPacket, "127.0.0.1", 3456);
        ASSERT_FALSE(event.Next().empty());
        EXPECT_EQ(event.Pending(), 0U);
    }

    GvcpCamera camera;
    NQGevTL tl;
    FakeDevice parent;
    RegisteredEvent event;
    NQGevRemoteDevice remote;
};

TEST_F(MessageChannel, SetUpTellsTheCameraAddressAndPortAndAsksForItsSourcePort)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0B10 = 0x7F000002", "write 0x0B00 = 0x00000D80", "read 0x0B1C"));
    channel.Stop();
}

TEST_F(MessageChannel, SetUpSendsTwelveZeroBytesToTheCamerasSourcePort)
{
    const UdpSocket source(40123, 0x7F000001);
    camera.SetRegister(0x0B1C, 40123);
    NQGevMessageStream channel(0, &parent, &remote);
    EXPECT_TRUE(channel.OnInit());
    sockaddr_in from = {};
    EXPECT_EQ(source.Receive(from), Bytes(12));
    EXPECT_EQ(ntohs(from.sin_port), 3456);
}

TEST_F(MessageChannel, TakesTheFirstFreePortOfTheRange)
{
    const auto taken = TakePorts(3456, 3519);
    NQGevMessageStream channel(0, &parent, &remote);
    EXPECT_TRUE(channel.OnInit());
    EXPECT_EQ(camera.GetRegister(0x0B00), 3520U);
}

TEST_F(MessageChannel, StopClosesTheSocketAndWritesZeroToThePort)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    camera.Forget();
    channel.Stop();
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B00 = 0x00000000"));
    const UdpSocket again(3456);
    channel.Stop();
    EXPECT_EQ(camera.Accesses().size(), 1U) << "a second stop does nothing";
}

TEST_F(MessageChannel, ASecondStartDoesNothing)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    camera.Forget();
    channel.Start();
    EXPECT_THAT(camera.Accesses(), IsEmpty());
    channel.Stop();
}

TEST_F(MessageChannel, TheDestructorStopsAChannelThatRuns)
{
    {
        NQGevMessageStream channel(0, &parent, &remote);
        channel.Start();
        camera.Forget();
    }
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B00 = 0x00000000"));
}

TEST_F(MessageChannel, KnowsItsChannelId)
{
    const NQGevMessageStream channel(3, &parent, &remote);
    EXPECT_EQ(channel.GetChannelID(), 3U);
}

TEST_F(MessageChannel, AnEventPacketOfTwentyFourBytesGivesARecordOfLengthSixteen)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    camera.Send(kEventPacket, "127.0.0.1", 3456);
    const Bytes record = event.Next();
    ASSERT_FALSE(record.empty());
    EXPECT_EQ(Bytes(record.begin(), record.begin() + 6), (Bytes{0x01, 0x90, 0x00, 0x00, 0x10, 0x00}));
    EXPECT_EQ(Bytes(record.begin() + 6, record.begin() + 22), Bytes(kEventPacket.begin() + 8, kEventPacket.end()));
    EXPECT_EQ(record[546], 0xEE) << "the record is 546 bytes";
    channel.Stop();
}

TEST_F(MessageChannel, ALongerEventPacketStillGivesSixteenBytes)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    Bytes packet = kEventPacket;
    packet.resize(1400, 0x77);
    camera.Send(packet, "127.0.0.1", 3456);
    const Bytes record = event.Next();
    ASSERT_FALSE(record.empty());
    EXPECT_EQ(record[4], 16);
    EXPECT_NE(record[22], 0x77);
    channel.Stop();
}

TEST_F(MessageChannel, AnEventPacketOfTwentyThreeBytesIsDropped)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    ExpectDropped(Bytes(kEventPacket.begin(), kEventPacket.end() - 1));
    ExpectDropped({});
    ExpectDropped({0x42});
    channel.Stop();
}

TEST_F(MessageChannel, ADatagramWithTheKeyAndCode0080IsDropped)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    Bytes packet = kEventPacket;
    packet[3] = 0x80;
    ExpectDropped(packet);
    packet[3] = 0xC0;
    packet[2] = 0x01;
    ExpectDropped(packet);
    channel.Stop();
}

TEST_F(MessageChannel, ADatagramWithAnotherKeyIsDropped)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    Bytes packet = kEventPacket;
    packet[0] = 0x43;
    ExpectDropped(packet);
    channel.Stop();
}

TEST_F(MessageChannel, NoAnswerIsSentWhateverTheFlagsSay)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    camera.Forget();
    camera.Send(kEventPacket, "127.0.0.1", 3456);
    ASSERT_FALSE(event.Next().empty());
    channel.Stop();
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B00 = 0x00000000"));
}

TEST_F(MessageChannel, AnyHostMaySendAnEvent)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    const UdpSocket foreign(50000);
    foreign.Send(3456, kEventPacket);
    EXPECT_FALSE(event.Next().empty());
    channel.Stop();
}

TEST_F(MessageChannel, WithoutARegisteredEventPacketsAreDropped)
{
    ASSERT_EQ(parent.UnregisterEvent(kRemoteDeviceEvent), 0);
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    camera.Send(kEventPacket, "127.0.0.1", 3456);
    channel.Stop();
}

TEST_F(MessageChannel, EventsKeepTheirOrder)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    for (unsigned char number = 0; number < 20; ++number)
    {
        Bytes packet = kEventPacket;
        packet[11] = number;
        camera.Send(packet, "127.0.0.1", 3456);
    }
    for (unsigned char number = 0; number < 20; ++number)
    {
        const Bytes record = event.Next();
        ASSERT_FALSE(record.empty());
        EXPECT_EQ(record[0], number);
    }
    channel.Stop();
}

TEST_F(MessageChannel, WithAllPortsTakenTheCameraIsToldNothingAndTheThreadRunsAllTheSame)
{
    const auto taken = TakePorts(3456, 3520);
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    EXPECT_THAT(camera.Accesses(), IsEmpty());
    channel.Stop();
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B00 = 0x00000000")) << "written by the thread at its end";
}

TEST_F(MessageChannel, StopAfterAFailedSetUpStillWritesZeroToThePort)
{
    camera.SetStatus(0x0B10, 0x8003);
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B10 = 0x7F000002"));
    camera.Forget();
    channel.Stop();
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B00 = 0x00000000"));
}

TEST_F(MessageChannel, ARefusedPortEndsTheSetUpBeforeTheSourcePortIsAskedFor)
{
    camera.SetStatus(0x0B00, 0x8003);
    NQGevMessageStream channel(0, &parent, &remote);
    EXPECT_FALSE(channel.OnInit());
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B10 = 0x7F000002", "write 0x0B00 = 0x00000D80"));
}

TEST_F(MessageChannel, WithoutASocketTheHostsStandardInputIsNeverReadAndNoCoreSpins)
{
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    ASSERT_EQ(dup2(pipes[0], 0), 0);
    ASSERT_EQ(write(pipes[1], "input", 5), 5);
    NQGevMessageStream channel(0, &parent, &remote);
    nq::test::WithoutSockets([&channel] { channel.Start(); });
    EXPECT_THAT(camera.Accesses(), IsEmpty());
    const double before = ProcessorTime();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(ProcessorTime() - before, 0.25);
    channel.Stop();
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0B00 = 0x00000000"));
    char input[8] = {};
    EXPECT_EQ(read(0, input, sizeof input), 5);
    EXPECT_STREQ(input, "input");
}

TEST_F(MessageChannel, AHostWithoutStandardInputGetsNoEventsAndKeepsItsDescriptorZeroFree)
{
    ASSERT_EQ(close(0), 0);
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    EXPECT_THAT(camera.Accesses(), IsEmpty());
    channel.Stop();
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
}

TEST_F(MessageChannel, AnEventStormDoesNotHoldUpTheStop)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    std::atomic<bool> storm = true;
    std::thread sender([&] {
        while (storm)
        {
            camera.Send(kEventPacket, "127.0.0.1", 3456);
        }
    });
    const bool arrived = !event.Next().empty();
    channel.Stop();
    storm = false;
    sender.join();
    EXPECT_TRUE(arrived);
    while (event.Pending() != 0)
    {
        event.Next();
    }
}

TEST_F(MessageChannel, ARetiredChannelEndsWithoutTouchingTheCamera)
{
    NQGevMessageStream channel(0, &parent, &remote);
    channel.Start();
    camera.Forget();
    channel.Retire();
    channel.Stop();
    EXPECT_THAT(camera.Accesses(), IsEmpty());
}

} // namespace
