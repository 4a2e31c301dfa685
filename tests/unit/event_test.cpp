// SPDX-License-Identifier: Apache-2.0
// What all events share: signalling, waiting, killing, flushing, and the info about an event.
#include "gentl/nq_gentl_event.h"

#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_event_new_buffer.h"
#include "support/asleep.h"
#include "support/private_member.h"
#include "support/trace_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <set>
#include <thread>
#include <vector>

using nq::test::CallingThread;
using nq::test::TraceCapture;

namespace
{

constexpr unsigned long kInfinite = 0xFFFFFFFFFFFFFFFF;
constexpr unsigned long kQueueLevel = 0x10000000;

/// Entries are plain ints of the test; what becomes of them is recorded.
class IntEvent : public GigERDMA::NQGenTLEvent
{
  public:
    explicit IntEvent(unsigned long mostPendingBytes = 1UL << 30) : NQGenTLEvent(77, mostPendingBytes)
    {
        SetEventSizeMax(sizeof(int));
        SetEventInfoDataSizeMax(3);
    }

    void DoEventGetData(void* entry, void* pBuffer, unsigned long*) override
    {
        delivered.push_back(*static_cast<int*>(entry));
        if (pBuffer != nullptr)
        {
            std::memcpy(pBuffer, entry, sizeof(int));
        }
        if (onDeliver)
        {
            onDeliver();
        }
    }
    int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                           unsigned long* piOutSize) override
    {
        EXPECT_NE(pInBuffer, nullptr);
        EXPECT_NE(piType, nullptr);
        EXPECT_NE(piOutSize, nullptr);
        infoOut = pOutBuffer;
        return iInfoCmd;
    }
    void DoFlushEntry(void* entry) override { flushed.push_back(*static_cast<int*>(entry)); }

    std::vector<int> delivered;
    std::vector<int> flushed;
    void* infoOut = nullptr;
    std::function<void()> onDeliver;
};

class Event : public testing::Test
{
  protected:
    int GetData(unsigned long timeout)
    {
        unsigned long size = sizeof value;
        return event.GetData(&value, &size, timeout);
    }

    int entries[4] = {10, 20, 30, 40};
    int value = -1;
    IntEvent event;
};

} // namespace

TEST_F(Event, EntriesArriveInTheOrderOfTheirSignals)
{
    for (int& entry : entries)
    {
        event.Signal(&entry);
    }
    for (const int expected : {10, 20, 30, 40})
    {
        EXPECT_EQ(GetData(kInfinite), 0);
        EXPECT_EQ(value, expected);
    }
    EXPECT_EQ(GetData(0), -1011);
}

TEST_F(Event, TheNewestEntryIsDroppedWhenThePendingOnesFillTheirMemory)
{
    IntEvent limited(3 * sizeof(int) + 3);
    for (int index = 0; index < 3; ++index)
    {
        EXPECT_TRUE(limited.Signal(&entries[index]));
    }
    EXPECT_FALSE(limited.Signal(&entries[3]));
    EXPECT_EQ(limited.GetNumInQueue(), 3U);
    EXPECT_EQ(limited.flushed, std::vector<int>{40}) << "what is dropped is left in a clean state";
    unsigned long size = sizeof value;
    EXPECT_EQ(limited.GetData(&value, &size, 0), 0);
    EXPECT_TRUE(limited.Signal(&entries[0])) << "a fetch makes room";
    while (limited.GetNumInQueue() != 0)
    {
        EXPECT_EQ(limited.GetData(&value, &size, 0), 0);
    }
    EXPECT_EQ(limited.delivered, (std::vector<int>{10, 20, 30, 10}));
}

TEST_F(Event, ATimeoutOfZeroOnAnEmptyQueueIsATimeout)
{
    EXPECT_EQ(GetData(0), -1011);
    EXPECT_EQ(value, -1);
}

