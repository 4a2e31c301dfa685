// SPDX-License-Identifier: Apache-2.0
// The flat camera functions and the map of open cameras against a scripted peer.
#include "gige/gige_network.h"
#include "gige/gige_tl.h"
#include "gige/nqgige.h"
#include "support/asleep.h"
#include "support/gvcp_camera.h"
#include "support/network.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace
{

using GigETL::Network;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace nq::test::gvcp;

constexpr unsigned int kLoopback = 0x7F000001;
constexpr unsigned int kKey = 0x4E514745;
constexpr unsigned long kHandle = 0x7F000001UL + 3956UL;
constexpr unsigned long kUnknown = 12345;

class FlatFunctions : public testing::Test
{
  protected:
    void Open() { ASSERT_EQ(openCamera(&m_handle, kLoopback, kLoopback, 3000, MULTICAST_OFF), 0); }

    void TearDown() override { closeCamera(m_handle); }

    GvcpCamera m_peer;
    unsigned long m_handle = 0;
    unsigned int m_value = 0x55555555;
    std::array<unsigned char, 4> m_data{1, 2, 3, 4};
};

TEST_F(FlatFunctions, OpenGivesTheSumOfAddressAndPortAsHandleAndSendsNothing)
{
    Open();
    EXPECT_EQ(m_handle, kHandle);
    EXPECT_THAT(m_peer.ReceivedBytes(), IsEmpty());
}

TEST_F(FlatFunctions, OpenAtAnotherPort)
{
    GvcpCamera elsewhere(nullptr, "127.0.0.1", 3999);
    ASSERT_EQ(openCameraExt(&m_handle, kLoopback, 3999, kLoopback, 0, MULTICAST_ON), 0);
    EXPECT_EQ(m_handle, 0x7F000001UL + 3999UL);
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0A00, 2, kKey), 0);
    EXPECT_THAT(elsewhere.ReceivedBytes(), SizeIs(1));
}

// Deliberate(OpenWithoutAPort)
TEST_F(FlatFunctions, OpenWithoutALocalPortIsASocketErrorWithAValidHandle)
{
    EXPECT_EQ(openCamera(&m_handle, kLoopback, 0x0A090909, 3000, MULTICAST_OFF), -10);
    EXPECT_EQ(m_handle, kHandle);
    EXPECT_NE(getCamera(m_handle), nullptr);
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0A00, 2, kKey), 0);
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_EQ(getCamera(m_handle), nullptr);
}

TEST_F(FlatFunctions, CloseWritesZeroToThePrivilegeAndFreesTheSocket)
{
    Open();
    EXPECT_EQ(Network::mInstanceCounter.load(), 1);
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Bytes{0x42, 1, 0, 0x82, 0, 8, 0, 1, 0, 0, 0x0A, 0x00, 0, 0, 0, 0}));
    EXPECT_EQ(Network::mInstanceCounter.load(), 0);
    EXPECT_EQ(cams::mCameras.count(m_handle), 0U);
}

TEST_F(FlatFunctions, CloseSucceedsWhenTheCameraRefuses)
{
    Open();
    m_peer.Otherwise(Acknowledge({}, 0x8006));
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_EQ(getCamera(m_handle), nullptr);
}

