// SPDX-License-Identifier: Apache-2.0
// The system calls of the library under a fuzz program: a host with two adapters, sockets that reach nothing but a
// script, and waits that cost no time. The linker puts these in place of the real calls (--wrap).
#pragma once

#include "fuzz/fuzz_input.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <set>

namespace nq::fuzz
{

/// One network for the whole program.
///
/// On the main thread, which is the fuzzed application's, a wait for a datagram that is not there moves the monotonic
/// clock on and returns at once, and a wait for a condition times out at once. The library's own threads wait for
/// real, in steps of a millisecond. Any thread may call.
class FakeNetwork
{
  public:
    static constexpr std::uint32_t kAdapter = 0x0A090001; ///< 10.9.0.1/24 on eth0; lo has 127.0.0.1
    static constexpr std::uint32_t kCamera = 0x0A090002;

    /// What happens when the library sends: it may Deliver() to that socket or another.
    using Reaction = std::function<void(int socket, const sockaddr_in& to, const Bytes& datagram)>;

    static FakeNetwork& Instance();

    /// Forgets what still waits to be received, and reacts to sending like this from now on.
    void React(Reaction reaction);

    /// Puts a datagram before a socket.
    void Deliver(int socket, Bytes datagram);

    /// The socket bound to a port, -1 when there is none.
    int SocketAt(std::uint16_t port);

    std::size_t OpenSockets();

    /// Milliseconds that have passed by the monotonic clock.
    std::uint64_t Milliseconds();

    // The calls. False or -2: not a socket of this network.

    int Open();
    bool Knows(int socket);
    void Forget(int socket);
    int Bind(int socket, sockaddr_in& address);
    sockaddr_in LocalAddress(int socket);
    void Shut(int socket);
    void SetReceiveTimeout(int socket, std::uint64_t milliseconds);
    bool Send(int socket, const sockaddr_in& to, Bytes datagram);
    bool Wait(int socket, std::uint64_t milliseconds);
    bool Receive(int socket, Bytes& datagram);
    std::uint64_t Nanoseconds();
    void Advance(std::uint64_t milliseconds);

    /// True on the thread that runs main().
    static bool OnMainThread();

  private:
    struct Socket
    {
        std::deque<Bytes> waiting;
        sockaddr_in local{};
        std::uint64_t receiveTimeout = 0;
        bool shut = false;
    };

    bool IsReadable(int socket);

    std::mutex m_mutex;
    std::recursive_mutex m_reacting;
    Reaction m_reaction;
    std::map<int, Socket> m_sockets;
    std::uint16_t m_lastPort = 40000;
    std::uint64_t m_nanoseconds = 1000000000;
};

} // namespace nq::fuzz
