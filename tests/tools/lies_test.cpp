// SPDX-License-Identifier: Apache-2.0
// nq-gev against a producer that lies: it ends in time with its own words, and reads nothing that is not there.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

/// nq-gev in 2 GiB of address space with the fake producer, whose answers `lies` changes.
Outcome RunWith(const std::string& lies, const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH};
    if (!NQ_SANITIZED)
    {
        command.insert(command.begin(), {"/usr/bin/prlimit", "--as=2147483648"});
    }
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command, {"NQ_FAKE_PRODUCER=" + lies});
}

struct Lie
{
    const char* name;
    const char* lies;
    const char* argument;
    int exitCode;
    const char* told;
};

void PrintTo(const Lie& lie, std::ostream* out)
{
    *out << lie.name;
}

class ToolFrame : public testing::TestWithParam<Lie>
{
};

TEST_P(ToolFrame, IsRefusedCountedAndTold)
{
    const TemporaryFolder folder;
    const Outcome grab =
        RunWith(GetParam().lies, {"grab", "--count", "3", "--out", folder.Path(), GetParam().argument});
    EXPECT_EQ(grab.exitCode, GetParam().exitCode) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr(GetParam().told));
    EXPECT_THAT(grab.output, HasSubstr("frames     0\n"));
    EXPECT_THAT(grab.output, HasSubstr("refused    3\n"));
    EXPECT_EQ(folder.Files().size(), 0U);
}

// 0 base, 9 size filled, 10 width, 11 height, 20 pixel format.
const Lie kFrames[] = {
    {"SizeOfATebibyte", "DSGetBufferInfo.9.value=1099511627776", "--verify", 7,
     "it is said to have 1099511627776 bytes, its buffer has 3072"},
    {"SizeOneTooLarge", "DSGetBufferInfo.9.value=3073", "--verify", 7, "it is said to have 3073 bytes"},
    {"SizeThatIsNoNumber", "DSGetBufferInfo.9.type=9", "--verify", 7, "its size is not told"},
    {"SizeRefused", "DSGetBufferInfo.9.code=-1014", "--verify", 7, "its size is not told"},
    {"NegativeSize", "DSGetBufferInfo.9.type=7\nDSGetBufferInfo.9.value=-1", "--verify", 7, "its size is not told"},
    {"NoData", "DSGetBufferInfo.0.value=0", "--verify", 7, "it is said to lie nowhere"},
    {"DataByANumberThatIsNoAddress", "DSGetBufferInfo.0.type=8", "--verify", 7, "it is said to lie nowhere"},
    {"ProductThatWraps", "DSGetBufferInfo.10.value=4294967296\nDSGetBufferInfo.11.value=4294967296", "--verify", 7,
     "it is said to be 4294967296 x 4294967296 pixels large"},
    {"EndlessHeight", "DSGetBufferInfo.11.value=4611686018427387904", "--verify", 7, "x 4611686018427387904 pixels"},
    {"NoWidth", "DSGetBufferInfo.10.code=-1014", "--verify", 7, "it is said to be 0 x 48 pixels large"},
    {"GigabytesOfZeros",
     "DSGetBufferInfo.10.value=65535\nDSGetBufferInfo.11.value=65535\nDSGetBufferInfo.20.value=0x02180014",
     "--announce", 7, "its 65535 x 65535 pixels of format 0x02180014 take 12884508675 bytes, its buffer has 3072"},
    {"OneRowTooMany", "DSGetBufferInfo.11.value=49", "--verify", 7, "take 3136 bytes, its buffer has 3072"},
    {"FormatTwiceAsWide", "DSGetBufferInfo.20.value=0x01100003", "--announce", 7, "take 6144 bytes"},
    {"BufferOfNobody", "EventGetData.value=4660", "--verify", 7, "it comes in a buffer that nobody announced"},
    {"DataOutsideOfOurMemory", "DSGetBufferInfo.0.value=4096", "--announce", 7, "it is said to lie outside its buffer"},
};

INSTANTIATE_TEST_SUITE_P(Of, ToolFrame, testing::ValuesIn(kFrames), [](const auto& lie) { return lie.param.name; });

TEST(ToolLies, TheTruthPasses)
{
    for (const char* origin : {"--verify", "--announce"})
    {
        const Outcome grab = RunWith("", {"grab", "--count", "20", "--verify", origin});
        EXPECT_EQ(grab.exitCode, 0) << grab.output;
        EXPECT_THAT(grab.output, HasSubstr("frames     20\nlost       0\nincomplete 0\n"));
        EXPECT_THAT(grab.output, Not(HasSubstr("refused")));
    }
}

TEST(ToolLies, OneRefusedFrameLeavesTheOthers)
{
    const TemporaryFolder folder;
    const Outcome grab =
        RunWith("DSGetBufferInfo.9@2.value=1099511627776", {"--json", "grab", "--count", "3", "--out", folder.Path()});
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("\"frames\": 2"));
    EXPECT_THAT(grab.output, HasSubstr("\"refused\": 1"));
    EXPECT_EQ(folder.Files().size(), 2U);
}

