// SPDX-License-Identifier: Apache-2.0
// Camera access in a process whose signal handlers run all the time: a handler is no result of a wait.
#include "gentl/nq_event_handler.h"
#include "gige/gige_camera.h"
#include "gige/gige_wait.h"
#include "gige/nq_gev_socket_linux.h"
#include "support/interface_module.h"
#include "support/signal_storm.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace nq::test;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace
{

using Clock = std::chrono::steady_clock;

/// The flags of the handler: without SA_RESTART and with it.
class Signals : public testing::TestWithParam<int>
{
  protected:
    Signals() { peer.SetDiscovery(nq::test::Camera()); }

    /// Has the peer answer each command `milliseconds` after it.
    void AnswerAfter(std::chrono::milliseconds delay)
    {
        peer.Otherwise(gvcp::Late(delay, [this](const Bytes& command) { return peer.AnswerFromMemory(command); }));
    }

    CameraNetwork network;
    GvcpCamera peer{&network.host};
};

TEST_P(Signals, TwoHundredReadsOfASlowCameraSucceed)
{
    AnswerAfter(20ms);
    GigETL::Camera camera(0x0A090005, 3956, 0x0A090001, MULTICAST_OFF);
    const SignalStorm storm(GetParam());
    for (unsigned int round = 0; round < 200; ++round)
    {
        peer.SetRegister(0x1000, round);
        unsigned int value = 0;
        ASSERT_EQ(camera.getGigECameraRegister(0x1000, &value), 0) << round;
        ASSERT_EQ(value, round);
    }
}

TEST_P(Signals, EveryKindOfAccessSucceeds)
{
    AnswerAfter(20ms);
    GigETL::Camera camera(0x0A090005, 3956, 0x0A090001, MULTICAST_OFF);
    const SignalStorm storm(GetParam());
    std::array<unsigned char, 4> data{9, 8, 7, 6};
    for (int round = 0; round < 20; ++round)
    {
        ASSERT_EQ(camera.setGigECameraRegister(0x1000, 7), 0) << round;
        ASSERT_EQ(camera.writeCameraMemory(0x2000, data.data(), 4), 0) << round;
        ASSERT_EQ(camera.readCameraMemory(0x2000, data.data(), 4), 0) << round;
        ASSERT_EQ(data[0], 9) << round;
    }
}

TEST_P(Signals, TwoHundredOpensOfASlowCameraSucceed)
{
    peer.SetRegister(0x0938, 3000);
    AnswerAfter(6ms);
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    module.Scan();
    ASSERT_THAT(module.Ids(), ElementsAre("Eye:02-0a-0b-01-02-03"));
    const SignalStorm storm(GetParam());
    for (int round = 0; round < 200; ++round)
    {
        void* device = nullptr;
        int opened = -1005;
        // Its question has 100 ms, few on a busy machine.
        for (int attempt = 0; attempt < 20 && opened == -1005; ++attempt)
        {
            opened = module.OpenDevice("Eye:02-0a-0b-01-02-03", 3, &device);
        }
        ASSERT_EQ(opened, 0) << round;
        ASSERT_EQ(module.CloseDevice(device), 0) << round;
    }
    EXPECT_EQ(module.Close(), 0);
}

TEST_P(Signals, AScanHearsALateAnswer)
{
    AnswerAfter(300ms);
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    const SignalStorm storm(GetParam());
    module.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-0b-01-02-03"));
    EXPECT_EQ(module.Close(), 0);
}

TEST_P(Signals, AReceiveLastsAsLongAsItsSocketsTimeout)
{
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(socket.Bind(0x0A090001, 0));
    ASSERT_TRUE(socket.SetReceiveTimeout(300));
    const SignalStorm storm(GetParam());
    std::array<char, 8> data{};
    unsigned int received = 0;
    const auto start = Clock::now();
    EXPECT_FALSE(socket.Receive(data.data(), data.size(), received));
    EXPECT_GE(Clock::now() - start, 300ms);
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST_P(Signals, AReceiveWithoutAnEndGetsItsDatagram)
{
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(socket.Bind(0x0A090001, 4000));
    const SignalStorm storm(GetParam());
    std::thread sender([this] {
        std::this_thread::sleep_for(100ms);
        peer.Send({1, 2, 3}, "10.9.0.1", 4000);
    });
    std::array<char, 8> data{};
    unsigned int received = 0;
    EXPECT_TRUE(socket.Receive(data.data(), data.size(), received));
    EXPECT_EQ(received, 3U);
    sender.join();
}

TEST_P(Signals, ATimedWaitForAnEventLastsItsTime)
{
    GigERDMA::NQEventHandler event(1);
    const SignalStorm storm(GetParam());
    const auto start = Clock::now();
    EXPECT_EQ(event.WaitForEvent(300), 0U);
    EXPECT_GE(Clock::now() - start, 300ms);
}

INSTANTIATE_TEST_SUITE_P(Handlers, Signals, testing::Values(0, SA_RESTART), [](const testing::TestParamInfo<int>& row) {
    return std::string(row.param == 0 ? "NotRestarting" : "Restarting");
});

} // namespace
