// SPDX-License-Identifier: Apache-2.0
// The RDMA data stream between a camera that is a map of registers and a scripted device: start, frames, stop, restart.
#include "support/asleep.h"
#include "support/data_stream_fixture.h"
#include "support/private_member.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>

namespace nq::test
{
struct StoredValue
{
    using Type = std::uint64_t NQRMAXThreadAcquisition::*;
    friend Type Get(StoredValue);
};
template struct Reveal<StoredValue, &NQRMAXThreadAcquisition::m_value>;
} // namespace nq::test

using nq::test::CallingThread;
using nq::test::GenDCFrame;
using nq::test::GvcpCamera;
using nq::test::kInfinite;
using nq::test::kReadSettings;
using nq::test::kStreamOff;
using nq::test::kStreamOn;
using nq::test::LivingThreads;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using GevDataStream = nq::test::DataStreamFixture;

// ---- opening

TEST_F(GevDataStream, ThePayloadSizeIsAskedOfTheCameraEachTime)
{
    std::int64_t value = 0;
    int type = 0;
    unsigned long size = sizeof value;
    EXPECT_EQ(stream->DoGetPayloadsize(&type, &value, &size), 0);
    EXPECT_EQ(value, 64);
    EXPECT_EQ(type, 7);
    const std::uint64_t payload = 4096;
    nq::test::Bytes bytes(8);
    std::memcpy(bytes.data(), &payload, 8);
    camera.SetMemory(0xE620, bytes);
    EXPECT_EQ(stream->DoGetPayloadsize(&type, &value, &size), 0);
    EXPECT_EQ(value, 4096);
    EXPECT_THAT(camera.Accesses(), ElementsAre(kReadSettings, kReadSettings));
}

