// SPDX-License-Identifier: Apache-2.0
// Include it in the one translation unit of a program: it makes that program run on the software RDMA.
#pragma once

#include "support/run_on_loopback.h"

#include <cstdlib>

namespace nq::test
{

/// The producer runs in this very process, so the process itself needs the software RDMA.
[[gnu::constructor, gnu::used]] inline void PreloadLoopback(int, char** arguments, char**)
{
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "5000", 0); // a peer on a machine under load may be late
    StartAgainOnLoopback(arguments);
}

} // namespace nq::test
