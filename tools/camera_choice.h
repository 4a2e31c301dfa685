// SPDX-License-Identifier: Apache-2.0
// Which of the cameras that answer is meant.
#pragma once

#include "producers.h"
#include "verbs.h"

#include <string>
#include <vector>

namespace nq::tool
{

/// The one camera whose id, serial number, user-defined name, MAC address in any spelling, or IP address is `wanted`;
/// the only one when `wanted` is empty. Looks no longer than it takes, at most as long as the options say. Throws
/// ToolFailure: NoCamera when there is none, and Usage when it could be several, which are then on standard error.
FoundCamera ChooseCamera(const CommonOptions& common, const std::string& wanted);

/// What to look at when no camera answers, in words.
std::string NoCameraAdvice(const std::vector<ProducerEntry>& producers);

} // namespace nq::tool