TEST_F(GevDataStream, OpensOnACameraWithTheCapabilityBit)
{
    EXPECT_EQ(stream->Open(), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read 0x092C"));
}

TEST_F(GevDataStream, AStreamOnACameraWithoutTheCapabilityBitFailsToOpen)
{
    camera.SetRegister(0x092C, 0xFBFFFFFF);
    EXPECT_EQ(stream->Open(), -1014);
}

TEST_F(GevDataStream, AStreamOnACameraThatRefusesTheCapabilityRegisterFailsToOpen)
{
    camera.SetStatus(0x092C, 0x8003);
    EXPECT_EQ(stream->Open(), -1001);
}

TEST_F(GevDataStream, AStreamWithoutADeviceFailsEverythingThatNeedsOne)
{
    NQGevDataStream orphan(nullptr, 0, nullptr);
    EXPECT_EQ(orphan.DoOpen(), -1001);
    EXPECT_EQ(orphan.DoStartAcquisition(0, 0), -1001);
    EXPECT_TRUE(trace.Has(2, "DoStartAcquisition GC_ERR_ERROR"));
    EXPECT_EQ(orphan.DoStopAcquisition(0), -1001);
    EXPECT_TRUE(trace.Has(2, "DoStopAcquisition GC_ERR_ERROR"));
    std::int64_t payload = 1;
    unsigned long size = sizeof payload;
    EXPECT_EQ(orphan.DoGetPayloadsize(nullptr, &payload, &size), 0);
    EXPECT_EQ(payload, 0);
}

// ---- start

// Deliberate(StreamsBeforeRegistration)
TEST_F(GevDataStream, AStartGoesThroughTheCameraInOrder)
{
    int enabledBeforeRegistration = 0;
    fake.OnCall("ibv_reg_mr", [&] { enabledBeforeRegistration = static_cast<int>(camera.Count(kStreamOn)); });
    Announce(2);
    ASSERT_EQ(stream->DoStartAcquisition(1, 77), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre(kStreamOff, kReadSettings, kStreamOn));
    EXPECT_EQ(enabledBeforeRegistration, 1);
    EXPECT_THAT(fake.regionLengths, ElementsAre(240, 60, 240, 60)) << "the count is read anew, the sizes are ignored";
    EXPECT_EQ(fake.resolvedAddress.sin_addr.s_addr, htonl(0x7F000001));
    EXPECT_EQ(fake.resolvedAddress.sin_port, htons(4791));
    EXPECT_EQ(NQGevDataStreamAccess::Mtu(*stream), 9000U);
    EXPECT_THAT(trace.At(2), ElementsAre("DoStartAcquisition ENTER"));
    EXPECT_EQ(stream->DoStopAcquisition(0), 0);
}

TEST_F(GevDataStream, AStartWhileConnectedIsRefused)
{
    ASSERT_EQ(stream->DoStartAcquisition(0, 0), 0);
    EXPECT_EQ(stream->DoStartAcquisition(0, 0), -1004);
    EXPECT_TRUE(trace.Has(2, "DoStartAcquisition GC_ERR_RESOURCE_IN_USE"));
    EXPECT_EQ(stream->DoStopAcquisition(0), 0);
}

TEST_F(GevDataStream, AFailedConnectIsLoggedAndTheNextStartRemovesTheEndpoint)
{
    fake.connectAnswer = RDMA_CM_EVENT_REJECTED;
    EXPECT_EQ(stream->DoStartAcquisition(0, 0), -1001);
    EXPECT_TRUE(trace.Has(2, "DoStartAcquisition m_pRdma->ConnectR Failed   CamAddr: 127.0.0.1"));
    EXPECT_THAT(camera.Accesses(), ElementsAre(kStreamOff));
    EXPECT_FALSE(fake.LiveObjects().empty()) << "the endpoint stays";
    camera.Forget();
    fake.connectAnswer = RDMA_CM_EVENT_ESTABLISHED;
    EXPECT_EQ(stream->DoStartAcquisition(0, 0), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre(kStreamOff, kStreamOff, kReadSettings, kStreamOn));
    EXPECT_EQ(stream->DoStopAcquisition(0), 0);
}

TEST_F(GevDataStream, AFailedTransportStartDisablesTheStreamAndLeavesNothing)
{
    camera.SetMemory(0xE620, nq::test::Bytes(8, 0xFF));
    Announce(1);
    EXPECT_EQ(stream->DoStartAcquisition(0, 0), -1001);
    EXPECT_TRUE(trace.Has(2, "DoStartAcquisition Start RDMA Failed"));
    EXPECT_THAT(camera.Accesses(), ElementsAre(kStreamOff, kReadSettings, kStreamOn, kStreamOff));
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
    EXPECT_EQ(stream->DoStopAcquisition(0), -1001);
    EXPECT_TRUE(trace.Has(2, "DoStopAcquisition GC_ERR_ERROR RDMA not initialized"));
}

// ---- frames

TEST_F(GevDataStream, AFrameReachesABufferAndMovesTheCounters)
{
    Run(2);
    void* const buffer = Receive(41);
    EXPECT_EQ(buffer, buffers[0]);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID), 41U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, GenTL::BUFFER_INFO_TIMESTAMP), 1000041U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, GenTL::BUFFER_INFO_WIDTH), 16U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, GenTL::BUFFER_INFO_HEIGHT), 4U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, GenTL::BUFFER_INFO_PIXELFORMAT), 0x01080001U);
    EXPECT_EQ(BufferInfo<std::uint64_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), 64U);
    EXPECT_FALSE(BufferInfo<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_EQ(static_cast<const unsigned char*>(BufferInfo<void*>(buffer, GenTL::BUFFER_INFO_BASE))[63], 63);
    WaitForFramesReceived(1);
    EXPECT_EQ(Read64(0x8010C), 1U);
    EXPECT_EQ(Read64(0x80110), 0U);
    EXPECT_EQ(NQGevDataStreamAccess::NextFrameId(*stream), 42U);
    EXPECT_EQ(stream->StopAcquisition(0), 0);
}

TEST_F(GevDataStream, AnIncompleteFrameIsDeliveredAndAdvancesFramesReceived)
{
    Run(2);
    auto frame = GenDCFrame(1, 16, 4);
    frame.resize(230);
    fake.DeliverFrame(frame);
    EXPECT_TRUE(BufferInfo<bool>(NextBuffer(), GenTL::BUFFER_INFO_IS_INCOMPLETE));
    WaitForFramesReceived(1);
    EXPECT_EQ(Read64(0x8010C), 1U);
}

// Deliberate(FrameLossRunsBackwards)
TEST_F(GevDataStream, AForwardJumpOfFrameIdsCountsNothing)
{
    Run(4);
    Receive(1);
    Receive(100);
    WaitForFramesReceived(2);
    EXPECT_EQ(Read64(0x80110), 0U);
    EXPECT_EQ(NQGevDataStreamAccess::NextFrameId(*stream), 101U);
}