TEST_F(Event, ATimeoutOfZeroDeliversTheOldestEntry)
{
    event.Signal(&entries[0]);
    event.Signal(&entries[1]);
    EXPECT_EQ(GetData(0), 0);
    EXPECT_EQ(value, 10);
}

TEST_F(Event, ATimeoutWhoseLowHalfIsZeroDoesNotWait)
{
    EXPECT_EQ(GetData(0x500000000), -1011);
}

TEST_F(Event, ALimitedWaitEndsWithATimeout)
{
    EXPECT_EQ(GetData(20), -1011);
}

TEST_F(Event, TimeoutsWithBit31SetWaitWithoutLimit)
{
    for (const unsigned long timeout : {0x80000000UL, 0xFFFFFFFFUL, kInfinite})
    {
        CallingThread consumer([&] { EXPECT_EQ(GetData(timeout), 0); });
        consumer.AwaitAsleep();
        event.Signal(&entries[2]);
        consumer.Join();
        EXPECT_EQ(value, 30);
    }
}

TEST_F(Event, ASmallBufferIsRefusedBeforeAnyWaitWithTheNeededSize)
{
    unsigned long size = 3;
    EXPECT_EQ(event.GetData(&value, &size, kInfinite), -1016);
    EXPECT_EQ(size, 4U);
    event.Signal(&entries[0]);
    size = 0;
    EXPECT_EQ(event.GetData(&value, &size, kInfinite), -1016);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(event.GetNumInQueue(), 1U);
}

TEST_F(Event, ANullSizeIsRefused)
{
    EXPECT_EQ(event.GetData(&value, nullptr, 0), -1009);
    EXPECT_EQ(event.GetData(nullptr, nullptr, 0), -1009);
}

// Deliberate(NullBufferConsumes): there is no size query on GetData.
TEST_F(Event, ANullBufferConsumesTheEntry)
{
    event.Signal(&entries[0]);
    unsigned long size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(event.delivered, std::vector<int>{10});
    EXPECT_EQ(event.GetData(nullptr, &size, 0), -1011);
}

TEST_F(Event, AKillWithoutAWaiterStopsEveryGetDataUntilFlush)
{
    event.Signal(&entries[0]);
    EXPECT_EQ(event.Kill(), 0);
    EXPECT_EQ(GetData(kInfinite), -1012);
    EXPECT_EQ(GetData(0), -1012);
    EXPECT_EQ(event.GetNumInQueue(), 1U);
    EXPECT_EQ(event.Flush(), 0);
    EXPECT_EQ(event.flushed, std::vector<int>{10});
    EXPECT_EQ(GetData(0), -1011);
    event.Signal(&entries[1]);
    EXPECT_EQ(GetData(0), 0);
    EXPECT_EQ(value, 20);
}

TEST_F(Event, AKillThatWakesAWaiterIsUsedUp)
{
    int result = 1;
    CallingThread consumer([&] { result = GetData(kInfinite); });
    consumer.AwaitAsleep();
    event.Kill();
    consumer.Join();
    EXPECT_EQ(result, -1012);
    EXPECT_EQ(GetData(0), -1011);
}

TEST_F(Event, FlushGivesEveryEntryBackInOrder)
{
    for (int& entry : entries)
    {
        event.Signal(&entry);
    }
    EXPECT_EQ(event.Flush(), 0);
    EXPECT_EQ(event.flushed, (std::vector<int>{10, 20, 30, 40}));
    EXPECT_EQ(event.GetNumInQueue(), 0U);
    EXPECT_EQ(GetData(0), -1011);
}

TEST_F(Event, FlushOfAnEmptyEventDoesNothing)
{
    EXPECT_EQ(event.Flush(), 0);
    EXPECT_TRUE(event.flushed.empty());
}

TEST_F(Event, DestructionDoesNotFlush)
{
    struct Watched : IntEvent
    {
        explicit Watched(bool& wasFlushed) : flag(wasFlushed) {}
        void DoFlushEntry(void*) override { flag = true; }
        bool& flag;
    };
    bool flushed = false;
    auto watched = std::make_unique<Watched>(flushed);
    watched->Signal(&entries[0]);
    watched.reset();
    EXPECT_FALSE(flushed);
}

