// SPDX-License-Identifier: Apache-2.0
// The standard's answers about frames as they come from a camera.
#include "support/data_stream_fixture.h"

namespace
{

constexpr int kNotAvailable = -1014;

class StandardGevStream : public nq::test::DataStreamFixture
{
  protected:
    StandardGevStream() : DataStreamFixture(kStandardAnswers) {}

    int Code(void* buffer, int command)
    {
        std::uint64_t value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        return stream->GetBufferInfo(buffer, command, &type, &value, &size);
    }
};

TEST_F(StandardGevStream, TellsTheTimeByTheCamerasClock)
{
    camera.SetRegister(0x093C, 0);
    camera.SetRegister(0x0940, 75000000);
    Run(1);
    void* const buffer = Receive(1); // at tick 1000001
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 28), 13333346U);
}

TEST_F(StandardGevStream, KnowsNoTimeOfACameraThatDoesNotTellItsFrequency)
{
    Run(1);
    EXPECT_EQ(Code(Receive(1), 28), kNotAvailable);
}

TEST_F(StandardGevStream, FindsOffsetsAndPaddingsInTheHeaders)
{
    Run(1);
    auto frame = nq::test::GenDCFrame(1, 16, 4);
    nq::test::Put32(frame, 80, 640);
    nq::test::Put32(frame, 84, 480);
    fake.DeliverFrame(frame);
    void* const buffer = NextBuffer();
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 12), 640U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 13), 480U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 14), 0x0708U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 15), 0x0506U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 9), 64U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 27), 64U);
}

TEST_F(StandardGevStream, CountsTheBytesOfAShortFrame)
{
    Run(1);
    auto frame = nq::test::GenDCFrame(1, 16, 4);
    frame.resize(176 + 40);
    fake.DeliverFrame(frame);
    void* const buffer = NextBuffer();
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 9), 40U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 27), 64U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 22), 2U);
    EXPECT_TRUE(BufferInfo<bool>(buffer, 7));

    ASSERT_EQ(stream->QueueBuffer(buffer), 0);
    EXPECT_EQ(Receive(2), buffer);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 9), 64U);
    EXPECT_FALSE(BufferInfo<bool>(buffer, 7));
}

TEST_F(StandardGevStream, CountsNothingOfAFrameThatEndsInItsHeaders)
{
    Run(1);
    auto frame = nq::test::GenDCFrame(1, 16, 4);
    frame.resize(176);
    fake.DeliverFrame(frame);
    EXPECT_EQ(BufferInfo<std::uint64_t>(NextBuffer(), 9), 0U);
}

/// The register `FrameLoss` after frames with these ids.
class FrameLossOfIds : public StandardGevStream
{
  protected:
    std::uint64_t After(std::initializer_list<std::uint64_t> ids)
    {
        Run(static_cast<int>(ids.size()));
        for (const std::uint64_t id : ids)
        {
            Receive(id);
        }
        while (Read64(0x80120) < ids.size()) // FramesReceived
        {
            std::this_thread::yield();
        }
        EXPECT_EQ(stream->StopAcquisition(1), 0);
        NQGevDataStreamAccess::WaitForThread(*stream);
        return Read64(0x80118);
    }
};

TEST_F(FrameLossOfIds, CountsTheIdsThatAreMissing)
{
    EXPECT_EQ(After({7, 8, 11, 12, 112}), 101U) << "9, 10 and those from 13 to 111";
}

TEST_F(FrameLossOfIds, CountsNothingBeforeTheFirstFrame)
{
    EXPECT_EQ(After({1000}), 0U);
}

TEST_F(FrameLossOfIds, BeginsAnewWhereTheIdsRunBackwards)
{
    EXPECT_EQ(After({10, 12, 1, 2, 4}), 2U) << "11 and 3";
}

/// What a start gives with a payload of `payload` bytes on a port that takes messages of `longest` bytes.
class PayloadOverTheLongestMessage : public StandardGevStream
{
  protected:
    int Start(std::uint64_t payload, std::uint32_t longest)
    {
        nq::test::Bytes settings(176, 0xEE);
        std::memcpy(settings.data() + 32, &payload, 8);
        camera.SetMemory(0xE600, settings);
        fake.longestMessage = longest;
        Announce(1);
        const int result = stream->StartAcquisition(0, nq::test::kInfinite);
        stream->StopAcquisition(1);
        return result;
    }
};

constexpr int kExhausted = -1020;

TEST_F(PayloadOverTheLongestMessage, FailsTheStart)
{
    ASSERT_EQ(stream->Open(), 0);
    EXPECT_EQ(Start(1024, 1200), 0);
    camera.Forget();
    EXPECT_EQ(Start(1024, 1199), kExhausted);
    EXPECT_EQ(camera.Count(nq::test::kStreamOn), 0U) << "before the camera is told to stream";
    EXPECT_EQ(Start(0, 175), kExhausted);
    EXPECT_EQ(Start(0xFFFFFFFFFFFFFFFF, 0xFFFFFFFF), kExhausted);
    EXPECT_EQ(Start(0x80000000 - 176, 0xFFFFFFFF), kExhausted) << "no receive takes 2^31 bytes";
    EXPECT_EQ(Start(1024, 1200), 0) << "and another payload starts";
}

TEST_F(PayloadOverTheLongestMessage, IsNotKnownOfAPortThatDoesNotTell)
{
    ASSERT_EQ(stream->Open(), 0);
    EXPECT_EQ(Start(1024, 0), 0);
    fake.Fail("ibv_query_port", EINVAL, 2);
    EXPECT_EQ(Start(1024, 1), 0);
}

using StatedGevStream = nq::test::DataStreamFixture;

TEST_F(StatedGevStream, StartsWithAPayloadOverTheLongestMessageAndDoesNotAskThePort)
{
    fake.longestMessage = 100;
    Run(1);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_THAT(fake.Calls(), testing::Not(testing::Contains("ibv_query_port")));
}

} // namespace
