// SPDX-License-Identifier: Apache-2.0
// The lines of every exported function whose operation answers, on a whole tree of modules: entry, failure, exit.
#include "support/fake_logger.h"
#include "support/open_tree.h"
#include "support/producer_calls.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

using namespace nq::test;

namespace
{

// Exit lines of CallsOn(handle) without the name and the result; "@" stands for the handle. A function that is not
// listed has none.
const std::map<std::string, std::string> kExits = {
    {"GCGetInfo", "Exit iInfoCmd:0"},
    {"GCReadPort", "Exit hPort:0x@ address:0x0"},
    {"GCWritePort", "Exit hPort:0x@ address:0x0"},
    {"GCGetPortURL", "Exit hPort:0x@ sURL:0xNULL"},
    {"GCGetPortInfo", "Entry hPort:0x@ iInfoCmd:0"},
    {"GCRegisterEvent", "Exit hEventSrc:0x@ iEventID:0 hEvent:0x0"},
    {"GCUnregisterEvent", "Exit hEventSrc:0x@ iEventID:0"},
    {"EventGetData", "Exit hEvent:0x@ iTimeout:0"},
    {"EventGetDataInfo", "Exit hEvent:0x@ iInfoCmd:0"},
    {"EventGetInfo", "Exit hEvent:0x@ iInfoCmd:0"},
    {"EventFlush", "Exit hEvent:0x@"},
    {"EventKill", "Exit hEvent:0x@"},
    {"TLOpen", "Exit hTL:0x0"},
    {"TLClose", "Exit"},
    {"TLGetInfo", "Exit hTL:0x@ iInfoCmd:0"},
    {"TLGetNumInterfaces", "Exit hTL:0x@ iNumIfaces:0"},
    {"TLGetInterfaceID", "Exit hTL:0x@ iIndex:0 sID:"},
    {"TLGetInterfaceInfo", "Exit hTL:0x@ sIfaceID: iInfoCmd:0"},
    {"TLOpenInterface", "Exit hTL:0x@ sIfaceID: hIface:0x0"},
    {"TLUpdateInterfaceList", "Exit hTL:0x@ iTimeout:0"},
    {"IFClose", "Exit hIface:0x@"},
};

// What CallsOn gives on a handle of the function's own kind, a port being the interface. All pointers are null, so the
// operation refuses most of them.
const std::map<std::string, int> kResults = {
    {"GCGetInfo", -1009},
    {"GCGetLastError", -1009},
    {"GCReadPort", -1009},
    {"GCWritePort", -1009},
    {"GCGetPortURL", -1009},
    {"GCGetPortInfo", -1009},
    {"GCRegisterEvent", -1009},
    {"GCUnregisterEvent", -1002},
    {"EventGetData", -1009},
    {"EventGetDataInfo", -1009},
    {"EventGetInfo", -1009},
    {"EventFlush", 0},
    {"EventKill", 0},
    {"TLOpen", -1009},
    {"TLGetInfo", -1009},
    {"TLGetNumInterfaces", -1009},
    {"TLGetInterfaceID", -1009},
    {"TLGetInterfaceInfo", -1009},
    {"TLOpenInterface", -1009},
    {"TLUpdateInterfaceList", 0},
    {"IFGetInfo", -1009},
    {"IFGetNumDevices", -1009},
    {"IFGetDeviceID", -1009},
    {"IFUpdateDeviceList", 0},
    {"IFGetDeviceInfo", -1009},
    {"IFOpenDevice", -1009},
    {"DevGetPort", -1009},
    {"DevGetNumDataStreams", -1009},
    {"DevGetDataStreamID", -1009},
    {"DevOpenDataStream", -1009},
    {"DevGetInfo", -1009},
    {"DSAnnounceBuffer", -1009},
    {"DSAllocAndAnnounceBuffer", -1009},
    {"DSFlushQueue", 0},
    {"DSStartAcquisition", -1009},
    {"DSStopAcquisition", -1004},
    {"DSGetInfo", -1009},
    {"DSGetBufferID", -1009},
    {"DSRevokeBuffer", -1006},
    {"DSQueueBuffer", -1006},
    {"DSGetBufferInfo", -1006},
    {"GCGetNumPortURLs", -1009},
    {"GCGetPortURLInfo", -1009},
    {"GCReadPortStacked", -1009},
    {"GCWritePortStacked", -1009},
    // The closing ones, innermost first.
    {"DSClose", 0},
    {"DevClose", 0},
    {"IFClose", 0},
    {"TLClose", 0},
};

bool Begins(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string WithHandle(std::string text, const void* handle)
{
    const std::size_t at = text.find('@');
    return at == std::string::npos ? text : text.replace(at, 1, Shown(handle));
}

class EntryFailureTrace : public testing::Test
{
  protected:
    EntryFailureTrace() { EXPECT_EQ(producer.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0); }
    ~EntryFailureTrace() override { producer.GCCloseLib(); }

    void* OwnHandle(const std::string& name) const
    {
        return Begins(name, "TL")      ? tree.system
               : Begins(name, "Dev")   ? tree.device
               : Begins(name, "DS")    ? tree.stream
               : Begins(name, "Event") ? event
                                       : tree.interface;
    }

    /// Calls a function of the table on a handle of its kind and looks at the frame's own lines.
    void ExpectLinesOf(const std::string& name, ProducerTrace& trace)
    {
        SCOPED_TRACE(name);
        const int expected = kResults.at(name);
        void* const handle = OwnHandle(name);
        trace.Take();
        for (const NamedCall& one : CallsOn(producer, handle))
        {
            if (one.name == name)
            {
                EXPECT_EQ(one.call(), expected);
            }
        }
        std::vector<std::string> own;
        for (const std::string& line : trace.Take())
        {
            if (line.find(" " + name + " ") != std::string::npos)
            {
                own.push_back(line);
            }
        }
        const std::string code = std::to_string(expected);
        const auto exit = kExits.find(name);
        std::vector<std::string> behindEntry;
        if (expected != 0)
        {
            const std::string command = name == "DSGetBufferInfo" ? " iInfoCmd:0" : "";
            behindEntry.push_back("NQGenTL 2 " + name + command + " Failed:" + code);
        }
        if (exit != kExits.end())
        {
            behindEntry.push_back("NQGenTL 32 " + name + " " + WithHandle(exit->second, handle) + " ret:" + code);
        }
        ASSERT_FALSE(own.empty());
        EXPECT_TRUE(Begins(own.front(), "NQGenTL 32 " + name + " Entry"));
        EXPECT_EQ(std::vector<std::string>(own.begin() + 1, own.end()), behindEntry);
    }

    Producer producer;
    OpenTree tree{producer};
    void* event = nullptr;
};

TEST_F(EntryFailureTrace, EveryFunctionTracesItsFailureAndItsExit)
{
    ProducerTrace trace(producer);
    const std::vector<std::string> closing = {"DSClose", "DevClose", "IFClose", "TLClose"};
    for (const auto& [name, result] : kResults)
    {
        if (std::find(closing.begin(), closing.end(), name) == closing.end())
        {
            ExpectLinesOf(name, trace);
        }
    }
    for (const std::string& name : closing)
    {
        ExpectLinesOf(name, trace);
    }
}

TEST_F(EntryFailureTrace, EveryFailureBecomesTheLastErrorButThatOfReadingIt)
{
    for (const auto& [name, result] : kResults)
    {
        for (const NamedCall& one : CallsOn(producer, OwnHandle(name)))
        {
            if (one.name == name && result != 0)
            {
                producer.TLOpen(&tree.system); // -1004
                one.call();
                EXPECT_EQ(producer.LastErrorCode(), name == "GCGetLastError" ? -1004 : result) << name;
            }
        }
    }
}

TEST_F(EntryFailureTrace, EveryFunctionIsInTheTableButThoseThatNeverReachAnOperation)
{
    std::vector<std::string> missing;
    for (const NamedCall& one : CallsOn(producer, nullptr))
    {
        if (kResults.find(one.name) == kResults.end())
        {
            missing.push_back(one.name);
        }
    }
    EXPECT_THAT(missing, testing::UnorderedElementsAre("IFGetParentTL", "DevGetParentIF", "DSGetParentDev",
                                                       "DSGetBufferChunkData", "DSGetNumBufferParts"));
}

} // namespace
