// SPDX-License-Identifier: Apache-2.0
// The command line of nq-gev-camera.
#pragma once

#include "camera_options.h"

#include <optional>
#include <string>
#include <vector>

namespace nq::camera
{

/// What the command line asks for.
struct ProgramOptions
{
    /// One entry per camera.
    std::vector<CameraOptions> cameras;
    std::vector<std::string> faults;
    /// Path of the control socket; empty for none.
    std::string control;
    bool quiet = false;
    /// Everything else is for the process that is started on the software RDMA.
    bool softwareRdma = false;
};

/// Reads the command line. When the program has nothing further to do, for help or for a mistake, which it has then
/// printed, the result is the exit code in `exitCode` and no options.
std::optional<ProgramOptions> ReadCommandLine(int argc, char** argv, int& exitCode);

} // namespace nq::camera
