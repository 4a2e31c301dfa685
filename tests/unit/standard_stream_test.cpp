// SPDX-License-Identifier: Apache-2.0
// The standard's answers of a data stream: its infos, its limit, its stop and its flushes.
#include "gev/nq_gev_controller.h"
#include "support/stream_fixture.h"
#include "support/trace_capture.h"

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr int kResourceInUse = -1004;
constexpr int kKill = 1;
using Calls = std::vector<std::string>;

class StandardStream : public nq::test::StreamFixture
{
  protected:
    StandardStream() : StreamFixture(kStandardAnswers) {}

    void SetUp() override { ASSERT_EQ(stream.Open(), 0); }

    void StartWith(int buffers, unsigned long limit = kInfinite)
    {
        Announce(buffers);
        Queue(buffers);
        RegisterNewBuffer();
        ASSERT_EQ(stream.StartAcquisition(0, limit), 0);
    }

    /// Type code, size and value of an info.
    struct Info
    {
        int type;
        unsigned long size;
        unsigned long value;
        bool operator==(const Info&) const = default;
    };
    Info Of(int command)
    {
        Info info{0, 8, 0};
        EXPECT_EQ(stream.GetInfo(command, &info.type, &info.value, &info.size), 0) << command;
        return info;
    }
};

TEST_F(StandardStream, TellsWhetherItIsStarted)
{
    EXPECT_EQ(Of(8), (Info{11, 1, 0}));
    StartWith(1);
    EXPECT_EQ(Of(8), (Info{11, 1, 1}));
    ASSERT_EQ(stream.StopAcquisition(kKill), 0);
    EXPECT_EQ(Of(8), (Info{11, 1, 0}));
}

TEST_F(StandardStream, CountsStartedFramesAndUnderrunsFromOpenToClose)
{
    StartWith(2);
    EXPECT_EQ(Of(6), (Info{8, 8, 0}));
    Frame(0, 1);
    ASSERT_EQ(stream.FlushQueue(4), 0);
    Frame(1, 2); // finds no buffer
    EXPECT_EQ(Of(6), (Info{8, 8, 1}));
    EXPECT_EQ(Of(2), (Info{8, 8, 1}));
    ASSERT_EQ(stream.StopAcquisition(kKill), 0);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Of(6), (Info{8, 8, 1}));
    EXPECT_EQ(Of(2), (Info{8, 8, 1}));
    EXPECT_EQ(Of(1), (Info{8, 8, 0})) << "what is delivered counts from the start";
    ASSERT_EQ(stream.Close(), 0);
    ASSERT_EQ(stream.Open(), 0);
    EXPECT_EQ(Of(6), (Info{8, 8, 0}));
    EXPECT_EQ(Of(2), (Info{8, 8, 0}));
}

TEST_F(StandardStream, RevokesNoBufferThatAwaitsDelivery)
{
    StartWith(2);
    Frame(0, 1);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), -1022);
    EXPECT_EQ(Number(5), 1U) << "its event stays";
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    ASSERT_EQ(stream.FlushQueue(0), 0); // to the output
    EXPECT_EQ(stream.RevokeBuffer(handles[1], nullptr, nullptr), -1022);
    ASSERT_EQ(stream.StopAcquisition(kKill), 0); // the camera has its block until then
    ASSERT_EQ(stream.FlushQueue(1), 0);          // the output is discarded
    EXPECT_EQ(stream.RevokeBuffer(handles[1], nullptr, nullptr), 0);
}

