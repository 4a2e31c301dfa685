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

constexpr std::uint64_t framesReceived = 0x80114;

/// Calls what any thread of a consumer may call on its stream, in an order that the seed decides. No buffer is revoked
/// and no pixel is read: the threads know nothing of each other's buffers.
class Player
{
  public:
    Player(Consumer& consumer, unsigned seed) : m_consumer(consumer), m_random(seed) {}

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

    GenTL::BUFFER_HANDLE AnyBuffer() { return m_consumer.buffers[Below(m_consumer.buffers.size())]; }

    void Queue() { EXPECT_THAT(m_consumer.gentl.DSQueueBuffer(m_consumer.stream, AnyBuffer()), AnyOf(0, -1004)); }

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
        m_consumer.Register64(framesReceived);
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
            EXPECT_THAT(result, AnyOf(0, -1014)); // the latter before the first frame
        }
    }

    Consumer& m_consumer;
    std::mt19937 m_random;
};

} // namespace

TEST(StreamThreads, SeveralThreadsMayQueueTakeFlushAndAskWhileTheStreamStartsAndStops)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    std::atomic<int> playing = 3;
    std::vector<std::thread> players;
    for (unsigned seed = 1; seed <= 3; ++seed)
    {
        players.emplace_back([&consumer, &playing, seed] {
            Player(consumer, seed).Play(4000);
            --playing;
        });
    }
    while (playing > 0)
    {
        while (playing > 0 && consumer.Register64(framesReceived) < 1000)
        {
            std::this_thread::yield();
        }
        EXPECT_EQ(consumer.Stop(), 0);
        EXPECT_EQ(consumer.Start(), 0);
    }
    for (std::thread& player : players)
    {
        player.join();
    }
    EXPECT_EQ(consumer.Stop(), 0);
    consumer.RenewBuffers();
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10), Ids(1, 10));
    EXPECT_EQ(consumer.Stop(), 0);
}
