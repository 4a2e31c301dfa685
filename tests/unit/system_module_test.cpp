// SPDX-License-Identifier: Apache-2.0
// The system module: identity, interface list with its merge, queries, and opening interfaces.
#include "gev/nq_gev_controller.h"
#include "support/no_sockets.h"
#include "support/system_module.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <thread>

using namespace nq::test;
using testing::ElementsAre;

namespace
{

constexpr char kCam0[] = "Linux Socket:02-00-00-00-00-01";

} // namespace

TEST(SystemModule, InterfaceIdIsRefusedWithoutASizeAndPastTheEnd)
{
    const TraceCapture trace;
    SystemModule system;
    char id[8] = "before";
    unsigned long size = sizeof id;
    EXPECT_EQ(system.GetInterfaceID(0, id, nullptr), -1009);
    EXPECT_EQ(system.GetInterfaceID(0, id, &size), -1017);
    EXPECT_STREQ(id, "before");
    EXPECT_EQ(size, sizeof id);
    EXPECT_THAT(trace.At(2),
                ElementsAre("GetInterfaceID GC_ERR_INVALID_PARAMETER", "GetInterfaceID GC_ERR_INVALID_INDEX"));
}

TEST(SystemModule, EachInfoCommandGivesItsValueAndType)
{
    SystemModule system;
    const std::pair<int, std::string> texts[] = {
        {0, "NQGenTLGevRDMA"},     {1, "Nerquil Optic"},        {2, "GEVRDMATL"}, {3, "2.5.5"}, {4, "GEV"},
        {5, "nq_gev_tl_rdma.cti"}, {7, "NQO GigE RDMA TL Beta"}};
    for (const auto& [command, text] : texts)
    {
        const Info info = system.OwnInfo(command);
        EXPECT_EQ(info.result, 0);
        EXPECT_EQ(info.type, 1) << command;
        EXPECT_EQ(info.text, text) << command;
    }
    EXPECT_EQ(system.OwnInfo(6).type, 1);
    EXPECT_EQ(system.OwnInfo(6).text.front(), '/');
    const std::tuple<int, int, unsigned long> numbers[] = {{8, 5, 0}, {9, 6, 1}, {10, 6, 5}};
    for (const auto& [command, type, number] : numbers)
    {
        const Info info = system.OwnInfo(command);
        EXPECT_EQ(info.result, 0);
        EXPECT_EQ(info.type, type) << command;
        EXPECT_EQ(info.size, 4u) << command;
        EXPECT_EQ(info.number, number) << command;
    }
}

TEST(SystemModule, AnUnknownInfoCommandIsNotImplemented)
{
    const TraceCapture trace;
    SystemModule system;
    EXPECT_EQ(system.OwnInfo(11).result, -1003);
    EXPECT_EQ(system.OwnInfo(-1).result, -1003);
    EXPECT_THAT(trace.At(2), ElementsAre("GetInfo GC_ERR_NOT_IMPLEMENTED :11", "GetInfo GC_ERR_NOT_IMPLEMENTED :-1"));
}

