// SPDX-License-Identifier: Apache-2.0
// What every verb that takes frames is told of the camera's stream.
#include "grab_arguments.h"

#include <CLI/CLI.hpp>

#include "whole_number.h"

namespace nq::tool
{

void AddStreamOptions(CLI::App& verb, GrabOptions& options)
{
    verb.add_option("--duration", options.durationS, "How long to take frames, in seconds")
        ->check(WholeNumber(1, kMostMs / 1000 * 365, "seconds"));
    verb.add_option("SETTING", options.settings, "NAME=VALUE: features to set before the start, in order");
    verb.add_option("--wait", options.waitSeconds, "Seconds to wait for a camera that another program controls")
        ->check(WholeNumber(0, kMostMs / 1000, "seconds"))
        ->capture_default_str();
    verb.add_option("--buffers", options.buffers, "Number of buffers")
        ->check(WholeNumber(1, kMostBuffers))
        ->capture_default_str();
    verb.add_option("--allow-loss", options.allowLoss, "Lost and incomplete frames that are no failure (exit code 7)")
        ->check(WholeNumber(0, kMostFrames))
        ->capture_default_str();
    verb.add_flag("--announce", options.announce, "Announce buffers of this program instead of library-allocated ones");
    verb.add_flag("--verify", options.verify, "Check every byte against the moving ramp of nq-gev-camera");
    verb.add_option("--frame-timeout", options.frameTimeoutMs, "How long to wait for one frame, in milliseconds")
        ->check(WholeNumber(1, kMostMs, "milliseconds"))
        ->capture_default_str();
}

} // namespace nq::tool
