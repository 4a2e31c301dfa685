// SPDX-License-Identifier: Apache-2.0
// Bytes by which a test sees what came from where.
#pragma once

#include "support/gvcp_rules.h"

#include <cstddef>

namespace nq::test
{

/// 0, 7, 14, ... that differ from one run of 256 to the next.
inline Bytes Ramp(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t index = 0; index < size; ++index)
    {
        bytes[index] = static_cast<unsigned char>(index * 7 + index / 256);
    }
    return bytes;
}

} // namespace nq::test
