// SPDX-License-Identifier: Apache-2.0
// Who controls the camera, and until when.
#include "control_privilege.h"

#include "bootstrap.h"

#include <algorithm>

namespace nq::camera
{

GvcpStatus ControlPrivilege::Request(const Endpoint& from, std::uint32_t value, Clock::time_point now)
{
    if (m_holder && m_holder != from)
    {
        return GvcpStatus::AccessDenied;
    }
    if (value == 0)
    {
        Release();
        return GvcpStatus::Success;
    }
    if ((value & ~(bootstrap::kPrivilegeExclusive | bootstrap::kPrivilegeControl)) != 0)
    {
        return GvcpStatus::InvalidParameter;
    }
    m_holder = from;
    m_value = value;
    m_lastSeen = now;
    return GvcpStatus::Success;
}

void ControlPrivilege::Refresh(const Endpoint& from, Clock::time_point now)
{
    if (m_holder == from)
    {
        m_lastSeen = std::max(m_lastSeen, now);
    }
}

bool ControlPrivilege::Expire(std::chrono::milliseconds timeout, Clock::time_point now)
{
    const auto deadline = Deadline(timeout);
    if (!deadline || now < *deadline)
    {
        return false;
    }
    Release();
    return true;
}

std::optional<ControlPrivilege::Clock::time_point> ControlPrivilege::Deadline(std::chrono::milliseconds timeout) const
{
    if (!m_holder || m_takenAway)
    {
        return std::nullopt;
    }
    return m_lastSeen + timeout;
}

void ControlPrivilege::Release()
{
    m_holder.reset();
    m_value = 0;
    m_takenAway = false;
}

void ControlPrivilege::TakeAway(std::uint32_t value, Clock::time_point now)
{
    m_holder = Endpoint{};
    m_value = value;
    m_takenAway = true;
    m_lastSeen = now;
}

bool ControlPrivilege::MayRead(const Endpoint& from) const
{
    return (m_value & bootstrap::kPrivilegeExclusive) == 0 || m_holder == from;
}

} // namespace nq::camera
