// SPDX-License-Identifier: Apache-2.0
// Frames that come straight into announced memory, by the standard's answers: what is registered and posted when, which
// bytes of a frame are believed and where they go, and what is copied all the same.
#include "support/data_stream_fixture.h"
#include "support/kernel_release.h"

#include <algorithm>
#include <array>
#include <utility>

const char* const nq::test::kKernelRelease = "6.1.0";

namespace
{

using nq::test::FrameBytes;
using nq::test::GenDCFrame;
using nq::test::Put32;
using nq::test::Put64;

constexpr unsigned char kGuard = 0xC3;
constexpr unsigned long kCopiedFrames = 0x80168;
constexpr unsigned long kFramesReceived = 0x80120;

/// Runs with memory at an odd address, of which more is announced than the 64 bytes of the payload.
class AnnouncedMemory : public nq::test::DataStreamFixture
{
  protected:
    AnnouncedMemory() : DataStreamFixture(kStandardAnswers) { m_bytes.fill(kGuard); }
    ~AnnouncedMemory() override { EXPECT_TRUE(IsGuarded(0, kSlot)) << "before all memory"; }

    static constexpr std::size_t kSlot = 301;
    static constexpr std::size_t kAnnounced = 101;

    unsigned char* Memory(std::size_t buffer) { return m_bytes.data() + (buffer + 1) * kSlot; }

    void* AnnounceAt(std::size_t buffer, unsigned long size = kAnnounced)
    {
        void* handle = nullptr;
        EXPECT_EQ(stream->AnnounceBuffer(Memory(buffer), size, nullptr, &handle), 0);
        return handle;
    }

    void RunAnnounced(std::size_t count, unsigned long size = kAnnounced)
    {
        for (std::size_t buffer = 0; buffer < count; ++buffer)
        {
            buffers.push_back(AnnounceAt(buffer, size));
        }
        Run(0);
        fake.WaitForSent(count);
    }

    /// Without the waits of the threads that are to end.
    void Stop()
    {
        LvEndpoint& endpoint = NQGevDataStreamAccess::Endpoint(*stream);
        LvEndpointAccess::EndWorker(endpoint);
        EXPECT_EQ(stream->StopAcquisition(1), 0);
        LvEndpointAccess::WakeGetBuffer(endpoint);
    }

    bool IsGuarded(std::size_t from, std::size_t to) const
    {
        return std::all_of(m_bytes.begin() + static_cast<std::ptrdiff_t>(from),
                           m_bytes.begin() + static_cast<std::ptrdiff_t>(to),
                           [](unsigned char byte) { return byte == kGuard; });
    }

    /// Nothing of a slot has changed from the byte `used` of its buffer on.
    bool IsGuardedBehind(std::size_t buffer, std::size_t used) const
    {
        return IsGuarded((buffer + 1) * kSlot + used, (buffer + 2) * kSlot);
    }

    /// Sends a frame into the only buffer; its first `count` pixels are then those of the frame from `offset` on.
    void ExpectPixels(const FrameBytes& frame, std::size_t offset, std::size_t count)
    {
        fake.DeliverFrame(frame);
        ASSERT_EQ(NextBuffer(), buffers[0]);
        const auto first = frame.begin() + static_cast<std::ptrdiff_t>(offset);
        EXPECT_TRUE(std::equal(first, first + static_cast<std::ptrdiff_t>(count), Memory(0)));
        EXPECT_EQ(BufferInfo<unsigned char*>(buffers[0], 0), Memory(0));
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffers[0], 9), count);
    }

    using Regions = std::vector<std::pair<void*, std::size_t>>;

    /// Those of the consumer's memory.
    Regions ConsumersRegions()
    {
        Regions regions = fake.Regions();
        std::erase_if(regions, [this](const auto& region) {
            const auto* const start = static_cast<unsigned char*>(region.first);
            return start < m_bytes.data() || start >= m_bytes.data() + m_bytes.size();
        });
        return regions;
    }

  private:
    std::array<unsigned char, 6 * kSlot> m_bytes;
};

