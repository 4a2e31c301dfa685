// SPDX-License-Identifier: Apache-2.0
// The exported functions on a whole tree of modules: handles of every kind, their parents, and the lines traced.
#include "support/fake_logger.h"
#include "support/open_tree.h"
#include "support/producer_calls.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace nq::test;
using testing::ElementsAre;

namespace
{

class EntryTree : public testing::Test
{
  protected:
    ~EntryTree() override { producer.GCCloseLib(); }

    /// Announces a library-allocated buffer.
    void* Announce()
    {
        void* buffer = nullptr;
        EXPECT_EQ(producer.DSAllocAndAnnounceBuffer(tree.stream, 4096, nullptr, &buffer), 0);
        return buffer;
    }

    Producer producer;
    OpenTree tree{producer};
};

TEST_F(EntryTree, AnInterfaceHandleIsServedByThePortCalls)
{
    int type = 0;
    char text[64];
    size_t size = sizeof(text);
    EXPECT_EQ(producer.GCGetPortInfo(tree.interface, GenTL::PORT_INFO_MODULE, &type, text, &size), 0);
    EXPECT_STREQ(text, "TLInterface");
    char xml[16];
    size = sizeof(xml);
    EXPECT_EQ(producer.GCReadPort(tree.interface, 0x10000, xml, &size), 0);
    EXPECT_EQ(std::string(xml, 5), "<?xml");
}

TEST_F(EntryTree, EveryKindOfModuleIsServedByThePortCalls)
{
    void* remote = nullptr;
    ASSERT_EQ(producer.DevGetPort(tree.device, &remote), 0);
    const std::map<void*, std::string> modules = {{tree.system, "TLSystem"},
                                                  {tree.interface, "TLInterface"},
                                                  {tree.device, "TLDevice"},
                                                  {tree.stream, "TLDataStream"},
                                                  {remote, "Device"}};
    for (const auto& [handle, name] : modules)
    {
        int type = 0;
        char text[64];
        size_t size = sizeof(text);
        EXPECT_EQ(producer.GCGetPortInfo(handle, GenTL::PORT_INFO_MODULE, &type, text, &size), 0);
        EXPECT_EQ(text, name);
    }
}

TEST_F(EntryTree, ABufferHandleHasNoPort)
{
    void* announced = nullptr;
    ASSERT_EQ(producer.DSAnnounceBuffer(tree.stream, &announced, sizeof(announced), nullptr, &announced), 0);
    for (void* const buffer : {announced, Announce()})
    {
        uint32_t word = 0;
        size_t size = sizeof(word);
        EXPECT_EQ(producer.GCReadPort(buffer, 0, &word, &size), -1003);
        EXPECT_EQ(producer.LastErrorText(), "GC_ERR_NOT_IMPLEMENTED");
        EXPECT_EQ(producer.GCWritePort(buffer, 0, &word, &size), -1003);
        EXPECT_EQ(producer.GCGetNumPortURLs(buffer, &word), -1003);
        EXPECT_EQ(producer.GCRegisterEvent(buffer, 1, nullptr), -1003);
    }
}

TEST_F(EntryTree, ARevokedBufferIsAnInvalidHandle)
{
    void* const buffer = Announce();
    ASSERT_EQ(producer.DSRevokeBuffer(tree.stream, buffer, nullptr, nullptr), 0);
    uint32_t word = 0;
    size_t size = sizeof(word);
    EXPECT_EQ(producer.GCReadPort(buffer, 0, &word, &size), -1006);
    EXPECT_EQ(producer.DSRevokeBuffer(tree.stream, buffer, nullptr, nullptr), -1006);
}

TEST_F(EntryTree, AHandleOfOneKindIsInvalidForTheOthers)
{
    void* remote = nullptr;
    ASSERT_EQ(producer.DevGetPort(tree.device, &remote), 0);
    void* const buffer = Announce();
    int type = 0;
    size_t size = 0;
    for (void* const handle : {tree.system, tree.interface, tree.device, tree.stream, remote, buffer})
    {
        EXPECT_EQ(producer.TLGetInfo(handle, 0, &type, nullptr, &size), handle == tree.system ? 0 : -1006);
        EXPECT_EQ(producer.IFGetInfo(handle, 0, &type, nullptr, &size), handle == tree.interface ? 0 : -1006);
        EXPECT_EQ(producer.DevGetInfo(handle, 0, &type, nullptr, &size), handle == tree.device ? 0 : -1006);
        EXPECT_EQ(producer.DSGetInfo(handle, 0, &type, nullptr, &size), handle == tree.stream ? 0 : -1006);
        EXPECT_EQ(producer.EventFlush(handle), -1006);
    }
}

TEST_F(EntryTree, ASystemHandleInAnInterfaceCallIsTracedAsInvalid)
{
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    EXPECT_EQ(producer.IFGetInfo(tree.system, 2, &type, nullptr, &size), -1006);
    EXPECT_THAT(trace.Take(),
                testing::IsSupersetOf({"NQGenTL 32 IFGetInfo Entry hIface:0x" + Shown(tree.system) + " iInfoCmd:2",
                                       std::string("NQGenTL 2 IFGetInfo Failed: GC_ERR_INVALID_HANDLE")}));
}

TEST_F(EntryTree, EachModuleTellsItsParent)
{
    void* parent = nullptr;
    EXPECT_EQ(producer.IFGetParentTL(tree.interface, &parent), 0);
    EXPECT_EQ(parent, tree.system);
    EXPECT_EQ(producer.DevGetParentIF(tree.device, &parent), 0);
    EXPECT_EQ(parent, tree.interface);
    EXPECT_EQ(producer.DSGetParentDev(tree.stream, &parent), 0);
    EXPECT_EQ(parent, tree.device);
}

// Deliberate(ClosedStreamStays)
TEST_F(EntryTree, AClosedStreamStillResolvesAndASecondCloseFails)
{
    EXPECT_EQ(producer.DSClose(tree.stream), 0);
    void* parent = nullptr;
    EXPECT_EQ(producer.DSGetParentDev(tree.stream, &parent), 0);
    EXPECT_EQ(parent, tree.device);
    EXPECT_EQ(producer.DSClose(tree.stream), -1001);
    EXPECT_EQ(producer.LastErrorCode(), -1001);
}

TEST_F(EntryTree, AClosedDeviceOrInterfaceIsAnInvalidHandle)
{
    EXPECT_EQ(producer.DevClose(tree.device), 0);
    EXPECT_EQ(producer.DevClose(tree.device), -1006);
    EXPECT_EQ(producer.DSClose(tree.stream), -1006);
    EXPECT_EQ(producer.IFClose(tree.interface), 0);
    EXPECT_EQ(producer.IFClose(tree.interface), -1006);
}

TEST_F(EntryTree, ClosingTheSystemEndsEveryHandleBelowIt)
{
    EXPECT_EQ(producer.TLClose(tree.system), 0);
    int type = 0;
    size_t size = 0;
    EXPECT_EQ(producer.IFGetInfo(tree.interface, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(producer.DevGetInfo(tree.device, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(producer.DSGetInfo(tree.stream, 0, &type, nullptr, &size), -1006);
}

TEST_F(EntryTree, ClosingTheLibraryClosesTheWholeTree)
{
    void* const buffer = Announce();
    EXPECT_EQ(producer.GCCloseLib(), 0);
    ASSERT_EQ(producer.GCInitLib(), 0);
    int type = 0;
    size_t size = 0;
    EXPECT_EQ(producer.DSGetInfo(tree.stream, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(producer.GCReadPort(buffer, 0, &type, &size), -1006);
    // Released: the control privilege was given back.
    EXPECT_EQ(tree.camera.GetRegister(0x0A00), 0U);
}

TEST_F(EntryTree, AnExpiredWaitLeavesTheLastErrorAlone)
{
    void* event = nullptr;
    ASSERT_EQ(producer.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    ASSERT_EQ(producer.TLClose(nullptr), -1006);
    ProducerTrace trace(producer);
    char record[16];
    size_t size = sizeof(record);
    EXPECT_EQ(producer.EventGetData(event, record, &size, 1), -1011);
    const std::string handle = "hEvent:0x" + Shown(event);
    EXPECT_THAT(trace.Take(),
                testing::IsSupersetOf({"NQGenTL 32 EventGetData Entry " + handle + " iTimeout:1",
                                       std::string("NQGenTL 8 EventGetData Failed! GC_ERR_TIMEOUT"),
                                       "NQGenTL 32 EventGetData Exit " + handle + " iTimeout:1 ret:-1011"}));
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST_F(EntryTree, AnyOtherFailureOfAWaitIsRecorded)
{
    void* event = nullptr;
    ASSERT_EQ(producer.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    ASSERT_EQ(producer.EventKill(event), 0);
    char record[16];
    size_t size = sizeof(record);
    EXPECT_EQ(producer.EventGetData(event, record, &size, 1), -1012);
    EXPECT_EQ(producer.LastErrorCode(), -1012);
    EXPECT_EQ(producer.EventFlush(event), 0);
}

TEST_F(EntryTree, EventFunctionsTraceEntryAndExit)
{
    void* event = nullptr;
    ASSERT_EQ(producer.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    const std::string handle = "hEvent:0x" + Shown(event);
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    producer.EventGetInfo(event, 0, &type, nullptr, &size);
    producer.EventGetDataInfo(event, nullptr, 1, 2, &type, nullptr, &size);
    producer.EventKill(event);
    producer.EventFlush(event);
    producer.GCUnregisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER);
    const std::string source = "hEventSrc:0x" + Shown(tree.stream);
    EXPECT_THAT(trace.Take(), testing::IsSupersetOf({
                                  "NQGenTL 32 EventGetInfo Entry " + handle + " iInfoCmd:0",
                                  "NQGenTL 32 EventGetInfo Exit " + handle + " iInfoCmd:0 ret:0",
                                  "NQGenTL 32 EventGetDataInfo Entry " + handle + " iInfoCmd:2",
                                  std::string("NQGenTL 2 EventGetDataInfo Failed:-1006"),
                                  "NQGenTL 32 EventGetDataInfo Exit " + handle + " iInfoCmd:2 ret:-1006",
                                  "NQGenTL 32 EventKill Entry " + handle,
                                  "NQGenTL 32 EventKill Exit " + handle + " ret:0",
                                  "NQGenTL 32 EventFlush Entry " + handle,
                                  "NQGenTL 32 EventFlush Exit " + handle + " ret:0",
                                  "NQGenTL 32 GCUnregisterEvent Entry " + source + " iEventID:1",
                                  "NQGenTL 32 GCUnregisterEvent Exit " + source + " iEventID:1 ret:0",
                              }));
}

// Lines of the calling functions only: the camera's own traffic is not traced at level 32.
std::vector<std::string> CallFlow(ProducerTrace& trace)
{
    std::vector<std::string> lines;
    for (const std::string& line : trace.Take())
    {
        if (line.rfind("NQGenTL 32 ", 0) == 0)
        {
            lines.push_back(line.substr(std::strlen("NQGenTL 32 ")));
        }
    }
    return lines;
}

TEST_F(EntryTree, InterfaceFunctionsHaveNoExitLineButTheClose)
{
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    uint32_t count = 0;
    producer.IFGetInfo(tree.interface, 1, &type, nullptr, &size);
    producer.IFGetNumDevices(tree.interface, &count);
    producer.IFGetDeviceID(tree.interface, 0, nullptr, &size);
    producer.IFUpdateDeviceList(tree.interface, nullptr, 0);
    producer.IFGetDeviceInfo(tree.interface, tree.deviceId.c_str(), 0, &type, nullptr, &size);
    void* again = nullptr;
    producer.IFOpenDevice(tree.interface, tree.deviceId.c_str(), 3, &again);
    void* parent = nullptr;
    producer.IFGetParentTL(tree.interface, &parent);
    const std::string handle = "hIface:0x" + Shown(tree.interface);
    EXPECT_THAT(CallFlow(trace), ElementsAre("IFGetInfo Entry " + handle + " iInfoCmd:1", "IFGetNumDevices Entry",
                                             "IFGetDeviceID Entry", "IFUpdateDeviceList Entry", "IFGetDeviceInfo Entry",
                                             "IFOpenDevice Entry", "IFGetParentTL Entry"));
    producer.IFClose(tree.interface);
    EXPECT_THAT(CallFlow(trace), ElementsAre("IFClose Entry " + handle, "IFClose Exit " + handle + " ret:0"));
}

TEST_F(EntryTree, OpeningAnInterfacePrintsItsIdAndHandle)
{
    ProducerTrace trace(producer);
    void* again = nullptr;
    EXPECT_EQ(producer.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &again), -1004);
    const std::string handle = "hTL:0x" + Shown(tree.system) + " sIfaceID:" + tree.interfaceId;
    EXPECT_THAT(CallFlow(trace), ElementsAre("TLOpenInterface Entry " + handle,
                                             "TLOpenInterface Exit " + handle + " hIface:0x0 ret:-1004"));
    ASSERT_EQ(producer.IFClose(tree.interface), 0);
    trace.Take();
    EXPECT_EQ(producer.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &again), 0);
    EXPECT_THAT(CallFlow(trace),
                ElementsAre("TLOpenInterface Entry " + handle,
                            "TLOpenInterface Exit " + handle + " hIface:0x" + Shown(again) + " ret:0"));
}

TEST_F(EntryTree, AnInterfaceIdIsPrintedOnceItIsKnown)
{
    ProducerTrace trace(producer);
    uint32_t index = 0;
    char id[256] = "";
    size_t size = sizeof(id);
    while (producer.TLGetInterfaceID(tree.system, index, id, &size) == 0 && id != tree.interfaceId)
    {
        ++index;
        size = sizeof(id);
        id[0] = '\0';
    }
    const std::string begin = "hTL:0x" + Shown(tree.system) + " iIndex:" + std::to_string(index) + " sID:";
    EXPECT_EQ(CallFlow(trace).back(), "TLGetInterfaceID Exit " + begin + tree.interfaceId + " ret:0");
}

TEST_F(EntryTree, DeviceFunctionsHaveNoExitLine)
{
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    uint32_t count = 0;
    void* handle = nullptr;
    producer.DevGetPort(tree.device, &handle);
    producer.DevGetNumDataStreams(tree.device, &count);
    producer.DevGetDataStreamID(tree.device, 0, nullptr, &size);
    producer.DevOpenDataStream(tree.device, "0", &handle);
    producer.DevGetInfo(tree.device, 0, &type, nullptr, &size);
    producer.DevGetParentIF(tree.device, &handle);
    producer.DevClose(tree.device);
    EXPECT_THAT(CallFlow(trace),
                ElementsAre("DevGetPort Entry", "DevGetNumDataStreams Entry", "DevGetDataStreamID Entry",
                            "DevOpenDataStream Entry", "DevGetInfo Entry", "DevGetParentIF Entry", "DevClose Entry"));
}

TEST_F(EntryTree, DataStreamFunctionsHaveNoExitLine)
{
    ProducerTrace trace(producer);
    char memory[64];
    void* announced = nullptr;
    ASSERT_EQ(producer.DSAnnounceBuffer(tree.stream, memory, sizeof(memory), nullptr, &announced), 0);
    char pointers[64];
    std::snprintf(pointers, sizeof(pointers), "pBuffer:0x%p phBuffer:0x%p", static_cast<void*>(memory),
                  static_cast<void*>(&announced));
    int type = 0;
    size_t size = 0;
    void* handle = nullptr;
    uint32_t count = 0;
    producer.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &handle);
    producer.DSGetBufferID(tree.stream, 0, &handle);
    producer.DSGetBufferInfo(tree.stream, announced, 0, &type, nullptr, &size);
    producer.DSGetInfo(tree.stream, 3, &type, nullptr, &size);
    producer.DSQueueBuffer(tree.stream, announced);
    producer.DSFlushQueue(tree.stream, 4);
    producer.DSStartAcquisition(tree.stream, 0, 0);
    producer.DSStopAcquisition(tree.stream, 0);
    producer.DSGetBufferChunkData(tree.stream, announced, nullptr, nullptr);
    producer.DSGetNumBufferParts(tree.stream, announced, &count);
    producer.DSGetBufferPartInfo(tree.stream, announced, 0, 0, &type, nullptr, &size);
    producer.DSRevokeBuffer(tree.stream, announced, nullptr, nullptr);
    producer.DSGetParentDev(tree.stream, &handle);
    producer.DSClose(tree.stream);
    const std::string stream = "hDataStream:0x" + Shown(tree.stream);
    EXPECT_THAT(CallFlow(trace),
                ElementsAre("DSAnnounceBuffer Entry " + stream + " " + pointers, "DSAllocAndAnnounceBuffer Entry",
                            "DSGetBufferID Entry", "DSGetBufferInfo Entry", "DSGetInfo Entry " + stream + " iInfoCmd:3",
                            "DSQueueBuffer Entry", "DSFlushQueue Entry",
                            "DSStartAcquisition Entry " + stream + " iStartFlags:0 iNumToAcquire:0",
                            "DSStopAcquisition Entry", "DSGetBufferChunkData Entry", "DSGetNumBufferParts Entry",
                            "DSRevokeBuffer Entry", "DSGetParentDev Entry", "DSClose Entry"));
}

TEST_F(EntryTree, AnEndlessAcquisitionPrintsMinusOne)
{
    ProducerTrace trace(producer);
    producer.DSStartAcquisition(tree.stream, 0, GENTL_INFINITE);
    EXPECT_EQ(CallFlow(trace).front(),
              "DSStartAcquisition Entry hDataStream:0x" + Shown(tree.stream) + " iStartFlags:0 iNumToAcquire:-1");
}

TEST_F(EntryTree, AFailingBufferQueryNamesItsCommand)
{
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    EXPECT_EQ(producer.DSGetBufferInfo(tree.stream, nullptr, 7, &type, nullptr, &size), -1006);
    const std::vector<std::string> lines = trace.Take();
    EXPECT_THAT(lines, testing::Contains("NQGenTL 2 DSGetBufferInfo iInfoCmd:7 Failed:-1006"));
    EXPECT_THAT(lines, testing::Not(testing::Contains("NQGenTL 2 DSGetBufferInfo Failed:-1006")));
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST_F(EntryTree, CallsOnManyThreadsKeepTheirOwnLastErrors)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < 100; ++round)
            {
                void* buffer = nullptr;
                ASSERT_EQ(producer.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &buffer), 0);
                if (thread % 2 == 0)
                {
                    ASSERT_EQ(producer.GCReadPort(buffer, 0, nullptr, nullptr), -1003);
                    ASSERT_EQ(producer.LastErrorCode(), -1003);
                }
                else
                {
                    ASSERT_EQ(producer.EventFlush(buffer), -1006);
                    ASSERT_EQ(producer.LastErrorCode(), -1006);
                }
                ASSERT_EQ(producer.DSRevokeBuffer(tree.stream, buffer, nullptr, nullptr), 0);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

TEST(EntryTreeAtExit, AProcessMayEndWithADeviceOpenAndItsThreadsRunning)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer reports the threads that still run";
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const Producer kProducer;
            static const OpenTree tree(kProducer, 0);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
#endif
}

} // namespace
