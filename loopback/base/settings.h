// SPDX-License-Identifier: Apache-2.0
// The environment variables that shape the loopback, read once.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace nq::loopback
{

using Clock = std::chrono::steady_clock;

/// What the environment asks for. Read at the first call into the loopback and the same for the rest of the process.
struct Settings
{
    std::string directory;                    ///< NQ_RDMA_LOOPBACK_DIR: where processes find each other.
    std::string logFile;                      ///< NQ_RDMA_LOOPBACK_LOG: empty for no log.
    std::string failures;                     ///< NQ_RDMA_LOOPBACK_FAIL: faults wanted from the start.
    bool noDevice = false;                    ///< NQ_RDMA_LOOPBACK_NO_DEVICE: behave as without RDMA hardware.
    std::optional<size_t> memoryLimit;        ///< NQ_RDMA_LOOPBACK_MEMLOCK in bytes.
    std::chrono::milliseconds connectTimeout; ///< NQ_RDMA_LOOPBACK_TIMEOUT_MS: an unanswered request or disconnect.
    std::chrono::milliseconds retryTimeout;   ///< NQ_RDMA_LOOPBACK_RETRY_MS: a send whose peer is gone.
    std::chrono::milliseconds timeWait;       ///< NQ_RDMA_LOOPBACK_TIMEWAIT_MS: from disconnected to time-wait exit.
    std::chrono::milliseconds connectDelay;   ///< NQ_RDMA_LOOPBACK_CONNECT_MS: each message that sets a connection up.
    std::chrono::milliseconds messageDelay;   ///< NQ_RDMA_LOOPBACK_DELAY_MS: from a send's post to its transmission.

    static const Settings& Get();
};

} // namespace nq::loopback
