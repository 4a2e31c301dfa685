// SPDX-License-Identifier: Apache-2.0
// Acquisition from a camera that spoils frames, sizes and connections: what the consumer sees, and that the next
// acquisition works.
#include "support/stream_consumer.h"

#include <algorithm>
#include <cctype>
#include <gmock/gmock.h>

namespace
{

using nq::test::Consumer;
using nq::test::Descriptors;
using nq::test::ExpectAWholeRun;
using nq::test::Ids;
using nq::test::LivingThreads;
using nq::test::SmallFrames;
using nq::test::TakeUntilStruck;
using nq::test::VirtualCamera;

std::string Named(const testing::TestParamInfo<const char*>& fault)
{
    std::string name = fault.param;
    std::replace_if(
        name.begin(), name.end(), [](char letter) { return std::isalnum(letter) == 0; }, '_');
    return name;
}

void Clear(const VirtualCamera& camera, const std::string& fault)
{
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":")" + fault + R"("})"), R"({"ok":true})");
}

/// A fault that makes the first frame, of 1200 bytes in a block of 1200, useless.
class StreamBadFrame : public testing::TestWithParam<const char*>
{
};

TEST_P(StreamBadFrame, CostsItsBlockAndNothingElse)
{
    const VirtualCamera camera(SmallFrames({"--fault", GetParam()}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(30), Ids(2, 31)) << "the first frame is not delivered";
    EXPECT_EQ(consumer.seen.size(), 2U) << "two blocks still go round";
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN), 0U);
    EXPECT_EQ(consumer.Register64(0x80110), 0U);
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

INSTANTIATE_TEST_SUITE_P(Faults, StreamBadFrame,
                         testing::Values("empty-frame", "short-frame:1199", "short-frame:5000",
                                         "wrong-component-offset", "wrong-component-offset:0",
                                         "wrong-component-offset:65", "wild-part-offset", "wild-part-offset:1145",
                                         "wild-part-offset:1200", "wild-part-offset:0x7FFFFFFF", "wild-data-offset",
                                         "wild-data-offset:177", "wild-data-offset:1200", "wild-data-offset:0x7FFFFFFF",
                                         "huge-data-size", "huge-data-size:1025", "huge-data-size:0xFFFFFFFFFFFFFF50"),
                         Named);

/// Bytes that are missing at the end of the first frame, and how many of its pixels came.
struct Cut
{
    const char* fault;
    std::size_t pixels;
};

class StreamShortFrame : public testing::TestWithParam<Cut>
{
};

