// SPDX-License-Identifier: Apache-2.0
// What a careless consumer passes beside handles: ids of every wrong shape, events, flags and operations that do not
// exist, registers in every space, stacks of any length; and that a refused call writes nothing at all.
#include "support/guarded.h"
#include "support/open_tree.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

using namespace nq::test;

namespace
{

class HostileValues : public testing::Test
{
  protected:
    HostileValues()
    {
        EXPECT_EQ(p.DevGetPort(tree.device, &remote), 0);
        EXPECT_EQ(p.DSAllocAndAnnounceBuffer(tree.stream, 4096, nullptr, &buffer), 0);
    }
    ~HostileValues() override { p.GCCloseLib(); }

    Producer p;
    OpenTree tree{p};
    void* remote = nullptr;
    void* buffer = nullptr;
};

/// Numbers from -2 to 40 and those around and behind the ones that mean something.
std::set<int> Numbers()
{
    std::set<int> numbers = {INT_MIN, INT_MAX, 999, 1000, 1001, 3999, 4000, 4001, 4999, 5000, 5001, 10000};
    for (int number = -2; number <= 40; ++number)
    {
        numbers.insert(number);
    }
    return numbers;
}

/// Shapes that are not `id`.
std::vector<std::string> WrongShapesOf(const std::string& id)
{
    std::string otherCase = id;
    for (char& letter : otherCase)
    {
        letter = static_cast<char>(letter ^ (std::isalpha(static_cast<unsigned char>(letter)) != 0 ? 0x20 : 0));
    }
    return {"",
            " ",
            " " + id,
            id + " ",
            id + "\n",
            id.substr(0, id.size() - 1),
            id.substr(1),
            id + id,
            otherCase,
            "%s%s%s%n%n",
            "../../../../etc/passwd",
            "\xff\xfe\x80\x01",
            std::string(300, 'x'),
            std::string(1 << 20, 'A'),
            "0",
            "NQGenTLGevRDMA"};
}

TEST_F(HostileValues, AnIdOfAWrongShapeIsInvalidAndWritesNothing)
{
    for (const std::string& id : WrongShapesOf(tree.interfaceId))
    {
        Guarded answer(64);
        void* handle = &tree;
        int type = -77;
        size_t size = 64;
        EXPECT_EQ(p.TLGetInterfaceInfo(tree.system, id.c_str(), 0, &type, answer.Data(), &size), -1007) << id;
        EXPECT_EQ(p.TLOpenInterface(tree.system, id.c_str(), &handle), -1007) << id;
        EXPECT_EQ(answer.Bytes(), std::string(64, '\xA5'));
        EXPECT_EQ(type, -77);
        EXPECT_EQ(size, 64U);
        EXPECT_EQ(handle, &tree);
    }
    for (const std::string& id : WrongShapesOf(tree.deviceId))
    {
        Guarded answer(64);
        int type = -77;
        size_t size = 64;
        EXPECT_EQ(p.IFGetDeviceInfo(tree.interface, id.c_str(), 0, &type, answer.Data(), &size), -1007) << id;
        EXPECT_EQ(answer.Bytes(), std::string(64, '\xA5'));
        EXPECT_EQ(type, -77);
        EXPECT_EQ(size, 64U);
    }
    for (const std::string& id : WrongShapesOf("Stream:0"))
    {
        void* handle = &tree;
        EXPECT_EQ(p.DevOpenDataStream(tree.device, id.c_str(), &handle), -1007) << id;
        EXPECT_EQ(handle, &tree);
    }
}

TEST_F(HostileValues, ADeviceIdOfAWrongShapeIsLookedForAndNotFound)
{
    // Each takes a scan of two seconds.
    for (const std::string& id : {std::string(), tree.deviceId + " ", std::string(1 << 20, 'A')})
    {
        void* handle = &tree;
        EXPECT_EQ(p.IFOpenDevice(tree.interface, id.c_str(), 3, &handle), -1007);
        EXPECT_EQ(handle, &tree);
    }
}

TEST_F(HostileValues, EachModuleTakesItsOwnEventsAndNoOthers)
{
    struct Source
    {
        const char* name;
        void* handle;
        std::set<int> events;
    };
    for (const Source& source : {Source{"system", tree.system, {}}, Source{"interface", tree.interface, {0}},
                                 Source{"device", tree.device, {4, 5, 4000}}, Source{"remote device", remote, {}},
                                 Source{"stream", tree.stream, {1, 5}}, Source{"buffer", buffer, {}}})
    {
        for (const int id : Numbers())
        {
            SCOPED_TRACE(source.name + std::string(", event ") + std::to_string(id));
            void* event = &tree;
            if (source.events.contains(id))
            {
                EXPECT_EQ(p.GCUnregisterEvent(source.handle, id), -1002);
                EXPECT_EQ(p.GCRegisterEvent(source.handle, id, nullptr), -1009);
                EXPECT_EQ(p.GCRegisterEvent(source.handle, id, &event), 0);
                EXPECT_NE(event, &tree);
                void* second = &tree;
                EXPECT_EQ(p.GCRegisterEvent(source.handle, id, &second), -1004);
                EXPECT_EQ(second, &tree);
                EXPECT_EQ(p.GCUnregisterEvent(source.handle, id), 0);
                EXPECT_EQ(p.GCUnregisterEvent(source.handle, id), -1002);
            }
            else
            {
                EXPECT_EQ(p.GCRegisterEvent(source.handle, id, &event), -1003);
                EXPECT_EQ(event, &tree);
                EXPECT_EQ(p.GCUnregisterEvent(source.handle, id), -1003);
            }
        }
    }
}

TEST_F(HostileValues, OperationsAndFlagsThatDoNotExistAreNotImplemented)
{
    for (const int number : Numbers())
    {
        SCOPED_TRACE(number);
        EXPECT_EQ(p.DSFlushQueue(tree.stream, number), number >= 0 && number <= 4 ? 0 : -1003);
        EXPECT_EQ(p.DSStopAcquisition(tree.stream, number), number <= 1 ? -1004 : -1003);
        EXPECT_EQ(p.DSStartAcquisition(tree.stream, number, 0), -1009) << "the flags are not read";
    }
}

TEST_F(HostileValues, ARefusedHandleWritesNothing)
{
    int wild = 0;
    for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(&wild), buffer})
    {
        int type = -77;
        size_t size = 64;
        uint32_t count = 77;
        GenTL::bool8_t changed = true;
        void* output = &tree;
        void* output2 = &tree;
        Guarded answer(64);
        void* const bytes = answer.Data();
        char* const text = answer.Text();
        const char record[16] = {};
        const std::vector<int> results = {
            p.EventGetData(handle, bytes, &size, 0),
            p.EventGetDataInfo(handle, record, sizeof record, 0, &type, bytes, &size),
            p.EventGetInfo(handle, 0, &type, bytes, &size),
            p.TLGetInfo(handle, 0, &type, bytes, &size),
            p.TLGetNumInterfaces(handle, &count),
            p.TLGetInterfaceID(handle, 0, text, &size),
            p.TLGetInterfaceInfo(handle, tree.interfaceId.c_str(), 0, &type, bytes, &size),
            p.TLOpenInterface(handle, tree.interfaceId.c_str(), &output),
            p.TLUpdateInterfaceList(handle, &changed, 0),
            p.IFGetInfo(handle, 0, &type, bytes, &size),
            p.IFGetNumDevices(handle, &count),
            p.IFGetDeviceID(handle, 0, text, &size),
            p.IFUpdateDeviceList(handle, &changed, 0),
            p.IFGetDeviceInfo(handle, tree.deviceId.c_str(), 0, &type, bytes, &size),
            p.IFOpenDevice(handle, tree.deviceId.c_str(), 3, &output),
            p.DevGetPort(handle, &output),
            p.DevGetNumDataStreams(handle, &count),
            p.DevGetDataStreamID(handle, 0, text, &size),
            p.DevOpenDataStream(handle, "Stream:0", &output),
            p.DevGetInfo(handle, 0, &type, bytes, &size),
            p.DSAnnounceBuffer(handle, bytes, 64, nullptr, &output),
            p.DSAllocAndAnnounceBuffer(handle, 64, nullptr, &output),
            p.DSRevokeBuffer(handle, buffer, &output, &output2),
            p.DSRevokeBuffer(tree.stream, &wild, &output, &output2),
            p.DSGetInfo(handle, 0, &type, bytes, &size),
            p.DSGetBufferID(handle, 0, &output),
            p.DSGetBufferInfo(handle, buffer, 0, &type, bytes, &size),
            p.DSGetBufferInfo(tree.stream, &wild, 0, &type, bytes, &size),
            p.IFGetParentTL(handle, &output),
            p.DevGetParentIF(handle, &output),
            p.DSGetParentDev(handle, &output),
        };
        EXPECT_THAT(results, testing::Each(-1006));
        EXPECT_EQ(answer.Bytes(), std::string(64, '\xA5'));
        EXPECT_TRUE(answer.IsIntact());
        EXPECT_EQ(type, -77);
        EXPECT_EQ(size, 64U);
        EXPECT_EQ(count, 77U);
        EXPECT_TRUE(changed);
        EXPECT_EQ(output, &tree);
        EXPECT_EQ(output2, &tree);
    }
}

