// SPDX-License-Identifier: Apache-2.0
// What a data stream tells about itself.
#include "support/stream_fixture.h"
#include "support/trace_capture.h"

#include <vector>

using nq::test::TraceCapture;

namespace
{

class DataStreamInfo : public nq::test::StreamFixture
{
};

struct InfoRow
{
    int command;
    int type;
    std::string bytes;
};

template <typename Value>
std::string RawOf(Value value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

class StreamInfoTable : public nq::test::StreamFixture, public testing::WithParamInterface<InfoRow>
{
};

} // namespace

/// Four buffers announced; two frames delivered, of which one is taken; two underruns; one buffer queued again.
TEST_P(StreamInfoTable, AnswersDuringAcquisition)
{
    Announce(4);
    Queue(2);
    RegisterNewBuffer();
    stream.payloadSize = 0x123456789;
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    for (unsigned char i = 0; i < 4; ++i)
    {
        Frame(i, i);
    }
    ASSERT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);

    char out[32];
    unsigned long size = sizeof out;
    int type = -1;
    EXPECT_EQ(stream.GetInfo(GetParam().command, &type, out, &size), 0);
    EXPECT_EQ(type, GetParam().type);
    EXPECT_EQ(std::string(out, size), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(DataStream, StreamInfoTable,
                         testing::Values(InfoRow{0, 1, std::string("0\0", 2)}, InfoRow{1, 8, RawOf(2UL)},
                                         InfoRow{2, 8, RawOf(2UL)}, InfoRow{3, 12, RawOf(4UL)},
                                         InfoRow{4, 12, RawOf(1UL)}, InfoRow{5, 12, RawOf(1UL)},
                                         InfoRow{7, 7, RawOf(0x123456789L)}, InfoRow{8, 11, std::string("\0", 1)},
                                         InfoRow{9, 11, std::string("\1", 1)}, InfoRow{10, 1, std::string("GEV\0", 4)},
                                         InfoRow{12, 12, RawOf(1UL)}),
                         [](const auto& row) { return "Command" + std::to_string(row.param.command); });

TEST_F(DataStreamInfo, TheIdIsTheIndexInDecimal)
{
    nq::test::FakeDataStream eleventh(4294967295U);
    char out[16];
    unsigned long size = sizeof out;
    int type = 0;
    EXPECT_EQ(eleventh.GetInfo(0, &type, out, &size), 0);
    EXPECT_STREQ(out, "4294967295");
}

TEST_F(DataStreamInfo, WithoutTheEventNothingAwaitsDelivery)
{
    EXPECT_EQ(Number(5), 0U);
}

// Deliberate(IsGrabbingIsFalse): false at all times.
TEST_F(DataStreamInfo, IsGrabbingAnswersFalseDuringAcquisition)
{
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Number(8), 0U);
}

TEST_F(DataStreamInfo, SomeCommandsAreNotImplemented)
{
    TraceCapture trace;
    for (const int command : {6, 11, 13})
    {
        char out[4] = {1, 1, 1, 1};
        unsigned long size = sizeof out;
        int type = 0;
        EXPECT_EQ(stream.GetInfo(command, &type, out, &size), -1003);
        EXPECT_EQ(std::string(out, 4), std::string(4, '\0'));
    }
    EXPECT_EQ(trace.At(2), (std::vector<std::string>{"GetInfo iInfoCmd:6 GC_ERR_NOT_IMPLEMENTED",
                                                     "GetInfo iInfoCmd:11 GC_ERR_NOT_IMPLEMENTED",
                                                     "GetInfo iInfoCmd:13 GC_ERR_NOT_IMPLEMENTED"}));
}

// Deliberate(UnknownStreamCommandIsAnError): an unknown command is a plain error here, not something not implemented.
TEST_F(DataStreamInfo, ACommandAbove13IsAnError)
{
    TraceCapture trace;
    unsigned long size = 0;
    int type = 0;
    EXPECT_EQ(stream.GetInfo(14, &type, nullptr, &size), -1001);
    EXPECT_EQ(stream.GetInfo(1000, &type, nullptr, &size), -1001);
    EXPECT_EQ(trace.At(2), (std::vector<std::string>{"GetInfo GC_ERR_ERROR :14", "GetInfo GC_ERR_ERROR :1000"}));
}

TEST_F(DataStreamInfo, NeedsTypeAndSize)
{
    TraceCapture trace;
    unsigned long size = 0;
    int type = 0;
    EXPECT_EQ(stream.GetInfo(0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(stream.GetInfo(0, &type, nullptr, nullptr), -1009);
    EXPECT_EQ(trace.At(2),
              (std::vector<std::string>{"GetInfo GC_ERR_INVALID_PARAMETER", "GetInfo GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(DataStreamInfo, OffersTheNewBufferEventAndOneWithoutAClass)
{
    for (const int id : {1, 5000})
    {
        EXPECT_TRUE(stream.IsEventImplemented(id));
    }
    for (const int id : {0, 2, 3, 4, 5, 4000})
    {
        EXPECT_FALSE(stream.IsEventImplemented(id));
    }
    void* handle = nullptr;
    EXPECT_EQ(stream.RegisterEvent(5000, &handle), -1003);
    EXPECT_EQ(stream.RegisterEvent(1, &handle), 0);
    EXPECT_EQ(stream.RegisterEvent(5, &handle), -1003);
}
