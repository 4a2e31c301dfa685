// SPDX-License-Identifier: Apache-2.0
// The doctor's findings, by a process of its own: this one has threads and running streams.
#pragma once

#include "common_options.h"

#include <nlohmann/json.hpp>

namespace nq::tool::view
{

/// What `nq-gev --json doctor` prints. Takes seconds, a minute at most. Throws ToolFailure when it says nothing.
nlohmann::ordered_json ExaminationJson(const CommonOptions& common);

} // namespace nq::tool::view
