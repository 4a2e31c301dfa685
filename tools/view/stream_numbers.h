// SPDX-License-Identifier: Apache-2.0
// What is counted of a stream while it runs, and how that went over the last two minutes.
#pragma once

#include "frame.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

namespace nq::tool::view
{

/// Counts frames, and closes a window of them four times a second. Any thread may ask; one counts.
class StreamNumbers
{
  public:
    using Clock = std::chrono::steady_clock;

    /// A frame that came `now`.
    void Take(const Frame& frame, Clock::time_point now);

    /// Closes the window if it is time; for times without frames.
    void Tick(Clock::time_point now);

    /// The next frame is the first of another stream: nothing between them is lost.
    void BeginStream();

    /// The counts, and the windows after the one of that number.
    nlohmann::ordered_json Json(uint64_t afterWindow) const;

  private:
    struct Window
    {
        uint64_t number = 0;
        double endS = 0;    ///< since the first frame or tick
        double seconds = 0; ///< how long it was
        uint64_t frames = 0;
        uint64_t bytes = 0;
        uint64_t lost = 0;
        double delayMs = 0;      ///< the longest; see DelayOf()
        double longestGapMs = 0; ///< the longest time between two frames
        bool timed = false;      ///< the camera tells the time of its frames
    };

    double DelayOf(uint64_t cameraTimeNs, Clock::time_point now);
    void CountLost(const Frame& frame, Clock::time_point now);
    void CloseWindow(Clock::time_point now);

    /// Seconds until now; null for what never was.
    static nlohmann::ordered_json Ago(std::optional<Clock::time_point> when, Clock::time_point now);

    mutable std::mutex m_mutex; ///< guards what follows
    uint64_t m_frames = 0;
    uint64_t m_lost = 0;
    uint64_t m_incomplete = 0;
    uint64_t m_refused = 0;
    uint64_t m_bytes = 0;
    uint64_t m_refusedSince = 0; ///< after the last frame that was not refused
    std::optional<uint64_t> m_lastId;
    std::optional<Clock::time_point> m_lastLoss;
    std::optional<Clock::time_point> m_lastIncomplete; ///< or refused
    Frame m_last;
    std::optional<int64_t> m_leastOffsetNs; ///< between the clocks, as the quickest frame tells
    std::optional<Clock::time_point> m_start;
    Clock::time_point m_windowStart{};
    Clock::time_point m_lastArrival{};
    Window m_open;
    std::deque<Window> m_windows;
};

} // namespace nq::tool::view
