// SPDX-License-Identifier: Apache-2.0
// Keeps the frames of the last seconds of one camera, and has them written when somebody asks.
#pragma once

#include "frame_ring.h"
#include "grab_options.h"
#include "grab_report.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace nq::tool
{

/// Used from one thread; what it is given outlives it.
class RingRecording
{
  public:
    /// Says what is kept. Throws ToolFailure when there is no memory for it.
    RingRecording(const GrabOptions& options, const GrabbedCamera& camera, GrabReport& report, PictureWriter& writer,
                  const FrameRing::Need& need, MemoryBudget& memory);

    /// False when the frame has no room, as too much waits to be written.
    bool Keep(const Frame& frame, std::chrono::system_clock::time_point arrival, uint64_t lostBefore);

    /// To be called again and again, for it does little at a time: has what is kept written if somebody asked since the
    /// last call. Throws ToolFailure when something could not be written.
    void Tend();

    /// Whether Tend() has to go on.
    bool IsBusy() const { return !m_asked.empty(); }

    /// Has everything written that was asked for until now.
    void Finish();

    /// How often there was something to write.
    uint64_t Writes() const { return m_writes; }

  private:
    void Look();
    void HandOver();

    const GrabOptions& m_options;
    const GrabbedCamera& m_camera;
    GrabReport& m_report;
    PictureWriter& m_writer;
    FrameRing m_ring;
    std::deque<KeptFrame> m_asked; ///< to be handed to the writer
    uint64_t m_requests = 0;       ///< those that were seen
    uint64_t m_writes = 0;
    bool m_toldShort = false;
};

} // namespace nq::tool