TEST_F(HostileValues, ARefusedPortWritesNothing)
{
    int wild = 0;
    for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(&wild), buffer})
    {
        int type = -77;
        size_t size = 64;
        uint32_t count = 77;
        void* output = &tree;
        Guarded answer(64);
        void* const bytes = answer.Data();
        char* const text = answer.Text();
        const int port = handle == buffer ? -1003 : -1006;
        GenTL::S_PORT_REGISTER_STACK_ENTRY entry = {0x10000, bytes, 64};
        size_t entries = 1;
        EXPECT_EQ(p.GCReadPort(handle, 0x10000, bytes, &size), port);
        EXPECT_EQ(p.GCGetPortURL(handle, text, &size), port);
        EXPECT_EQ(p.GCGetPortInfo(handle, 0, &type, bytes, &size), port);
        EXPECT_EQ(p.GCGetNumPortURLs(handle, &count), port);
        EXPECT_EQ(p.GCGetPortURLInfo(handle, 0, 0, &type, bytes, &size), port);
        EXPECT_EQ(p.GCReadPortStacked(handle, &entry, &entries), port);
        EXPECT_EQ(p.GCRegisterEvent(handle, 1, &output), port);
        EXPECT_EQ(answer.Bytes(), std::string(64, '\xA5'));
        EXPECT_TRUE(answer.IsIntact());
        EXPECT_EQ(type, -77);
        EXPECT_EQ(size, 64U);
        EXPECT_EQ(count, 77U);
        EXPECT_EQ(output, &tree);
        EXPECT_EQ(entries, 1U);
        EXPECT_EQ(entry.Size, 64U);
    }
}