/// The camera skips ids while it waits for a buffer: those frames were lost to an empty input pool.
TEST_F(StandardStream, CountsTheIdsSkippedWhileNothingWasQueuedAsUnderruns)
{
    StartWith(2);
    Frame(0, 1);
    Frame(1, 4); // a buffer was queued meanwhile, so that it was something else
    EXPECT_EQ(Number(2), 0U);
    EXPECT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(Number(2), 0U) << "what is lost shows with the next frame";
    Frame(0, 9); // 5 to 8 found no buffer
    EXPECT_EQ(Number(2), 4U);
    EXPECT_EQ(Take(), handles[1]);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    Frame(1, 3); // ids that begin anew skip nothing
    EXPECT_EQ(Number(2), 4U);
    EXPECT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    stream.DropFrame(&blocks[0]); // 4 came, but could not be read
    Frame(1, 5);
    EXPECT_EQ(Number(2), 4U);
    ASSERT_EQ(stream.StopAcquisition(kKill), 0);
    ASSERT_EQ(stream.FlushQueue(2), 0);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 200); // nor does the first one of a run
    EXPECT_EQ(Number(2), 4U);
}

/// With nobody registered the frames come all the same: no id is skipped, and a buffer was queued.
TEST_F(StandardStream, CountsNoFrameThatCameWhileNobodyWasRegisteredAsSkipped)
{
    StartWith(1);
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.UnregisterEvent(1), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    Frame(0, 4); // 2 and 3 found no buffer
    EXPECT_EQ(Number(2), 2U);
    Frame(0, 5);
    Frame(0, 6);
    RegisterNewBuffer();
    Frame(0, 7);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Number(2), 2U);
}

TEST_F(StandardStream, HasNoChunksAndTakesAnyAddress)
{
    EXPECT_EQ(Of(11), (Info{12, 8, 0}));
    EXPECT_EQ(Of(13), (Info{12, 8, 1}));
}

TEST_F(StandardStream, DoesNotImplementAnUnknownCommand)
{
    for (const int command : {-1, 14, 15, 999, 1000, 0xA000})
    {
        unsigned long value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(stream.GetInfo(command, &type, &value, &size), -1003) << command;
    }
}

TEST_F(StandardStream, StartsWithNoFlagButTheDefault)
{
    Announce(1);
    for (const int flags : {1, 55, 1000, -1})
    {
        EXPECT_EQ(stream.StartAcquisition(flags, kInfinite), -1003) << flags;
        EXPECT_EQ(stream.StartAcquisition(flags, 0), -1009) << flags;
    }
    EXPECT_EQ(stream.calls, Calls{}) << "the transport is not asked";
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(stream.StartAcquisition(55, 1), -1003);
    EXPECT_EQ(Of(8).value, 1U) << "and goes on";
}

TEST_F(StandardStream, StartsWithABufferAnnouncedAndNoneQueued)
{
    EXPECT_EQ(Of(12), (Info{12, 8, 1})) << "how many it needs";
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), -1013);
    EXPECT_EQ(stream.calls, Calls{}) << "the transport is not asked";
    Announce(1);
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(stream.calls, Calls{"start 8 1"});
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), kResourceInUse) << "it runs";
}

TEST_F(StandardStream, EndsWithTheLastFrameAskedFor)
{
    StartWith(3, 2);
    Frame(0, 1);
    EXPECT_EQ(Of(8).value, 1U);
    Frame(1, 2);
    EXPECT_EQ(Of(8).value, 0U);
    EXPECT_EQ(stream.calls, (Calls{"start 8 3", "stop 1"}));
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(Take(), nullptr);

    Frame(2, 3); // was on its way
    EXPECT_EQ(Take(), nullptr);
    EXPECT_EQ(Of(1).value, 2U);
}

TEST_F(StandardStream, ThatEndedByItselfIsStoppedOnceAndStartsAgain)
{
    StartWith(2, 1);
    Frame(0, 1);
    Frame(1, 2); // was on its way
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_EQ(stream.StopAcquisition(0), kResourceInUse);
    EXPECT_EQ(stream.calls, (Calls{"start 8 2", "stop 1"}));

    ASSERT_EQ(stream.StartAcquisition(0, 1), 0);
    Frame(1, 3);
    EXPECT_EQ(Of(8).value, 0U);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0) << "without the stop in between";
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_EQ(stream.StopAcquisition(0), kResourceInUse);
}

