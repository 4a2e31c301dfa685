// SPDX-License-Identifier: Apache-2.0
// The socket object and its closing while other threads use it.
#include "gige/nq_gev_socket_linux.h"

#include "gige/gige_wait.h"
#include "gige/nq_gev_socket_use.h"

#include <cerrno>
#include <unistd.h>

namespace
{

constexpr socklen_t kAddressLength = 16;
static_assert(sizeof(sockaddr) == kAddressLength && sizeof(sockaddr_in) == kAddressLength);

template <typename Value>
bool setOption(int descriptor, int option, const Value& value)
{
    return setsockopt(descriptor, SOL_SOCKET, option, &value, sizeof value) != -1;
}

bool send(int descriptor, const sockaddr* to, const char* data, unsigned short size)
{
    return GigETL::uninterrupted([&] { return sendto(descriptor, data, size, MSG_NOSIGNAL, to, kAddressLength); }) !=
           -1;
}

bool wait(int descriptor, int timeoutMs)
{
    timeval time = GigETL::timevalFromMs(timeoutMs);
    return GigETL::waitReadable(descriptor, &time) > 0;
}

ssize_t take(int descriptor, sockaddr* from, void* data, unsigned short size, int flags)
{
    socklen_t length = kAddressLength;
    return recvfrom(descriptor, data, size, flags, from, from != nullptr ? &length : nullptr);
}

bool stored(ssize_t result, unsigned int& received)
{
    if (result < 1)
    {
        return false;
    }
    received = static_cast<unsigned int>(result);
    return true;
}

/// Waits for a datagram as long as the socket's receive timeout says, however often a signal handler runs.
bool receive(int descriptor, sockaddr* from, void* data, unsigned short size, unsigned int& received)
{
    const timespec start = GigETL::waitClock();
    ssize_t result = take(descriptor, from, data, size, 0);
    while (result == -1 && errno == EINTR)
    {
        timeval limit{};
        socklen_t length = sizeof limit;
        getsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
        const bool limited = limit.tv_sec != 0 || limit.tv_usec != 0;
        timeval left = GigETL::timeLeft(limit, start);
        if (limited && GigETL::waitReadable(descriptor, &left) < 1)
        {
            return false;
        }
        result = take(descriptor, from, data, size, limited ? MSG_DONTWAIT : 0);
    }
    return stored(result, received);
}

/// Takes what wait() has seen, if it is still there: of two threads that wait on one socket, one gets the datagram, and
/// the other must not sleep beyond its time.
bool receiveInTime(int descriptor, sockaddr* from, void* data, unsigned short size, unsigned int& received,
                   int timeoutMs)
{
    return wait(descriptor, timeoutMs) && stored(take(descriptor, from, data, size, MSG_DONTWAIT), received);
}

} // namespace

NQGevSocket::~NQGevSocket()
{
    Destroy();
}

bool NQGevSocket::Create(int family, int type, int protocol)
{
    NQLock guard(m_mutex);
    DropInherited();
    while (m_closing != 0)
    {
        m_released.Wait(m_mutex);
    }
    if (m_socket != 0)
    {
        return false;
    }
    guard.unlock();
    const int descriptor = socket(family, type | SOCK_CLOEXEC, protocol);
    guard.lock();
    if (descriptor != 0 && m_socket == 0)
    {
        // Deliberate(RefusedSocketIsStored): -1 is stored like a descriptor. The calls that follow fail, and their
        // callers report it.
        m_socket = descriptor;
        return true;
    }
    guard.unlock();
    // Deliberate(ZeroIsNoDescriptor): 0 stands for no descriptor, so a socket of that number cannot be kept.
    close(descriptor);
    return false;
}

bool NQGevSocket::Bind(unsigned int ip, unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(ip);
    return Bind(address);
}

bool NQGevSocket::Bind(sockaddr_in address)
{
    const Use use(*this);
    return bind(use.Descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != -1;
}

bool NQGevSocket::SendTo(sockaddr* to, char* data, unsigned short size)
{
    const Use use(*this);
    return send(use.Descriptor(), to, data, size);
}

bool NQGevSocket::SendTo(sockaddr* to, char* data, unsigned short size, bool setBuffer, unsigned int bufferSize)
{
    const Use use(*this);
    // Deliberate(SendSizesTheReceiveBuffer): the receive buffer, though this is a send: what is sized here is the room
    // for the answers.
    if (setBuffer && !setOption(use.Descriptor(), SO_RCVBUF, bufferSize))
    {
        return false;
    }
    return send(use.Descriptor(), to, data, size);
}

bool NQGevSocket::Select(int timeoutMs)
{
    const Use use(*this);
    return wait(use.Descriptor(), timeoutMs);
}

bool NQGevSocket::Receive(char* data, unsigned short size, unsigned int& received)
{
    const Use use(*this);
    return receive(use.Descriptor(), nullptr, data, size, received);
}

bool NQGevSocket::Receive(char* data, unsigned short size, unsigned int& received, int timeoutMs)
{
    const Use use(*this);
    return receiveInTime(use.Descriptor(), nullptr, data, size, received, timeoutMs);
}

bool NQGevSocket::ReceiveFrom(sockaddr* from, unsigned char* data, unsigned short size, unsigned int& received)
{
    const Use use(*this);
    return receive(use.Descriptor(), from, data, size, received);
}

bool NQGevSocket::ReceiveFrom(sockaddr* from, unsigned char* data, unsigned short size, unsigned int& received,
                              int timeoutMs)
{
    const Use use(*this);
    return receiveInTime(use.Descriptor(), from, data, size, received, timeoutMs);
}

void NQGevSocket::Destroy()
{
    NQLock guard(m_mutex);
    DropInherited();
    const int descriptor = m_socket;
    m_socket = 0;
    if (descriptor == 0)
    {
        return;
    }
    m_closing = descriptor;
    guard.unlock();
    shutdown(descriptor, SHUT_RDWR); // wakes the threads that wait for data
    guard.lock();
    while (m_users != 0)
    {
        m_released.Wait(m_mutex);
    }
    guard.unlock();
    close(descriptor);
    guard.lock();
    m_closing = 0;
    m_released.NotifyAll();
}

/// In a forked child: closes the copies of the parent's descriptors, and forgets the calls of threads that are not
/// here.
void NQGevSocket::DropInherited()
{
    if (!m_origin.IsInherited())
    {
        return;
    }
    for (const int descriptor : {m_socket, m_closing})
    {
        if (descriptor > 0)
        {
            close(descriptor);
        }
    }
    m_socket = 0;
    m_users = 0;
    m_closing = 0;
    m_origin = NQOrigin();
}

bool NQGevSocket::SetBroadcast()
{
    const Use use(*this);
    return setOption(use.Descriptor(), SO_BROADCAST, 1);
}

bool NQGevSocket::SetReceiveTimeout(int timeoutMs)
{
    const Use use(*this);
    return setOption(use.Descriptor(), SO_RCVTIMEO, GigETL::timevalFromMs(timeoutMs));
}

bool NQGevSocket::SetReceiveBufferSize(int size)
{
    const Use use(*this);
    return setOption(use.Descriptor(), SO_RCVBUF, size);
}
