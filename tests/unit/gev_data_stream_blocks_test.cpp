// SPDX-License-Identifier: Apache-2.0
// The frame blocks of a stream, seen from its buffers: who may give one back, and for how long one stays.
#include "support/data_stream_fixture.h"
#include "support/mapped.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

using nq::test::GenDCFrame;
using nq::test::GvcpCamera;
using nq::test::kInfinite;
using nq::test::kStreamOff;
using nq::test::LivingThreads;

namespace
{

class GevDataStreamBlocks : public nq::test::DataStreamFixture
{
  protected:
    void* BaseOf(void* buffer) { return BufferInfo<void*>(buffer, GenTL::BUFFER_INFO_BASE); }

    /// Waits until the camera may send `count` frames; false when it may not in 20 s.
    bool AwaitCredits(std::size_t count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (fake.Credits() != count && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return fake.Credits() == count;
    }
};

/// A stream that a test can hold up while it gives a block back.
class HeldStream : public NQGevDataStream
{
  public:
    using NQGevDataStream::NQGevDataStream;

    /// Of a stopped stream, whose thread calls what this class overrides.
    ~HeldStream() override { NQGevDataStreamAccess::WaitForThread(*this); }

    int DoRequeueBuffer(void* rdmaId) override
    {
        beforeRequeue();
        const int result = NQGevDataStream::DoRequeueBuffer(rdmaId);
        afterRequeue();
        return result;
    }

