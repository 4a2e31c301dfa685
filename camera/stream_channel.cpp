// SPDX-License-Identifier: Apache-2.0
// Test packets by which a host finds the largest packet that reaches it.
#include "stream_channel.h"

#include <utility>
#include <vector>

namespace nq::camera
{

std::uint16_t StreamChannel::SourcePort() const
{
    const std::lock_guard lock(m_mutex);
    return m_socket.Port();
}

void StreamChannel::MoveTo(std::uint32_t address)
{
    UdpSocket socket(Endpoint{address, 0});
    const std::lock_guard lock(m_mutex);
    m_socket = std::move(socket);
}

void StreamChannel::FireTestPacket(const Endpoint& to, std::uint32_t packetSize, bool doNotFragment) const
{
    constexpr std::uint32_t kIpAndUdpHeader = 28;
    if (to.port == 0 || packetSize <= kIpAndUdpHeader)
    {
        return;
    }
    const std::lock_guard lock(m_mutex);
    m_socket.SetDoNotFragment(doNotFragment);
    m_socket.Send(std::vector<std::uint8_t>(packetSize - kIpAndUdpHeader), to);
}

} // namespace nq::camera
