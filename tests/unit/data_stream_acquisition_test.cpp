// SPDX-License-Identifier: Apache-2.0
// Starting and stopping acquisition, and the delivery of frames.
#include "gentl/nq_gentl_buffer.h"
#include "support/asleep.h"
#include "support/stream_fixture.h"
#include "support/trace_capture.h"

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

using nq::test::CallingThread;
using nq::test::TraceCapture;

namespace
{

using Lines = std::vector<std::string>;
using Calls = std::vector<std::string>;

class DataStreamAcquisition : public nq::test::StreamFixture
{
  protected:
    void StartWith(int buffers, unsigned long limit = kInfinite)
    {
        Announce(buffers);
        Queue(buffers);
        RegisterNewBuffer();
        ASSERT_EQ(stream.StartAcquisition(0, limit), 0);
    }
};

} // namespace

TEST_F(DataStreamAcquisition, StartWithoutBuffersPassesZeroAndZero)
{
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(stream.calls, Calls{"start 0 0"});
}

TEST_F(DataStreamAcquisition, StartPassesTheBiggestAnnouncedSizeAndTheCount)
{
    stream.AnnounceBuffer(memory[0], 3, nullptr, &handles[0]);
    stream.AnnounceBuffer(memory[1], 7, nullptr, &handles[1]);
    stream.AnnounceBuffer(memory[2], 5, nullptr, &handles[2]);
    EXPECT_EQ(stream.StartAcquisition(77, 1), 0);
    EXPECT_EQ(stream.calls, Calls{"start 7 3"});
}

TEST_F(DataStreamAcquisition, StartForNoFramesIsRefused)
{
    TraceCapture trace;
    EXPECT_EQ(stream.StartAcquisition(0, 0), -1009);
    EXPECT_EQ(trace.At(2), Lines{"StartAcquisition GC_ERR_INVALID_PARAMETER"});
    EXPECT_TRUE(stream.calls.empty());
}

TEST_F(DataStreamAcquisition, AFailedStartGivesTheTransportsCodeAndLeavesTheStreamStopped)
{
    stream.onStart = [] { return -1014; };
    TraceCapture trace;
    EXPECT_EQ(stream.StartAcquisition(0, 1), -1014);
    EXPECT_EQ(trace.At(2), Lines{"StartAcquisition DoStartAcquisition Failed! ret:-1014"});
    EXPECT_EQ(stream.StopAcquisition(1), -1004);
    stream.onStart = nullptr;
    EXPECT_EQ(stream.StartAcquisition(0, 1), 0);
}

TEST_F(DataStreamAcquisition, AFailedStartKeepsTheCountersOfTheRunBefore)
{
    StartWith(1);
    Frame(0, 1);
    Frame(1, 2);
    ASSERT_EQ(stream.StopAcquisition(1), 0);
    stream.onStart = [] { return -1001; };
    EXPECT_EQ(stream.StartAcquisition(0, 1), -1001);
    EXPECT_EQ(Number(1), 1U);
    EXPECT_EQ(Number(2), 1U);
    stream.onStart = nullptr;
    EXPECT_EQ(stream.StartAcquisition(0, 1), 0);
    EXPECT_EQ(Number(1), 0U);
    EXPECT_EQ(Number(2), 0U);
}

// Deliberate(RefusedStartSetsTheLimit): the refused start has already set the new limit.
TEST_F(DataStreamAcquisition, ASecondStartIsRefusedButHasReplacedTheLimitAndZeroedWhatWasAcquired)
{
    StartWith(4, 2);
    Frame(0, 1);
    Frame(1, 2);
    TraceCapture trace;
    EXPECT_EQ(stream.StartAcquisition(0, 1), -1004);
    EXPECT_TRUE(TraceCapture::Has(2, "StartAcquisition GC_ERR_RESOURCE_IN_USE"));
    EXPECT_EQ(stream.calls.size(), 1U);
    Frame(2, 3); // the old limit is reached, the new one is not
    EXPECT_EQ(Number(1), 3U);
    Frame(3, 4); // now the new one is
    EXPECT_EQ(Number(1), 3U);
    EXPECT_EQ(stream.calls.back(), "stop 1");
}

