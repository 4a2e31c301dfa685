// SPDX-License-Identifier: Apache-2.0
// GigETL::Network against a scripted peer and against plain sockets.
#include "gige/gige_network.h"
#include "support/gvcp_camera.h"
#include "support/network.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

using GigETL::Command;
using GigETL::Network;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using testing::ElementsAre;
using namespace nq::test::gvcp;

constexpr unsigned int kLoopback = 0x7F000001;

/// The only socket among this process's descriptors that is bound to `port` of IPv4, or -1.
int DescriptorAtPort(unsigned int port)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        const int descriptor = std::stoi(entry.path().filename());
        sockaddr_in address{};
        socklen_t length = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == port)
        {
            return descriptor;
        }
    }
    return -1;
}

int BroadcastOption(int descriptor)
{
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &value, &length);
    return value;
}

/// A network made while the process may open no file.
std::unique_ptr<Network> NetworkWithoutSocket()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    auto network = std::make_unique<Network>(kLoopback, 3956U, 0U, 0U);
    setrlimit(RLIMIT_NOFILE, &limit);
    return network;
}

Bytes BytesOf(const Command& command)
{
    Bytes bytes(static_cast<std::size_t>(command.getSize()));
    command.readMemory(0, bytes.data(), static_cast<unsigned int>(bytes.size()));
    return bytes;
}

/// A network at the peer and the receive buffer of one exchange with it.
struct Exchange
{
    Network network{kLoopback, 3956, kLoopback, 0};
    Command ack;
    timeval wait{10, 0};

    NQGigE_RETURN Run()
    {
        network.sendCommand(Command(0x0080, 4, 0x01));
        return network.receiveCommand(ack, &wait, nullptr, nullptr);
    }
};

TEST(Network, KnowsItsAddressesInHostOrder)
{
    Network network(0x0A090002, 3956, kLoopback, 40123);
    EXPECT_EQ(network.getRemoteIP(), 0x0A090002U);
    EXPECT_EQ(network.getRemotePort(), 3956U);
    EXPECT_EQ(network.getLocalIP(), kLoopback);
    EXPECT_EQ(network.getLocalPort(), 40123U);
    EXPECT_FALSE(network.isBroadcasting());
}

TEST(Network, RemoteAddressZeroIsTheBroadcastState)
{
    const Network network(0, 3956, kLoopback, 0);
    EXPECT_TRUE(network.isBroadcasting());
    EXPECT_EQ(network.getRemoteIP(), 0xFFFFFFFFU);
}

TEST(Network, PortZeroLetsTheSystemChoose)
{
    Network network(kLoopback, 3956, kLoopback, 0);
    const unsigned int port = network.getLocalPort();
    EXPECT_NE(port, 0U);
    EXPECT_NE(DescriptorAtPort(port), -1);
    EXPECT_EQ(network.getLocalPort(), port);
}

TEST(Network, UnboundLocalAddressStaysZero)
{
    Network network(kLoopback, 3956, 0, 0);
    EXPECT_EQ(network.getLocalIP(), 0U);
    EXPECT_NE(network.getLocalPort(), 0U);
}

TEST(Network, LocalPortIsZeroAfterAFailedBindWhateverPortWasAskedFor)
{
    Network taken(kLoopback, 3956, kLoopback, 40124);
    Network second(kLoopback, 3956, kLoopback, 40124);
    EXPECT_EQ(taken.getLocalPort(), 40124U);
    EXPECT_EQ(second.getLocalPort(), 0U);
}

TEST(Network, AddressThatCannotBeAskedForIsZero)
{
    const int next = dup(0);
    close(next);
    Network network(kLoopback, 3956, 0, 0);
    close(next); // the network's own descriptor
    EXPECT_EQ(network.getLocalIP(), 0U);
    EXPECT_EQ(network.getLocalPort(), 0U);
}

TEST(Network, ForeignLocalAddressGivesNoPort)
{
    Network network(kLoopback, 3956, 0x0A090909, 0);
    EXPECT_EQ(network.getLocalPort(), 0U);
}

TEST(Network, InitCalledAgainGivesANewSocketAndLeaksNone)
{
    Network network(kLoopback, 3956, kLoopback, 40125);
    network.init(kLoopback, 3957, kLoopback, 40126);
    EXPECT_EQ(network.getLocalPort(), 40126U);
    EXPECT_EQ(network.getRemotePort(), 3957U);
    EXPECT_EQ(DescriptorAtPort(40125), -1);
}

TEST(Network, CountsLivingObjects)
{
    EXPECT_EQ(Network::mInstanceCounter.load(), 0);
    {
        const Network first(kLoopback, 3956, 0, 0);
        const Network second(kLoopback, 3956, 0x0A090909, 0);
        EXPECT_EQ(Network::mInstanceCounter.load(), 2);
    }
    EXPECT_EQ(Network::mInstanceCounter.load(), 0);
}

