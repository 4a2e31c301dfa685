// SPDX-License-Identifier: Apache-2.0
// The calls of a wrapper library for robots: bound deeply, lists of 10 ms, fixed sizes for texts, frames counted in the
// event's queue, buffers revoked until an error.
#include "support/replay.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;

/// With a deep binding the software RDMA has to be a library that the producer needs.
Habits HabitsOfTheWrapper()
{
#if NQ_SANITIZED
    return {.systemMs = 10, .interfaceMs = 100, .textBytes = 1024};
#else
    return {.systemMs = 10,
            .interfaceMs = 100,
            .textBytes = 1024,
            .library = NQ_BINARY_DIR "/tests/on_loopback.cti",
            .binding = RTLD_NOW | RTLD_DEEPBIND};
#endif
}

class Wrapper : public Replay
{
  protected:
    Wrapper() : Replay(HabitsOfTheWrapper()) {}
};

TEST_P(Wrapper, KnowsThePortOfEachModuleByItsName)
{
    Open();
    for (const auto& [module, name] : {std::pair(system, "TLPort"),
                                       {interface, "InterfacePort"},
                                       {device, "DevicePort"},
                                       {stream, "StreamPort"},
                                       {port, "Device"}})
    {
        EXPECT_EQ(Text(Bind(gentl.GCGetPortInfo, module, GenTL::PORT_INFO_PORTNAME)), name);
    }
    Close();
}

TEST_P(Wrapper, CountsFramesInTheQueueOfTheEvent)
{
    Open();
    ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    Announce(4, AskStream<std::size_t>(GenTL::STREAM_INFO_PAYLOAD_SIZE).value_or(0));
    QueueAll();
    ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
    std::uint64_t frame = 0;
    for (int round = 0; round < 3; ++round)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (Ask<std::size_t>(Bind(gentl.EventGetInfo, event, GenTL::EVENT_NUM_IN_QUEUE)) != 4U &&
               std::chrono::steady_clock::now() < end)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        for (std::size_t waiting = 4; waiting > 0; --waiting)
        {
            EXPECT_EQ(Ask<std::size_t>(Bind(gentl.EventGetInfo, event, GenTL::EVENT_NUM_IN_QUEUE)), waiting);
            const GenTL::BUFFER_HANDLE buffer = Next(0);
            ASSERT_NE(buffer, nullptr);
            const auto* base = Ask<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE).value_or(nullptr);
            const std::size_t offset = Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_IMAGEOFFSET).value_or(0);
            const std::size_t part = Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_SIZE).value_or(0) - offset;
            EXPECT_EQ(part, 1024U);
            EXPECT_TRUE(ShowsFrame(base + offset, part, ++frame));
        }
        QueueAll();
    }
    EXPECT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL), 0);
    EXPECT_EQ(gentl.GCUnregisterEvent(stream, GenTL::EVENT_NEW_BUFFER), 0);
    Close();
}

TEST_P(Wrapper, RevokesTheFirstBufferUntilThereIsNone)
{
    Open();
    Announce(4);
    QueueAll();
    EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    int revoked = 0;
    for (GenTL::BUFFER_HANDLE buffer = nullptr; revoked < 10 && gentl.DSGetBufferID(stream, 0, &buffer) == 0; ++revoked)
    {
        EXPECT_EQ(gentl.DSRevokeBuffer(stream, buffer, nullptr, nullptr), 0) << "else it goes on for ever";
    }
    EXPECT_EQ(revoked, 4);
    Close();
}

NQ_IN_BOTH_MODES(Wrapper);

} // namespace
