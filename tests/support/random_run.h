// SPDX-License-Identifier: Apache-2.0
// For how long a test plays at random, and from which seed.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace nq::test
{

/// Prints its seed. NQ_RANDOM_SEED=N repeats a run, NQ_RANDOM_SECONDS=N makes it as long as one likes; run the test
/// program itself then, since ctest ends a case after 300 s.
class RandomRun
{
  public:
    explicit RandomRun(int seconds)
        : seed(static_cast<unsigned>(FromEnvironment("NQ_RANDOM_SEED", std::random_device()()))),
          m_end(std::chrono::steady_clock::now() +
                std::chrono::seconds(FromEnvironment("NQ_RANDOM_SECONDS", static_cast<unsigned long>(seconds))))
    {
        std::printf("NQ_RANDOM_SEED=%u\n", seed);
        std::fflush(stdout);
    }

    bool IsOver() const { return std::chrono::steady_clock::now() >= m_end; }

    const unsigned seed;

  private:
    static unsigned long FromEnvironment(const char* name, unsigned long otherwise)
    {
        const char* const text = std::getenv(name);
        return text != nullptr ? std::stoul(text) : otherwise;
    }

    const std::chrono::steady_clock::time_point m_end;
};

} // namespace nq::test