TEST_F(AnnouncedMemory, IsRegisteredWhileAnAcquisitionRunsAndItsPayloadAlone)
{
    void* const first = AnnounceAt(0);
    AnnounceAt(1);
    EXPECT_EQ(fake.Regions(), Regions{});
    for (int run = 0; run < 2; ++run)
    {
        if (run == 0)
        {
            Run(0);
        }
        else
        {
            ASSERT_EQ(stream->StartAcquisition(0, nq::test::kInfinite), 0);
        }
        EXPECT_EQ(ConsumersRegions(), (Regions{{Memory(0), 64}, {Memory(1), 64}}));
        EXPECT_EQ(fake.Regions().size(), 5U) << "the ready message and two headers besides";
        fake.ForgetCalls();
        Stop();
        EXPECT_EQ(fake.Regions(), Regions{});
        const auto calls = fake.Calls();
        EXPECT_LT(std::find(calls.begin(), calls.end(), "ibv_destroy_qp"),
                  std::find(calls.begin(), calls.end(), "ibv_dereg_mr"))
            << "the queue pair is gone before the regions";
    }
    EXPECT_EQ(fake.regionLengths, (std::vector<std::size_t>{60, 176, 64, 176, 64, 60, 176, 64, 176, 64}));
    EXPECT_EQ(fake.regionAccess, (std::vector<int>{0, 1, 1, 1, 1, 0, 1, 1, 1, 1}));
    EXPECT_EQ(stream->RevokeBuffer(first, nullptr, nullptr), 0);
    EXPECT_TRUE(IsGuardedBehind(0, 0));
    EXPECT_TRUE(IsGuardedBehind(1, 0));
}

TEST_F(AnnouncedMemory, IsPostedBehindAPieceForTheHeaders)
{
    RunAnnounced(1);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_sge, 2U);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_sge, 1U);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_wr, 100U);
    EXPECT_EQ(fake.cqEntries, 500);
    ASSERT_EQ(fake.ReceiveEntries().size(), 1U);
    const auto entries = fake.ReceiveEntries()[0];
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].length, 176U);
    EXPECT_EQ(entries[1].length, 64U);
    EXPECT_EQ(entries[1].addr, reinterpret_cast<std::uint64_t>(Memory(0)));
    Stop();
}

TEST_F(AnnouncedMemory, TakesFramesWithoutACopy)
{
    RunAnnounced(2);
    for (std::uint64_t frame = 1; frame <= 6; ++frame)
    {
        void* const buffer = Receive(frame);
        ASSERT_EQ(buffer, buffers[(frame - 1) % 2]);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 16), frame);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, 9), 64U);
        EXPECT_FALSE(BufferInfo<bool>(buffer, 7));
        const auto bytes = GenDCFrame(frame, 16, 4);
        EXPECT_TRUE(std::equal(bytes.begin() + 176, bytes.end(), Memory((frame - 1) % 2)));
        ASSERT_EQ(stream->QueueBuffer(buffer), 0);
    }
    EXPECT_EQ(Read64(kCopiedFrames), 0U);
    Stop();
    EXPECT_TRUE(IsGuardedBehind(0, 64));
    EXPECT_TRUE(IsGuardedBehind(1, 64));
}

TEST_F(AnnouncedMemory, ThatComesWhileItRunsIsRegisteredAtOnceAndUntilItsRevocation)
{
    RunAnnounced(1);
    void* const late = AnnounceAt(1);
    EXPECT_EQ(ConsumersRegions(), (Regions{{Memory(0), 64}, {Memory(1), 64}}));
    ASSERT_EQ(stream->QueueBuffer(late), 0);
    fake.WaitForSent(2);
    EXPECT_EQ(Receive(1), buffers[0]);
    EXPECT_EQ(Receive(2), late);
    EXPECT_EQ(stream->RevokeBuffer(late, nullptr, nullptr), 0);
    EXPECT_EQ(ConsumersRegions(), (Regions{{Memory(0), 64}}));
    EXPECT_EQ(fake.Regions().size(), 3U);
    Stop();
}

TEST_F(AnnouncedMemory, GrowsWithoutMovingTheIdsOfTheBuffersThatAreThere)
{
    RunAnnounced(1);
    std::vector<std::array<unsigned char, 64>> others(200);
    for (auto& other : others)
    {
        buffers.emplace_back();
        ASSERT_EQ(stream->AnnounceBuffer(other.data(), 64, nullptr, &buffers.back()), 0);
    }
    ASSERT_EQ(stream->QueueBuffer(buffers[200]), 0);
    fake.WaitForSent(2);
    EXPECT_EQ(Receive(1), buffers[0]);
    EXPECT_EQ(Receive(2), buffers[200]);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    fake.WaitForSent(3);
    EXPECT_EQ(fake.ReceiveIds()[2], fake.ReceiveIds()[0]);
    EXPECT_EQ(Read64(kCopiedFrames), 0U);
    Stop();
}

