// SPDX-License-Identifier: Apache-2.0
// The standard's answers of scans, openings and errors, on a scripted camera.
#include "support/open_tree.h"
#include "support/standard_answers.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <string>
#include <utility>

using namespace nq::test;
using testing::ElementsAre;

namespace
{

class StandardOpen : public testing::Test
{
  protected:
    ~StandardOpen() override { p.GCCloseLib(); }

    /// Opens the interface anew: its device list is empty.
    void FreshInterface()
    {
        ASSERT_EQ(p.IFClose(tree.interface), 0);
        ASSERT_EQ(p.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &tree.interface), 0);
    }

    /// Opens the device anew, by a probe that a busy machine may make too late.
    void OpenDevice(int flags)
    {
        int result = -1005;
        for (int attempt = 0; attempt < 20 && result == -1005; ++attempt)
        {
            result = p.IFOpenDevice(tree.interface, tree.deviceId.c_str(), flags, &tree.device);
        }
        ASSERT_EQ(result, 0);
        ASSERT_EQ(p.DevOpenDataStream(tree.device, "Stream:0", &tree.stream), 0);
    }

    /// What a start with a buffer gives.
    int Start()
    {
        void* buffer = nullptr;
        EXPECT_EQ(p.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &buffer), 0);
        return p.DSStartAcquisition(tree.stream, 0, GENTL_INFINITE);
    }

    /// Closes the device, whose camera is then free, and opens it anew.
    void Reopen(int flags)
    {
        ASSERT_EQ(p.DevClose(tree.device), 0);
        OpenDevice(flags);
    }

    int Status()
    {
        int status = -1;
        int type = 0;
        std::size_t size = sizeof status;
        EXPECT_EQ(p.DevGetInfo(tree.device, GenTL::DEVICE_INFO_ACCESS_STATUS, &type, &status, &size), 0);
        return status;
    }

    const StandardAnswers asked;
    Producer p;
    OpenTree tree{p, 200};
};

TEST_F(StandardOpen, ByIdOnAFreshInterfaceEndsWhenTheCameraHasAnswered)
{
    using Clock = std::chrono::steady_clock;
    Clock::duration taken = std::chrono::hours(1);
    for (int attempt = 0; attempt < 10 && taken >= std::chrono::milliseconds(1900);
         ++attempt) // a machine may stand still
    {
        FreshInterface();
        const auto start = Clock::now();
        EXPECT_EQ(p.IFOpenDevice(tree.interface, tree.deviceId.c_str(), GenTL::DEVICE_ACCESS_READONLY, &tree.device),
                  0);
        taken = Clock::now() - start;
    }
    EXPECT_LT(taken, std::chrono::milliseconds(1900)) << "less than the 2 s";
    std::uint32_t devices = 99;
    EXPECT_EQ(p.IFGetNumDevices(tree.interface, &devices), 0);
    EXPECT_EQ(devices, 0U) << "the list is the consumer's";
}

TEST_F(StandardOpen, OfWhatIsClosedIsNoHandle)
{
    EXPECT_EQ(p.TLClose(tree.system), 0);
    EXPECT_EQ(p.TLClose(tree.system), -1006);
    EXPECT_EQ(p.IFClose(tree.interface), -1006);
    EXPECT_EQ(p.DevClose(tree.device), -1006);
    EXPECT_EQ(p.DSClose(tree.stream), -1006);
    EXPECT_EQ(p.TLOpen(&tree.system), 0);
}

TEST_F(StandardOpen, PortsTellTheIdsOfTheirModules)
{
    void* remote = nullptr;
    ASSERT_EQ(p.DevGetPort(tree.device, &remote), 0);
    const std::pair<void*, std::string> ports[] = {{tree.system, "NQGenTLGevRDMA"},
                                                   {tree.interface, tree.interfaceId},
                                                   {tree.device, tree.deviceId},
                                                   {remote, tree.deviceId},
                                                   {tree.stream, "Stream:0"}};
    for (const auto& [port, id] : ports)
    {
        char text[256] = "";
        int type = 0;
        std::size_t size = sizeof text;
        EXPECT_EQ(p.GCGetPortInfo(port, GenTL::PORT_INFO_ID, &type, text, &size), 0);
        EXPECT_EQ(text, id);
        EXPECT_EQ(size, id.size() + 1);
    }
}

