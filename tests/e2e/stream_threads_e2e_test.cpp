// SPDX-License-Identifier: Apache-2.0
// One stream in the hands of several threads at once, while frames arrive: the lists, flags and frame blocks stay
// sound.
#include "support/stream_consumer.h"

#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <random>

namespace
{

using nq::test::Consumer;
using nq::test::Ids;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;
using testing::AnyOf;

constexpr std::uint64_t kFramesReceived = 0x80114;

/// The announced buffers, as all threads see them. A thread may hold a handle that another has just revoked.
using Handles = std::array<std::atomic<GenTL::BUFFER_HANDLE>, 4>;

/// Calls what any thread of a consumer may call on its stream, in an order that the seed decides. No pixel is read: the
/// threads know nothing of each other's buffers.
class Player
{
  public:
    Player(Consumer& consumer, const Handles& handles, unsigned seed)
        : m_consumer(consumer), m_handles(handles), m_random(seed)
    {
    }

    void Play(int calls)
    {
        const std::array<std::function<void()>, 8> moves = {
            [this] { Queue(); }, [this] { Queue(); },      [this] { Queue(); },      [this] { Take(); },
            [this] { Take(); },  [this] { FlushLists(); }, [this] { ReadCounts(); }, [this] { ReadBuffer(); }};
        for (int call = 0; call < calls; ++call)
        {
            moves[Below(moves.size())]();
        }
    }

  private:
    std::size_t Below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(m_random); }

    GenTL::BUFFER_HANDLE AnyBuffer() { return m_handles[Below(m_handles.size())]; }

    void Queue()
    {
        EXPECT_THAT(m_consumer.gentl.DSQueueBuffer(m_consumer.stream, AnyBuffer()), AnyOf(0, -1004, -1006));
    }

    void Take()
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::size_t size = sizeof data;
        EXPECT_THAT(m_consumer.gentl.EventGetData(m_consumer.event, &data, &size, 2), AnyOf(0, -1011));
    }

    void FlushLists()
    {
        const auto operation = static_cast<GenTL::ACQ_QUEUE_TYPE>(Below(5));
        EXPECT_EQ(m_consumer.gentl.DSFlushQueue(m_consumer.stream, operation), 0);
    }

    void ReadCounts()
    {
        m_consumer.StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED);
        m_consumer.StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN);
        m_consumer.StreamInfo(GenTL::STREAM_INFO_NUM_QUEUED);
        m_consumer.StreamInfo(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY);
        m_consumer.Register64(kFramesReceived);
    }

    void ReadBuffer()
    {
        for (const GenTL::BUFFER_INFO_CMD command :
             {GenTL::BUFFER_INFO_BASE, GenTL::BUFFER_INFO_FRAMEID, GenTL::BUFFER_INFO_IS_QUEUED})
        {
            std::uint64_t value = 0;
            GenTL::INFO_DATATYPE type = 0;
            std::size_t size = sizeof value;
            const int result =
                m_consumer.gentl.DSGetBufferInfo(m_consumer.stream, AnyBuffer(), command, &type, &value, &size);
            EXPECT_THAT(result, AnyOf(0, -1006, -1014)); // the last one before the first frame
        }
    }

    Consumer& m_consumer;
    const Handles& m_handles;
    std::mt19937 m_random;
};

class StreamThreads : public testing::Test
{
  protected:
    StreamThreads()
    {
        consumer.AnnounceAndQueue(static_cast<int>(handles.size()));
        std::copy(consumer.buffers.begin(), consumer.buffers.end(), handles.begin());
    }

    /// Repeats `meanwhile` on this thread while three others play.
    void PlayDuring(const std::function<void()>& meanwhile)
    {
        std::atomic<int> playing = 3;
        std::vector<std::thread> players;
        for (unsigned seed = 1; seed <= 3; ++seed)
        {
            players.emplace_back([this, &playing, seed] {
                Player(consumer, handles, seed).Play(4000);
                --playing;
            });
        }
        while (playing > 0)
        {
            meanwhile();
        }
        for (std::thread& player : players)
        {
            player.join();
        }
    }

    /// The stream works as if nothing had been.
    void ExpectFrames()
    {
        EXPECT_EQ(consumer.Stop(), 0);
        consumer.buffers.assign(handles.begin(), handles.end());
        consumer.RenewBuffers();
        ASSERT_EQ(consumer.Start(), 0);
        EXPECT_EQ(consumer.TakeOfNewRun(10), Ids(1, 10));
        EXPECT_EQ(consumer.Stop(), 0);
    }

    VirtualCamera camera{SmallFrames()};
    Consumer consumer;
    Handles handles{};
};

} // namespace

TEST_F(StreamThreads, MayQueueTakeFlushAndAskWhileTheStreamStartsAndStops)
{
    ASSERT_EQ(consumer.Start(), 0);
    int looks = 0;
    PlayDuring([&] {
        if (consumer.Register64(kFramesReceived) < 1000 && ++looks < 10000)
        {
            std::this_thread::yield();
            return;
        }
        looks = 0;
        EXPECT_EQ(consumer.Stop(), 0);
        EXPECT_EQ(consumer.Start(), 0);
    });
    ExpectFrames();
}

TEST_F(StreamThreads, MayUseABufferWhileItIsRevokedAndAnotherTakesItsPlace)
{
    ASSERT_EQ(consumer.Start(), 0);
    std::size_t next = 0;
    int revoked = 0;
    PlayDuring([&] {
        std::atomic<GenTL::BUFFER_HANDLE>& handle = handles[next++ % handles.size()];
        const int result = consumer.gentl.DSRevokeBuffer(consumer.stream, handle, nullptr, nullptr);
        if (result != 0)
        {
            EXPECT_EQ(result, -1022);
            return;
        }
        ++revoked;
        GenTL::BUFFER_HANDLE fresh = nullptr;
        EXPECT_EQ(consumer.gentl.DSAllocAndAnnounceBuffer(consumer.stream, 64, nullptr, &fresh), 0);
        handle = fresh;
    });
    EXPECT_GT(revoked, 0);
    ExpectFrames();
}
