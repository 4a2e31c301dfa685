// SPDX-License-Identifier: Apache-2.0
// Who controls the camera, and until when.
#pragma once

#include "gvcp.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace nq::camera
{

/// The control channel privilege of a GigE Vision camera. One application at a time, known by its address and port,
/// holds it; only this application may write. It keeps the privilege as long as it sends commands within the heartbeat
/// timeout.
///
///     free --Request(1 or 2)--> held --Request(0) by the holder, Expire, Release--> free
///
/// Not safe for concurrent use; its owner locks.
class ControlPrivilege
{
  public:
    using Clock = std::chrono::steady_clock;

    /// A write of the privilege register by `from`. AccessDenied while somebody else holds the privilege,
    /// InvalidParameter for a value that is neither 0, exclusive (1) nor control (2).
    GvcpStatus Request(const Endpoint& from, std::uint32_t value, Clock::time_point now);

    /// Notes a command of `from`, the holder's heartbeat. The time may lie ahead: until then the holder is not quiet.
    void Refresh(const Endpoint& from, Clock::time_point now);

    /// True, and the privilege is free, when the holder has been quiet for `timeout`.
    bool Expire(std::chrono::milliseconds timeout, Clock::time_point now);

    /// When Expire would next be true; nothing while the privilege is free.
    std::optional<Clock::time_point> Deadline(std::chrono::milliseconds timeout) const;

    void Release();

    /// Gives the privilege to an application that never speaks, with the register at `value`.
    void TakeAway(std::uint32_t value, Clock::time_point now);

    bool MayWrite(const Endpoint& from) const { return m_holder == from; }
    /// False only while somebody else has exclusive access.
    bool MayRead(const Endpoint& from) const;

    /// What the register reads.
    std::uint32_t Value() const { return m_value; }
    std::optional<Endpoint> Holder() const { return m_holder; }
    /// Since TakeAway, until Release.
    bool IsTakenAway() const { return m_takenAway; }

  private:
    std::optional<Endpoint> m_holder;
    std::uint32_t m_value = 0;
    bool m_takenAway = false;
    Clock::time_point m_lastSeen;
};

} // namespace nq::camera