TEST_F(FlatFunctions, CloseSucceedsWhenTheCameraIsSilent)
{
    Open();
    m_peer.Otherwise(Silent());
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(FlatFunctions, CloseWritesThePrivilegeWhateverTheModeIs)
{
    Open();
    g_mcMode = 1;
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(FlatFunctions, CloseOfAnUnknownHandleReturnsZero)
{
    EXPECT_EQ(closeCamera(kUnknown), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), IsEmpty());
}

TEST_F(FlatFunctions, ClosingTwiceReturnsZeroTwice)
{
    Open();
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(FlatFunctions, GetCameraWithAnUnknownHandleGrowsTheMapByOneNullEntry)
{
    EXPECT_EQ(cams::mCameras.size(), 0U);
    EXPECT_EQ(getCamera(kUnknown), nullptr);
    ASSERT_EQ(cams::mCameras.size(), 1U);
    EXPECT_EQ(cams::mCameras.at(kUnknown), nullptr);
    EXPECT_EQ(getCamera(kUnknown), nullptr);
    EXPECT_EQ(cams::mCameras.size(), 1U);
}

TEST_F(FlatFunctions, EveryAccessWithAnUnknownHandleGrowsTheMapToo)
{
    EXPECT_EQ(Camera_getGigECameraRegister(kUnknown, 0x0A00, &m_value, kKey), -208);
    EXPECT_EQ(cams::mCameras.size(), 1U);
    EXPECT_EQ(closeCamera(kUnknown + 1), 0);
    EXPECT_EQ(cams::mCameras.size(), 2U);
}

TEST_F(FlatFunctions, UnknownHandleIsNoConnection)
{
    EXPECT_EQ(Camera_setGigECameraRegister(kUnknown, 0x0A00, 2, kKey), -208);
    EXPECT_EQ(Camera_getGigECameraRegister(kUnknown, 0x0A00, &m_value, kKey), -208);
    EXPECT_EQ(m_value, 0x55555555U);
    EXPECT_EQ(Camera_writeGigECameraMemory(kUnknown, 0x0A00, m_data.data(), 4, kKey), -208);
    EXPECT_EQ(Camera_readGigECameraMemory(kUnknown, 0x0A00, m_data.data(), 4, kKey), -208);
}

TEST_F(FlatFunctions, WrongKeyIsToldOnlyAfterTheHandleHasBeenFound)
{
    EXPECT_EQ(Camera_setGigECameraRegister(kUnknown, 0x0A00, 2, 0), -208);
    EXPECT_EQ(Camera_getGigECameraRegister(kUnknown, 0x0A00, &m_value, 0), -208);
    EXPECT_EQ(Camera_writeGigECameraMemory(kUnknown, 0x0A00, m_data.data(), 4, 0), -208);
    EXPECT_EQ(Camera_readGigECameraMemory(kUnknown, 0x0A00, m_data.data(), 4, 0), -208);
    Open();
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0A00, 2, 0), -11);
    EXPECT_EQ(Camera_getGigECameraRegister(m_handle, 0x0A00, &m_value, 0), -11);
    EXPECT_EQ(Camera_writeGigECameraMemory(m_handle, 0x0A00, m_data.data(), 4, kKey + 1), -11);
    EXPECT_EQ(Camera_readGigECameraMemory(m_handle, 0x0A00, m_data.data(), 4, 0), -11);
    EXPECT_EQ(m_value, 0x55555555U);
    EXPECT_THAT(m_peer.ReceivedBytes(), IsEmpty());
}

TEST_F(FlatFunctions, WrongKeyIsToldInEveryMode)
{
    Open();
    g_mcMode = 1;
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0A00, 2, 0), -11);
}

TEST_F(FlatFunctions, RegistersAndMemoryReachTheCamera)
{
    Open();
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0B00, 0x01020304, kKey), 0);
    EXPECT_EQ(m_peer.GetRegister(0x0B00), 0x01020304U);
    EXPECT_EQ(Camera_getGigECameraRegister(m_handle, 0x0B00, &m_value, kKey), 0);
    EXPECT_EQ(m_value, 0x01020304U);
    EXPECT_EQ(Camera_writeGigECameraMemory(m_handle, 0x1000, m_data.data(), 4, kKey), 0);
    m_data.fill(0);
    EXPECT_EQ(Camera_readGigECameraMemory(m_handle, 0x1000, m_data.data(), 4, kKey), 0);
    EXPECT_THAT(m_data, ElementsAre(1, 2, 3, 4));
}

TEST_F(FlatFunctions, ResultsOfTheCameraLayerComeThrough)
{
    Open();
    m_peer.Otherwise(Acknowledge({}, 0x8006));
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0B00, 1, kKey), 32774);
    EXPECT_EQ(Camera_getGigECameraRegister(m_handle, 0x0B00, &m_value, kKey), 32774);
    EXPECT_EQ(m_value, 0xFFFFFFFFU);
    EXPECT_EQ(Camera_writeGigECameraMemory(m_handle, 0x0B00, m_data.data(), 521, kKey), -21);
    EXPECT_EQ(Camera_readGigECameraMemory(m_handle, 0x0B00, m_data.data(), 4, kKey), 32774);
}