TEST_F(DataStreamAcquisition, TheNPlusFirstFrameStopsTheStreamAndIsNotDelivered)
{
    StartWith(3, 2);
    Frame(0, 1);
    Frame(1, 2);
    EXPECT_EQ(stream.calls, Calls{"start 8 3"});
    Frame(2, 3);
    EXPECT_EQ(stream.calls, (Calls{"start 8 3", "stop 1"}));
    EXPECT_EQ(Number(1), 2U);
    EXPECT_EQ(Number(4), 1U);
    EXPECT_EQ(Number(2), 0U);
    EXPECT_TRUE(stream.requeued.empty());
    Frame(3, 4); // the stream has stopped already
    EXPECT_EQ(stream.calls.size(), 2U);
    EXPECT_EQ(stream.StopAcquisition(0), -1004);
}

TEST_F(DataStreamAcquisition, StopWhenNotStartedIsRefused)
{
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(0), -1004);
    EXPECT_EQ(trace.At(2),
              (Lines{"StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:0", "StopAcquisition GC_ERR_RESOURCE_IN_USE"}));
    EXPECT_TRUE(stream.calls.empty());
}

TEST_F(DataStreamAcquisition, StopWithOtherFlagsIsRefusedWithoutLookingAtStarted)
{
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(2), -1003);
    EXPECT_EQ(trace.At(2), (Lines{"StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:2",
                                  "StopAcquisition GC_ERR_NOT_IMPLEMENTED Flags:2"}));
    stream.StartAcquisition(0, 1);
    EXPECT_EQ(stream.StopAcquisition(2), -1003);
    EXPECT_EQ(stream.calls.size(), 1U);
}

// Deliberate(StopFlagsAreSigned)
TEST_F(DataStreamAcquisition, NegativeFlagsAreNoOtherFlagsAndStopAtOnce)
{
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(-1), -1004);
    EXPECT_EQ(trace.At(2),
              (Lines{"StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:-1", "StopAcquisition GC_ERR_RESOURCE_IN_USE"}));
    stream.Open();
    stream.StartAcquisition(0, 1);
    EXPECT_EQ(stream.StopAcquisition(-1), 0);
    EXPECT_FALSE(trace.Has(2, "StopAcquisition failed! WAIT_EVENT_TRANSFER_COMPLETED")) << "no wait for a transfer";
    EXPECT_EQ(stream.calls, (Calls{"start 0 0", "stop -1"}));
    stream.StartAcquisition(0, 1);
    EXPECT_EQ(stream.StopAcquisition(-2147483647 - 1), 0);
    EXPECT_EQ(stream.StopAcquisition(0x7FFFFFFF), -1003);
}

// Deliberate(StopLineIsNoFailure): the line names a code, yet nothing failed.
TEST_F(DataStreamAcquisition, EveryStopWritesItsEntryLine)
{
    stream.StartAcquisition(0, 1);
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(1), 0);
    EXPECT_EQ(trace.At(2), Lines{"StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:1"});
}

TEST_F(DataStreamAcquisition, ADefaultStopBeforeAnyFrameReturnsAfter3000Ms)
{
    stream.Open();
    stream.StartAcquisition(0, 1);
    TraceCapture trace;
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(3000));
    EXPECT_EQ(trace.At(2), (Lines{"StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:0",
                                  "StopAcquisition failed! WAIT_EVENT_TRANSFER_COMPLETED"}));
    EXPECT_EQ(stream.calls, (Calls{"start 0 0", "stop 0"}));
}

TEST_F(DataStreamAcquisition, ADefaultStopWaitsForTheFrameUnderWay)
{
    StartWith(1);
    stream.StartOfTransfer();
    CallingThread stop([&] { EXPECT_EQ(stream.StopAcquisition(0), 0); });
    stop.AwaitAsleep();
    EXPECT_EQ(stream.calls.size(), 1U);
    TraceCapture trace;
    Frame(0, 1);
    stop.Join();
    EXPECT_EQ(stream.calls.back(), "stop 0");
    EXPECT_EQ(Number(1), 1U);
    EXPECT_TRUE(trace.At(2).empty());
}

TEST_F(DataStreamAcquisition, BetweenFramesADefaultStopDoesNotWait)
{
    StartWith(1);
    Frame(0, 1);
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_EQ(trace.At(2).size(), 1U);
}

TEST_F(DataStreamAcquisition, AFailedFetchAlsoCountsAsACompletedTransfer)
{
    stream.StartAcquisition(0, 1);
    stream.SetTransferCompleted();
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_EQ(trace.At(2).size(), 1U);
}

TEST_F(DataStreamAcquisition, AKillStopDoesNotWait)
{
    stream.StartAcquisition(0, 1);
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(1), 0);
    EXPECT_EQ(trace.At(2).size(), 1U);
    EXPECT_EQ(stream.calls.back(), "stop 1");
}

