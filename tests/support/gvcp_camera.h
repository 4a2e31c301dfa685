// SPDX-License-Identifier: Apache-2.0
// A scripted camera on a plain UDP socket: records every datagram literally and answers as a test tells it.
#pragma once

#include "support/gvcp_rules.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <latch>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <thread>
#include <vector>

namespace nq::test
{

class Host;

/// A camera as far as its control port goes, made of nothing but a socket, a memory and a script. It takes every write
/// from everybody: it knows no privilege and no heartbeat, so a test sees exactly what the library sends.
///
/// Each datagram is recorded and answered by the next rule given to Next(), or, when there is none left, by the rule
/// given to Otherwise(), which at first is AnswerFromMemory. A command that was answered from memory and comes once
/// more is answered alike, neither recorded nor executed: on a machine that stood still the answer was late. The socket
/// is open and bound when the constructor returns, and rules may be changed at any time from any thread.
class GvcpCamera
{
  public:
    /// One recorded datagram.
    struct Datagram
    {
        Bytes bytes;
        std::string senderAddress;
        std::uint16_t senderPort = 0;
    };

    /// Listens at `address`:`port`, inside `host` when there is one. The host need not outlive the camera.
    /// Throws std::system_error when the port is taken.
    explicit GvcpCamera(const Host* host = nullptr, const std::string& address = "0.0.0.0", std::uint16_t port = 3956);
    ~GvcpCamera();
    GvcpCamera(const GvcpCamera&) = delete;
    GvcpCamera& operator=(const GvcpCamera&) = delete;

    /// Adds a rule for one more datagram.
    void Next(GvcpRule rule);

    /// The rule for every datagram for which there is no other.
    void Otherwise(GvcpRule rule);

    /// Sets or reads a 4-byte register of the camera's memory, big-endian, as AnswerFromMemory serves it. A register
    /// that was never set reads 0.
    void SetRegister(std::uint32_t address, std::uint32_t value);
    std::uint32_t GetRegister(std::uint32_t address);

    /// Sets or reads bytes of the camera's memory.
    void SetMemory(std::uint32_t address, const Bytes& data);
    void SetMemory(std::uint32_t address, const std::string& text);
    Bytes GetMemory(std::uint32_t address, std::size_t count);

    /// Every further access to `address` is answered from memory with this status and changes nothing. 0 ends it.
    void SetStatus(std::uint32_t address, std::uint16_t status);

    /// A silent camera records, but asks no rule and does not answer.
    void SetSilent(bool silent);

    /// Called after each register write and before its answer leaves, on the camera's thread. It may call the camera.
    void OnWrite(std::function<void(std::uint32_t address, std::uint32_t value)> reaction);

    /// Reads and writes registers and memory as the commands say; answers a discovery with the body set by
    /// SetDiscovery; unknown and too short commands get no answer.
    std::vector<GvcpReply> AnswerFromMemory(const Bytes& command);
    void SetDiscovery(const GvcpDiscovery& discovery);

    /// Every datagram so far, oldest first.
    std::vector<Datagram> Received();

    /// The bytes of every datagram so far.
    std::vector<Bytes> ReceivedBytes();

    /// The same in the words of gvcp::Describe, and without those that equal `left`.
    std::vector<std::string> Accesses();
    std::vector<std::string> AccessesBut(const std::string& left);

    /// How often that was asked.
    std::size_t Count(const std::string& access);

    /// Forgets the datagrams recorded so far.
    void Forget();

    /// True once `count` datagrams are recorded; false when the time is over.
    bool WaitForCount(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10));

    /// True once that was asked at least `times` times; false when the time is over.
    bool WaitFor(const std::string& access, std::size_t times = 1,
                 std::chrono::milliseconds timeout = std::chrono::seconds(5));

    /// Sends one datagram from the camera's port. `address` dotted.
    void Send(const Bytes& datagram, const std::string& address, std::uint16_t port);

    /// Returns once a datagram from the camera has reached `address`, one of the caller's: a new cable loses its first
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
    struct Answered
    {
        Bytes command;
        std::vector<GvcpReply> replies;
    };

    void Run();
    int MillisecondsToNextDue();
    void SendDue();
    void TakeDatagram();
    std::size_t CountLocked(const std::string& access) const;
    bool AnswerRepeated(const Bytes& command, const sockaddr_in& from);
    std::uint16_t StatusOf(std::uint32_t address);
    Bytes Write(const Bytes& command);

    int m_socket = -1;
    int m_wake = -1;
    std::uint16_t m_port = 0;
    std::mutex m_mutex;
    std::condition_variable m_recorded;
    std::deque<GvcpRule> m_rules;
    GvcpRule m_otherwise;
    bool m_ownRule = true;
    std::map<std::uint64_t, Answered> m_answered; ///< From memory, the last command of each sender.
    std::map<std::uint32_t, unsigned char> m_memory;
    std::map<std::uint32_t, std::uint16_t> m_status;
    std::function<void(std::uint32_t, std::uint32_t)> m_reaction;
    bool m_silent = false;
    GvcpDiscovery m_discovery;
    std::vector<Datagram> m_received;
    std::multimap<Clock::time_point, Due> m_due;
    std::latch m_begun{1}; ///< Its thread takes what comes.
    std::thread m_thread;
};

} // namespace nq::test
