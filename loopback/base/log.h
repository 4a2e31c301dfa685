// SPDX-License-Identifier: Apache-2.0
// The log file of the loopback; nothing is ever written anywhere else.
#pragma once

namespace nq::loopback
{

/// Appends one line to the file named by NQ_RDMA_LOOPBACK_LOG; does nothing without that variable. Any thread.
[[gnu::format(printf, 1, 2)]] void Log(const char* format, ...);

} // namespace nq::loopback
