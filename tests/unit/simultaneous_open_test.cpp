// SPDX-License-Identifier: Apache-2.0
// Several threads that open one id at once: one opens it, the others wait for its outcome.
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_device.h"
#include "support/asleep.h"
#include "support/device_record.h"
#include "support/fake_module.h"
#include "support/gate.h"
#include "support/gvcp_camera.h"
#include "support/interface_module.h"
#include "support/system_module.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

using namespace nq::test;
using testing::ElementsAre;

namespace
{

/// The results of `open(0)`, which is held at the gate, and of `open(1)`, which is called meanwhile and has to wait;
/// `look` runs while both are under way.
template <typename Open, typename Look>
std::array<int, 2> TwoAtOnce(Gate& gate, Open open, Look look)
{
    std::array<int, 2> results = {1, 1};
    CallingThread first([&] { results[0] = open(0); });
    gate.AwaitCaller();
    CallingThread second([&] { results[1] = open(1); });
    second.AwaitAsleep();
    look();
    gate.Open();
    first.Join();
    second.Join();
    return results;
}

class SlowModule : public FakeModule
{
  public:
    int DoOpen() override
    {
        gate.Pass();
        const int result = FakeModule::DoOpen();
        openResult = 0; // only the first opening may fail
        return result;
    }

    Gate gate;
};

/// An interface whose first scan is held at the gate and finds the camera "camera".
class SlowInterface : public InterfaceModule
{
  public:
    int UpdateDeviceList(bool*, unsigned long) override
    {
        gate.Pass();
        _NQ_GEV_DEVICE_INFO info = LoopbackCamera();
        info.id = "camera";
        info.controlAddress.sin_family = AF_INET;
        info.controlAddress.sin_port = htons(3956);
        info.controlAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        info.interfaceIp = INADDR_LOOPBACK;
        info.interfaceMask = 0xFF000000;
        info.subnetMask = 0xFF000000;
        Merge({Device("known"), info});
        return 0;
    }

    SlowInterface() : InterfaceModule(Adapter("127.0.0.1", "255.0.0.0")) { Merge({Device("known")}); }

    Gate gate;
};

class SlowSystem : public SystemModule
{
  public:
    int UpdateInterfaceList(bool*, unsigned long) override
    {
        gate.Pass();
        Merge({Entry("adapter", "127.0.0.1"), Entry("known", "127.0.0.1")});
        return 0;
    }

    Gate gate;
};

class SimultaneousOpen : public testing::Test
{
  protected:
    SimultaneousOpen() { camera.SetRegister(0x0938, 60000); }

