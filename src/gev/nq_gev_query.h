// SPDX-License-Identifier: Apache-2.0
// What the info queries of the gev modules share: refusing with a trace line and clearing the caller's buffer. All of
// it is reentrant.
#pragma once

#include "GenTL/GenTL.h"
#include "base/nq_logger.h"

#include <cstring>

/// Traces a failure at level 2 and gives `code` back. The format is a literal that takes the arguments, of which the
/// operation's name is the first.
template <typename... Arguments>
int NQGevFailed(int code, const char* format, Arguments... arguments)
{
    NQLogger::getInstance().TraceA("NQGenTL", 2, format, arguments...);
    return code;
}

/// Traces the refusal of arguments that an info query and its like may not be given; GC_ERR_INVALID_PARAMETER.
inline int NQGevInvalidParameter(const char* operation)
{
    return NQGevFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", operation);
}

/// Fills the `*size` bytes of `buffer` with zeros, unless `buffer` is null.
inline void NQGevClear(void* buffer, const unsigned long* size)
{
    if (buffer != nullptr && *size != 0)
    {
        std::memset(buffer, 0, *size);
    }
}
