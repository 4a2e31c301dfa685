// SPDX-License-Identifier: Apache-2.0
// Peers of another make that take a connection and then say what no peer says: their own connection ends, and nothing
// else does.
#include "loopback/rendezvous_folder.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace nq::test
{

namespace
{

// What the messages of the connection manager are called on their way: the second word of each.
constexpr uint32_t kTaken = 2;
constexpr uint32_t kReply = 6;
constexpr uint32_t kReject = 8;

/// Takes the one connection that is offered to it, and has both of its streams.
class HostilePeer
{
  public:
    explicit HostilePeer(const std::string& folder) : m_waiting(socket(AF_UNIX, SOCK_SEQPACKET, 0))
    {
        struct stat scope
        {
        };
        Require(stat("/proc/self/ns/net", &scope) == 0, "stat");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = folder + "/4791_" + std::to_string(scope.st_ino) + "_any_1_1";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        Require(bind(m_waiting, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
        Require(listen(m_waiting, 1) == 0, "listen");
        m_host = std::thread([this] { Take(); });
    }
    ~HostilePeer()
    {
        Await();
        for (const int open : {m_waiting, m_control, m_streams[0], m_streams[1]})
        {
            close(open);
        }
    }
    HostilePeer(const HostilePeer&) = delete;
    HostilePeer& operator=(const HostilePeer&) = delete;

    /// Waits until the offer is taken.
    void Await()
    {
        if (m_host.joinable())
        {
            m_host.join();
        }
    }

    /// Sends the request back as a message of another kind.
    void Say(uint32_t kind)
    {
        std::memcpy(m_message.data() + 4, &kind, sizeof kind);
        Require(send(m_control, m_message.data(), m_message.size(), 0) > 0, "send");
    }

    /// Answers the message `sequence` on the stream of the acknowledgements.
    void Acknowledge(uint32_t kind, uint32_t status, uint64_t sequence) const
    {
        const std::array<uint64_t, 2> record{kind | uint64_t{status} << 32, sequence};
        Require(send(m_streams[1], record.data(), sizeof record, 0) == sizeof record, "send");
    }

    /// Writes what is no message into the stream of the messages.
    void WriteNonsense() const
    {
        const std::array<char, 64> nonsense{};
        Require(send(m_streams[0], nonsense.data(), sizeof nonsense, 0) == sizeof nonsense, "send");
    }

  private:
    void Take()
    {
        m_control = accept(m_waiting, nullptr, nullptr);
        m_message.resize(4096);
        iovec vector{m_message.data(), m_message.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof m_streams)> space{};
        msghdr header{};
        header.msg_iov = &vector;
        header.msg_iovlen = 1;
        header.msg_control = space.data();
        header.msg_controllen = space.size();
        const ssize_t length = recvmsg(m_control, &header, 0);
        Require(length > 8 && CMSG_FIRSTHDR(&header) != nullptr, "recvmsg");
        m_message.resize(static_cast<size_t>(length));
        std::memcpy(m_streams.data(), CMSG_DATA(CMSG_FIRSTHDR(&header)), sizeof m_streams);
        Say(kTaken);
    }

    int m_waiting;
    int m_control = -1;
    std::array<int, 2> m_streams{-1, -1};
    std::vector<char> m_message;
    std::thread m_host;
};

/// A side whose connect a hostile peer has taken.
struct Victim
{
    Victim()
    {
        side.Resolve(Address("127.0.0.1", 4791));
        side.MakeQueuePair();
        Require(rdma_connect(side.id, nullptr) == 0, "rdma_connect");
        peer.Await();
    }

    void Establish()
    {
        peer.Say(kReply);
        Expect(side.channel, RDMA_CM_EVENT_ESTABLISHED);
    }

    void Send()
    {
        Memory& memory = side.Register(60);
        ASSERT_EQ(side.PostSend(9, {memory.Whole()}), 0);
    }

    Folder folder;
    HostilePeer peer{folder.path};
    Side side;
};

} // namespace

TEST(LoopbackHostilePeer, RefusalWithAStatusThatThereIsNotIsABadResponse)
{
    Victim victim;
    victim.Establish();
    victim.Send();
    victim.peer.Acknowledge(1, 4096, 1);
    const ibv_wc sent = victim.side.Next();
    EXPECT_EQ(sent.wr_id, 9U);
    EXPECT_EQ(sent.status, IBV_WC_BAD_RESP_ERR);
    EXPECT_EQ(victim.side.State(), IBV_QPS_ERR);
}

TEST(LoopbackHostilePeer, AcknowledgementOfNoKindEndsTheConnection)
{
    Victim victim;
    victim.Establish();
    victim.Send();
    victim.peer.Acknowledge(77, 0, 1);
    EXPECT_EQ(victim.side.Next().status, IBV_WC_RETRY_EXC_ERR);
}

TEST(LoopbackHostilePeer, NonsenseInTheStreamEndsTheConnection)
{
    Victim victim;
    Memory& memory = victim.side.Register(100);
    ASSERT_EQ(victim.side.PostReceive(1, {memory.Whole()}), 0);
    victim.Establish();
    victim.peer.WriteNonsense();
    victim.Send();
    EXPECT_EQ(victim.side.Next().status, IBV_WC_RETRY_EXC_ERR);
    EXPECT_EQ(victim.side.Next().status, IBV_WC_WR_FLUSH_ERR);
}

TEST(LoopbackHostilePeer, RejectionOfWhatIsEstablishedIsADisconnect)
{
    Victim victim;
    victim.Establish();
    victim.peer.Say(kReject);
    Expect(victim.side.channel, RDMA_CM_EVENT_DISCONNECTED);
}

TEST(LoopbackHostilePeer, RequestFromAListenerIsARefusal)
{
    Victim victim;
    victim.peer.Say(0);
    Expect(victim.side.channel, RDMA_CM_EVENT_REJECTED);
}

} // namespace nq::test
