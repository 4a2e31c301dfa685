// SPDX-License-Identifier: Apache-2.0
// The calls of a source of a media pipeline: texts of 256 bytes, a flush of all to the input after each was queued, a
// close without an unregistration or a revocation, and everything once more.
#include "support/replay.h"

namespace
{

using namespace nq::test;

class Pipeline : public Replay
{
  protected:
    Pipeline() : Replay({.systemMs = 1000, .interfaceMs = 1000, .textBytes = 256}) {}

    void AskAboutAll()
    {
        EXPECT_EQ(Text(Bind(gentl.TLGetInfo, system, GenTL::TL_INFO_VENDOR)), "Nerquil Optic");
        EXPECT_EQ(Text(Bind(gentl.IFGetInfo, interface, GenTL::INTERFACE_INFO_TLTYPE)), "GEV");
        EXPECT_EQ(Text(Bind(gentl.DevGetInfo, device, GenTL::DEVICE_INFO_ID)), deviceId);
        EXPECT_EQ(Text(Bind(gentl.DSGetInfo, stream, GenTL::STREAM_INFO_TLTYPE)), "GEV");
    }

    void TakePicture(std::uint64_t frame)
    {
        const GenTL::BUFFER_HANDLE buffer = Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_PAYLOADTYPE), 1U) << "it takes pictures alone";
        EXPECT_EQ(Ask<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID), frame);
        EXPECT_EQ(Ask<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE), false);
        const auto size = Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_SIZE);
        EXPECT_EQ(size, 1024U);
        const auto time = Ask<std::uint64_t>(buffer, GenTL::BUFFER_INFO_TIMESTAMP_NS);
        EXPECT_TRUE(time || Ask<std::uint64_t>(buffer, GenTL::BUFFER_INFO_TIMESTAMP)) << "one of them it needs";
        EXPECT_EQ(time.has_value(), Standard());
        const auto* base = Ask<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE).value_or(nullptr);
        EXPECT_TRUE(ShowsFrame(base, size.value_or(0), frame));
        ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
    }
};

TEST_P(Pipeline, PlaysTwice)
{
    for (int play = 0; play < 2; ++play)
    {
        Open();
        AskAboutAll();
        ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
        Announce(4, AskStream<std::size_t>(GenTL::STREAM_INFO_PAYLOAD_SIZE).value_or(0));
        QueueAll();
        ASSERT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_TO_INPUT), 0);
        EXPECT_EQ(AskStream<std::size_t>(GenTL::STREAM_INFO_NUM_QUEUED), 4U);
        ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
        for (std::uint64_t frame = 1; frame <= 20; ++frame)
        {
            TakePicture(frame);
        }
        EXPECT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_DEFAULT), 0);
        EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_INPUT_TO_OUTPUT), 0);
        EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_OUTPUT_DISCARD), 0);
        Close();
        buffers.clear();
    }
}

NQ_IN_BOTH_MODES(Pipeline);

} // namespace
