// SPDX-License-Identifier: Apache-2.0
// The lines of every exported function that succeeds: the entry with its arguments, the exit where there is one, and
// not a line more.
#include "support/fake_logger.h"
#include "support/open_tree.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using namespace nq::test;

namespace
{

class EntrySuccessTrace : public testing::Test
{
  protected:
    ~EntrySuccessTrace() override { p.GCCloseLib(); }

    /// `lines` are what stands behind "NQGenTL 32 <name> ".
    void ExpectLines(const std::string& name, const std::function<int()>& call, std::vector<std::string> lines)
    {
        SCOPED_TRACE(name);
        trace.Take();
        EXPECT_EQ(call(), 0);
        for (std::string& line : lines)
        {
            line.insert(0, "NQGenTL 32 " + name + " ");
        }
        std::vector<std::string> own;
        for (const std::string& line : trace.Take())
        {
            if (line.find(" " + name + " ") != std::string::npos)
            {
                own.push_back(line);
            }
        }
        EXPECT_EQ(own, lines);
    }

    Producer p;
    OpenTree tree{p};
    ProducerTrace trace{p};
    int type = 0;
    size_t size = 0;
    uint32_t count = 0;
    GenTL::bool8_t changed = false;
};

TEST_F(EntrySuccessTrace, OfThePortFunctions)
{
    const std::string port = "hPort:0x" + Shown(tree.stream);
    uint32_t value = 0;
    const auto four = [this] { return size = 4, &size; };
    ExpectLines("GCReadPort", [&] { return p.GCReadPort(tree.stream, 0x80434, &value, four()); },
                {"Entry " + port + " address:0x80434", "Exit " + port + " address:0x80434 ret:0"});
    ExpectLines("GCWritePort", [&] { return p.GCWritePort(tree.stream, 0x80434, &value, four()); },
                {"Entry " + port + " address:0x80434", "Exit " + port + " address:0x80434 ret:0"});
    ExpectLines("GCGetPortURL", [&] { return p.GCGetPortURL(tree.stream, nullptr, &size); },
                {"Entry", "Exit " + port + " sURL:0xNULL ret:0"});
    ExpectLines("GCGetPortInfo", [&] { return p.GCGetPortInfo(tree.stream, 12, &type, nullptr, &size); },
                {"Entry " + port + " iInfoCmd:12", "Entry " + port + " iInfoCmd:12 ret:0"});
    ExpectLines("GCGetNumPortURLs", [&] { return p.GCGetNumPortURLs(tree.stream, &count); }, {"Entry"});
    ExpectLines("GCGetPortURLInfo", [&] { return p.GCGetPortURLInfo(tree.stream, 0, 0, &type, nullptr, &size); },
                {"Entry"});
    GenTL::S_PORT_REGISTER_STACK_ENTRY entry = {0x80434, &value, 4};
    size_t entries = 1;
    ExpectLines("GCReadPortStacked", [&] { return p.GCReadPortStacked(tree.stream, &entry, &entries); }, {"Entry"});
    ExpectLines("GCWritePortStacked", [&] { return p.GCWritePortStacked(tree.stream, &entry, &entries); }, {"Entry"});
}

TEST_F(EntrySuccessTrace, OfTheEventFunctions)
{
    const std::string source = "hEventSrc:0x" + Shown(tree.device);
    void* event = tree.system;
    trace.Take();
    ASSERT_EQ(p.GCRegisterEvent(tree.device, 5, &event), 0);
    EXPECT_THAT(trace.Take(),
                testing::IsSupersetOf(
                    {"NQGenTL 32 GCRegisterEvent Entry " + source + " iEventID:5 hEvent:0x" + Shown(tree.system),
                     "NQGenTL 32 GCRegisterEvent Exit " + source + " iEventID:5 hEvent:0x" + Shown(event) + " ret:0"}));
    const std::string handle = "hEvent:0x" + Shown(event);
    ExpectLines("EventGetInfo", [&] { return p.EventGetInfo(event, 3, &type, nullptr, &size); },
                {"Entry " + handle + " iInfoCmd:3", "Exit " + handle + " iInfoCmd:3 ret:0"});
    const char record[548] = {};
    ExpectLines("EventGetDataInfo",
                [&] { return p.EventGetDataInfo(event, record, sizeof record, 2, &type, nullptr, &size); },
                {"Entry " + handle + " iInfoCmd:2", "Exit " + handle + " iInfoCmd:2 ret:0"});
    ExpectLines("EventKill", [&] { return p.EventKill(event); }, {"Entry " + handle, "Exit " + handle + " ret:0"});
    ExpectLines("EventFlush", [&] { return p.EventFlush(event); }, {"Entry " + handle, "Exit " + handle + " ret:0"});
    ExpectLines("GCUnregisterEvent", [&] { return p.GCUnregisterEvent(tree.device, 5); },
                {"Entry " + source + " iEventID:5", "Exit " + source + " iEventID:5 ret:0"});
}

TEST_F(EntrySuccessTrace, OfAnEventThatIsDelivered)
{
    void* event = nullptr;
    void* buffer = nullptr;
    ASSERT_EQ(p.GCRegisterEvent(tree.stream, 1, &event), 0);
    ASSERT_EQ(p.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &buffer), 0);
    ASSERT_EQ(p.DSQueueBuffer(tree.stream, buffer), 0);
    trace.Take();
    ASSERT_EQ(p.DSFlushQueue(tree.stream, 0), 0);
    EXPECT_THAT(trace.Take(), testing::IsSupersetOf({std::string("NQGenTL 32 DSFlushQueue Entry"),
                                                     std::string("NQGenTL 268435456 Signal Entry! Queue:0")}));
    GenTL::S_EVENT_NEW_BUFFER record = {};
    size = sizeof record;
    const std::string handle = "hEvent:0x" + Shown(event);
    ExpectLines("EventGetData", [&] { return p.EventGetData(event, &record, &size, 0x1FFFFFFFF); },
                {"Entry " + handle + " iTimeout:8589934591", "Exit " + handle + " iTimeout:8589934591 ret:0"});
    EXPECT_EQ(record.BufferHandle, buffer);
}

