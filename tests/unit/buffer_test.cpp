// SPDX-License-Identifier: Apache-2.0
// One buffer: its memory, the values of a frame, its flags, and the answers to all info commands.
#include "gentl/nq_gentl_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>

using GigERDMA::NQGenTLBuffer;

namespace
{

struct Answer
{
    int result = 0;
    int type = -1;
    std::string bytes;
};

Answer Info(NQGenTLBuffer& buffer, int command)
{
    char out[64];
    std::memset(out, 0x55, sizeof out);
    Answer answer;
    unsigned long size = sizeof out;
    answer.result = buffer.GetInfo(command, &answer.type, out, &size);
    if (answer.result == 0)
    {
        answer.bytes.assign(out, size);
    }
    return answer;
}

template <typename Value>
std::string RawOf(Value value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

const std::string kTrue("\1", 1);
const std::string kFalse("\0", 1);

unsigned char g_Frame[8] = {1, 2, 3, 4, 5, 6, 7, 8};

void Update(NQGenTLBuffer& buffer, unsigned char* data = g_Frame, unsigned long size = sizeof g_Frame)
{
    buffer.UpdateData(size, 11, 22, 33, 44, 0x01080001, data);
}

} // namespace

TEST(Buffer, IsAModuleInFormOnly)
{
    NQGenTLBuffer buffer(nullptr, 0, false, nullptr, nullptr);
    unsigned long size = 0;
    EXPECT_FALSE(buffer.IsPortImplemented());
    for (const int id : {0, 1, 4, 5, 4000})
    {
        EXPECT_FALSE(buffer.IsEventImplemented(id));
    }
    EXPECT_EQ(buffer.ReadPort(0, nullptr, &size), -1003);
    EXPECT_EQ(buffer.WritePort(0, nullptr, &size), -1003);
    EXPECT_EQ(buffer.GetName(), "TLBuffer");
    EXPECT_EQ(buffer.GetId(), "");
    EXPECT_TRUE(buffer.GetURLList().empty());
    EXPECT_EQ(buffer.DoOpen(), 0);
    EXPECT_EQ(buffer.DoClose(), 0);
    const auto port = buffer.GetPortInfo();
    EXPECT_EQ(port.id + port.vendor + port.model + port.tlType + port.module + port.version + port.portName, "");
    EXPECT_FALSE(port.littleEndian || port.bigEndian || port.accessRead || port.accessWrite);
    EXPECT_EQ(buffer.GetXMLInfo().fileName + buffer.GetXMLInfo().xml, "");
    EXPECT_EQ(buffer.GetXMLInfo().size, 0U);
    EXPECT_EQ(buffer.GetModule()->GetParent(), nullptr);
}

TEST(Buffer, ItsHandleIsItsAddressAndThatOfItsModule)
{
    NQGenTLBuffer buffer(nullptr, 0, false, nullptr, nullptr);
    EXPECT_EQ(static_cast<void*>(buffer.GetModule()), static_cast<void*>(&buffer));
    EXPECT_EQ(buffer.GetModule()->GetName(), "TLBuffer");
}

TEST(Buffer, StackedPortAccessReportsNotImplemented)
{
    NQGenTLBuffer buffer(nullptr, 0, false, nullptr, nullptr);
    GenTL::S_PORT_REGISTER_STACK_ENTRY entry{};
    unsigned long count = 1;
    EXPECT_EQ(buffer.GetModule()->ReadPortStacked(&entry, &count), -1003);
    EXPECT_EQ(buffer.GetModule()->WritePortStacked(&entry, &count), -1003);
}

TEST(Buffer, MemoryOfTheConsumerStaysTheConsumers)
{
    for (const bool allocate : {false, true})
    {
        unsigned char memory[8] = {};
        {
            NQGenTLBuffer buffer(memory, sizeof memory, allocate, nullptr, nullptr);
            EXPECT_EQ(buffer.GetData(), memory);
            Update(buffer);
            EXPECT_EQ(buffer.GetData(), memory);
        }
        EXPECT_EQ(std::memcmp(memory, g_Frame, 8), 0);
    }
}

TEST(Buffer, MemoryCanBeAllocatedHere)
{
    NQGenTLBuffer buffer(nullptr, 8, true, nullptr, nullptr);
    void* const memory = buffer.GetData();
    ASSERT_NE(memory, nullptr);
    std::memset(memory, 0, 8);
    Update(buffer);
    EXPECT_EQ(buffer.GetData(), memory);
    EXPECT_EQ(std::memcmp(memory, g_Frame, 8), 0);
}

TEST(Buffer, AFreshBufferWithoutMemoryAnswersANullBase)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    EXPECT_EQ(Info(buffer, 0).bytes, RawOf<void*>(nullptr));
}

