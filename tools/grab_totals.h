// SPDX-License-Identifier: Apache-2.0
// What a grab counts, and how it is summed up for people and for programs.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace nq::tool
{

/// The counts of one grab.
struct GrabTotals
{
    using Clock = std::chrono::steady_clock;

    uint64_t frames = 0;     ///< taken; refused ones are not among them
    uint64_t lost = 0;       ///< missing in the row of frame ids, after the first frame
    uint64_t incomplete = 0; ///< taken, but short
    uint64_t refused = 0;
    uint64_t underruns = 0; ///< frames that found no buffer, as the producer counts them
    uint64_t bytes = 0;
    uint64_t wrongBytes = 0;
    size_t pictures = 0;
    uint64_t waits = 0; ///< how often a frame had to wait because pictures were written too slowly

    /// Counts one more frame of `size` bytes that came `now`.
    void Arrived(Clock::time_point now, size_t size);

    /// Seconds from the first to the last frame.
    double Seconds() const { return std::chrono::duration<double>(m_last - m_first).count(); }

    /// What came after the first frame, by the time that it took; nothing before the second frame.
    std::optional<double> FramesPerSecond() const;
    std::optional<double> MegabytesPerSecond() const;

    /// The summary as JSON.
    nlohmann::ordered_json Json() const;

    /// The summary as lines of text.
    std::string Text() const;

  private:
    std::optional<double> PerSecond(double amount) const;

    Clock::time_point m_first{};
    Clock::time_point m_last{};
    size_t m_firstBytes = 0;
};

} // namespace nq::tool
