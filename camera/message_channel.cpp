// SPDX-License-Identifier: Apache-2.0
// The camera's event packets.
#include "message_channel.h"

#include "byte_order.h"

#include <utility>

namespace nq::camera
{

MessageChannel::MessageChannel(std::uint32_t address, const DeviceClock& clock, FaultPlan& faults)
    : m_clock(clock), m_faults(faults), m_socket(Endpoint{address, 0})
{
}

std::uint16_t MessageChannel::SourcePort() const
{
    const std::lock_guard lock(m_mutex);
    return m_socket.Port();
}

void MessageChannel::MoveTo(std::uint32_t address)
{
    UdpSocket socket(Endpoint{address, 0});
    const std::lock_guard lock(m_mutex);
    m_socket = std::move(socket);
}

void MessageChannel::SetDestination(const Endpoint& destination)
{
    const std::lock_guard lock(m_mutex);
    m_destination = destination;
}

void MessageChannel::SetNotification(EventKind kind, bool on)
{
    const std::lock_guard lock(m_mutex);
    m_notify[static_cast<std::size_t>(kind)] = on;
}

void MessageChannel::Notify(EventKind kind, std::uint64_t frameId)
{
    const auto index = static_cast<std::size_t>(kind);
    {
        const std::lock_guard lock(m_mutex);
        if (!m_notify[index])
        {
            return;
        }
    }
    Send(kEvents[index].id, frameId);
}

bool MessageChannel::Send(std::uint16_t eventId, std::uint64_t frameId)
{
    const std::lock_guard lock(m_mutex);
    if (m_destination.port == 0)
    {
        return false;
    }
    // Reserved word, event id, stream channel, block id, timestamp.
    std::array<std::uint8_t, 16> body{};
    PutBig(&body[2], eventId);
    PutBig(&body[6], static_cast<std::uint16_t>(frameId));
    PutBig(&body[8], m_clock.Now());
    m_requestId = m_requestId == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(m_requestId + 1);
    auto packet = MakeGvcpCommand(GvcpCode::EventCommand, 0, m_requestId, body);
    if (const auto size = m_faults.Strike(Fault::WrongEventSize))
    {
        packet.resize(std::min<std::uint64_t>(*size, kGvcpMaxPacket));
    }
    ++m_sent;
    return m_socket.Send(packet, m_destination);
}

std::uint64_t MessageChannel::SentCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_sent;
}

} // namespace nq::camera
