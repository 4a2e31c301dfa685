// SPDX-License-Identifier: Apache-2.0
// Short forms of the info and port calls that the tests of the modules make again and again.
#pragma once

#include "support/fence.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace nq::test
{

/// What an info query gave. `text` or `number` holds the value, by the type.
struct Info
{
    int result = 0;
    int type = 0;
    unsigned long size = 0;
    std::string text;
    unsigned long number = 0;
};

/// Makes an info query with 1024 bytes of space. `query` takes type, buffer and size. By the library's own answers all
/// of the space is cleared first, by the standard's what lies behind the value stays.
template <typename Query>
Info Ask(Query query, bool standard = false)
{
    std::array<char, 1024> buffer;
    buffer.fill('#');
    Info info;
    info.size = buffer.size();
    info.result = query(&info.type, buffer.data(), &info.size);
    if (info.result != 0)
    {
        return info;
    }
    constexpr int kString = 1;
    if (info.type == kString)
    {
        info.text = buffer.data();
        EXPECT_EQ(info.size, info.text.size() + 1);
    }
    else
    {
        std::memcpy(&info.number, buffer.data(), std::min(info.size, sizeof info.number));
    }
    for (std::size_t i = info.size; i < buffer.size(); ++i)
    {
        EXPECT_EQ(buffer[i], standard ? '#' : 0) << "byte " << i;
    }
    return info;
}

template <typename Module>
std::string ReadText(Module& module, unsigned long address)
{
    std::array<char, 1024> buffer;
    buffer.fill('#');
    unsigned long size = buffer.size();
    EXPECT_EQ(module.ReadPort(address, buffer.data(), &size), 0) << std::hex << address;
    EXPECT_EQ(size, strnlen(buffer.data(), buffer.size()) + 1) << std::hex << address;
    return buffer.data();
}

/// Reads a register of exactly sizeof(Number) bytes.
template <typename Number, typename Module>
Number ReadNumber(Module& module, unsigned long address)
{
    Number number{};
    unsigned long size = sizeof number;
    EXPECT_EQ(module.ReadPort(address, &number, &size), 0) << std::hex << address;
    EXPECT_EQ(size, sizeof number) << std::hex << address;
    unsigned long tooSmall = sizeof number - 1;
    Number untouched{};
    EXPECT_EQ(module.ReadPort(address, &untouched, &tooSmall), -1016) << std::hex << address;
    return number;
}

/// Result of a 4-byte read.
template <typename Module>
int ReadResult(Module& module, unsigned long address)
{
    std::array<char, 8192> buffer{};
    unsigned long size = buffer.size();
    return module.ReadPort(address, buffer.data(), &size);
}

/// Result of a 4-byte write.
template <typename Module>
int WriteResult(Module& module, unsigned long address, unsigned int value = 0)
{
    unsigned long size = sizeof value;
    return module.WritePort(address, &value, &size);
}

/// A write stores the first four bytes of the caller's memory whatever its size says. Bytes behind the size that cannot
/// be read are zeros.
template <typename Module>
void ExpectWritesOfAnySizeStoreFourBytes(Module& module, unsigned long address)
{
    const Fence readable({0x04, 0x03, 0x02, 0x01, 0xFF, 0xFF, 0xFF, 0xFF});
    for (const unsigned long given : {0UL, 1UL, 2UL, 3UL, 4UL, 8UL})
    {
        WriteResult(module, address, 0xEEEEEEEE);
        unsigned long size = given;
        EXPECT_EQ(module.WritePort(address, readable.Data(), &size), 0) << given;
        EXPECT_EQ(size, given);
        EXPECT_EQ(ReadNumber<unsigned int>(module, address), 0x01020304U) << given;
    }
    const unsigned int filledUp[] = {0, 0x04, 0x0304, 0x020304};
    for (unsigned long given = 0; given < 4; ++given)
    {
        const std::vector<unsigned char> bytes = {0x04, 0x03, 0x02};
        const Fence atTheEnd({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(given)});
        WriteResult(module, address, 0xEEEEEEEE);
        unsigned long size = given;
        EXPECT_EQ(module.WritePort(address, atTheEnd.Data(), &size), 0) << given;
        EXPECT_EQ(ReadNumber<unsigned int>(module, address), filledUp[given]) << given;
    }
}

} // namespace nq::test