TEST_F(Event, AWithdrawnEntryIsNotDelivered)
{
    event.Signal(&entries[0]);
    event.Signal(&entries[1]);
    event.Signal(&entries[0]);
    event.Withdraw(&entries[0]);
    EXPECT_EQ(event.GetNumInQueue(), 1U);
    EXPECT_EQ(GetData(0), 0);
    EXPECT_EQ(value, 20);
    event.Signal(&entries[2]);
    event.Withdraw(&entries[2]);
    EXPECT_EQ(GetData(0), -1011);
}

TEST_F(Event, AThreadThatFindsTheLastEntryTakenReturnsWithNothingDelivered)
{
    event.Signal(&entries[0]);
    int second = -1;
    int result = -1;
    std::optional<CallingThread> other;
    event.onDeliver = [&] {
        // The entry is out of the queue but bit 0 is still set, as for a second consumer at this moment.
        other.emplace([&] {
            unsigned long size = sizeof second;
            result = event.GetData(&second, &size, 0);
        });
        other->AwaitAsleep();
    };
    EXPECT_EQ(GetData(0), 0);
    other->Join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(second, -1);
    EXPECT_EQ(event.delivered, std::vector<int>{10});
}

TEST_F(Event, AWithdrawalWaitsForTheDeliveryUnderWay)
{
    event.Signal(&entries[0]);
    std::atomic<bool> withdrawn = false;
    std::optional<CallingThread> other;
    event.onDeliver = [&] {
        other.emplace([&] {
            event.Withdraw(&entries[0]);
            withdrawn = true;
        });
        other->AwaitAsleep();
        EXPECT_FALSE(withdrawn) << "the entry may be deleted from then on";
    };
    EXPECT_EQ(GetData(0), 0);
    other->Join();
    EXPECT_TRUE(withdrawn);
}

TEST_F(Event, TheQueueIsTraced)
{
    TraceCapture trace;
    event.Signal(&entries[0]);
    event.Signal(&entries[1]);
    event.Kill();
    EXPECT_EQ(trace.At(kQueueLevel),
              (std::vector<std::string>{"Signal Entry! Queue:0", "Signal Entry! Queue:1", "Kill Entry! Queue:2"}));
}

namespace nq::test
{
struct SignalOf
{
    using Type = GigERDMA::NQEventHandler GigERDMA::NQGenTLEvent::*;
    friend Type Get(SignalOf);
};
template struct Reveal<SignalOf, &GigERDMA::NQGenTLEvent::m_signal>;
} // namespace nq::test

TEST_F(Event, ABitThatIsNeitherDataNorKillIsAnError)
{
    GigERDMA::NQEventHandler& signal = event.*Get(nq::test::SignalOf{});
    signal.SetEvent(3);
    signal.ResetEvent(1);
    TraceCapture trace;
    EXPECT_EQ(GetData(0), -1001);
    EXPECT_EQ(trace.At(kQueueLevel), (std::vector<std::string>{"GetData GC_ERR_ERROR Queue:0"}));
    EXPECT_EQ(value, -1);
}

struct EventInfoRow
{
    int command;
    int type;
    unsigned long size;
    unsigned long value;
};

class EventInfoTable : public testing::TestWithParam<EventInfoRow>
{
};

TEST_P(EventInfoTable, Answers)
{
    IntEvent event;
    int entry = 0;
    event.Signal(&entry);
    event.Signal(&entry);
    unsigned long value = ~0UL;
    unsigned long size = sizeof value;
    int type = 0;
    EXPECT_EQ(event.GetInfo(GetParam().command, &type, &value, &size), 0);
    EXPECT_EQ(type, GetParam().type);
    EXPECT_EQ(size, GetParam().size);
    EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Event, EventInfoTable,
                         testing::Values(EventInfoRow{0, 5, 4, 77}, EventInfoRow{1, 12, 8, 2},
                                         EventInfoRow{3, 12, 8, 4}, EventInfoRow{4, 12, 8, 3}),
                         [](const auto& row) { return "Command" + std::to_string(row.param.command); });