TEST_F(DataStreamAcquisition, AStopThatFailsInTheTransportStillEndsStoppedWithZero)
{
    stream.StartAcquisition(0, 1);
    stream.onStop = [] { return -1001; };
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(1), 0);
    EXPECT_TRUE(TraceCapture::Has(2, "StopAcquisition failed! DoStopAcquisition:-1001"));
    EXPECT_EQ(stream.StopAcquisition(1), -1004);
    EXPECT_EQ(stream.StartAcquisition(0, 1), 0);
}

TEST_F(DataStreamAcquisition, SimultaneousStopsStopTheTransportOnce)
{
    for (int round = 0; round < 100; ++round)
    {
        stream.calls.clear();
        ASSERT_EQ(stream.StartAcquisition(0, 1), 0);
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
        {
            threads.emplace_back([&] {
                const int result = stream.StopAcquisition(1);
                EXPECT_TRUE(result == 0 || result == -1004);
            });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(stream.calls.size(), 2U);
    }
}

TEST_F(DataStreamAcquisition, SimultaneousStartsStartTheTransportOnce)
{
    std::atomic<int> starting = 0;
    stream.onStart = [&] {
        EXPECT_EQ(++starting, 1) << "never two at once";
        std::this_thread::yield();
        --starting;
        return 0;
    };
    for (int round = 0; round < 100; ++round)
    {
        stream.calls.clear();
        std::atomic<int> succeeded = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
        {
            threads.emplace_back([&] {
                const int result = stream.StartAcquisition(0, 1);
                EXPECT_TRUE(result == 0 || result == -1004);
                succeeded += result == 0;
            });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(succeeded, 1);
        EXPECT_EQ(stream.calls.size(), 1U);
        ASSERT_EQ(stream.StopAcquisition(1), 0);
    }
}

// Deliberate(CountingStartsLate): counting starts once the transport has started, whatever it has brought until then.
TEST_F(DataStreamAcquisition, AFrameThatComesWhileTheStartIsUnderWayIsDeliveredButNotCounted)
{
    Announce(1);
    Queue(1);
    RegisterNewBuffer();
    stream.onStart = [&] {
        Frame(0, 1);
        Frame(1, 2); // finds no buffer
        return 0;
    };
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Number(1), 0U);
    EXPECT_EQ(Number(2), 0U);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    Frame(0, 3);
    EXPECT_EQ(Number(1), 1U);
}

TEST_F(DataStreamAcquisition, AFramePastTheLimitThatComesWhileTheStartIsUnderWayLeavesTheStopToTheNextOne)
{
    Announce(3);
    Queue(3);
    RegisterNewBuffer();
    TraceCapture trace;
    stream.onStart = [&] {
        Frame(0, 1);
        Frame(1, 2);
        return 0;
    };
    EXPECT_EQ(stream.StartAcquisition(0, 1), 0);
    EXPECT_TRUE(trace.Has(2, "StopAcquisition GC_ERR_RESOURCE_IN_USE")) << "there is nothing to stop yet";
    EXPECT_EQ(stream.calls, Calls{"start 8 3"});
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(Take(), nullptr);
    Frame(2, 3);
    EXPECT_EQ(stream.calls, (Calls{"start 8 3", "stop 1"}));
    EXPECT_EQ(Take(), nullptr);
    EXPECT_EQ(stream.StopAcquisition(1), -1004);
}

TEST_F(DataStreamAcquisition, ALateFrameOfTheRunBeforeCountsNowhereAndDoesNotShortenALimitedRun)
{
    StartWith(4);
    ASSERT_EQ(stream.StopAcquisition(1), 0);
    stream.onLateFrame = [&] {
        Frame(0, 1);
        ASSERT_EQ(stream.FlushQueue(GenTL::ACQ_QUEUE_OUTPUT_DISCARD), 0);
    };
    ASSERT_EQ(stream.StartAcquisition(0, 2), 0);
    EXPECT_EQ(Number(1), 0U);
    EXPECT_EQ(Number(2), 0U);
    Frame(1, 2);
    Frame(2, 3);
    EXPECT_EQ(Number(1), 2U);
    EXPECT_EQ(stream.calls.back(), "start 8 4") << "the limit has not been passed";
    Frame(3, 4);
    EXPECT_EQ(Number(1), 2U);
    EXPECT_EQ(stream.calls.back(), "stop 1");
}

TEST_F(DataStreamAcquisition, NoLockIsHeldOverTheTransportsStartAndStop)
{
    auto ask = [&] {
        std::thread([&] {
            Number(1);
            Number(3);
        }).join();
        return 0;
    };
    stream.onStart = ask;
    stream.onStop = ask;
    EXPECT_EQ(stream.StartAcquisition(0, 1), 0);
    EXPECT_EQ(stream.StopAcquisition(1), 0);
}

TEST_F(DataStreamAcquisition, ADeliveredFrameIsInTheBufferAndInTheEvent)
{
    StartWith(2);
    Frame(3, 0x42);
    EXPECT_EQ(Number(1), 1U);
    EXPECT_EQ(Number(4), 1U);
    EXPECT_EQ(Number(5), 1U);
    EXPECT_EQ(memory[0][0], 0x42);
    EXPECT_EQ(std::memcmp(memory[0], frame, 8), 0);
    EXPECT_EQ(BufferNumber(handles[0], 3), 1000U + 0x42U);
    EXPECT_EQ(BufferNumber(handles[0], 4), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 5), 1U) << "queued until it is taken";
    EXPECT_EQ(BufferNumber(handles[0], 6), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 7), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 9), 8U);
    EXPECT_EQ(BufferNumber(handles[0], 10), 4U);
    EXPECT_EQ(BufferNumber(handles[0], 11), 2U);
    EXPECT_EQ(BufferNumber(handles[0], 16), 0x42U);
    EXPECT_EQ(BufferNumber(handles[0], 17), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 20), 0x01080001U);
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
}

