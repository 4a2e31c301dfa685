// SPDX-License-Identifier: Apache-2.0
// Features for scripts, as docs/nq-gev.schema.json describes them.
#pragma once

#include "feature_access.h"

#include <nlohmann/json.hpp>

namespace nq::tool
{

nlohmann::ordered_json ToJson(const Reading& reading);

/// Prints a JSON text in ASCII, with what is no UTF-8 replaced.
void PrintJson(const nlohmann::ordered_json& json);

} // namespace nq::tool
