// SPDX-License-Identifier: Apache-2.0
// Timed waits while somebody sets the clock of the machine.
#include "gentl/nq_event_handler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <future>
#include <sys/syscall.h>
#include <unistd.h>

using GigERDMA::NQEventHandler;

namespace
{

/// What the settable clock tells, in seconds beyond the truth: a clock that is `n` ahead now and right again when the
/// wait has begun is a clock that was set back by `n` meanwhile.
std::atomic<time_t> g_ahead{0};

} // namespace

// Takes the place of the C library's function in this program.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (result == 0 && clock == CLOCK_REALTIME)
    {
        time->tv_sec += g_ahead;
    }
    return static_cast<int>(result);
}

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class ClockStep : public testing::TestWithParam<time_t>
{
  protected:
    void SetUp() override { g_ahead = GetParam(); }
    void TearDown() override { g_ahead = 0; }
};

TEST_P(ClockStep, DoesNotChangeHowLongATimedWaitTakes)
{
    NQEventHandler handler(1);
    const auto before = steady_clock::now();
    std::future<unsigned int> wait = std::async(std::launch::async, [&handler] { return handler.WaitForEvent(300); });
    ASSERT_EQ(wait.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(wait.get(), 0U);
    EXPECT_GE(steady_clock::now() - before, milliseconds(300));
}

TEST_P(ClockStep, DoesNotKeepASignalFromWakingAWaiter)
{
    NQEventHandler handler(1);
    std::future<unsigned int> wait = std::async(std::launch::async, [&handler] { return handler.WaitForEvent(60000); });
    handler.SetEvent(1);
    EXPECT_EQ(wait.get(), 1U);
}

INSTANTIATE_TEST_SUITE_P(BySeconds, ClockStep, testing::Values(0, 3600, -3600, 1000000000), [](const auto& step) {
    return (step.param < 0 ? "Forth" : "Back") + std::to_string(std::abs(step.param));
});

} // namespace
