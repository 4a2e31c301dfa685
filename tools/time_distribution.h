// SPDX-License-Identifier: Apache-2.0
// How times are distributed, in the same memory for any number of them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nq::tool
{

/// Counts times by their length, in steps of a thousandth of it.
class TimeDistribution
{
  public:
    TimeDistribution();

    void Add(std::chrono::nanoseconds time);

    uint64_t Count() const { return m_count; }

    /// All of these in milliseconds, and 0 of none.
    double Least() const;
    double Most() const;
    double Mean() const;

    /// The time within which that share of them lies, as the one of that rank has it: 0.5 is the median.
    double Within(double share) const;

  private:
    std::vector<uint64_t> m_counts; ///< by StepOf()
    uint64_t m_count = 0;
    uint64_t m_leastNs = UINT64_MAX;
    uint64_t m_mostNs = 0;
    double m_sumNs = 0;
};

} // namespace nq::tool