TEST_F(DataStreamAcquisition, ABlockFindsItsBufferWhateverTheOrderOfTheList)
{
    StartWith(3);
    for (int block = 0; block < 3; ++block)
    {
        Frame(block, static_cast<unsigned char>(block));
    }
    while (Take() != nullptr)
    {
    }
    for (const int buffer : {2, 0, 1})
    {
        ASSERT_EQ(stream.QueueBuffer(handles[buffer]), 0);
    }
    EXPECT_EQ(stream.requeued, (std::vector<void*>{&blocks[2], &blocks[0], &blocks[1]}));
    Frame(1, 11);
    EXPECT_EQ(Take(), handles[1]);
    Frame(0, 10);
    EXPECT_EQ(Take(), handles[0]);
    Frame(3, 13); // an unknown block binds the front
    EXPECT_EQ(Take(), handles[2]);
    ASSERT_EQ(stream.QueueBuffer(handles[2]), 0);
    EXPECT_EQ(stream.requeued.back(), &blocks[3]);
}

TEST_F(DataStreamAcquisition, ABlockIsHandedOverOnceItsFrameIsInTheBufferAndBeforeAnybodyIsTold)
{
    StartWith(1);
    unsigned char copied = 0;
    unsigned long told = 99;
    stream.onHandOver = [&] {
        copied = memory[0][0];
        told = Number(5);
    };
    Frame(3, 0x42);
    EXPECT_EQ(stream.handedOver, std::vector<void*>{&blocks[3]});
    EXPECT_EQ(copied, 0x42);
    EXPECT_EQ(told, 0U);
    EXPECT_EQ(Number(5), 1U);
}

TEST_F(DataStreamAcquisition, ABufferFlushedFromTheInputKeepsItsBlockAlsoWhenAnotherTakesItsNextFrame)
{
    StartWith(2);
    Frame(0, 1);
    ASSERT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    ASSERT_EQ(stream.FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    stream.requeued.clear();
    Frame(0, 2);
    ASSERT_EQ(Take(), handles[1]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(stream.requeued, (std::vector<void*>{&blocks[0], &blocks[0]})) << "the transport knows which one counts";
}

TEST_F(DataStreamAcquisition, AShortFrameIsDeliveredAsIncomplete)
{
    StartWith(1);
    Frame(0, 1, 1);
    EXPECT_EQ(Number(1), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 7), 1U);
}

// Deliberate(IncompleteStays): nothing clears the flag.
TEST_F(DataStreamAcquisition, IncompleteOnceSetStaysSetThroughAWholeFrame)
{
    StartWith(1);
    Frame(0, 1, 1);
    ASSERT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(BufferNumber(handles[0], 7), 1U);
    Frame(0, 2, 0);
    EXPECT_EQ(BufferNumber(handles[0], 7), 1U);
}

TEST_F(DataStreamAcquisition, AStatusAboveOneDropsTheFrame)
{
    StartWith(1);
    stream.StartOfTransfer();
    Frame(0, 1, 2);
    EXPECT_EQ(Number(1), 0U);
    EXPECT_EQ(Number(2), 0U);
    EXPECT_EQ(Number(4), 1U);
    EXPECT_TRUE(stream.handedOver.empty());
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(0), 0);
    EXPECT_EQ(trace.At(2).size(), 1U) << "the transfer counts as completed";
}

