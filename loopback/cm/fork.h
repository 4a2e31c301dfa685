// SPDX-License-Identifier: Apache-2.0
// What a forked child finds: no lock that a thread of its parent held.
#pragma once

namespace nq::loopback
{

/// From the first call on, a child of this process may make objects of its own at once. All threads.
void KeepForksSafe();

} // namespace nq::loopback
