// SPDX-License-Identifier: Apache-2.0
// The software RDMA without its thread: the fuzzer turns the engine.
#pragma once

namespace nq::fuzz
{

/// Lets everything happen that can happen now. An engine that goes on for ever is a finding: it would take a core.
void TurnUntilRest();

} // namespace nq::fuzz
