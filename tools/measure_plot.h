// SPDX-License-Identifier: Apache-2.0
// The times of a measurement as a picture of lines.
#pragma once

#include "frame_times.h"

#include <string>

namespace nq::tool
{

/// An SVG file with a curve for the intervals between frames, and one for how long each was held: within how many
/// milliseconds which share of them lies, with the rare long ones drawn as wide as the many. `title` and `subtitle` may
/// be any text. There have to be intervals.
std::string PlotOf(const FrameTimes& times, const std::string& title, const std::string& subtitle);

} // namespace nq::tool
