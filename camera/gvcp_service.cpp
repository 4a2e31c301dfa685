// SPDX-License-Identifier: Apache-2.0
// Answers GVCP commands.
#include "gvcp_service.h"

#include "byte_order.h"

#include <algorithm>

namespace nq::camera
{

namespace
{

constexpr std::size_t kMaxRead = kGvcpMaxBody - 4;

bool IsWrite(std::uint16_t code)
{
    return code == static_cast<std::uint16_t>(GvcpCode::WriteRegCommand) ||
           code == static_cast<std::uint16_t>(GvcpCode::WriteMemCommand);
}

/// Body of a write acknowledge: a reserved word and how much was written.
std::vector<std::uint8_t> WriteAckBody(std::size_t done)
{
    std::vector<std::uint8_t> body(4);
    PutBig(&body[2], static_cast<std::uint16_t>(done));
    return body;
}

} // namespace

GvcpReply GvcpService::Handle(const Endpoint& from, std::span<const std::uint8_t> datagram)
{
    GvcpReply reply;
    const auto command = ParseGvcpCommand(datagram);
    if (!command)
    {
        return reply;
    }
    const bool wantsAck = (command->flags & kFlagAckRequired) != 0;
    const auto ackCode = static_cast<std::uint16_t>(command->code + 1);
    if (!command->wellFormed)
    {
        if (wantsAck)
        {
            reply.now = MakeGvcpAck(GvcpStatus::InvalidHeader, ackCode, command->id);
        }
        return reply;
    }
    if (command->body.size() > kGvcpMaxBody)
    {
        if (wantsAck)
        {
            reply.now = MakeGvcpAck(GvcpStatus::InvalidParameter, ackCode, command->id);
        }
        return reply;
    }
    if (command->code == static_cast<std::uint16_t>(GvcpCode::DiscoveryCommand))
    {
        reply.now = MakeGvcpAck(GvcpStatus::Success, ackCode, command->id, m_device.DiscoveryBody());
        reply.broadcastAllowed = (command->flags & kFlagAllowBroadcastAck) != 0;
        return reply;
    }
    if (command->code == static_cast<std::uint16_t>(GvcpCode::ForceIpCommand))
    {
        return ForceIp(*command);
    }
    m_device.Heartbeat(from);
    reply = Acknowledge(from, *command, datagram);
    if (!wantsAck)
    {
        reply.now.clear();
        return reply;
    }
    ApplyFaults(reply, command->id, m_device.PendingAckEnabled());
    if (!reply.later.empty())
    {
        m_device.Heartbeat(from, reply.delay);
    }
    return reply;
}

GvcpReply GvcpService::ForceIp(const GvcpCommand& command)
{
    GvcpReply reply;
    constexpr std::size_t kForceIpBodySize = 56;
    if (command.body.size() != kForceIpBodySize)
    {
        return reply;
    }
    const std::uint64_t mac =
        std::uint64_t{GetBig<std::uint16_t>(&command.body[2])} << 32 | GetBig<std::uint32_t>(&command.body[4]);
    reply.move = m_device.ForceIp(mac, GetBig<std::uint32_t>(&command.body[20]),
                                  GetBig<std::uint32_t>(&command.body[36]), GetBig<std::uint32_t>(&command.body[52]));
    if (reply.move && (command.flags & kFlagAckRequired) != 0)
    {
        reply.now = MakeGvcpAck(GvcpStatus::Success, static_cast<std::uint16_t>(GvcpCode::ForceIpAck), command.id);
        reply.broadcastAllowed = (command.flags & kFlagAllowBroadcastAck) != 0;
    }
    return reply;
}

GvcpReply GvcpService::Acknowledge(const Endpoint& from, const GvcpCommand& command,
                                   std::span<const std::uint8_t> datagram)
{
    GvcpReply reply;
    const bool held = m_device.MayWrite(from);
    const RepeatedWrites::Write* const earlier = m_writes.Find(from, datagram);
    // Control that was granted may be lost by now, and then the old answer would not be true.
    if (earlier != nullptr && (held || !earlier->tookControl))
    {
        reply.now = earlier->acknowledge;
        return reply;
    }
    Outcome outcome = Execute(from, command);
    reply.now = MakeGvcpAck(outcome.status, static_cast<std::uint16_t>(command.code + 1), command.id, outcome.body);
    reply.delay = outcome.busy;
    reply.reset = outcome.reset;
    // What others write changes nothing and may be refused twice.
    if (IsWrite(command.code) && (held || m_device.MayWrite(from)))
    {
        m_writes.Remember({from, {datagram.begin(), datagram.end()}, reply.now, outcome.tookControl});
    }
    return reply;
}

void GvcpService::ApplyFaults(GvcpReply& reply, std::uint16_t id, bool pendingAllowed)
{
    bool announce = reply.delay.count() > 0 && pendingAllowed;
    if (const auto wait = m_faults.Strike(Fault::PendingAck))
    {
        reply.delay = std::chrono::milliseconds(*wait);
        announce = true;
    }
    if (const auto wait = m_faults.Strike(Fault::LateAck))
    {
        reply.delay = std::chrono::milliseconds(*wait);
    }
    if (const auto shift = m_faults.Strike(Fault::WrongAckId))
    {
        PutBig(&reply.now[6], static_cast<std::uint16_t>(id + *shift));
    }
    if (m_faults.Strike(Fault::LostAck))
    {
        reply.now.clear();
        reply.delay = {};
    }
    if (reply.delay.count() > 0)
    {
        reply.later = std::move(reply.now);
        const auto told = static_cast<std::uint16_t>(std::min<std::int64_t>(reply.delay.count(), 0xFFFF));
        reply.now = announce ? MakePendingAck(id, told) : std::vector<std::uint8_t>();
    }
}

GvcpService::Outcome GvcpService::Execute(const Endpoint& from, const GvcpCommand& command)
{
    switch (static_cast<GvcpCode>(command.code))
    {
    case GvcpCode::ReadRegCommand:
        return ReadRegisters(from, command);
    case GvcpCode::WriteRegCommand:
        return WriteRegisters(from, command);
    case GvcpCode::ReadMemCommand:
        return ReadMemory(from, command);
    case GvcpCode::WriteMemCommand:
        return WriteMemory(from, command);
    default:
        return {.status = GvcpStatus::NotImplemented, .body = {}};
    }
}

GvcpService::Outcome GvcpService::ReadRegisters(const Endpoint& from, const GvcpCommand& command)
{
    Outcome outcome;
    if (command.body.empty() || command.body.size() % 4 != 0)
    {
        outcome.status = GvcpStatus::InvalidParameter;
        return outcome;
    }
    for (std::size_t i = 0; i < command.body.size(); i += 4)
    {
        std::uint32_t value = 0;
        outcome.status = m_device.ReadRegister(from, GetBig<std::uint32_t>(&command.body[i]), value);
        if (outcome.status != GvcpStatus::Success)
        {
            break;
        }
        outcome.body.resize(i + 4);
        PutBig(&outcome.body[i], value);
    }
    return outcome;
}

GvcpService::Outcome GvcpService::WriteRegisters(const Endpoint& from, const GvcpCommand& command)
{
    Outcome outcome;
    std::size_t done = 0;
    if (command.body.empty() || command.body.size() % 8 != 0)
    {
        outcome.status = GvcpStatus::InvalidParameter;
    }
    for (std::size_t i = 0; outcome.status == GvcpStatus::Success && i < command.body.size(); i += 8)
    {
        const auto result =
            m_device.Write(from, GetBig<std::uint32_t>(&command.body[i]), GetBig<std::uint32_t>(&command.body[i + 4]));
        outcome.status = result.status;
        outcome.busy += result.busy;
        outcome.reset |= result.reset;
        outcome.tookControl |= result.tookControl;
        done += result.status == GvcpStatus::Success ? 1 : 0;
    }
    outcome.body = WriteAckBody(done);
    return outcome;
}

GvcpService::Outcome GvcpService::ReadMemory(const Endpoint& from, const GvcpCommand& command)
{
    Outcome outcome;
    if (command.body.size() != 8)
    {
        outcome.status = GvcpStatus::InvalidParameter;
        return outcome;
    }
    const std::size_t count = GetBig<std::uint16_t>(&command.body[6]);
    if (count > kMaxRead)
    {
        outcome.status = GvcpStatus::InvalidParameter;
        return outcome;
    }
    const auto address = GetBig<std::uint32_t>(&command.body[0]);
    outcome.body.resize(4 + count);
    PutBig(&outcome.body[0], address);
    outcome.status = m_device.ReadMemory(from, address, std::span(outcome.body).subspan(4));
    if (outcome.status != GvcpStatus::Success)
    {
        outcome.body.clear();
    }
    return outcome;
}

GvcpService::Outcome GvcpService::WriteMemory(const Endpoint& from, const GvcpCommand& command)
{
    Outcome outcome;
    std::size_t done = 0;
    if (command.body.size() < 8 || command.body.size() % 4 != 0)
    {
        outcome.status = GvcpStatus::InvalidParameter;
    }
    for (std::size_t i = 4; outcome.status == GvcpStatus::Success && i < command.body.size(); i += 4)
    {
        const auto address = static_cast<std::uint32_t>(GetBig<std::uint32_t>(&command.body[0]) + i - 4);
        const auto result = m_device.Write(from, address, GetBig<std::uint32_t>(&command.body[i]));
        outcome.status = result.status;
        outcome.busy += result.busy;
        outcome.reset |= result.reset;
        outcome.tookControl |= result.tookControl;
        done += result.status == GvcpStatus::Success ? 4 : 0;
    }
    outcome.body = WriteAckBody(done);
    return outcome;
}

} // namespace nq::camera
