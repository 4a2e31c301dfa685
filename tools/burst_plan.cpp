// SPDX-License-Identifier: Apache-2.0
// Which frames of a stream belong to bursts.
#include "burst_plan.h"

namespace nq::tool
{

BurstPlan::Place BurstPlan::Next(Clock::time_point arrived)
{
    if (m_size == 0)
    {
        return Place::Further;
    }
    if (m_left != 0)
    {
        --m_left;
        return Place::Further;
    }
    m_next = m_begun == 0 ? arrived : m_next;
    if (arrived < m_next)
    {
        return Place::Between;
    }
    const auto passed = (arrived - m_next) / m_every;
    m_leftOut += static_cast<uint64_t>(passed);
    m_next += (passed + 1) * m_every;
    m_left = m_size - 1;
    ++m_begun;
    return Place::First;
}

} // namespace nq::tool
