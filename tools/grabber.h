// SPDX-License-Identifier: Apache-2.0
// The loop of a grab: takes frames, counts and checks them, and hands them on.
#pragma once

#include "burst_plan.h"
#include "exit_codes.h"
#include "grab_options.h"
#include "grab_report.h"
#include "grab_session.h"
#include "grab_totals.h"
#include "moving_ramp.h"
#include "picture_writer.h"
#include "ring_recording.h"

#include <memory>
#include <optional>
#include <string>

namespace nq::tool
{

/// Takes frames until the count is reached, the time is over, none comes in time, a file cannot be written, or a signal
/// asks to stop.
class Grabber
{
  public:
    /// Throws ToolFailure when there is no place for pictures, or no `memory` for those that are to be kept.
    Grabber(GrabSession& session, const GrabOptions& options, GrabbedCamera camera, GrabReport& report,
            MemoryBudget& memory);

    /// Runs to the end; what went wrong on the way is in Failure().
    void Run();

    /// Waits until all pictures are written. The camera may be closed before.
    void Finish();

    const GrabTotals& Totals() const { return m_totals; }
    const BurstPlan& Bursts() const { return m_bursts; }

    /// What went wrong, if anything did, by its rank: a failure on the way, frames that stopped coming, refused
    /// frames, lost ones beyond what is allowed.
    std::optional<ToolFailure> Failure() const;

  private:
    std::optional<Frame> WaitForFrame();
    void TendRing();
    void BeginBurst();
    void Take(const Frame& frame);
    bool Keep(const Frame& frame, std::chrono::system_clock::time_point now, bool wanted);
    void Verify(const Frame& frame);
    bool WantsMore() const;
    bool TimeIsOver() const { return m_options.durationS != 0 && GrabTotals::Clock::now() >= m_end; }
    std::string WhyNoneCame() const;

    /// How many frames came, of how many.
    std::string CountText() const;

    /// What happened, with what the camera tells of it and the frames that were refused.
    std::string WhyLost(const std::string& event) const;
    void Note(const Frame& frame, uint64_t lostBefore, std::chrono::system_clock::time_point now, bool wanted);
    std::string Refusals() const;

    GrabSession& m_session;
    const GrabOptions& m_options;
    const GrabbedCamera m_camera;
    GrabReport& m_report;
    std::unique_ptr<PictureWriter> m_writer;
    std::unique_ptr<RingRecording> m_ring; ///< null when frames are written as they come
    MovingRamp m_ramp;
    GrabTotals m_totals;
    BurstPlan m_bursts;
    std::string m_firstRefusal;
    std::optional<ToolFailure> m_failure;
    std::optional<uint64_t> m_lastId;      ///< of the last frame that was not refused, in this burst
    uint64_t m_refusedSince = 0;           ///< refused frames after that one
    uint64_t m_lostSinceKept = 0;          ///< lost frames after the last one that the ring got
    GrabTotals::Clock::time_point m_end{}; ///< of --duration
};

/// What is to be told of lost, incomplete and wrong frames, with what mends it; empty when they are within
/// `options.allowLoss`.
std::string LossComplaint(const GrabTotals& totals, const GrabOptions& options);

} // namespace nq::tool
