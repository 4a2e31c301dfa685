// SPDX-License-Identifier: Apache-2.0
// Nanoseconds of one trace line while the logger is closed, as in most processes. Prints JSON.
#include "base/nq_trace.h"
#include "nq_version.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace
{

constexpr int kLines = 2000000;

/// Of the processor, which another program may have in between.
double ProcessorNanoseconds()
{
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
}

/// Of a loop with a line, or without it but for a value that the compiler may not forget.
double NanosecondsPerRound(bool trace)
{
    const double start = ProcessorNanoseconds();
    for (int index = 0; index < kLines; ++index)
    {
        if (trace)
        {
            NQTrace(NQTraceLevel::CallFlow, "%s line %d", "closed_trace", index);
        }
        asm volatile("" : : "r"(index) : "memory");
    }
    return (ProcessorNanoseconds() - start) / kLines;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0)
    {
        std::puts(NQ_VERSION_TEXT("closed_trace"));
        return 0;
    }
    // The least of three is the one that nothing disturbed: of each loop, not of their differences, of which the least
    // is the one whose empty loop was disturbed.
    std::array<double, 3> traced{};
    std::array<double, 3> empty{};
    for (std::size_t round = 0; round < traced.size(); ++round)
    {
        traced[round] = NanosecondsPerRound(true);
        empty[round] = NanosecondsPerRound(false);
    }
    const double line = *std::min_element(traced.begin(), traced.end()) - *std::min_element(empty.begin(), empty.end());
    std::printf("{\"ns\": %.2f}\n", std::max(0.0, line));
    return 0;
}
