// SPDX-License-Identifier: Apache-2.0
// The faults that the camera was asked to show.
#include "fault_plan.h"

#include <charconv>
#include <stdexcept>

namespace nq::camera
{

const std::array<FaultInfo, kFaultCount> kFaults{{
    {Fault::LostAck, "lost-ack", 0, 1, "executes the command and sends no answer"},
    {Fault::LateAck, "late-ack", 300, 1, "answers ARG milliseconds late", true},
    {Fault::WrongAckId, "wrong-ack-id", 1, 1, "adds ARG to the id of the answer"},
    {Fault::PendingAck, "pending-ack", 500, 1, "asks for ARG milliseconds of patience, then answers", true},
    {Fault::Silent, "silent", 0, 0, "ignores every packet; ARG milliseconds long when not 0", true},
    {Fault::Reboot, "reboot", 2000, 1, "drops everything, is away for ARG milliseconds, starts from defaults", true},
    {Fault::PrivilegeTaken, "privilege-taken", 1, 1, "gives control to somebody else, register value ARG"},
    {Fault::ShortFrame, "short-frame", 0, 1, "cuts ARG bytes off the frame's end; 0 is half the pixel data"},
    {Fault::EmptyFrame, "empty-frame", 0, 1, "sends a message of 0 bytes in place of a frame"},
    {Fault::WrongComponentOffset, "wrong-component-offset", 128, 1, "puts ARG at byte 56 of the frame"},
    {Fault::WildPartOffset, "wild-part-offset", 0xFFFFFF00, 1, "puts ARG at byte 112 of the frame"},
    {Fault::WildDataOffset, "wild-data-offset", 0xFFFFFFF0, 1, "puts ARG at byte 32 of the part header"},
    {Fault::HugeDataSize, "huge-data-size", 0x7FFFFFFFFFFFFFFF, 1, "puts ARG at byte 24 of the part header"},
    {Fault::IdJump, "id-jump", 10, 1, "skips ARG frame ids"},
    {Fault::IdBackwards, "id-backwards", 5, 1, "goes ARG frame ids back"},
    {Fault::RejectConnect, "reject-connect", 0, 0, "rejects every RDMA connection"},
    {Fault::DisconnectMidFrame, "disconnect-mid-frame", 0, 1, "disconnects while a frame is on its way"},
    {Fault::SlowAccept, "slow-accept", 1000, 0, "accepts an RDMA connection ARG milliseconds late", true},
    {Fault::HugePayloadSize, "huge-payload-size", 0xFFFFFFF0, 0, "claims a payload of ARG bytes in the settings"},
    {Fault::WrongEventSize, "wrong-event-size", 23, 1, "sends the event packet with ARG bytes in all"},
}};

namespace
{

/// A day.
constexpr std::uint64_t kLongestTime = 86400000;

std::size_t Index(Fault fault)
{
    return static_cast<std::size_t>(fault);
}

std::uint64_t ParseNumber(std::string_view text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != digits.data() + digits.size())
    {
        throw std::invalid_argument("'" + std::string(text) + "' in a fault is no number");
    }
    return value;
}

} // namespace

const FaultInfo* FaultPlan::Find(std::string_view name)
{
    for (const FaultInfo& info : kFaults)
    {
        if (name == info.name)
        {
            return &info;
        }
    }
    return nullptr;
}

Fault FaultPlan::Arm(std::string_view text)
{
    std::vector<std::string_view> parts;
    for (std::size_t start = 0; start != std::string_view::npos;)
    {
        const std::size_t colon = text.find(':', start);
        parts.push_back(text.substr(start, colon - start));
        start = colon == std::string_view::npos ? colon : colon + 1;
    }
    const FaultInfo* info = Find(parts[0]);
    if (info == nullptr || parts.size() > 3)
    {
        throw std::invalid_argument("there is no fault '" + std::string(text) + "'");
    }
    std::optional<std::uint64_t> argument;
    std::optional<std::uint64_t> count;
    if (parts.size() > 1)
    {
        argument = ParseNumber(parts[1]);
    }
    if (parts.size() > 2)
    {
        count = ParseNumber(parts[2]);
    }
    Arm(info->fault, argument, count);
    return info->fault;
}

void FaultPlan::Arm(Fault fault, std::optional<std::uint64_t> argument, std::optional<std::uint64_t> count)
{
    const FaultInfo& info = kFaults[Index(fault)];
    if (info.isTime && argument.value_or(0) > kLongestTime)
    {
        throw std::invalid_argument("the fault '" + std::string(info.name) + "' lasts at most " +
                                    std::to_string(kLongestTime) + " milliseconds");
    }
    const std::lock_guard lock(m_mutex);
    State& state = m_states[Index(fault)];
    state.armed = true;
    state.argument = argument.value_or(info.argument);
    state.left = count.value_or(info.count);
}

std::optional<std::uint64_t> FaultPlan::Strike(Fault fault)
{
    const std::lock_guard lock(m_mutex);
    State& state = m_states[Index(fault)];
    if (!state.armed)
    {
        return std::nullopt;
    }
    ++state.strikes;
    if (state.left > 0 && --state.left == 0)
    {
        state.armed = false;
    }
    return state.argument;
}

std::optional<std::uint64_t> FaultPlan::Armed(Fault fault) const
{
    const std::lock_guard lock(m_mutex);
    const State& state = m_states[Index(fault)];
    return state.armed ? std::optional(state.argument) : std::nullopt;
}

void FaultPlan::Clear(Fault fault)
{
    const std::lock_guard lock(m_mutex);
    m_states[Index(fault)].armed = false;
}

void FaultPlan::ClearAll()
{
    const std::lock_guard lock(m_mutex);
    for (State& state : m_states)
    {
        state.armed = false;
    }
}

std::uint64_t FaultPlan::Strikes(Fault fault) const
{
    const std::lock_guard lock(m_mutex);
    return m_states[Index(fault)].strikes;
}

} // namespace nq::camera
