// SPDX-License-Identifier: Apache-2.0
// Include it in the one translation unit of a program: it makes that program run on the software RDMA.
#pragma once

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace nq::test
{

/// The producer runs in this very process, so the process itself needs the software RDMA: starts it again with it.
[[gnu::constructor, gnu::used]] inline void PreloadLoopback(int, char** arguments, char**)
{
    const char* preloaded = std::getenv("LD_PRELOAD");
    const std::string before = preloaded == nullptr ? "" : preloaded;
    if (before.find(NQ_LOOPBACK_PATH) == std::string::npos)
    {
        setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "5000", 0); // a peer on a machine under load may be late
        setenv("LD_PRELOAD", (before.empty() ? NQ_LOOPBACK_PATH : before + ":" NQ_LOOPBACK_PATH).c_str(), 1);
        execv("/proc/self/exe", arguments);
    }
}

} // namespace nq::test
