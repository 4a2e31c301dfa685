// SPDX-License-Identifier: Apache-2.0
// Waiting with the time left written back.
#include "gige/gige_wait.h"

#include "support/asleep.h"
#include "support/signal_storm.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

/// Two joined sockets.
struct Pair
{
    Pair() { socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends); }
    ~Pair()
    {
        close(ends[0]);
        close(ends[1]);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int ends[2] = {-1, -1};
};

TEST(Wait, MillisecondsBecomeSecondsAndMicroseconds)
{
    struct Row
    {
        long milliseconds, seconds, microseconds;
    };
    for (const Row& row : {Row{0, 0, 0}, Row{1, 0, 1000}, Row{999, 0, 999000}, Row{1000, 1, 0}, Row{1500, 1, 500000},
                           Row{65535, 65, 535000}, Row{-1, 0, -1000}, Row{-1500, -1, -500000}})
    {
        const timeval time = GigETL::timevalFromMs(row.milliseconds);
        EXPECT_EQ(time.tv_sec, row.seconds) << row.milliseconds;
        EXPECT_EQ(time.tv_usec, row.microseconds) << row.milliseconds;
    }
}

TEST(Wait, DataThatIsThereIsReadableWithoutWaiting)
{
    const Pair pair;
    ASSERT_EQ(send(pair.ends[1], "x", 1, 0), 1);
    timeval time{0, 0};
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 1);
}

TEST(Wait, TimeThatIsOverIsZeroAfterwards)
{
    const Pair pair;
    timeval time{0, 1500};
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 0);
    EXPECT_EQ(time.tv_sec, 0);
    EXPECT_EQ(time.tv_usec, 0);
}

TEST(Wait, TimeLeftIsWrittenBack)
{
    const Pair pair;
    timeval time{1000, 0};
    nq::test::CallingThread waiter([&] { EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 1); });
    waiter.AwaitAsleep();
    usleep(20000);
    send(pair.ends[1], "x", 1, 0);
    waiter.Join();
    EXPECT_LT(time.tv_sec, 1000);
    EXPECT_GT(time.tv_sec, 900);
    EXPECT_TRUE(time.tv_sec < 999 || time.tv_usec < 980001);
}

TEST(Wait, TimeLeftBelowASecondIsWrittenBack)
{
    const Pair pair;
    ASSERT_EQ(send(pair.ends[1], "x", 1, 0), 1);
    timeval time{};
    // A busy machine may need a second for one call, but hardly for each.
    for (int attempt = 0; attempt < 20 && time.tv_usec == 0; ++attempt)
    {
        time = {0, 999999};
        EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 1);
        EXPECT_EQ(time.tv_sec, 0);
    }
    EXPECT_GT(time.tv_usec, 0);
}

TEST(Wait, NegativeTimeIsRefusedAtOnce)
{
    const Pair pair;
    for (timeval time : {timeval{-1, 0}, timeval{0, -1000}})
    {
        errno = 0;
        EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), -1);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(Wait, MicrosecondsAboveASecondAreCarriedOver)
{
    const Pair pair;
    ASSERT_EQ(send(pair.ends[1], "x", 1, 0), 1);
    timeval time{};
    // A busy machine may need a second for one call, but hardly for each.
    for (int attempt = 0; attempt < 20 && time.tv_sec != 3; ++attempt)
    {
        time = {1, 2999999};
        EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 1);
    }
    EXPECT_EQ(time.tv_sec, 3);
}

TEST(Wait, LongestTimeDoesNotOverflow)
{
    const Pair pair;
    ASSERT_EQ(send(pair.ends[1], "x", 1, 0), 1);
    timeval time{LONG_MAX, LONG_MAX};
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 1);
}

TEST(Wait, NullTimeHasNoEnd)
{
    const Pair pair;
    ASSERT_EQ(send(pair.ends[1], "x", 1, 0), 1);
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], nullptr), 1);
}

TEST(Wait, ClosedDescriptorIsAFailure)
{
    int descriptor = -1;
    {
        const Pair pair;
        descriptor = pair.ends[0];
    }
    timeval time{0, 1000};
    EXPECT_EQ(GigETL::waitReadable(descriptor, &time), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(Wait, NoDescriptorWaitsTheWholeTime)
{
    timeval time{0, 1000};
    EXPECT_EQ(GigETL::waitReadable(-1, &time), 0);
    EXPECT_EQ(time.tv_usec, 0);
}

TEST(Wait, DescriptorAbove1023IsWaitedForLikeAnyOther)
{
    const rlimit limit{4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
    {
        GTEST_SKIP() << "the limit of open files cannot be set to 4096";
    }
    const Pair pair;
    const int high = fcntl(pair.ends[0], F_DUPFD_CLOEXEC, 3000);
    ASSERT_GE(high, 3000);
    timeval time{0, 1000};
    EXPECT_EQ(GigETL::waitReadable(high, &time), 0);
    ASSERT_EQ(send(pair.ends[1], "x", 1, 0), 1);
    time = {0, 1000};
    EXPECT_EQ(GigETL::waitReadable(high, &time), 1);
    close(high);
}

/// Handlers run all the time; the two kinds of handlers are told apart by the flag.
class InterruptedWait : public testing::TestWithParam<int>
{
};

TEST_P(InterruptedWait, LastsItsTime)
{
    const Pair pair;
    const nq::test::SignalStorm storm(GetParam());
    timeval time{0, 300000};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(time.tv_sec, 0);
    EXPECT_EQ(time.tv_usec, 0);
}

TEST_P(InterruptedWait, EndsWithDataAndTheTimeLeft)
{
    const Pair pair;
    const nq::test::SignalStorm storm(GetParam());
    timeval time{1000, 0};
    nq::test::CallingThread sender([&pair] {
        usleep(100000);
        send(pair.ends[1], "x", 1, 0);
    });
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], &time), 1);
    EXPECT_GE(time.tv_sec, 900);
    EXPECT_LT(time.tv_sec, 1000);
}

TEST_P(InterruptedWait, WithoutAnEndEndsWithData)
{
    const Pair pair;
    const nq::test::SignalStorm storm(GetParam());
    nq::test::CallingThread sender([&pair] {
        usleep(100000);
        send(pair.ends[1], "x", 1, 0);
    });
    EXPECT_EQ(GigETL::waitReadable(pair.ends[0], nullptr), 1);
}

INSTANTIATE_TEST_SUITE_P(Handlers, InterruptedWait, testing::Values(0, SA_RESTART));

} // namespace