TEST_F(FlatFunctions, ModeIsZeroAtLoad)
{
    EXPECT_EQ(g_mcMode, 0);
}

// Deliberate(ListenersDoNotWrite)
TEST_F(FlatFunctions, RegisterWritesAtModeOneOrThreeReportSuccessAndSendNothing)
{
    Open();
    for (const int mode : {1, 3, -1})
    {
        g_mcMode = mode;
        EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0B00, 1, kKey), 0);
    }
    EXPECT_THAT(m_peer.ReceivedBytes(), IsEmpty());
}

TEST_F(FlatFunctions, RegisterWritesAtModeTwoAreSent)
{
    Open();
    g_mcMode = 2;
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0B00, 1, kKey), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(FlatFunctions, ModeRuleIsForRegisterWritesOnly)
{
    Open();
    g_mcMode = 1;
    EXPECT_EQ(Camera_getGigECameraRegister(m_handle, 0x0B00, &m_value, kKey), 0);
    EXPECT_EQ(Camera_writeGigECameraMemory(m_handle, 0x1000, m_data.data(), 4, kKey), 0);
    EXPECT_EQ(Camera_readGigECameraMemory(m_handle, 0x1000, m_data.data(), 4, kKey), 0);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(3));
}

TEST_F(FlatFunctions, OverloadsWithoutAKeyKnowNoMode)
{
    EXPECT_EQ(Camera_setGigECameraRegister(kUnknown, 0x0B00, 7U), -208);
    EXPECT_EQ(Camera_getGigECameraRegister(kUnknown, 0x0B00, &m_value), -208);
    EXPECT_EQ(m_value, 0U);
    Open();
    g_mcMode = 1;
    EXPECT_EQ(Camera_setGigECameraRegister(m_handle, 0x0B00, 7U), 0);
    EXPECT_EQ(Camera_getGigECameraRegister(m_handle, 0x0B00, &m_value), 0);
    EXPECT_EQ(m_value, 7U);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(FlatFunctions, CameraOpenedTwiceHasOneHandleAndTheFirstIsReplacedWithoutBeingDeleted)
{
    Open();
    GigETL::Camera* first = getCamera(m_handle);
    Open();
    EXPECT_NE(getCamera(m_handle), first);
    EXPECT_EQ(cams::mCameras.size(), 1U);
    EXPECT_EQ(Network::mInstanceCounter.load(), 2);
    EXPECT_EQ(first->getGigECameraRegister(0x0A00, &m_value), 0);
    // Nothing else reaches it, so it goes with the handle.
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_EQ(Network::mInstanceCounter.load(), 0);
}

TEST_F(FlatFunctions, CameraTakenOutOfTheMapIsTheCallersAgain)
{
    Open();
    const std::unique_ptr<GigETL::Camera> camera(getCamera(m_handle));
    removeCameraFromMap(camera.get());
    EXPECT_EQ(cams::mCameras.size(), 0U);
    addCameraToMap(camera.get());
    EXPECT_EQ(getCamera(m_handle), camera.get());
    addCameraToMap(camera.get());
    removeCameraFromMap(camera.get());
    EXPECT_EQ(getCamera(m_handle), nullptr);
    // The end of another camera of the same handle does not touch it.
    Open();
    EXPECT_EQ(closeCamera(m_handle), 0);
    EXPECT_EQ(Network::mInstanceCounter.load(), 1);
    EXPECT_EQ(camera->getGigECameraRegister(0x0A00, &m_value), 0);
}

TEST_F(FlatFunctions, CameraClosedWhileInUseLivesUntilTheUseEnds)
{
    Open();
    m_peer.Next(Sequence({Pending(60000), Late(std::chrono::milliseconds(300), Value(0x42))}));
    std::atomic<unsigned int> value{0};
    nq::test::CallingThread reader([&] {
        unsigned int read = 0;
        Camera_getGigECameraRegister(m_handle, 0x0B00, &read, kKey);
        value = read;
    });
    ASSERT_TRUE(m_peer.WaitForCount(1));
    EXPECT_EQ(closeCamera(m_handle), 0);
    reader.Join();
    EXPECT_EQ(value, 0x42U);
    EXPECT_EQ(Network::mInstanceCounter.load(), 0);
}

TEST_F(FlatFunctions, OpeningClosingAndUsingTheSameCameraOnSeveralThreadsCorruptsNothing)
{
    const auto work = [] {
        for (int round = 0; round < 50; ++round)
        {
            unsigned long handle = 0;
            unsigned int value = 0;
            EXPECT_EQ(openCamera(&handle, kLoopback, kLoopback, 3000, MULTICAST_OFF), 0);
            Camera_getGigECameraRegister(handle, 0x0B00, &value, kKey);
            getCamera(static_cast<unsigned long>(round));
            EXPECT_EQ(closeCamera(handle), 0);
        }
    };
    std::thread first(work);
    std::thread second(work);
    work();
    first.join();
    second.join();
    EXPECT_EQ(closeCamera(kHandle), 0);
    EXPECT_EQ(Network::mInstanceCounter.load(), 0);
}

TEST(FindNetworkAdapters, NullArrayOrSizeZeroIsABadArgument)
{
    unsigned int address = 7;
    EXPECT_EQ(findNetworkAdapters(nullptr, 4), -229);
    EXPECT_EQ(findNetworkAdapters(&address, 0), -229);
    EXPECT_EQ(address, 7U);
}

TEST(FindNetworkAdapters, StoresAddressesByInterfaceIndexWithAZeroBehindTheLast)
{
    nq::test::Shell("ip link add nq4 index 4 type veth peer name nq9 index 9");
    nq::test::Shell("ip addr add 10.9.4.1/24 dev nq4 && ip addr add 10.9.9.1/24 dev nq9");
    std::array<unsigned int, 12> addresses{};
    addresses.fill(0xCCCCCCCC);
    EXPECT_EQ(findNetworkAdapters(addresses.data(), 12), 0);
    EXPECT_THAT(std::vector<unsigned int>(addresses.begin(), addresses.begin() + 5),
                ElementsAre(kLoopback, 0x0A090401U, 0x0A090901U, 0U, 0xCCCCCCCCU));
}

TEST(FindNetworkAdapters, LooksAtIndexesBelowTheSizeOnly)
{
    nq::test::Shell("ip link add nq4 index 4 type veth peer name nq9 index 9");
    nq::test::Shell("ip addr add 10.9.4.1/24 dev nq4");
    std::array<unsigned int, 4> addresses{};
    EXPECT_EQ(findNetworkAdapters(addresses.data(), 4), 0);
    EXPECT_THAT(addresses, ElementsAre(kLoopback, 0, 0, 0));
    EXPECT_EQ(findNetworkAdapters(addresses.data(), 1), 0);
    EXPECT_EQ(addresses[0], 0U);
}

TEST(FindNetworkAdapters, AddressThatRepeatsInARowIsStoredOnce)
{
    nq::test::Shell("ip link add nq4 index 4 type veth peer name nq5 index 5");
    nq::test::Shell("ip addr add 10.9.4.1/24 dev nq4 && ip addr add 10.9.4.1/24 dev nq5");
    std::array<unsigned int, 6> addresses{};
    EXPECT_EQ(findNetworkAdapters(addresses.data(), 6), 0);
    EXPECT_THAT(addresses, ElementsAre(kLoopback, 0x0A090401U, 0, 0, 0, 0));
}

TEST(FindNetworkAdapters, NothingIsStoredBehindTheZeroOrTheSize)
{
    std::array<unsigned int, 3> addresses{7, 7, 7};
    EXPECT_EQ(findNetworkAdapters(addresses.data(), 2), 0);
    EXPECT_THAT(addresses, ElementsAre(kLoopback, 0, 7));
}

} // namespace