// Deliberate(FrameLossRunsBackwards)
TEST_F(GevDataStream, AFrameWithALowerIdLowersFrameLossAndLeavesTheNextFrameId)
{
    Run(4);
    Receive(10);
    Receive(8);
    WaitForFramesReceived(2);
    EXPECT_EQ(Read64(0x80110), 0xFFFFFFFFFFFFFFFDU);
    EXPECT_EQ(NQGevDataStreamAccess::NextFrameId(*stream), 11U);
    Receive(9);
    WaitForFramesReceived(3);
    EXPECT_EQ(Read64(0x80110), 0xFFFFFFFFFFFFFFFBU);
}

TEST_F(GevDataStream, AFrameOnAnEmptyInputListCountsOneUnderrun)
{
    Run(1);
    Receive(1);
    EXPECT_EQ(stream->QueueBuffer(buffers[0]), 0);
    EXPECT_EQ(stream->FlushQueue(4), 0);
    fake.DeliverFrame(GenDCFrame(2, 16, 4));
    WaitForFramesReceived(2);
    EXPECT_EQ(Read64(0x8042C), 1U);
    EXPECT_EQ(Read64(0x8010C), 1U);
}

TEST_F(GevDataStream, AQueuedBufferGivesItsFrameBlockBack)
{
    Run(1);
    for (std::uint64_t frame = 1; frame < 20; ++frame)
    {
        ASSERT_EQ(Receive(frame), buffers[0]);
        ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    }
    EXPECT_EQ(Read64(0x8010C), 19U);
}

TEST_F(GevDataStream, AFailedFetchCompletesTheTransfer)
{
    ASSERT_EQ(stream->Open(), 0);
    EXPECT_EQ(stream->AcquireImage(), -1001);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    fake.RaiseEvent(RDMA_CM_EVENT_DISCONNECTED);
    EXPECT_EQ(stream->StopAcquisition(0), 0);
}

TEST_F(GevDataStream, ABlockWhoseFrameFoundNoBufferFlowsAgainOnceTheBufferBoundToItIsQueued)
{
    Run(1);
    void* const buffer = Receive(1);
    ASSERT_EQ(stream->QueueBuffer(buffer), 0);
    ASSERT_EQ(stream->FlushQueue(GenTL::ACQ_QUEUE_ALL_DISCARD), 0);
    fake.WaitForSent(2);
    fake.DeliverFrame(GenDCFrame(2, 16, 4));
    WaitForFramesReceived(2);
    ASSERT_EQ(stream->QueueBuffer(buffer), 0);
    fake.WaitForSent(3);
    EXPECT_EQ(Receive(3), buffer);
}

// ---- stop and restart

// Deliberate(StopLineIsNoFailure)
TEST_F(GevDataStream, AStopDisablesTheStreamAndDisconnects)
{
    Run(1);
    camera.Forget();
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre(kStreamOff));
    EXPECT_TRUE(trace.Has(2, "DoStopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:"));
    EXPECT_THAT(fake.LiveObjects(), testing::UnorderedElementsAre("protection domain"));
}

TEST_F(GevDataStream, AfterAStopARequeueFindsTheEndpointTornDownAndQueueBufferGoesOnRegardless)
{
    Run(1);
    void* const buffer = Receive(1);
    EXPECT_EQ(stream->DoRequeueBuffer(nullptr), -1001);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(stream->DoRequeueBuffer(&fake), -1001);
    EXPECT_TRUE(trace.Has(8, "RequeueBufferByID GC_ERR_ERROR connection not established "));
    EXPECT_EQ(stream->QueueBuffer(buffer), 0);
    EXPECT_TRUE(BufferInfo<bool>(buffer, GenTL::BUFFER_INFO_IS_QUEUED));
}

TEST_F(GevDataStream, ARestartWithBuffersStillQueuedWorksWithoutRevokingThem)
{
    Run(3);
    Receive(1);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Receive(1), buffers[1]);
    EXPECT_EQ(Receive(2), buffers[2]);
    ASSERT_EQ(stream->QueueBuffer(buffers[0]), 0);
    EXPECT_EQ(Receive(3), buffers[0]);
}

