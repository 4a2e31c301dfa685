// SPDX-License-Identifier: Apache-2.0
// How often the code of one file locks, wakes and waits, how often the process calls the system, and how old a frame is
// when the consumer has it. Counting costs, so it is in a program of its own, frame_road_counted; in any other the
// numbers are not available.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nq::bench
{

/// Calls of the C library so far. Thread-safe.
struct CallCounts
{
    std::uint64_t locks = 0;    ///< pthread_mutex_lock
    std::uint64_t notifies = 0; ///< pthread_cond_signal and _broadcast, whether or not somebody slept
    std::uint64_t waits = 0;    ///< pthread_cond_wait, _timedwait and _clockwait
    std::uint64_t syscalls = 0; ///< of the whole process; 0 where the system does not let us count them

#ifdef NQ_BENCH_COUNTED
    static constexpr bool kAvailable = true;

    /// Lets the system count the calls of this thread and of those it starts from here on.
    static void CountSyscalls();
    /// Counts from here on, for the file whose path has `part` in it; for the program itself when it is empty.
    static void CountCallsOf(const std::string& part);
    static CallCounts Now();
    /// Microseconds since a completion queue last told of something.
    static double SinceCompletion();
#else
    static constexpr bool kAvailable = false;

    static void CountSyscalls() {}
    static void CountCallsOf(const std::string&) {}
    static CallCounts Now() { return {}; }
    static double SinceCompletion() { return 0; }
#endif
};

} // namespace nq::bench
