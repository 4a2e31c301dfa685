// SPDX-License-Identifier: Apache-2.0
// How times are distributed, in the same memory for any number of them.
#include "time_distribution.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace nq::tool
{

namespace
{

// Up to 2048 ns each has a step of its own, and each doubling after that has 1024.
constexpr unsigned kDoublingBits = 10;
constexpr uint64_t kSteps = uint64_t{1} << kDoublingBits;
constexpr double kNsInMs = 1e6;

unsigned ShiftOf(uint64_t ns)
{
    const auto width = static_cast<unsigned>(std::bit_width(ns));
    return width > kDoublingBits + 1 ? width - kDoublingBits - 1 : 0;
}

size_t StepOf(uint64_t ns)
{
    const unsigned shift = ShiftOf(ns);
    return shift * kSteps + (ns >> shift);
}

/// The middle of a step.
double NsOf(size_t step)
{
    if (step < 2 * kSteps)
    {
        return static_cast<double>(step);
    }
    const size_t shift = step / kSteps - 1;
    return std::ldexp(static_cast<double>(step - shift * kSteps) + 0.5, static_cast<int>(shift));
}

} // namespace

TimeDistribution::TimeDistribution() : m_counts(StepOf(INT64_MAX) + 1) {}

void TimeDistribution::Add(std::chrono::nanoseconds time)
{
    const auto ns = static_cast<uint64_t>(std::max<int64_t>(time.count(), 0));
    ++m_counts[StepOf(ns)];
    ++m_count;
    m_leastNs = std::min(m_leastNs, ns);
    m_mostNs = std::max(m_mostNs, ns);
    m_sumNs += static_cast<double>(ns);
}

double TimeDistribution::Least() const
{
    return m_count == 0 ? 0 : static_cast<double>(m_leastNs) / kNsInMs;
}

double TimeDistribution::Most() const
{
    return static_cast<double>(m_mostNs) / kNsInMs;
}

double TimeDistribution::Mean() const
{
    return m_count == 0 ? 0 : m_sumNs / static_cast<double>(m_count) / kNsInMs;
}

double TimeDistribution::Within(double share) const
{
    const double exact = std::ceil(share * static_cast<double>(m_count));
    const uint64_t rank =
        std::clamp<uint64_t>(static_cast<uint64_t>(std::max(exact, 1.0)), 1, std::max<uint64_t>(m_count, 1));
    uint64_t seen = 0;
    for (size_t step = 0; step < m_counts.size(); ++step)
    {
        seen += m_counts[step];
        if (seen >= rank)
        {
            return std::clamp(NsOf(step) / kNsInMs, Least(), Most());
        }
    }
    return 0;
}

} // namespace nq::tool
