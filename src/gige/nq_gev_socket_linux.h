// SPDX-License-Identifier: Apache-2.0
// A general socket object for the interface modules and the message channels.
#pragma once

#include "base/nq_mutex.h"

#include <netinet/in.h>
#include <sys/socket.h>

/// One socket that can be made and destroyed again and again. Results are true or false; nothing is logged.
///
/// Thread-safe. Destroy() may be called while another thread waits in a receive: that thread wakes up with
/// false, and the descriptor is closed only when no call works on it any more, so a number that the process has given
/// to another file is never touched. Signal handlers that run meanwhile end no call. Timeouts are in milliseconds; a
/// negative one is refused with false at once. Without a descriptor a timed wait lasts its time and everything fails.
///
/// In a forked child a socket of the parent counts as none, for what is sent and shut down through a copy of its
/// descriptor happens to the parent. Destroy() only closes the copy.
class NQGevSocket
{
  public:
    NQGevSocket() = default;
    ~NQGevSocket();
    NQGevSocket(const NQGevSocket&) = delete;
    NQGevSocket& operator=(const NQGevSocket&) = delete;

    /// Makes the socket, close-on-exec. False when there is one already, or when the system hands out descriptor 0. A
    /// failure of the system counts as success: the calls that follow fail instead, until Destroy().
    bool Create(int family, int type, int protocol);

    /// Binds an IPv4 address and port in host order.
    bool Bind(unsigned int ip, unsigned short port);

    /// Binds the address as it stands.
    bool Bind(sockaddr_in address);

    /// Sends one datagram of `size` bytes.
    bool SendTo(sockaddr* to, char* data, unsigned short size);

    /// The same; with `setBuffer` the receive buffer is set to `bufferSize` bytes first, and nothing is sent if that
    /// fails.
    bool SendTo(sockaddr* to, char* data, unsigned short size, bool setBuffer, unsigned int bufferSize);

    /// True when data is waiting before the time is over.
    bool Select(int timeoutMs);

    /// Takes one datagram of up to `size` bytes, the rest of it being lost, and stores its length. False, with
    /// `received` left alone, on a failure, an empty datagram or, with a timeout, no data in time. `from` may be null.
    bool Receive(char* data, unsigned short size, unsigned int& received);
    bool Receive(char* data, unsigned short size, unsigned int& received, int timeoutMs);
    bool ReceiveFrom(sockaddr* from, unsigned char* data, unsigned short size, unsigned int& received);
    bool ReceiveFrom(sockaddr* from, unsigned char* data, unsigned short size, unsigned int& received, int timeoutMs);

    /// Shuts the socket down and closes it; nothing without one.
    void Destroy();

    /// Lets the socket send to broadcast addresses.
    bool SetBroadcast();

    /// Limits the receives that have no time of their own; 0 takes the limit away.
    bool SetReceiveTimeout(int timeoutMs);

    /// Sets the receive buffer to `size` bytes.
    bool SetReceiveBufferSize(int size);

  private:
    friend class NQGevBroadcastReceiver;
    class Use;

    void DropInherited() NQ_REQUIRES(m_mutex);

    NQMutex m_mutex;
    int m_socket NQ_GUARDED_BY(m_mutex) = 0; ///< 0 when there is none
    int m_users NQ_GUARDED_BY(m_mutex) = 0;  ///< calls that work on the descriptor right now
    int m_closing NQ_GUARDED_BY(m_mutex) =
        0; ///< the descriptor whose Destroy() waits for them; a Create() waits for it
    NQOrigin m_origin NQ_GUARDED_BY(m_mutex); ///< whose sockets and calls these are
    NQCondition m_released;
};
