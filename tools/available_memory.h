// SPDX-License-Identifier: Apache-2.0
// How much memory a program may still take.
#pragma once

#include <cstdint>

namespace nq::tool
{

/// Bytes that this machine can give without swapping, or that the control group of this process leaves, whichever is
/// less.
uint64_t AvailableMemory();

} // namespace nq::tool