TEST_F(AnnouncedMemory, GetsPixelsOfAnotherOffsetMovedIntoPlace)
{
    RunAnnounced(1);
    FrameBytes later = GenDCFrame(1, 16, 4);
    Put64(later, 144, 60);
    Put64(later, 152, 180);
    ExpectPixels(later, 180, 60);
    EXPECT_EQ(Read64(kCopiedFrames), 1U);

    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    FrameBytes among = GenDCFrame(2, 16, 4); // the pixels begin among the headers
    Put64(among, 144, 80);
    Put64(among, 152, 160);
    ExpectPixels(among, 160, 80);
    EXPECT_EQ(Read64(kCopiedFrames), 2U);

    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    FrameBytes within = GenDCFrame(3, 16, 4); // and end there
    Put64(within, 144, 16);
    Put64(within, 152, 0);
    ExpectPixels(within, 0, 16);
    EXPECT_EQ(Read64(kCopiedFrames), 3U);

    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    ExpectPixels(GenDCFrame(4, 16, 4), 176, 64);
    EXPECT_EQ(Read64(kCopiedFrames), 3U);
    Stop();
    EXPECT_TRUE(IsGuardedBehind(0, 80));
}

TEST_F(AnnouncedMemory, TakesNoMoreOfAnotherOffsetThanItHasRoomFor)
{
    RunAnnounced(1, 64);
    FrameBytes among = GenDCFrame(1, 16, 4);
    Put64(among, 144, 240);
    Put64(among, 152, 0);
    fake.DeliverFrame(among);
    ASSERT_EQ(NextBuffer(), buffers[0]);
    EXPECT_TRUE(std::equal(among.begin(), among.begin() + 64, Memory(0)));
    EXPECT_TRUE(BufferInfo<bool>(buffers[0], 7));
    Stop();
    EXPECT_TRUE(IsGuardedBehind(0, 64));
}

TEST_F(AnnouncedMemory, HasAPartHeaderWhereverTheFrameHasIt)
{
    RunAnnounced(1);
    std::uint64_t id = 0;
    for (const std::uint32_t part : {121U, 150U, 175U, 176U, 180U}) // from across the pieces to the second one
    {
        FrameBytes frame = GenDCFrame(++id, 16, 4);
        std::copy_n(GenDCFrame(id, 16, 4).begin() + 120, 56, frame.begin() + part);
        Put32(frame, 112, part);
        Put64(frame, part + 24, 4);
        Put64(frame, part + 32, 236);
        ExpectPixels(frame, 236, 4);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffers[0], 10), 16U) << part;
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffers[0], 20), 0x01080001U) << part;
        ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    }
    Stop();
}

/// Frames that end in their headers, after a whole one whose headers are still there; for memory of either kind.
class ShortHeaders : public AnnouncedMemory
{
  protected:
    /// Whether a frame of which that much comes is delivered. A frame is counted only after it can be had.
    bool IsDelivered(const FrameBytes& frame, std::size_t length)
    {
        WaitForFramesReceived(delivered);
        while (fake.Credits() == 0)
        {
            std::this_thread::yield();
        }
        const std::size_t posted = fake.ReceiveIds().size();
        fake.DeliverFrame(FrameBytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length)));
        while (fake.ReceiveIds().size() == posted && Read64(kFramesReceived) == delivered)
        {
            std::this_thread::yield();
        }
        const bool is = Read64(kFramesReceived) != delivered;
        delivered += is ? 1 : 0;
        return is;
    }

    void ExpectNoneBelieved()
    {
        ASSERT_TRUE(IsDelivered(GenDCFrame(1, 16, 4), 240));
        ASSERT_EQ(NextBuffer(), buffers[0]);
        ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
        const FrameBytes frame = GenDCFrame(2, 16, 4);
        for (const std::size_t length : {1U, 16U, 23U, 24U, 59U, 60U, 64U, 95U, 115U, 119U, 120U, 175U})
        {
            EXPECT_FALSE(IsDelivered(frame, length)) << length;
        }
        EXPECT_TRUE(IsDelivered(frame, 176));
        EXPECT_EQ(NextBuffer(), buffers[0]);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffers[0], 16), 2U);
        EXPECT_EQ(BufferInfo<std::uint64_t>(buffers[0], 9), 0U);
        EXPECT_TRUE(BufferInfo<bool>(buffers[0], 7)) << "incomplete";
        Stop();
    }

    std::uint64_t delivered = 0;
};

