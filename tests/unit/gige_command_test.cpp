// SPDX-License-Identifier: Apache-2.0
// The bytes of GVCP packets as GigETL::Command builds and reads them.
#include "gige/gige_command.h"

#include <gmock/gmock.h>

#include <array>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

using GigETL::Command;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

std::vector<unsigned char> BytesOf(const Command& command)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(command.getSize()));
    command.readMemory(0, bytes.data(), static_cast<unsigned int>(bytes.size()));
    return bytes;
}

TEST(Command, ReadRegisterIsTwelveBytes)
{
    Command command(0x0080, 4, 0x01);
    command.setDWord(8, 0x00000A00);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00));
}

TEST(Command, WriteRegisterIsSixteenBytes)
{
    Command command(0x0082, 8, 0x01);
    command.setDWord(8, 0x00000A00);
    command.setDWord(12, 0x80000002);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x01, 0x00, 0x82, 0x00, 0x08, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00,
                                              0x80, 0x00, 0x00, 0x02));
}

TEST(Command, ReadMemoryHoldsTheCountInItsLastWord)
{
    Command command(0x0084, 8, 0x01);
    command.setDWord(8, 0x00000200);
    command.setWord(14, 0x0200);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x01, 0x00, 0x84, 0x00, 0x08, 0x00, 0x01, 0x00, 0x00, 0x02, 0x00,
                                              0x00, 0x00, 0x02, 0x00));
}

TEST(Command, DiscoveryIsSixteenBytesWithLengthEight)
{
    const Command command(0x0002, 8, 0x11);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x11, 0x00, 0x02, 0x00, 0x08, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,
                                              0x00, 0x00, 0x00, 0x00));
}

TEST(Command, WriteMemoryOfFiveBytesMakesABodyOfTwelveBytes)
{
    Command command(0x0086, (5 + 7) & ~3, 0x01);
    command.setDWord(8, 0x00001000);
    const std::array<unsigned char, 5> data{1, 2, 3, 4, 5};
    command.writeMemory(12, data.data(), 5);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x01, 0x00, 0x86, 0x00, 0x0C, 0x00, 0x01, 0x00, 0x00, 0x10, 0x00, 1,
                                              2, 3, 4, 5, 0, 0, 0));
}

TEST(Command, StoresOnlyTheLowerSixteenBitsOfTheCode)
{
    const Command command(0xABCD0086, 0, 0x01);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x01, 0x00, 0x86, 0x00, 0x00, 0x00, 0x01));
}

TEST(Command, SizesAreTheBodyAndEightBytes)
{
    const Command command(0x0080, 4, 0x01);
    EXPECT_EQ(command.getSize(), 12);
    EXPECT_EQ(command.getMaxSize(), 12);
}

TEST(Command, ReceiveBufferIsEmptyWithRoomFor548ZeroBytes)
{
    Command command;
    EXPECT_EQ(command.getSize(), 0);
    EXPECT_EQ(command.getMaxSize(), 548);
    command.setSize(548);
    EXPECT_THAT(BytesOf(command), Each(0));
}

TEST(Command, ReceiveBufferTakesNoRequestId)
{
    const Command command;
    EXPECT_EQ(Command::getRequestID(), 0U);
}

TEST(Command, FirstIdOfAProcessIsOne)
{
    EXPECT_EQ(Command::getRequestID(), 0U);
    const Command command(0x0080, 4, 0x01);
    EXPECT_EQ(Command::getRequestID(), 1U);
    EXPECT_EQ(command.getByte(6), 0);
    EXPECT_EQ(command.getByte(7), 1);
}

TEST(Command, After65535CommandsTheNextCarriesIdOneNotZero)
{
    for (int built = 0; built < 65534; ++built)
    {
        const Command command(0x0080, 4, 0x01);
    }
    const Command last(0x0080, 4, 0x01);
    EXPECT_EQ(last.getByte(6), 0xFF);
    EXPECT_EQ(last.getByte(7), 0xFF);
    const Command next(0x0080, 4, 0x01);
    EXPECT_EQ(next.getByte(6), 0x00);
    EXPECT_EQ(next.getByte(7), 0x01);
    EXPECT_EQ(Command::getRequestID(), 1U);
}

