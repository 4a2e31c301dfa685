// SPDX-License-Identifier: Apache-2.0
// The standard's answers of an event that is killed, and of one that is unregistered.
#include "support/asleep.h"
#include "support/stream_fixture.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

using nq::test::CallingThread;

namespace
{

constexpr int kAbort = -1012;
constexpr int kTimeout = -1011;

class StandardEvent : public nq::test::StreamFixture
{
  protected:
    StandardEvent() : StreamFixture(kStandardAnswers) {}

    void SetUp() override
    {
        Announce(3);
        Queue(3);
        event = RegisterNewBuffer();
        ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    }

    int Wait(unsigned long timeout)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        return event->GetData(&data, &size, timeout);
    }

    std::uint64_t Fired()
    {
        std::uint64_t fired = 99;
        unsigned long size = sizeof fired;
        int type = 0;
        EXPECT_EQ(event->GetInfo(GenTL::EVENT_NUM_FIRED, &type, &fired, &size), 0);
        EXPECT_EQ(type, 8);
        EXPECT_EQ(size, 8U);
        return fired;
    }

    GigERDMA::NQGenTLEvent* event = nullptr;
};

TEST_F(StandardEvent, AKillWithNobodyWaitingEndsTheNextWaitOnce)
{
    event->Kill();
    EXPECT_EQ(Wait(0), kAbort);
    EXPECT_EQ(Wait(0), kTimeout);
    event->Kill();
    EXPECT_EQ(Wait(kInfinite), kAbort);
    EXPECT_EQ(Wait(1), kTimeout);
}

TEST_F(StandardEvent, CountsWhatFiredSinceItsRegistration)
{
    EXPECT_EQ(Fired(), 0U);
    Frame(0, 1);
    Frame(1, 2);
    Frame(2, 3);
    EXPECT_EQ(Fired(), 3U) << "queued";
    Take();
    EXPECT_EQ(event->Kill(), 0);
    EXPECT_EQ(Wait(0), kAbort);
    unsigned long size = sizeof(GenTL::S_EVENT_NEW_BUFFER);
    EXPECT_EQ(event->GetData(nullptr, &size, 0), 0) << "dropped";
    EXPECT_EQ(event->Flush(), 0);
    EXPECT_EQ(Fired(), 3U) << "delivered, dropped and flushed";
    ASSERT_EQ(stream.UnregisterEvent(GenTL::EVENT_NEW_BUFFER), 0);
    event = RegisterNewBuffer();
    EXPECT_EQ(Fired(), 0U);
}

TEST_F(StandardEvent, OfNoDataTellsNothing)
{
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(event->GetDataInfo(nullptr, 16, GenTL::EVENT_DATA_ID, &type, nullptr, &size), -1009);
}

TEST_F(StandardEvent, AKillGoesBeforeDataAndLosesNone)
{
    Frame(0, 1);
    event->Kill();
    EXPECT_EQ(Wait(0), kAbort);
    EXPECT_EQ(event->GetNumInQueue(), 1U);
    EXPECT_EQ(Take(), handles[0]);
}

TEST_F(StandardEvent, AsManyKillsEndAsManyWaits)
{
    event->Kill();
    event->Kill();
    EXPECT_EQ(event->Flush(), 0) << "takes none back";
    EXPECT_EQ(Wait(0), kAbort);
    EXPECT_EQ(Wait(0), kAbort);
    EXPECT_EQ(Wait(0), kTimeout);
}

TEST_F(StandardEvent, AKillEndsOneOfSeveralWaiters)
{
    std::atomic<int> aborted = 0;
    const auto wait = [&] { aborted += Wait(kInfinite) == kAbort ? 1 : 0; };
    {
        CallingThread first(wait);
        CallingThread second(wait);
        first.AwaitAsleep();
        second.AwaitAsleep();
        event->Kill();
        while (aborted == 0)
        {
            std::this_thread::yield();
        }
        Frame(0, 1); // for the one that goes on waiting
    }
    EXPECT_EQ(aborted, 1);
    EXPECT_EQ(event->GetNumInQueue(), 0U);
    EXPECT_EQ(Wait(0), kTimeout);
}

