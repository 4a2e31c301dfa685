// SPDX-License-Identifier: Apache-2.0
// Cameras that answer a discovery by broadcast, as those on another subnet do.
#include "gige/nq_gev_broadcast_receiver.h"
#include "support/asleep.h"
#include "support/interface_module.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

using namespace nq::test;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

/// What the system refuses.
std::atomic<bool> refusesDevices = false;
std::atomic<bool> refusesBroadcastAddress = false;

} // namespace

// Take the place of the C library's functions, so that single requests can be refused.

extern "C" int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size)
{
    if (refusesDevices && level == SOL_SOCKET && option == SO_BINDTODEVICE)
    {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_setsockopt, descriptor, level, option, value, size));
}

extern "C" int bind(int descriptor, const sockaddr* address, socklen_t size)
{
    const auto* const internet = reinterpret_cast<const sockaddr_in*>(address);
    if (refusesBroadcastAddress && internet->sin_addr.s_addr == htonl(INADDR_BROADCAST))
    {
        errno = EADDRINUSE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_bind, descriptor, address, size));
}

namespace
{

/// A cable between the adapter cam0 with 10.9.0.1/24 here and a host behind it, whose broadcasts leave through it.
class Cable
{
  public:
    explicit Cable(const std::string& there, const std::string& name = "cam0", const std::string& here = "10.9.0.1/24")
    {
        host.Connect(name, here, "eth0", there);
        WaitForCarrier(host, name, "eth0");
        host.Shell("ip route add default dev eth0");
        AcceptEverySource(host);
    }

    Host host;
};

/// The ports of all sockets of this network that are bound to 255.255.255.255.
std::vector<std::string> PortsOfBroadcastReceivers()
{
    std::vector<std::string> ports;
    std::ifstream table("/proc/net/udp");
    for (std::string word; table >> word;)
    {
        if (word.starts_with("FFFFFFFF:"))
        {
            ports.push_back(word.substr(9));
        }
    }
    return ports;
}

Bytes Acknowledge(const GvcpDiscovery& camera)
{
    Bytes datagram = {0, 0, 0, 3, 0, 248, 0, 1};
    const Bytes body = camera.Body();
    datagram.insert(datagram.end(), body.begin(), body.end());
    return datagram;
}

GvcpDiscovery FarCamera()
{
    GvcpDiscovery camera = Camera();
    camera.model = "Far";
    camera.ipAddress = 0xC0A80705;
    return camera;
}

/// Has the peer answer each command with these datagrams, each to the address that stands before it.
void AnswerTo(GvcpCamera& peer, const std::vector<std::pair<std::string, Bytes>>& datagrams)
{
    peer.Otherwise([&peer, datagrams](const Bytes&) {
        const std::uint16_t port = peer.Received().back().senderPort;
        for (const auto& [address, bytes] : datagrams)
        {
            peer.Send(bytes, address, port);
        }
        return std::vector<GvcpReply>{};
    });
}

/// Whether the system lets the receiver be bound to its adapter.
class BroadcastAnswers : public testing::TestWithParam<bool>
{
  protected:
    void SetUp() override { refusesDevices = !GetParam(); }
};

TEST_P(BroadcastAnswers, ACameraOnAnotherSubnetIsListedAndNotAsked)
{
    const Cable cable("192.168.7.5/24");
    GvcpCamera peer(&cable.host);
    AnswerTo(peer, {{"255.255.255.255", Acknowledge(FarCamera())}});
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    EXPECT_TRUE(module.Scan());
    ASSERT_THAT(module.Ids(), ElementsAre("Far:02-0a-0b-01-02-03"));
    EXPECT_EQ(module.Devices()[0].ipAddress, 0xC0A80705U);
    EXPECT_EQ(module.DeviceInfo("Far:02-0a-0b-01-02-03", 5).number, 3U);
    EXPECT_FALSE(module.Scan());
    EXPECT_THAT(peer.ReceivedBytes(), SizeIs(2)) << "two discoveries and nothing else";
    EXPECT_EQ(module.Close(), 0);
}

TEST_P(BroadcastAnswers, OnlyThoseOfItsOwnAdapterAreHeard)
{
    const Cable cable("192.168.7.5/24");
    const Cable second("192.168.8.5/24", "cam1", "10.7.0.1/24");
    GvcpCamera peer(&cable.host);
    GvcpCamera neighbour(&second.host);
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    // Both hosts send to the port of the one module.
    peer.Otherwise([&](const Bytes&) {
        GvcpDiscovery other = FarCamera();
        other.model = "Neighbour";
        neighbour.Send(Acknowledge(other), "255.255.255.255", peer.Received().back().senderPort);
        peer.Send(Acknowledge(FarCamera()), "255.255.255.255", peer.Received().back().senderPort);
        return std::vector<GvcpReply>{};
    });
    module.Scan();
    module.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Far:02-0a-0b-01-02-03"));
    EXPECT_EQ(module.Close(), 0);
}

TEST_P(BroadcastAnswers, AFloodOfAnotherAdapterDoesNotHoldAReceiveUp)
{
    const Cable cable("192.168.7.5/24");
    const Cable second("192.168.8.5/24", "cam1", "10.7.0.1/24");
    GvcpCamera neighbour(&second.host);
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(socket.Bind(0x0A090001, 4000));
    NQGevBroadcastReceiver receiver;
    ASSERT_TRUE(receiver.Open(socket, "cam0", 54800));
    std::atomic<bool> stop = false;
    std::thread flood([&] {
        while (!stop)
        {
            neighbour.Send({1}, "255.255.255.255", 4000);
        }
    });
    std::array<char, 8> data{};
    unsigned int received = 0;
    for (int round = 0; round < 20; ++round)
    {
        EXPECT_FALSE(receiver.Receive(socket, data.data(), data.size(), received, 10));
    }
    stop = true;
    flood.join();
}

INSTANTIATE_TEST_SUITE_P(Receivers, BroadcastAnswers, testing::Bool(), [](const testing::TestParamInfo<bool>& row) {
    return std::string(row.param ? "BoundToTheAdapter" : "FilteredByAdapter");
});

/// Returns once the kernel notes the arrival of datagrams as they come. It begins to a moment after the first socket of
/// the machine has asked for it; until then a datagram gets the time at which it is read.
void AwaitArrivalTimes()
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(4444);
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    bind(descriptor, reinterpret_cast<sockaddr*>(&own), sizeof own);
    for (bool noted = false; !noted;)
    {
        sendto(descriptor, "x", 1, 0, reinterpret_cast<sockaddr*>(&own), sizeof own);
        timespec sent{};
        clock_gettime(CLOCK_REALTIME, &sent);
        char byte = 0;
        alignas(cmsghdr) std::array<char, 64> control{};
        iovec part{&byte, 1};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        recvmsg(descriptor, &message, 0);
        timespec time{};
        std::memcpy(&time, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof time);
        noted = std::tie(time.tv_sec, time.tv_nsec) < std::tie(sent.tv_sec, sent.tv_nsec);
    }
    close(descriptor);
}

