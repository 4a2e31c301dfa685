// SPDX-License-Identifier: Apache-2.0
// The trace lines of the exported functions on refused calls and on the system module, word for word.
#include "support/fake_logger.h"
#include "support/producer_calls.h"

#include <gmock/gmock.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

namespace
{

// Prints as "2345678f": handles are traced by their lower 32 bits.
void* const wild = reinterpret_cast<void*>(0x12345678F);

// Entry lines of CallsOn(wild), by function. Those that are not listed read "<name> Entry".
const std::map<std::string, std::string> kLongEntries = {
    {"GCGetInfo", "GCGetInfo Entry iInfoCmd:0"},
    {"GCReadPort", "GCReadPort Entry hPort:0x2345678f address:0x0"},
    {"GCWritePort", "GCWritePort Entry hPort:0x2345678f address:0x0"},
    {"GCGetPortInfo", "GCGetPortInfo Entry hPort:0x2345678f iInfoCmd:0"},
    {"GCRegisterEvent", "GCRegisterEvent Entry hEventSrc:0x2345678f iEventID:0 hEvent:0x0"},
    {"GCUnregisterEvent", "GCUnregisterEvent Entry hEventSrc:0x2345678f iEventID:0"},
    {"EventGetData", "EventGetData Entry hEvent:0x2345678f iTimeout:0"},
    {"EventGetDataInfo", "EventGetDataInfo Entry hEvent:0x2345678f iInfoCmd:0"},
    {"EventGetInfo", "EventGetInfo Entry hEvent:0x2345678f iInfoCmd:0"},
    {"EventFlush", "EventFlush Entry hEvent:0x2345678f"},
    {"EventKill", "EventKill Entry hEvent:0x2345678f"},
    {"TLOpen", "TLOpen Entry hTL:0x0"},
    {"TLGetInfo", "TLGetInfo Entry hTL:0x2345678f iInfoCmd:0"},
    {"TLGetNumInterfaces", "TLGetNumInterfaces Entry hTL:0x2345678f"},
    {"TLGetInterfaceID", "TLGetInterfaceID Entry hTL:0x2345678f iIndex:0 sID:"},
    {"TLGetInterfaceInfo", "TLGetInterfaceInfo Entry hTL:0x2345678f sIfaceID: iInfoCmd:0"},
    {"TLOpenInterface", "TLOpenInterface Entry hTL:0x2345678f sIfaceID:"},
    {"TLUpdateInterfaceList", "TLUpdateInterfaceList Entry hTL:0x2345678f iTimeout:0"},
    {"IFClose", "IFClose Entry hIface:0x2345678f"},
    {"IFGetInfo", "IFGetInfo Entry hIface:0x2345678f iInfoCmd:0"},
    {"DSAnnounceBuffer", "DSAnnounceBuffer Entry hDataStream:0x2345678f pBuffer:0x(nil) phBuffer:0x(nil)"},
    {"DSStartAcquisition", "DSStartAcquisition Entry hDataStream:0x2345678f iStartFlags:0 iNumToAcquire:0"},
    {"DSGetInfo", "DSGetInfo Entry hDataStream:0x2345678f iInfoCmd:0"},
};

std::string EntryOf(const std::string& name)
{
    const auto found = kLongEntries.find(name);
    return "NQGenTL 32 " + (found != kLongEntries.end() ? found->second : name + " Entry");
}

bool Begins(const std::string& text, const char* prefix)
{
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

TEST(EntryTrace, ACallBeforeInitTracesEntryAndRefusalAndNoExit)
{
    const Producer producer;
    ProducerTrace trace(producer);
    for (const NamedCall& one : CallsOn(producer, wild))
    {
        trace.Take();
        one.call();
        EXPECT_THAT(trace.Take(), ElementsAre(EntryOf(one.name), "NQGenTL 2 " + one.name + " GC_ERR_NOT_INITIALIZED"));
    }
    producer.GCCloseLib();
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCCloseLib Entry", "NQGenTL 2 GCCloseLib GC_ERR_NOT_INITIALIZED"));
}

TEST(EntryTrace, AFunctionThatIsNotImplementedAtAllTracesNothing)
{
    const Producer producer;
    ProducerTrace trace(producer);
    trace.Take();
    producer.DSGetBufferPartInfo(nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr);
    reinterpret_cast<int (*)(void*, bool, bool, unsigned, unsigned, unsigned)>(
        producer.Find("_ZN5GenTL13NQSetIPConfigEPvbbjjj"))(nullptr, false, false, 0, 0, 0);
    EXPECT_THAT(trace.Take(), IsEmpty());
}

TEST(EntryTrace, AnUnknownHandleIsRefusedInTheWordsOfItsFamilyWithoutAnExit)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    for (const NamedCall& one : CallsOn(producer, wild))
    {
        const bool module = (Begins(one.name, "TL") && one.name != "TLOpen" && one.name != "TLClose") ||
                            Begins(one.name, "IF") || Begins(one.name, "Dev") || Begins(one.name, "DS");
        const bool parent = one.name.find("GetParent") != std::string::npos;
        const bool unimplemented = one.name == "DSGetBufferChunkData" || one.name == "DSGetNumBufferParts";
        trace.Take();
        one.call();
        const Lines lines = trace.Take();
        SCOPED_TRACE(one.name);
        if (Begins(one.name, "Event"))
        {
            EXPECT_THAT(lines, ElementsAre(EntryOf(one.name), "NQGenTL 2 " + one.name + " GC_ERR_INVALID_HANDLE"));
        }
        else if (parent)
        {
            EXPECT_THAT(lines, ElementsAre(EntryOf(one.name), "NQGenTL 2 " + one.name + " GC_ERR_INVALID_PARAMETER"));
        }
        else if (unimplemented)
        {
            EXPECT_THAT(lines, ElementsAre(EntryOf(one.name)));
        }
        else if (module)
        {
            EXPECT_THAT(lines,
                        ElementsAre(EntryOf(one.name), "NQGenTL 2 " + one.name + " Failed: GC_ERR_INVALID_HANDLE"));
        }
    }
}

TEST(EntryTrace, AParentQueryOfAnUnknownHandleIsRefused)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    void* parent = nullptr;
    producer.IFGetParentTL(wild, &parent);
    producer.DevGetParentIF(wild, &parent);
    producer.DSGetParentDev(wild, &parent);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 IFGetParentTL Entry", "NQGenTL 2 IFGetParentTL Failed: GC_ERR_INVALID_HANDLE",
                            "NQGenTL 32 DevGetParentIF Entry", "NQGenTL 2 DevGetParentIF Failed: GC_ERR_INVALID_HANDLE",
                            "NQGenTL 32 DSGetParentDev Entry",
                            "NQGenTL 2 DSGetParentDev Failed: GC_ERR_INVALID_HANDLE"));
}

