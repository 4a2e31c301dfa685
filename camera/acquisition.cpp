// SPDX-License-Identifier: Apache-2.0
// Decides when the camera takes a frame.
#include "acquisition.h"

namespace nq::camera
{

namespace
{

/// Exposures up to so many seconds are over before anybody could look.
constexpr double kAtOnce = 20e-6;

Acquisition::Clock::duration Seconds(double seconds)
{
    return std::chrono::duration_cast<Acquisition::Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace

Acquisition::Acquisition(const DeviceClock& clock, bool freeRun, std::uint64_t frameLimit)
    : m_clock(clock), m_freeRun(freeRun), m_frameLimit(frameLimit)
{
}

void Acquisition::Configure(const AcquisitionSettings& settings)
{
    {
        const std::lock_guard lock(m_mutex);
        if (settings.frameRate != m_settings.frameRate || settings.frameTrigger.on != m_settings.frameTrigger.on)
        {
            m_due.reset();
        }
        if (settings.burstTrigger.on != m_settings.burstTrigger.on)
        {
            m_burstLeft = 0;
        }
        m_frameTrigger.Configure(settings.frameTrigger);
        m_burstTrigger.Configure(settings.burstTrigger);
        m_settings = settings;
    }
    m_changed.Signal();
}

void Acquisition::EnableStream(bool on)
{
    {
        const std::lock_guard lock(m_mutex);
        if (on && !m_enabled)
        {
            m_nextId = 1;
            m_takenSinceStart = 0;
            ClearTriggers();
            m_due.reset();
        }
        m_enabled = on;
        DropExposure();
        m_autoStarted = on && m_freeRun && m_settings.mode == AcquisitionMode::Continuous;
    }
    m_changed.Signal();
}

void Acquisition::Start()
{
    {
        const std::lock_guard lock(m_mutex);
        if (!Active())
        {
            m_due.reset(); // what runs already keeps its pace
        }
        m_started = true;
        m_takenSinceStart = 0;
    }
    m_changed.Signal();
}

void Acquisition::Stop()
{
    const std::lock_guard lock(m_mutex);
    m_started = false;
    m_autoStarted = false;
    ClearTriggers();
}

void Acquisition::Abort()
{
    Stop();
    const std::lock_guard lock(m_mutex);
    DropExposure();
}

void Acquisition::DropExposure()
{
    if (m_exposing)
    {
        m_exposing.reset();
        m_exposureEnd = Clock::now();
    }
}

void Acquisition::ClearTriggers()
{
    m_frameTrigger.Clear();
    m_burstTrigger.Clear();
    m_burstLeft = 0;
}

void Acquisition::Trigger()
{
    {
        const std::lock_guard lock(m_mutex);
        const auto now = Clock::now();
        if (Active() && m_frameTrigger.IsOn() && TakesFrameTriggers(now))
        {
            m_frameTrigger.Fire(now);
        }
    }
    m_changed.Signal();
}

void Acquisition::TriggerBurst()
{
    {
        const std::lock_guard lock(m_mutex);
        if (Active() && m_burstTrigger.IsOn())
        {
            m_burstTrigger.Fire(Clock::now());
        }
    }
    m_changed.Signal();
}

void Acquisition::ShiftId(std::int64_t by)
{
    const std::lock_guard lock(m_mutex);
    m_nextId += static_cast<std::uint64_t>(by);
}

Acquisition::Decision Acquisition::Next(bool canSend, Clock::time_point now)
{
    const std::lock_guard lock(m_mutex);
    if (m_exposing)
    {
        return EndExposure(canSend, now);
    }
    if (!Active() || (m_frameLimit != 0 && m_taken >= m_frameLimit))
    {
        return Idle{};
    }
    if (m_burstTrigger.IsOn() && m_burstLeft == 0 && !BeginBurst(now))
    {
        return WaitFor(m_burstTrigger.Next(now));
    }
    if (m_frameTrigger.IsOn())
    {
        if (!canSend)
        {
            return Idle{};
        }
        return m_frameTrigger.Take(now) ? Take(now) : WaitFor(m_frameTrigger.Next(now));
    }
    if (m_settings.frameRate > 0)
    {
        return NextByRate(canSend, now);
    }
    return canSend ? Take(now) : Decision(Idle{});
}

bool Acquisition::TakesFrameTriggers(Clock::time_point now)
{
    return !m_burstTrigger.IsOn() || m_burstLeft > 0 || m_burstTrigger.IsDue(now);
}

bool Acquisition::BeginBurst(Clock::time_point now)
{
    if (!m_burstTrigger.IsDue(now))
    {
        m_frameTrigger.Clear(); // what is left of the burst before
        return false;
    }
    const auto begin = m_burstTrigger.Front();
    m_burstTrigger.Take(now);
    m_frameTrigger.ForgetEdges(begin == Clock::time_point::min() ? now : begin);
    m_burstLeft = m_settings.burstCount;
    m_due.reset();
    return true;
}

Acquisition::Decision Acquisition::WaitFor(const std::optional<Clock::time_point>& time)
{
    return time ? Decision(*time) : Decision(Idle{});
}

Acquisition::Decision Acquisition::NextByRate(bool canSend, Clock::time_point now)
{
    if (!m_due)
    {
        if (!canSend)
        {
            return Idle{};
        }
        m_due = now;
    }
    if (now < *m_due)
    {
        return *m_due;
    }
    const Clock::duration period = Seconds(1 / m_settings.frameRate);
    *m_due += period;
    if (*m_due + period < now)
    {
        m_due = now + period;
    }
    if (canSend)
    {
        return Take(now);
    }
    ++m_nextId;
    ++m_lost;
    return *m_due;
}

Acquisition::Decision Acquisition::EndExposure(bool canSend, Clock::time_point now)
{
    if (now < m_exposing->second)
    {
        return m_exposing->second;
    }
    const FrameTicket ticket = m_exposing->first;
    m_exposing.reset();
    if (!canSend)
    {
        ++m_lost; // the host has gone meanwhile
        return now;
    }
    return ticket;
}

Acquisition::Decision Acquisition::Take(Clock::time_point now)
{
    FrameTicket ticket;
    ticket.id = m_nextId++;
    ticket.timestamp = m_clock.Now();
    ticket.offsetX = m_settings.offsetX;
    ticket.offsetY = m_settings.offsetY;
    ticket.picture = m_settings.picture;
    ++m_taken;
    ++m_takenSinceStart;
    m_burstLeft -= m_burstLeft > 0 ? 1 : 0;
    m_exposureStart = now;
    m_exposureEnd = now + Seconds(m_settings.exposure);
    const bool done = (m_settings.mode == AcquisitionMode::SingleFrame) ||
                      (m_settings.mode == AcquisitionMode::MultiFrame && m_takenSinceStart >= m_settings.frameCount);
    if (done)
    {
        m_started = false;
        m_autoStarted = false;
        ClearTriggers(); // the next acquisition waits for triggers of its own
    }
    if (m_settings.exposure <= kAtOnce)
    {
        return ticket;
    }
    m_exposing = {ticket, m_exposureEnd};
    return m_exposureEnd;
}

Acquisition::Counters Acquisition::Count() const
{
    const std::lock_guard lock(m_mutex);
    const bool active = Active();
    const bool exposing = m_exposing.has_value();
    const bool burstWait = active && !exposing && m_burstTrigger.IsOn() && m_burstLeft == 0;
    return {.streamEnabled = m_enabled,
            .started = m_started || m_autoStarted,
            .running = active || exposing,
            .taken = m_taken,
            .lost = m_lost,
            .exposing = exposing,
            .exposureStart = m_exposureStart,
            .exposureEnd = m_exposureEnd,
            .burstTriggerWait = burstWait,
            .frameTriggerWait = active && !exposing && !burstWait && m_frameTrigger.IsOn()};
}

} // namespace nq::camera