TEST(Network, SocketIsClosedWithTheObjectAndCloseOnExecBefore)
{
    {
        Network network(kLoopback, 3956, kLoopback, 40127);
        const int descriptor = DescriptorAtPort(40127);
        ASSERT_NE(descriptor, -1);
        EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_EQ(DescriptorAtPort(40127), -1);
}

TEST(Network, WithoutASocketEveryOperationSaysNoConnectionWithoutASystemCall)
{
    const std::unique_ptr<Network> network = NetworkWithoutSocket();
    Command ack;
    timeval wait{1, 0};
    errno = 0;
    EXPECT_EQ(network->sendCommand(Command(0x0080, 4, 0x01)), -208);
    EXPECT_EQ(network->receiveCommand(ack, &wait, nullptr, nullptr), -208);
    EXPECT_EQ(network->broadcastCommand(Command(0x0080, 4, 0x01)), -208);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(wait.tv_sec, 1);
    EXPECT_EQ(network->getLocalPort(), 0U);
    EXPECT_EQ(network->getLocalIP(), 0U);
}

TEST(Network, SendsTheCurrentSizeOfTheCommand)
{
    GvcpCamera peer;
    Network network(kLoopback, 3956, kLoopback, 0);
    Command command(0x0086, 8, 0x01);
    command.setSize(10);
    EXPECT_EQ(network.sendCommand(command), 0);
    ASSERT_TRUE(peer.WaitForCount(1));
    EXPECT_THAT(peer.ReceivedBytes()[0], ElementsAre(0x42, 0x01, 0x00, 0x86, 0x00, 0x08, 0x00, 0x01, 0x00, 0x00));
    EXPECT_EQ(peer.Received()[0].senderPort, network.getLocalPort());
}

TEST(Network, SizeAboveTheBufferSendsTheBufferOnly)
{
    GvcpCamera peer;
    Network network(kLoopback, 3956, kLoopback, 0);
    Command command(0x0080, 4, 0x01);
    command.setSize(60000);
    EXPECT_EQ(network.sendCommand(command), 0);
    ASSERT_TRUE(peer.WaitForCount(1));
    EXPECT_EQ(peer.ReceivedBytes()[0].size(), 12U);
}

// Deliberate(FailedSendIsATimeout)
TEST(Network, FailedSendSharesItsCodeWithATimeout)
{
    Network unreachable(0x0A090002, 3956, 0, 0);
    EXPECT_EQ(unreachable.sendCommand(Command(0x0080, 4, 0x01)), -212);
}

TEST(Network, ReceivesWithSenderInHostOrder)
{
    GvcpCamera peer(nullptr, "127.0.0.5");
    Network network(0x7F000005, 3956, kLoopback, 0);
    network.sendCommand(Command(0x0080, 4, 0x01));
    Command ack;
    timeval wait{10, 0};
    unsigned long senderIP = 0;
    unsigned int senderPort = 0;
    EXPECT_EQ(network.receiveCommand(ack, &wait, &senderIP, &senderPort), 0);
    EXPECT_EQ(senderIP, 0x7F000005U);
    EXPECT_EQ(senderPort, 3956U);
    EXPECT_THAT(BytesOf(ack), ElementsAre(0, 0, 0x00, 0x81, 0, 4, 0, 1, 0, 0, 0, 0));
    EXPECT_EQ(ack.getMaxSize(), 548);
}

TEST(Network, NothingInTimeIsATimeoutAndTheTimeIsUsedUp)
{
    GvcpCamera peer;
    peer.Otherwise(Silent());
    Exchange exchange;
    exchange.wait = {0, 5000};
    EXPECT_EQ(exchange.Run(), -212);
    EXPECT_EQ(exchange.wait.tv_sec, 0);
    EXPECT_EQ(exchange.wait.tv_usec, 0);
}

TEST(Network, FailedWaitIsASocketError)
{
    Network network(kLoopback, 3956, kLoopback, 0);
    Command ack;
    timeval wait{-1, 0};
    EXPECT_EQ(network.receiveCommand(ack, &wait, nullptr, nullptr), -10);
}

TEST(Network, TimeLeftIsWrittenBack)
{
    GvcpCamera peer;
    peer.Otherwise(Late(std::chrono::milliseconds(400), Value(1)));
    Exchange exchange;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange.Run(), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    const auto left = std::chrono::seconds(exchange.wait.tv_sec) + std::chrono::microseconds(exchange.wait.tv_usec);
    // The camera's 400 ms begin with the command, the wait a little later.
    EXPECT_GE(left, std::chrono::seconds(10) - took);
    EXPECT_LT(left, std::chrono::seconds(10));
}

TEST(Network, PendingAcknowledgeOf1500MsChangesTheWaitToOneSecondAnd500000Microseconds)
{
    GvcpCamera peer;
    peer.Otherwise(Sequence({Pending(1500), Late(std::chrono::milliseconds(400), Value(0x11223344))}));
    Exchange exchange;
    exchange.wait = {0, 200000};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange.Run(), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(exchange.ack.getDWord(8), 0x11223344U);
    // Of 1.5 s from the first answer on, less is gone than the whole exchange took.
    const auto left = std::chrono::seconds(exchange.wait.tv_sec) + std::chrono::microseconds(exchange.wait.tv_usec);
    EXPECT_GE(left, std::chrono::microseconds(1500000) - took);
    EXPECT_LT(left, std::chrono::microseconds(1500000));
}

// Deliberate(PendingHasNoLimit)
TEST(Network, PendingAcknowledgeMayExtendTheWaitAsOftenAsTheCameraLikes)
{
    GvcpCamera peer;
    std::vector<nq::test::GvcpRule> rules(100, Pending(5000));
    rules.push_back(Value(7));
    peer.Otherwise(Sequence(rules));
    Exchange exchange;
    EXPECT_EQ(exchange.Run(), 0);
    EXPECT_EQ(exchange.ack.getDWord(8), 7U);
}

TEST(Network, PendingAcknowledgeOfZeroEndsTheWait)
{
    GvcpCamera peer;
    peer.Otherwise(Pending(0));
    Exchange exchange;
    EXPECT_EQ(exchange.Run(), -212);
}

TEST(Network, ShortPendingAcknowledgeAsksForNoTime)
{
    GvcpCamera peer;
    peer.Otherwise(Short(8, Pending(60000)));
    Exchange exchange;
    EXPECT_EQ(exchange.Run(), -212);
}

TEST(Network, PendingAcknowledgeWithoutATimeKeepsWaiting)
{
    GvcpCamera peer;
    peer.Otherwise(Sequence({Pending(0), Value(5)}));
    Network network(kLoopback, 3956, kLoopback, 0);
    network.sendCommand(Command(0x0080, 4, 0x01));
    Command ack;
    EXPECT_EQ(network.receiveCommand(ack, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(ack.getDWord(8), 5U);
}

// Deliberate(NothingTakenIsASuccess)
TEST(Network, EmptyDatagramIsASuccessWithAnUnchangedSize)
{
    GvcpCamera peer;
    peer.Otherwise(Literal({}));
    Exchange exchange;
    exchange.ack.setReceivedSize(77);
    exchange.ack.setByte(20, 0xAB);
    EXPECT_EQ(exchange.Run(), 0);
    EXPECT_EQ(exchange.ack.getSize(), 77);
    EXPECT_EQ(exchange.ack.getByte(20), 0xAB);
}

TEST(Network, EmptyDatagramStoresNoSender)
{
    GvcpCamera peer;
    peer.Otherwise(Literal({}));
    Network network(kLoopback, 3956, kLoopback, 0);
    network.sendCommand(Command(0x0080, 4, 0x01));
    Command ack;
    timeval wait{10, 0};
    unsigned long senderIP = 1;
    unsigned int senderPort = 2;
    EXPECT_EQ(network.receiveCommand(ack, &wait, &senderIP, &senderPort), 0);
    EXPECT_EQ(senderIP, 1U);
    EXPECT_EQ(senderPort, 2U);
}

TEST(Network, BytesBehindAShortDatagramReadAsZero)
{
    GvcpCamera peer;
    peer.Otherwise(Short(9, Value(0xFFFFFFFF)));
    Exchange exchange;
    for (int offset = 0; offset < 548; ++offset)
    {
        exchange.ack.setByte(offset, 0xCC);
    }
    EXPECT_EQ(exchange.Run(), 0);
    EXPECT_EQ(exchange.ack.getSize(), 9);
    EXPECT_EQ(exchange.ack.getDWord(8), 0xFF000000U);
    EXPECT_EQ(exchange.ack.getByte(547), 0);
}

TEST(Network, DatagramLargerThanTheBufferIsCutToIt)
{
    GvcpCamera peer;
    peer.Otherwise(Oversized(9000, Value(3)));
    Exchange exchange;
    EXPECT_EQ(exchange.Run(), 0);
    EXPECT_EQ(exchange.ack.getSize(), 548);
    EXPECT_EQ(exchange.ack.getMaxSize(), 548);
    EXPECT_EQ(exchange.ack.getByte(547), 0xEE);
}

TEST(Network, ReceivesIntoASmallCommandUpToItsMaximumSize)
{
    GvcpCamera peer;
    peer.Otherwise(Pending(100));
    Network network(kLoopback, 3956, kLoopback, 0);
    Command small(0x0080, 0, 0x01);
    network.sendCommand(small);
    timeval wait{10, 0};
    EXPECT_EQ(network.receiveCommand(small, &wait, nullptr, nullptr), 0);
    EXPECT_EQ(small.getSize(), 8);
}

TEST(Network, TakesWhateverArrivesWhoeverSentIt)
{
    GvcpCamera stranger(nullptr, "127.0.0.1", 0);
    Network network(kLoopback, 3956, kLoopback, 0);
    stranger.Send({0xDE, 0xAD}, "127.0.0.1", static_cast<std::uint16_t>(network.getLocalPort()));
    Command ack;
    timeval wait{10, 0};
    unsigned int senderPort = 0;
    EXPECT_EQ(network.receiveCommand(ack, &wait, nullptr, &senderPort), 0);
    EXPECT_THAT(BytesOf(ack), ElementsAre(0xDE, 0xAD));
    EXPECT_EQ(senderPort, stranger.Port());
}

TEST(Network, BroadcastReachesACameraOnTheCableAndGoesToTheRemotePort)
{
    const nq::test::Host camera;
    camera.Connect("nq0", "10.9.0.1/24", "cam0", "10.9.0.2/24");
    GvcpCamera peer(&camera, "0.0.0.0", 3999);
    peer.AwaitPath("10.9.0.1");
    Network network(0x0A090063, 3999, 0x0A090001, 0);
    EXPECT_EQ(network.broadcastCommand(Command(0x0002, 8, 0x11)), 0);
    ASSERT_TRUE(peer.WaitForCount(1));
    EXPECT_THAT(peer.ReceivedBytes()[0], ElementsAre(0x42, 0x11, 0x00, 0x02, 0, 8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(Network, BroadcastLeavesAddressAndOptionAsTheyWere)
{
    const nq::test::Host camera;
    camera.Connect("nq0", "10.9.0.1/24", "cam0", "10.9.0.2/24");
    Network network(0x0A090002, 3956, 0x0A090001, 0);
    EXPECT_EQ(network.broadcastCommand(Command(0x0002, 8, 0x11)), 0);
    EXPECT_EQ(network.getRemoteIP(), 0x0A090002U);
    EXPECT_FALSE(network.isBroadcasting());
    EXPECT_EQ(BroadcastOption(DescriptorAtPort(network.getLocalPort())), 0);
}

TEST(Network, BroadcastThatCannotBeSentLeavesAddressAndOptionAsTheyWere)
{
    // No route leads to the broadcast address here.
    Network network(kLoopback, 3956, 0, 0);
    nq::test::Shell("ip route add unreachable 255.255.255.255/32");
    EXPECT_EQ(network.broadcastCommand(Command(0x0002, 8, 0x11)), -212);
    EXPECT_EQ(network.getRemoteIP(), kLoopback);
    EXPECT_EQ(BroadcastOption(DescriptorAtPort(network.getLocalPort())), 0);
}

TEST(Network, RawSendGoesToTheRemoteAddressAndAlwaysReturnsZero)
{
    GvcpCamera peer;
    peer.Otherwise(Silent());
    Network network(kLoopback, 3956, kLoopback, 0);
    std::string text = "abc";
    EXPECT_EQ(Network::gvcp_send(text.data(), 3, &network), 0);
    ASSERT_TRUE(peer.WaitForCount(1));
    EXPECT_THAT(peer.ReceivedBytes()[0], ElementsAre('a', 'b', 'c'));
    EXPECT_EQ(Network::gvcp_send(text.data(), -1, &network), 0);
    const std::unique_ptr<Network> closed = NetworkWithoutSocket();
    EXPECT_EQ(Network::gvcp_send(text.data(), 3, closed.get()), 0);
}

TEST(Network, AdapterAddressIsFoundByInterfaceIndex)
{
    EXPECT_EQ(Network::getNetAdapterIP(1), kLoopback);
    nq::test::Shell("ip link add nq7 index 7 type veth && ip addr add 10.9.7.1/24 dev nq7 && ip link set nq7 up");
    EXPECT_EQ(Network::getNetAdapterIP(7), 0x0A090701U);
}

TEST(Network, AdapterWithoutAddressOrWithoutInterfaceIsZero)
{
    nq::test::Shell("ip link add nq7 index 7 type veth && ip link set nq7 up");
    EXPECT_EQ(Network::getNetAdapterIP(7), 0U);
    EXPECT_EQ(Network::getNetAdapterIP(0), 0U);
    EXPECT_EQ(Network::getNetAdapterIP(-1), 0U);
    EXPECT_EQ(Network::getNetAdapterIP(99), 0U);
}

TEST(Network, AdapterQueryWithoutADescriptorIsZero)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(Network::getNetAdapterIP(1), 0U);
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Network, HelpersOfOtherSystemsDoNothing)
{
    testing::internal::CaptureStdout();
    Network::initWinsocks();
    Network::printIP(kLoopback);
    Network::printMAC(1, 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

} // namespace
