// SPDX-License-Identifier: Apache-2.0
// Buffers that are their own blocks, by the standard's answers: when the camera gets and has them, what becomes of
// frames after a flush, and the memory of a buffer that the library allocates.
#include "support/stream_fixture.h"

#include <vector>

namespace
{

constexpr int kBusy = -1022;
constexpr int kInputToOutput = 0;
constexpr int kUnqueuedToInput = 3;
constexpr int kAllDiscard = 4;

class OwnBlocks : public nq::test::StreamFixture
{
  protected:
    OwnBlocks() : StreamFixture(kStandardAnswers) {}

    void SetUp() override
    {
        ASSERT_EQ(stream.Open(), 0);
        RegisterNewBuffer();
    }

    void Start() { ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0); }

    void RunWith(int announced, int queued)
    {
        Announce(announced);
        Queue(queued);
        Start();
    }

    /// The blocks given to the camera since the last call.
    std::vector<void*> Posted() { return std::exchange(stream.requeued, {}); }

    using Blocks = std::vector<void*>;
};

TEST_F(OwnBlocks, TheCameraGetsWhatIsQueuedInItsOrder)
{
    Announce(3);
    ASSERT_EQ(stream.QueueBuffer(handles[2]), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Posted(), Blocks{}) << "before the start";
    Start();
    EXPECT_EQ(Posted(), (Blocks{&blocks[2], &blocks[0]}));
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[1]})) << "while it runs";
}

TEST_F(OwnBlocks, TheCameraWaitsWhenNothingIsQueued)
{
    RunWith(2, 0);
    EXPECT_EQ(Posted(), Blocks{});
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0]}));
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Posted(), Blocks{}) << "until it is queued again";
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0]}));
}

TEST_F(OwnBlocks, ABufferAnnouncedWhileItRunsTakesFrames)
{
    RunWith(1, 1);
    ASSERT_EQ(stream.AnnounceBuffer(memory[1], sizeof memory[1], nullptr, &handles[1]), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0], &blocks[1]}));
    Frame(0, 1);
    Frame(1, 2);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(memory[1][0], 2);
}

TEST_F(OwnBlocks, AFlushedBufferIsStillWithTheCameraAndSimplyWaitsAgain)
{
    RunWith(2, 2);
    Posted();
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    Queue(2);
    EXPECT_EQ(Posted(), Blocks{}) << "not once more";
    Frame(0, 1);
    Frame(1, 2);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(Number(2), 0U);
}

TEST_F(OwnBlocks, AFrameInAFlushedBlockGoesToTheBufferThatWaitsUnposted)
{
    RunWith(3, 1);
    Posted();
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Posted(), Blocks{}) << "the flushed block brings its frame";
    ASSERT_EQ(stream.QueueBuffer(handles[2]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[2]}));
    Frame(0, 7);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(memory[1][0], 7);
    Frame(2, 8);
    EXPECT_EQ(Take(), handles[2]);
    EXPECT_EQ(Posted(), Blocks{});
    EXPECT_EQ(Number(2), 0U);
}

TEST_F(OwnBlocks, AFrameInAFlushedBlockGoesToNoBufferThatTheCameraHas)
{
    RunWith(2, 2);
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    Frame(0, 7);
    EXPECT_EQ(Take(), nullptr) << "the next frame may come into it while it is read";
    EXPECT_EQ(Number(2), 1U) << "lost";
    Frame(1, 8);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(memory[1][0], 8);
}

TEST_F(OwnBlocks, AFlushedBufferThatWaitsAgainSetsAnotherFree)
{
    RunWith(2, 1);
    Posted();
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Posted(), Blocks{});
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[1]})) << "its frame does not come in the other's block any more";
}

TEST_F(OwnBlocks, ABufferThatTheCameraHasIsNotRevokedBeforeTheStop)
{
    RunWith(2, 1);
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), kBusy);
    EXPECT_EQ(stream.RevokeBuffer(handles[1], nullptr, nullptr), 0) << "the camera never had it";
    EXPECT_EQ(stream.forgotten, (Blocks{&blocks[1]}));
    ASSERT_EQ(stream.StopAcquisition(1), 0);
    void* handed = nullptr;
    EXPECT_EQ(stream.RevokeBuffer(handles[0], &handed, nullptr), 0);
    EXPECT_EQ(handed, memory[0]);
    EXPECT_EQ(stream.forgotten.size(), 1U) << "the transport is gone";
}

