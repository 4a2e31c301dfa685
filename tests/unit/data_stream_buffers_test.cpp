// SPDX-License-Identifier: Apache-2.0
// Announcing, revoking, queueing and flushing the buffers of a data stream.
#include "gev/nq_gev_controller.h"
#include "support/private_member.h"
#include "support/stream_fixture.h"
#include "support/trace_capture.h"

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

using nq::test::TraceCapture;

namespace
{

class DataStreamBuffers : public nq::test::StreamFixture
{
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(DataStreamBuffers, AnnouncedMemoryIsTheBase)
{
    Announce(2);
    EXPECT_EQ(BufferNumber(handles[0], 0), reinterpret_cast<unsigned long>(memory[0]));
    EXPECT_EQ(BufferNumber(handles[1], 1), 8U);
    EXPECT_EQ(BufferNumber(handles[1], 2), reinterpret_cast<unsigned long>(&user[1]));
    EXPECT_EQ(Number(3), 2U);
    EXPECT_EQ(Number(4), 0U);
}

TEST_F(DataStreamBuffers, AnnounceNeedsMemoryAndAPlaceForTheHandle)
{
    TraceCapture trace;
    EXPECT_EQ(stream.AnnounceBuffer(nullptr, 8, nullptr, &handles[0]), -1009);
    EXPECT_EQ(stream.AnnounceBuffer(memory[0], 8, nullptr, nullptr), -1009);
    EXPECT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, nullptr), -1009);
    EXPECT_EQ(trace.At(2), (Lines{"AnnounceBuffer GC_ERR_INVALID_PARAMETER", "AnnounceBuffer GC_ERR_INVALID_PARAMETER",
                                  "AllocAndAnnounceBuffer GC_ERR_INVALID_PARAMETER"}));
    EXPECT_EQ(Number(3), 0U);
}

TEST_F(DataStreamBuffers, TheSameMemoryIsNotAnnouncedTwice)
{
    Announce(1);
    TraceCapture trace;
    EXPECT_EQ(stream.AnnounceBuffer(memory[0], 4, nullptr, &handles[1]), -1004);
    EXPECT_EQ(trace.At(2), Lines{"AnnounceBuffer GC_ERR_RESOURCE_IN_USE"});
    EXPECT_EQ(handles[1], nullptr);
    EXPECT_EQ(Number(3), 1U);
}

TEST_F(DataStreamBuffers, AnAllocatedBufferHasNoMemoryUntilAFrameComes)
{
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(1UL << 60, &user[0], &handles[0]), 0);
    EXPECT_EQ(BufferNumber(handles[0], 0), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 1), 1UL << 60);
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[1]), 0) << "two without memory are not the same";
    EXPECT_EQ(Number(3), 2U);
}

TEST_F(DataStreamBuffers, NothingIsRegisteredAtTheControllerByTheStreamItself)
{
    Announce(1);
    unsigned int count = 0;
    EXPECT_EQ(g_Controller.GetNumPortURLs(handles[0], &count), -1006);
}

TEST_F(DataStreamBuffers, TheHandleWorksInTheControllersList)
{
    Announce(1);
    g_Controller.RegisterModule(handles[0]);
    unsigned int count = 0;
    EXPECT_EQ(g_Controller.GetNumPortURLs(handles[0], &count), -1003);
    EXPECT_EQ(g_Controller.GetDataStreamModule(handles[0]), nullptr);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    EXPECT_EQ(g_Controller.GetNumPortURLs(handles[0], &count), -1006) << "gone before the buffer is";
}

TEST_F(DataStreamBuffers, AStreamThatGoesTakesItsBuffersOutOfTheControllersList)
{
    auto going = std::make_unique<nq::test::FakeDataStream>();
    void* handle = nullptr;
    ASSERT_EQ(going->AnnounceBuffer(memory[0], 8, nullptr, &handle), 0);
    g_Controller.RegisterModule(handle);
    going.reset();
    unsigned int count = 0;
    EXPECT_EQ(g_Controller.GetNumPortURLs(handle, &count), -1006);
}

