// SPDX-License-Identifier: Apache-2.0
// The memory of buffers at the verbs, by the standard's answers and by the library's own: what is registered and posted
// when, and which bytes of a frame come where.
#include "support/data_stream_fixture.h"

#include <algorithm>
#include <array>

namespace
{

using nq::test::GenDCFrame;

constexpr int kAllDiscard = 4;
constexpr std::size_t kBlock = 240; // 176 bytes of headers, 64 of pixels

class Blocks : public nq::test::DataStreamFixture
{
  protected:
    using DataStreamFixture::DataStreamFixture;

    unsigned char* Base(void* buffer) { return BufferInfo<unsigned char*>(buffer, 0); }

    std::size_t Regions()
    {
        const auto live = fake.LiveObjects();
        return live.count("region");
    }

    /// Waits for the worker, which posts.
    bool HasCredits(std::size_t count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (fake.Credits() != count && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::yield();
        }
        return fake.Credits() == count;
    }
};

class StandardBlocks : public Blocks
{
  protected:
    StandardBlocks() : Blocks(kStandardAnswers) {}

    void Begin()
    {
        void* event = nullptr;
        ASSERT_EQ(stream->Open(), 0);
        ASSERT_EQ(stream->RegisterEvent(1, &event), 0);
        newBuffer = stream->FindEventByHandle(event);
    }

    void* Allocate(unsigned long size)
    {
        void* handle = nullptr;
        EXPECT_EQ(stream->AllocAndAnnounceBuffer(size, nullptr, &handle), 0);
        return handle;
    }

    void Start() { ASSERT_EQ(stream->StartAcquisition(0, nq::test::kInfinite), 0); }

