// SPDX-License-Identifier: Apache-2.0
// What the info queries of the gev modules share: refusing with a trace line. Reentrant.
#pragma once

#include "GenTL/GenTL.h"
#include "base/nq_trace.h"

/// Traces the refusal of arguments that an info query and its like may not be given; GC_ERR_INVALID_PARAMETER.
inline int NQGevInvalidParameter(const char* operation)
{
    return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", operation);
}
