// SPDX-License-Identifier: Apache-2.0
// The data stream's register port, row by row.
#include "support/data_stream_fixture.h"
#include "support/module_queries.h"

#include <gmock/gmock.h>

using nq::test::GvcpCamera;
using nq::test::readSettings;
using testing::ElementsAre;

namespace
{

using GevDataStreamPort = nq::test::DataStreamFixture;

// Deliberate(EventRegistersAreNotServed)
TEST_F(GevDataStreamPort, AnyOtherAddressIsInvalidEvenTheEventRegistersOfTheMap)
{
    std::uint64_t value = 0;
    for (const unsigned long address : {0x10001UL, 0x10100UL, 0x10104UL, 0x80001UL, 0x80118UL, 0x80218UL, 0x80428UL,
                                        0x80438UL, 0UL, 0xFFFFFFFFFFFFFFFFUL})
    {
        unsigned long size = 8;
        EXPECT_EQ(stream->ReadPort(address, &value, &size), -1015) << address;
    }
    for (const unsigned long address : {0x10001UL, 0x10100UL, 0x10104UL, 0x80438UL, 0UL})
    {
        EXPECT_EQ(Write(address, 1), -1015) << address;
    }
}

TEST_F(GevDataStreamPort, ReadOnlyRegistersRefuseEveryWrite)
{
    for (const unsigned long address :
         {0x10000UL, 0x80000UL, 0x80100UL, 0x80108UL, 0x8010CUL, 0x80110UL, 0x80114UL, 0x80118UL, 0x80218UL, 0x80418UL,
          0x8041CUL, 0x80420UL, 0x80424UL, 0x80428UL, 0x8042CUL, 0x80430UL})
    {
        EXPECT_EQ(Write(address, 1), -1005) << address;
    }
}

TEST_F(GevDataStreamPort, NullArgumentsOfThePortAreRefusedAndLogged)
{
    unsigned long size = 4;
    int value = 0;
    EXPECT_EQ(stream->ReadPort(0x80000, nullptr, &size), -1009);
    EXPECT_EQ(stream->ReadPort(0x80000, &value, nullptr), -1009);
    EXPECT_EQ(stream->WritePort(0x80104, nullptr, &size), -1009);
    EXPECT_EQ(stream->WritePort(0x80104, &value, nullptr), -1009);
    EXPECT_THAT(trace.At(2),
                ElementsAre("ReadPort failed! GC_ERR_INVALID_PARAMETER", "ReadPort failed! GC_ERR_INVALID_PARAMETER",
                            "WritePort failed! GC_ERR_INVALID_PARAMETER",
                            "WritePort failed! GC_ERR_INVALID_PARAMETER"));
}

TEST_F(GevDataStreamPort, TheMapTextIsReadFromItsStartAndLeavesTheSizeAlone)
{
    const std::string text = stream->GetXMLInfo().xml;
    char start[20] = {};
    unsigned long size = 10;
    EXPECT_EQ(stream->ReadPort(0x10000, start, &size), 0);
    EXPECT_EQ(std::string(start), text.substr(0, 10));
    EXPECT_EQ(size, 10U);
    std::vector<char> whole(text.size() + 100, 'x');
    size = whole.size();
    EXPECT_EQ(stream->ReadPort(0x10000, whole.data(), &size), 0);
    EXPECT_EQ(size, whole.size());
    EXPECT_STREQ(whole.data(), text.c_str());
    EXPECT_EQ(whole[text.size() + 1], 'x');
}

TEST_F(GevDataStreamPort, RegistersOfAFreshStreamReadTheirFirstValues)
{
    char id[256] = {};
    unsigned long size = sizeof id;
    EXPECT_EQ(stream->ReadPort(0x80000, id, &size), 0);
    EXPECT_STREQ(id, "2");
    Announce(3);
    EXPECT_EQ(Read32(0x80100), 3U);
    EXPECT_EQ(Read32(0x80104), 0U);
    EXPECT_EQ(Read32(0x80108), 1U);
    EXPECT_EQ(Read64(0x8010C), 0U);
    EXPECT_EQ(Read64(0x80110), 0U);
    EXPECT_EQ(Read64(0x80114), 0U);
    EXPECT_EQ(Read64(0x8042C), 0U);
    EXPECT_EQ(Read64(0x80430), 0U);
    EXPECT_EQ(Read32(0x80434), 1000U);
}

// Deliberate(CountersHaveEightBytes)
TEST_F(GevDataStreamPort, ACounterReadWithTheFourBytesOfTheMapFailsWithTheSizeNeeded)
{
    for (const unsigned long address : {0x80110UL, 0x80114UL})
    {
        std::uint64_t value = 0;
        unsigned long size = 4;
        EXPECT_EQ(stream->ReadPort(address, &value, &size), -1016);
        EXPECT_EQ(size, 8U);
        EXPECT_EQ(Read64(address), 0U);
    }
}

// Deliberate(HandlingModeIsDropped)
TEST_F(GevDataStreamPort, TheBufferHandlingModeTakesAnyWriteAndStaysOldestFirst)
{
    EXPECT_EQ(Write(0x80104, std::uint32_t{2}), 0);
    EXPECT_EQ(Write(0x80104, std::uint8_t{1}), 0);
    EXPECT_EQ(Read32(0x80104), 0U);
}

// Deliberate(RegisterTakesAWord)
TEST_F(GevDataStreamPort, DeliberatelyThePlainValueTakesTheFirstFourBytesWhateverTheSizeSays)
{
    nq::test::ExpectWritesOfAnySizeStoreFourBytes(*stream, 0x80434);
}

TEST_F(GevDataStreamPort, ThePayloadSizeIsAskedOfTheCameraEachTime)
{
    std::int64_t value = 0;
    int type = 0;
    unsigned long size = sizeof value;
    EXPECT_EQ(stream->DoGetPayloadsize(&type, &value, &size), 0);
    EXPECT_EQ(value, 64);
    EXPECT_EQ(type, 7);
    const std::uint64_t payload = 4096;
    nq::test::Bytes bytes(8);
    std::memcpy(bytes.data(), &payload, 8);
    camera.SetMemory(0xE620, bytes);
    EXPECT_EQ(stream->DoGetPayloadsize(&type, &value, &size), 0);
    EXPECT_EQ(value, 4096);
    EXPECT_THAT(camera.Accesses(), ElementsAre(readSettings, readSettings));
}

} // namespace