    /// Whether the pixels that GenDCFrame makes are at `pixels`.
    static bool AreThePixels(const unsigned char* pixels, std::uint64_t frameId)
    {
        const auto frame = GenDCFrame(frameId, 16, 4);
        return std::equal(frame.begin() + 176, frame.end(), pixels);
    }
};

TEST_F(StandardBlocks, AreRegisteredAtTheStartAndPostedWhenQueued)
{
    Begin();
    Announce(3);
    EXPECT_EQ(Regions(), 0U) << "nothing without an acquisition";
    ASSERT_EQ(stream->QueueBuffer(buffers[2]), 0);
    Start();
    ASSERT_TRUE(HasCredits(1));
    EXPECT_EQ(fake.regionLengths, (std::vector<std::size_t>{60, kBlock, kBlock, kBlock}));
    EXPECT_EQ(fake.regionAccess, (std::vector<int>{0, 1, 1, 1}));
    fake.WaitForSent(1);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ASSERT_TRUE(HasCredits(2));
    fake.WaitForSent(2);
    nq::test::Bytes ready(60, 0);
    ready[0] = 1;
    ready[3] = 1;
    EXPECT_EQ(fake.Sent()[0].bytes, ready);
    EXPECT_EQ(fake.Sent()[1].bytes, ready);
    EXPECT_EQ(fake.ReceiveLengths(), (std::vector<std::uint32_t>{240, 240}));
    EXPECT_EQ(fake.DeliverFrame(GenDCFrame(1, 16, 4)), Base(buffers[2]) - 176) << "straight into the buffer";
    EXPECT_EQ(NextBuffer(), buffers[2]);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(Regions(), 0U);
    EXPECT_TRUE(AreThePixels(Base(buffers[2]), 1)) << "it stays";
}

TEST_F(StandardBlocks, AReceiveIsPostedBeforeItsReadyMessage)
{
    Run(2);
    fake.WaitForSent(2);
    std::vector<std::string> posts = fake.Calls();
    std::erase_if(posts, [](const std::string& call) { return !call.starts_with("ibv_post"); });
    EXPECT_EQ(posts, (std::vector<std::string>{"ibv_post_recv", "ibv_post_send", "ibv_post_recv", "ibv_post_send"}));
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, OfMoreThanAHundredBuffersTheOthersArePostedInTheirOrder)
{
    Run(130);
    ASSERT_TRUE(HasCredits(100));
    for (std::uint64_t frame = 0; frame < 130; ++frame)
    {
        ASSERT_EQ(Receive(frame + 1), buffers[frame]);
        EXPECT_TRUE(frame >= 3 || HasCredits(100)) << frame;
    }
    EXPECT_TRUE(HasCredits(0)) << "the camera waits";
    QueueAll();
    EXPECT_TRUE(HasCredits(100));
    EXPECT_EQ(Receive(131), buffers[0]);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, ABufferTooSmallIsFilledByACopy)
{
    Begin();
    void* const buffer = Allocate(10);
    unsigned char* const base = Base(buffer);
    ASSERT_EQ(stream->QueueBuffer(buffer), 0);
    Start();
    ASSERT_TRUE(HasCredits(1));
    EXPECT_NE(fake.DeliverFrame(GenDCFrame(1, 16, 4)), base - 176);
    EXPECT_EQ(NextBuffer(), buffer);
    EXPECT_EQ(Base(buffer), base);
    const auto frame = GenDCFrame(1, 16, 4);
    EXPECT_TRUE(std::equal(base, base + 10, frame.begin() + 176));
    EXPECT_TRUE(BufferInfo<bool>(buffer, 7)) << "incomplete";
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 9), 10U);
    EXPECT_EQ(Read64(0x80168), 1U) << "copied";
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, OfALargerBufferThePayloadIsRegistered)
{
    Begin();
    ASSERT_EQ(stream->QueueBuffer(Allocate(100000)), 0);
    Start();
    ASSERT_TRUE(HasCredits(1));
    EXPECT_EQ(fake.regionLengths, (std::vector<std::size_t>{60, kBlock}));
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, PixelsAtAnotherOffsetAreMovedIntoPlace)
{
    Run(1);
    unsigned char* const base = Base(buffers[0]);
    auto frame = GenDCFrame(1, 16, 4);
    nq::test::Put32(frame, 152, 180);
    nq::test::Put32(frame, 144, 60);
    fake.DeliverFrame(frame);
    EXPECT_EQ(NextBuffer(), buffers[0]);
    EXPECT_EQ(Base(buffers[0]), base);
    EXPECT_TRUE(std::equal(base, base + 60, frame.begin() + 180));
    EXPECT_EQ(Read64(0x80168), 1U) << "copied";
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, MemoryOfTheConsumersIsHandedBackByItsRevocation)
{
    Begin();
    std::array<unsigned char, 64> memory{};
    void* handle = nullptr;
    ASSERT_EQ(stream->AnnounceBuffer(memory.data(), memory.size(), nullptr, &handle), 0);
    ASSERT_EQ(stream->QueueBuffer(handle), 0);
    Start();
    EXPECT_EQ(Receive(1), handle);
    EXPECT_EQ(Base(handle), memory.data());
    EXPECT_TRUE(AreThePixels(memory.data(), 1));
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    void* handed = nullptr;
    EXPECT_EQ(stream->RevokeBuffer(handle, &handed, nullptr), 0);
    EXPECT_EQ(handed, memory.data());
}

TEST_F(StandardBlocks, AFrameThatCannotBeReadIsDroppedAndItsReceivePostedAgain)
{
    Run(2);
    for (int round = 0; round < 10; ++round)
    {
        ASSERT_TRUE(HasCredits(2));
        auto frame = GenDCFrame(1, 16, 4);
        nq::test::Put32(frame, 56, 65);
        fake.DeliverFrame(frame);
        ASSERT_TRUE(HasCredits(2));
        fake.DeliverFrame({});
    }
    ASSERT_TRUE(HasCredits(2));
    EXPECT_NE(Receive(2), nullptr);
    EXPECT_NE(Receive(3), nullptr);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, OfABufferAnnouncedAndRevokedWhileItRunsNothingStays)
{
    Run(1);
    const std::size_t before = Regions();
    void* const late = Allocate(64);
    EXPECT_EQ(Regions(), before + 1);
    ASSERT_EQ(stream->QueueBuffer(late), 0);
    EXPECT_EQ(Receive(1), buffers[0]);
    EXPECT_EQ(Receive(2), late);
    EXPECT_EQ(stream->RevokeBuffer(late, nullptr, nullptr), 0);
    EXPECT_EQ(Regions(), before);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ASSERT_EQ(stream->FlushQueue(kAllDiscard), 0);
    EXPECT_EQ(stream->RevokeBuffer(buffers[0], nullptr, nullptr), -1022);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(Regions(), 0U);
    EXPECT_EQ(stream->RevokeBuffer(buffers[0], nullptr, nullptr), 0);
}

