// SPDX-License-Identifier: Apache-2.0
// The interface module: identity, life, and the queries about itself and its device list.
#include "gev/nq_gev_controller.h"
#include "support/interface_module.h"
#include "support/trace_capture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace nq::test;
using testing::ElementsAre;

TEST(InterfaceModule, ItKeepsItsParent)
{
    InterfaceModule parent;
    NQGevInterface module(Adapter(), &parent);
    EXPECT_EQ(module.GetParent(), &parent);
}

TEST(InterfaceModule, EachInfoCommandGivesItsText)
{
    const CameraNetwork network;
    InterfaceModule module;
    const std::pair<int, std::string> rows[] = {{0, "Linux Socket:02-00-00-00-00-01"},
                                                {1, "cam0:10.9.0.1"},
                                                {2, "GEV"},
                                                {0xA000, "02-0a-0b-01-02-03"},
                                                {0xA001, "10.9.0.1"},
                                                {0xA002, "255.255.255.0"},
                                                {0xA003, ""}};
    for (const auto& [command, text] : rows)
    {
        const Info info = module.OwnInfo(command);
        EXPECT_EQ(info.result, 0) << command;
        EXPECT_EQ(info.type, 1) << command;
        EXPECT_EQ(info.text, text) << command;
    }
}

TEST(InterfaceModule, AddressesAreThoseOfTheAdapterNow)
{
    const CameraNetwork network;
    InterfaceModule module;
    Shell("ip addr del 10.9.0.1/24 dev cam0 && ip addr add 10.8.0.3/16 dev cam0");
    EXPECT_EQ(module.OwnInfo(0xA001).text, "10.8.0.3");
    EXPECT_EQ(module.OwnInfo(0xA002).text, "255.255.0.0");
    EXPECT_EQ(module.OwnInfo(1).text, "cam0:10.9.0.1") << "the display name is that of the scan";
}

TEST(InterfaceModule, AnAdapterGoneMeanwhileGivesEmptyAddressesAndSuccess)
{
    InterfaceModule module;
    for (const int command : {0xA001, 0xA002, 0xA003})
    {
        EXPECT_EQ(module.OwnInfo(command).result, 0);
        EXPECT_EQ(module.OwnInfo(command).text, "");
    }
}

TEST(InterfaceModule, UnknownInfoCommandsAreNotImplemented)
{
    const TraceCapture trace;
    InterfaceModule module;
    EXPECT_EQ(module.OwnInfo(3).result, -1003);
    EXPECT_EQ(module.OwnInfo(0xA004).result, -1003);
    EXPECT_THAT(trace.At(2), ElementsAre("GetInfo GC_ERR_NOT_IMPLEMENTED :3", "GetInfo GC_ERR_NOT_IMPLEMENTED :40964"));
}