TEST_F(OwnBlocks, ThatFindTheTransportFullArePostedAsFramesCome)
{
    stream.room = 2;
    RunWith(4, 4);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0], &blocks[1]}));
    stream.room = 1;
    Frame(0, 1);
    EXPECT_EQ(Posted(), (Blocks{&blocks[2]}));
    stream.room = 1;
    Frame(1, 2);
    EXPECT_EQ(Posted(), (Blocks{&blocks[3]}));
    stream.room = 1;
    Frame(2, 3);
    EXPECT_EQ(Posted(), Blocks{});
    ASSERT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0]}));
}

TEST_F(OwnBlocks, AFrameThatNobodyCanUseCostsNoBlock)
{
    RunWith(2, 2);
    Posted();
    stream.DropFrame(&blocks[0]);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0]})) << "given back at once";
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    stream.DropFrame(&blocks[1]);
    EXPECT_EQ(Posted(), Blocks{}) << "nobody waits for it";
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Posted(), (Blocks{&blocks[1]}));
}

TEST_F(OwnBlocks, AFrameThatComesAfterTheStopReachesNoBuffer)
{
    RunWith(1, 1);
    ASSERT_EQ(stream.StopAcquisition(1), 0);
    Frame(0, 7);
    EXPECT_EQ(memory[0][0], 0);
    EXPECT_EQ(Take(), nullptr);
    EXPECT_EQ(Number(2), 0U);
    Start();
    Frame(0, 8);
    EXPECT_EQ(Take(), handles[0]) << "still queued";
}

TEST_F(OwnBlocks, ABufferTheTransportCannotTakeStillGetsTheFrameOfAFlushedBlock)
{
    stream.ids = {&blocks[0]};
    RunWith(2, 1);
    Posted();
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    Frame(0, 7);
    EXPECT_EQ(Take(), handles[1]);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Posted(), Blocks{});
}

TEST_F(OwnBlocks, WithNobodyRegisteredABufferGoesOnWaiting)
{
    ASSERT_EQ(stream.UnregisterEvent(1), 0);
    RunWith(1, 1);
    Posted();
    Frame(0, 7);
    EXPECT_EQ(Posted(), (Blocks{&blocks[0]}));
    EXPECT_EQ(Number(4), 1U);
    RegisterNewBuffer();
    Frame(0, 8);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Number(2), 0U);
}

TEST_F(OwnBlocks, WithNobodyRegisteredABufferFlushedToTheOutputIsTheConsumers)
{
    ASSERT_EQ(stream.UnregisterEvent(1), 0);
    RunWith(2, 2);
    Posted();
    ASSERT_EQ(stream.FlushQueue(kInputToOutput), 0);
    EXPECT_EQ(Number(4), 0U);
    RegisterNewBuffer();
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    ASSERT_EQ(stream.FlushQueue(kUnqueuedToInput), 0);
    EXPECT_EQ(Number(4), 2U);
    Frame(1, 8);
    EXPECT_EQ(Take(), handles[1]);
}

class OwnMemory : public OwnBlocks
{
  protected:
    void* Base(int buffer) { return reinterpret_cast<void*>(BufferNumber(handles[buffer], 0)); }
};

TEST_F(OwnMemory, IsTheSameFromAnnouncementToRevocation)
{
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), 0);
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[1]), 0);
    void* const base = Base(0);
    ASSERT_NE(base, nullptr);
    EXPECT_NE(Base(1), base);
    EXPECT_EQ(*static_cast<unsigned char*>(base), 0);
    Queue(1);
    for (int run = 0; run < 2; ++run)
    {
        Start();
        Frame(0, 5);
        EXPECT_EQ(Take(), handles[0]);
        EXPECT_EQ(Base(0), base);
        EXPECT_EQ(*static_cast<unsigned char*>(base), 5);
        ASSERT_EQ(stream.StopAcquisition(1), 0);
        ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    }
    ASSERT_EQ(stream.FlushQueue(kAllDiscard), 0);
    void* handed = &handed;
    EXPECT_EQ(stream.RevokeBuffer(handles[0], &handed, nullptr), 0);
    EXPECT_EQ(handed, nullptr) << "it has ended";
}

TEST_F(OwnMemory, TakesNoMoreOfAFrameThanItHasRoomFor)
{
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(3, nullptr, &handles[0]), 0);
    Queue(1);
    Start();
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(BufferNumber(handles[0], 9), 3U);
    EXPECT_EQ(BufferNumber(handles[0], 7), 1U);
}

TEST_F(OwnMemory, ThatThereIsNoneOfIsToldAtTheAnnouncement)
{
    stream.hasMemory = false;
    EXPECT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), -1021);
    EXPECT_EQ(Number(3), 0U);
}

} // namespace