TEST_F(GevDataStream, ABufferOfTheRunBeforeCarriesNoIdIntoTheNextRun)
{
    Run(2);
    void* const buffer = Receive(1);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    fake.WaitForSent(4);
    fake.ForgetCalls();
    ASSERT_EQ(stream->QueueBuffer(buffer), 0);
    EXPECT_EQ(Receive(1), buffers[1]);
    EXPECT_EQ(Receive(2), buffer);
    EXPECT_EQ(fake.Count("ibv_post_recv"), 0);
}

TEST_F(GevDataStream, TheAcquisitionThreadStartsOnceWithAValueAndIsToldToStop)
{
    NQGevDataStream orphan(nullptr, 0, nullptr);
    NQRMAXThreadAcquisition thread(&orphan);
    const long threads = LivingThreads();
    thread.StartAcquisition(5);
    thread.StartAcquisition(6);
    EXPECT_EQ(thread.*Get(nq::test::StoredValue{}), 5U);
    EXPECT_EQ(LivingThreads(), threads + 1);
    thread.Stop();
    thread.WaitForEnd();
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_TRUE(thread.IsRunning()) << "until it is waited for";
    thread.Wait();
    thread.StartAcquisition(7);
    EXPECT_EQ(thread.*Get(nq::test::StoredValue{}), 7U);
    EXPECT_EQ(LivingThreads(), threads + 1) << "the flag of the stop was cleared";
}

TEST_F(GevDataStream, ThePlainValueSurvivesARestartAndAllCountersStartAnew)
{
    Run(4);
    EXPECT_EQ(Write(0x80434, std::uint32_t{77}), 0);
    Receive(10);
    Receive(8);
    WaitForFramesReceived(2);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(Read64(0x80114), 2U) << "a stop leaves the counters";
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Read64(0x80110), 0U);
    EXPECT_EQ(Read64(0x80114), 0U);
    EXPECT_EQ(Read64(0x8010C), 0U);
    EXPECT_EQ(NQGevDataStreamAccess::NextFrameId(*stream), 0U);
    EXPECT_EQ(Read32(0x80434), 77U);
}

/// A stream whose start goes on for a while after its thread runs, as on a busy machine.
class SlowStart : public NQGevDataStream
{
  public:
    using NQGevDataStream::NQGevDataStream;

    /// Of a stopped stream, whose thread calls what this class overrides.
    ~SlowStart() override { NQGevDataStreamAccess::WaitForThread(*this); }

    int DoStartAcquisition(unsigned int biggestSize, unsigned int count) override
    {
        const int result = NQGevDataStream::DoStartAcquisition(biggestSize, count);
        meanwhile();
        return result;
    }

    std::function<void()> meanwhile = [] {};
};

TEST_F(GevDataStream, AFrameThatComesAtOnceIsDeliveredOnceCountingHasStarted)
{
    auto slow = std::make_unique<SlowStart>(&device, 2, nullptr);
    slow->meanwhile = [&] {
        fake.DeliverFrame(GenDCFrame(1, 16, 4));
        fake.DeliverFrame(GenDCFrame(2, 16, 4));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    };
    stream = std::move(slow);
    Run(2, 1);
    NextBuffer();
    WaitForFramesReceived(2);
    EXPECT_EQ(Read64(0x8010C), 1U);
    EXPECT_EQ(stream->StopAcquisition(1), -1004) << "the frame past the limit has stopped it";
}

TEST_F(GevDataStream, TheLimitStopsTheStreamOnTheAcquisitionThreadItself)
{
    Run(3, 2);
    Receive(1);
    Receive(2);
    camera.Forget();
    fake.DeliverFrame(GenDCFrame(3, 16, 4));
    ASSERT_TRUE(camera.WaitFor(kStreamOff));
    WaitForFramesReceived(3);
    EXPECT_EQ(Read64(0x8010C), 2U);
    EXPECT_EQ(stream->StopAcquisition(0), -1004) << "it has stopped already";
    ASSERT_EQ(stream->StartAcquisition(0, 2), 0);
    EXPECT_EQ(Receive(1), buffers[2]);
}

TEST_F(GevDataStream, StopAndStartInAHurryNeverMeetTheThreadOfTheRunBefore)
{
    Run(2);
    const long threads = LivingThreads();
    for (int round = 0; round < 3; ++round)
    {
        ASSERT_EQ(stream->StopAcquisition(1), 0);
        ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
        EXPECT_EQ(LivingThreads(), threads) << "the old thread has ended before the new one runs";
    }
}