TEST_F(HostileValues, TheLastErrorIsWrittenWholeOrNotAtAll)
{
    ASSERT_EQ(p.TLClose(nullptr), -1006); // "GC_ERR_INVALID_HANDLE" and its NUL are 22 bytes
    for (const size_t space : {0U, 1U, 21U, 22U, 23U, 60U})
    {
        Guarded text(space);
        int code = -77;
        size_t size = space;
        const bool fits = space >= 22;
        EXPECT_EQ(p.GCGetLastError(&code, text.Text(), &size), fits ? 0 : -1016);
        EXPECT_EQ(code, fits ? -1006 : -77);
        EXPECT_EQ(size, fits ? 22U : space);
        const std::string expected = fits ? std::string("GC_ERR_INVALID_HANDLE\0", 22) : std::string();
        EXPECT_EQ(text.Bytes(), expected + std::string(space - expected.size(), '\xA5'));
        EXPECT_TRUE(text.IsIntact());
    }
}

TEST_F(HostileValues, BuffersOfAnySizeAreAnnounced)
{
    unsigned char memory[6];
    size_t index = 0;
    for (const size_t announced : {size_t{0}, size_t{1}, size_t{0x7FFFFFFF}, size_t{0x100000000}, SIZE_MAX})
    {
        for (void* const base : {static_cast<void*>(nullptr), static_cast<void*>(&memory[index])})
        {
            void* handle = nullptr;
            EXPECT_EQ(base == nullptr ? p.DSAllocAndAnnounceBuffer(tree.stream, announced, nullptr, &handle)
                                      : p.DSAnnounceBuffer(tree.stream, base, announced, nullptr, &handle),
                      0);
            int type = 0;
            size_t told = 0;
            size_t size = sizeof told;
            EXPECT_EQ(p.DSGetBufferInfo(tree.stream, handle, 1, &type, &told, &size), 0);
            EXPECT_EQ(told, announced);
            void* revoked = &tree;
            EXPECT_EQ(p.DSRevokeBuffer(tree.stream, handle, &revoked, nullptr), 0);
            EXPECT_EQ(revoked, base);
        }
        ++index;
    }
}