TEST_F(ShortHeaders, OfAnnouncedMemoryAreNotBelieved)
{
    RunAnnounced(1);
    ExpectNoneBelieved();
}

TEST_F(ShortHeaders, OfTheLibrarysMemoryAreNotBelieved)
{
    Run(1);
    ExpectNoneBelieved();
}

TEST_F(ShortHeaders, OfAPartThatLiesInThePixelsAreNotBelieved)
{
    RunAnnounced(1);
    FrameBytes frame = GenDCFrame(1, 16, 4);
    std::copy_n(GenDCFrame(1, 16, 4).begin() + 120, 56, frame.begin() + 180);
    Put32(frame, 112, 180);
    EXPECT_TRUE(IsDelivered(frame, 240));
    ASSERT_EQ(NextBuffer(), buffers[0]);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    EXPECT_FALSE(IsDelivered(frame, 235));
    EXPECT_TRUE(IsDelivered(frame, 236));
    Stop();
}

/// Memory into which frames are copied out of a block of ours.
class CopiedMemory : public AnnouncedMemory
{
  protected:
    void ExpectCopies()
    {
        for (std::uint64_t frame = 1; frame <= 2; ++frame)
        {
            ExpectPixels(GenDCFrame(frame, 16, 4), 176, std::min<std::size_t>(64, size));
            EXPECT_EQ(Read64(kCopiedFrames), frame);
            ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
        }
        EXPECT_EQ(ConsumersRegions(), Regions{});
        EXPECT_EQ(fake.ReceiveEntries()[0].size(), 1U);
        EXPECT_EQ(fake.ReceiveLengths()[0], 240U);
        Stop();
        EXPECT_EQ(fake.Regions(), Regions{});
        EXPECT_TRUE(IsGuardedBehind(0, std::min<std::size_t>(64, size)));
    }

    unsigned long size = kAnnounced;
};

TEST_F(CopiedMemory, IsWhatTheDeviceDoesNotRegister)
{
    fake.Fail("ibv_reg_mr", EFAULT, 3); // behind the ready message and the headers
    RunAnnounced(1);
    ExpectCopies();
}

TEST_F(CopiedMemory, IsWhatHasNoRoomForItsHeaders)
{
    fake.Fail("ibv_reg_mr", ENOMEM, 2);
    RunAnnounced(1);
    ExpectCopies();
}

TEST_F(CopiedMemory, IsWhatIsSmallerThanThePayload)
{
    size = 63;
    RunAnnounced(1, size);
    ExpectCopies();
}

TEST_F(CopiedMemory, IsThatOfAFlushedBuffersFrame)
{
    RunAnnounced(2);
    ASSERT_EQ(stream->FlushQueue(4), 0);
    buffers.push_back(AnnounceAt(2));
    ASSERT_EQ(stream->QueueBuffer(buffers[2]), 0);
    EXPECT_EQ(Receive(5), buffers[2]);
    const auto bytes = GenDCFrame(5, 16, 4);
    EXPECT_TRUE(std::equal(bytes.begin() + 176, bytes.end(), Memory(2)));
    EXPECT_EQ(Read64(kCopiedFrames), 1U);
    Stop();
    ASSERT_EQ(stream->StartAcquisition(0, nq::test::kInfinite), 0);
    EXPECT_EQ(Read64(kCopiedFrames), 0U) << "of this run";
    Stop();
}

