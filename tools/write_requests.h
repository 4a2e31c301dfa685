// SPDX-License-Identifier: Apache-2.0
// How somebody asks a running grab to write what it keeps.
#pragma once

#include <chrono>
#include <cstdint>

namespace nq::tool
{

/// SIGUSR1 waits from now on: somebody may ask before the options are read, and that would end the program. For main(),
/// before there are threads.
void HoldWriteRequests();

/// From now on SIGUSR1 asks, which would end the program else.
void CatchWriteRequests();

/// Lets SIGUSR1 come, and first the one that waited: to what CatchWriteRequests() made of it, or else as usual.
void ReleaseWriteRequests();

/// Asks too.
void RequestWrite();

/// What was asked until now.
struct WriteRequests
{
    uint64_t count;                             ///< how often
    std::chrono::steady_clock::time_point last; ///< when for the last time
};

/// Asked also by Enter where standard input is a terminal and this program is in front of it. Any thread may call.
WriteRequests SeenWriteRequests();

} // namespace nq::tool
