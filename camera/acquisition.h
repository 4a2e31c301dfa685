// SPDX-License-Identifier: Apache-2.0
// Decides when the camera takes a frame.
#pragma once

#include "device_clock.h"
#include "gendc_frame.h"
#include "trigger_input.h"
#include "wake_event.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>
#include <variant>

namespace nq::camera
{

/// Values of the AcquisitionMode feature.
enum class AcquisitionMode : std::uint32_t
{
    Continuous = 0,
    SingleFrame = 1,
    MultiFrame = 2,
};

/// The features that govern when and what is taken.
struct AcquisitionSettings
{
    PictureSettings picture{};
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    AcquisitionMode mode = AcquisitionMode::Continuous;
    std::uint32_t frameCount = 1;
    /// Frames per second; 0 is as fast as possible.
    double frameRate = 0;
    /// Seconds; up to 20 microseconds a picture comes at once.
    double exposure = 0;
    TriggerSettings frameTrigger = {};
    TriggerSettings burstTrigger = {};
    /// Frames of one burst.
    std::uint32_t burstCount = 1;
};

/// The link between the control side, which switches and sets, and the stream thread, which asks for the next frame.
///
/// A frame is taken while the stream is enabled and the acquisition is started. With free running, enabling the stream
/// starts a continuous acquisition by itself. Frame ids begin at 1 when the stream is enabled. A frame that is due by
/// the frame rate while the host has granted no credit is lost and its id with it; the rate's clock starts with the
/// first frame that can be sent. Triggers without a credit wait. A frame is sent when its exposure ends, and the next
/// one begins no earlier. With the burst's trigger on, each of its triggers is for so many frames, and frame triggers
/// count only while a burst runs or is due.
///
/// Any thread may call any operation.
class Acquisition
{
  public:
    using Clock = std::chrono::steady_clock;
    /// Nothing to do before something else happens.
    struct Idle
    {
    };
    /// The next frame, a time to ask again, or neither.
    using Decision = std::variant<Idle, Clock::time_point, FrameTicket>;

    /// `frameLimit` frames in all, 0 without limit.
    Acquisition(const DeviceClock& clock, bool freeRun, std::uint64_t frameLimit);

    void Configure(const AcquisitionSettings& settings);
    void EnableStream(bool on);
    void Start();
    void Stop();
    /// Stops, and forgets the frame that is being exposed.
    void Abort();
    /// A software trigger of either kind, as far as it is on and an acquisition runs.
    void Trigger();
    void TriggerBurst();
    /// Shifts the id of the next frame.
    void ShiftId(std::int64_t by);

    /// `canSend` tells whether a frame could leave now. A ticket means that the frame is to be sent.
    Decision Next(bool canSend, Clock::time_point now);

    /// Signalled whenever the answer of Next may have changed; cleared by the stream thread.
    WakeEvent& Changed() { return m_changed; }

    struct Counters
    {
        bool streamEnabled = false;
        /// AcquisitionStart was executed, or free running stands for it.
        bool started = false;
        /// Both of the above: frames are taken when they are due.
        bool running = false;
        std::uint64_t taken = 0;
        std::uint64_t lost = 0;
        /// An exposure is under way; when the last one began and ends.
        bool exposing = false;
        Clock::time_point exposureStart{};
        Clock::time_point exposureEnd{};
        /// The acquisition waits for a trigger of the burst or of the frame.
        bool burstTriggerWait = false;
        bool frameTriggerWait = false;
    };
    Counters Count() const;

  private:
    void ClearTriggers();
    void DropExposure();
    /// A frame trigger counts while a burst runs or is due.
    bool TakesFrameTriggers(Clock::time_point now);
    /// False when the burst's trigger has not come.
    bool BeginBurst(Clock::time_point now);
    static Decision WaitFor(const std::optional<Clock::time_point>& time);
    bool Active() const { return m_enabled && (m_started || m_autoStarted); }
    Decision NextByRate(bool canSend, Clock::time_point now);
    Decision EndExposure(bool canSend, Clock::time_point now);
    Decision Take(Clock::time_point now);

    const DeviceClock& m_clock;
    const bool m_freeRun;
    const std::uint64_t m_frameLimit;
    WakeEvent m_changed;

    mutable std::mutex m_mutex;
    AcquisitionSettings m_settings;
    bool m_enabled = false;
    bool m_started = false;
    bool m_autoStarted = false;
    TriggerInput m_frameTrigger;
    TriggerInput m_burstTrigger;
    /// Frames that are left of the burst.
    std::uint32_t m_burstLeft = 0;
    Clock::time_point m_exposureStart{};
    Clock::time_point m_exposureEnd{};
    std::uint64_t m_nextId = 1;
    std::uint64_t m_takenSinceStart = 0;
    std::optional<Clock::time_point> m_due;
    /// The frame that is being exposed, and until when.
    std::optional<std::pair<FrameTicket, Clock::time_point>> m_exposing;
    std::uint64_t m_taken = 0;
    std::uint64_t m_lost = 0;
};

} // namespace nq::camera
