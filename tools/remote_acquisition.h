// SPDX-License-Identifier: Apache-2.0
// The camera's own part of an acquisition, by the features that its description has for it.
#pragma once

#include "feature_access.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool
{

/// Many a camera sends by itself as soon as its stream runs, has none of these features, or belongs to a machine that
/// has no engine for features: what cannot be done is no failure, but a remark. Used from one thread;
/// objects of several cameras may be used at once.
class RemoteAcquisition
{
  public:
    /// Reads the description of the camera, and sets its features as `settings` ("NAME=VALUE") say. Throws ToolFailure
    /// only when there are settings.
    RemoteAcquisition(const PortAccess& port, const std::vector<std::string>& settings);
    ~RemoteAcquisition();
    RemoteAcquisition(const RemoteAcquisition&) = delete;
    RemoteAcquisition& operator=(const RemoteAcquisition&) = delete;

    /// Tells the camera that buffers of its payload size wait, before the stream starts, or that they do no more.
    void LockPayload(bool locked);

    /// Executes AcquisitionStart, once the stream runs.
    void Start();

    /// Executes AcquisitionStop where Start() did its part, while the stream still runs.
    void Stop();

    /// Runs `work` with the features of the camera, beside which no other thread uses any. Throws ToolFailure when
    /// there are none, and what `work` throws. Any thread may call.
    void WithFeatures(const std::function<void(Features&)>& work);

    /// Frames per second, as the camera tells of itself; nothing where it does not.
    std::optional<double> FrameRate();

    /// Why the camera may send nothing, or no more, as the last part of a sentence; empty when nothing is known.
    std::string Remark(bool anyFrame);

  private:
    bool Execute(const char* command);

    std::unique_ptr<Features> m_features; ///< null where there are none
    std::string m_noFeatures;             ///< why there are none
    std::string m_problem;                ///< why AcquisitionStart was not executed
    bool m_locked = false;
    bool m_started = false;
};

} // namespace nq::tool
