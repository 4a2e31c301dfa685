// SPDX-License-Identifier: Apache-2.0
// What the info queries of the gev modules share: refusing with a trace line and clearing the caller's buffer. All of
// it is reentrant.
#pragma once

#include "GenTL/GenTL.h"
#include "base/nq_trace.h"

#include <cstring>

/// Traces the refusal of arguments that an info query and its like may not be given; GC_ERR_INVALID_PARAMETER.
inline int NQGevInvalidParameter(const char* operation)
{
    return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", operation);
}

/// Fills the `*size` bytes of `buffer` with zeros, unless `buffer` is null.
inline void NQGevClear(void* buffer, const unsigned long* size)
{
    if (buffer != nullptr && *size != 0)
    {
        std::memset(buffer, 0, *size);
    }
}
