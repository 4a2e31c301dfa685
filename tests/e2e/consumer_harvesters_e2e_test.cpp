// SPDX-License-Identifier: Apache-2.0
// The calls of harvesters: events that nobody offers, waits of a millisecond, incomplete pictures thrown back.
#include "support/replay.h"

#include <chrono>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;

class Harvesters : public Replay
{
  protected:
    /// The first frame of each camera is short.
    Harvesters() : Replay({.systemMs = 1000, .interfaceMs = 1000, .textBytes = 0}, {"--fault", "short-frame:400:1"}) {}

    /// It asks a millisecond at a time.
    GenTL::BUFFER_HANDLE Poll()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        GenTL::BUFFER_HANDLE buffer = nullptr;
        while (buffer == nullptr && std::chrono::steady_clock::now() < end)
        {
            buffer = Next(1);
        }
        return buffer;
    }

    /// Of so many frames, those that it shows: an incomplete one is thrown back, as is one that does not tell.
    int PicturesOf(int frames)
    {
        int shown = 0;
        for (int frame = 0; frame < frames; ++frame)
        {
            const GenTL::BUFFER_HANDLE buffer = Poll();
            if (buffer == nullptr)
            {
                ADD_FAILURE() << "no frame";
                break;
            }
            shown += Ask<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE).value_or(true) ? 0 : 1;
            EXPECT_EQ(Text(Bind(gentl.DSGetBufferInfo, stream, buffer, GenTL::BUFFER_INFO_TLTYPE)), "GEV");
            EXPECT_EQ(Ask<std::size_t>(buffer, GenTL::BUFFER_INFO_PAYLOADTYPE), 1U);
            EXPECT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
        }
        return shown;
    }

    void StopAndRevoke()
    {
        EXPECT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL), 0);
        EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        EXPECT_EQ(gentl.EventFlush(event), 0);
        for (const GenTL::BUFFER_HANDLE buffer : buffers)
        {
            EXPECT_EQ(gentl.DSRevokeBuffer(stream, buffer, nullptr, nullptr), 0);
        }
        buffers.clear();
        EXPECT_EQ(gentl.EventFlush(event), 0);
    }
};

TEST_P(Harvesters, SurvivesTheRefusalOfEachEventOfAModule)
{
    Open();
    const auto survives = testing::AnyOf(0, -1003, -1004, -1009);
    for (void* module : {system, interface, device})
    {
        GenTL::EVENT_HANDLE handle = nullptr;
        EXPECT_THAT(gentl.GCRegisterEvent(module, GenTL::EVENT_MODULE, &handle), survives);
    }
    GenTL::EVENT_HANDLE handle = nullptr;
    EXPECT_THAT(gentl.GCRegisterEvent(device, GenTL::EVENT_REMOTE_DEVICE, &handle), survives);
    Close();
}

TEST_P(Harvesters, ThrowsIncompletePicturesBack)
{
    Open();
    ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0) << "before anything is announced";
    for (int acquisition = 0; acquisition < 2; ++acquisition)
    {
        ASSERT_EQ(AskStream<bool>(GenTL::STREAM_INFO_DEFINES_PAYLOADSIZE), true);
        Announce(2, AskStream<std::size_t>(GenTL::STREAM_INFO_PAYLOAD_SIZE).value_or(0));
        QueueAll();
        ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
        const int first = PicturesOf(1);
        EXPECT_EQ(first, acquisition == 0 ? 0 : 1) << "the short one";
        EXPECT_EQ(PicturesOf(20), acquisition == 0 ? By(10, 20) : 20)
            << "as stated every later picture of that buffer is lost as well";
        StopAndRevoke();
    }
    Close();
}

NQ_IN_BOTH_MODES(Harvesters);

} // namespace