TEST_F(DataStreamBuffers, BufferIdsFollowTheOrderOfAnnouncing)
{
    Announce(2);
    void* handle = nullptr;
    EXPECT_EQ(stream.GetBufferID(0, &handle), 0);
    EXPECT_EQ(handle, handles[0]);
    EXPECT_EQ(stream.GetBufferID(1, &handle), 0);
    EXPECT_EQ(handle, handles[1]);
    TraceCapture trace;
    EXPECT_EQ(stream.GetBufferID(2, &handle), -1017);
    EXPECT_EQ(stream.GetBufferID(0, nullptr), -1009);
    EXPECT_EQ(trace.At(2), (Lines{"GetBufferID GC_ERR_INVALID_INDEX", "GetBufferID GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(DataStreamBuffers, BufferInfoOfAnUnknownHandleIsRefused)
{
    TraceCapture trace;
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(stream.GetBufferInfo(&user, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(stream.GetBufferInfo(nullptr, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(trace.At(2), (Lines{"GetBufferInfo GC_ERR_INVALID_HANDLE", "GetBufferInfo GC_ERR_INVALID_HANDLE"}));
}

TEST_F(DataStreamBuffers, RevokeHandsMemoryAndUserPointerBack)
{
    Announce(3);
    void* base = nullptr;
    void* pointer = nullptr;
    EXPECT_EQ(stream.RevokeBuffer(handles[1], &base, &pointer), 0);
    EXPECT_EQ(base, memory[1]);
    EXPECT_EQ(pointer, &user[1]);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    void* first = nullptr;
    EXPECT_EQ(stream.GetBufferID(0, &first), 0);
    EXPECT_EQ(first, handles[2]);
    EXPECT_EQ(stream.AnnounceBuffer(memory[1], 8, nullptr, &first), 0) << "the memory can be announced again";
}

TEST_F(DataStreamBuffers, RevokeOfABufferWithoutMemoryHandsTheAddressInTheBlockBackOrNull)
{
    void* base = memory;
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), 0);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], &base, nullptr), 0);
    EXPECT_EQ(base, nullptr);

    ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), 0);
    Queue(1);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], &base, nullptr), 0);
    EXPECT_EQ(base, frame);
}

// A large block takes the system milliseconds to take back.
TEST_F(DataStreamBuffers, AFrameBlockGoesWhileNoLockKeepsOtherThreadsWaiting)
{
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    int gone = 0;
    std::vector<std::thread> others;
    const auto goes = [&](const char*) {
        ++gone;
        const auto done = std::make_shared<std::promise<void>>();
        std::thread other([this, done] {
            stream.FlushQueue(GenTL::ACQ_QUEUE_OUTPUT_DISCARD); // takes the lock of a delivery
            stream.QueueBuffer(nullptr);                        // and that of a return
            done->set_value();
        });
        EXPECT_EQ(done->get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
        others.push_back(std::move(other));
    };
    for (const bool address : {false, true})
    {
        ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handles[0]), 0);
        ASSERT_EQ(stream.QueueBuffer(handles[0]), 0);
        stream.share = std::shared_ptr<const char>(blocks, goes);
        Frame(0, 1);
        ASSERT_EQ(Take(), handles[0]);
        void* handedOut = nullptr;
        EXPECT_EQ(stream.RevokeBuffer(handles[0], address ? &handedOut : nullptr, nullptr), 0);
        EXPECT_EQ(gone, 1) << "kept for whoever got the address";
    }
    EXPECT_EQ(stream.StopAcquisition(1), 0);
    EXPECT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(gone, 2);
    for (std::thread& other : others)
    {
        other.join();
    }
}

TEST_F(DataStreamBuffers, RevokeIsRefusedForUnknownAndForQueuedBuffers)
{
    Announce(1);
    Queue(1);
    TraceCapture trace;
    EXPECT_EQ(stream.RevokeBuffer(&user, nullptr, nullptr), -1006);
    EXPECT_EQ(stream.RevokeBuffer(nullptr, nullptr, nullptr), -1006);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), -1022);
    EXPECT_EQ(trace.At(2), (Lines{"RevokeBuffer GC_ERR_INVALID_HANDLE", "RevokeBuffer GC_ERR_INVALID_HANDLE",
                                  "RevokeBuffer GC_ERR_BUSY"}));
    EXPECT_EQ(Number(3), 1U);
}

namespace nq::test
{
struct ListsOf
{
    using Type = GigERDMA::NQGenTLBufferQueue GigERDMA::NQGenTLDataStream::*;
    friend Type Get(ListsOf);
};
template struct Reveal<ListsOf, &GigERDMA::NQGenTLDataStream::m_buffers>;
} // namespace nq::test

