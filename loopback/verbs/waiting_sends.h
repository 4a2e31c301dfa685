// SPDX-License-Identifier: Apache-2.0
// How many sends found no receive posted where they arrived.
#pragma once

#include <atomic>

namespace nq::loopback
{

/// Counts since the process began. All threads.
struct WaitingSends
{
    std::atomic<unsigned long long> own{0};     ///< Of this process, at their peers.
    std::atomic<unsigned long long> ofPeers{0}; ///< Of peers, in this process.

    static WaitingSends& Instance()
    {
        static WaitingSends counts;
        return counts;
    }
};

} // namespace nq::loopback