    GvcpCamera camera;
    std::array<void*, 3> handles = {};
};

TEST(SimultaneousOpenOfAModule, TheSecondIsRefusedOnceTheFirstHasOpened)
{
    SlowModule module;
    bool open = true;
    const auto results = TwoAtOnce(
        module.gate, [&](int) { return module.Open(); }, [&] { open = module.IsOpen(); });
    EXPECT_THAT(results, ElementsAre(0, -1004));
    EXPECT_FALSE(open);
    EXPECT_EQ(module.calls, std::vector<std::string>{"DoOpen"});
}

TEST(SimultaneousOpenOfAModule, TheSecondOpensWhenTheFirstHasFailed)
{
    SlowModule module;
    module.openResult = -1010;
    const auto results = TwoAtOnce(
        module.gate, [&](int) { return module.Open(); }, [] {});
    EXPECT_THAT(results, ElementsAre(-1010, 0));
    EXPECT_TRUE(module.IsOpen());
}

TEST_F(SimultaneousOpen, ADeviceOpensOnceAndItsInterfaceAnswersMeanwhile)
{
    SlowInterface interface;
    ASSERT_EQ(interface.Open(), 0);
    unsigned int known = 0;
    int other = 0;
    const auto results = TwoAtOnce(
        interface.gate,
        [&](int index) { return interface.OpenDevice("camera", 3, &handles[static_cast<std::size_t>(index)]); },
        [&] {
            EXPECT_EQ(interface.GetNumDevices(&known), 0);
            EXPECT_EQ(interface.DeviceInfo("known", 1).text, "vendor");
            other = interface.OpenDevice("known", 1, &handles[2]);
        });
    EXPECT_THAT(results, ElementsAre(0, -1004));
    EXPECT_EQ(known, 1U);
    EXPECT_EQ(other, -1003) << "another id does not wait";
    EXPECT_EQ(handles[1], nullptr);
    EXPECT_EQ(camera.Count("write 0x0A00 = 0x00000002"), 1U);
    EXPECT_EQ(interface.CloseDevice(handles[0]), 0);
    EXPECT_EQ(interface.Close(), 0);
}

TEST_F(SimultaneousOpen, TheSecondOpensTheDeviceWhenTheFirstHasFailed)
{
    SlowInterface interface;
    ASSERT_EQ(interface.Open(), 0);
    const auto results = TwoAtOnce(
        interface.gate, [&](int index) { return interface.OpenDevice("camera", index == 0 ? 1 : 3, &handles[0]); },
        [] {});
    EXPECT_THAT(results, ElementsAre(-1003, 0));
    EXPECT_EQ(interface.CloseDevice(handles[0]), 0);
    EXPECT_EQ(interface.Close(), 0);
}

TEST_F(SimultaneousOpen, AnInterfaceOpensOnceAndTheSystemAnswersMeanwhile)
{
    SlowSystem system;
    system.Merge({Entry("known", "127.0.0.1")});
    ASSERT_EQ(system.Open(), 0);
    unsigned int known = 0;
    const auto results = TwoAtOnce(
        system.gate,
        [&](int index) { return system.OpenInterface("adapter", &handles[static_cast<std::size_t>(index)]); },
        [&] {
            EXPECT_EQ(system.GetNumInterfaces(&known), 0);
            EXPECT_EQ(system.InterfaceInfo("known", 0).text, "known");
            EXPECT_EQ(system.OpenInterface("known", &handles[2]), 0) << "another id does not wait";
        });
    EXPECT_THAT(results, ElementsAre(0, -1004));
    EXPECT_EQ(known, 1U);
    EXPECT_EQ(handles[1], nullptr);
    EXPECT_EQ(system.CloseInterface(handles[0]), 0);
    EXPECT_EQ(system.CloseInterface(handles[0]), -1006);
    EXPECT_EQ(system.Close(), 0);
}

TEST(SimultaneousOpenOfAStream, OneThreadGetsItFromACameraThatTakesItsTime)
{
    GvcpCamera camera(nullptr, "127.0.0.1");
    camera.SetRegister(0x0938, 600000);
    camera.SetRegister(0x0904, 1);
    camera.SetRegister(0x092C, 0x04000000);
    camera.Otherwise(gvcp::Late(std::chrono::milliseconds(30),
                                [&](const Bytes& command) { return camera.AnswerFromMemory(command); }));
    NQGevDevice device(g_Controller.GetTL(), LoopbackCamera(), 3, nullptr);
    ASSERT_EQ(device.Open(), 0);
    for (int round = 0; round < 5; ++round)
    {
        std::array<int, 4> results = {};
        std::array<void*, 4> streams = {};
        {
            std::vector<std::unique_ptr<CallingThread>> threads;
            for (std::size_t index = 0; index < results.size(); ++index)
            {
                threads.push_back(std::make_unique<CallingThread>(
                    [&, index] { results[index] = device.OpenDataStream("Stream:0", &streams[index]); }));
            }
        }
        EXPECT_THAT(results, testing::UnorderedElementsAre(0, -1004, -1004, -1004));
        EXPECT_EQ(std::count(streams.begin(), streams.end(), nullptr), 3);
        auto* const stream =
            static_cast<GigERDMA::NQGenTLModuleBase*>(*std::max_element(streams.begin(), streams.end()));
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(stream->Close(), 0);
    }
    EXPECT_EQ(device.Close(), 0);
}

} // namespace
