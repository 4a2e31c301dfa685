// SPDX-License-Identifier: Apache-2.0
// What consumers do that is easily forgotten, in both modes: buffers in odd places and at odd times, kills, stops,
// flushes and closes in every order.
#include "support/asleep.h"
#include "support/stream_in_both_modes.h"

#include <gmock/gmock.h>
#include <mutex>

namespace
{

using namespace nq::test;

constexpr int kError = -1001;
constexpr int kAbort = -1012;
constexpr int kTimeout = -1011;
constexpr int kInvalidHandle = -1006;

class Traps : public StreamInBothModes
{
};

TEST_P(Traps, MemoryMayBeginAtAnyAddress)
{
    for (const std::size_t offset : {1U, 3U, 7U, 13U})
    {
        Announce(1, offset);
    }
    Queue(0, 4);
    c.RegisterEvent();
    ASSERT_EQ(c.Start(), 0);
    EXPECT_EQ(c.Take(40), Ids(1, 40));
    EXPECT_EQ(c.seen.size(), 4U);
    EXPECT_EQ(c.Stop(), 0);
}

TEST_P(Traps, AllBuffersMayBeHeldAtOnce)
{
    AnnounceAndQueue();
    ASSERT_EQ(c.Start(), 0);
    for (std::uint64_t round = 0; round < 5; ++round)
    {
        std::vector<GenTL::BUFFER_HANDLE> held;
        for (std::uint64_t frame = 1; frame <= 4; ++frame)
        {
            held.push_back(c.Next());
            ASSERT_NE(held.back(), nullptr) << "round " << round << ", frame " << frame;
            EXPECT_EQ(c.FrameId(held.back()), round * 4 + frame);
        }
        EXPECT_EQ(Wait(20), kTimeout);
        for (const GenTL::BUFFER_HANDLE buffer : held)
        {
            EXPECT_TRUE(c.ShowsItsFrame(buffer)) << "nobody writes into a buffer that is held";
            ASSERT_EQ(c.gentl.DSQueueBuffer(c.stream, buffer), 0);
        }
    }
    EXPECT_EQ(c.Stop(), 0);
}

TEST_P(Traps, AKillBeforeAWaitEndsIt)
{
    AnnounceAndQueue();
    CallingThread([&] { EXPECT_EQ(c.gentl.EventKill(c.event), 0); }).Join();
    EXPECT_EQ(Wait(GENTL_INFINITE), kAbort);
    EXPECT_EQ(Wait(50), By(kAbort, kTimeout)) << "as stated it ends every wait until a flush";
    EXPECT_EQ(c.gentl.EventFlush(c.event), 0);
    EXPECT_EQ(Wait(50), kTimeout);
}

TEST_P(Traps, AKillDuringAWaitEndsIt)
{
    AnnounceAndQueue();
    int ended = 0;
    CallingThread waiter([&] { ended = Wait(GENTL_INFINITE); });
    waiter.AwaitAsleep();
    EXPECT_EQ(c.gentl.EventKill(c.event), 0);
    waiter.Join();
    EXPECT_EQ(ended, kAbort);
    EXPECT_EQ(Wait(50), kTimeout) << "it ended the one that waited";
}

TEST_P(Traps, AKillAfterAFrameLosesNone)
{
    AnnounceAndQueue();
    ASSERT_EQ(c.Start(), 0);
    EXPECT_EQ(c.Take(5), Ids(1, 5));
    CallingThread([&] { EXPECT_EQ(c.gentl.EventKill(c.event), 0); }).Join();
    EXPECT_EQ(Wait(1000), kAbort);
    if (Standard())
    {
        EXPECT_EQ(c.Take(10), Ids(6, 15));
    }
    else
    {
        EXPECT_EQ(Wait(1000), kAbort) << "until a flush, which takes the frames that wait with it";
    }
    EXPECT_EQ(c.Stop(), 0);
}

TEST_P(Traps, AnUnregistrationMeetsThreadsThatWait)
{
    AnnounceAndQueue();
    std::multiset<int> ended;
    std::mutex mutex;
    const auto wait = [&] {
        const int code = Wait(GENTL_INFINITE);
        const std::lock_guard lock(mutex);
        ended.insert(code);
    };
    const auto waitsEnded = [&] {
        const std::lock_guard lock(mutex);
        return ended.size();
    };
    CallingThread first(wait);
    CallingThread second(wait);
    first.AwaitAsleep();
    second.AwaitAsleep();
    if (!Standard())
    {
        // By the library's own answers the event goes with whoever is inside: the consumer ends its waits before.
        for (std::size_t kills = 1; kills <= 2; ++kills)
        {
            EXPECT_EQ(c.gentl.EventKill(c.event), 0);
            while (waitsEnded() < kills)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            first.AwaitAsleep();
            second.AwaitAsleep();
            EXPECT_EQ(waitsEnded(), kills) << "as stated a kill ends only one of them";
        }
        first.Join();
        second.Join();
    }
    EXPECT_EQ(c.gentl.GCUnregisterEvent(c.stream, GenTL::EVENT_NEW_BUFFER), 0);
    first.Join();
    second.Join();
    EXPECT_THAT(ended, testing::ElementsAre(kAbort, kAbort));
    EXPECT_EQ(c.gentl.GCUnregisterEvent(c.stream, GenTL::EVENT_NEW_BUFFER), -1002);
}

TEST_P(Traps, AfterAStopMayComeAnyNumberOfFlushesAndARevocationOfAll)
{
    for (int round = 0; round < 3; ++round)
    {
        Announce(4);
        Queue(0, 4);
        if (round == 0)
        {
            c.RegisterEvent();
        }
        ASSERT_EQ(c.Start(), 0);
        EXPECT_EQ(c.TakeOfNewRun(10), Ids(1, 10));
        EXPECT_EQ(c.gentl.DSStopAcquisition(c.stream, By<int>(GenTL::ACQ_STOP_FLAGS_KILL, 0)), 0);
        EXPECT_EQ(c.gentl.DSFlushQueue(c.stream, GenTL::ACQ_QUEUE_INPUT_TO_OUTPUT), 0);
        EXPECT_EQ(c.gentl.DSFlushQueue(c.stream, GenTL::ACQ_QUEUE_OUTPUT_DISCARD), 0);
        EXPECT_EQ(c.gentl.DSFlushQueue(c.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        EXPECT_EQ(c.gentl.DSFlushQueue(c.stream, GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
        EXPECT_EQ(c.gentl.EventFlush(c.event), 0);
        GenTL::BUFFER_HANDLE first = nullptr;
        for (const GenTL::BUFFER_HANDLE buffer : c.buffers)
        {
            ASSERT_EQ(c.gentl.DSGetBufferID(c.stream, 0, &first), 0);
            EXPECT_EQ(first, buffer);
            EXPECT_EQ(c.gentl.DSRevokeBuffer(c.stream, first, nullptr, nullptr), 0);
            EXPECT_EQ(c.gentl.DSRevokeBuffer(c.stream, first, nullptr, nullptr), kInvalidHandle);
        }
        EXPECT_EQ(c.gentl.DSGetBufferID(c.stream, 0, &first), -1017);
        c.buffers.clear();
    }
}

NQ_IN_BOTH_MODES(Traps);

/// A tree that streams, for closes.
class TrapsOfCloses : public Traps
{
  protected:
    void SetUp() override
    {
        AnnounceAndQueue();
        ASSERT_EQ(c.Start(), 0);
        EXPECT_EQ(c.Take(5), Ids(1, 5));
    }
};

TEST_P(TrapsOfCloses, TheStreamAfterItsDevice)
{
    EXPECT_EQ(c.gentl.DevClose(c.device), 0);
    EXPECT_EQ(c.gentl.DSStopAcquisition(c.stream, 0), kInvalidHandle);
    EXPECT_EQ(c.gentl.DSClose(c.stream), kInvalidHandle);
    EXPECT_EQ(c.gentl.DSClose(c.stream), kInvalidHandle);
    EXPECT_EQ(c.gentl.DevClose(c.device), kInvalidHandle);
    EXPECT_EQ(c.gentl.EventKill(c.event), kInvalidHandle);
}

TEST_P(TrapsOfCloses, TheInterfaceAfterItsSystem)
{
    EXPECT_EQ(c.gentl.TLClose(c.system), 0);
    EXPECT_EQ(c.gentl.DSClose(c.stream), kInvalidHandle);
    EXPECT_EQ(c.gentl.DevClose(c.device), kInvalidHandle);
    EXPECT_EQ(c.gentl.IFClose(c.interface), kInvalidHandle);
    EXPECT_EQ(c.gentl.TLClose(c.system), By(kError, kInvalidHandle)) << "of the system alone";
    c.CloseLibrary();
    EXPECT_EQ(c.gentl.GCCloseLib(), -1002);
}

TEST_P(TrapsOfCloses, EverythingTwice)
{
    EXPECT_EQ(c.gentl.DSClose(c.stream), 0);
    EXPECT_EQ(c.gentl.DSClose(c.stream), By(kError, kInvalidHandle)) << "as stated the handle stays";
    EXPECT_EQ(c.gentl.DevClose(c.device), 0);
    EXPECT_EQ(c.gentl.DevClose(c.device), kInvalidHandle);
    EXPECT_EQ(c.gentl.IFClose(c.interface), 0);
    EXPECT_EQ(c.gentl.IFClose(c.interface), kInvalidHandle);
    EXPECT_EQ(c.gentl.TLClose(c.system), 0);
    EXPECT_EQ(c.gentl.TLClose(c.system), By(kError, kInvalidHandle)) << "of the system alone";
    c.CloseLibrary();
    EXPECT_EQ(c.gentl.GCCloseLib(), -1002);
}

TEST_P(TrapsOfCloses, TheLibraryBeforeAllOthers)
{
    c.CloseLibrary();
    EXPECT_EQ(c.gentl.DSClose(c.stream), -1002);
    EXPECT_EQ(c.gentl.DevClose(c.device), -1002);
    EXPECT_EQ(c.gentl.IFClose(c.interface), -1002);
    EXPECT_EQ(c.gentl.TLClose(c.system), -1002);
}

NQ_IN_BOTH_MODES(TrapsOfCloses);

} // namespace
