// SPDX-License-Identifier: Apache-2.0
// The network namespace that an id was made in: its identity, its routes and its addresses.
#pragma once

#include "base/unique_fd.h"

#include <cstdint>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <vector>

namespace nq::loopback
{

/// An IPv4 or IPv6 socket address; the loopback carries no other family.
class Endpoint
{
  public:
    Endpoint() = default;

    /// Throws EAFNOSUPPORT for other families.
    explicit Endpoint(const sockaddr* address);

    sockaddr* Raw() { return &m_address.any; }
    const sockaddr* Raw() const { return &m_address.any; }
    socklen_t Length() const;
    sa_family_t Family() const { return m_address.any.sa_family; }
    uint16_t Port() const; ///< In host order.
    void SetPort(uint16_t port);
    bool IsAny() const;      ///< 0.0.0.0 or ::
    bool IsLoopback() const; ///< In 127.0.0.0/8 or ::1
    bool SameHost(const Endpoint& other) const;
    std::string HostText() const;

  private:
    union {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    } m_address{};
};

/// Looks at routes and addresses through sockets, which belong for ever to the network namespace of the thread that
/// made the object, whatever thread asks later. No packet is sent.
class NetScope
{
  public:
    NetScope();

    /// A number that is the same for all in one network namespace.
    uint64_t Identity() const { return m_identity; }

    /// The local address from which packets to `destination` go. Throws what connect(2) gives when there is none, such
    /// as ENETUNREACH.
    Endpoint SourceFor(const Endpoint& destination) const;

    /// Whether `address` belongs to this namespace.
    bool IsLocal(const Endpoint& address) const;

  private:
    const UniqueFd& SocketFor(const Endpoint& address) const;
    std::vector<ifreq> Interfaces4() const;

    uint64_t m_identity = 0;
    UniqueFd m_socket4;
    UniqueFd m_socket6;
};

} // namespace nq::loopback