    std::function<void()> beforeRequeue = [] {};
    std::function<void()> afterRequeue = [] {};
};

TEST_F(GevDataStreamBlocks, AReturnReachesTheEndpointOfItsOwnRunAlsoWhenTheNextOneStartsMeanwhile)
{
    auto held = std::make_unique<HeldStream>(&device, 2, nullptr);
    HeldStream& streamHeld = *held;
    stream = std::move(held);
    const long threads = LivingThreads();
    Run(2);
    void* const buffer = Receive(1);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    while (LivingThreads() > threads)
    {
        std::this_thread::yield(); // nothing else is to hold the start up
    }
    camera.Forget();
    fake.OnCall(
        "rdma_connect", [] { std::this_thread::sleep_for(std::chrono::milliseconds(400)); }, 2);
    std::thread start;
    streamHeld.beforeRequeue = [&] {
        start = std::thread([&] { EXPECT_EQ(stream->StartAcquisition(0, kInfinite), 0); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // and no lock, which would order the two
    };
    streamHeld.afterRequeue = [&] { EXPECT_EQ(camera.Count(kStreamOff), 0) << "the start waits"; };
    EXPECT_EQ(stream->QueueBuffer(buffer), 0);
    start.join();
    EXPECT_EQ(Receive(1), buffers[1]);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

// ---- giving blocks back

TEST_F(GevDataStreamBlocks, ABlockThatWentToAnotherBufferGoesBackOnceThatBufferIsRevoked)
{
    Run(2);
    Receive(1);
    Receive(2);
    QueueAll();
    fake.WaitForSent(4);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    EXPECT_EQ(fake.Credits(), 2U) << "its block is posted already";
    EXPECT_EQ(Receive(3), buffers[1]) << "in the block of the other buffer";
    fake.DeliverFrame(GenDCFrame(4, 16, 4));
    WaitForFramesReceived(4);
    EXPECT_EQ(Read64(0x8042C), 1U);
    EXPECT_EQ(fake.Credits(), 0U);
    ASSERT_EQ(stream->RevokeBuffer(buffers[1], nullptr, nullptr), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ASSERT_TRUE(AwaitCredits(1));
    EXPECT_EQ(Receive(5), buffers[0]);
}

TEST_F(GevDataStreamBlocks, ABlockOnShowIsNotGivenBackByAnotherBufferUntilItIsOnShowNoMore)
{
    Run(2);
    void* const shown = BaseOf(Receive(1));
    Receive(2);
    QueueAll();
    fake.WaitForSent(4);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    ASSERT_EQ(Receive(3), buffers[1]);
    ASSERT_EQ(BaseOf(buffers[1]), shown);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ASSERT_EQ(Receive(4), buffers[0]) << "in the block that nobody has asked back since";
    EXPECT_EQ(fake.Sent().size(), 4U) << "the frame in the first block is on show";
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    ASSERT_TRUE(AwaitCredits(1));
    EXPECT_EQ(Receive(5), buffers[1]);
    EXPECT_EQ(BaseOf(buffers[1]), shown);
}

TEST_F(GevDataStreamBlocks, ABlockThatItsBufferLeftForAnotherFrameGoesBackByWhoeverHasItsId)
{
    Run(2);
    Receive(1);
    void* const second = BaseOf(Receive(2));
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    fake.WaitForSent(4);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ASSERT_EQ(Receive(3), buffers[0]);
    ASSERT_EQ(BaseOf(buffers[0]), second) << "both buffers have the id of this block now";
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_UNQUEUED_TO_INPUT), 0);
    ASSERT_EQ(Receive(4), buffers[0]);
    ASSERT_NE(BaseOf(buffers[0]), second);
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    EXPECT_TRUE(AwaitCredits(1));
}

TEST_F(GevDataStreamBlocks, AFrameThatWasCopiedIsNotOnShowSoThatAnyBufferWithTheIdGivesTheBlockBack)
{
    unsigned char memory[2][64] = {};
    for (auto& one : memory)
    {
        buffers.push_back(nullptr);
        ASSERT_EQ(stream->AnnounceBuffer(one, sizeof one, nullptr, &buffers.back()), 0);
    }
    Run(0);
    Receive(1);
    Receive(2);
    QueueAll();
    fake.WaitForSent(4);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    ASSERT_EQ(Receive(3), buffers[1]);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ASSERT_TRUE(AwaitCredits(2));
    EXPECT_EQ(memory[1][63], 63);
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    EXPECT_EQ(Receive(4), buffers[0]);
    EXPECT_EQ(Receive(5), buffers[1]);
}

TEST_F(GevDataStreamBlocks, AFramePastTheLimitLeavesItsBlockToTheBufferBoundToIt)
{
    Run(1);
    Receive(1);
    QueueAll();
    fake.WaitForSent(2);
    ASSERT_EQ(stream->StartAcquisition(0, 1), -1004) << "and has set a limit";
    Receive(2);
    QueueAll();
    fake.WaitForSent(3);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->DoOpen(), 0); // from here on it does not count as started, so that nothing stops it
    fake.DeliverFrame(GenDCFrame(3, 16, 4));
    WaitForFramesReceived(3);
    QueueAll();
    EXPECT_TRUE(AwaitCredits(1));
}

// ---- how long blocks stay

class GevDataStreamLargeBlocks : public GevDataStreamBlocks
{
  protected:
    GevDataStreamLargeBlocks() { SetPayload(std::uint64_t{48} << 20); } // goes back to the system as soon as it is free

    void SetPayload(std::uint64_t payload)
    {
        nq::test::Bytes bytes(sizeof payload);
        std::memcpy(bytes.data(), &payload, sizeof payload);
        camera.SetMemory(0xE620, bytes);
    }

    void Restart()
    {
        ASSERT_EQ(stream->StopAcquisition(1), 0);
        ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    }

    /// Frames 1 and 2 in both buffers, then a restart with both queued. The addresses of the frames.
    std::array<void*, 2> ShowFramesOfTheRunBefore()
    {
        Run(2);
        const std::array<void*, 2> shown = {BaseOf(Receive(1)), BaseOf(Receive(2))};
        EXPECT_EQ(stream->StopAcquisition(1), 0);
        QueueAll();
        EXPECT_EQ(stream->StartAcquisition(0, kInfinite), 0);
        return shown;
    }
};

TEST_F(GevDataStreamLargeBlocks, ABufferFlushedToTheOutputAfterARestartShowsMemoryThatIsThere)
{
    const auto shown = ShowFramesOfTheRunBefore();
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_INPUT_TO_OUTPUT), 0);
    for (std::size_t buffer = 0; buffer < 2; ++buffer)
    {
        ASSERT_EQ(NextBuffer(), buffers[buffer]);
        EXPECT_EQ(BaseOf(buffers[buffer]), shown[buffer]);
        ASSERT_TRUE(nq::test::IsMapped(shown[buffer]));
        EXPECT_EQ(static_cast<const unsigned char*>(shown[buffer])[63], 63);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffers[buffer], GenTL::BUFFER_INFO_FRAMEID), 1U + buffer);
    }
}

