// SPDX-License-Identifier: Apache-2.0
// NQGevSocket against plain sockets.
#include "gige/nq_gev_socket_linux.h"
#include "support/asleep.h"
#include "support/gvcp_camera.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace
{

using nq::test::GvcpCamera;
using testing::ElementsAre;
using namespace nq::test::gvcp;

sockaddr_in At(unsigned int ip, unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(ip);
    address.sin_port = htons(port);
    return address;
}

sockaddr* Generic(sockaddr_in& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

long OpenFiles()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// The descriptor that the next open file gets.
int NextDescriptor()
{
    const int descriptor = fcntl(2, F_DUPFD_CLOEXEC, 0);
    close(descriptor);
    return descriptor;
}

/// An option of the socket that was made last, at `descriptor`.
template <typename Value = int>
Value Option(int descriptor, int option)
{
    Value value{};
    socklen_t length = sizeof value;
    getsockopt(descriptor, SOL_SOCKET, option, &value, &length);
    return value;
}

/// A socket that knows a peer, and that the peer can reach.
class NQGevSocketAtPeer : public testing::Test
{
  protected:
    void SetUp() override
    {
        m_descriptor = NextDescriptor();
        ASSERT_TRUE(m_socket.Create(AF_INET, SOCK_DGRAM, 0));
        ASSERT_TRUE(m_socket.Bind(0x7F000001, 40200));
    }

    void FromPeer(const nq::test::Bytes& bytes) { m_peer.Send(bytes, "127.0.0.1", 40200); }

    GvcpCamera m_peer;
    NQGevSocket m_socket;
    int m_descriptor = -1;
    sockaddr_in m_to = At(0x7F000001, 3956);
};

TEST(NQGevSocket, CreateMakesACloseOnExecSocket)
{
    const int descriptor = NextDescriptor();
    NQGevSocket socket;
    EXPECT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_EQ(Option(descriptor, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(NQGevSocket, CreateWithADescriptorIsFalseAndOpensNoSecondSocket)
{
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    const long before = OpenFiles();
    EXPECT_FALSE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_EQ(OpenFiles(), before);
}

// Deliberate(RefusedSocketIsStored)
TEST(NQGevSocket, CreateThatTheSystemRefusesCountsAsSuccessAndWhatFollowsFails)
{
    NQGevSocket socket;
    EXPECT_TRUE(socket.Create(AF_INET, -1, 0));
    EXPECT_FALSE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in to = At(0x7F000001, 3956);
    char data = 0;
    EXPECT_FALSE(socket.Bind(0, 0));
    EXPECT_FALSE(socket.SendTo(Generic(to), &data, 1));
    socket.Destroy();
    EXPECT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_TRUE(socket.Bind(0, 0));
}

// Deliberate(ZeroIsNoDescriptor)
TEST(NQGevSocket, CreateIsFalseWhenTheSystemHandsOutDescriptorZero)
{
    const int input = fcntl(0, F_DUPFD_CLOEXEC, 10);
    close(0);
    NQGevSocket socket;
    EXPECT_FALSE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "descriptor 0 was left open";
    if (input != -1)
    {
        dup2(input, 0);
        close(input);
    }
}

TEST(NQGevSocket, CanBeCreatedAgainAfterDestroy)
{
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(socket.Bind(0x7F000001, 40201));
    const long before = OpenFiles();
    socket.Destroy();
    EXPECT_EQ(OpenFiles(), before - 1);
    EXPECT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_TRUE(socket.Bind(0x7F000001, 40201));
}

TEST(NQGevSocket, DestroyWithoutADescriptorDoesNothing)
{
    NQGevSocket socket;
    const long before = OpenFiles();
    socket.Destroy();
    socket.Destroy();
    EXPECT_EQ(OpenFiles(), before);
}

TEST(NQGevSocket, DestructorClosesTheSocket)
{
    const long before = OpenFiles();
    {
        NQGevSocket socket;
        ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    }
    EXPECT_EQ(OpenFiles(), before);
}

TEST(NQGevSocket, WithoutADescriptorEverythingFailsAndStandardInputIsLeftAlone)
{
    std::array<int, 2> input{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, input.data()), 0);
    const int kept = fcntl(0, F_DUPFD_CLOEXEC, 10);
    dup2(input[0], 0);
    ASSERT_EQ(write(input[1], "x", 1), 1);

    NQGevSocket socket;
    sockaddr_in to = At(0x7F000001, 3956);
    std::array<char, 8> data{};
    auto* bytes = reinterpret_cast<unsigned char*>(data.data());
    unsigned int received = 77;
    EXPECT_FALSE(socket.Bind(0x7F000001, 40201));
    EXPECT_FALSE(socket.Bind(to));
    EXPECT_FALSE(socket.SendTo(Generic(to), data.data(), 1));
    EXPECT_FALSE(socket.SendTo(Generic(to), data.data(), 1, true, 1000));
    EXPECT_FALSE(socket.Select(1));
    EXPECT_FALSE(socket.Receive(data.data(), 8, received));
    EXPECT_FALSE(socket.Receive(data.data(), 8, received, 1));
    EXPECT_FALSE(socket.ReceiveFrom(nullptr, bytes, 8, received));
    EXPECT_FALSE(socket.ReceiveFrom(nullptr, bytes, 8, received, 1));
    EXPECT_FALSE(socket.SetBroadcast());
    EXPECT_FALSE(socket.SetReceiveTimeout(10));
    EXPECT_FALSE(socket.SetReceiveBufferSize(10000));
    EXPECT_EQ(received, 77U);
    EXPECT_EQ(recv(0, data.data(), 8, MSG_DONTWAIT), 1) << "what stood at standard input was taken";

    if (kept != -1)
    {
        dup2(kept, 0);
        close(kept);
    }
    close(input[0]);
    close(input[1]);
}

TEST(NQGevSocket, WithoutADescriptorATimedWaitLastsItsTimeSoThatLoopsKeepTheirPace)
{
    NQGevSocket socket;
    std::array<unsigned char, 8> data{};
    unsigned int received = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(socket.ReceiveFrom(nullptr, data.data(), 8, received, 50));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(NQGevSocketAtPeer, BindTakesAddressAndPortInHostOrder)
{
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    ASSERT_EQ(getsockname(m_descriptor, Generic(bound), &length), 0);
    EXPECT_EQ(ntohl(bound.sin_addr.s_addr), 0x7F000001U);
    EXPECT_EQ(ntohs(bound.sin_port), 40200);
}

TEST_F(NQGevSocketAtPeer, BindToATakenPortIsFalse)
{
    NQGevSocket second;
    ASSERT_TRUE(second.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_FALSE(second.Bind(0x7F000001, 40200));
    EXPECT_TRUE(second.Bind(0x7F000001, 40202));
}

TEST_F(NQGevSocketAtPeer, BindTakesAnAddressAsItStands)
{
    const int descriptor = NextDescriptor();
    NQGevSocket second;
    ASSERT_TRUE(second.Create(AF_INET, SOCK_DGRAM, 0));
    EXPECT_TRUE(second.Bind(At(0x7F000002, 40203)));
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    ASSERT_EQ(getsockname(descriptor, Generic(bound), &length), 0);
    EXPECT_EQ(ntohl(bound.sin_addr.s_addr), 0x7F000002U);
    EXPECT_EQ(ntohs(bound.sin_port), 40203);
}

TEST_F(NQGevSocketAtPeer, SendsOneDatagramWithTheseBytes)
{
    m_peer.Otherwise(Silent());
    std::string text = "hello";
    EXPECT_TRUE(m_socket.SendTo(Generic(m_to), text.data(), 5));
    ASSERT_TRUE(m_peer.WaitForCount(1));
    EXPECT_THAT(m_peer.ReceivedBytes()[0], ElementsAre('h', 'e', 'l', 'l', 'o'));
    EXPECT_EQ(m_peer.Received()[0].senderPort, 40200);
}

TEST_F(NQGevSocketAtPeer, SendThatTheSystemRefusesIsFalse)
{
    sockaddr_in unreachable = At(0x0A090002, 3956);
    char data = 0;
    EXPECT_FALSE(m_socket.SendTo(Generic(unreachable), &data, 1));
    EXPECT_FALSE(m_socket.SendTo(Generic(unreachable), &data, 1, true, 10000));
}

// Deliberate(SendSizesTheReceiveBuffer)
TEST_F(NQGevSocketAtPeer, SendWithABufferSizeSetsTheReceiveBufferNotTheSendBuffer)
{
    m_peer.Otherwise(Silent());
    const int sendBuffer = Option(m_descriptor, SO_SNDBUF);
    char data = 'x';
    EXPECT_TRUE(m_socket.SendTo(Generic(m_to), &data, 1, true, 20000));
    EXPECT_EQ(Option(m_descriptor, SO_RCVBUF), 40000); // the system keeps twice what is asked for
    EXPECT_EQ(Option(m_descriptor, SO_SNDBUF), sendBuffer);
    EXPECT_TRUE(m_peer.WaitForCount(1));
}

TEST_F(NQGevSocketAtPeer, SendWithoutBufferSettingLeavesTheBufferAlone)
{
    m_peer.Otherwise(Silent());
    const int before = Option(m_descriptor, SO_RCVBUF);
    char data = 'x';
    EXPECT_TRUE(m_socket.SendTo(Generic(m_to), &data, 1, false, 20000));
    EXPECT_EQ(Option(m_descriptor, SO_RCVBUF), before);
}

TEST_F(NQGevSocketAtPeer, SelectSeesWaitingData)
{
    EXPECT_FALSE(m_socket.Select(1));
    FromPeer({1});
    EXPECT_TRUE(m_socket.Select(10000));
    EXPECT_TRUE(m_socket.Select(0));
}

TEST_F(NQGevSocketAtPeer, NegativeTimeoutIsFalseAtOnceEvenWithData)
{
    FromPeer({1});
    ASSERT_TRUE(m_socket.Select(10000));
    std::array<char, 8> data{};
    unsigned int received = 77;
    EXPECT_FALSE(m_socket.Select(-1));
    EXPECT_FALSE(m_socket.Receive(data.data(), 8, received, -1));
    EXPECT_EQ(received, 77U);
}

TEST_F(NQGevSocketAtPeer, ReceiveTakesOneDatagramAndItsLength)
{
    FromPeer({1, 2, 3});
    FromPeer({4});
    std::array<char, 8> data{};
    unsigned int received = 0;
    EXPECT_TRUE(m_socket.Receive(data.data(), 8, received));
    EXPECT_EQ(received, 3U);
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 0, 0, 0, 0, 0));
    EXPECT_TRUE(m_socket.Receive(data.data(), 8, received, 10000));
    EXPECT_EQ(received, 1U);
}

TEST_F(NQGevSocketAtPeer, ReceiveWithNothingInTimeIsFalseAndLeavesTheLengthAlone)
{
    std::array<char, 8> data{};
    unsigned int received = 77;
    EXPECT_FALSE(m_socket.Receive(data.data(), 8, received, 1));
    auto* bytes = reinterpret_cast<unsigned char*>(data.data());
    EXPECT_FALSE(m_socket.ReceiveFrom(nullptr, bytes, 8, received, 1));
    EXPECT_EQ(received, 77U);
}

TEST_F(NQGevSocketAtPeer, OfTwoThreadsThatWaitForOneDatagramTheOtherGivesUpInTime)
{
    for (int round = 0; round < 100; ++round)
    {
        std::atomic<int> taken = 0;
        const auto wait = [&] {
            std::array<char, 8> data{};
            unsigned int received = 0;
            taken += m_socket.Receive(data.data(), 8, received, 20) ? 1 : 0;
        };
        std::thread one(wait);
        std::thread other(wait);
        FromPeer({1});
        one.join();
        other.join();
        ASSERT_LE(taken, 1);
        std::array<char, 8> rest{};
        unsigned int received = 0;
        while (m_socket.Receive(rest.data(), 8, received, 0))
        {
        }
    }
}

TEST_F(NQGevSocketAtPeer, EmptyDatagramIsFalseAndLeavesTheLengthAlone)
{
    std::array<char, 8> data{};
    auto* bytes = reinterpret_cast<unsigned char*>(data.data());
    unsigned int received = 77;
    for (int datagram = 0; datagram < 4; ++datagram)
    {
        FromPeer({});
    }
    EXPECT_FALSE(m_socket.Receive(data.data(), 8, received));
    EXPECT_FALSE(m_socket.Receive(data.data(), 8, received, 10000));
    EXPECT_FALSE(m_socket.ReceiveFrom(nullptr, bytes, 8, received));
    EXPECT_FALSE(m_socket.ReceiveFrom(nullptr, bytes, 8, received, 10000));
    EXPECT_EQ(received, 77U);
}

TEST_F(NQGevSocketAtPeer, DatagramLargerThanTheBufferIsCut)
{
    FromPeer({1, 2, 3, 4, 5});
    std::array<char, 4> data{};
    unsigned int received = 0;
    EXPECT_TRUE(m_socket.Receive(data.data(), 2, received));
    EXPECT_EQ(received, 2U);
    EXPECT_THAT(data, ElementsAre(1, 2, 0, 0));
    EXPECT_FALSE(m_socket.Select(0));
}

TEST_F(NQGevSocketAtPeer, ReceiveFromStoresTheSender)
{
    std::array<unsigned char, 8> data{};
    unsigned int received = 0;
    for (const int timeout : {-1, 10000})
    {
        FromPeer({9, 8});
        sockaddr_in from{};
        const bool taken = timeout < 0 ? m_socket.ReceiveFrom(Generic(from), data.data(), 8, received)
                                       : m_socket.ReceiveFrom(Generic(from), data.data(), 8, received, timeout);
        EXPECT_TRUE(taken);
        EXPECT_EQ(received, 2U);
        EXPECT_EQ(ntohl(from.sin_addr.s_addr), 0x7F000001U);
        EXPECT_EQ(ntohs(from.sin_port), 3956);
    }
}

TEST_F(NQGevSocketAtPeer, ReceiveFromWithANullAddressReceivesTheDataAndStoresNoSender)
{
    std::array<unsigned char, 8> data{};
    unsigned int received = 0;
    FromPeer({9, 8});
    EXPECT_TRUE(m_socket.ReceiveFrom(nullptr, data.data(), 8, received));
    EXPECT_THAT(data, ElementsAre(9, 8, 0, 0, 0, 0, 0, 0));
    FromPeer({7});
    EXPECT_TRUE(m_socket.ReceiveFrom(nullptr, data.data(), 8, received, 10000));
    EXPECT_EQ(received, 1U);
}

TEST_F(NQGevSocketAtPeer, OptionsReachTheSocket)
{
    EXPECT_TRUE(m_socket.SetBroadcast());
    EXPECT_EQ(Option(m_descriptor, SO_BROADCAST), 1);
    EXPECT_TRUE(m_socket.SetReceiveTimeout(1500));
    const auto timeout = Option<timeval>(m_descriptor, SO_RCVTIMEO);
    EXPECT_EQ(timeout.tv_sec, 1);
    EXPECT_EQ(timeout.tv_usec, 500000);
    EXPECT_TRUE(m_socket.SetReceiveBufferSize(30000));
    EXPECT_EQ(Option(m_descriptor, SO_RCVBUF), 60000);
}

TEST_F(NQGevSocketAtPeer, ReceiveTimeoutEndsABlockingReceive)
{
    ASSERT_TRUE(m_socket.SetReceiveTimeout(1));
    std::array<char, 8> data{};
    unsigned int received = 77;
    EXPECT_FALSE(m_socket.Receive(data.data(), 8, received));
    EXPECT_EQ(received, 77U);
}

TEST_F(NQGevSocketAtPeer, DestroyWakesAThreadThatReceivesWithoutEnd)
{
    std::atomic<bool> result{true};
    nq::test::CallingThread receiver([&] {
        std::array<char, 8> data{};
        unsigned int received = 0;
        result = m_socket.Receive(data.data(), 8, received);
    });
    receiver.AwaitAsleep();
    m_socket.Destroy();
    receiver.Join();
    EXPECT_FALSE(result);
}

TEST_F(NQGevSocketAtPeer, DestroyWakesAThreadThatWaitsForALongTime)
{
    std::atomic<bool> result{true};
    nq::test::CallingThread receiver([&] {
        std::array<unsigned char, 8> data{};
        unsigned int received = 0;
        result = m_socket.ReceiveFrom(nullptr, data.data(), 8, received, 600000);
    });
    receiver.AwaitAsleep();
    m_socket.Destroy();
    receiver.Join();
    EXPECT_FALSE(result);
}

TEST_F(NQGevSocketAtPeer, NumberOfADestroyedSocketIsFreeOnlyWhenNobodyReceivesOnItAnyMore)
{
    std::atomic<int> taken{0};
    nq::test::CallingThread receiver([&] {
        std::array<char, 8> data{};
        unsigned int received = 0;
        while (m_socket.Receive(data.data(), 8, received))
        {
            ++taken;
        }
    });
    receiver.AwaitAsleep();
    m_socket.Destroy();
    // The process reuses the number at once; what arrives there is not the receiver's.
    NQGevSocket other;
    ASSERT_TRUE(other.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_EQ(Option(m_descriptor, SO_TYPE), SOCK_DGRAM);
    ASSERT_TRUE(other.Bind(0x7F000001, 40205));
    m_peer.Send({1}, "127.0.0.1", 40205);
    receiver.Join();
    EXPECT_EQ(taken, 0);
    EXPECT_TRUE(other.Select(10000));
}

TEST_F(NQGevSocketAtPeer, DestroyAndCreateAgainAndAgainWhileOthersReceive)
{
    std::atomic<bool> over{false};
    const auto receive = [&] {
        std::array<unsigned char, 8> data{};
        unsigned int received = 0;
        while (!over)
        {
            m_socket.ReceiveFrom(nullptr, data.data(), 8, received, 1);
        }
    };
    std::thread first(receive);
    std::thread second(receive);
    for (int round = 0; round < 200; ++round)
    {
        m_socket.Destroy();
        ASSERT_TRUE(m_socket.Create(AF_INET, SOCK_DGRAM, 0));
        ASSERT_TRUE(m_socket.Bind(0x7F000001, 40200));
    }
    over = true;
    first.join();
    second.join();
}

TEST(NQGevSocket, DescriptorAbove1023IsWaitedForLikeAnyOther)
{
    const rlimit limit{4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
    {
        GTEST_SKIP() << "the limit of open files cannot be set to 4096";
    }
    std::vector<int> fillers;
    while (NextDescriptor() < 2000)
    {
        fillers.push_back(fcntl(2, F_DUPFD_CLOEXEC, 0));
    }
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(socket.Bind(0x7F000001, 40204));
    EXPECT_FALSE(socket.Select(1));
    sockaddr_in self = At(0x7F000001, 40204);
    char data = 'x';
    ASSERT_TRUE(socket.SendTo(Generic(self), &data, 1));
    unsigned int received = 0;
    EXPECT_TRUE(socket.Receive(&data, 1, received, 10000));
    for (const int filler : fillers)
    {
        close(filler);
    }
}

} // namespace