/// A socket at port 4000 of the adapter, and its receiver.
class BroadcastReceiver : public testing::Test
{
  protected:
    BroadcastReceiver()
    {
        EXPECT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
        EXPECT_TRUE(socket.Bind(0x0A090001, 4000));
        EXPECT_TRUE(receiver.Open(socket, "cam0", 54800));
        AwaitArrivalTimes();
        peer.AwaitPath("10.9.0.1");
    }

    int Receive(int timeoutMs)
    {
        std::array<char, 8> data{};
        unsigned int received = 0;
        return receiver.Receive(socket, data.data(), data.size(), received, timeoutMs) ? data[0] : -1;
    }

    Cable cable{"10.9.0.5/24"};
    GvcpCamera peer{&cable.host};
    NQGevSocket socket;
    NQGevBroadcastReceiver receiver;
};

TEST_F(BroadcastReceiver, GivesTheDatagramsOfBothSocketsInTheOrderOfTheirArrival)
{
    const std::string both[] = {"10.9.0.1", "255.255.255.255"};
    const std::vector<int> ways = {1, 0, 0, 1, 1, 1, 0, 1, 0, 0};
    for (std::size_t number = 0; number < ways.size(); ++number)
    {
        peer.Send({static_cast<unsigned char>(number)}, both[ways[number]], 4000);
    }
    peer.AwaitPath("10.9.0.1"); // what was sent before has arrived when this has
    for (std::size_t number = 0; number < ways.size(); ++number)
    {
        EXPECT_EQ(Receive(1000), static_cast<int>(number));
    }
    EXPECT_EQ(Receive(1), -1);
}

TEST_F(BroadcastReceiver, TheFirstSocketAloneHearsNoBroadcast)
{
    peer.Send({7}, "255.255.255.255", 4000);
    EXPECT_FALSE(socket.Select(200));
    EXPECT_EQ(Receive(1000), 7);
}

TEST_F(BroadcastReceiver, ClosingBothWakesAThreadThatWaits)
{
    int result = 0;
    CallingThread waiter([this, &result] { result = Receive(600000); });
    waiter.AwaitAsleep();
    socket.Destroy();
    receiver.Close();
    waiter.Join();
    EXPECT_EQ(result, -1);
    EXPECT_THAT(PortsOfBroadcastReceivers(), IsEmpty());
}

