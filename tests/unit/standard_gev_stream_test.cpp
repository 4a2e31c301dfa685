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

} // namespace
