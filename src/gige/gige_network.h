// SPDX-License-Identifier: Apache-2.0
// The UDP endpoint of the camera layer: one socket with a fixed local and a fixed remote address.
#pragma once

#include "base/nq_fork.h"
#include "gige/gige_command.h"
#include "gige/gige_owed_answers.h"
#include "gige/nqgige_types.h"

#include <atomic>
#include <deque>
#include <netinet/in.h>
#include <sys/time.h>
#include <sys/types.h>

namespace GigETL
{

/// Sends and receives Command objects and answers the pending acknowledge by waiting longer. Addresses and ports of the
/// interface are in host order.
///
/// A remote address of 0 at construction puts the object in broadcast state. When the socket cannot be made or bound
/// the object exists all the same, and getLocalPort() is 0. A signal handler that runs ends no call. Reentrant: it has
/// no lock. Nothing but running out of memory throws. In a forked child a network of the parent has no socket to
/// exchange packets with: its commands would be the parent's, and its answers would be taken from it.
class Network
{
  public:
    /// Makes the socket and binds it; `localPort` 0 lets the system choose.
    Network(unsigned int remoteIP, unsigned int remotePort, unsigned int localIP, unsigned int localPort);
    ~Network();
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    /// Body of the constructor. Called again, it gives the object a new socket.
    void init(unsigned int remoteIP, unsigned int remotePort, unsigned int localIP, unsigned int localPort);

    /// Sends the current size of the command's buffer to the remote address. NQGigE_NO_CONNECTION without a socket,
    /// NQGigE_TIMEOUT when sending fails.
    NQGigE_RETURN sendCommand(const Command& command);

    /// Waits for one datagram and takes it, whoever sent it; bytes of the buffer behind it read as zero. A pending
    /// acknowledge is taken as a new waiting time, as often as the camera asks. `timeout` is counted down by the time
    /// spent. The sender's address and port are stored where the pointers are not null. NQGigE_NO_CONNECTION without a
    /// socket, NQGigE_SOCKET_ERROR when waiting fails, NQGigE_TIMEOUT when nothing came. An empty datagram is a success
    /// that leaves `command` as it was.
    NQGigE_RETURN receiveCommand(Command& command, timeval* timeout, unsigned long* senderIP, unsigned int* senderPort);

    /// Takes the answers that are still owed for earlier commands, until none is owed or 400 ms have passed since the
    /// last send (or the time that a pending acknowledge for one of them asks for), and drops them. Any other datagram
    /// that comes meanwhile is kept, and receiveCommand() finds it as if it were only coming. What is then still owed
    /// is given up. Without a debt, and in a forked child for a network of the parent, nothing is done at all.
    void dropOwedAnswers();

    /// Sends the command once to 255.255.255.255, at the remote port. The results of sendCommand().
    NQGigE_RETURN broadcastCommand(const Command& command);

    /// Whether the remote address is 255.255.255.255.
    bool isBroadcasting() const;

    /// The bound address or port, asked from the system when it chose them. 0 when unknown, or when the port could not
    /// be bound.
    unsigned int getLocalIP();
    unsigned int getLocalPort();
    unsigned int getRemoteIP() const;
    unsigned int getRemotePort() const;

    /// Sends `size` bytes to the remote address of the Network `network`. Always 0.
    static int gvcp_send(void* data, int size, void* network);

    /// The IPv4 address of the interface with this kernel index, 0 when there is none.
    static unsigned int getNetAdapterIP(int index);

    /// These do nothing.
    static void initWinsocks();
    static void printIP(unsigned int ip);
    static void printMAC(unsigned int upper, unsigned int lower);

    /// Count of living objects. Thread-safe.
    static std::atomic<int> mInstanceCounter;

  private:
    struct Datagram
    {
        Command packet;
        sockaddr_in sender{};
    };

    bool askLocalAddress();
    bool canExchange() const;
    ssize_t take(Command& command, sockaddr_in& sender);
    bool dropIfOwed(const Command& ack, timeval& wait);

    int mSocket = -1;
    NQOrigin mOrigin; ///< of mSocket
    sockaddr_in mLocal{};
    sockaddr_in mRemote{};
    bool mValid = false;
    OwedAnswers mOwed;
    timespec mLastSend{}; ///< on the clock of the waits
    std::deque<Datagram>
        mSetAside; ///< came while owed answers were awaited; oldest first, size 0 when nothing was taken
};

} // namespace GigETL