TEST_F(BroadcastReceiver, BelongsToAnAdapterByItsNameOrAnAliasOfIt)
{
    NQGevSocket other;
    ASSERT_TRUE(other.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(other.Bind(0x0A090001, 4001));
    NQGevBroadcastReceiver beside;
    EXPECT_FALSE(beside.Open(other, "", 54800));
    EXPECT_FALSE(beside.Open(other, "nobody0", 54800));
    EXPECT_THAT(PortsOfBroadcastReceivers(), ElementsAre("0FA0")) << "that of the fixture";
    EXPECT_TRUE(beside.Open(other, "cam0:label", 54800));
    EXPECT_THAT(PortsOfBroadcastReceivers(), SizeIs(2));
}

TEST(BroadcastAnswer, OfTwoAnswersOfOneCameraTheLaterArrivalWins)
{
    const Cable cable("10.9.0.5/24");
    GvcpCamera peer(&cable.host);
    GvcpDiscovery first = Camera();
    first.serialNumber = "first";
    GvcpDiscovery second = Camera();
    second.serialNumber = "second";
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    module.Scan();
    ASSERT_THAT(module.Ids(), SizeIs(0)) << "the peer has no discovery record of a listed version";
    for (const bool broadcastFirst : {true, false, true, false})
    {
        AnswerTo(peer, {{broadcastFirst ? "255.255.255.255" : "10.9.0.1", Acknowledge(first)},
                        {broadcastFirst ? "10.9.0.1" : "255.255.255.255", Acknowledge(second)}});
        module.Scan();
        module.Scan();
        ASSERT_THAT(module.Devices(), SizeIs(1));
        EXPECT_EQ(module.Devices()[0].serialNumber, "second") << broadcastFirst;
    }
    EXPECT_EQ(module.Close(), 0);
}

TEST(BroadcastAnswer, AProbeDoesNotReadIt)
{
    const Cable cable("10.9.0.5/24");
    GvcpCamera peer(&cable.host);
    peer.SetDiscovery(Camera());
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    module.Scan();
    ASSERT_THAT(module.Ids(), ElementsAre("Eye:02-0a-0b-01-02-03"));
    const std::uint16_t port = peer.Received().back().senderPort;
    const TraceCapture trace;
    unsigned long status = 0;
    for (int attempt = 0; attempt < 20 && status != 1; ++attempt) // an answer may come too late
    {
        module.Scan(200); // takes it
        peer.Send(Acknowledge(FarCamera()), "255.255.255.255", port);
        status = module.DeviceInfo("Eye:02-0a-0b-01-02-03", 5).number;
    }
    EXPECT_EQ(status, 1U);
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
    module.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-0b-01-02-03", "Far:02-0a-0b-01-02-03"));
    EXPECT_EQ(module.Close(), 0);
}

TEST(BroadcastAnswer, TheReceiverIsThereWhileTheInterfaceIsOpen)
{
    const Cable cable("10.9.0.5/24");
    GvcpCamera peer(&cable.host);
    InterfaceModule module;
    EXPECT_THAT(PortsOfBroadcastReceivers(), IsEmpty());
    ASSERT_EQ(module.Open(), 0);
    module.Scan(0);
    ASSERT_TRUE(peer.WaitForCount(1));
    char port[8];
    std::snprintf(port, sizeof port, "%04X", peer.Received()[0].senderPort);
    EXPECT_THAT(PortsOfBroadcastReceivers(), ElementsAre(port));
    EXPECT_EQ(module.Close(), 0);
    EXPECT_THAT(PortsOfBroadcastReceivers(), IsEmpty());
}

TEST(BroadcastAnswer, ThereIsNoReceiverForTheExcludedAddresses)
{
    for (const char* address : {"0.0.0.0", "127.0.0.1"})
    {
        _NQ_GEV_INTERFACE_INFO info = Adapter(address);
        info.adapterName = "lo";
        InterfaceModule module(info);
        ASSERT_EQ(module.Open(), 0);
        EXPECT_THAT(PortsOfBroadcastReceivers(), IsEmpty()) << address;
        EXPECT_EQ(module.Close(), 0);
    }
}

// Deliberate(ReceiverMayBeMissing)
TEST(BroadcastAnswer, AScanWorksWithoutTheReceiverAndLogsNothing)
{
    refusesBroadcastAddress = true;
    const Cable cable("10.9.0.5/24");
    GvcpCamera peer(&cable.host);
    peer.SetDiscovery(Camera());
    const TraceCapture trace;
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    module.Scan();
    EXPECT_THAT(PortsOfBroadcastReceivers(), IsEmpty());
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-0b-01-02-03"));
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
    EXPECT_EQ(module.Close(), 0);
}

TEST(BroadcastAnswer, TwoInterfacesMayHaveTheSamePort)
{
    const Cable cable("10.9.0.5/24");
    refusesDevices = true;
    NQGevSocket sockets[2];
    NQGevBroadcastReceiver receivers[2];
    Shell("ip addr add 10.9.1.1/24 dev cam0");
    for (unsigned int number = 0; number < 2; ++number)
    {
        ASSERT_TRUE(sockets[number].Create(AF_INET, SOCK_DGRAM, 0));
        ASSERT_TRUE(sockets[number].Bind(0x0A090001 + 0x100 * number, 4000));
        EXPECT_TRUE(receivers[number].Open(sockets[number], "cam0", 54800));
    }
}

} // namespace