TEST_F(GevDataStream, TheDestructorStopsARunningStreamAndWaitsForItsThread)
{
    const long threads = LivingThreads();
    Run(2);
    Receive(1);
    stream.reset();
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(GevDataStream, AStreamThatWasOpenedWhileItRanNeitherStartsNorStopsAndStillEnds)
{
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    ASSERT_EQ(stream->Open(), 0); // from here on it does not count as started
    EXPECT_EQ(stream->StopAcquisition(0), -1004);
    EXPECT_EQ(stream->StartAcquisition(0, kInfinite), -1004);
    stream.reset();
    EXPECT_THAT(fake.LiveObjects(), testing::IsEmpty());
}

TEST_F(GevDataStream, ACloseOnAnotherThreadEndsAStartThatWaitsForTheCamera)
{
    ASSERT_EQ(stream->Open(), 0);
    Announce(1);
    fake.answers = 2;
    int started = 0;
    std::thread start([&] { started = stream->StartAcquisition(0, kInfinite); });
    fake.WaitForCalls("rdma_connect", 1);
    EXPECT_EQ(stream->Close(), 0);
    EXPECT_TRUE(trace.Has(2, "StartAcquisition DoStartAcquisition Failed! ret:-1001")) << "the start left first";
    start.join();
    EXPECT_EQ(started, -1001);
    EXPECT_TRUE(trace.Has(2, "DoStartAcquisition m_pRdma->ConnectR Failed   CamAddr: 127.0.0.1"));

    fake.answers = 3;
    ASSERT_EQ(stream->Open(), 0);
    EXPECT_EQ(stream->StartAcquisition(0, kInfinite), 0) << "the stream works as before";
    EXPECT_EQ(stream->Close(), 0);
}

TEST_F(GevDataStream, ACloseEndsAStartThatWaitsForTheCameraAndOneThatWaitsForThatStart)
{
    for (int round = 1; round <= 5; ++round)
    {
        ASSERT_EQ(stream->Open(), 0);
        fake.answers = 2;
        const auto start = [&] { EXPECT_EQ(stream->StartAcquisition(0, kInfinite), -1001); };
        CallingThread first(start);
        fake.WaitForCalls("rdma_connect", round);
        CallingThread second(start);
        second.AwaitAsleep();
        EXPECT_EQ(stream->Close(), 0);
        const auto lines = trace.At(2);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "StartAcquisition DoStartAcquisition Failed! ret:-1001"),
                  2 * round)
            << "both left first";
        stream->DoClose(); // of a start that did not
    }
}

TEST_F(GevDataStream, TheDestructorWaitsForAStartOnAnotherThread)
{
    ASSERT_EQ(stream->Open(), 0);
    fake.answers = 2;
    int started = 0;
    std::thread start([&] { started = stream->StartAcquisition(0, kInfinite); });
    fake.WaitForCalls("rdma_connect", 1);
    stream.reset();
    EXPECT_TRUE(trace.Has(2, "StartAcquisition DoStartAcquisition Failed! ret:-1001")) << "the start left first";
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
    start.join();
    EXPECT_EQ(started, -1001);
}

TEST_F(GevDataStream, ACloseBeforeTheConnectionIsMadeKeepsItFromBeingMade)
{
    ASSERT_EQ(stream->Open(), 0);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    std::thread close;
    fake.OnCall("ibv_dealloc_pd", [&] {
        // The endpoint of the run before goes, the new one is not made yet. The start goes on once the close has begun.
        close = std::thread([this] { EXPECT_EQ(stream->Close(), 0); });
        while (!NQGevDataStreamAccess::Closing(*stream))
        {
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(stream->StartAcquisition(0, kInfinite), -1001);
    close.join();
    EXPECT_EQ(fake.Count("rdma_connect"), 1) << "that of the first start";
}

TEST_F(GevDataStream, AfterADisconnectByTheCameraTheLoopRunsOnUntilTheStop)
{
    Run(1);
    fake.RaiseEvent(RDMA_CM_EVENT_DISCONNECTED);
    while (!trace.Has(8, "On_cm_event RDMA_CM_EVENT_DISCONNECTED "))
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(Read64(0x80114), 0U);
    EXPECT_EQ(stream->StartAcquisition(0, kInfinite), -1004) << "the consumer is told nothing, the stream runs";
    EXPECT_EQ(stream->StopAcquisition(0), 0);
    EXPECT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Receive(1), buffers[0]);
}

} // namespace
