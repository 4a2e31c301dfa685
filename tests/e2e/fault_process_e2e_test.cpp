// SPDX-License-Identifier: Apache-2.0
// The application is killed, starved, or out of descriptors.
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

class ApplicationKilled : public FaultRow
{
};

/// What opening the first camera for control gives, on all interfaces; -1 when none has answered the list in time.
int OpenResult()
{
    const Producer gentl;
    void* system = nullptr;
    std::uint32_t interfaces = 0;
    EXPECT_EQ(gentl.GCInitLib(), 0);
    EXPECT_EQ(gentl.TLOpen(&system), 0);
    EXPECT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    EXPECT_EQ(gentl.TLGetNumInterfaces(system, &interfaces), 0);
    int result = -1;
    for (std::uint32_t index = 0; index < interfaces; ++index)
    {
        char id[256] = {};
        std::size_t size = sizeof id;
        void* interface = nullptr;
        std::uint32_t cameras = 0;
        EXPECT_EQ(gentl.TLGetInterfaceID(system, index, id, &size), 0);
        EXPECT_EQ(gentl.TLOpenInterface(system, id, &interface), 0);
        EXPECT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 300), 0);
        EXPECT_EQ(gentl.IFGetNumDevices(interface, &cameras), 0);
        size = sizeof id;
        if (cameras > 0 && gentl.IFGetDeviceID(interface, 0, id, &size) == 0)
        {
            void* device = nullptr;
            result = gentl.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_CONTROL, &device);
        }
    }
    EXPECT_EQ(gentl.GCCloseLib(), 0);
    return result;
}

TEST_F(ApplicationKilled, AnotherApplicationTakesTheCameraAfterTheHeartbeatTimeout)
{
    // The victim beats every 5 s: even when it dies just before a beat it is still missed for a while.
    const VirtualCamera camera(SmallFrames({"--heartbeat", "10000"}));
    auto victim = std::make_unique<ChildProcess>(
        std::vector<std::string>{NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--count", "1000000000"},
        camera.Environment());
    const auto deadline = std::chrono::steady_clock::now() + seconds(90);
    while (camera.Control(R"({"cmd":"status"})").find(R"("privilege":2)") == std::string::npos)
    {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << victim->Output();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }

    Fault("application killed (SIGKILL)");
    victim->Signal(SIGKILL);
    EXPECT_EQ(victim->WaitForExit(seconds(20)), 128 + SIGKILL);
    int result = -1;
    while (result == -1 && std::chrono::steady_clock::now() < deadline)
    {
        result = OpenResult();
    }
    EXPECT_EQ(result, -1005);
    Sees("another application: GC_ERR_ACCESS_DENIED");
    while (result != 0 && std::chrono::steady_clock::now() < deadline)
    {
        result = OpenResult();
    }
    EXPECT_EQ(result, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - Since(), seconds(2));
    Sees("opens once the heartbeat timeout of 10 s is over");
    NextWorksInANewSession();
}

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
