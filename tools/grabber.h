// SPDX-License-Identifier: Apache-2.0
// The loop of a grab: takes frames, counts and checks them, and hands them on.
#pragma once

#include "exit_codes.h"
#include "grab_options.h"
#include "grab_session.h"
#include "grab_totals.h"
#include "metadata_file.h"
#include "moving_ramp.h"
#include "picture_writer.h"
#include "progress.h"

#include <memory>
#include <optional>
#include <string>

namespace nq::tool
{

/// Where the grabbers of all cameras tell of their frames.
struct GrabReport
{
    Progress progress;
    std::unique_ptr<MetadataFile> metadata; ///< null for none
};

/// One camera among those of a grab.
struct GrabbedCamera
{
    size_t index; ///< in the report
    std::string id;
    std::string name; ///< short, for files and people
};

/// Takes frames until the count is reached, the time is over, none comes in time, a file cannot be written, or a signal
/// asks to stop.
class Grabber
{
  public:
    /// Throws ToolFailure when there is no place for pictures.
    Grabber(GrabSession& session, const GrabOptions& options, GrabbedCamera camera, GrabReport& report);

    /// Runs to the end; what went wrong on the way is in Failure().
    void Run();

    /// Waits until all pictures are written. The camera may be closed before.
    void Finish();

    const GrabTotals& Totals() const { return m_totals; }

    /// What went wrong, if anything did, by its rank: a failure on the way, frames that stopped coming, refused
    /// frames, lost ones beyond what is allowed.
    std::optional<ToolFailure> Failure() const;

  private:
    std::optional<Frame> WaitForFrame();
    void Take(const Frame& frame, GrabTotals::Clock::time_point arrival);
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
    MovingRamp m_ramp;
    GrabTotals m_totals;
    std::string m_firstRefusal;
    std::optional<ToolFailure> m_failure;
    uint64_t m_lastId = 0;                 ///< of the last frame that was not refused
    uint64_t m_refusedSince = 0;           ///< refused frames after that one
    GrabTotals::Clock::time_point m_end{}; ///< of --duration
};

/// What is to be told of lost, incomplete and wrong frames, with what mends it; empty when they are within
/// `options.allowLoss`.
std::string LossComplaint(const GrabTotals& totals, const GrabOptions& options);

} // namespace nq::tool