TEST_F(StandardBlocks, AMemoryThatTheSystemDoesNotRegisterTakesItsFramesByACopy)
{
    fake.Fail("ibv_reg_mr", ENOMEM, 2); // the first buffer, behind the ready message
    Run(2);
    EXPECT_EQ(fake.regionLengths, (std::vector<std::size_t>{60, kBlock, kBlock}));
    EXPECT_EQ(Receive(1), buffers[0]);
    EXPECT_TRUE(AreThePixels(Base(buffers[0]), 1));
    EXPECT_EQ(Receive(2), buffers[1]);
    EXPECT_EQ(Read64(0x80168), 1U) << "copied";
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, WithoutRegisteredMemoryABufferTakesNoFrame)
{
    fake.Fail("ibv_reg_mr", ENOMEM, 2);
    fake.Fail("ibv_reg_mr", ENOMEM, 3); // nor a block to copy from
    Run(2);
    ASSERT_TRUE(HasCredits(1));
    EXPECT_EQ(Receive(1), buffers[1]);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    Start(); // with the first still queued
    EXPECT_EQ(Receive(1), buffers[0]) << "the next run has it";
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, WithoutReadyMessagesTheStartFails)
{
    Begin();
    Announce(1);
    fake.Fail("ibv_reg_mr", ENOMEM, 1);
    EXPECT_EQ(stream->StartAcquisition(0, nq::test::kInfinite), -1001);
    EXPECT_EQ(Regions(), 0U);
    Start();
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

TEST_F(StandardBlocks, MoreMemoryThanABlockCanHaveIsNotAnnounced)
{
    ASSERT_EQ(stream->Open(), 0);
    void* handle = nullptr;
    EXPECT_EQ(stream->AllocAndAnnounceBuffer(1UL << 32, nullptr, &handle), -1021);
    EXPECT_EQ(stream->AllocAndAnnounceBuffer(~0UL, nullptr, &handle), -1021);
    EXPECT_EQ(stream->AllocAndAnnounceBuffer(0, nullptr, &handle), 0);
}

class StatedBlocks : public Blocks
{
  protected:
    StatedBlocks() : Blocks(kStatedAnswers) {}
};

TEST_F(StatedBlocks, MakeTheSameVerbsCallsAsEver)
{
    Run(2);
    fake.WaitForSent(2);
    void* const first = Receive(1);
    ASSERT_EQ(stream->QueueBuffer(first), 0);
    fake.WaitForSent(3);
    EXPECT_EQ(Regions(), 4U);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(fake.regionLengths, (std::vector<std::size_t>{kBlock, 60, kBlock, 60}));
    EXPECT_EQ(fake.regionAccess, (std::vector<int>{1, 0, 1, 0}));
    std::vector<std::string> posts = fake.Calls();
    std::erase_if(posts, [](const std::string& call) { return !call.starts_with("ibv_post"); });
    EXPECT_EQ(posts, (std::vector<std::string>{"ibv_post_recv", "ibv_post_recv", "ibv_post_send", "ibv_post_send",
                                               "ibv_post_recv", "ibv_post_send", "ibv_post_recv"}))
        << "the last one ends the completion thread";
    EXPECT_EQ(fake.Count("ibv_query_port"), 0);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_sge, 1U);
    EXPECT_EQ(fake.cqEntries, 500);
}

TEST_F(StatedBlocks, HaveNoMemoryBeforeTheirFirstFrame)
{
    ASSERT_EQ(stream->Open(), 0);
    Announce(1);
    EXPECT_EQ(Base(buffers[0]), nullptr);
}

} // namespace