TEST(InterfaceModule, InfoQueriesNeedTypeAndSize)
{
    const TraceCapture trace;
    InterfaceModule module;
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(module.GetInfo(0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(module.GetInfo(0, &type, nullptr, nullptr), -1009);
    EXPECT_THAT(trace.At(2), ElementsAre("GetInfo GC_ERR_INVALID_PARAMETER", "GetInfo GC_ERR_INVALID_PARAMETER"));
}

TEST(InterfaceModule, NumberOfDevicesNeedsACount)
{
    const TraceCapture trace;
    InterfaceModule module;
    EXPECT_EQ(module.GetNumDevices(nullptr), -1009);
    EXPECT_TRUE(trace.Has(2, "GetNumDevices GC_ERR_INVALID_PARAMETER"));
    EXPECT_TRUE(module.Devices().empty());
}

// Deliberate(PastTheEndIsExpected)
TEST(InterfaceModule, DeliberateADeviceIndexPastTheEndIsTracedAsAnExpectedCondition)
{
    const TraceCapture trace;
    InterfaceModule module;
    char id[8] = "before";
    unsigned long size = sizeof id;
    EXPECT_EQ(module.GetDeviceID(0, id, &size), -1017);
    EXPECT_STREQ(id, "before");
    EXPECT_EQ(size, sizeof id);
    EXPECT_THAT(trace.At(8), ElementsAre("GetDeviceID GC_ERR_INVALID_INDEX"));
    EXPECT_TRUE(trace.At(2).empty());
    EXPECT_EQ(module.GetDeviceID(0, id, nullptr), -1009);
    EXPECT_THAT(trace.At(2), ElementsAre("GetDeviceID GC_ERR_INVALID_PARAMETER"));
}

TEST(InterfaceModule, DeviceIdsComeInListOrder)
{
    InterfaceModule module;
    module.Merge({Device("one"), Device("two")});
    char id[8];
    unsigned long size = sizeof id;
    EXPECT_EQ(module.GetDeviceID(1, id, &size), 0);
    EXPECT_STREQ(id, "two");
    EXPECT_EQ(size, 4u);
    size = 3;
    EXPECT_EQ(module.GetDeviceID(1, id, &size), -1016);
    EXPECT_EQ(size, 4u);
    EXPECT_STREQ(id, "") << "the buffer is cleared";
    EXPECT_EQ(module.GetDeviceID(0, nullptr, &size), 0);
}

TEST(InterfaceModule, OpeningRegistersTheModuleAndClosingEndsItsHandle)
{
    const CameraNetwork network;
    InterfaceModule module;
    EXPECT_EQ(module.Open(), 0);
    EXPECT_EQ(g_Controller.GetInterfaceModule(&module), &module);
    EXPECT_EQ(module.Close(), 0);
    EXPECT_EQ(g_Controller.GetInterfaceModule(&module), nullptr);
    EXPECT_EQ(module.Open(), 0) << "and again";
    EXPECT_EQ(module.Close(), 0);
}

TEST(InterfaceModule, ASocketThatCannotBeBoundFailsTheOpen)
{
    const TraceCapture trace;
    InterfaceModule module(Adapter("10.99.99.99"));
    EXPECT_EQ(module.Open(), -1001);
    EXPECT_TRUE(trace.Has(2, "DoOpen socket bind failed!"));
    EXPECT_EQ(g_Controller.GetInterfaceModule(&module), nullptr);
}

TEST(InterfaceModule, ASecondCreationOfTheSocketFailsTheOpen)
{
    const TraceCapture trace;
    InterfaceModule module(Adapter("10.99.99.99"));
    EXPECT_EQ(module.DoOpen(), -1001);
    EXPECT_EQ(module.DoOpen(), -1001);
    EXPECT_THAT(trace.At(2), ElementsAre("DoOpen socket bind failed!", "DoOpen socket create failed!"));
}

TEST(InterfaceModule, ItsSocketIsClosedOnExecAndGoneAfterTheClose)
{
    const CameraNetwork network;
    InterfaceModule module;
    const int next = dup(0);
    close(next);
    ASSERT_EQ(module.Open(), 0);
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(module.Close(), 0);
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
}

TEST(InterfaceModule, ItsSocketIsBoundToTheAdapterAndSetUpForBroadcasts)
{
    const CameraNetwork network;
    InterfaceModule module;
    const int next = dup(0);
    close(next);
    ASSERT_EQ(module.Open(), 0);
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    EXPECT_EQ(getsockname(next, reinterpret_cast<sockaddr*>(&bound), &size), 0);
    EXPECT_EQ(bound.sin_addr.s_addr, htonl(0x0A090001));
    EXPECT_NE(bound.sin_port, 0);
    int broadcast = 0;
    size = sizeof broadcast;
    EXPECT_EQ(getsockopt(next, SOL_SOCKET, SO_BROADCAST, &broadcast, &size), 0);
    EXPECT_EQ(broadcast, 1);
    timeval timeout{};
    size = sizeof timeout;
    EXPECT_EQ(getsockopt(next, SOL_SOCKET, SO_RCVTIMEO, &timeout, &size), 0);
    EXPECT_EQ(timeout.tv_sec, 0);
    EXPECT_EQ(timeout.tv_usec, 100000);
    int space = 0;
    size = sizeof space;
    EXPECT_EQ(getsockopt(next, SOL_SOCKET, SO_RCVBUF, &space, &size), 0);
    EXPECT_EQ(space, 2 * 54800) << "the kernel doubles what was asked for";
    EXPECT_EQ(module.Close(), 0);
}

TEST(InterfaceModule, AnInterfaceWithTheAddress0000OpensAndNeverListsADevice)
{
    const CameraNetwork network;
    Shell("ip route add default dev cam0");
    GvcpCamera peer(&network.host);
    peer.SetDiscovery(Camera());
    InterfaceModule module(Adapter("0.0.0.0"));
    ASSERT_EQ(module.Open(), 0);
    module.Merge({Device("one")});
    EXPECT_TRUE(module.Scan(150)) << "the list is emptied";
    EXPECT_TRUE(module.Devices().empty());
    EXPECT_EQ(module.Close(), 0);
    EXPECT_TRUE(peer.Received().empty());
}