TEST(EntryTrace, AnUnknownPortOrEventSourceFailsInTheOperationAndHasItsExit)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    producer.GCReadPort(wild, 0xFEDCBA9876543210, nullptr, nullptr);
    producer.GCWritePort(wild, 0x10000, nullptr, nullptr);
    producer.GCGetPortInfo(wild, 12, nullptr, nullptr, nullptr);
    producer.GCGetPortURL(wild, nullptr, nullptr);
    producer.GCGetNumPortURLs(wild, nullptr);
    producer.GCGetPortURLInfo(wild, 0, 0, nullptr, nullptr, nullptr);
    producer.GCReadPortStacked(wild, nullptr, nullptr);
    producer.GCWritePortStacked(wild, nullptr, nullptr);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCReadPort Entry hPort:0x2345678f address:0xfedcba9876543210",
                            "NQGenTL 2 GCReadPort Failed:-1006",
                            "NQGenTL 32 GCReadPort Exit hPort:0x2345678f address:0xfedcba9876543210 ret:-1006",
                            "NQGenTL 32 GCWritePort Entry hPort:0x2345678f address:0x10000",
                            "NQGenTL 2 GCWritePort Failed:-1006",
                            "NQGenTL 32 GCWritePort Exit hPort:0x2345678f address:0x10000 ret:-1006",
                            "NQGenTL 32 GCGetPortInfo Entry hPort:0x2345678f iInfoCmd:12",
                            "NQGenTL 2 GCGetPortInfo Failed:-1006",
                            "NQGenTL 32 GCGetPortInfo Entry hPort:0x2345678f iInfoCmd:12 ret:-1006",
                            "NQGenTL 32 GCGetPortURL Entry", "NQGenTL 2 GCGetPortURL Failed:-1006",
                            "NQGenTL 32 GCGetPortURL Exit hPort:0x2345678f sURL:0xNULL ret:-1006",
                            "NQGenTL 32 GCGetNumPortURLs Entry", "NQGenTL 2 GCGetNumPortURLs Failed:-1006",
                            "NQGenTL 32 GCGetPortURLInfo Entry", "NQGenTL 2 GCGetPortURLInfo Failed:-1006",
                            "NQGenTL 32 GCReadPortStacked Entry", "NQGenTL 2 GCReadPortStacked Failed:-1006",
                            "NQGenTL 32 GCWritePortStacked Entry", "NQGenTL 2 GCWritePortStacked Failed:-1006"));

    void* event = wild;
    producer.GCRegisterEvent(wild, 4000, &event);
    producer.GCUnregisterEvent(wild, 5);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCRegisterEvent Entry hEventSrc:0x2345678f iEventID:4000 hEvent:0x2345678f",
                            "NQGenTL 2 GCRegisterEvent Failed:-1006",
                            "NQGenTL 32 GCRegisterEvent Exit hEventSrc:0x2345678f iEventID:4000 hEvent:0x2345678f "
                            "ret:-1006",
                            "NQGenTL 32 GCUnregisterEvent Entry hEventSrc:0x2345678f iEventID:5",
                            "NQGenTL 2 GCUnregisterEvent Failed:-1006",
                            "NQGenTL 32 GCUnregisterEvent Exit hEventSrc:0x2345678f iEventID:5 ret:-1006"));
}

