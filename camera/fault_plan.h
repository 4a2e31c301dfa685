// SPDX-License-Identifier: Apache-2.0
// The faults that the camera was asked to show.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nq::camera
{

enum class Fault
{
    LostAck,
    LateAck,
    WrongAckId,
    PendingAck,
    Silent,
    Reboot,
    PrivilegeTaken,
    ShortFrame,
    EmptyFrame,
    WrongComponentOffset,
    WildPartOffset,
    WildDataOffset,
    HugeDataSize,
    IdJump,
    IdBackwards,
    RejectConnect,
    DisconnectMidFrame,
    SlowAccept,
    HugePayloadSize,
    WrongEventSize,
};

/// One row of the table of faults.
struct FaultInfo
{
    Fault fault;
    const char* name;
    /// Argument when none is given.
    std::uint64_t argument;
    /// How often it strikes when no count is given; 0 is until it is cleared.
    std::uint64_t count;
    const char* help;
    /// The argument is a time in milliseconds.
    bool isTime = false;
};

constexpr std::size_t kFaultCount = 20;
extern const std::array<FaultInfo, kFaultCount> kFaults;

/// The armed faults. A part of the camera that can show a fault asks with Strike at the moment it would. Any thread may
/// call any operation.
class FaultPlan
{
  public:
    /// Arms a fault written as NAME[:ARGUMENT[:COUNT]], numbers decimal or with 0x. Throws std::invalid_argument with a
    /// one-line text when there is no such fault, a number is none, or a time is longer than a day.
    Fault Arm(std::string_view text);
    void Arm(Fault fault, std::optional<std::uint64_t> argument, std::optional<std::uint64_t> count);

    /// The fault's argument, and one of its counts is used up, when it is armed.
    std::optional<std::uint64_t> Strike(Fault fault);
    /// The fault's argument when it is armed; uses nothing up.
    std::optional<std::uint64_t> Armed(Fault fault) const;

    void Clear(Fault fault);
    void ClearAll();

    /// How often the fault has struck since the camera was switched on.
    std::uint64_t Strikes(Fault fault) const;

    /// The row of this name, or null.
    static const FaultInfo* Find(std::string_view name);

  private:
    struct State
    {
        bool armed = false;
        std::uint64_t argument = 0;
        std::uint64_t left = 0;
        std::uint64_t strikes = 0;
    };

    mutable std::mutex m_mutex;
    std::array<State, kFaultCount> m_states;
};

} // namespace nq::camera