TEST(Command, RequestIdIsTheNewestOfTheProcessNotTheOneInThePacket)
{
    const Command first(0x0080, 4, 0x01);
    const Command second(0x0080, 4, 0x01);
    EXPECT_EQ(first.getRequestID(), 2U);
    EXPECT_EQ(first.getByte(7), 1);
}

TEST(Command, IdsOfCommandsBuiltOnSeveralThreadsAreAllDifferent)
{
    const auto build = [](std::vector<bool>& seen) {
        for (int built = 0; built < 10000; ++built)
        {
            const Command command(0x0080, 4, 0x01);
            seen.at(static_cast<std::size_t>(command.getByte(6) << 8 | command.getByte(7))) = true;
        }
    };
    std::vector<bool> here(65536);
    std::vector<bool> there(65536);
    std::thread other([&] { build(there); });
    build(here);
    other.join();
    for (std::size_t id = 0; id <= 20000; ++id)
    {
        EXPECT_EQ(here[id] + there[id], id == 0 ? 0 : 1) << id;
    }
}

TEST(Command, NegativeSizeFailsWithTheLengthErrorAndTakesNoId)
{
    for (const int length : {-9, std::numeric_limits<int>::min() + 100, std::numeric_limits<int>::max()})
    {
        try
        {
            const Command command(0x0080, length, 0x01);
            FAIL() << "built with length " << length;
        }
        catch (const std::length_error& error)
        {
            EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
        }
    }
    EXPECT_EQ(Command::getRequestID(), 0U);
}

TEST(Command, LengthThatCutsTheHeaderShortWritesNothingBehindTheBuffer)
{
    const Command command(0x0080, -5, 0x01);
    EXPECT_THAT(BytesOf(command), ElementsAre(0x42, 0x01, 0x00));
    const Command empty(0x0080, -8, 0x01);
    EXPECT_EQ(empty.getSize(), 0);
    EXPECT_EQ(Command::getRequestID(), 2U);
}

TEST(Command, WordsAreSwappedToNetworkOrder)
{
    Command command;
    command.setWord(100, 0x1234);
    EXPECT_EQ(command.getByte(100), 0x12);
    EXPECT_EQ(command.getByte(101), 0x34);
}

TEST(Command, DoubleWordsAreSwappedInBothDirections)
{
    Command command;
    command.setDWord(101, 0x12345678);
    EXPECT_EQ(command.getByte(101), 0x12);
    EXPECT_EQ(command.getByte(102), 0x34);
    EXPECT_EQ(command.getByte(103), 0x56);
    EXPECT_EQ(command.getByte(104), 0x78);
    EXPECT_EQ(command.getDWord(101), 0x12345678U);
}

TEST(Command, BytesAreStoredAtTheirOffset)
{
    Command command;
    command.setByte(547, 0xAB);
    EXPECT_EQ(command.getByte(547), 0xAB);
    EXPECT_EQ(command.getByte(546), 0);
}

TEST(Command, MemoryIsCopiedWithoutSwap)
{
    Command command;
    const std::string text = "camera";
    command.writeMemory(80, text.data(), 6);
    std::array<char, 6> copy{};
    command.readMemory(80, copy.data(), 6);
    EXPECT_THAT(copy, ElementsAreArray(text));
    EXPECT_EQ(command.getByte(80), 'c');
}

TEST(Command, ReceivedSizeIsStoredAndLeavesBufferAndMaximumAlone)
{
    Command command;
    command.setByte(547, 7);
    command.setReceivedSize(12);
    EXPECT_EQ(command.getSize(), 12);
    EXPECT_EQ(command.getMaxSize(), 548);
    EXPECT_EQ(command.getByte(547), 7);
    command.setSize(16);
    EXPECT_EQ(command.getSize(), 16);
    EXPECT_EQ(command.getMaxSize(), 548);
}

} // namespace
