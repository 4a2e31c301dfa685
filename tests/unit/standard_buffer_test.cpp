// SPDX-License-Identifier: Apache-2.0
// The standard's answers about the frame in a buffer.
#include "support/stream_fixture.h"

#include <cstdint>

namespace
{

constexpr int kNotAvailable = -1014;

class StandardBuffer : public nq::test::StreamFixture
{
  protected:
    StandardBuffer() : StreamFixture(kStandardAnswers) {}

    void SetUp() override
    {
        Announce(1);
        Queue(1);
        RegisterNewBuffer();
        ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    }

    /// A frame of `size` bytes and `lines` lines in block 0, of which `received` bytes came; its buffer, delivered.
    void* Deliver(unsigned long size, unsigned long lines = 2, unsigned long received = ULONG_MAX)
    {
        unsigned char pixels[64] = {};
        details.received = received;
        stream.SetFrameDetails(details);
        const int status = received < size ? 1 : 0;
        stream.EndOfTransfer(&blocks[0], size, 7, timestamp, size / lines, lines, 0x01080001, pixels, status);
        return Take();
    }

    /// The code of an info.
    int Code(int command)
    {
        unsigned long value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        return stream.GetBufferInfo(handles[0], command, &type, &value, &size);
    }

    /// Type code and size of an info.
    std::pair<int, unsigned long> Kind(int command)
    {
        unsigned long value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(stream.GetBufferInfo(handles[0], command, &type, &value, &size), 0);
        return {type, size};
    }

    GigERDMA::NQFrameDetails details;
    unsigned long timestamp = 1001;
};

class StatedBuffer : public nq::test::StreamFixture
{
  protected:
    void SetUp() override
    {
        Announce(1);
        Queue(1);
        RegisterNewBuffer();
        ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    }
};

TEST_F(StandardBuffer, ThatIsQueuedAgainIsNotIncomplete)
{
    void* const buffer = Deliver(8, 2, 5);
    EXPECT_EQ(BufferNumber(buffer, 7), 1U);
    ASSERT_EQ(stream.QueueBuffer(buffer), 0);
    EXPECT_EQ(BufferNumber(buffer, 7), 0U);
    EXPECT_EQ(stream.QueueBuffer(buffer), -1004);
    Deliver(8, 2, 5);
    EXPECT_EQ(BufferNumber(buffer, 7), 1U);
    EXPECT_EQ(stream.FlushQueue(GenTL::ACQ_QUEUE_UNQUEUED_TO_INPUT), 0);
    EXPECT_EQ(BufferNumber(buffer, 7), 0U) << "by a flush";
}

TEST_F(StandardBuffer, ThatWaitsForItsConsumerIsIncompleteAsItsFrameIs)
{
    unsigned char pixels[8] = {};
    stream.EndOfTransfer(&blocks[0], sizeof pixels, 7, timestamp, 4, 2, 0x01080001, pixels, 1);
    EXPECT_EQ(BufferNumber(handles[0], 5), 1U) << "in the output queue";
    EXPECT_EQ(BufferNumber(handles[0], 7), 1U);
}

TEST_F(StandardBuffer, IsIncompleteWhileAShortFrameIsInIt)
{
    void* const buffer = Deliver(8, 2, 5);
    EXPECT_EQ(BufferNumber(buffer, 7), 1U);
    ASSERT_EQ(stream.QueueBuffer(buffer), 0);
    EXPECT_EQ(Deliver(8), buffer);
    EXPECT_EQ(BufferNumber(buffer, 7), 0U);
    ASSERT_EQ(stream.QueueBuffer(buffer), 0);
    EXPECT_EQ(Deliver(8, 2, 0), buffer);
    EXPECT_EQ(BufferNumber(buffer, 7), 1U);
}

TEST_F(StatedBuffer, DeliberateStaysIncompleteForItsLife)
{
    Frame(0, 1, 1);
    void* const buffer = Take();
    EXPECT_EQ(BufferNumber(buffer, 7), 1U);
    ASSERT_EQ(stream.QueueBuffer(buffer), 0);
    Frame(0, 2);
    EXPECT_EQ(Take(), buffer);
    EXPECT_EQ(BufferNumber(buffer, 7), 1U);
}

TEST_F(StandardBuffer, TellsTheTimeInNanoseconds)
{
    details.tickFrequency = 75000000;
    Deliver(8);
    EXPECT_EQ(Kind(28), std::pair(8, 8UL));
    EXPECT_EQ(BufferNumber(handles[0], 28), 13346U);
    EXPECT_EQ(BufferNumber(handles[0], 3), 1001U) << "ticks, as they were";

    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    timestamp = UINT64_MAX / 2;
    details.tickFrequency = 1000000000;
    Deliver(8);
    EXPECT_EQ(BufferNumber(handles[0], 28), UINT64_MAX / 2);

    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    timestamp = 3UL << 62;
    details.tickFrequency = 1UL << 63;
    Deliver(8);
    EXPECT_EQ(BufferNumber(handles[0], 28), 1500000000U);
}

TEST_F(StandardBuffer, HasNoTimeInNanosecondsWithoutTheFrequency)
{
    Deliver(8);
    EXPECT_EQ(Code(28), kNotAvailable);
}

TEST_F(StandardBuffer, TellsWhereItsFrameBelongs)
{
    details.xOffset = 12;
    details.yOffset = 34;
    details.xPadding = 3;
    details.yPadding = 5;
    Deliver(8);
    for (const auto& [command, value] :
         {std::pair(12, 12UL), {13, 34UL}, {14, 3UL}, {15, 5UL}, {18, 0UL}, {22, 2UL}, {27, 8UL}})
    {
        EXPECT_EQ(BufferNumber(handles[0], command), value) << command;
        EXPECT_EQ(Kind(command), std::pair(12, 8UL)) << command;
    }
}

TEST_F(StandardBuffer, TellsTheFormatOfItsFrame)
{
    Deliver(8);
    EXPECT_EQ(BufferNumber(handles[0], 21), 4U) << "32-bit PFNC";
    EXPECT_EQ(Kind(21), std::pair(8, 8UL));
    EXPECT_EQ(BufferNumber(handles[0], 26), 1U) << "little";
    EXPECT_EQ(Kind(26), std::pair(5, 4UL));
    EXPECT_EQ(BufferNumber(handles[0], 29), 0U);
    EXPECT_EQ(Kind(29), std::pair(11, 1UL));
}

TEST_F(StandardBuffer, KnowsNothingOfAFrameBeforeTheFirst)
{
    for (const int command : {3, 9, 10, 11, 12, 13, 14, 15, 16, 18, 20, 21, 22, 26, 27, 28, 29})
    {
        EXPECT_EQ(Code(command), kNotAvailable) << command;
    }
}

TEST_F(StandardBuffer, DoesNotKnowWhatNoFrameHas)
{
    Deliver(8);
    for (const int command : {-1, 23, 24, 25, 31, 999, 1000})
    {
        EXPECT_EQ(Code(command), -1003) << command;
    }
}

TEST_F(StandardBuffer, TooSmallForItsFrameTellsWhatWasWritten)
{
    Deliver(12, 3);
    EXPECT_EQ(BufferNumber(handles[0], 9), 8U);
    EXPECT_EQ(BufferNumber(handles[0], 27), 8U) << "no consumer reads more than there is";
    EXPECT_EQ(BufferNumber(handles[0], 29), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 7), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 11), 3U);
    EXPECT_EQ(BufferNumber(handles[0], 22), 2U) << "lines";

    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    Deliver(8);
    EXPECT_EQ(BufferNumber(handles[0], 9), 8U);
    EXPECT_EQ(BufferNumber(handles[0], 29), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 7), 0U);
}