TEST_F(DataStreamBuffers, ABufferThatLeavesTheListDuringItsRevocationIsAnError)
{
    GigERDMA::NQGenTLBufferQueue& lists = stream.*Get(nq::test::ListsOf{});
    std::atomic<bool> done = false;
    std::thread taker([&] {
        while (!done)
        {
            if (auto* const buffer = lists.FindByIndex(GigERDMA::NQ_BUFFER_TYPE_ANNOUNCED, 0, true))
            {
                lists.Add(GigERDMA::NQ_BUFFER_TYPE_ANNOUNCED, buffer);
            }
        }
    });
    int result = 0;
    void* handle = nullptr;
    while (result != -1001)
    {
        if (result == 0)
        {
            ASSERT_EQ(stream.AllocAndAnnounceBuffer(8, nullptr, &handle), 0);
        }
        TraceCapture trace;
        void* data = &stream;
        result = stream.RevokeBuffer(handle, &data, nullptr);
        EXPECT_EQ(trace.Has(2, "RevokeBuffer GC_ERR_ERROR"), result == -1001);
        EXPECT_EQ(data, result == 0 ? nullptr : &stream);
    }
    done = true;
    taker.join();
    EXPECT_EQ(Number(3), 1U) << "it is still there";
}

TEST_F(DataStreamBuffers, ARevokedBufferThatAwaitsDeliveryIsNotDelivered)
{
    Announce(2);
    Queue(2);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1);
    Frame(1, 2);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    EXPECT_EQ(Number(5), 1U);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(Take(), nullptr);
}

TEST_F(DataStreamBuffers, RevokeWaitsForAFrameThatIsBeingDelivered)
{
    constexpr std::size_t kSize = 8 << 20;
    const auto source = std::make_unique<unsigned char[]>(kSize);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    for (int i = 0; i < 20; ++i)
    {
        auto target = std::make_unique<unsigned char[]>(kSize);
        ASSERT_EQ(stream.AnnounceBuffer(target.get(), kSize, nullptr, &handles[0]), 0);
        Queue(1);
        std::thread acquisition([&] { stream.EndOfTransfer(&blocks[0], kSize, 1, 1, 1, 1, 1, source.get(), 0); });
        while (stream.RevokeBuffer(handles[0], nullptr, nullptr) == -1022)
        {
            std::this_thread::yield();
        }
        target.reset();
        acquisition.join();
    }
}

TEST_F(DataStreamBuffers, QueueingPutsABufferOnTheInputListAndFlagsIt)
{
    Announce(2);
    EXPECT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Number(4), 1U);
    EXPECT_EQ(BufferNumber(handles[1], 5), 1U);
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    EXPECT_TRUE(stream.requeued.empty()) << "a fresh buffer has nothing to give back to the camera";
}

TEST_F(DataStreamBuffers, TheSecondQueueingOfABufferStillFlaggedIsRefused)
{
    Announce(1);
    Queue(1);
    TraceCapture trace;
    EXPECT_EQ(stream.QueueBuffer(handles[0]), -1004);
    EXPECT_EQ(stream.QueueBuffer(&user), -1006);
    EXPECT_EQ(trace.At(2), (Lines{"QueueBuffer GC_ERR_RESOURCE_IN_USE", "QueueBuffer GC_ERR_INVALID_HANDLE"}));
    EXPECT_EQ(Number(4), 1U);
}

TEST_F(DataStreamBuffers, QueueingABoundBufferGivesItsBlockBackAndIgnoresARefusal)
{
    Announce(1);
    Queue(1);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(2, 1);
    EXPECT_EQ(stream.QueueBuffer(handles[0]), -1004) << "still flagged until it is taken";
    EXPECT_TRUE(stream.requeued.empty());
    EXPECT_EQ(Take(), handles[0]);
    stream.requeueResult = -1001;
    EXPECT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(stream.requeued, std::vector<void*>{&blocks[2]});
    EXPECT_EQ(Number(4), 1U);
}

TEST_F(DataStreamBuffers, OnlyOneOfManyQueueingsAtOnceSucceeds)
{
    Announce(1);
    for (int round = 0; round < 200; ++round)
    {
        std::atomic<int> succeeded = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
        {
            threads.emplace_back([&] { succeeded += stream.QueueBuffer(handles[0]) == 0; });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(succeeded, 1);
        EXPECT_EQ(Number(4), 1U);
        EXPECT_EQ(stream.FlushQueue(4), 0);
    }
}

TEST_F(DataStreamBuffers, FlushInputToOutputDeliversTheInputListInOrder)
{
    Announce(3);
    Queue(3);
    RegisterNewBuffer();
    EXPECT_EQ(stream.FlushQueue(0), 0);
    EXPECT_EQ(Number(4), 0U);
    EXPECT_EQ(Number(5), 3U);
    EXPECT_EQ(BufferNumber(handles[0], 5), 1U) << "queued until it is taken";
    EXPECT_EQ(Take(), handles[0]);
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    EXPECT_EQ(Take(), handles[1]);
    EXPECT_EQ(Take(), handles[2]);
    EXPECT_EQ(Number(1), 0U) << "these are no delivered frames";
}

TEST_F(DataStreamBuffers, FlushInputToOutputWithoutTheEventEmptiesTheInputList)
{
    Announce(1);
    Queue(1);
    EXPECT_EQ(stream.FlushQueue(0), 0);
    EXPECT_EQ(Number(4), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 5), 1U);
}

