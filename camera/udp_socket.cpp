// SPDX-License-Identifier: Apache-2.0
// A bound UDP socket.
#include "udp_socket.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

namespace nq::camera
{

namespace
{

sockaddr_in ToSockaddr(const Endpoint& endpoint)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.address);
    return address;
}

int InterfaceOf(msghdr& message)
{
    for (cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr; control = CMSG_NXTHDR(&message, control))
    {
        if (control->cmsg_level == IPPROTO_IP && control->cmsg_type == IP_PKTINFO)
        {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(control), sizeof(info));
            return info.ipi_ifindex;
        }
    }
    return 0;
}

} // namespace

std::string AddressText(std::uint32_t address)
{
    std::array<char, INET_ADDRSTRLEN> text{};
    const in_addr network{htonl(address)};
    return inet_ntop(AF_INET, &network, text.data(), text.size());
}

UdpSocket::UdpSocket(const Endpoint& place, Sharing sharing)
    : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    const int on = 1;
    const sockaddr_in address = ToSockaddr(place);
    const bool good =
        m_fd.Get() >= 0 && setsockopt(m_fd.Get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) == 0 &&
        setsockopt(m_fd.Get(), IPPROTO_IP, IP_PKTINFO, &on, sizeof(on)) == 0 &&
        (sharing == Sharing::Exclusive || setsockopt(m_fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0) &&
        bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    if (!good)
    {
        throw std::system_error(errno, std::generic_category(),
                                "UDP " + AddressText(place.address) + ":" + std::to_string(place.port));
    }
}

std::optional<UdpSocket::Datagram> UdpSocket::Receive(std::span<std::uint8_t> buffer) const
{
    sockaddr_in from{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control{};
    iovec data{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof(from);
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(m_fd.Get(), &message, 0);
    if (size < 0)
    {
        return std::nullopt;
    }
    return Datagram{
        static_cast<std::size_t>(size), {ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)}, InterfaceOf(message)};
}

bool UdpSocket::Send(std::span<const std::uint8_t> bytes, const Endpoint& to) const
{
    const sockaddr_in address = ToSockaddr(to);
    return sendto(m_fd.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                  sizeof(address)) == static_cast<ssize_t>(bytes.size());
}

void UdpSocket::SetDoNotFragment(bool on) const
{
    const int mode = on ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT;
    setsockopt(m_fd.Get(), IPPROTO_IP, IP_MTU_DISCOVER, &mode, sizeof(mode));
}

std::uint16_t UdpSocket::Port() const
{
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    getsockname(m_fd.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

} // namespace nq::camera
