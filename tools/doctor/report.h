// SPDX-License-Identifier: Apache-2.0
// One text for those who help from afar.
#pragma once

#include "doctor/scene.h"

#include <string>

namespace nq::tool::doctor
{

/// What a report holds and what it does not, for the user.
std::string ReportContents();

/// Versions, findings, what `nq-gev info` and `nq-gev list` say, adapters, RDMA, kernel, limits and environment. Needs
/// neither camera nor producer, and has an end whatever they do.
std::string ReportText(const CommonOptions& common, const DoctorOptions& options);

/// The same for scripts: what it holds, the findings as `nq-gev --json doctor` has them, the other sections as texts.
std::string ReportJson(const CommonOptions& common, const DoctorOptions& options);

} // namespace nq::tool::doctor
