// SPDX-License-Identifier: Apache-2.0
// The ports of the modules as the standard has them: any range inside a register or the description, and nothing else.
#include "support/guarded.h"
#include "support/open_tree.h"
#include "support/standard_answers.h"
#include "support/temporary_folder.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

using namespace nq::test;

namespace
{

using Result = std::pair<int, std::string>;

std::string Word(std::uint32_t value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

class StandardPorts : public testing::Test
{
  protected:
    ~StandardPorts() override { p.GCCloseLib(); }

    /// The code of a read and what it left in memory that was all 0xA5. The size never changes.
    Result Read(void* port, std::uint64_t address, std::size_t space)
    {
        Guarded bytes(space);
        std::size_t size = space;
        const int code = p.GCReadPort(port, address, bytes.Data(), &size);
        EXPECT_EQ(size, space);
        EXPECT_TRUE(bytes.IsIntact());
        return {code, bytes.Bytes()};
    }

    int Write(void* port, std::uint64_t address, const std::string& bytes)
    {
        std::size_t size = bytes.size();
        const int code = p.GCWritePort(port, address, bytes.data(), &size);
        EXPECT_EQ(size, bytes.size());
        return code;
    }

    const StandardAnswers asked;
    Producer p;
    OpenTree tree{p};
};

const std::string kUntouched4(4, '\xA5');

TEST_F(StandardPorts, ATextIsReadInAnyPieceAndFilledUpWithZeros)
{
    const std::string id = "Model:02-00-00-00-00-09";
    EXPECT_EQ(Read(tree.device, 0x70000, 256), Result(0, id + std::string(256 - id.size(), '\0')));
    EXPECT_EQ(Read(tree.device, 0x70000, 5), Result(0, "Model"));
    EXPECT_EQ(Read(tree.device, 0x70006, 2), Result(0, "02"));
    EXPECT_EQ(Read(tree.device, 0x700FF, 1), Result(0, std::string(1, '\0')));
    EXPECT_EQ(Read(tree.device, 0x700FF, 2).first, -1015) << "beyond the register";
    EXPECT_EQ(Read(tree.device, 0x70000, 257).first, -1015);
}

TEST(StandardPath, IsReadHoweverLongItIs)
{
    const StandardAnswers asked;
    const TemporaryFolder folder;
    std::string path = folder.Path();
    while (path.size() < 400)
    {
        path += "/" + std::string(99, 'p');
    }
    std::filesystem::create_directories(path);
    path += "/producer.cti";
    std::filesystem::copy_file(std::filesystem::canonical(NQ_CTI_PATH), path);
    const Producer p(path);
    void* system = nullptr;
    ASSERT_EQ(p.GCInitLib(), 0);
    ASSERT_EQ(p.TLOpen(&system), 0);
    std::string text(4096, '?');
    std::size_t size = text.size();
    EXPECT_EQ(p.GCReadPort(system, 0x51000, text.data(), &size), 0);
    EXPECT_EQ(text.substr(0, text.find('\0')), path);
    EXPECT_EQ(text.find_last_not_of('\0'), path.size() - 1);
    EXPECT_EQ(p.GCCloseLib(), 0);
}

TEST_F(StandardPorts, ANumberIsReadInAnyPiece)
{
    EXPECT_EQ(Read(tree.device, 0x70410, 4), Result(0, Word(0x0A090002)));
    EXPECT_EQ(Read(tree.device, 0x70411, 2), Result(0, Word(0x0A090002).substr(1, 2)));
    EXPECT_EQ(Read(tree.device, 0x70538, 8), Result(0, Word(9) + Word(0x0200))) << "the MAC address";
    EXPECT_EQ(Read(tree.device, 0x7053C, 4), Result(0, Word(0x0200))) << "its second word";
    EXPECT_EQ(Read(tree.device, 0x70410, 8), Result(-1015, std::string(8, '\xA5'))) << "more than a register";
    EXPECT_EQ(Read(tree.device, 0x70540, 4), Result(-1015, kUntouched4));
    EXPECT_EQ(Read(tree.stream, 0x80118, 8), Result(0, std::string(8, '\0')));
    EXPECT_EQ(Read(tree.stream, 0x8011C, 4), Result(0, std::string(4, '\0')));
}

TEST_F(StandardPorts, AddressesOfTheLibrarysOwnMapAloneAreInvalid)
{
    for (const std::uint64_t address : {0x7041CULL, 0x7051CULL, 0x7052CULL, 0x70530ULL, 0x7040CULL})
    {
        EXPECT_EQ(Read(tree.device, address, 4), Result(-1015, kUntouched4)) << std::hex << address;
        EXPECT_EQ(Write(tree.device, address, Word(0)), -1015) << std::hex << address;
    }
    for (const std::uint64_t address : {0x10100ULL + 0x100000, 0x80434ULL, 0x8042CULL, 0x80170ULL})
    {
        EXPECT_EQ(Read(tree.stream, address, 4), Result(-1015, kUntouched4)) << std::hex << address;
    }
    EXPECT_EQ(Write(tree.interface, 0x60448, Word(0)), -1005) << "the second word of a MAC address";
}

TEST_F(StandardPorts, TheDescriptionIsReadInAnyPiece)
{
    for (void* const port : {tree.system, tree.interface, tree.device, tree.stream})
    {
        char url[256] = {};
        std::size_t size = sizeof url;
        ASSERT_EQ(p.GCGetPortURL(port, url, &size), 0);
        unsigned long address = 0;
        unsigned long length = 0;
        ASSERT_EQ(std::sscanf(url, "local:NQGenTLGevStandard_%*[^;];%lx;%lx", &address, &length), 2) << url;
        EXPECT_EQ(address, 0x10000UL);
        const Result whole = Read(port, address, length);
        ASSERT_EQ(whole.first, 0);
        EXPECT_TRUE(whole.second.starts_with("<?xml"));
        EXPECT_TRUE(whole.second.ends_with("</RegisterDescription>\n"));
        std::string pieces;
        for (unsigned long at = 0; at < length; at += 4096)
        {
            pieces += Read(port, address + at, std::min(4096UL, length - at)).second;
        }
        EXPECT_EQ(pieces, whole.second);
        EXPECT_EQ(Read(port, address + 0x100, 16), Result(0, whole.second.substr(0x100, 16)));
        EXPECT_EQ(Read(port, address + length, 1), Result(0, std::string(1, '\0'))) << "the zero behind the text";
        EXPECT_EQ(Read(port, address + length, 2).first, -1015);
        EXPECT_EQ(Read(port, address - 1, 2).first, -1015);
        EXPECT_EQ(Write(port, address, "x"), -1005);
        EXPECT_EQ(Write(port, address + length + 1, "x"), -1015);
    }
}

TEST_F(StandardPorts, AWriteOfAPartKeepsTheRest)
{
    EXPECT_EQ(Write(tree.device, 0x70534, Word(1)), 0);
    EXPECT_EQ(Read(tree.device, 0x70534, 4), Result(0, Word(1)));
    EXPECT_EQ(Write(tree.device, 0x70536, std::string(2, '\0')), 0);
    EXPECT_EQ(Read(tree.device, 0x70534, 4), Result(0, Word(1)));
    EXPECT_EQ(Write(tree.device, 0x70534, std::string(1, '\0')), 0);
    EXPECT_EQ(Read(tree.device, 0x70534, 4), Result(0, Word(0)));
    EXPECT_EQ(Write(tree.device, 0x70535, "\1"), -1019) << "256 is no mechanism";
    EXPECT_EQ(Read(tree.device, 0x70534, 4), Result(0, Word(0)));
    EXPECT_EQ(Write(tree.device, 0x70534, Word(1) + Word(0)), -1015) << "more than the register";
    EXPECT_EQ(Read(tree.device, 0x70534, 4), Result(0, Word(0)));
}

TEST_F(StandardPorts, WhatCanOnlyBeReadIsDenied)
{
    EXPECT_EQ(Write(tree.system, 0x50000, "x"), -1005);
    EXPECT_EQ(Write(tree.system, 0x50614, Word(1)), -1005);
    EXPECT_EQ(Write(tree.interface, 0x6040C, Word(1)), -1005);
    EXPECT_EQ(Write(tree.stream, 0x80104, Word(0)), -1005) << "the handling mode";
    EXPECT_EQ(Write(tree.stream, 0x8FFFF, Word(0)), -1015);
}

TEST_F(StandardPorts, NullsAreRefused)
{
    std::size_t size = 4;
    char byte = 0;
    for (void* const port : {tree.system, tree.interface, tree.device, tree.stream})
    {
        EXPECT_EQ(p.GCReadPort(port, 0x10000, nullptr, &size), -1009);
        EXPECT_EQ(p.GCReadPort(port, 0x10000, &byte, nullptr), -1009);
        EXPECT_EQ(p.GCWritePort(port, 0x10000, nullptr, &size), -1009);
    }
}

TEST_F(StandardPorts, AStackStopsAtTheFirstRefusal)
{
    char value[3][4] = {};
    GenTL::S_PORT_REGISTER_STACK_ENTRY entries[] = {
        {0x70410, value[0], 4}, {0x70410, value[1], 8}, {0x70410, value[2], 4}};
    std::size_t count = 3;
    EXPECT_EQ(p.GCReadPortStacked(tree.device, entries, &count), -1015);
    EXPECT_EQ(count, 1U);
}

} // namespace