TEST_F(EntrySuccessTrace, OfTheSystemFunctions)
{
    const std::string system = "hTL:0x" + Shown(tree.system);
    ExpectLines("GCGetInfo", [&] { return p.GCGetInfo(10, &type, nullptr, &size); },
                {"Entry iInfoCmd:10", "Exit iInfoCmd:10 ret:0"});
    ExpectLines("TLGetInfo", [&] { return p.TLGetInfo(tree.system, 10, &type, nullptr, &size); },
                {"Entry " + system + " iInfoCmd:10", "Exit " + system + " iInfoCmd:10 ret:0"});
    ExpectLines("TLUpdateInterfaceList", [&] { return p.TLUpdateInterfaceList(tree.system, &changed, 5000000000); },
                {"Entry " + system + " iTimeout:5000000000", "Exit " + system + " iTimeout:5000000000 ret:0"});
    trace.Take();
    ASSERT_EQ(p.TLGetNumInterfaces(tree.system, &count), 0);
    EXPECT_EQ(trace.Take(), (std::vector<std::string>{"NQGenTL 32 TLGetNumInterfaces Entry " + system,
                                                      "NQGenTL 32 TLGetNumInterfaces Exit " + system +
                                                          " iNumIfaces:" + std::to_string(count) + " ret:0"}));
    const std::string id = " sIfaceID:" + tree.interfaceId;
    ExpectLines("TLGetInterfaceInfo",
                [&] { return p.TLGetInterfaceInfo(tree.system, tree.interfaceId.c_str(), 2, &type, nullptr, &size); },
                {"Entry " + system + id + " iInfoCmd:2", "Exit " + system + id + " iInfoCmd:2 ret:0"});
    ExpectLines("TLGetInterfaceID", [&] { return p.TLGetInterfaceID(tree.system, 0, nullptr, &size); },
                {"Entry " + system + " iIndex:0 sID:", "Exit " + system + " iIndex:0 sID: ret:0"});
}

