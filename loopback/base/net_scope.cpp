// SPDX-License-Identifier: Apache-2.0
// The network namespace that an id was made in: its identity, its routes and its addresses.
#include "base/net_scope.h"

#include "base/error.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace nq::loopback
{

Endpoint::Endpoint(const sockaddr* address)
{
    if (address->sa_family == AF_INET)
    {
        std::memcpy(&m_address.v4, address, sizeof m_address.v4);
    }
    else if (address->sa_family == AF_INET6)
    {
        std::memcpy(&m_address.v6, address, sizeof m_address.v6);
    }
    else
    {
        Throw(EAFNOSUPPORT);
    }
}

socklen_t Endpoint::Length() const
{
    return Family() == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

uint16_t Endpoint::Port() const
{
    return ntohs(Family() == AF_INET6 ? m_address.v6.sin6_port : m_address.v4.sin_port);
}

void Endpoint::SetPort(uint16_t port)
{
    (Family() == AF_INET6 ? m_address.v6.sin6_port : m_address.v4.sin_port) = htons(port);
}

bool Endpoint::IsAny() const
{
    return Family() == AF_INET6 ? IN6_IS_ADDR_UNSPECIFIED(&m_address.v6.sin6_addr) != 0
                                : m_address.v4.sin_addr.s_addr == INADDR_ANY;
}

bool Endpoint::IsLoopback() const
{
    return Family() == AF_INET6 ? IN6_IS_ADDR_LOOPBACK(&m_address.v6.sin6_addr) != 0
                                : ntohl(m_address.v4.sin_addr.s_addr) >> 24 == 127;
}

bool Endpoint::SameHost(const Endpoint& other) const
{
    if (Family() != other.Family())
    {
        return false;
    }
    return Family() == AF_INET6
               ? std::memcmp(&m_address.v6.sin6_addr, &other.m_address.v6.sin6_addr, sizeof(in6_addr)) == 0
               : m_address.v4.sin_addr.s_addr == other.m_address.v4.sin_addr.s_addr;
}

std::string Endpoint::HostText() const
{
    char text[INET6_ADDRSTRLEN] = "";
    const void* address = Family() == AF_INET6 ? static_cast<const void*>(&m_address.v6.sin6_addr)
                                               : static_cast<const void*>(&m_address.v4.sin_addr);
    inet_ntop(Family(), address, text, sizeof text);
    return text;
}

NetScope::NetScope()
    : m_socket4(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_socket6(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    if (!m_socket4)
    {
        Throw(errno);
    }
    struct stat status
    {
    };
    if (stat("/proc/thread-self/ns/net", &status) == 0)
    {
        m_identity = status.st_ino;
    }
}

const UniqueFd& NetScope::SocketFor(const Endpoint& address) const
{
    if (address.Family() != AF_INET6)
    {
        return m_socket4;
    }
    if (!m_socket6)
    {
        Throw(EAFNOSUPPORT);
    }
    return m_socket6;
}

Endpoint NetScope::SourceFor(const Endpoint& destination) const
{
    // Connecting a datagram socket does the route look-up and nothing else. A route must not be remembered from before.
    const UniqueFd& socket = SocketFor(destination);
    sockaddr none{};
    none.sa_family = AF_UNSPEC;
    static_cast<void>(connect(socket.Get(), &none, sizeof none));
    Endpoint target = destination;
    target.SetPort(1);
    if (connect(socket.Get(), target.Raw(), target.Length()) != 0)
    {
        Throw(errno == EACCES ? ENETUNREACH : errno);
    }
    Endpoint source = destination;
    socklen_t length = source.Length();
    if (getsockname(socket.Get(), source.Raw(), &length) != 0)
    {
        Throw(errno);
    }
    source.SetPort(0);
    return source;
}

bool NetScope::IsLocal(const Endpoint& address) const
{
    if (address.IsLoopback())
    {
        return true;
    }
    if (address.Family() == AF_INET)
    {
        const std::vector<ifreq> interfaces = Interfaces4();
        return std::any_of(interfaces.begin(), interfaces.end(), [&](const ifreq& interface) {
            return interface.ifr_addr.sa_family == AF_INET && Endpoint(&interface.ifr_addr).SameHost(address);
        });
    }
    try
    {
        // An IPv6 address of the host is always its own best source.
        return SourceFor(address).SameHost(address);
    }
    catch (const std::system_error&)
    {
        return false;
    }
}

std::vector<ifreq> NetScope::Interfaces4() const
{
    // A full buffer may have been too small.
    for (std::vector<ifreq> interfaces(32);; interfaces.resize(2 * interfaces.size()))
    {
        ifconf request{};
        request.ifc_len = static_cast<int>(interfaces.size() * sizeof(ifreq));
        request.ifc_req = interfaces.data();
        if (ioctl(m_socket4.Get(), SIOCGIFCONF, &request) != 0)
        {
            Throw(errno);
        }
        const size_t count = static_cast<size_t>(request.ifc_len) / sizeof(ifreq);
        if (count < interfaces.size())
        {
            interfaces.resize(count);
            return interfaces;
        }
    }
}

} // namespace nq::loopback
