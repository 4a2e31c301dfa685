// SPDX-License-Identifier: Apache-2.0
// A bound UDP socket.
#pragma once

#include "gvcp.h"
#include "unique_fd.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace nq::camera
{

/// "10.9.0.1" of an address in host order.
std::string AddressText(std::uint32_t address);

/// An IPv4 UDP socket, closed on exec, that never blocks. Sending may be done from several threads.
class UdpSocket
{
  public:
    enum class Sharing
    {
        Exclusive,
        /// Others may bind the same place; for broadcast addresses, where everybody gets a copy.
        Shared
    };

    /// Binds to `place`; port 0 takes a free one. Throws std::system_error whose text names the place.
    explicit UdpSocket(const Endpoint& place, Sharing sharing = Sharing::Exclusive);

    struct Datagram
    {
        std::size_t size = 0;
        Endpoint from;
        /// Index of the interface that it came in by.
        int interfaceIndex = 0;
    };

    /// One waiting datagram, cut to `buffer`; nothing when none waits.
    std::optional<Datagram> Receive(std::span<std::uint8_t> buffer) const;

    /// False when the packet could not leave.
    bool Send(std::span<const std::uint8_t> bytes, const Endpoint& to) const;

    /// Whether packets leave with the "do not fragment" bit.
    void SetDoNotFragment(bool on) const;

    /// The bound port.
    std::uint16_t Port() const;
    int Fd() const { return m_fd.Get(); }

  private:
    UniqueFd m_fd;
};

} // namespace nq::camera
