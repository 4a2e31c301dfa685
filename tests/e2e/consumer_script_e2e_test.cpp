// SPDX-License-Identifier: Apache-2.0
// The calls of a binding for a scripting language: no buffer is queued by hand, the payload is taken as told, and the
// memory for an event grows as the library says.
#include "support/replay.h"

namespace
{

using namespace nq::test;

class Script : public Replay
{
  protected:
    Script() : Replay({.systemMs = 1000, .interfaceMs = 1000, .textBytes = 0}) {}

    /// The next frame, into memory that is too small at first.
    GenTL::BUFFER_HANDLE NextIntoGrowingMemory()
    {
        std::vector<unsigned char> record(4);
        std::size_t size = record.size();
        EXPECT_EQ(gentl.EventGetData(event, record.data(), &size, 5000), -1016);
        EXPECT_EQ(size, 16U) << "what it needs";
        record.resize(size);
        size = record.size();
        EXPECT_EQ(gentl.EventGetData(event, record.data(), &size, 5000), 0) << "the frame is not lost";
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::memcpy(&data, record.data(), sizeof data);
        return data.BufferHandle;
    }
};

TEST_P(Script, FlushesAllToTheInputAndGrowsItsMemory)
{
    Open();
    ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    Announce(3, AskStream<std::size_t>(GenTL::STREAM_INFO_PAYLOAD_SIZE).value_or(0));
    ASSERT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_TO_INPUT), 0);
    ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
    for (std::uint64_t frame = 1; frame <= 20; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = NextIntoGrowingMemory();
        ASSERT_NE(buffer, nullptr);
        const auto* base = Ask<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE).value_or(nullptr);
        const auto filled = Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED);
        EXPECT_EQ(filled, 1024U);
        EXPECT_TRUE(ShowsFrame(base, filled.value_or(0), frame));
        ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
    }
    EXPECT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_DEFAULT), 0);
    EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    EXPECT_EQ(gentl.GCUnregisterEvent(stream, GenTL::EVENT_NEW_BUFFER), 0);
    for (const GenTL::BUFFER_HANDLE buffer : buffers)
    {
        EXPECT_EQ(gentl.DSRevokeBuffer(stream, buffer, nullptr, nullptr), 0);
    }
    Close();
}

NQ_IN_BOTH_MODES(Script);

} // namespace