TEST(ToolLies, ARefusedFrameIsToldOfWhenNoMoreCome)
{
    const Outcome grab = RunWith("EventGetData.value=4660", {"grab", "--count", "9", "--frame-timeout", "1"});
    EXPECT_EQ(grab.exitCode, 6) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("no frame for 1 ms after 0 of 9: "));
    EXPECT_THAT(grab.output,
                HasSubstr("; 4 frames refused; the first because it comes in a buffer that nobody announced"));
}

TEST(ToolLies, AShortFrameIsPaddedWithZeros)
{
    const TemporaryFolder folder;
    const Outcome grab = RunWith("DSGetBufferInfo.9.value=100\nDSGetBufferInfo.7.value=1",
                                 {"grab", "--count", "1", "--allow-loss", "1", "--out", folder.Path()});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("incomplete 1\n"));
    ASSERT_EQ(folder.Files().size(), 1U);
    EXPECT_TRUE(IsWholePng(folder.Files()[0]));
}

TEST(ToolLies, ANumberHasTheTypeThatTheProducerNames)
{
    // Width as UINT16 and height as UINT32, with other bytes behind.
    const Outcome grab = RunWith("DSGetBufferInfo.10.value=0xFFFFFFFFFFFF0040\nDSGetBufferInfo.10.type=4\n"
                                 "DSGetBufferInfo.11.value=0xFFFFFFFF00000030\nDSGetBufferInfo.11.type=6",
                                 {"grab", "--count", "3", "--verify"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("frames     3\n"));
}

class ToolPayload : public testing::TestWithParam<Lie>
{
};

TEST_P(ToolPayload, FailsTheStart)
{
    const Outcome grab = RunWith(GetParam().lies, {"grab", GetParam().argument});
    EXPECT_EQ(grab.exitCode, GetParam().exitCode) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr(GetParam().told));
}

const Lie kPayloads[] = {
    {"Refused", "DSGetInfo.7.code=-1003", "--announce", 5, "the producer tells no payload size"},
    {"Zero", "DSGetInfo.7.value=0", "--announce", 5, "the producer tells no payload size"},
    {"Negative", "DSGetInfo.7.type=7\nDSGetInfo.7.value=-1", "--announce", 5, "the producer tells no payload size"},
    {"NoNumber", "DSGetInfo.7.text=3072", "--announce", 5, "the producer tells no payload size"},
    {"APebibyte", "DSGetInfo.7.value=1125899906842624", "--announce", 5,
     "4 buffers for the payload of 1125899906842624 bytes do not fit this machine's memory"},
    {"AProductThatWraps", "DSGetInfo.7.value=0x4000000000000001", "--verify", 5, "do not fit this machine's memory"},
};

INSTANTIATE_TEST_SUITE_P(Size, ToolPayload, testing::ValuesIn(kPayloads),
                         [](const auto& lie) { return lie.param.name; });

TEST(ToolSignal, InTheMiddleOfAnOpenOrAStartGivesTheCameraBack)
{
    for (const std::string function : {"IFOpenDevice", "DevOpenDataStream", "DSQueueBuffer", "DSStartAcquisition"})
    {
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        {
            const std::string lie = function + "@1.signal=" + std::to_string(number);
            const Outcome grab = RunWith(lie, {"grab", "--count", "1000000000"});
            EXPECT_EQ(grab.exitCode, 128 + number) << lie << grab.output;
            EXPECT_THAT(grab.output, HasSubstr("frames     0\n")) << lie;
            // The signal of the one that gives back shows that it is called.
            EXPECT_EQ(RunWith(lie + "\nDevClose.signal=9", {"grab", "--count", "1000000000"}).exitCode, 128 + SIGKILL);
        }
    }
}

TEST(ToolLies, ATextOfAllMemoryIsNone)
{
    const Outcome list = RunWith("IFGetDeviceInfo.2.size=0xFFFFFFFFFFFFFFFF\nIFGetInfo.1.size=1099511627776", {"list"});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("model   serial Serial"));
}

TEST(ToolLies, AnIdOfAllMemoryIsAFailure)
{
    for (const char* function : {"TLGetInterfaceID", "IFGetDeviceID"})
    {
        const Outcome list = RunWith(std::string(function) + ".size=0xFFFFFFFFFFFFFFFF", {"list"});
        EXPECT_EQ(list.exitCode, 1) << list.output;
        EXPECT_THAT(list.output, HasSubstr(std::string(function) + " claims an id of 18446744073709551615 bytes"));
    }
}

TEST(ToolLies, AListOfBillionsIsAFailure)
{
    for (const char* function : {"TLGetNumInterfaces", "IFGetNumDevices"})
    {
        const Outcome list = RunWith(std::string(function) + ".value=4294967295", {"list"});
        EXPECT_EQ(list.exitCode, 1) << list.output;
        EXPECT_THAT(list.output, HasSubstr(std::string(function) + " claims 4294967295 entries"));
    }
}

} // namespace