// Deliberate(ExitLineSaysEntry)
TEST(EntryTrace, TheExitLineOfThePortInfoSaysEntry)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    producer.GCGetPortInfo(system, 4, &type, nullptr, &size);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCGetPortInfo Entry hPort:0x" + Shown(system) + " iInfoCmd:4",
                            "NQGenTL 32 GCGetPortInfo Entry hPort:0x" + Shown(system) + " iInfoCmd:4 ret:0"));
}

TEST(EntryTrace, LibraryFunctionsTraceEntryAndExit)
{
    const Producer producer;
    ProducerTrace trace(producer);
    producer.GCInitLib();
    int type = 0;
    size_t size = 0;
    producer.GCGetInfo(0, &type, nullptr, &size);
    producer.GCCloseLib();
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCInitLib Entry", "NQGenTL 32 GCInitLib Exit ret:0",
                            "NQGenTL 32 GCGetInfo Entry iInfoCmd:0", "NQGenTL 32 GCGetInfo Exit iInfoCmd:0 ret:0",
                            "NQGenTL 32 GCCloseLib Entry", "NQGenTL 32 GCCloseLib Exit ret:0"));
}

TEST(EntryTrace, ASecondInitTracesItsFailureAndExit)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    producer.GCInitLib();
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 GCInitLib Entry", "NQGenTL 2 GCInitLib Failed:-1004",
                                          "NQGenTL 32 GCInitLib Exit ret:-1004"));
}

TEST(EntryTrace, ReadingTheLastErrorHasNoExitLine)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    producer.LastErrorCode();
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 GCGetLastError Entry"));
    producer.GCGetLastError(nullptr, nullptr, nullptr);
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 GCGetLastError Entry", "NQGenTL 2 GCGetLastError Failed:-1009"));
}

TEST(EntryTrace, OpeningAndClosingTheSystemPrintsItsHandle)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    void* system = wild;
    producer.TLOpen(&system);
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 TLOpen Entry hTL:0x2345678f",
                                          "NQGenTL 32 TLOpen Exit hTL:0x" + Shown(system) + " ret:0"));
    producer.TLClose(system);
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 TLClose Entry", "NQGenTL 32 TLClose Exit ret:0"));
    producer.TLClose(wild);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 TLClose Entry", "NQGenTL 2 CloseSystemModule Failed: GC_ERR_INVALID_HANDLE",
                            "NQGenTL 2 TLClose Failed:-1006", "NQGenTL 32 TLClose Exit ret:-1006"));
    producer.TLOpen(nullptr);
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 TLOpen Entry hTL:0x0",
                                          "NQGenTL 2 OpenSystemModule Failed: GC_ERR_INVALID_PARAMETER",
                                          "NQGenTL 2 TLOpen Failed:-1009", "NQGenTL 32 TLOpen Exit hTL:0x0 ret:-1009"));
}

