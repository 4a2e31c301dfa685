// SPDX-License-Identifier: Apache-2.0
// The doctor: walks the chain from the library to the memory for frames, and says what it found.
#pragma once

#include "doctor/findings.h"
#include "doctor/scene.h"

#include <string>
#include <vector>

namespace nq::tool::doctor
{

/// Gathers and judges. Takes seconds, and has an end whatever cameras and producers do; takes control of no camera.
std::vector<Finding> Examine(const CommonOptions& common, const DoctorOptions& options);

/// One line for each, below a wrong one the line that mends it, and a count at the end.
std::string FindingsText(const std::vector<Finding>& findings);

/// The same as JSON in ASCII.
std::string FindingsJson(const std::vector<Finding>& findings);

/// The table of what can be found, as docs/doctor.md has it.
std::string TableText();

} // namespace nq::tool::doctor
