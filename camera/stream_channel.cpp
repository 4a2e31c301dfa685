// SPDX-License-Identifier: Apache-2.0
// Test packets by which a host finds the largest packet that reaches it.
#include "stream_channel.h"

#include <vector>

namespace nq::camera
{

void StreamChannel::FireTestPacket(const Endpoint& to, std::uint32_t packetSize, bool doNotFragment) const
{
    constexpr std::uint32_t kIpAndUdpHeader = 28;
    if (to.port == 0 || packetSize <= kIpAndUdpHeader)
    {
        return;
    }
    m_socket.SetDoNotFragment(doNotFragment);
    m_socket.Send(std::vector<std::uint8_t>(packetSize - kIpAndUdpHeader), to);
}

} // namespace nq::camera
