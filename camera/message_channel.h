// SPDX-License-Identifier: Apache-2.0
// The camera's event packets.
#pragma once

#include "device_clock.h"
#include "fault_plan.h"
#include "udp_socket.h"

#include <array>
#include <cstdint>
#include <mutex>

namespace nq::camera
{

/// One entry of the EventSelector feature.
struct EventInfo
{
    const char* name;
    std::uint16_t id;
    /// When it is sent.
    const char* tip;
};

/// Ids from 0x9000 are the device's own.
constexpr std::array<EventInfo, 3> kEvents{{{"Test", 0x9000, "TestEventGenerate was executed"},
                                            {"ExposureEnd", 0x9001, "A picture is exposed"},
                                            {"FrameEnd", 0x9002, "A picture has been sent"}}};

enum class EventKind
{
    Test,
    ExposureEnd,
    FrameEnd,
};

/// Sends event packets to the place that the host has set, as long as it has set one. Any thread may call.
class MessageChannel
{
  public:
    MessageChannel(std::uint32_t address, const DeviceClock& clock, FaultPlan& faults);

    /// The port that the packets come from.
    std::uint16_t SourcePort() const;

    /// Events come from this address of the machine from now on. Throws std::system_error.
    void MoveTo(std::uint32_t address);

    /// Port 0 closes the channel.
    void SetDestination(const Endpoint& destination);

    /// Whether Notify sends events of this kind.
    void SetNotification(EventKind kind, bool on);

    /// Sends the event if the channel is open and the kind is switched on.
    void Notify(EventKind kind, std::uint64_t frameId);

    /// Sends an event of any id if the channel is open; true when it was sent.
    bool Send(std::uint16_t eventId, std::uint64_t frameId);

    std::uint64_t SentCount() const;

  private:
    const DeviceClock& m_clock;
    FaultPlan& m_faults;

    mutable std::mutex m_mutex;
    UdpSocket m_socket;
    Endpoint m_destination;
    std::array<bool, kEvents.size()> m_notify{};
    std::uint16_t m_requestId = 0;
    std::uint64_t m_sent = 0;
};

} // namespace nq::camera