TEST_F(EntrySuccessTrace, OfInterfaceAndDeviceFunctions)
{
    const std::string interface = "hIface:0x" + Shown(tree.interface);
    const char* const id = tree.deviceId.c_str();
    void* handle = nullptr;
    ExpectLines("IFGetInfo", [&] { return p.IFGetInfo(tree.interface, 1, &type, nullptr, &size); },
                {"Entry " + interface + " iInfoCmd:1"});
    ExpectLines("IFGetNumDevices", [&] { return p.IFGetNumDevices(tree.interface, &count); }, {"Entry"});
    ExpectLines("IFGetDeviceID", [&] { return p.IFGetDeviceID(tree.interface, 0, nullptr, &size); }, {"Entry"});
    ExpectLines("IFUpdateDeviceList", [&] { return p.IFUpdateDeviceList(tree.interface, &changed, 10); }, {"Entry"});
    ExpectLines("IFGetDeviceInfo", [&] { return p.IFGetDeviceInfo(tree.interface, id, 0, &type, nullptr, &size); },
                {"Entry"});
    ExpectLines("IFGetParentTL", [&] { return p.IFGetParentTL(tree.interface, &handle); }, {"Entry"});
    ExpectLines("DevGetPort", [&] { return p.DevGetPort(tree.device, &handle); }, {"Entry"});
    ExpectLines("DevGetNumDataStreams", [&] { return p.DevGetNumDataStreams(tree.device, &count); }, {"Entry"});
    ExpectLines("DevGetDataStreamID", [&] { return p.DevGetDataStreamID(tree.device, 0, nullptr, &size); }, {"Entry"});
    ExpectLines("DevGetInfo", [&] { return p.DevGetInfo(tree.device, 0, &type, nullptr, &size); }, {"Entry"});
    ExpectLines("DevGetParentIF", [&] { return p.DevGetParentIF(tree.device, &handle); }, {"Entry"});
    ExpectLines("DSGetParentDev", [&] { return p.DSGetParentDev(tree.stream, &handle); }, {"Entry"});
}

TEST_F(EntrySuccessTrace, OfTheBufferFunctions)
{
    char memory[64];
    void* buffer = nullptr;
    char pointers[80];
    std::snprintf(pointers, sizeof pointers, " pBuffer:0x%p phBuffer:0x%p", static_cast<void*>(memory),
                  static_cast<void*>(&buffer));
    const std::string stream = "hDataStream:0x" + Shown(tree.stream);
    ExpectLines("DSAnnounceBuffer",
                [&] { return p.DSAnnounceBuffer(tree.stream, memory, sizeof memory, nullptr, &buffer); },
                {"Entry " + stream + pointers});
    void* second = nullptr;
    ExpectLines("DSAllocAndAnnounceBuffer",
                [&] { return p.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &second); }, {"Entry"});
    ExpectLines("DSGetBufferID", [&] { return p.DSGetBufferID(tree.stream, 1, &second); }, {"Entry"});
    ExpectLines("DSQueueBuffer", [&] { return p.DSQueueBuffer(tree.stream, buffer); }, {"Entry"});
    ExpectLines("DSFlushQueue", [&] { return p.DSFlushQueue(tree.stream, 4); }, {"Entry"});
    ExpectLines("DSGetBufferInfo", [&] { return p.DSGetBufferInfo(tree.stream, buffer, 0, &type, nullptr, &size); },
                {"Entry"});
    ExpectLines("DSGetInfo", [&] { return p.DSGetInfo(tree.stream, 12, &type, nullptr, &size); },
                {"Entry " + stream + " iInfoCmd:12"});
    ExpectLines("DSRevokeBuffer", [&] { return p.DSRevokeBuffer(tree.stream, buffer, nullptr, nullptr); }, {"Entry"});
}

TEST_F(EntrySuccessTrace, OfClosingAndOpening)
{
    const std::string system = "hTL:0x" + Shown(tree.system);
    const std::string interface = "hIface:0x" + Shown(tree.interface);
    ExpectLines("DSClose", [&] { return p.DSClose(tree.stream); }, {"Entry"});
    ExpectLines("DevOpenDataStream", [&] { return p.DevOpenDataStream(tree.device, "Stream:0", &tree.stream); },
                {"Entry"});
    ExpectLines("DevClose", [&] { return p.DevClose(tree.device); }, {"Entry"});
    ExpectLines("IFOpenDevice", [&] { return p.IFOpenDevice(tree.interface, tree.deviceId.c_str(), 3, &tree.device); },
                {"Entry"});
    ExpectLines("IFClose", [&] { return p.IFClose(tree.interface); },
                {"Entry " + interface, "Exit " + interface + " ret:0"});
    ExpectLines("TLClose", [&] { return p.TLClose(tree.system); }, {"Entry", "Exit ret:0"});
    ExpectLines("TLOpen", [&] { return p.TLOpen(&tree.system); }, {"Entry " + system, "Exit " + system + " ret:0"});
    ExpectLines("GCCloseLib", [&] { return p.GCCloseLib(); }, {"Entry", "Exit ret:0"});
    ExpectLines("GCInitLib", [&] { return p.GCInitLib(); }, {"Entry", "Exit ret:0"});
}

} // namespace
