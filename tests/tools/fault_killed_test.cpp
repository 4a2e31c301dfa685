// SPDX-License-Identifier: Apache-2.0
// The application, nq-gev, is killed.
#include "support/fault_row.h"

#include <csignal>
#include <memory>

namespace
{

using nq::test::ChildProcess;
using nq::test::FaultRow;
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

} // namespace
