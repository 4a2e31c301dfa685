// SPDX-License-Identifier: Apache-2.0
// Test packets by which a host finds the largest packet that reaches it.
#pragma once

#include "udp_socket.h"

#include <cstdint>
#include <mutex>

namespace nq::camera
{

/// The UDP side of stream channel 0. Pictures travel by RDMA; what remains here is the packet size test.
class StreamChannel
{
  public:
    explicit StreamChannel(std::uint32_t address) : m_socket(Endpoint{address, 0}) {}

    std::uint16_t SourcePort() const;

    /// Test packets come from this address of the machine from now on. Throws std::system_error.
    void MoveTo(std::uint32_t address);

    /// Sends one test packet of `packetSize` bytes, IP and UDP header included. A packet that is too large for the link
    /// and must not be fragmented is lost, as the test expects.
    void FireTestPacket(const Endpoint& to, std::uint32_t packetSize, bool doNotFragment) const;

  private:
    mutable std::mutex m_mutex;
    UdpSocket m_socket;
};

} // namespace nq::camera