TEST_F(StandardStream, OwesNoStopAfterItWasClosed)
{
    StartWith(1, 1);
    Frame(0, 1);
    ASSERT_EQ(stream.Close(), 0);
    ASSERT_EQ(stream.Open(), 0);
    EXPECT_EQ(stream.StopAcquisition(0), kResourceInUse);
}

TEST_F(StandardStream, EndsWithTheLastFrameWhileItIsStopped)
{
    constexpr int kRounds = 30000;
    StartWith(1, 1);
    std::atomic<int> round = 0;
    std::atomic<int> ended = 0;
    std::thread camera([&] {
        for (int next = 1; next <= kRounds; ++next)
        {
            while (round < next)
            {
                std::this_thread::yield();
            }
            Frame(0, 1);
            ended = next;
        }
    });
    int refused = 0;
    for (int next = 1; next <= kRounds; ++next)
    {
        round = next;
        for (std::atomic<int> pause = next % 300; pause > 0; --pause)
        {
        }
        refused += stream.StopAcquisition(kKill) != 0 ? 1 : 0;
        while (ended < next)
        {
            std::this_thread::yield();
        }
        Take();
        stream.QueueBuffer(handles[0]);
        stream.StopAcquisition(kKill);
        refused += stream.StartAcquisition(0, 1) != 0 ? 1 : 0;
    }
    camera.join();
    EXPECT_EQ(refused, 0);
}

TEST_F(StandardStream, CountsNoFrameWithoutABufferTowardsTheLimit)
{
    StartWith(2, 2);
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.FlushQueue(4), 0);
    Frame(1, 2); // finds no buffer
    EXPECT_EQ(Of(2).value, 1U);
    EXPECT_EQ(Of(8).value, 1U);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    Frame(0, 3);
    EXPECT_EQ(Of(8).value, 0U);
}

TEST_F(StandardStream, BeforeTheFirstFrameStopsWithoutAWait)
{
    StartWith(1);
    const nq::test::TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_FALSE(trace.Has(2, "StopAcquisition failed! WAIT_EVENT_TRANSFER_COMPLETED")) << "after 3 s";
}

TEST_F(StandardStream, WithAFrameUnderWayWaitsForItsEnd)
{
    StartWith(1);
    stream.StartOfTransfer();
    auto stopped = std::async(std::launch::async, [this] { return stream.StopAcquisition(0); });
    EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    Frame(0, 1);
    EXPECT_EQ(stopped.get(), 0);
    EXPECT_EQ(Take(), handles[0]);
}

TEST_F(StandardStream, AFlushToTheInputQueuesEachBufferOnce)
{
    Announce(3);
    for (const int flush : {3, 3, 2})
    {
        EXPECT_EQ(stream.FlushQueue(flush), 0);
        EXPECT_EQ(Of(4).value, 3U);
    }
    EXPECT_EQ(BufferNumber(handles[1], 5), 1U);
    EXPECT_EQ(stream.QueueBuffer(handles[1]), kResourceInUse);
    EXPECT_EQ(Of(4).value, 3U);
    EXPECT_EQ(stream.RevokeBuffer(handles[1], nullptr, nullptr), -1022);
}

TEST_F(StandardStream, AFlushToTheInputGivesTheBlocksBack)
{
    StartWith(2);
    stream.requeued.clear();
    Frame(0, 1);
    Frame(1, 2);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(stream.FlushQueue(3), 0) << "unqueued ones";
    EXPECT_EQ(stream.requeued, (std::vector<void*>{&blocks[0]}));
    EXPECT_EQ(Of(4).value, 1U);
    EXPECT_EQ(Of(5).value, 1U) << "what is delivered stays";
    EXPECT_EQ(stream.FlushQueue(2), 0) << "all";
    EXPECT_EQ(stream.requeued, (std::vector<void*>{&blocks[0], &blocks[1]}));
    EXPECT_EQ(Of(4).value, 2U);
    EXPECT_EQ(Of(5).value, 0U);
    Frame(0, 3);
    Frame(1, 4);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Take(), handles[1]);
}

