// SPDX-License-Identifier: Apache-2.0
// The application is starved, or out of descriptors.
#include "support/fault_row.h"

#include <csignal>
#include <memory>
#include <sys/resource.h>

namespace
{

using nq::test::ChildProcess;
using nq::test::ConnectionEvents;
using nq::test::Consumer;
using nq::test::Descriptors;
using nq::test::FaultRow;
using nq::test::Ids;
using nq::test::Producer;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;
using std::chrono::seconds;

class CpuStarved : public FaultRow
{
};

TEST_F(CpuStarved, LosesNoFrameAndKeepsTheCamera)
{
    // The software RDMA may be late too; that is not the failure meant here.
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "60000", 1);
    const VirtualCamera camera(SmallFrames({"--heartbeat", "3000"}));
    std::vector<std::unique_ptr<ChildProcess>> burners;
    for (unsigned index = 0; index < 2 * std::thread::hardware_concurrency(); ++index)
    {
        burners.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string>{"/bin/sh", "-c", "exec timeout 60 sh -c 'while :; do :; done'"}));
    }
    // All threads that the library starts from here on are as nice as this one.
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 19), 0);
    Consumer consumer;
    ASSERT_NE(consumer.stream, nullptr);
    ConnectionEvents connection(consumer);
    consumer.AnnounceAndQueue(3);

    Fault("CPU starved: nice 19 beside 2 burners per core");
    ASSERT_EQ(consumer.Start(), 0);
    std::uint64_t next = 1;
    while (std::chrono::steady_clock::now() < Since() + seconds(5))
    {
        EXPECT_EQ(consumer.Take(10), Ids(next, next + 9));
        next += 10;
    }
    Sees("every frame, in order");
    while (const auto status = connection.Next(std::chrono::milliseconds(0)))
    {
        EXPECT_NE(*status, kNoAccess);
    }
    Sees("control kept");
    EXPECT_EQ(consumer.Stop(), 0);
    burners.clear();
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 0), 0);
    NextWorks(consumer, "at once");
}

class OutOfDescriptors : public FaultRow
{
  protected:
    /// Lets the process open `more` further descriptors.
    void Allow(rlim_t more) const
    {
        rlimit limit = m_before;
        limit.rlim_cur = m_used + more;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }

    void SetUp() override
    {
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &m_before), 0);
        // On a machine under load the camera may be late to answer a connection; that is not the failure meant here.
        setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "20000", 1);
    }
    void TearDown() override { setrlimit(RLIMIT_NOFILE, &m_before); }

    rlim_t m_used = 0;
    rlimit m_before{};
};

TEST_F(OutOfDescriptors, FailsTheStartHoweverManyAreLeft)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "the sanitizers check objects through a pipe, and without a descriptor call all of them wrong";
    }
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    ASSERT_NE(consumer.stream, nullptr);
    consumer.AnnounceAndQueue(3);
    nq::test::Idle(consumer);
    // The endpoint of that run is gone after this start, and with it what it still had open.
    m_used = static_cast<rlim_t>(Descriptors()) - 1;

    Fault("out of descriptors at a start");
    rlim_t allowed = 0;
    for (int result = -1001; result != 0; ++allowed)
    {
        ASSERT_LT(allowed, 64U);
        Allow(allowed);
        result = consumer.Start();
        ASSERT_TRUE(result == 0 || result == -1001) << result << " with " << allowed << " descriptors left";
        TearDown();
        if (result == 0)
        {
            EXPECT_EQ(consumer.Stop(), 0);
        }
        else
        {
            EXPECT_EQ(consumer.Stop(), -1004);
        }
        nq::test::ExpectAWholeRun(consumer);
    }
    EXPECT_GT(allowed, 1U) << "some start failed";
    Sees("DSStartAcquisition: GC_ERR_ERROR with 0 to " + std::to_string(allowed - 2) + " left");
    NextWorks(consumer, "at once, after each");
}

} // namespace