TEST_F(StandardBuffer, WithAShortFrameTellsWhatCame)
{
    Deliver(8, 4, 5);
    EXPECT_EQ(BufferNumber(handles[0], 9), 5U);
    EXPECT_EQ(BufferNumber(handles[0], 27), 8U);
    EXPECT_EQ(BufferNumber(handles[0], 22), 2U) << "lines";
    EXPECT_EQ(BufferNumber(handles[0], 29), 0U);
}

TEST_F(StandardBuffer, HoldsNothingWhileQueued)
{
    Deliver(8);
    EXPECT_EQ(BufferNumber(handles[0], 9), 8U);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(BufferNumber(handles[0], 9), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 27), 0U);
}

TEST_F(StatedBuffer, DeliberateTellsTheFramesSizeWhereLessWasWritten)
{
    unsigned char pixels[12] = {};
    stream.EndOfTransfer(&blocks[0], sizeof pixels, 1, 1, 4, 3, 0x01080001, pixels, 0);
    void* const buffer = Take();
    EXPECT_EQ(BufferNumber(buffer, 9), 12U);
    EXPECT_EQ(BufferNumber(buffer, 7), 0U);
    ASSERT_EQ(stream.QueueBuffer(buffer), 0);
    EXPECT_EQ(BufferNumber(buffer, 9), 12U);
}

TEST_F(StatedBuffer, DeliberateKnowsNoneOfTheStandardsFurtherInfos)
{
    GigERDMA::NQFrameDetails details;
    details.tickFrequency = 75000000;
    stream.SetFrameDetails(details);
    Frame(0, 1);
    void* const buffer = Take();
    for (const int command : {12, 13, 14, 15, 18, 21, 22, 26, 27, 28, 29})
    {
        unsigned long value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(stream.GetBufferInfo(buffer, command, &type, &value, &size), -1003) << command;
    }
}

} // namespace