TEST_F(DataStreamAcquisition, AFrameOnAnEmptyInputListIsOneUnderrunAndCostsTheTransportOneReceive)
{
    StartWith(1);
    Frame(0, 1);
    Frame(1, 2);
    Frame(2, 3);
    EXPECT_EQ(Number(1), 1U);
    EXPECT_EQ(Number(2), 2U);
    EXPECT_EQ(Number(5), 1U);
    EXPECT_TRUE(stream.requeued.empty());
    EXPECT_EQ(stream.handedOver, (std::vector<void*>{&blocks[0], &blocks[1], &blocks[2]}));
}

TEST_F(DataStreamAcquisition, IdsSkippedWhileNothingWasQueuedAreNoUnderruns)
{
    StartWith(1);
    Frame(0, 1);
    EXPECT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    Frame(0, 9);
    EXPECT_EQ(Number(2), 0U);
}

// Deliberate(NobodyRegistered): nobody is told of the frame, and the buffer does not come back.
TEST_F(DataStreamAcquisition, WithoutTheEventAFrameMovesNoCounterAndItsBufferLeavesTheList)
{
    Announce(1);
    Queue(1);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1, 1);
    EXPECT_EQ(Number(1), 0U);
    EXPECT_EQ(Number(2), 0U);
    EXPECT_EQ(Number(4), 0U);
    EXPECT_EQ(Number(5), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 4), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 5), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 7), 0U);
    EXPECT_EQ(stream.QueueBuffer(handles[0]), -1004);
}

TEST_F(DataStreamAcquisition, AStartUnbindsTheBuffersFromTheBlocksOfTheRunBefore)
{
    StartWith(2);
    Frame(0, 1);
    ASSERT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.StopAcquisition(1), 0);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_TRUE(stream.requeued.empty()) << "the old block is not the new transport's";
    Frame(0, 2);
    EXPECT_EQ(Take(), handles[1]) << "the front of the list";
}

TEST_F(DataStreamAcquisition, ARefusedSecondStartLeavesTheBindingsAlone)
{
    StartWith(1);
    Frame(0, 1);
    ASSERT_EQ(Take(), handles[0]);
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), -1004);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(stream.requeued, std::vector<void*>{&blocks[0]});
}

TEST_F(DataStreamAcquisition, OpenForgetsAStartAndCloseStops)
{
    EXPECT_EQ(stream.Open(), 0);
    stream.StartAcquisition(0, 1);
    stream.SetTransferCompleted();
    EXPECT_EQ(stream.Close(), 0);
    EXPECT_EQ(stream.calls.back(), "stop 0");
    EXPECT_EQ(stream.Close(), -1001);
    EXPECT_EQ(stream.Open(), 0);
    EXPECT_EQ(stream.Close(), 0);
    EXPECT_EQ(stream.calls.size(), 2U) << "nothing to stop";
    stream.StartAcquisition(0, 1);
    EXPECT_EQ(stream.Open(), 0);
    EXPECT_EQ(stream.StopAcquisition(1), -1004);
}

TEST_F(DataStreamAcquisition, ManyFramesReachAConsumerThatRequeuesThemOnAnotherThread)
{
    constexpr int kFrames = 2000;
    StartWith(4);
    auto* const event = stream.FindEventById(1, false);
    std::atomic<bool> done = false;
    std::thread acquisition([&] {
        for (int i = 0; i < kFrames; ++i)
        {
            stream.StartOfTransfer();
            Frame(i % 4, static_cast<unsigned char>(i));
            std::this_thread::yield();
        }
        done = true;
        event->Kill();
    });
    unsigned long taken = 0;
    for (;;)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        const int result = event->GetData(&data, &size, kInfinite);
        if (result == -1012 && done)
        {
            break;
        }
        ASSERT_EQ(result, 0);
        ASSERT_NE(data.BufferHandle, nullptr);
        ASSERT_EQ(stream.QueueBuffer(data.BufferHandle), 0) << "every delivered buffer can be queued again";
        ++taken;
    }
    acquisition.join();
    EXPECT_EQ(Number(1) + Number(2), static_cast<unsigned long>(kFrames));
    EXPECT_EQ(taken + Number(5), Number(1));
    EXPECT_EQ(stream.StopAcquisition(0), 0);
}
