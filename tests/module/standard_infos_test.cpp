// SPDX-License-Identifier: Apache-2.0
// The standard's answers of calls that need no stream: what they write into the consumer's memory.
#include "support/guarded.h"
#include "support/info_rows.h"
#include "support/open_tree.h"
#include "support/standard_answers.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace nq::test;

namespace
{

struct NamedQuery
{
    std::string name;
    InfoQuery ask;
    int command;
};

class StandardInfos : public testing::Test
{
  protected:
    ~StandardInfos() override { p.GCCloseLib(); }

    /// One command of each function that answers by type, buffer and size, and each that gives an id.
    std::vector<NamedQuery> Queries()
    {
        EXPECT_EQ(p.DSAnnounceBuffer(tree.stream, memory, sizeof memory, nullptr, &buffer), 0);
        EXPECT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
        return {
            {"GCGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.GCGetInfo(c, t, b, s); }, 0},
            {"TLGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.TLGetInfo(tree.system, c, t, b, s); }, 9},
            {"TLGetInterfaceInfo",
             [&](int c, int* t, void* b, size_t* s) {
                 return p.TLGetInterfaceInfo(tree.system, tree.interfaceId.c_str(), c, t, b, s);
             },
             1},
            {"IFGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.IFGetInfo(tree.interface, c, t, b, s); },
             0},
            {"IFGetDeviceInfo",
             [&](int c, int* t, void* b, size_t* s) {
                 return p.IFGetDeviceInfo(tree.interface, tree.deviceId.c_str(), c, t, b, s);
             },
             0},
            {"DevGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.DevGetInfo(tree.device, c, t, b, s); }, 5},
            {"DSGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.DSGetInfo(tree.stream, c, t, b, s); }, 9},
            {"DSGetBufferInfo",
             [&](int c, int* t, void* b, size_t* s) { return p.DSGetBufferInfo(tree.stream, buffer, c, t, b, s); }, 1},
            {"GCGetPortInfo",
             [&](int c, int* t, void* b, size_t* s) { return p.GCGetPortInfo(tree.system, c, t, b, s); }, 12},
            {"GCGetPortURLInfo",
             [&](int c, int* t, void* b, size_t* s) { return p.GCGetPortURLInfo(tree.system, 0, c, t, b, s); }, 0},
            {"EventGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.EventGetInfo(event, c, t, b, s); }, 3},
            {"EventGetDataInfo",
             [&](int c, int* t, void* b, size_t* s) { return p.EventGetDataInfo(event, memory, 16, c, t, b, s); }, 0},
            {"TLGetInterfaceID",
             [&](int, int*, void* b, size_t* s) {
                 return p.TLGetInterfaceID(tree.system, 0, static_cast<char*>(b), s);
             },
             0},
            {"IFGetDeviceID",
             [&](int, int*, void* b, size_t* s) {
                 return p.IFGetDeviceID(tree.interface, 0, static_cast<char*>(b), s);
             },
             0},
            {"DevGetDataStreamID",
             [&](int, int*, void* b, size_t* s) {
                 return p.DevGetDataStreamID(tree.device, 0, static_cast<char*>(b), s);
             },
             0},
        };
    }

    /// What a read of `space` bytes gives, and its code.
    std::pair<int, std::string> Read(void* port, std::uint64_t address, std::size_t space)
    {
        Guarded bytes(space);
        std::size_t size = space;
        const int code = p.GCReadPort(port, address, bytes.Data(), &size);
        EXPECT_TRUE(bytes.IsIntact());
        return {code, bytes.Bytes()};
    }

    static std::string Padded(const std::string& text, std::size_t size)
    {
        return text + std::string(size - text.size(), '\0');
    }

    const StandardAnswers asked;
    Producer p;
    OpenTree tree{p};
    unsigned char memory[48] = {};
    void* buffer = nullptr;
    void* event = nullptr;
};

TEST_F(StandardInfos, AnInfoCallWritesTheBytesOfItsValueAndNoMore)
{
    for (const NamedQuery& query : Queries())
    {
        SCOPED_TRACE(query.name);
        int type = 0;
        std::size_t needed = 0;
        ASSERT_EQ(query.ask(query.command, &type, nullptr, &needed), 0);
        ASSERT_NE(needed, 0U);

        Guarded whole(needed + 9);
        std::size_t size = needed + 9;
        EXPECT_EQ(query.ask(query.command, &type, whole.Data(), &size), 0);
        EXPECT_EQ(size, needed);
        EXPECT_EQ(whole.Bytes().substr(needed), std::string(9, '\xA5'));

        Guarded small(needed - 1);
        size = needed - 1;
        EXPECT_EQ(query.ask(query.command, &type, small.Data(), &size), -1016);
        EXPECT_EQ(small.Bytes(), std::string(needed - 1, '\xA5'));
    }
}

TEST_F(StandardInfos, ASizeThatNobodySetIsNoHarm)
{
    for (const NamedQuery& query : Queries())
    {
        SCOPED_TRACE(query.name);
        int type = 0;
        std::size_t needed = 0;
        ASSERT_EQ(query.ask(query.command, &type, nullptr, &needed), 0);
        Guarded exact(needed);
        std::size_t size = SIZE_MAX;
        EXPECT_EQ(query.ask(query.command, &type, exact.Data(), &size), 0);
        EXPECT_EQ(size, needed);
        EXPECT_TRUE(exact.IsIntact());
    }
}

TEST_F(StandardInfos, AnUnknownCommandWritesNothing)
{
    for (const NamedQuery& query : Queries())
    {
        if (query.name.ends_with("ID"))
        {
            continue;
        }
        SCOPED_TRACE(query.name);
        int type = -77;
        Guarded untouched(9);
        std::size_t size = 9;
        EXPECT_NE(query.ask(999, &type, untouched.Data(), &size), 0);
        EXPECT_EQ(untouched.Bytes(), std::string(9, '\xA5'));
    }
}

TEST_F(StandardInfos, ThePayloadSizeIsASize)
{
    std::size_t payload = 1;
    std::size_t size = sizeof payload;
    int type = 0;
    ASSERT_EQ(p.DSGetInfo(tree.stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, &type, &payload, &size), 0);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(payload, 0U) << "this camera has no settings";
    EXPECT_EQ(p.DSGetInfo(tree.stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, &type, nullptr, &size), 0);
    EXPECT_EQ(type, 12);
}

TEST_F(StandardInfos, TheNameOfTheLibraryIsThatOfItsFile)
{
    const std::string path = std::filesystem::canonical(NQ_CTI_PATH);
    char name[256] = {};
    for (const bool ofSystem : {false, true})
    {
        int type = 0;
        std::size_t size = sizeof name;
        ASSERT_EQ(ofSystem ? p.TLGetInfo(tree.system, GenTL::TL_INFO_NAME, &type, name, &size)
                           : p.GCGetInfo(GenTL::TL_INFO_NAME, &type, name, &size),
                  0);
        EXPECT_EQ(name, path.substr(path.rfind('/') + 1));
    }
}

TEST_F(StandardInfos, ARegisterIsFilledUpWithZeros)
{
    const std::string mac = tree.interfaceId.substr(tree.interfaceId.find(':') + 1);
    using Result = std::pair<int, std::string>;
    EXPECT_EQ(Read(tree.system, 0x50200, 64), Result(0, Padded("NQGenTLGevRDMA", 64)));
    EXPECT_EQ(Read(tree.interface, 0x60000, 64), Result(0, Padded("Linux Socket:" + mac, 64)));
    EXPECT_EQ(Read(tree.device, 0x70000, 64), Result(0, Padded("Model:02-00-00-00-00-09", 64)));
    EXPECT_EQ(Read(tree.device, 0x70308, 64), Result(0, Padded("Stream:0", 64)));
    EXPECT_EQ(Read(tree.stream, 0x80000, 64), Result(0, Padded("Stream:0", 64)));
    EXPECT_EQ(Read(tree.stream, 0x80150, 4), Result(0, std::string(4, '\0')))
        << "a register made of an info of one byte";
}

TEST_F(StandardInfos, EveryEntryOfAStackIsFilledUpWithZeros)
{
    Guarded first(32);
    Guarded second(32);
    GenTL::S_PORT_REGISTER_STACK_ENTRY entries[] = {{0x70000, first.Data(), 32}, {0x70100, second.Data(), 32}};
    std::size_t count = 2;
    EXPECT_EQ(p.GCReadPortStacked(tree.device, entries, &count), 0);
    EXPECT_EQ(first.Bytes(), Padded("Model:02-00-00-00-00-09", 32));
    EXPECT_EQ(second.Bytes(), Padded("Vendor", 32));
}

/// What DevGetInfo says of the camera's clock: its code, type and value.
struct Clock
{
    int code;
    int type;
    std::uint64_t hertz;
    bool operator==(const Clock&) const = default;
};

Clock ClockOf(const Producer& p, void* device)
{
    Clock clock{0, 0, 0};
    std::size_t size = sizeof clock.hertz;
    clock.code = p.DevGetInfo(device, GenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY, &clock.type, &clock.hertz, &size);
    return clock;
}

TEST_F(StandardInfos, TheFrequencyIsTheCamerasNumber)
{
    tree.camera.SetRegister(0x093C, 0x00000001);
    tree.camera.SetRegister(0x0940, 0x3B9ACA00);
    EXPECT_EQ(ClockOf(p, tree.device), (Clock{0, 8, 5294967296}));
}

TEST_F(StandardInfos, AFrequencyOfNoneIsNotAvailable)
{
    tree.camera.SetRegister(0x093C, 0);
    tree.camera.SetRegister(0x0940, 0);
    EXPECT_EQ(ClockOf(p, tree.device), (Clock{-1014, 0, 0}));
}

} // namespace
