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
    uint64_t waits = 0;      ///< how often a frame had to wait because pictures were written too slowly
    uint64_t ringWrites = 0; ///< how often what was kept was written

    /// Counts one more frame of `size` bytes that came `now`.
    void Arrived(Clock::time_point now, size_t size);

    /// The time up to the next frame does not count.
    void Pause() { m_paused = true; }

    /// Seconds from the first to the last frame, without pauses.
    double Seconds() const { return std::chrono::duration<double>(m_time).count(); }

    /// What came after the first frame, and not behind a pause, by the time that it took; nothing before that.
    std::optional<double> FramesPerSecond() const;
    std::optional<double> MegabytesPerSecond() const;

    /// The summary as JSON.
    nlohmann::ordered_json Json() const;

    /// The summary as lines of text.
    std::string Text() const;

    /// The same without the pictures.
    std::string StreamText() const;

  private:
    std::optional<double> PerSecond(double amount) const;

    bool m_paused = true; ///< up to the next frame
    Clock::time_point m_last{};
    Clock::duration m_time{};
    uint64_t m_timedFrames = 0; ///< those at the ends of m_time
    uint64_t m_timedBytes = 0;
};

} // namespace nq::tool
