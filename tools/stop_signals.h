// SPDX-License-Identifier: Apache-2.0
// The signals that ask a verb to end: the first one ends it cleanly, a second one at once.
#pragma once

#include "exit_codes.h"

#include <string>

namespace nq::tool
{

/// From now on the first SIGINT, SIGTERM, SIGHUP or SIGQUIT is only noted, as are its repetitions in the next 200 ms,
/// and any further one has its usual effect. A hang-up that the user told to ignore stays ignored. A file that grows
/// too large fails instead of raising SIGXFSZ.
void CatchStopSignals();

/// Whether one of them came. Any thread may ask.
bool StopAsked();

/// Throws ToolFailure(StopCode()) with that text if one of them came.
void EndIfStopAsked(const std::string& text);

/// 128 plus the number of the signal that came first, as shells tell it.
ExitCode StopCode();

} // namespace nq::tool
