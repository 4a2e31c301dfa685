// SPDX-License-Identifier: Apache-2.0
// Somebody sets the clock of the machine back and forth while the application waits.
#include "support/fault_row.h"

#include <atomic>
#include <ctime>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

/// While it is on, the settable clock is an hour ahead, an hour behind, an hour ahead, ... each time somebody looks.
std::atomic<bool> g_steps{false};
std::atomic<int> g_looks{0};

time_t Step()
{
    return !g_steps ? 0 : g_looks++ % 2 == 0 ? 3600 : -3600;
}

} // namespace

// These take the place of the C library's functions in the whole process, the library under test included.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
    {
        time->tv_sec += Step();
    }
    return static_cast<int>(result);
}

extern "C" time_t time(time_t* result) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr)
    {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

namespace
{

using nq::test::ConnectionEvents;
using nq::test::Consumer;
using nq::test::FaultRow;
using nq::test::Ids;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

class ClockSet : public FaultRow
{
  protected:
    void TearDown() override { g_steps = false; }
};

TEST_F(ClockSet, BackAndForthChangesNoWaitAndLosesNothing)
{
    const VirtualCamera camera(SmallFrames({"--heartbeat", "3000"}));
    Consumer consumer;
    ASSERT_NE(consumer.stream, nullptr);
    ConnectionEvents connection(consumer);
    consumer.AnnounceAndQueue(3);

    Fault("clock set back and forth by an hour");
    g_steps = true;
    const auto before = steady_clock::now();
    EXPECT_EQ(consumer.Next(500), nullptr);
    EXPECT_GE(steady_clock::now() - before, milliseconds(500));
    EXPECT_LT(steady_clock::now() - before, seconds(60));
    Sees("timeouts in their time");
    ASSERT_EQ(consumer.Start(), 0);
    std::uint64_t next = 1;
    while (steady_clock::now() < Since() + seconds(5))
    {
        EXPECT_EQ(consumer.Take(10), Ids(next, next + 9));
        next += 10;
    }
    Sees("every frame, in order");
    EXPECT_EQ(consumer.gentl.DSStopAcquisition(consumer.stream, GenTL::ACQ_STOP_FLAGS_DEFAULT), 0);
    while (const auto status = connection.Next(milliseconds(0)))
    {
        EXPECT_NE(*status, kNoAccess);
    }
    Sees("control kept, stopped");
    NextWorks(consumer, "at once, under the same clock");
}

} // namespace
