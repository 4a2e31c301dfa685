// SPDX-License-Identifier: Apache-2.0
// Answers GVCP commands.
#pragma once

#include "device.h"
#include "fault_plan.h"
#include "gvcp.h"
#include "repeated_writes.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace nq::camera
{

/// What is to be sent for one command.
struct GvcpReply
{
    /// Sent at once; empty for nothing.
    std::vector<std::uint8_t> now;
    /// Sent after `delay`; empty for nothing.
    std::vector<std::uint8_t> later;
    std::chrono::milliseconds delay{0};
    /// The requester takes it as a broadcast.
    bool broadcastAllowed = false;
    /// The camera moves to this address behind the reply.
    std::optional<LocalInterface> move{};
    /// The camera restarts behind the reply.
    bool reset = false;
};

/// Turns one datagram into a reply, with the faults of the plan. It sees neither sockets nor time. A write command that
/// arrives twice from the holder of control is executed once and acknowledged twice. Used from one thread.
class GvcpService
{
  public:
    GvcpService(Device& device, FaultPlan& faults) : m_device(device), m_faults(faults) {}

    GvcpReply Handle(const Endpoint& from, std::span<const std::uint8_t> datagram);

  private:
    struct Outcome
    {
        GvcpStatus status = GvcpStatus::Success;
        std::vector<std::uint8_t> body;
        std::chrono::milliseconds busy{0};
        bool reset = false;
        bool tookControl = false;
    };

    GvcpReply ForceIp(const GvcpCommand& command);
    Outcome Execute(const Endpoint& from, const GvcpCommand& command);
    Outcome ReadRegisters(const Endpoint& from, const GvcpCommand& command);
    Outcome WriteRegisters(const Endpoint& from, const GvcpCommand& command);
    Outcome ReadMemory(const Endpoint& from, const GvcpCommand& command);
    Outcome WriteMemory(const Endpoint& from, const GvcpCommand& command);
    GvcpReply Acknowledge(const Endpoint& from, const GvcpCommand& command, std::span<const std::uint8_t> datagram);
    void ApplyFaults(GvcpReply& reply, std::uint16_t id, bool pendingAllowed);

    Device& m_device;
    FaultPlan& m_faults;
    RepeatedWrites m_writes;
};

} // namespace nq::camera
