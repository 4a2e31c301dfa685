// SPDX-License-Identifier: Apache-2.0
// A scripted GVCP peer on a plain UDP socket: records every datagram literally and answers as a test tells it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <thread>
#include <vector>

namespace nq::test
{

class Host;

using Bytes = std::vector<unsigned char>;

/// One datagram of an answer and how long after the command it leaves.
struct GvcpReply
{
    Bytes bytes;
    std::chrono::milliseconds delay{0};
};

/// Makes the datagrams that answer one command, given literally.
using GvcpRule = std::function<std::vector<GvcpReply>(const Bytes& command)>;

/// The answers a rule can be put together from. All of them answer with the code of the command plus one and the id of
/// the command unless told otherwise.
namespace gvcp
{

/// No answer.
GvcpRule Silent();

/// These bytes, whatever the command.
GvcpRule Literal(Bytes datagram);

/// An acknowledge with this body and status.
GvcpRule Acknowledge(Bytes body = {}, std::uint16_t status = 0);

/// The answer to a read register command: a 4-byte body.
GvcpRule Value(std::uint32_t value);

/// The answer to a read memory command: the address as in the command, then the data.
GvcpRule Memory(Bytes data);

/// A pending acknowledge that asks for `milliseconds` more.
GvcpRule Pending(std::uint16_t milliseconds);

/// The rule's datagrams, changed: each later by `delay`, each twice, ids or codes replaced, cut to `size` bytes, or
/// made `size` bytes long with bytes of 0xEE.
GvcpRule Late(std::chrono::milliseconds delay, GvcpRule rule);
GvcpRule Twice(GvcpRule rule);
GvcpRule WithId(std::uint16_t id, GvcpRule rule);
GvcpRule WrongId(GvcpRule rule);
GvcpRule WithCode(std::uint16_t code, GvcpRule rule);
GvcpRule Short(std::size_t size, GvcpRule rule);
GvcpRule Oversized(std::size_t size, GvcpRule rule);

/// The rule's datagrams as a camera sends them that works on one command at a time: their delays are counted from the
/// time when the datagrams for the command before were sent.
GvcpRule OneAfterTheOther(GvcpRule rule);

/// The datagrams of all the rules, in this order.
GvcpRule Sequence(std::vector<GvcpRule> rules);

} // namespace gvcp

/// The body of a discovery acknowledge: 248 bytes. Numbers in host order; a text of full width has no end.
struct GvcpDiscovery
{
    std::uint16_t specMajor = 2;
    std::uint16_t specMinor = 1;
    std::uint32_t deviceMode = 0x80000001;
    std::uint16_t macHigh = 0x0211;
    std::uint32_t macLow = 0x22334455;
    std::uint32_t ipConfigOptions = 0x80000007;
    std::uint32_t ipConfigCurrent = 0x00000005;
    std::uint32_t ipAddress = 0x7F000001;
    std::uint32_t subnetMask = 0xFF000000;
    std::uint32_t gateway = 0;
    std::string manufacturer = "Maker";
    std::string model = "Model";
    std::string deviceVersion = "1.0";
    std::string manufacturerInfo = "Info";
    std::string serialNumber = "S0001";
    std::string userDefinedName = "Name";

    Bytes Body() const;
};

/// A camera as far as its control port goes, made of nothing but a socket and a script.
///
/// Each datagram is recorded and answered by the next rule given to Next(), or, when there is none left, by the rule
/// given to Otherwise(), which at first is AnswerFromMemory. The socket is open and bound when the constructor returns,
/// and rules may be changed at any time from any thread.
class GvcpPeer
{
  public:
    /// One recorded datagram.
    struct Datagram
    {
        Bytes bytes;
        std::string senderAddress;
        std::uint16_t senderPort = 0;
    };

    /// Listens at `address`:`port`, inside `host` when there is one. The host need not outlive the peer.
    explicit GvcpPeer(const Host* host = nullptr, const std::string& address = "0.0.0.0", std::uint16_t port = 3956);
    ~GvcpPeer();
    GvcpPeer(const GvcpPeer&) = delete;
    GvcpPeer& operator=(const GvcpPeer&) = delete;

    /// Adds a rule for one more datagram.
    void Next(GvcpRule rule);

    /// The rule for every datagram for which there is no other.
    void Otherwise(GvcpRule rule);

    /// Sets or reads a 4-byte register of the peer's memory, big-endian, as AnswerFromMemory serves it. A register that
    /// was never set reads 0.
    void SetRegister(std::uint32_t address, std::uint32_t value);
    std::uint32_t GetRegister(std::uint32_t address);

    /// Sets or reads bytes of the peer's memory.
    void SetMemory(std::uint32_t address, const Bytes& data);
    Bytes GetMemory(std::uint32_t address, std::size_t count);

    /// Reads and writes registers and memory as the commands say, with status 0; answers a discovery with the body set
    /// by SetDiscovery; unknown and too short commands get no answer.
    std::vector<GvcpReply> AnswerFromMemory(const Bytes& command);
    void SetDiscovery(const GvcpDiscovery& discovery);

    /// Every datagram so far, oldest first.
    std::vector<Datagram> Received();

    /// The bytes of every datagram so far.
    std::vector<Bytes> ReceivedBytes();

    /// Forgets the datagrams recorded so far.
    void Forget();

    /// True once `count` datagrams are recorded; false when the time is over.
    bool WaitForCount(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10));

    /// Sends one datagram from the peer's port. `address` dotted.
    void Send(const Bytes& datagram, const std::string& address, std::uint16_t port);

    /// Returns once a datagram from the peer has reached `address`, one of the caller's: a new cable loses its first
    /// packets. Throws std::runtime_error after 30 s.
    void AwaitPath(const std::string& address);

    std::uint16_t Port() const { return m_port; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Due
    {
        Bytes bytes;
        sockaddr_in to;
    };

    void Run();
    int MillisecondsToNextDue();
    void SendDue();
    void TakeDatagram();

    int m_socket = -1;
    int m_wake = -1;
    std::uint16_t m_port = 0;
    std::mutex m_mutex;
    std::condition_variable m_recorded;
    std::deque<GvcpRule> m_rules;
    GvcpRule m_otherwise;
    std::map<std::uint32_t, unsigned char> m_memory;
    GvcpDiscovery m_discovery;
    std::vector<Datagram> m_received;
    std::multimap<Clock::time_point, Due> m_due;
    std::thread m_thread;
};

} // namespace nq::test
