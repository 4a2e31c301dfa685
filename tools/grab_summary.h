// SPDX-License-Identifier: Apache-2.0
// The parts of a summary that every verb which takes frames prints.
#pragma once

#include "camera_grab.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace nq::tool
{

/// Camera, producer and buffers, ahead of what was counted.
std::string SourceText(const GrabOptions& options, const CameraGrab& grab);

/// The same, behind it.
void AddSource(nlohmann::ordered_json& summary, const GrabOptions& options, const CameraGrab& grab);

/// What --verify found; nothing without it.
std::string VerifiedText(const GrabOptions& options, const GrabTotals& totals);

/// Prints the summary where the progress stood, if that is the same terminal.
void PrintBehindProgress(std::FILE* file, const std::string& text);

} // namespace nq::tool