TEST(SystemModule, InfoQueriesNeedTypeAndSize)
{
    const TraceCapture trace;
    SystemModule system;
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(system.GetInfo(0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(system.GetInfo(0, &type, nullptr, nullptr), -1009);
    EXPECT_THAT(trace.At(2), ElementsAre("GetInfo GC_ERR_INVALID_PARAMETER", "GetInfo GC_ERR_INVALID_PARAMETER"));
}

TEST(SystemModule, AQueryOfTheSizeAloneNeedsNoBuffer)
{
    SystemModule system;
    system.Merge({Entry("one")});
    int type = 0;
    unsigned long size = 99;
    EXPECT_EQ(system.GetInfo(1, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 14u);
    EXPECT_EQ(system.GetInterfaceInfo("one", 2, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 4u);
    char text[3] = {'x', 'x', 'x'};
    size = 2;
    EXPECT_EQ(system.GetInterfaceInfo("one", 2, &type, text, &size), -1016);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::string(text, 3), std::string("\0\0x", 3)) << "cleared, and no byte further";
}

TEST(SystemModule, BeforeTheFirstScanThereIsNoInterface)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    EXPECT_TRUE(system.Ids().empty());
    EXPECT_EQ(system.UpdateInterfaceList(nullptr, 0), 0);
    EXPECT_THAT(system.Ids(), ElementsAre(kCam0));
}

TEST(SystemModule, NumberOfInterfacesNeedsACount)
{
    const TraceCapture trace;
    SystemModule system;
    EXPECT_EQ(system.GetNumInterfaces(nullptr), -1009);
    EXPECT_TRUE(trace.Has(2, "GetNumInterfaces GC_ERR_INVALID_PARAMETER"));
}

TEST(SystemModule, InterfaceIdTellsItsSizeAndClearsABufferThatIsTooSmall)
{
    SystemModule system;
    system.Merge({Entry("abc")});
    unsigned long size = 0;
    EXPECT_EQ(system.GetInterfaceID(0, nullptr, &size), 0);
    EXPECT_EQ(size, 4u);
    char id[4] = {'x', 'x', 'x', 'x'};
    size = 3;
    EXPECT_EQ(system.GetInterfaceID(0, id, &size), -1016);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::string(id, 4), std::string("\0\0\0x", 4));
}

TEST(SystemModule, InterfaceInfoAnswersEachCommandFromTheList)
{
    SystemModule system;
    system.Merge({Entry("one", "10.1.2.3")});
    const std::pair<int, std::string> rows[] = {
        {0, "one"},           {1, "display 10.1.2.3"}, {2, "GEV"},  {0xA000, "02-0a-0b-01-02-03"},
        {0xA001, "10.1.2.3"}, {0xA002, "255.255.0.0"}, {0xA003, ""}};
    for (const auto& [command, text] : rows)
    {
        const Info info = system.InterfaceInfo("one", command);
        EXPECT_EQ(info.result, 0) << command;
        EXPECT_EQ(info.type, 1) << command;
        EXPECT_EQ(info.text, text) << command;
    }
}

// Deliberate(NotAvailableWhileClosed)
TEST(SystemModule, DeliberateAnUnknownCommandIsNotAvailableHere)
{
    const TraceCapture trace;
    SystemModule system;
    system.Merge({Entry("one")});
    EXPECT_EQ(system.InterfaceInfo("one", 3).result, -1014);
    EXPECT_EQ(system.InterfaceInfo("one", 0xA004).result, -1014);
    EXPECT_THAT(trace.At(2), ElementsAre("_getInterfaceInfo GC_ERR_NOT_AVAILABLE :3",
                                         "_getInterfaceInfo GC_ERR_NOT_AVAILABLE :40964"));
}

TEST(SystemModule, InterfaceInfoChecksSizeThenIdThenType)
{
    const TraceCapture trace;
    SystemModule system;
    system.Merge({Entry("one")});
    unsigned long size = 0;
    EXPECT_EQ(system.GetInterfaceInfo("unknown", 0, nullptr, nullptr, nullptr), -1009);
    EXPECT_EQ(system.GetInterfaceInfo("unknown", 0, nullptr, nullptr, &size), -1007);
    EXPECT_EQ(system.GetInterfaceInfo("one ", 0, nullptr, nullptr, &size), -1007);
    EXPECT_EQ(system.GetInterfaceInfo(nullptr, 0, nullptr, nullptr, &size), -1007);
    EXPECT_EQ(system.GetInterfaceInfo("one", 0, nullptr, nullptr, &size), -1009);
    int type = 0;
    EXPECT_EQ(system._getInterfaceInfo("one", 0, &type, nullptr, nullptr), -1009);
    EXPECT_THAT(trace.At(2),
                ElementsAre("GetInterfaceInfo GC_ERR_INVALID_PARAMETER", "_getInterfaceInfo GC_ERR_INVALID_ID",
                            "_getInterfaceInfo GC_ERR_INVALID_ID", "_getInterfaceInfo GC_ERR_INVALID_ID",
                            "_getInterfaceInfo GC_ERR_INVALID_PARAMETER",
                            "_getInterfaceInfo GC_ERR_INVALID_PARAMETER"));
}

TEST(SystemModule, MergeKeepsSurvivorsInPlaceAndAppendsNewOnes)
{
    SystemModule system;
    EXPECT_TRUE(system.Merge({Entry("a"), Entry("b"), Entry("c"), Entry("d")}));
    EXPECT_TRUE(system.Merge({Entry("e"), Entry("d"), Entry("b")}));
    EXPECT_THAT(system.Ids(), ElementsAre("b", "d", "e"));
}

TEST(SystemModule, MergeErasesNeighboursThatAreBothGone)
{
    SystemModule system;
    system.Merge({Entry("a"), Entry("b"), Entry("c")});
    EXPECT_TRUE(system.Merge({Entry("c")}));
    EXPECT_THAT(system.Ids(), ElementsAre("c"));
}

// Deliberate(StayingAdapterKeepsItsValues)
TEST(SystemModule, MergeNeverRefreshesAnEntryThatStays)
{
    SystemModule system;
    system.Merge({Entry("a", "10.0.0.1")});
    EXPECT_FALSE(system.Merge({Entry("a", "10.0.0.2")}));
    EXPECT_EQ(system.InterfaceInfo("a", 0xA001).text, "10.0.0.1");
    EXPECT_EQ(system.InterfaceInfo("a", 1).text, "display 10.0.0.1");
    EXPECT_TRUE(system.Merge({}));
    EXPECT_TRUE(system.Merge({Entry("a", "10.0.0.2")}));
    EXPECT_EQ(system.InterfaceInfo("a", 0xA001).text, "10.0.0.2") << "missing from one scan, then back";
}

TEST(SystemModule, OfSeveralEntriesWithOneIdOnlyTheFirstEntersTheList)
{
    SystemModule system;
    EXPECT_TRUE(system.Merge({Entry("a", "10.0.0.1"), Entry("a", "10.0.0.2")}));
    EXPECT_THAT(system.Ids(), ElementsAre("a"));
    EXPECT_EQ(system.InterfaceInfo("a", 0xA001).text, "10.0.0.1");
}

TEST(SystemModule, AnEmptyScanErasesEverythingAndChangesNothingTwice)
{
    SystemModule system;
    system.Merge({Entry("a")});
    EXPECT_TRUE(system.Merge({}));
    EXPECT_FALSE(system.Merge({}));
    EXPECT_TRUE(system.Ids().empty());
}

TEST(SystemModule, AScanWithoutASocketErasesEverythingAndIsASuccess)
{
    SystemModule system;
    system.Merge({Entry("a")});
    bool changed = false;
    WithoutSockets([&] { EXPECT_EQ(system.UpdateInterfaceList(&changed, 0), 0); });
    EXPECT_TRUE(changed);
    EXPECT_TRUE(system.Ids().empty());
    WithoutSockets([&] { EXPECT_EQ(system.UpdateInterfaceList(&changed, 0), 0); });
    EXPECT_FALSE(changed);
}

TEST(SystemModule, MergeTakesANullChangedPointer)
{
    SystemModule system;
    system._updateInterfaceList({Entry("a")}, nullptr);
    EXPECT_THAT(system.Ids(), ElementsAre("a"));
}

TEST(SystemModule, ASecondScanOfTheSameAdaptersIsNoChangeWhateverTheirAddresses)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    AddAdapter("cam1", "02:00:00:00:00:02", "10.9.1.1/24");
    SystemModule system;
    bool changed = false;
    EXPECT_EQ(system.UpdateInterfaceList(&changed, 0), 0);
    EXPECT_TRUE(changed);
    const std::vector<std::string> before = system.Ids();
    ASSERT_EQ(before.size(), 2u);
    Shell("ip addr del 10.9.0.1/24 dev cam0 && ip addr add 10.9.7.1/24 dev cam0");
    EXPECT_EQ(system.UpdateInterfaceList(&changed, 0), 0);
    EXPECT_FALSE(changed);
    EXPECT_EQ(system.Ids(), before);
    EXPECT_EQ(system.InterfaceInfo(kCam0, 0xA001).text, "10.9.0.1");
}