TEST(Buffer, WithoutMemoryOfItsOwnTheBaseIsThePixelDataOfTheBlockAndFollowsIt)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    unsigned char other[8] = {};
    Update(buffer, g_Frame);
    EXPECT_EQ(Info(buffer, 0).bytes, RawOf(&g_Frame[0]));
    Update(buffer, other);
    EXPECT_EQ(Info(buffer, 0).bytes, RawOf(&other[0]));
}

TEST(Buffer, AFreshBufferHasNoFrameToTellOf)
{
    unsigned char memory[8];
    NQGenTLBuffer buffer(memory, sizeof memory, false, nullptr, nullptr);
    for (const int command : {3, 9, 10, 11, 16, 20})
    {
        EXPECT_EQ(Info(buffer, command).result, -1014) << command;
    }
    EXPECT_EQ(Info(buffer, 17).bytes, kFalse);
    EXPECT_FALSE(buffer.IsImagePresent());
    EXPECT_FALSE(buffer.IsQueued());
    EXPECT_EQ(buffer.GetRdmaId(), nullptr);
}

struct InfoRow
{
    int command;
    int type;
    std::string bytes;
};

class BufferInfoTable : public testing::TestWithParam<InfoRow>
{
};

int g_User;
unsigned char g_Memory[16];

TEST_P(BufferInfoTable, AnswersAfterAFrame)
{
    NQGenTLBuffer buffer(g_Memory, sizeof g_Memory, false, &g_User, nullptr);
    Update(buffer);
    const Answer answer = Info(buffer, GetParam().command);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.type, GetParam().type);
    EXPECT_EQ(answer.bytes, GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Buffer, BufferInfoTable,
                         testing::Values(InfoRow{0, 10, RawOf(&g_Memory[0])}, InfoRow{1, 12, RawOf(16UL)},
                                         InfoRow{2, 10, RawOf(&g_User)}, InfoRow{3, 8, RawOf(22UL)},
                                         InfoRow{4, 11, kFalse}, InfoRow{5, 11, kFalse}, InfoRow{6, 11, kFalse},
                                         InfoRow{7, 11, kFalse}, InfoRow{8, 1, std::string("GEV\0", 4)},
                                         InfoRow{9, 12, RawOf(8UL)}, InfoRow{10, 12, RawOf(33UL)},
                                         InfoRow{11, 12, RawOf(44UL)}, InfoRow{16, 8, RawOf(11UL)},
                                         InfoRow{17, 11, kTrue}, InfoRow{19, 12, RawOf(1UL)},
                                         InfoRow{20, 8, RawOf(0x01080001UL)}, InfoRow{30, 11, kFalse}),
                         [](const auto& row) { return "Command" + std::to_string(row.param.command); });

TEST(Buffer, CommandsOutsideTheTableAreRefused)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    Update(buffer);
    for (const int command : {12, 13, 14, 15, 18, 21, 22, 23, 24, 25, 26, 27, 28, 29, 31, 1000, -1})
    {
        EXPECT_EQ(Info(buffer, command).result, -1003) << command;
    }
}

TEST(Buffer, InfoNeedsTypeAndSizeAndClearsTheBuffer)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    int type = 0;
    unsigned long size = 8;
    EXPECT_EQ(buffer.GetInfo(1, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(buffer.GetInfo(1, &type, nullptr, nullptr), -1009);
    char out[8];
    std::memset(out, 1, sizeof out);
    EXPECT_EQ(buffer.GetInfo(3, &type, out, &size), -1014);
    EXPECT_EQ(std::string(out, 8), std::string(8, '\0'));
    std::memset(out, 1, sizeof out);
    size = 4;
    EXPECT_EQ(buffer.GetInfo(1, &type, out, &size), -1016);
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(std::string(out, 8), std::string("\0\0\0\0\1\1\1\1", 8));
}

TEST(Buffer, AZeroDimensionOrFormatIsNotImplementedThoughAnImageIsPresent)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    buffer.UpdateData(8, 0, 0, 0, 0, 0, g_Frame);
    EXPECT_EQ(Info(buffer, 10).result, -1003);
    EXPECT_EQ(Info(buffer, 11).result, -1003);
    EXPECT_EQ(Info(buffer, 20).result, -1003);
    EXPECT_EQ(Info(buffer, 17).bytes, kTrue);
    EXPECT_EQ(Info(buffer, 3).bytes, RawOf(0UL));
    EXPECT_EQ(Info(buffer, 16).bytes, RawOf(0UL));
}

TEST(Buffer, TheTLTypeCanBeGiven)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, "Custom");
    EXPECT_EQ(Info(buffer, 8).bytes, std::string("Custom\0", 7));
}