TEST_F(StandardOpen, OfAnInterfaceBeforeAnUpdateLeavesTheListAsItWas)
{
    ASSERT_EQ(p.GCCloseLib(), 0);
    ASSERT_EQ(p.GCInitLib(), 0);
    ASSERT_EQ(p.TLOpen(&tree.system), 0);
    EXPECT_EQ(p.TLOpenInterface(tree.system, "nobody", &tree.interface), -1007);
    ASSERT_EQ(p.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &tree.interface), 0);
    std::uint32_t interfaces = 99;
    EXPECT_EQ(p.TLGetNumInterfaces(tree.system, &interfaces), 0);
    EXPECT_EQ(interfaces, 0U);
    GenTL::bool8_t changed = false;
    EXPECT_EQ(p.TLUpdateInterfaceList(tree.system, &changed, 100), 0);
    EXPECT_TRUE(changed);
}

TEST_F(StandardOpen, OfAnIdThatNobodyHasIsRefused)
{
    FreshInterface();
    EXPECT_EQ(p.IFOpenDevice(tree.interface, "nobody", GenTL::DEVICE_ACCESS_CONTROL, &tree.device), -1007);
}

TEST_F(StandardOpen, AScanWithoutAnEndIsOneOfASecond)
{
    for (const std::uint64_t timeout : {UINT64_MAX, std::uint64_t{0xFFFFFFFF}, std::uint64_t{60001}})
    {
        FreshInterface();
        tree.camera.Forget();
        auto scanned =
            std::async(std::launch::async, [&] { return p.IFUpdateDeviceList(tree.interface, nullptr, timeout); });
        ASSERT_EQ(scanned.wait_for(std::chrono::seconds(20)), std::future_status::ready) << timeout;
        EXPECT_EQ(scanned.get(), 0);
        std::uint32_t devices = 0;
        EXPECT_EQ(p.IFGetNumDevices(tree.interface, &devices), 0);
        EXPECT_EQ(devices, 1U);
        EXPECT_EQ(tree.camera.Count("discovery"), 1U);
    }
}

TEST_F(StandardOpen, ExclusiveGoesOnBeating)
{
    Reopen(GenTL::DEVICE_ACCESS_EXCLUSIVE);
    EXPECT_EQ(Status(), 5);
    tree.camera.Forget();
    EXPECT_TRUE(tree.camera.WaitFor("read 0x0A00", 4)) << "beats";
    EXPECT_EQ(Status(), 5);
}

TEST_F(StandardOpen, ReadOnlyBeatsOnceASecond)
{
    Reopen(GenTL::DEVICE_ACCESS_READONLY);
    EXPECT_EQ(Status(), 6);
    tree.camera.Forget();
    EXPECT_TRUE(tree.camera.WaitFor("read 0x0A00", 2)) << "beats";
    EXPECT_LT(tree.camera.Count("read 0x0A00"), 10U) << "without a pause there were thousands";
}

TEST_F(StandardOpen, AStreamOfACameraOpenedReadOnlyDoesNotStart)
{
    Reopen(GenTL::DEVICE_ACCESS_READONLY);
    tree.camera.Forget();
    EXPECT_EQ(Start(), -1005);
    EXPECT_THAT(tree.camera.AccessesBut("read 0x0A00"), ElementsAre());
}

TEST_F(StandardOpen, AStreamOfACameraThatIsAnothersByNowDoesNotStart)
{
    tree.camera.SetRegister(0x0A00, 0);
    tree.camera.Forget();
    EXPECT_EQ(Start(), -1005);
    EXPECT_GE(tree.camera.Count("read 0x0A00"), 1U);
    EXPECT_THAT(tree.camera.AccessesBut("read 0x0A00"), ElementsAre()) << "nothing was connected";
}

TEST_F(StandardOpen, ARecordTellsHowManyBytesItHas)
{
    void* event = nullptr;
    ASSERT_EQ(p.DevClose(tree.device), 0);
    OpenDevice(GenTL::DEVICE_ACCESS_CONTROL);
    ASSERT_EQ(p.GCRegisterEvent(tree.device, 4000, &event), 0);
    tree.camera.SetRegister(0x0A00, 7); // a change of status, at whichever beat
    char record[1000];
    std::size_t size = sizeof record;
    ASSERT_EQ(p.EventGetData(event, record, &size, 20000), 0);
    EXPECT_EQ(size, 260U);
}

TEST_F(StandardOpen, ALastErrorThatDoesNotFitTellsItsSize)
{
    EXPECT_EQ(p.TLOpen(nullptr), -1009);
    char text[64] = "untouched";
    int code = -77;
    std::size_t size = 3;
    EXPECT_EQ(p.GCGetLastError(&code, text, &size), -1016);
    EXPECT_EQ(size, std::string("GC_ERR_INVALID_PARAMETER").size() + 1);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(p.GCGetLastError(&code, text, &size), 0);
    EXPECT_EQ(code, -1009);
    EXPECT_STREQ(text, "GC_ERR_INVALID_PARAMETER");
}

} // namespace
