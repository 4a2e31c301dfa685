// SPDX-License-Identifier: Apache-2.0
// Where triggers come from, and when they take effect.
#include "trigger_input.h"

#include <algorithm>
#include <cmath>

namespace nq::camera
{

namespace
{

/// Triggers that may wait; what comes beyond them is lost.
constexpr std::size_t kMostWaiting = 4096;

} // namespace

std::int64_t LineWave::Edges(Clock::time_point at) const
{
    return static_cast<std::int64_t>(std::floor(static_cast<double>(at.time_since_epoch().count()) / Half() + 1e-6));
}

LineWave::Clock::time_point LineWave::Time(std::int64_t edge) const
{
    return Clock::time_point(std::chrono::nanoseconds(std::llround(static_cast<double>(edge) * Half())));
}

LineWave::Clock::time_point LineWave::NextEdge(Clock::time_point at, TriggerActivation activation) const
{
    const std::int64_t next = Edges(at) + 1;
    const bool rises = (next % 2 != 0) != inverted;
    const bool wanted =
        activation == TriggerActivation::AnyEdge || rises == (activation == TriggerActivation::RisingEdge);
    return Time(wanted ? next : next + 1);
}

void TriggerInput::Configure(const TriggerSettings& settings)
{
    if (!(settings == m_settings))
    {
        m_settings = settings;
        Clear();
    }
}

void TriggerInput::Clear()
{
    m_waiting.clear();
    m_seen.reset();
}

void TriggerInput::Fire(Clock::time_point now)
{
    if (m_settings.source == TriggerSource::Software && m_waiting.size() < kMostWaiting)
    {
        m_waiting.push_back(m_settings.delay.count() == 0 ? Clock::time_point::min() : now + m_settings.delay);
    }
}

std::optional<TriggerInput::Clock::time_point> TriggerInput::NextEdge(Clock::time_point from) const
{
    switch (m_settings.source)
    {
    case TriggerSource::Line0:
        return m_settings.wave.NextEdge(from, m_settings.activation);
    case TriggerSource::Counter0End: {
        const EdgeCounter& counter = m_settings.counter;
        if (!counter.on)
        {
            return std::nullopt;
        }
        const std::int64_t rounds = (m_settings.wave.Rises(from) - counter.start) / counter.duration + 1;
        return m_settings.wave.Rise(counter.start + rounds * counter.duration);
    }
    case TriggerSource::Software:
        break;
    }
    return std::nullopt;
}

void TriggerInput::Look(Clock::time_point now)
{
    if (!m_seen)
    {
        m_seen = now; // what was before does not count
    }
    for (auto edge = NextEdge(*m_seen); edge && *edge <= now; edge = NextEdge(*m_seen))
    {
        if (m_waiting.size() == kMostWaiting)
        {
            m_seen = now;
            return;
        }
        m_waiting.push_back(*edge + m_settings.delay);
        m_seen = *edge;
    }
}

void TriggerInput::ForgetEdges(Clock::time_point until)
{
    if (m_settings.source == TriggerSource::Software)
    {
        return;
    }
    while (!m_waiting.empty() && m_waiting.front() - m_settings.delay <= until)
    {
        m_waiting.pop_front();
    }
    m_seen = std::max(m_seen.value_or(until), until);
}

bool TriggerInput::IsDue(Clock::time_point now)
{
    Look(now);
    return !m_waiting.empty() && m_waiting.front() <= now;
}

bool TriggerInput::Take(Clock::time_point now)
{
    if (!IsDue(now))
    {
        return false;
    }
    m_waiting.pop_front();
    return true;
}

std::optional<TriggerInput::Clock::time_point> TriggerInput::Next(Clock::time_point now) const
{
    return m_waiting.empty() ? NextEdge(m_seen.value_or(now)) : m_waiting.front();
}

} // namespace nq::camera
