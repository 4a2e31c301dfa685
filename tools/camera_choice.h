// SPDX-License-Identifier: Apache-2.0
// Which of the cameras that answer is meant.
#pragma once

#include "common_options.h"
#include "producers.h"

#include <string>
#include <vector>

namespace nq::tool
{

/// The cameras whose id, serial number, user-defined name, MAC address in any spelling, or IP address are the `wanted`
/// ones, in their order; the only camera when none is wanted. Looks no longer than it takes, at most as long as the
/// options say. Throws ToolFailure: NoCamera when one is not there; Usage when one is wanted twice, or could be
/// several, which are then on standard error.
std::vector<FoundCamera> ChooseCameras(const CommonOptions& common, const std::vector<std::string>& wanted);

/// Every camera that answers in the time of the options. Throws ToolFailure: NoCamera when there is none, and Usage
/// when several producers see one of them.
std::vector<FoundCamera> AllCameras(const CommonOptions& common);

/// Short names of the cameras: the first of user-defined name, serial number and id that each of them has and that is
/// another one for each, also in the name of a file. Throws ToolFailure(Usage) when there is none.
std::vector<std::string> ShortNames(const std::vector<FoundCamera>& cameras);

/// True when the camera has that serial number, user-defined name, IP address, or MAC address in any spelling.
bool HasName(const CameraEntry& camera, const std::string& wanted);

/// What to look at when no camera answers, in words.
std::string NoCameraAdvice(const std::vector<ProducerEntry>& producers);

} // namespace nq::tool
