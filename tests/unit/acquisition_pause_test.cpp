// SPDX-License-Identifier: Apache-2.0
// The acquisition thread pauses only where it would spin: once the endpoint is down, not for a frame it rejects.
#include "support/data_stream_fixture.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <thread>
#include <unistd.h>

namespace
{

std::atomic<int> g_pauses{0}; ///< Of all threads but the test's own.

} // namespace

// The pauses of the program come here first.
extern "C" int nanosleep(const timespec* duration, timespec* left)
{
    if (gettid() != getpid())
    {
        ++g_pauses;
    }
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, duration, left);
    errno = error != 0 ? error : errno;
    return error == 0 ? 0 : -1;
}

namespace
{

using nq::test::GenDCFrame;
using AcquisitionPause = nq::test::DataStreamFixture;

TEST_F(AcquisitionPause, IsNotMadeForTheFramesThatAHealthyStreamRejects)
{
    Run(5);
    EXPECT_NE(Receive(1), nullptr); // the thread may have paused until the start was over
    g_pauses = 0;
    nq::test::FrameBytes frame = GenDCFrame(2, 16, 4);
    nq::test::Put32(frame, 56, 65); // no component where the first one has to be
    fake.DeliverFrame(frame);
    fake.DeliverFrame(frame);
    fake.DeliverFrame({});
    EXPECT_NE(Receive(5), nullptr);
    EXPECT_EQ(g_pauses, 0);
}

TEST_F(AcquisitionPause, KeepsTheLoopFromSpinningOnceTheCameraHasDisconnected)
{
    Run(1);
    EXPECT_NE(Receive(1), nullptr);
    g_pauses = 0;
    fake.RaiseEvent(RDMA_CM_EVENT_DISCONNECTED);
    while (g_pauses < 3)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

} // namespace
