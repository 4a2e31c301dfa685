// SPDX-License-Identifier: Apache-2.0
// What the info queries of the gev modules share: refusing with a trace line and finding a record. Reentrant.
#pragma once

#include "GenTL/GenTL.h"
#include "base/nq_trace.h"

#include <string>

/// Traces the refusal of arguments that an info query and its like may not be given; GC_ERR_INVALID_PARAMETER.
inline int NQGevInvalidParameter(const char* operation)
{
    return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", operation);
}

/// Whether a record of an interface or a device has that id, for searches. `id` outlives the search.
inline auto NQGevHasId(const std::string& id)
{
    return [&id](const auto& info) { return info.id == id; };
}