TEST(SystemModule, UnpluggingAnAdapterWithAnOpenInterfaceLeavesTheModuleAlive)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    ASSERT_EQ(system.Open(), 0);
    void* handle = nullptr;
    ASSERT_EQ(system.OpenInterface(kCam0, &handle), 0);
    Shell("ip link del cam0");
    bool changed = false;
    EXPECT_EQ(system.UpdateInterfaceList(&changed, 0), 0);
    EXPECT_TRUE(changed);
    EXPECT_TRUE(system.Ids().empty());
    EXPECT_EQ(g_Controller.GetInterfaceModule(handle), handle);
    EXPECT_EQ(system.InterfaceInfo(kCam0, 0).text, kCam0) << "through the module";
    EXPECT_EQ(system.InterfaceInfo(kCam0, 0xA001).text, "") << "the adapter is gone";
    void* again = nullptr;
    EXPECT_EQ(system.OpenInterface(kCam0, &again), -1004);
    EXPECT_EQ(system.Close(), 0);
}

TEST(SystemModule, OpenInterfaceNeedsIdAndHandle)
{
    const TraceCapture trace;
    SystemModule system;
    void* handle = nullptr;
    EXPECT_EQ(system.OpenInterface(nullptr, &handle), -1009);
    EXPECT_EQ(system.OpenInterface(kCam0, nullptr), -1009);
    EXPECT_THAT(trace.At(2),
                ElementsAre("OpenInterface GC_ERR_INVALID_PARAMETER", "OpenInterface GC_ERR_INVALID_PARAMETER"));
}

TEST(SystemModule, OpenInterfaceOfAKnownAdapterWorksBeforeAnyUpdate)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    ASSERT_EQ(system.Open(), 0);
    EXPECT_TRUE(system.Ids().empty());
    void* handle = nullptr;
    EXPECT_EQ(system.OpenInterface(kCam0, &handle), 0);
    EXPECT_EQ(g_Controller.GetInterfaceModule(handle), handle);
    EXPECT_EQ(system.Ids(), std::vector<std::string>{kCam0}) << "the open has filled the list";
    EXPECT_EQ(system.CloseInterface(handle), 0);
    EXPECT_EQ(g_Controller.GetInterfaceModule(handle), nullptr);
    EXPECT_EQ(system.Close(), 0);
}