TEST_F(AnnouncedMemory, IsNotReadOnceTheConnectionIsDown)
{
    LvEndpoint endpoint(FrameMemory::Buffers);
    const sockaddr_in address = nq::test::CameraAddress();
    ASSERT_TRUE(endpoint.Init(&address));
    gevrdmaBufferSettings settings{};
    endpoint.SetBufferSettings(settings);
    endpoint.AllocateAndRegisterMemory();
    endpoint.StartWorkerThread();
    ASSERT_TRUE(endpoint.BeginReceives());
    void* const id = endpoint.AddReceiveBehindHeaders(Memory(0), 64, 64);
    ASSERT_TRUE(endpoint.PostReceive(id));
    fake.DeliverFrame(GenDCFrame(1, 16, 4));
    gevrdmaBuffer frame{};
    ASSERT_EQ(endpoint.GetBuffer(&frame), 0);
    EXPECT_EQ(frame.id, id);
    EXPECT_EQ(frame.size, 240U);
    EXPECT_EQ(frame.received, 240U);
    std::array<unsigned char, 4> bytes{};
    EXPECT_TRUE(endpoint.ReadFrame(frame, 174, bytes.data(), 4));
    EXPECT_EQ(bytes[2], 0);
    EXPECT_EQ(bytes[3], 1);
    EXPECT_FALSE(endpoint.ReadFrame(frame, 237, bytes.data(), 4));
    EXPECT_FALSE(endpoint.ReadFrame(frame, 0xFFFFFFFFFFFFFFFE, bytes.data(), 4));
    endpoint.DeInit();
    EXPECT_FALSE(endpoint.ReadFrame(frame, 174, bytes.data(), 4)) << "it may be the consumer's no more";
    EXPECT_FALSE(endpoint.ReadFrame(frame, 0, bytes.data(), 4));
}

class StatedMemory : public nq::test::DataStreamFixture
{
};

/// Of the calls that no thread makes beside the others.
std::vector<std::string> OrderedCalls(const nq::test::FakeVerbs& fake)
{
    std::vector<std::string> calls = fake.Calls();
    std::erase_if(calls, [](const std::string& call) {
        return call == "rdma_get_cm_event" || call == "rdma_ack_cm_event" || call == "ibv_get_cq_event" ||
               call == "ibv_ack_cq_events" || call == "ibv_req_notify_cq" || call == "ibv_poll_cq";
    });
    return calls;
}

TEST_F(StatedMemory, MakesTheSameVerbsCallsForAnnouncedMemoryAsEver)
{
    std::array<unsigned char, 101> memory{};
    buffers.emplace_back();
    ASSERT_EQ(stream->AnnounceBuffer(memory.data(), memory.size(), nullptr, &buffers[0]), 0);
    Run(0);
    fake.WaitForSent(1);
    EXPECT_EQ(Receive(1), buffers[0]);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    fake.WaitForSent(2);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(OrderedCalls(fake), (std::vector<std::string>{"rdma_create_event_channel",
                                                            "rdma_create_id",
                                                            "rdma_resolve_addr",
                                                            "ibv_alloc_pd",
                                                            "ibv_create_comp_channel",
                                                            "ibv_create_cq",
                                                            "rdma_create_qp",
                                                            "rdma_resolve_route",
                                                            "rdma_connect",
                                                            "ibv_reg_mr",
                                                            "ibv_reg_mr",
                                                            "ibv_post_recv",
                                                            "ibv_post_send",
                                                            "ibv_post_recv",
                                                            "ibv_post_send",
                                                            "rdma_disconnect",
                                                            "ibv_post_recv",
                                                            "ibv_destroy_qp",
                                                            "ibv_destroy_cq",
                                                            "ibv_destroy_comp_channel",
                                                            "ibv_dereg_mr",
                                                            "ibv_dereg_mr",
                                                            "rdma_destroy_id",
                                                            "rdma_destroy_event_channel"}));
    EXPECT_EQ(fake.regionLengths, (std::vector<std::size_t>{240, 60}));
    EXPECT_EQ(fake.regionAccess, (std::vector<int>{1, 0}));
    for (const auto& entries : fake.ReceiveEntries())
    {
        ASSERT_EQ(entries.size(), 1U);
        EXPECT_EQ(entries[0].length, 240U);
    }
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_wr, 100U);
    EXPECT_EQ(fake.qpAttributes.cap.max_recv_sge, 1U);
    EXPECT_EQ(fake.qpAttributes.cap.max_send_sge, 1U);
    EXPECT_EQ(fake.qpAttributes.cap.max_inline_data, 0U);
    EXPECT_EQ(fake.cqEntries, 500);
}

TEST_F(StatedMemory, HasNoRegisterOfCopiedFrames)
{
    ASSERT_EQ(stream->Open(), 0);
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    EXPECT_EQ(stream->ReadPort(kCopiedFrames, &value, &size), -1015);
}

} // namespace