TEST(Buffer, EachFlagHasItsOwnCommand)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    struct
    {
        int command;
        void (NQGenTLBuffer::*set)(bool);
    } const flags[] = {{4, &NQGenTLBuffer::SetNewDataFlag},
                       {5, &NQGenTLBuffer::SetQueueFlag},
                       {6, &NQGenTLBuffer::SetAcquiringFlag},
                       {7, &NQGenTLBuffer::SetIncompleteFlag},
                       {17, &NQGenTLBuffer::SetImagePresentFlag}};
    for (const auto& flag : flags)
    {
        (buffer.*flag.set)(true);
        for (const auto& other : flags)
        {
            EXPECT_EQ(Info(buffer, other.command).bytes, other.command == flag.command ? kTrue : kFalse);
        }
        (buffer.*flag.set)(false);
        EXPECT_EQ(Info(buffer, flag.command).bytes, kFalse);
    }
}

TEST(Buffer, TheQueueFlagIsTakenOnce)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    EXPECT_TRUE(buffer.TrySetQueueFlag());
    EXPECT_FALSE(buffer.TrySetQueueFlag());
    EXPECT_TRUE(buffer.IsQueued());
    buffer.SetQueueFlag(false);
    EXPECT_TRUE(buffer.TrySetQueueFlag());
}

TEST(Buffer, AFrameWithoutDataStoresItsValuesOnly)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    Update(buffer, nullptr);
    EXPECT_FALSE(buffer.IsImagePresent());
    EXPECT_EQ(buffer.GetData(), nullptr);
    buffer.SetImagePresentFlag(true);
    EXPECT_EQ(Info(buffer, 10).bytes, RawOf(33UL));
    EXPECT_EQ(Info(buffer, 16).bytes, RawOf(11UL));
}

TEST(Buffer, AFrameLongerThanTheBufferIsCutToTheBuffer)
{
    unsigned char memory[8] = {};
    NQGenTLBuffer buffer(memory, 4, false, nullptr, nullptr);
    Update(buffer);
    EXPECT_EQ(std::string(memory, memory + 8), std::string("\1\2\3\4\0\0\0\0", 8));
    EXPECT_EQ(Info(buffer, 9).bytes, RawOf(8UL)) << "the size of the frame's part all the same";
}

TEST(Buffer, AFrameShorterThanTheBufferLeavesTheRestAlone)
{
    unsigned char memory[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    NQGenTLBuffer buffer(memory, 8, false, nullptr, nullptr);
    Update(buffer, g_Frame, 3);
    EXPECT_EQ(std::string(memory, memory + 8), std::string("\1\2\3\x9\x9\x9\x9\x9", 8));
}

// Deliberate(CopySizesAreSigned): sizes count as signed 32 bits, and a negative one copies nothing.
TEST(Buffer, ASizeThatIsNegativeInSigned32BitsCopiesNothing)
{
    unsigned char memory[8] = {};
    {
        NQGenTLBuffer buffer(memory, 0x80000000, false, nullptr, nullptr);
        Update(buffer);
        EXPECT_TRUE(buffer.IsImagePresent());
    }
    for (const unsigned long size : {0x80000000UL, 0xFFFFFFFFUL, 0xFFFFFFFFFFFFFFFFUL})
    {
        NQGenTLBuffer buffer(memory, sizeof memory, false, nullptr, nullptr);
        Update(buffer, g_Frame, size);
        EXPECT_TRUE(buffer.IsImagePresent());
        EXPECT_EQ(Info(buffer, 9).bytes, RawOf(size));
    }
    EXPECT_EQ(std::string(memory, memory + 8), std::string(8, '\0'));
}

// Deliberate(CopySizesAreSigned): of sizes beyond 32 bits only the low half counts.
TEST(Buffer, OnlyTheLow32BitsOfASizeCount)
{
    unsigned char memory[8] = {};
    NQGenTLBuffer buffer(memory, 0x100000002, false, nullptr, nullptr);
    Update(buffer);
    EXPECT_EQ(std::string(memory, memory + 8), std::string("\1\2\0\0\0\0\0\0", 8));
}

// Deliberate(IncompleteStays)
TEST(Buffer, IncompleteOnceSetStaysSet)
{
    NQGenTLBuffer buffer(nullptr, 8, false, nullptr, nullptr);
    buffer.SetIncompleteFlag(true);
    Update(buffer);
    buffer.SetNewDataFlag(true);
    EXPECT_EQ(Info(buffer, 7).bytes, kTrue);
}

TEST(Buffer, IsWrittenAndReadAtOnce)
{
    unsigned char memory[8];
    NQGenTLBuffer buffer(memory, sizeof memory, false, nullptr, nullptr);
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i)
        {
            buffer.SetAcquiringFlag(true);
            Update(buffer);
            buffer.SetAcquiringFlag(false);
            buffer.SetRdmaId(memory);
        }
    });
    for (int i = 0; i < 2000; ++i)
    {
        Info(buffer, 0);
        Info(buffer, 16);
        Info(buffer, 6);
        buffer.GetRdmaId();
        buffer.SetQueueFlag(buffer.IsImagePresent());
    }
    writer.join();
}