TEST(SystemModule, OpenInterfaceOfAnIdOnNoAdapterTakesOneScanAndFails)
{
    class Counting : public SystemModule
    {
      public:
        int UpdateInterfaceList(bool* changed, unsigned long timeout) override
        {
            ++scans;
            timeoutGiven = timeout;
            return SystemModule::UpdateInterfaceList(changed, timeout);
        }
        int scans = 0;
        unsigned long timeoutGiven = 0;
    };
    const TraceCapture trace;
    Counting system;
    void* handle = nullptr;
    EXPECT_EQ(system.OpenInterface("Linux Socket:ff-ff-ff-ff-ff-ff", &handle), -1007);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(system.scans, 1);
    EXPECT_EQ(system.timeoutGiven, 1000u);
    EXPECT_TRUE(trace.Has(2, "OpenInterface GC_ERR_INVALID_ID"));
}

TEST(SystemModule, OpeningAnInterfaceTwiceIsRefusedAndLeavesTheFirstHandleValid)
{
    const TraceCapture trace;
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    ASSERT_EQ(system.Open(), 0);
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(system.OpenInterface(kCam0, &first), 0);
    EXPECT_EQ(system.OpenInterface(kCam0, &second), -1004);
    EXPECT_EQ(second, nullptr);
    EXPECT_TRUE(trace.Has(2, "OpenInterface GC_ERR_RESOURCE_IN_USE"));
    EXPECT_EQ(g_Controller.GetInterfaceModule(first), first);
    EXPECT_EQ(system.Close(), 0);
}

TEST(SystemModule, AFailedOpenOfAnInterfaceLeavesTheSystemAsItWas)
{
    const TraceCapture trace;
    SystemModule system;
    system.Merge({Entry("one", "10.99.99.99")});
    void* handle = nullptr;
    EXPECT_EQ(system.OpenInterface("one", &handle), -1001) << "no such local address";
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(trace.Has(2, "DoOpen socket bind failed!"));
    EXPECT_EQ(system.OpenInterface("one", &handle), -1001) << "and it is not in use";
}

TEST(SystemModule, ClosingAnUnknownInterfaceIsAnInvalidHandle)
{
    const TraceCapture trace;
    SystemModule system;
    int nothing = 0;
    EXPECT_EQ(system.CloseInterface(&nothing), -1006);
    EXPECT_EQ(system.CloseInterface(nullptr), -1006);
    EXPECT_THAT(trace.At(2),
                ElementsAre("CloseInterface GC_ERR_INVALID_HANDLE", "CloseInterface GC_ERR_INVALID_HANDLE"));
}

// Deliberate(RefusedCloseIsNotDeleted)
TEST(SystemModule, DeliberateAnInterfaceThatRefusesToCloseIsOutOfTheListAndNotDeleted)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    ASSERT_EQ(system.Open(), 0);
    void* handle = nullptr;
    ASSERT_EQ(system.OpenInterface(kCam0, &handle), 0);
    auto* const module = static_cast<GigERDMA::NQGenTLModuleBase*>(handle);
    ASSERT_EQ(module->Close(), 0);
    EXPECT_EQ(system.CloseInterface(handle), -1001) << "it is closed already";
    EXPECT_EQ(module->GetId(), kCam0);
    EXPECT_EQ(system.CloseInterface(handle), -1006);
    delete module;
    EXPECT_EQ(system.Close(), 0);
}

TEST(SystemModule, ClosingTheSystemClosesItsInterfacesFirstOpenedFirst)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    AddAdapter("cam1", "02:00:00:00:00:02", "10.9.1.1/24");
    SystemModule system;
    ASSERT_EQ(system.Open(), 0);
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(system.OpenInterface(kCam0, &first), 0);
    ASSERT_EQ(system.OpenInterface("Linux Socket:02-00-00-00-00-02", &second), 0);
    EXPECT_EQ(g_Controller.GetSystemModule(&system), &system);
    EXPECT_EQ(system.Close(), 0);
    EXPECT_EQ(g_Controller.GetInterfaceModule(first), nullptr);
    EXPECT_EQ(g_Controller.GetInterfaceModule(second), nullptr);
    EXPECT_EQ(g_Controller.GetSystemModule(&system), nullptr);
}

TEST(SystemModule, ScansAndQueriesMayRunOnManyThreads)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back([&system, thread] {
            for (int i = 0; i < 50; ++i)
            {
                thread % 2 == 0 ? static_cast<void>(WriteResult(system, 0x5050C))
                                : static_cast<void>(system.Merge({Entry("a"), Entry("b")}));
                system.IdAt(0);
                ReadText(system, 0x50514);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_FALSE(system.Ids().empty());
}
