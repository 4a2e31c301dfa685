// SPDX-License-Identifier: Apache-2.0
// The camera goes away during an acquisition, in every way it can: what the application is told, that it can close, and
// that the next acquisition works.
#include "support/fault_row.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>

namespace
{

using nq::test::ConnectionEvents;
using nq::test::Consumer;
using nq::test::FaultRow;
using nq::test::Ids;
using nq::test::LoopbackControl;
using nq::test::Shell;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;
using std::chrono::seconds;

struct Loss
{
    const char* name;
    const char* fault;
    std::function<void(VirtualCamera&)> begin;
    std::function<void(VirtualCamera&)> end;
    seconds lasts{0};
    bool isLong = false;

    friend std::ostream& operator<<(std::ostream& out, const Loss& loss) { return out << loss.fault; }
};

void CutCable(VirtualCamera&)
{
    LoopbackControl().link(0);
    Shell("ip link set host0 down");
}

void MendCable(VirtualCamera&)
{
    Shell("ip link set host0 up");
    LoopbackControl().link(1);
}

void RemoveAdapter(VirtualCamera&)
{
    LoopbackControl().link(0);
    Shell("ip link del host0");
}

void PlugAdapterIn(VirtualCamera& camera)
{
    // The other end of the cable went with it: the camera starts anew behind a new one.
    camera.Kill();
    camera.Machine().Connect("host0", "10.77.0.1/24", "cam0", std::string(VirtualCamera::kAddress) + "/24");
    LoopbackControl().link(1);
    camera.Start();
}

void ClearFaults(VirtualCamera& camera)
{
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":"silent"})"), R"({"ok":true})");
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":"privilege-taken"})"), R"({"ok":true})");
}

const Loss kLosses[] = {
    {"CameraKilled", "camera killed", [](VirtualCamera& camera) { camera.Kill(); },
     [](VirtualCamera& camera) { camera.Start(); }},
    {"CameraSilent", "camera silent", [](VirtualCamera& camera) { camera.Fault("silent"); }, ClearFaults},
    {"CameraRebooted", "camera rebooted, away for 8 s", [](VirtualCamera& camera) { camera.Fault("reboot:8000"); },
     [](VirtualCamera&) {}, seconds(9)},
    {"PrivilegeTaken", "privilege taken by another", [](VirtualCamera& camera) { camera.Fault("privilege-taken"); },
     ClearFaults},
    {"CableCutFor5s", "cable cut for 5 s", CutCable, MendCable, seconds(5)},
    {"CableCutFor60s", "cable cut for 60 s", CutCable, MendCable, seconds(60), true},
    {"AdapterRemoved", "adapter removed while open", RemoveAdapter, PlugAdapterIn},
};

class CameraLost : public FaultRow, public testing::WithParamInterface<Loss>
{
};

TEST_P(CameraLost, IsToldCanBeClosedAndTheNextAcquisitionWorks)
{
    const Loss& loss = GetParam();
    if (loss.isLong && std::getenv("NQ_LONG_FAULTS") == nullptr)
    {
        GTEST_SKIP() << "takes a minute: ./run faults";
    }
    // The camera gives a quiet host up after 2 s, so the host beats every second.
    VirtualCamera camera(SmallFrames({"--heartbeat", "2000"}));
    {
        Consumer consumer;
        ASSERT_NE(consumer.stream, nullptr);
        ConnectionEvents connection(consumer);
        consumer.AnnounceAndQueue(3);
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_EQ(consumer.Take(5), Ids(1, 5));

        Fault(loss.fault);
        loss.begin(camera);
        ASSERT_TRUE(connection.Await(kNoAccess));
        Sees("event 4000, no access");
        Drain(consumer);
        Sees("no frame: GC_ERR_TIMEOUT");
        std::uint32_t value = 0;
        std::size_t size = sizeof value;
        void* port = nullptr;
        ASSERT_EQ(consumer.gentl.DevGetPort(consumer.device, &port), 0);
        EXPECT_EQ(consumer.gentl.GCReadPort(port, 0xD04, &value, &size), -1010);
        Sees("GCReadPort: GC_ERR_IO");
        EXPECT_EQ(consumer.Stop(), 0);
        consumer.CloseLibrary();
        Sees("stopped and closed");
    }
    std::this_thread::sleep_until(Since() + loss.lasts);
    loss.end(camera);
    NextWorksInANewSession();
}

INSTANTIATE_TEST_SUITE_P(By, CameraLost, testing::ValuesIn(kLosses),
                         [](const auto& row) { return std::string(row.param.name); });

class CableCutShortly : public FaultRow
{
};

TEST_F(CableCutShortly, EndsTheFlowAndARestartBringsItBack)
{
    // The camera keeps its host for a minute, heard or not.
    VirtualCamera camera(SmallFrames({"--heartbeat", "60000"}));
    Consumer consumer;
    ASSERT_NE(consumer.stream, nullptr);
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));

    Fault("cable cut for 1 s");
    CutCable(camera);
    Drain(consumer);
    Sees("no frame: GC_ERR_TIMEOUT");
    std::this_thread::sleep_until(Since() + seconds(1));
    MendCable(camera);
    EXPECT_EQ(consumer.Stop(), 0);
    Sees("stopped");
    NextWorks(consumer, "at once");
}

} // namespace