TEST_P(StreamShortFrame, IsDeliveredAsIncomplete)
{
    const VirtualCamera camera(SmallFrames({"--fault", GetParam().fault}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    const GenTL::BUFFER_HANDLE cut = consumer.Next();
    ASSERT_NE(cut, nullptr);
    EXPECT_EQ(consumer.FrameId(cut), 1U);
    EXPECT_TRUE(consumer.Info<bool>(cut, GenTL::BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_EQ(consumer.Info<std::uint64_t>(cut, GenTL::BUFFER_INFO_SIZE_FILLED), 1024U);
    EXPECT_TRUE(consumer.ShowsItsFrame(cut, GetParam().pixels));
    const auto* const pixels = consumer.Info<const unsigned char*>(cut, GenTL::BUFFER_INFO_BASE);
    for (std::size_t pixel = GetParam().pixels; pixel < 1024; ++pixel)
    {
        ASSERT_EQ(pixels[pixel], 0) << "nothing came for pixel " << pixel;
    }
    EXPECT_EQ(consumer.Take(2), Ids(2, 3));
    EXPECT_EQ(consumer.Stop(), 0);
    consumer.RenewBuffers();
    ExpectAWholeRun(consumer);
}

INSTANTIATE_TEST_SUITE_P(Faults, StreamShortFrame,
                         testing::Values(Cut{"short-frame", 512}, Cut{"short-frame:1", 1023},
                                         Cut{"short-frame:1024", 0}),
                         [](const auto& cut) { return "Pixels" + std::to_string(cut.param.pixels); });

TEST(StreamFaults, AnIdThatJumpsForwardCountsNothing)
{
    const VirtualCamera camera(SmallFrames({"--fault", "id-jump"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(20), Ids(11, 30));
    EXPECT_EQ(consumer.Register64(0x80110), 0U);
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

TEST(StreamFaults, AnIdThatRunsBackwardsLowersFrameLoss)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10), Ids(1, 10));
    camera.Fault("id-backwards");
    std::uint64_t last = 10;
    for (int frame = 0; frame < 10000; ++frame)
    {
        const auto ids = consumer.Take(1);
        ASSERT_EQ(ids.size(), 1U);
        if (ids[0] != last + 1)
        {
            EXPECT_EQ(ids[0], last - 4);
            break;
        }
        last = ids[0];
    }
    EXPECT_EQ(consumer.Take(20), Ids(last - 3, last + 16));
    // Each frame below the expected id takes its distance off: 5, 4, 3, 2 and 1.
    EXPECT_EQ(consumer.Register64(0x80110), 0xFFFFFFFFFFFFFFF1U);
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

TEST(StreamFaults, ARefusedConnectionFailsTheStartAndTheNextStartWorks)
{
    const VirtualCamera camera(SmallFrames({"--fault", "reject-connect"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(2);
    const long threads = LivingThreads() + 1; // that of the software RDMA
    EXPECT_EQ(consumer.Start(), -1001);
    const long descriptors = Descriptors();
    for (int attempt = 0; attempt < 5; ++attempt)
    {
        EXPECT_EQ(consumer.Start(), -1001);
        EXPECT_EQ(consumer.Stop(), -1004);
        EXPECT_EQ(Descriptors(), descriptors);
        EXPECT_EQ(nq::test::ThreadsDownTo(threads), threads);
    }
    Clear(camera, "reject-connect");
    ExpectAWholeRun(consumer);
}

TEST(StreamFaults, ACameraThatAcceptsLateIsWaitedFor)
{
    const VirtualCamera camera(SmallFrames({"--fault", "slow-accept:1500"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    const auto before = std::chrono::steady_clock::now();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1500));
    EXPECT_EQ(consumer.Take(10), Ids(1, 10));
    EXPECT_EQ(consumer.Stop(), 0);
    Clear(camera, "slow-accept");
    ExpectAWholeRun(consumer);
}

TEST(StreamFaults, ACameraThatDisconnectsEndsTheFlowAndARestartBringsItBack)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
    camera.Fault("disconnect-mid-frame");
    TakeUntilStruck(consumer, camera, "disconnect-mid-frame");
    EXPECT_EQ(consumer.Start(), -1004) << "the consumer is told nothing, the stream still runs";
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

TEST(StreamFaults, ACameraThatDisconnectsAtTheFirstFrameEndsTheFlow)
{
    const VirtualCamera camera(SmallFrames({"--fault", "disconnect-mid-frame"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    TakeUntilStruck(consumer, camera, "disconnect-mid-frame");
    EXPECT_LE(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED), 1U);
    EXPECT_EQ(consumer.Stop(), 0);
    ExpectAWholeRun(consumer);
}

/// A payload size for which no block can be made.
class StreamHugePayload : public testing::TestWithParam<const char*>
{
};

TEST_P(StreamHugePayload, FailsTheStartAndTheNextStartWorks)
{
    const VirtualCamera camera(SmallFrames({"--fault", GetParam()}));
    Consumer consumer;
    consumer.AnnounceAndQueue(2);
    EXPECT_EQ(consumer.Start(), -1001);
    EXPECT_EQ(consumer.Stop(), -1004);
    Clear(camera, "huge-payload-size");
    ExpectAWholeRun(consumer);
}

INSTANTIATE_TEST_SUITE_P(Faults, StreamHugePayload,
                         testing::Values("huge-payload-size", "huge-payload-size:0xFFFFFF50",
                                         "huge-payload-size:0x100000000", "huge-payload-size:0xFFFFFFFFFFFFFFFF"),
                         Named);

/// A payload size below the 1024 bytes that the frames have.
class StreamSmallPayload : public testing::TestWithParam<const char*>
{
};

TEST_P(StreamSmallPayload, AFrameLongerThanItsBlockEndsTheFlowUndelivered)
{
    const VirtualCamera camera(SmallFrames({"--fault", GetParam()}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Next(1000), nullptr);
    EXPECT_EQ(consumer.StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED), 0U);
    EXPECT_EQ(consumer.Stop(), 0);
    Clear(camera, "huge-payload-size");
    ExpectAWholeRun(consumer);
}

INSTANTIATE_TEST_SUITE_P(Faults, StreamSmallPayload,
                         testing::Values("huge-payload-size:0", "huge-payload-size:16", "huge-payload-size:1023"),
                         Named);

TEST(StreamFaults, FramesInABlockWithRoomToSpareAreIncomplete)
{
    const VirtualCamera camera(SmallFrames({"--fault", "huge-payload-size:4096"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    for (std::uint64_t frame = 1; frame <= 10; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(consumer.FrameId(buffer), frame);
        EXPECT_TRUE(consumer.Info<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), 1024U);
        EXPECT_TRUE(consumer.ShowsItsFrame(buffer));
        EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(consumer.Stop(), 0);
    Clear(camera, "huge-payload-size");
    consumer.AwaitEndOfRun(); // a last frame of it would leave its buffer incomplete
    consumer.RenewBuffers();
    ExpectAWholeRun(consumer);
}

TEST(StreamFaults, ACameraThatRebootsEndsTheFlowAndANewSessionWorks)
{
    const VirtualCamera camera(SmallFrames());
    {
        Consumer consumer;
        consumer.AnnounceAndQueue(3);
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_EQ(consumer.Take(5), Ids(1, 5));
        camera.Fault("reboot:100");
        while (const GenTL::BUFFER_HANDLE buffer = consumer.Next(1000))
        {
            ASSERT_TRUE(consumer.ShowsItsFrame(buffer));
            EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
        }
        EXPECT_EQ(consumer.Stop(), 0);
    }
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ExpectAWholeRun(consumer);
}

} // namespace