TEST_F(Event, InfoCommand2IsRefusedAndTheBufferLeftCleared)
{
    for (const int command : {2, 5, -1, 1000})
    {
        unsigned char buffer[4] = {1, 2, 3, 4};
        unsigned long size = sizeof buffer;
        int type = 9;
        EXPECT_EQ(event.GetInfo(command, &type, buffer, &size), -1003);
        EXPECT_EQ(std::vector<unsigned char>(buffer, buffer + 4), std::vector<unsigned char>(4));
        EXPECT_EQ(type, 9);
    }
}

TEST_F(Event, InfoNeedsTypeAndSize)
{
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(event.GetInfo(0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(event.GetInfo(0, &type, nullptr, nullptr), -1009);
    EXPECT_EQ(event.GetInfo(0, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 4U);
}

TEST_F(Event, DataInfoWithAnInSizeOfZeroIsRefusedWhateverElse)
{
    char in[4] = {};
    char out[4] = {1, 1, 1, 1};
    int type = 0;
    unsigned long size = sizeof out;
    EXPECT_EQ(event.GetDataInfo(in, 0, 0, &type, out, &size), -1009);
    EXPECT_EQ(event.GetDataInfo(nullptr, 0, 0, &type, out, &size), -1009);
    EXPECT_EQ(out[0], 1);
}

TEST_F(Event, DataInfoChecksItsPointersInOrder)
{
    char in[4] = {};
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(event.GetDataInfo(nullptr, 4, 0, &type, nullptr, nullptr), -1009);
    EXPECT_EQ(event.GetDataInfo(nullptr, 4, 0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(event.GetDataInfo(nullptr, 4, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(event.GetDataInfo(in, 1, 42, &type, nullptr, &size), 42);
}

TEST_F(Event, DataInfoClearsTheOutBuffer)
{
    char in[4] = {};
    char out[3] = {1, 2, 3};
    int type = 0;
    unsigned long size = 2;
    EXPECT_EQ(event.GetDataInfo(in, 4, 0, &type, out, &size), 0);
    EXPECT_EQ(std::string(out, 3), std::string("\0\0\3", 3));
    EXPECT_EQ(event.infoOut, out);
}

// A bit that is cleared while an entry comes in would leave the consumer asleep beside it.
TEST_F(Event, NoEntryIsLostBetweenProducersAndAConsumerThatWaitsWithoutLimit)
{
    constexpr int kProducers = 3;
    constexpr int kEach = 3000;
    std::vector<std::thread> threads;
    for (int i = 0; i < kProducers; ++i)
    {
        threads.emplace_back([this, i] {
            for (int n = 0; n < kEach; ++n)
            {
                event.Signal(&entries[i]);
            }
        });
    }
    for (int n = 0; n < kProducers * kEach; ++n)
    {
        value = -1;
        ASSERT_EQ(GetData(kInfinite), 0);
        ASSERT_NE(value, -1) << "success with nothing delivered";
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(event.delivered.size(), std::size_t{kProducers * kEach});
    EXPECT_EQ(GetData(0), -1011);
}

TEST_F(Event, NoEntryIsStrandedByAFlushThatRunsBesideAProducer)
{
    for (int round = 0; round < 2000; ++round)
    {
        std::thread producer([&] { event.Signal(&entries[0]); });
        event.Flush();
        producer.join();
        const bool pending = event.GetNumInQueue() > 0;
        EXPECT_EQ(GetData(0), pending ? 0 : -1011);
        EXPECT_EQ(event.delivered.size(), pending ? 1U : 0U);
        event.delivered.clear();
    }
}
