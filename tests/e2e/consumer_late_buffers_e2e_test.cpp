// SPDX-License-Identifier: Apache-2.0
// Consumers that queue after the start, and that use memory of the library, in both modes.
#include "support/stream_in_both_modes.h"

#include <map>

namespace
{

using namespace nq::test;

constexpr int kTimeout = -1011;

class LateBuffers : public StreamInBothModes
{
};

TEST_P(LateBuffers, AStartMayComeBeforeAnythingIsQueued)
{
    Announce(4);
    ASSERT_EQ(c.Start(), 0);
    c.RegisterEvent();
    if (!Standard())
    {
        ASSERT_TRUE(c.Await(GenTL::STREAM_INFO_NUM_UNDERRUN, 4)) << "the frames of the four blocks";
    }
    EXPECT_EQ(Wait(100), kTimeout);
    Queue(0, 4);
    if (Standard())
    {
        EXPECT_EQ(c.Take(40), Ids(1, 40));
        EXPECT_EQ(c.seen.size(), 4U);
    }
    else
    {
        EXPECT_EQ(Wait(500), kTimeout) << "the camera never hears of them";
    }
    EXPECT_EQ(c.Stop(), 0);
}

TEST_P(LateBuffers, OneBufferMayBeQueuedBeforeTheStartAndTheRestAfter)
{
    Announce(4);
    Queue(0, 1);
    c.RegisterEvent();
    ASSERT_EQ(c.Start(), 0);
    if (Standard())
    {
        EXPECT_EQ(c.Take(5), Ids(1, 5));
        Queue(1, 4);
        EXPECT_EQ(c.Take(40), Ids(6, 45));
    }
    else
    {
        EXPECT_EQ(c.Take(5).size(), 5U);
        Queue(1, 4);
        EXPECT_EQ(c.Take(40).size(), 40U);
    }
    EXPECT_TRUE(!Standard() || c.seen.size() == 4) << "as stated blocks of the rest may be lost";
    EXPECT_EQ(c.Stop(), 0);
}

NQ_IN_BOTH_MODES(LateBuffers);

class BuffersOfTheLibrary : public StreamInBothModes
{
  protected:
    void Allocate(int count)
    {
        for (int index = 0; index < count; ++index)
        {
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(c.gentl.DSAllocAndAnnounceBuffer(c.stream, 1024, nullptr, &buffer), 0);
            c.buffers.push_back(buffer);
        }
    }

    const void* Base(GenTL::BUFFER_HANDLE buffer) { return c.Info<const void*>(buffer, GenTL::BUFFER_INFO_BASE); }
};

TEST_P(BuffersOfTheLibrary, HaveTheirAddressFromTheAnnouncement)
{
    Allocate(4);
    std::map<GenTL::BUFFER_HANDLE, const void*> announced;
    for (const GenTL::BUFFER_HANDLE buffer : c.buffers)
    {
        announced[buffer] = Base(buffer);
        EXPECT_EQ(announced[buffer] != nullptr, Standard()) << "as stated a consumer that maps it now finds nothing";
    }
    Queue(0, 4);
    c.RegisterEvent();
    ASSERT_EQ(c.Start(), 0);
    for (int frame = 0; frame < 40; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = c.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_TRUE(c.ShowsItsFrame(buffer));
        if (Standard())
        {
            EXPECT_EQ(Base(buffer), announced[buffer]);
        }
        ASSERT_EQ(c.gentl.DSQueueBuffer(c.stream, buffer), 0);
    }
    EXPECT_EQ(c.Stop(), 0);
}

TEST_P(BuffersOfTheLibrary, MayBeQueuedOneBeforeTheStartAndTheRestAfter)
{
    Allocate(4);
    Queue(0, 1);
    c.RegisterEvent();
    ASSERT_EQ(c.Start(), 0);
    EXPECT_EQ(c.Take(5).size(), 5U);
    Queue(1, 4);
    EXPECT_EQ(c.Take(40).size(), 40U);
    EXPECT_TRUE(!Standard() || c.seen.size() == 4) << "as stated blocks of the rest may be lost";
    EXPECT_EQ(c.Stop(), 0);
}

NQ_IN_BOTH_MODES(BuffersOfTheLibrary);

} // namespace