TEST_F(DataStreamBuffers, FlushOutputDiscardMakesTheBuffersQueueableAgain)
{
    Announce(3);
    Queue(3);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1);
    Frame(1, 2);
    EXPECT_EQ(stream.FlushQueue(1), 0);
    EXPECT_EQ(Number(5), 0U);
    EXPECT_EQ(Number(4), 1U) << "the input list stays";
    EXPECT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(stream.QueueBuffer(handles[2]), -1004);
}

TEST_F(DataStreamBuffers, FlushWorksWithoutTheEvent)
{
    Announce(1);
    for (const int operation : {1, 4})
    {
        EXPECT_EQ(stream.FlushQueue(operation), 0);
    }
    EXPECT_EQ(Number(4), 0U);
}

// Deliberate(FlushDoesNotFlag): the queued flag is not set, so the buffer can come to the list twice.
TEST_F(DataStreamBuffers, FlushAllToInputAddsTheUnqueuedWithoutFlaggingThem)
{
    Announce(3);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    ASSERT_EQ(stream.QueueBuffer(handles[2]), 0);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1); // into buffer 1, which awaits delivery
    EXPECT_EQ(stream.FlushQueue(2), 0);
    EXPECT_EQ(Number(5), 0U);
    EXPECT_EQ(Number(4), 3U) << "2, then 0 and 1";
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    EXPECT_EQ(BufferNumber(handles[1], 5), 0U);
    EXPECT_TRUE(stream.requeued.empty());
    EXPECT_EQ(stream.QueueBuffer(handles[1]), 0);
    EXPECT_EQ(Number(4), 4U);
    EXPECT_EQ(stream.requeued, std::vector<void*>{&blocks[0]});
}

TEST_F(DataStreamBuffers, FlushUnqueuedToInputLeavesTheOutputAlone)
{
    Announce(3);
    ASSERT_EQ(stream.QueueBuffer(handles[1]), 0);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1); // into buffer 1
    EXPECT_EQ(stream.FlushQueue(3), 0);
    EXPECT_EQ(Number(5), 1U);
    EXPECT_EQ(Number(4), 2U) << "0 and 2; 1 is still flagged";
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    EXPECT_TRUE(stream.requeued.empty());
}

TEST_F(DataStreamBuffers, FlushAllDiscardEmptiesBothAndClearsNewData)
{
    Announce(2);
    Queue(2);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1);
    ASSERT_EQ(Take(), handles[0]);
    ASSERT_EQ(stream.QueueBuffer(handles[0]), 0); // queued with its new data flag still set
    ASSERT_EQ(BufferNumber(handles[0], 4), 1U);
    Frame(1, 2); // into buffer 1, which awaits delivery
    EXPECT_EQ(stream.FlushQueue(4), 0);
    EXPECT_EQ(Number(4), 0U);
    EXPECT_EQ(Number(5), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 4), 0U);
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    EXPECT_EQ(BufferNumber(handles[1], 4), 1U) << "only those of the input list lose it";
    EXPECT_EQ(BufferNumber(handles[1], 5), 0U);
}

TEST_F(DataStreamBuffers, OtherFlushOperationsAreRefused)
{
    TraceCapture trace;
    for (const int operation : {5, -1, 1000})
    {
        EXPECT_EQ(stream.FlushQueue(operation), -1003);
    }
    EXPECT_EQ(trace.At(2), (Lines{"FlushQueue GC_ERR_NOT_IMPLEMENTED :5", "FlushQueue GC_ERR_NOT_IMPLEMENTED :-1",
                                  "FlushQueue GC_ERR_NOT_IMPLEMENTED :1000"}));
}

TEST_F(DataStreamBuffers, TheEventMayBeUnregisteredAndQueuesFlushedWhileFramesArrive)
{
    Announce(4);
    Queue(4);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    std::atomic<bool> stop = false;
    std::thread acquisition([&] {
        for (unsigned char i = 0; !stop; ++i)
        {
            Frame(i % 4, i);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 100; ++i)
    {
        for (const int operation : {0, 1, 2, 3, 4})
        {
            EXPECT_EQ(stream.FlushQueue(operation), 0);
        }
        for (void* handle : handles)
        {
            stream.QueueBuffer(handle);
        }
        Number(5);
        EXPECT_EQ(stream.UnregisterEvent(1), 0);
        RegisterNewBuffer();
    }
    stop = true;
    acquisition.join();
}
