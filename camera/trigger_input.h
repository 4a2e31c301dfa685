// SPDX-License-Identifier: Apache-2.0
// Where triggers come from, and when they take effect.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace nq::camera
{

/// Values of the TriggerSource feature.
enum class TriggerSource : std::uint32_t
{
    Software = 0,
    Line0 = 1,
    Counter0End = 2,
};

/// Values of the TriggerActivation feature.
enum class TriggerActivation : std::uint32_t
{
    RisingEdge = 0,
    FallingEdge = 1,
    AnyEdge = 2,
};

/// The square wave at the camera's input. It is a function of time alone.
struct LineWave
{
    using Clock = std::chrono::steady_clock;

    double frequency = 10;
    bool inverted = false;

    bool operator==(const LineWave&) const = default;

    bool Level(Clock::time_point at) const { return (Edges(at) % 2 != 0) != inverted; }
    /// Number of rising edges so far.
    std::int64_t Rises(Clock::time_point at) const { return (Edges(at) + (inverted ? 0 : 1)) / 2; }
    /// The first edge of the kind behind `at`.
    Clock::time_point NextEdge(Clock::time_point at, TriggerActivation activation) const;
    /// The time of a rising edge by its number.
    Clock::time_point Rise(std::int64_t number) const { return Time(inverted ? 2 * number : 2 * number - 1); }

  private:
    double Half() const { return 0.5e9 / frequency; }
    std::int64_t Edges(Clock::time_point at) const;
    Clock::time_point Time(std::int64_t edge) const;
};

/// Counter0: counts the rising edges of the wave and begins again when its duration is full.
struct EdgeCounter
{
    bool on = false;
    std::int64_t duration = 1;
    /// Rising edges of the wave when it was reset.
    std::int64_t start = 0;

    bool operator==(const EdgeCounter&) const = default;
};

struct TriggerSettings
{
    bool on = false;
    TriggerSource source = TriggerSource::Software;
    TriggerActivation activation = TriggerActivation::RisingEdge;
    /// From the trigger to its effect.
    std::chrono::nanoseconds delay{0};
    LineWave wave = {};
    EdgeCounter counter = {};

    bool operator==(const TriggerSettings&) const = default;
};

/// The triggers of one kind that are waiting for their effect. Not safe for concurrent use.
class TriggerInput
{
  public:
    using Clock = std::chrono::steady_clock;

    /// Forgets waiting triggers when the settings are others.
    void Configure(const TriggerSettings& settings);
    bool IsOn() const { return m_settings.on; }
    /// Triggers by software, as far as it is the source.
    void Fire(Clock::time_point now);
    /// Whether a trigger's time has come.
    bool IsDue(Clock::time_point now);
    /// When the trigger takes effect that Take would take next; the smallest time for one of software without delay.
    Clock::time_point Front() const { return m_waiting.front(); }
    /// Takes one trigger whose time has come.
    bool Take(Clock::time_point now);
    /// Forgets the edges up to this time.
    void ForgetEdges(Clock::time_point until);
    /// When to ask again; nothing when only software can change that.
    std::optional<Clock::time_point> Next(Clock::time_point now) const;
    void Clear();

  private:
    void Look(Clock::time_point now);
    std::optional<Clock::time_point> NextEdge(Clock::time_point from) const;

    TriggerSettings m_settings;
    std::deque<Clock::time_point> m_waiting;
    /// Up to when the signal was looked at.
    std::optional<Clock::time_point> m_seen;
};

} // namespace nq::camera
