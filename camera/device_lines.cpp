// SPDX-License-Identifier: Apache-2.0
// What moves by itself in the camera: its lines, its counter, its timer, and the settings that it makes.
#include "device.h"
#include "feature_registers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace nq::camera
{

using namespace feature;

namespace
{

/// Values of the features that have them.
constexpr std::uint32_t kOff = 0;
constexpr std::uint32_t kOnce = 1;
constexpr std::uint32_t kTimerIdle = 0;
constexpr std::uint32_t kTimerDelays = 1;
constexpr std::uint32_t kTimerActive = 2;

double Microseconds(Acquisition::Clock::duration time)
{
    return std::chrono::duration<double, std::micro>(time).count();
}

} // namespace

void Device::RefreshLines()
{
    const Acquisition::Counters state = m_acquisition.Count();
    const auto now = Clock::now();
    const std::array<bool, 4> states{state.burstTriggerWait, state.frameTriggerWait, state.running,
                                     now < state.exposureEnd};
    for (std::uint32_t i = 0; i < states.size(); ++i)
    {
        m_registers.Set(kAcquisitionStatus + 4 * i, states[i] ? 1 : 0);
    }
    RefreshTimer(state.exposureStart, now);
    const bool input = CurrentWave().Level(now);
    const std::array<bool, 4> sources{false, now < state.exposureEnd, m_registers.Get(kTimerStatus) == kTimerActive,
                                      m_registers.Get(kUserOutputValue) != 0};
    const bool output = sources[m_registers.Get(kLineSource)] != (m_registers.Get(kLineInverter + 4) != 0);
    m_registers.Set(kLineMode + 4, 1);
    m_registers.Set(kLineStatus, input ? 1 : 0);
    m_registers.Set(kLineStatus + 4, output ? 1 : 0);
    m_registers.Set(kLineStatusAll, (input ? 1U : 0U) | (output ? 2U : 0U));
    m_registers.Set(kCounterValue, static_cast<std::uint32_t>(Counted(now)));
}

std::int64_t Device::Counted(Clock::time_point now) const
{
    return m_counter.on ? (m_countedWave.Rises(now) - m_counter.start) % m_counter.duration : 0;
}

void Device::FollowCounter()
{
    const EdgeCounter wanted{.on = m_registers.Get(kCounterEventSource) != kOff,
                             .duration = m_registers.Get(kCounterDuration)};
    const LineWave wave = CurrentWave();
    if (wanted.on == m_counter.on && wanted.duration == m_counter.duration && wave == m_countedWave)
    {
        return;
    }
    const auto now = Clock::now();
    const std::int64_t counted = wanted.on ? Counted(now) % wanted.duration : 0;
    m_counter = wanted;
    m_counter.start = wave.Rises(now) - counted;
    m_countedWave = wave;
}

void Device::RefreshTimer(Clock::time_point start, Clock::time_point now)
{
    const double delay = m_registers.GetFloat(kTimerDelay);
    const double duration = m_registers.GetFloat(kTimerDuration);
    const bool started = m_registers.Get(kTimerTriggerSource) != kOff && start != Clock::time_point{};
    const double since = Microseconds(now - start) - delay;
    const bool runs = started && since >= 0 && since < duration;
    m_registers.Set(kTimerStatus, runs ? kTimerActive : started && since < 0 ? kTimerDelays : kTimerIdle);
    m_registers.SetFloat(kTimerValue, runs ? static_cast<float>(since) : 0);
}

void Device::ResetCounter()
{
    m_counter.on = false; // what is switched on anew begins at 0
    ApplySettings();
}

void Device::Measured(double brightness)
{
    constexpr double kMedium = 0.5;
    constexpr double kNearEnough = 0.02;
    const std::lock_guard lock(m_mutex);
    // What has no effect would only use up what the gain can do.
    const std::uint32_t exposureAuto = TakesTriggerWidth() ? kOff : m_registers.Get(kExposureAuto);
    const std::uint32_t gainAuto = m_registers.Get(kGainAuto);
    if (exposureAuto == kOff && gainAuto == kOff)
    {
        return;
    }
    double wanted = std::clamp(kMedium / std::max(brightness, 0.001), 0.25, 4.0);
    if (std::abs(brightness - kMedium) < kNearEnough)
    {
        wanted = 1;
    }
    if (exposureAuto != kOff)
    {
        const bool rated = m_registers.Get(kAcquisitionFrameRateEnable) != 0;
        const double most = rated ? 1e6 / m_registers.GetFloat(kAcquisitionFrameRate) : 1e7;
        const double before = m_registers.GetFloat(kExposureTime);
        const double after = std::clamp(before * wanted, 1.0, std::min(most, 1e7));
        m_registers.SetFloat(kExposureTime, static_cast<float>(after));
        wanted *= before / after;
    }
    const double step = 20 * std::log10(wanted);
    if (gainAuto != kOff && std::abs(step) > 0.01)
    {
        const double before = m_registers.GetFloat(kGain);
        const double after = std::clamp(before + step, 0.0, 48.0);
        m_registers.SetFloat(kGain, static_cast<float>(after));
        wanted *= std::pow(10, (before - after) / 20);
    }
    const bool done = std::abs(brightness - kMedium) < kNearEnough || std::abs(wanted - 1) > 0.1;
    for (const auto& [mode, address] : {std::pair(exposureAuto, kExposureAuto), std::pair(gainAuto, kGainAuto)})
    {
        if (done && mode == kOnce)
        {
            m_registers.Set(address, kOff);
        }
    }
    ApplySettings();
}

} // namespace nq::camera