TEST_F(StandardEvent, TheBuffersOfAnUnregisteredEventAreUnqueued)
{
    Frame(0, 1);
    EXPECT_EQ(BufferNumber(handles[0], 5), 1U);
    ASSERT_EQ(stream.UnregisterEvent(1), 0);
    EXPECT_EQ(BufferNumber(handles[0], 5), 0U);
    EXPECT_EQ(BufferNumber(handles[1], 5), 1U) << "waits for a frame";
    EXPECT_EQ(stream.QueueBuffer(handles[0]), 0);
}

/// While an event ends, with a call still inside, nobody finds it, nor takes a revoked buffer out of it.
TEST_F(StandardEvent, ThatEndsHasNoBufferThatIsRevokedMeanwhile)
{
    Frame(0, 1);
    event->Enter();
    CallingThread unregistering([this] { EXPECT_EQ(stream.UnregisterEvent(1), 0); });
    while (stream.FindEventById(1, false) != nullptr)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(event->GetNumInQueue(), 0U);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    event->Leave();
}

TEST_F(StandardEvent, OfAStreamThatClosesHasNoBufferThatIsRevokedMeanwhile)
{
    Frame(0, 1);
    ASSERT_EQ(stream.Open(), 0);
    event->Enter();
    CallingThread closing([this] { EXPECT_EQ(stream.Close(), 0); });
    while (stream.FindEventById(1, false) != nullptr)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(event->GetNumInQueue(), 0U);
    EXPECT_EQ(stream.RevokeBuffer(handles[0], nullptr, nullptr), 0);
    event->Leave();
}

TEST_F(StandardEvent, RegisteredWhileTheStreamClosesHasNoneOfItsBuffers)
{
    ASSERT_EQ(stream.Close(), -1006) << "never opened";
    ASSERT_EQ(stream.StopAcquisition(1), 0);
    ASSERT_EQ(stream.Open(), 0);
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    GigERDMA::NQGenTLEvent* late = nullptr;
    stream.onStop = [&] {
        late = RegisterNewBuffer();
        Frame(0, 1);
        return 0;
    };
    ASSERT_EQ(stream.Close(), 0);
    ASSERT_NE(late, nullptr);
    EXPECT_EQ(late->GetNumInQueue(), 0U);
}

/// Its delivery takes `delivery`.
class SlowEvent : public GigERDMA::NQGenTLEvent
{
  public:
    explicit SlowEvent(std::chrono::milliseconds delivery) : NQGenTLEvent(77), m_delivery(delivery)
    {
        UseAnswers(kStandardAnswers);
        SetEventSizeMax(1);
    }
    void DoEventGetData(void*, void*, unsigned long*) override
    {
        delivers = true;
        std::this_thread::sleep_for(m_delivery);
    }
    int DoEventGetDataInfo(const void*, int, int*, void*, unsigned long*) override { return -1003; }

    std::atomic<bool> delivers = false;

  private:
    const std::chrono::milliseconds m_delivery;
};

/// How long a wait of 3 s takes that finds an entry, which another thread takes for 2.5 s.
std::chrono::steady_clock::duration TimeOfAWaitThatLosesItsEntry()
{
    SlowEvent event(std::chrono::milliseconds(2500));
    char byte = 0;
    unsigned long size = 1;
    event.Signal(&byte);
    CallingThread faster([&event] {
        char taken = 0;
        unsigned long room = 1;
        EXPECT_EQ(event.GetData(&taken, &room, 0), 0);
    });
    while (!event.delivers)
    {
        std::this_thread::yield();
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event.GetData(&byte, &size, 3000), kTimeout);
    return std::chrono::steady_clock::now() - start;
}

TEST(StandardWait, ThatLosesItsEntryToAnotherThreadEndsInItsTime)
{
    using namespace std::chrono_literals;
    // A busy machine may need two seconds more for one wait, but hardly for each.
    auto past = std::chrono::steady_clock::duration::max();
    for (int attempt = 0; attempt < 3 && past >= 5000ms; ++attempt)
    {
        past = TimeOfAWaitThatLosesItsEntry();
        EXPECT_GE(past, 2990ms);
    }
    EXPECT_LT(past, 5000ms) << "not the whole time once more";
}

} // namespace
