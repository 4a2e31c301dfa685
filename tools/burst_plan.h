// SPDX-License-Identifier: Apache-2.0
// Which frames of a stream belong to bursts.
#pragma once

#include <chrono>
#include <cstdint>

namespace nq::tool
{

/// So many frames from each of the moments on that lie so many seconds apart, the first of which is the first frame. A
/// moment that passes while no frame comes, or while another burst still runs, has its burst with the next frame; of
/// several such moments one has.
class BurstPlan
{
  public:
    using Clock = std::chrono::steady_clock;

    enum class Place
    {
        Between, ///< nobody wants it
        First,
        Further,
    };

    /// With a `size` of 0 every frame is wanted.
    BurstPlan(uint64_t size, std::chrono::seconds every) : m_size(size), m_every(every) {}

    /// Where the next frame belongs.
    Place Next(Clock::time_point arrived);

    /// How many have begun, and how many moments went by without one.
    uint64_t Begun() const { return m_begun; }
    uint64_t LeftOut() const { return m_leftOut; }

  private:
    uint64_t m_size;
    std::chrono::seconds m_every;
    Clock::time_point m_next{}; ///< when the next one begins
    uint64_t m_left = 0;        ///< frames of this one
    uint64_t m_begun = 0;
    uint64_t m_leftOut = 0;
};

} // namespace nq::tool
