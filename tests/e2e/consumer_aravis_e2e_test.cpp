// SPDX-License-Identifier: Apache-2.0
// The calls of aravis: lists of 100 ms on each discovery, infos with sizes that nobody set, waits without an end.
#include "support/replay.h"

#include <array>
#include <dlfcn.h>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;

class Aravis : public Replay
{
  protected:
    Aravis() : Replay({.systemMs = 100, .interfaceMs = 100, .textBytes = 0, .binding = RTLD_LAZY}) {}
};

TEST_P(Aravis, FindsTheCameraAnewWithEachDiscovery)
{
    ASSERT_EQ(gentl.GCInitLib(), 0);
    for (int discovery = 0; discovery < 2; ++discovery)
    {
        ASSERT_EQ(gentl.TLOpen(&system), 0);
        FindCamera();
        for (const GenTL::DEVICE_INFO_CMD command : {GenTL::DEVICE_INFO_ID, GenTL::DEVICE_INFO_VENDOR,
                                                     GenTL::DEVICE_INFO_MODEL, GenTL::DEVICE_INFO_SERIAL_NUMBER})
        {
            EXPECT_NE(Text(Bind(gentl.IFGetDeviceInfo, interface, deviceId.c_str(), command)), "")
                << command << ": it crashes without";
        }
        EXPECT_EQ(gentl.IFClose(interface), 0);
        EXPECT_EQ(gentl.TLClose(system), 0);
    }
    EXPECT_EQ(gentl.GCCloseLib(), 0);
}

TEST_P(Aravis, ReadsTheFrequencyOfTheClockWithASizeThatNobodySet)
{
    Open();
    // The number on its stack, with what lies behind it.
    std::array<std::uint64_t, 512> stack;
    stack.fill(0x5555555555555555);
    GenTL::INFO_DATATYPE type = 0;
    std::size_t size = sizeof stack;
    ASSERT_EQ(gentl.DevGetInfo(device, GenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY, &type, stack.data(), &size), 0);
    EXPECT_EQ(type, GenTL::INFO_DATATYPE_UINT64);
    EXPECT_EQ(stack[511], By<std::uint64_t>(0, 0x5555555555555555)) << "as stated the stack is gone: it crashes";
    EXPECT_EQ(stack[0], By<std::uint64_t>(13277755, 1000000000)) << "as stated the clock runs 75 times too fast";
    Close();
}

TEST_P(Aravis, CopiesAsManyBytesAsTheDataHas)
{
    Open();
    const auto payload = AskStream<std::size_t>(GenTL::STREAM_INFO_PAYLOAD_SIZE);
    ASSERT_EQ(payload, 1024U);
    Announce(4, *payload);
    QueueAll();
    ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
    ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0) << "by its own thread";
    for (std::uint64_t frame = 1; frame <= 20; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = Next(GENTL_INFINITE);
        ASSERT_NE(buffer, nullptr);
        std::uint32_t parts = 0;
        EXPECT_NE(gentl.DSGetNumBufferParts(stream, buffer, &parts), 0) << "that would be a multi-part picture";
        EXPECT_EQ(Ask<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID), frame);
        EXPECT_EQ(Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_WIDTH), 64U);
        EXPECT_EQ(Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_HEIGHT), 16U);
        EXPECT_EQ(Ask<std::uint64_t>(buffer, GenTL::BUFFER_INFO_PIXELFORMAT), 0x01080001U);
        EXPECT_EQ(Ask<std::uint64_t>(buffer, GenTL::BUFFER_INFO_TIMESTAMP_NS).has_value(), Standard());
        const auto* base = Ask<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE).value_or(nullptr);
        const std::size_t bytes = Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_DATA_SIZE).value_or(0);
        EXPECT_EQ(bytes, By(0U, 1024U)) << "as stated its pictures have no bytes";
        const std::vector<unsigned char> picture(base, base + bytes);
        EXPECT_TRUE(ShowsFrame(picture.data(), picture.size(), frame));
        ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
    }
    EXPECT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_DEFAULT), 0);
    EXPECT_EQ(gentl.EventKill(event), 0);
    EXPECT_EQ(gentl.GCUnregisterEvent(stream, GenTL::EVENT_NEW_BUFFER), 0);
    EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    for (const GenTL::BUFFER_HANDLE buffer : buffers)
    {
        EXPECT_EQ(gentl.DSRevokeBuffer(stream, buffer, nullptr, nullptr), 0);
    }
    Close();
}

NQ_IN_BOTH_MODES(Aravis);

} // namespace
