// SPDX-License-Identifier: Apache-2.0
// One camera of a grab, from the wait for its freedom to its last picture.
#pragma once

#include "grabber.h"
#include "producer_tree.h"

#include <memory>
#include <optional>

namespace nq::tool
{

/// What the cameras of a grab have in common. Any thread may use it.
struct GrabShare
{
    const GrabOptions& options;
    GrabReport report;
    ProducerTree producers{};
    MemoryBudget memory{};
};

/// What fails is a result: it takes no other camera down.
class CameraGrab
{
  public:
    CameraGrab(FoundCamera found, GrabbedCamera camera, GrabShare& share);

    /// Grabs to the end, and gives the camera back. The results are there afterwards.
    void Run();

    /// Puts the failure in the place of a run that could not be begun.
    void Fail(const ToolFailure& failure);

    const FoundCamera& Found() const { return m_found; }

    /// Whether the stream ran, so that there is something to sum up.
    bool Ran() const { return m_ran; }
    const GrabTotals& Totals() const { return m_totals; }
    const BurstPlan& Bursts() const { return m_bursts; }
    const std::optional<ToolFailure>& Failure() const { return m_failure; }

  private:
    void Grab();
    std::unique_ptr<GrabSession> OpenFreeCamera();

    const FoundCamera m_found;
    const GrabbedCamera m_camera;
    GrabShare& m_share;
    bool m_ran = false;
    GrabTotals m_totals;
    BurstPlan m_bursts{0, {}};
    std::optional<ToolFailure> m_failure;
};

} // namespace nq::tool
