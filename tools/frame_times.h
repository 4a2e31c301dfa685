// SPDX-License-Identifier: Apache-2.0
// When the frames of a stream came, how long each was held, and what processor time that took.
#pragma once

#include "time_distribution.h"

#include <chrono>
#include <optional>

namespace nq::tool
{

/// Processor time of this process, in seconds.
struct CpuTime
{
    double user = 0;
    double system = 0;

    static CpuTime Now();
};

/// Counts from the first frame on. Used from one thread.
class FrameTimes
{
  public:
    using Clock = std::chrono::steady_clock;

    /// A frame whose event came at `arrived`, and whose buffer was queued again at `requeued`.
    void Add(Clock::time_point arrived, Clock::time_point requeued);

    /// No more frames come.
    void End();

    /// From one event to the next.
    const TimeDistribution& Intervals() const { return m_intervals; }

    /// From the event of a frame to the return of its buffer.
    const TimeDistribution& Holds() const { return m_holds; }

    /// For each frame after the first; nothing when there are none.
    std::optional<CpuTime> CpuPerFrame() const;

    /// The part of one processor's time that this process took, from the first frame on.
    double CpuShare() const;

  private:
    TimeDistribution m_intervals;
    TimeDistribution m_holds;
    Clock::time_point m_last{};
    Clock::time_point m_begin{}; ///< of the count of processor time
    CpuTime m_cpuBegin;
    CpuTime m_cpu; ///< until the end
    double m_seconds = 0;
};

} // namespace nq::tool
