// SPDX-License-Identifier: Apache-2.0
// When the frames of a stream came, how long each was held, and what processor time that took.
#include "frame_times.h"

#include <sys/resource.h>

namespace nq::tool
{

namespace
{

double SecondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

CpuTime CpuTime::Now()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return {SecondsOf(usage.ru_utime), SecondsOf(usage.ru_stime)};
}

void FrameTimes::Add(Clock::time_point arrived, Clock::time_point requeued)
{
    if (m_holds.Count() == 0)
    {
        m_begin = requeued;
        m_cpuBegin = CpuTime::Now();
    }
    else
    {
        m_intervals.Add(arrived - m_last);
    }
    m_holds.Add(requeued - arrived);
    m_last = arrived;
}

void FrameTimes::End()
{
    if (m_holds.Count() == 0)
    {
        return;
    }
    const CpuTime now = CpuTime::Now();
    m_cpu = {now.user - m_cpuBegin.user, now.system - m_cpuBegin.system};
    m_seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
}

std::optional<CpuTime> FrameTimes::CpuPerFrame() const
{
    if (m_intervals.Count() == 0)
    {
        return std::nullopt;
    }
    const auto frames = static_cast<double>(m_intervals.Count());
    return CpuTime{m_cpu.user / frames, m_cpu.system / frames};
}

double FrameTimes::CpuShare() const
{
    return m_seconds > 0 ? (m_cpu.user + m_cpu.system) / m_seconds : 0;
}

} // namespace nq::tool