TEST_F(StandardStream, ABufferFlushedToTheOutputHasNoNewData)
{
    StartWith(1);
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(BufferNumber(handles[0], 4), 1U);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(BufferNumber(handles[0], 4), 0U);
    EXPECT_EQ(stream.FlushQueue(0), 0);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(BufferNumber(handles[0], 4), 0U);
}

int PortUrlsOf(void* handle)
{
    unsigned int count = 0;
    return g_Controller.GetNumPortURLs(handle, &count);
}

TEST_F(StandardStream, ABufferIsKnownByItsHandleFromItsAnnouncementToTheClose)
{
    Announce(1);
    EXPECT_EQ(PortUrlsOf(handles[0]), -1003) << "known, and without a port";
    ASSERT_EQ(stream.Close(), 0);
    EXPECT_EQ(PortUrlsOf(handles[0]), -1006);
    EXPECT_EQ(stream.AnnounceBuffer(memory[0], 8, nullptr, &handles[0]), -1006);
    EXPECT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), -1006);
    EXPECT_EQ(Of(3).value, 0U);
    ASSERT_EQ(stream.Open(), 0);
    Announce(1);
}

TEST_F(StandardStream, AStartThatACloseOvertakesIsUndone)
{
    Announce(1);
    stream.onStart = [this] { return stream.Close(); };
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), -1006);
    EXPECT_EQ(stream.calls, (Calls{"start 8 1", "stop 1"}));
    EXPECT_EQ(stream.StopAcquisition(kKill), kResourceInUse) << "nothing runs";

    stream.onStart = nullptr;
    ASSERT_EQ(stream.Open(), 0);
    StartWith(1);
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
}

/// A transport whose start waits for the close that it meets.
class MeetingStream : public nq::test::FakeDataStream
{
  public:
    using FakeDataStream::FakeDataStream;

    int DoStartAcquisition(unsigned int, unsigned int) override
    {
        inside = true;
        while (inside)
        {
        }
        return 0;
    }
    int DoStopAcquisition(int) override { return 0; }

    std::atomic<bool> inside = false;
};

TEST_F(StandardStream, AClosedStreamDoesNotRunHoweverAStartMeetsTheClose)
{
    constexpr int kRounds = 100;
    MeetingStream meeting(0, &root);
    for (int round = 0; round < kRounds; ++round)
    {
        ASSERT_EQ(meeting.Open(), 0);
        ASSERT_EQ(meeting.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), 0);
        std::thread consumer([&] { meeting.StartAcquisition(0, kInfinite); });
        while (!meeting.inside)
        {
            std::this_thread::yield();
        }
        meeting.inside = false;
        EXPECT_EQ(meeting.Close(), 0);
        consumer.join();
        EXPECT_EQ(meeting.StopAcquisition(kKill), kResourceInUse) << "in round " << round;
    }
}

TEST_F(StandardStream, ACloseDuringAnnouncementsLeavesNoHandle)
{
    constexpr int kRounds = 300;
    std::atomic<bool> over = false;
    std::atomic<bool> announcing = false;
    std::vector<void*> announced;
    std::thread consumer([&] {
        while (!over)
        {
            void* handle = nullptr;
            if (stream.AllocAndAnnounceBuffer(8, nullptr, &handle) == 0)
            {
                announced.push_back(handle);
            }
            announcing = true;
        }
    });
    for (int round = 0; round < kRounds; ++round)
    {
        announcing = false;
        while (!announcing)
        {
            std::this_thread::yield();
        }
        ASSERT_EQ(stream.Close(), 0);
        EXPECT_EQ(Of(3).value, 0U);
        ASSERT_EQ(stream.Open(), 0);
    }
    over = true;
    consumer.join();
    ASSERT_EQ(stream.Close(), 0);
    for (void* const handle : announced)
    {
        EXPECT_EQ(PortUrlsOf(handle), -1006);
    }
}

} // namespace
