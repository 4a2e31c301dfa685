// SPDX-License-Identifier: Apache-2.0
// What a careless consumer passes to the exported functions: handles of the wrong kind, stale or invented ones, null
// pointers, sizes that do not fit and commands that do not exist. The answer is a code, and no byte beyond the size.
#include "support/guarded.h"
#include "support/open_tree.h"
#include "support/producer_calls.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

using namespace nq::test;

namespace
{

bool Begins(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

class HostileArguments : public testing::Test
{
  protected:
    HostileArguments()
    {
        EXPECT_EQ(producer.DevGetPort(tree.device, &remote), 0);
        EXPECT_EQ(producer.DSAllocAndAnnounceBuffer(tree.stream, 4096, nullptr, &buffer), 0);
        EXPECT_EQ(producer.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    }
    ~HostileArguments() override { producer.GCCloseLib(); }

    void* StaleBuffer() const
    {
        void* stale = nullptr;
        EXPECT_EQ(producer.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &stale), 0);
        EXPECT_EQ(producer.DSRevokeBuffer(tree.stream, stale, nullptr, nullptr), 0);
        return stale;
    }

    void* StaleEvent() const
    {
        void* stale = nullptr;
        EXPECT_EQ(producer.GCRegisterEvent(tree.device, GenTL::EVENT_MODULE, &stale), 0);
        EXPECT_EQ(producer.GCUnregisterEvent(tree.device, GenTL::EVENT_MODULE), 0);
        return stale;
    }

    std::vector<void*> Junk() const
    {
        static int local;
        return {nullptr,
                reinterpret_cast<void*>(1),
                reinterpret_cast<void*>(UINTPTR_MAX),
                reinterpret_cast<void*>(0xDEADBEEFDEADBEE8),
                static_cast<char*>(tree.stream) + 8,
                static_cast<char*>(tree.system) - 8,
                &local,
                StaleBuffer(),
                StaleEvent()};
    }

    Producer producer;
    OpenTree tree{producer};
    void* remote = nullptr;
    void* buffer = nullptr;
    void* event = nullptr;
};

enum class Kind
{
    Junk,
    System,
    Interface,
    Device,
    Stream,
    Remote,
    Buffer,
    Event
};

const int kNotForeign = 1;

/// What a function answers to a handle that is not of its kind, all its pointers being null.
int AnswerTo(const std::string& name, Kind kind)
{
    if (name == "GCGetInfo" || name == "GCGetLastError" || name == "TLOpen")
    {
        return -1009;
    }
    if (name == "DSGetBufferChunkData" || name == "DSGetNumBufferParts")
    {
        return -1003;
    }
    if (name.find("GetParent") != std::string::npos)
    {
        return -1009;
    }
    if (Begins(name, "GC"))
    {
        return kind == Kind::Junk || kind == Kind::Event ? -1006 : kind == Kind::Buffer ? -1003 : kNotForeign;
    }
    const bool own = (Begins(name, "TL") && kind == Kind::System) || (Begins(name, "IF") && kind == Kind::Interface) ||
                     (Begins(name, "Dev") && kind == Kind::Device) || (Begins(name, "DS") && kind == Kind::Stream) ||
                     (Begins(name, "Event") && kind == Kind::Event);
    return own ? kNotForeign : -1006;
}

TEST_F(HostileArguments, EveryFunctionRefusesAHandleThatIsInventedStaleOrOfAnotherKind)
{
    std::vector<std::pair<void*, Kind>> handles = {{tree.system, Kind::System}, {tree.interface, Kind::Interface},
                                                   {tree.device, Kind::Device}, {tree.stream, Kind::Stream},
                                                   {remote, Kind::Remote},      {buffer, Kind::Buffer},
                                                   {event, Kind::Event}};
    for (void* const junk : Junk())
    {
        handles.emplace_back(junk, Kind::Junk);
    }
    for (const auto& [handle, kind] : handles)
    {
        for (const NamedCall& one : CallsOn(producer, handle))
        {
            const int answer = AnswerTo(one.name, kind);
            if (answer != kNotForeign)
            {
                EXPECT_EQ(one.call(), answer) << one.name << " on " << handle;
            }
        }
        EXPECT_EQ(producer.DSGetBufferPartInfo(handle, handle, 0, 0, nullptr, nullptr, nullptr), -1003);
    }
    int type = 0;
    size_t size = 0;
    EXPECT_EQ(producer.DSGetInfo(tree.stream, 3, &type, nullptr, &size), 0) << "the tree still stands";
}

TEST_F(HostileArguments, AParentQueryOfAForeignHandleLeavesItsOutputAlone)
{
    std::vector<void*> handles = Junk();
    handles.insert(handles.end(), {remote, buffer, event, tree.system});
    for (void* const handle : handles)
    {
        void* parent = &tree;
        EXPECT_EQ(producer.IFGetParentTL(handle, &parent), -1006);
        EXPECT_EQ(producer.DevGetParentIF(handle, &parent), -1006);
        EXPECT_EQ(producer.DSGetParentDev(handle, &parent), -1006);
        EXPECT_EQ(parent, &tree);
    }
}

TEST_F(HostileArguments, AStreamRefusesABufferHandleThatIsNotItsOwn)
{
    std::vector<void*> handles = Junk();
    handles.insert(handles.end(), {remote, event, tree.system, tree.interface, tree.device, tree.stream});
    int type = 0;
    size_t size = 0;
    for (void* const handle : handles)
    {
        EXPECT_EQ(producer.DSRevokeBuffer(tree.stream, handle, nullptr, nullptr), -1006);
        EXPECT_EQ(producer.DSQueueBuffer(tree.stream, handle), -1006);
        EXPECT_EQ(producer.DSGetBufferInfo(tree.stream, handle, 0, &type, nullptr, &size), -1006);
    }
}

using InfoQuery = std::function<int(int command, int* type, void* buffer, size_t* size)>;

struct NamedQuery
{
    std::string name;
    InfoQuery ask;
};

std::vector<int> Commands()
{
    std::vector<int> commands;
    const auto add = [&](int first, int last) {
        for (int command = first; command <= last; ++command)
        {
            commands.push_back(command);
        }
    };
    add(-2, 40);
    add(999, 1010);
    add(0x9FFF, 0xA004);
    add(0xAFFF, 0xB009);
    commands.insert(commands.end(), {INT_MIN, INT_MAX});
    return commands;
}

/// Asks one question for its size and then with too little, enough and more than enough space.
void ExpectNoByteBeyondTheSize(const NamedQuery& query, int command)
{
    SCOPED_TRACE(query.name + " command " + std::to_string(command));
    int type = -77;
    size_t needed = SIZE_MAX;
    const int answer = query.ask(command, &type, nullptr, &needed);
    EXPECT_TRUE(answer <= 0 && answer >= -1022) << answer;
    EXPECT_EQ(query.ask(command, nullptr, nullptr, &needed), -1009);
    EXPECT_EQ(query.ask(command, &type, nullptr, nullptr), -1009);

    std::set<size_t> spaces = {0, 1, 3, 64};
    if (answer == 0)
    {
        ASSERT_GE(needed, 1U);
        ASSERT_LE(needed, 4096U);
        spaces.insert({needed - 1, needed, needed + 5});
    }
    for (const size_t space : spaces)
    {
        Guarded guarded(space);
        size_t size = space;
        const int result = query.ask(command, &type, guarded.Data(), &size);
        EXPECT_TRUE(guarded.IsIntact()) << "space " << space;
        EXPECT_EQ(result, answer != 0 ? answer : space < needed ? -1016 : 0) << "space " << space;
        if (answer == 0)
        {
            EXPECT_EQ(size, needed) << "space " << space;
        }
    }
}

class HostileQueries : public HostileArguments
{
  protected:
    std::vector<NamedQuery> Queries()
    {
        const Producer* const p = &producer;
        const OpenTree* const t = &tree;
        void* const announced = buffer;
        void* const registered = event;
        std::vector<NamedQuery> queries = {
            {"GCGetInfo", [=](int c, int* y, void* b, size_t* s) { return p->GCGetInfo(c, y, b, s); }},
            {"TLGetInfo", [=](int c, int* y, void* b, size_t* s) { return p->TLGetInfo(t->system, c, y, b, s); }},
            {"TLGetInterfaceInfo",
             [=](int c, int* y, void* b, size_t* s) {
                 return p->TLGetInterfaceInfo(t->system, t->interfaceId.c_str(), c, y, b, s);
             }},
            {"IFGetInfo", [=](int c, int* y, void* b, size_t* s) { return p->IFGetInfo(t->interface, c, y, b, s); }},
            {"IFGetDeviceInfo",
             [=](int c, int* y, void* b, size_t* s) {
                 return p->IFGetDeviceInfo(t->interface, t->deviceId.c_str(), c, y, b, s);
             }},
            {"DevGetInfo", [=](int c, int* y, void* b, size_t* s) { return p->DevGetInfo(t->device, c, y, b, s); }},
            {"DSGetInfo", [=](int c, int* y, void* b, size_t* s) { return p->DSGetInfo(t->stream, c, y, b, s); }},
            {"DSGetBufferInfo",
             [=](int c, int* y, void* b, size_t* s) { return p->DSGetBufferInfo(t->stream, announced, c, y, b, s); }},
            {"EventGetInfo",
             [=](int c, int* y, void* b, size_t* s) { return p->EventGetInfo(registered, c, y, b, s); }},
            {"EventGetDataInfo",
             [=](int c, int* y, void* b, size_t* s) {
                 const unsigned char record[16] = {};
                 return p->EventGetDataInfo(registered, record, sizeof(record), c, y, b, s);
             }},
        };
        for (void* const port : {tree.system, tree.interface, tree.device, remote, tree.stream})
        {
            queries.push_back({"GCGetPortInfo",
                               [=](int c, int* y, void* b, size_t* s) { return p->GCGetPortInfo(port, c, y, b, s); }});
            queries.push_back({"GCGetPortURLInfo", [=](int c, int* y, void* b, size_t* s) {
                                   return p->GCGetPortURLInfo(port, 0, c, y, b, s);
                               }});
        }
        return queries;
    }
};

TEST_F(HostileQueries, EveryInfoCommandGivesACodeAndNoByteBeyondTheSize)
{
    for (const NamedQuery& query : Queries())
    {
        for (const int command : Commands())
        {
            ExpectNoByteBeyondTheSize(query, command);
        }
    }
}

TEST_F(HostileQueries, EveryTextGivesACodeAndNoByteBeyondTheSize)
{
    const std::vector<std::pair<std::string, std::function<int(char*, size_t*)>>> texts = {
        {"TLGetInterfaceID",
         [&](char* text, size_t* size) { return producer.TLGetInterfaceID(tree.system, 0, text, size); }},
        {"IFGetDeviceID",
         [&](char* text, size_t* size) { return producer.IFGetDeviceID(tree.interface, 0, text, size); }},
        {"DevGetDataStreamID",
         [&](char* text, size_t* size) { return producer.DevGetDataStreamID(tree.device, 0, text, size); }},
        {"GCGetPortURL of the system",
         [&](char* text, size_t* size) { return producer.GCGetPortURL(tree.system, text, size); }},
        {"GCGetPortURL of the interface",
         [&](char* text, size_t* size) { return producer.GCGetPortURL(tree.interface, text, size); }},
        {"GCGetPortURL of the device",
         [&](char* text, size_t* size) { return producer.GCGetPortURL(tree.device, text, size); }},
        {"GCGetPortURL of the remote device",
         [&](char* text, size_t* size) { return producer.GCGetPortURL(remote, text, size); }},
        {"GCGetPortURL of the stream",
         [&](char* text, size_t* size) { return producer.GCGetPortURL(tree.stream, text, size); }},
    };
    for (const auto& [name, ask] : texts)
    {
        SCOPED_TRACE(name);
        EXPECT_EQ(ask(nullptr, nullptr), -1009);
        size_t needed = SIZE_MAX;
        ASSERT_EQ(ask(nullptr, &needed), 0);
        ASSERT_GE(needed, 1U);
        for (const size_t space : std::set<size_t>{0, 1, needed - 1, needed, needed + 5})
        {
            Guarded guarded(space);
            size_t size = space;
            EXPECT_EQ(ask(guarded.Text(), &size), space < needed ? -1016 : 0) << space;
            EXPECT_EQ(size, needed) << space;
            EXPECT_TRUE(guarded.IsIntact()) << space;
        }
    }
}

TEST_F(HostileArguments, AnIndexFarPastTheEndIsInvalid)
{
    char text[64];
    for (const uint32_t index : {1000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    {
        int type = 0;
        size_t size = sizeof(text);
        void* handle = nullptr;
        EXPECT_EQ(producer.TLGetInterfaceID(tree.system, index, text, &size), -1017);
        EXPECT_EQ(producer.IFGetDeviceID(tree.interface, index, text, &size), -1017);
        EXPECT_EQ(producer.DevGetDataStreamID(tree.device, index, text, &size), -1017);
        EXPECT_EQ(producer.DSGetBufferID(tree.stream, index, &handle), -1017);
        for (void* const port : {tree.system, tree.interface, tree.device, remote, tree.stream})
        {
            EXPECT_EQ(producer.GCGetPortURLInfo(port, index, 0, &type, text, &size), -1017);
        }
    }
}

TEST_F(HostileArguments, ANullPointerIsRefusedWhereverOneIsNeeded)
{
    const Producer& p = producer;
    size_t size = 64;
    uint32_t count = 0;
    void* handle = nullptr;
    char text[64] = "";
    GenTL::S_PORT_REGISTER_STACK_ENTRY entry = {0x10000, nullptr, 4};
    size_t entries = 1;
    const char* const id = tree.interfaceId.c_str();
    const char* const device = tree.deviceId.c_str();
    const std::vector<std::pair<int, int>> answers = {
        {p.GCGetLastError(nullptr, text, &size), -1009},
        {p.GCGetLastError(reinterpret_cast<int*>(&count), text, nullptr), -1009},
        {p.GCRegisterEvent(tree.interface, GenTL::EVENT_ERROR, nullptr), -1009},
        {p.EventGetData(event, text, nullptr, 0), -1009},
        {p.EventGetData(event, nullptr, &size, 0), -1011},
        {p.TLOpen(nullptr), -1009},
        {p.TLGetNumInterfaces(tree.system, nullptr), -1009},
        {p.TLOpenInterface(tree.system, nullptr, &handle), -1009},
        {p.TLOpenInterface(tree.system, id, nullptr), -1009},
        {p.TLUpdateInterfaceList(tree.system, nullptr, 0), 0},
        {p.IFGetNumDevices(tree.interface, nullptr), -1009},
        {p.IFOpenDevice(tree.interface, nullptr, 3, &handle), -1009},
        {p.IFOpenDevice(tree.interface, device, 3, nullptr), -1009},
        {p.DevGetPort(tree.device, nullptr), -1009},
        {p.DevGetNumDataStreams(tree.device, nullptr), -1009},
        {p.DevOpenDataStream(tree.device, nullptr, &handle), -1009},
        {p.DevOpenDataStream(tree.device, "0", nullptr), -1009},
        {p.DSAnnounceBuffer(tree.stream, nullptr, 64, nullptr, &handle), -1009},
        {p.DSAnnounceBuffer(tree.stream, text, 64, nullptr, nullptr), -1009},
        {p.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, nullptr), -1009},
        {p.DSGetBufferID(tree.stream, 0, nullptr), -1009},
    };
    for (size_t row = 0; row < answers.size(); ++row)
    {
        EXPECT_EQ(answers[row].first, answers[row].second) << "row " << row;
    }
    for (void* const port : {tree.system, tree.interface, tree.device, remote, tree.stream})
    {
        EXPECT_EQ(p.GCReadPort(port, 0x10000, nullptr, &size), -1009);
        EXPECT_EQ(p.GCReadPort(port, 0x10000, text, nullptr), -1009);
        EXPECT_EQ(p.GCWritePort(port, 0x10000, nullptr, &size), -1009);
        EXPECT_EQ(p.GCWritePort(port, 0x10000, text, nullptr), -1009);
        EXPECT_EQ(p.GCGetNumPortURLs(port, nullptr), -1009);
        EXPECT_EQ(p.GCReadPortStacked(port, nullptr, &entries), -1009);
        EXPECT_EQ(p.GCReadPortStacked(port, &entry, nullptr), -1009);
        EXPECT_EQ(p.GCReadPortStacked(port, &entry, &entries), -1009) << "an entry without a buffer";
        EXPECT_EQ(p.GCWritePortStacked(port, nullptr, &entries), -1009);
        EXPECT_EQ(p.GCWritePortStacked(port, &entry, nullptr), -1009);
        EXPECT_EQ(p.GCWritePortStacked(port, &entry, &entries), -1009) << "an entry without a buffer";
    }
}

TEST_F(HostileArguments, TheDescriptionIsReadInAnySizeWithoutAByteBeyondIt)
{
    for (void* const port : {tree.system, tree.interface, tree.device, tree.stream})
    {
        Guarded one(1);
        size_t size = 1;
        EXPECT_EQ(producer.GCReadPort(port, 0x10000, one.Data(), &size), 0);
        EXPECT_EQ(one.Text()[0], '<');
        EXPECT_TRUE(one.IsIntact());

        Guarded none(0);
        size = 0;
        EXPECT_EQ(producer.GCReadPort(port, 0x10000, none.Data(), &size), 0);
        EXPECT_TRUE(none.IsIntact());

        Guarded all(1 << 20);
        size = SIZE_MAX;
        EXPECT_EQ(producer.GCReadPort(port, 0x10000, all.Data(), &size), 0);
        EXPECT_TRUE(all.IsIntact());
        EXPECT_THAT(std::string(all.Text()), testing::EndsWith("</RegisterDescription>\n"));
    }
}

TEST_F(HostileArguments, AnEventBufferOfAnySizeIsEitherTooSmallOrEnough)
{
    for (const size_t space : {0U, 1U, 15U})
    {
        Guarded guarded(space);
        size_t size = space;
        EXPECT_EQ(producer.EventGetData(event, guarded.Data(), &size, 0), -1016);
        EXPECT_EQ(size, 16U);
        EXPECT_TRUE(guarded.IsIntact());
    }
    Guarded guarded(0);
    size_t size = SIZE_MAX;
    EXPECT_EQ(producer.EventGetData(event, guarded.Data(), &size, 0), -1011);
    EXPECT_TRUE(guarded.IsIntact());
}

} // namespace