TEST_F(HostileValues, TheIndexEqualToTheCountIsInvalidAndWritesNothing)
{
    uint32_t interfaces = 0;
    ASSERT_EQ(p.TLGetNumInterfaces(tree.system, &interfaces), 0);
    Guarded answer(64);
    size_t size = 64;
    int type = -77;
    void* handle = &tree;
    EXPECT_EQ(p.TLGetInterfaceID(tree.system, interfaces, answer.Text(), &size), -1017);
    EXPECT_EQ(p.IFGetDeviceID(tree.interface, 1, answer.Text(), &size), -1017);
    EXPECT_EQ(p.DevGetDataStreamID(tree.device, 1, answer.Text(), &size), -1017);
    EXPECT_EQ(p.DSGetBufferID(tree.stream, 1, &handle), -1017);
    for (void* const port : {tree.system, tree.interface, tree.device, tree.stream})
    {
        EXPECT_EQ(p.GCGetPortURLInfo(port, 1, 0, &type, answer.Data(), &size), -1017);
    }
    EXPECT_EQ(p.GCGetPortURLInfo(remote, 2, 0, &type, answer.Data(), &size), -1017);
    EXPECT_EQ(answer.Bytes(), std::string(64, '\xA5'));
    EXPECT_EQ(size, 64U);
    EXPECT_EQ(type, -77);
    EXPECT_EQ(handle, &tree);
}

TEST_F(HostileValues, AStackOfNoEntriesSucceedsAndALongOneEndsAtItsFirstFailure)
{
    auto* const nowhere = reinterpret_cast<GenTL::S_PORT_REGISTER_STACK_ENTRY*>(8);
    for (void* const port : {tree.system, tree.interface, tree.device, remote, tree.stream})
    {
        size_t entries = 0;
        EXPECT_EQ(p.GCReadPortStacked(port, nowhere, &entries), 0);
        EXPECT_EQ(p.GCWritePortStacked(port, nowhere, &entries), 0);
        EXPECT_EQ(entries, 0U);

        uint32_t value = 0;
        GenTL::S_PORT_REGISTER_STACK_ENTRY entry = {0x10000, nullptr, sizeof value};
        entries = SIZE_MAX;
        EXPECT_EQ(p.GCReadPortStacked(port, &entry, &entries), -1009);
        EXPECT_EQ(p.GCWritePortStacked(port, &entry, &entries), -1009);
        EXPECT_EQ(entries, SIZE_MAX) << "the count is kept";
    }
}

