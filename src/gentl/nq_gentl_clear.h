// SPDX-License-Identifier: Apache-2.0
// What an info call does to the caller's buffer before it answers.
#pragma once

#include "base/nq_answers.h"

#include <cstring>

namespace GigERDMA
{

/// Fills the `*size` bytes of `buffer` with zeros, unless `buffer` is null.
inline void ClearBuffer(void* buffer, const unsigned long* size)
{
    if (buffer != nullptr && *size != 0)
    {
        std::memset(buffer, 0, *size);
    }
}

/// As ClearBuffer, but nothing where the answer is to be the value's bytes and no more: the caller's size may then be
/// anything.
inline void ClearForInfo(const NQAnswers& answers, void* buffer, const unsigned long* size)
{
    if (!answers.infoWritesValueOnly)
    {
        ClearBuffer(buffer, size);
    }
}

} // namespace GigERDMA