TEST(EntryTrace, SystemFunctionsTraceTheirArgumentsAndResult)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    const std::string handle = "hTL:0x" + Shown(system);
    ProducerTrace trace(producer);
    int type = 0;
    size_t size = 0;
    uint32_t count = 7;
    producer.TLGetInfo(system, 3, &type, nullptr, &size);
    producer.TLGetNumInterfaces(system, &count);
    producer.TLUpdateInterfaceList(system, nullptr, 0xFFFFFFFFFFFFFFFF);
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 TLGetInfo Entry " + handle + " iInfoCmd:3",
                                          "NQGenTL 32 TLGetInfo Exit " + handle + " iInfoCmd:3 ret:0",
                                          "NQGenTL 32 TLGetNumInterfaces Entry " + handle,
                                          "NQGenTL 32 TLGetNumInterfaces Exit " + handle + " iNumIfaces:0 ret:0",
                                          "NQGenTL 32 TLUpdateInterfaceList Entry " + handle + " iTimeout:-1",
                                          "NQGenTL 32 TLUpdateInterfaceList Exit " + handle + " iTimeout:-1 ret:0"));
    producer.TLGetNumInterfaces(system, nullptr);
    EXPECT_THAT(trace.Take(), ElementsAre("NQGenTL 32 TLGetNumInterfaces Entry " + handle,
                                          "NQGenTL 2 GetNumInterfaces GC_ERR_INVALID_PARAMETER",
                                          "NQGenTL 2 TLGetNumInterfaces Failed:-1009",
                                          "NQGenTL 32 TLGetNumInterfaces Exit " + handle + " iNumIfaces:0 ret:-1009"));
    producer.TLGetInterfaceInfo(system, "none", 2, &type, nullptr, &size);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 TLGetInterfaceInfo Entry " + handle + " sIfaceID:none iInfoCmd:2",
                            "NQGenTL 2 _getInterfaceInfo GC_ERR_INVALID_ID",
                            "NQGenTL 2 TLGetInterfaceInfo Failed:-1007",
                            "NQGenTL 32 TLGetInterfaceInfo Exit " + handle + " sIfaceID:none iInfoCmd:2 ret:-1007"));
    producer.TLOpenInterface(system, nullptr, nullptr);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 TLOpenInterface Entry " + handle + " sIfaceID:",
                            "NQGenTL 2 OpenInterface GC_ERR_INVALID_PARAMETER",
                            "NQGenTL 2 TLOpenInterface Failed:-1009",
                            "NQGenTL 32 TLOpenInterface Exit " + handle + " sIfaceID: hIface:0x0 ret:-1009"));
}

TEST(EntryTrace, AnOutputTextThatIsNotTerminatedIsPrintedNoFurtherThanItsSize)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    ProducerTrace trace(producer);
    const std::string handle = "hTL:0x" + Shown(system);
    char text[3] = {'a', 'b', 'X'};
    size_t size = 2;
    producer.TLGetInterfaceID(system, 99, text, &size);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 TLGetInterfaceID Entry " + handle + " iIndex:99 sID:ab",
                            "NQGenTL 2 GetInterfaceID GC_ERR_INVALID_INDEX", "NQGenTL 2 TLGetInterfaceID Failed:-1017",
                            "NQGenTL 32 TLGetInterfaceID Exit " + handle + " iIndex:99 sID:ab ret:-1017"));
    size = 2;
    producer.GCGetPortURL(system, text, &size);
    EXPECT_EQ(trace.Take().back(), "NQGenTL 32 GCGetPortURL Exit hPort:0x" + Shown(system) + " sURL:0xab ret:-1016");
}

TEST(EntryTrace, TheUrlIsPrintedOnSuccess)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    ProducerTrace trace(producer);
    char url[256] = "";
    size_t size = sizeof(url);
    ASSERT_EQ(producer.GCGetPortURL(system, url, &size), 0);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCGetPortURL Entry",
                            "NQGenTL 32 GCGetPortURL Exit hPort:0x" + Shown(system) + " sURL:0x" + url + " ret:0"));
}

TEST(EntryTrace, AnEventThatTheSystemDoesNotHaveIsTracedWithItsCode)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    ProducerTrace trace(producer);
    EXPECT_EQ(producer.GCRegisterEvent(system, 0, nullptr), -1003);
    EXPECT_THAT(trace.Take(),
                ElementsAre("NQGenTL 32 GCRegisterEvent Entry hEventSrc:0x" + Shown(system) + " iEventID:0 hEvent:0x0",
                            "NQGenTL 2 GCRegisterEvent Failed:-1003",
                            "NQGenTL 32 GCRegisterEvent Exit hEventSrc:0x" + Shown(system) +
                                " iEventID:0 hEvent:0x0 ret:-1003"));
}

} // namespace
