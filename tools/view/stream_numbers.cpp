// SPDX-License-Identifier: Apache-2.0
// What is counted of a stream while it runs, and how that went over the last two minutes.
#include "view/stream_numbers.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::tool::view
{

namespace
{

constexpr std::chrono::milliseconds kWindow{250};
constexpr size_t kMostWindows = 480;

double MsBetween(StreamNumbers::Clock::time_point from, StreamNumbers::Clock::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

} // namespace

/// How much later than the quickest frame of the stream this one came. The clocks of camera and machine need not agree,
/// so the time of the quickest one itself is not known.
double StreamNumbers::DelayOf(uint64_t cameraTimeNs, Clock::time_point now)
{
    const int64_t arrival = std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch()).count();
    const auto offset = static_cast<int64_t>(static_cast<uint64_t>(arrival) - cameraTimeNs);
    m_leastOffsetNs = std::min(m_leastOffsetNs.value_or(offset), offset);
    return (static_cast<double>(offset) - static_cast<double>(*m_leastOffsetNs)) / 1e6;
}

void StreamNumbers::CountLost(const Frame& frame, Clock::time_point now)
{
    const uint64_t missing = m_lastId && frame.frameId > *m_lastId ? frame.frameId - *m_lastId - 1 : 0;
    const uint64_t lost = missing - std::min(missing, m_refusedSince);
    m_lost += std::min(lost, UINT64_MAX - m_lost);
    m_open.lost += std::min(lost, UINT64_MAX - m_open.lost);
    m_lastLoss = lost != 0 ? now : m_lastLoss;
    m_lastId = frame.frameId;
    m_refusedSince = 0;
}

void StreamNumbers::Take(const Frame& frame, Clock::time_point now)
{
    const std::lock_guard lock(m_mutex);
    CloseWindow(now);
    if (!frame.refusal.empty())
    {
        ++m_refused;
        ++m_refusedSince;
        m_lastIncomplete = now;
        m_last.refusal = frame.refusal;
        return;
    }
    CountLost(frame, now);
    if (frame.cameraTimeNs)
    {
        m_open.delayMs = std::max(m_open.delayMs, DelayOf(*frame.cameraTimeNs, now));
        m_open.timed = true;
    }
    if (m_frames != 0)
    {
        m_open.longestGapMs = std::max(m_open.longestGapMs, MsBetween(m_lastArrival, now));
    }
    m_lastArrival = now;
    m_incomplete += frame.incomplete ? 1 : 0;
    m_lastIncomplete = frame.incomplete ? now : m_lastIncomplete;
    ++m_frames;
    ++m_open.frames;
    m_bytes += frame.size;
    m_open.bytes += frame.size;
    m_last = frame;
    m_last.data = nullptr; // goes with its buffer
}

void StreamNumbers::Tick(Clock::time_point now)
{
    const std::lock_guard lock(m_mutex);
    CloseWindow(now);
}

void StreamNumbers::BeginStream()
{
    const std::lock_guard lock(m_mutex);
    m_lastId.reset();
    m_leastOffsetNs.reset(); // a camera that was off has another clock
    m_refusedSince = 0;
}

void StreamNumbers::CloseWindow(Clock::time_point now)
{
    if (!m_start)
    {
        m_start = m_windowStart = now;
    }
    if (now - m_windowStart < kWindow)
    {
        return;
    }
    m_open.seconds = MsBetween(m_windowStart, now) / 1e3;
    m_open.endS = MsBetween(*m_start, now) / 1e3;
    const uint64_t next = ++m_open.number;
    m_windows.push_back(m_open);
    if (m_windows.size() > kMostWindows)
    {
        m_windows.pop_front();
    }
    m_open = {};
    m_open.number = next;
    m_windowStart = now;
}

nlohmann::ordered_json StreamNumbers::Ago(std::optional<Clock::time_point> when, Clock::time_point now)
{
    return when ? nlohmann::ordered_json(MsBetween(*when, now) / 1e3) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json StreamNumbers::Json(uint64_t afterWindow) const
{
    using Json = nlohmann::ordered_json;
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(m_mutex);
    Json windows = Json::array();
    for (const Window& one : m_windows)
    {
        if (one.number > afterWindow)
        {
            windows.push_back({{"number", one.number},
                               {"end", one.endS},
                               {"rate", static_cast<double>(one.frames) / one.seconds},
                               {"megabytes", static_cast<double>(one.bytes) / one.seconds / 1e6},
                               {"lost", one.lost},
                               {"delay", one.timed ? Json(one.delayMs) : Json(nullptr)},
                               {"gap", one.longestGapMs}});
        }
    }
    return {{"frames", m_frames},
            {"lost", m_lost},
            {"incomplete", m_incomplete},
            {"refused", m_refused},
            {"lost_ago_s", Ago(m_lastLoss, now)},
            {"incomplete_ago_s", Ago(m_lastIncomplete, now)},
            {"refusal", m_last.refusal},
            {"bytes", m_bytes},
            {"frame_id", m_lastId ? Json(*m_lastId) : Json(nullptr)},
            {"width", m_last.width},
            {"height", m_last.height},
            {"pixel_format", fmt::format("0x{:08x}", m_last.pixelFormat)},
            {"windows", windows}};
}

} // namespace nq::tool::view