TEST_F(GevDataStreamLargeBlocks, ABlockOfTheRunBeforeGoesAsSoonAsItsBufferTakesAnotherFrame)
{
    const auto shown = ShowFramesOfTheRunBefore();
    for (std::size_t buffer = 0; buffer < 2; ++buffer)
    {
        EXPECT_TRUE(nq::test::IsMapped(shown[buffer]));
        ASSERT_EQ(Receive(7), buffers[buffer]);
        WaitForFramesReceived(1 + buffer);
        EXPECT_FALSE(nq::test::IsMapped(shown[buffer])) << "buffer " << buffer;
    }
}

TEST_F(GevDataStreamLargeBlocks, ABlockThatTwoBuffersShowStaysUntilNeitherDoes)
{
    Run(2);
    void* const shown = BaseOf(Receive(1));
    Receive(2);
    QueueAll();
    fake.WaitForSent(4);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->QueueBuffer(buffers[1]), 0);
    ASSERT_EQ(Receive(3), buffers[1]);
    ASSERT_EQ(BaseOf(buffers[1]), BaseOf(buffers[0]));
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    QueueAll();
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    ASSERT_EQ(Receive(1), buffers[0]);
    WaitForFramesReceived(1);
    EXPECT_TRUE(nq::test::IsMapped(shown));
    ASSERT_EQ(Receive(2), buffers[1]);
    WaitForFramesReceived(2);
    EXPECT_FALSE(nq::test::IsMapped(shown));
}

TEST_F(GevDataStreamLargeBlocks, AnAddressThatARevokeHandedOutStaysUntilTheNextStart)
{
    const auto shown = ShowFramesOfTheRunBefore();
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    void* address = nullptr;
    ASSERT_EQ(stream->RevokeBuffer(buffers[0], &address, nullptr), 0);
    EXPECT_EQ(address, shown[0]);
    EXPECT_TRUE(nq::test::IsMapped(address));
    EXPECT_EQ(stream->StartAcquisition(0, kInfinite), -1004);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    SetPayload(64); // so that the next blocks lie elsewhere
    ASSERT_TRUE(nq::test::IsMapped(address)) << "neither a refused start nor a stop takes it away";
    EXPECT_EQ(static_cast<const unsigned char*>(address)[63], 63);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    EXPECT_FALSE(nq::test::IsMapped(address));
    EXPECT_TRUE(nq::test::IsMapped(shown[1])) << "shown by a buffer still";
}

TEST_F(GevDataStreamLargeBlocks, AnAddressThatARevokeOfTheRunningStreamHandedOutStaysUntilTheNextStart)
{
    Run(1);
    Receive(1);
    void* address = nullptr;
    ASSERT_EQ(stream->RevokeBuffer(buffers[0], &address, nullptr), 0);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    SetPayload(64); // so that the next blocks lie elsewhere
    ASSERT_TRUE(nq::test::IsMapped(address));
    EXPECT_EQ(static_cast<const unsigned char*>(address)[63], 63);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    EXPECT_FALSE(nq::test::IsMapped(address));
}

TEST_F(GevDataStreamLargeBlocks, ARevokeThatHandsNoAddressOutLetsABlockOfTheRunBeforeGoAtOnce)
{
    const auto shown = ShowFramesOfTheRunBefore();
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream->RevokeBuffer(buffers[0], nullptr, nullptr), 0);
    EXPECT_FALSE(nq::test::IsMapped(shown[0]));
    EXPECT_TRUE(nq::test::IsMapped(shown[1]));
}

TEST_F(GevDataStreamLargeBlocks, AFrameStaysOverAnyNumberOfRestartsWhileTheConsumerHasIt)
{
    Run(2);
    void* const shown = BaseOf(Receive(1));
    for (int restart = 0; restart < 3; ++restart)
    {
        Restart();
        ASSERT_TRUE(nq::test::IsMapped(shown));
        EXPECT_EQ(static_cast<const unsigned char*>(shown)[63], 63);
    }
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    Restart();
    EXPECT_TRUE(nq::test::IsMapped(shown)) << "queued, it still shows it";
    EXPECT_EQ(Receive(1), buffers[1]);
    EXPECT_EQ(Receive(2), buffers[0]);
    WaitForFramesReceived(2);
    EXPECT_FALSE(nq::test::IsMapped(shown));
}

} // namespace