TEST_F(HostileValues, AStackThatFailsHasDoneWhatComesBefore)
{
    uint32_t values[3] = {1, 2, 3};
    GenTL::S_PORT_REGISTER_STACK_ENTRY writes[3] = {
        {0x80434, &values[0], 4}, {0x80108, &values[1], 4}, {0x80434, &values[2], 4}};
    size_t entries = 3;
    EXPECT_EQ(p.GCWritePortStacked(tree.stream, writes, &entries), -1005);
    EXPECT_EQ(entries, 3U);
    uint32_t before = 0;
    uint32_t behind = 77;
    GenTL::S_PORT_REGISTER_STACK_ENTRY reads[3] = {
        {0x80434, &before, 100}, {0x10100, &behind, 4}, {0x80434, &behind, 4}};
    EXPECT_EQ(p.GCReadPortStacked(tree.stream, reads, &entries), -1015);
    EXPECT_EQ(entries, 3U);
    EXPECT_EQ(before, 1U);
    EXPECT_EQ(behind, 77U);
    EXPECT_EQ(reads[0].Size, 100U) << "sizes are not handed back";
}

TEST_F(HostileValues, ARegisterOfAStreamIsReadWholeOrNotAtAll)
{
    struct Register
    {
        unsigned long address;
        size_t width;
        char first;
        char rest; ///< what a read that is too short leaves
    };
    const char cleared = '\0';
    const char alone = '\xA5';
    for (const Register& one :
         {Register{0x80000, 2, '0', cleared}, Register{0x80100, 4, 1, alone}, Register{0x80104, 4, 0, alone},
          Register{0x80108, 4, 1, alone}, Register{0x8010C, 8, 0, cleared}, Register{0x80110, 8, 0, alone},
          Register{0x80114, 8, 0, alone}, Register{0x8042C, 8, 0, cleared}, Register{0x80430, 8, 0, alone},
          Register{0x80434, 4, '\xE8', alone}})
    {
        for (const size_t space : {size_t{0}, size_t{1}, one.width - 1, one.width, one.width + 5})
        {
            SCOPED_TRACE(std::to_string(one.address) + " in " + std::to_string(space));
            Guarded answer(space);
            size_t size = space;
            EXPECT_EQ(p.GCReadPort(tree.stream, one.address, answer.Data(), &size), space < one.width ? -1016 : 0);
            EXPECT_EQ(size, one.width);
            EXPECT_TRUE(answer.IsIntact());
            if (space < one.width)
            {
                EXPECT_EQ(answer.Bytes(), std::string(space, one.rest));
            }
            else
            {
                EXPECT_EQ(answer.Bytes()[0], one.first);
                EXPECT_EQ(answer.Bytes().substr(one.width), std::string(space - one.width, one.rest));
            }
        }
        uint64_t value = 0;
        size_t size = SIZE_MAX;
        if (one.rest == alone)
        {
            EXPECT_EQ(p.GCReadPort(tree.stream, one.address, &value, &size), 0) << "any size that is said to be there";
            EXPECT_EQ(size, one.width);
        }
    }
}

TEST_F(HostileValues, NoAddressOfAnyPortWritesBeyondItsSpace)
{
    std::set<uint64_t> addresses = {0, 1, 0xFFFF, 0x10001, 0x10100, 0x10104, UINT64_MAX, 0x100010000};
    for (const uint64_t block : {0x50000U, 0x60000U, 0x70000U, 0x80000U})
    {
        for (uint64_t offset = 0; offset < 0x640; offset += 4)
        {
            addresses.insert(block + offset);
        }
    }
    for (void* const port : {tree.system, tree.interface, tree.device, tree.stream})
    {
        for (const uint64_t address : addresses)
        {
            for (const size_t space : {0U, 1U, 4U, 600U})
            {
                Guarded answer(space);
                size_t size = space;
                const int result = p.GCReadPort(port, address, answer.Data(), &size);
                EXPECT_TRUE(result <= 0 && result >= -1022) << std::hex << address << ": " << std::dec << result;
                EXPECT_TRUE(answer.IsIntact()) << std::hex << address;
            }
        }
    }
}

} // namespace
