// SPDX-License-Identifier: Apache-2.0
// Opening the receiver of broadcasts, and taking datagrams from it and its first socket in the order of their arrival.
#include "gige/nq_gev_broadcast_receiver.h"

#include "gige/gige_wait.h"
#include "gige/nq_gev_socket_use.h"

#include <array>
#include <cstring>
#include <net/if.h>
#include <sys/uio.h>
#include <tuple>

namespace
{

/// What the system tells about a datagram, and its size; 0 or less when there was none.
struct Arrival
{
    ssize_t size = -1;
    timespec time{};
    unsigned int adapter = 0;
};

Arrival takeArrival(int descriptor, void* data, std::size_t size, int flags)
{
    alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(sizeof(timespec)) + CMSG_SPACE(sizeof(in_pktinfo))> control{};
    iovec part{data, size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    Arrival arrival;
    arrival.size = recvmsg(descriptor, &message, flags | MSG_DONTWAIT);
    if (arrival.size < 0)
    {
        return arrival;
    }
    for (cmsghdr* entry = CMSG_FIRSTHDR(&message); entry != nullptr; entry = CMSG_NXTHDR(&message, entry))
    {
        if (entry->cmsg_level == SOL_SOCKET && entry->cmsg_type == SCM_TIMESTAMPNS)
        {
            std::memcpy(&arrival.time, CMSG_DATA(entry), sizeof arrival.time);
        }
        else if (entry->cmsg_level == IPPROTO_IP && entry->cmsg_type == IP_PKTINFO)
        {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(entry), sizeof info);
            arrival.adapter = static_cast<unsigned int>(info.ipi_ifindex);
        }
    }
    return arrival;
}

/// When the datagram arrived that the socket would give next.
std::tuple<time_t, long> nextArrival(int descriptor)
{
    char first = 0;
    const timespec time = takeArrival(descriptor, &first, sizeof first, MSG_PEEK).time;
    return {time.tv_sec, time.tv_nsec};
}

bool setOption(int descriptor, int level, int option, int value)
{
    return setsockopt(descriptor, level, option, &value, sizeof value) != -1;
}

unsigned short boundPort(int descriptor)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == -1
               ? static_cast<unsigned short>(0)
               : ntohs(address.sin_port);
}

} // namespace

bool NQGevBroadcastReceiver::Open(NQGevSocket& first, const std::string& adapter, int bufferSize)
{
    if (!m_socket.Create(AF_INET, SOCK_DGRAM, IPPROTO_UDP))
    {
        return false;
    }
    bool opened = false;
    {
        const NQGevSocket::Use use(m_socket);
        const NQGevSocket::Use beside(first);
        const unsigned short port = boundPort(beside.Descriptor());
        // The times tell in which order the datagrams of the two sockets arrived. The kernel may begin to note them a
        // moment later; until then the order of two datagrams that wait together can be lost.
        opened = port != 0 && BindTo(use.Descriptor(), adapter.substr(0, adapter.find(':')), port) &&
                 setOption(use.Descriptor(), SOL_SOCKET, SO_TIMESTAMPNS, 1) &&
                 setOption(beside.Descriptor(), SOL_SOCKET, SO_TIMESTAMPNS, 1);
    }
    if (!opened)
    {
        Close();
        return false;
    }
    m_socket.SetReceiveBufferSize(bufferSize);
    return true;
}

bool NQGevBroadcastReceiver::BindTo(int descriptor, const std::string& adapter, unsigned short port)
{
    const unsigned int index = if_nametoindex(adapter.c_str());
    // Other sockets of the host may have been given the same port at their addresses, and a receiver like this one.
    if (index == 0 || !setOption(descriptor, SOL_SOCKET, SO_REUSEADDR, 1))
    {
        return false;
    }
    const bool bound = setsockopt(descriptor, SOL_SOCKET, SO_BINDTODEVICE, adapter.c_str(),
                                  static_cast<socklen_t>(adapter.size())) != -1;
    m_adapter = bound ? 0 : index;
    if (!bound && !setOption(descriptor, IPPROTO_IP, IP_PKTINFO, 1))
    {
        return false;
    }
    return m_socket.Bind(INADDR_BROADCAST, port);
}

void NQGevBroadcastReceiver::Close()
{
    m_socket.Destroy();
}

bool NQGevBroadcastReceiver::Receive(NQGevSocket& first, char* data, unsigned short size, unsigned int& received,
                                     int timeoutMs)
{
    const NQGevSocket::Use broadcasts(m_socket);
    if (broadcasts.Descriptor() == -1)
    {
        return first.Receive(data, size, received, timeoutMs);
    }
    const NQGevSocket::Use use(first);
    timeval left = GigETL::timevalFromMs(timeoutMs);
    std::array<pollfd, 2> waits{pollfd{use.Descriptor(), POLLIN, 0}, pollfd{broadcasts.Descriptor(), POLLIN, 0}};
    while (GigETL::waitReadable(waits.data(), waits.size(), &left) > 0)
    {
        const bool both = waits[0].revents != 0 && waits[1].revents != 0;
        const bool fromFirst =
            both ? nextArrival(use.Descriptor()) <= nextArrival(broadcasts.Descriptor()) : waits[0].revents != 0;
        const Arrival arrival = takeArrival(waits[fromFirst ? 0 : 1].fd, data, size, 0);
        const bool foreign = !fromFirst && m_adapter != 0 && arrival.adapter != m_adapter;
        if (foreign && (left.tv_sec != 0 || left.tv_usec != 0))
        {
            continue;
        }
        if (foreign || arrival.size < 1)
        {
            return false;
        }
        received = static_cast<unsigned int>(arrival.size);
        return true;
    }
    return false;
}
