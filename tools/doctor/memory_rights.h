// SPDX-License-Identifier: Apache-2.0
// How much memory this user may lock.
#pragma once

#include "doctor/machine.h"

#include <cstdint>

namespace nq::tool::doctor
{

/// True with CAP_IPC_LOCK, which has no limit.
bool MayLockAnything(const Machine& machine);

/// RLIMIT_MEMLOCK, or RLIM_INFINITY.
uint64_t LockableBytes();

} // namespace nq::tool::doctor
