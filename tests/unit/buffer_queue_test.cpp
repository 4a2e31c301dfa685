// SPDX-License-Identifier: Apache-2.0
// The two lists of buffers: order, searches, moves, and who deletes what.
#include "gentl/nq_gentl_buffer_queue.h"

#include "gentl/nq_gentl_buffer.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

using namespace GigERDMA;

namespace
{

constexpr auto kQueued = NQ_BUFFER_TYPE_QUEUED;
constexpr auto kAnnounced = NQ_BUFFER_TYPE_ANNOUNCED;
constexpr auto kNothing = static_cast<NQ_BUFFER_TYPE_LIST>(2);

class Watched : public NQGenTLBuffer
{
  public:
    explicit Watched(int& deleted, unsigned long size = 1)
        : NQGenTLBuffer(nullptr, size, false, nullptr, nullptr), m_deleted(deleted)
    {
    }
    ~Watched() override { ++m_deleted; }

  private:
    int& m_deleted;
};

class BufferQueue : public testing::Test
{
  protected:
    std::vector<NQGenTLBuffer*> Entries(NQ_BUFFER_TYPE_LIST list)
    {
        std::vector<NQGenTLBuffer*> entries;
        for (unsigned int i = 0; i < queue.GetCount(list); ++i)
        {
            entries.push_back(queue.FindByIndex(list, i, false));
        }
        return entries;
    }
    void QueueAll()
    {
        for (NQGenTLBuffer* buffer : {&a, &b, &c})
        {
            queue.Add(kQueued, buffer);
        }
    }
    using List = std::vector<NQGenTLBuffer*>;

    unsigned char memory[3] = {};
    NQGenTLBuffer a{&memory[0], 10, false, nullptr, nullptr};
    NQGenTLBuffer b{&memory[1], 30, false, nullptr, nullptr};
    NQGenTLBuffer c{&memory[2], 20, false, nullptr, nullptr};
    NQGenTLBufferQueue queue;
};

} // namespace

TEST_F(BufferQueue, StartsEmpty)
{
    EXPECT_EQ(queue.GetCount(kQueued), 0U);
    EXPECT_EQ(queue.GetCount(kAnnounced), 0U);
    EXPECT_EQ(queue.GetBiggestSize(kQueued), 0U);
    EXPECT_EQ(queue.GetFront(kQueued, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(kQueued, 0, true), nullptr);
}

TEST_F(BufferQueue, TheListsAreSeparateAndKeepTheirOrder)
{
    QueueAll();
    EXPECT_EQ(Entries(kQueued), (List{&a, &b, &c}));
    EXPECT_EQ(queue.GetCount(kAnnounced), 0U);
}

TEST_F(BufferQueue, AddOfNullIsRefused)
{
    EXPECT_FALSE(queue.Add(kQueued, nullptr));
    EXPECT_EQ(queue.GetCount(kQueued), 0U);
}

TEST_F(BufferQueue, TheSameBufferTwiceIsTwoEntriesAndARemovingSearchTakesTheFirst)
{
    EXPECT_TRUE(queue.Add(kQueued, &a));
    queue.Add(kQueued, &b);
    EXPECT_TRUE(queue.Add(kQueued, &a));
    EXPECT_EQ(queue.GetCount(kQueued), 3U);
    EXPECT_EQ(queue.FindByHandle(kQueued, &a, true), &a);
    EXPECT_EQ(Entries(kQueued), (List{&b, &a}));
}

TEST_F(BufferQueue, BiggestSize)
{
    QueueAll();
    EXPECT_EQ(queue.GetBiggestSize(kQueued), 30U);
}

// Deliberate(BiggestSizeHas32Bits): sizes are taken as 32 bits.
TEST_F(BufferQueue, BiggestSizeOfABufferBeyond4GiBIsItsLow32Bits)
{
    NQGenTLBuffer huge(nullptr, 0x100000007, false, nullptr, nullptr);
    queue.Add(kQueued, &huge);
    EXPECT_EQ(queue.GetBiggestSize(kQueued), 7U);
    queue.Add(kQueued, &a);
    EXPECT_EQ(queue.GetBiggestSize(kQueued), 10U);
}

TEST_F(BufferQueue, FrontWithAndWithoutRemove)
{
    QueueAll();
    EXPECT_EQ(queue.GetFront(kQueued, false), &a);
    EXPECT_EQ(queue.GetFront(kQueued, true), &a);
    EXPECT_EQ(Entries(kQueued), (List{&b, &c}));
}

TEST_F(BufferQueue, FindByIndexAtTheCountGivesNull)
{
    QueueAll();
    EXPECT_EQ(queue.FindByIndex(kQueued, 3, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(kQueued, 0xFFFFFFFF, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(kQueued, 1, true), &b);
    EXPECT_EQ(Entries(kQueued), (List{&a, &c}));
}

TEST_F(BufferQueue, FindByRdmaID)
{
    QueueAll();
    int block = 0;
    EXPECT_EQ(queue.FindByRdmaID(kQueued, nullptr, true), nullptr) << "not even a buffer without an id";
    EXPECT_EQ(queue.FindByRdmaID(kQueued, &block, true), nullptr);
    b.SetRdmaId(&block);
    c.SetRdmaId(&block);
    EXPECT_EQ(queue.FindByRdmaID(kQueued, &block, false), &b);
    EXPECT_EQ(queue.FindByRdmaID(kQueued, &block, true), &b);
    EXPECT_EQ(queue.FindByRdmaID(kQueued, &block, true), &c);
    EXPECT_EQ(Entries(kQueued), (List{&a}));
}

TEST_F(BufferQueue, FindByHandle)
{
    QueueAll();
    EXPECT_EQ(queue.FindByHandle(kQueued, nullptr, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(kQueued, this, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(kAnnounced, &b, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(kQueued, &b, false), &b);
    EXPECT_EQ(queue.FindByHandle(kQueued, &b, true), &b);
    EXPECT_EQ(Entries(kQueued), (List{&a, &c}));
}

TEST_F(BufferQueue, FindByBuffer)
{
    QueueAll();
    NQGenTLBuffer bare(nullptr, 1, false, nullptr, nullptr);
    queue.Add(kQueued, &bare);
    EXPECT_EQ(queue.FindByBuffer(kQueued, nullptr, true), nullptr) << "not even a buffer without memory";
    EXPECT_EQ(queue.FindByBuffer(kQueued, &bare, true), nullptr);
    EXPECT_EQ(queue.FindByBuffer(kQueued, &memory[2], false), &c);
    EXPECT_EQ(queue.FindByBuffer(kQueued, &memory[2], true), &c);
    EXPECT_EQ(Entries(kQueued), (List{&a, &b, &bare}));
}

TEST_F(BufferQueue, MoveToAppendsTheFirstEntry)
{
    QueueAll();
    queue.MoveTo(kAnnounced, kQueued, false);
    EXPECT_EQ(Entries(kQueued), (List{&a, &b, &c}));
    EXPECT_EQ(Entries(kAnnounced), (List{&a}));
    queue.MoveTo(kAnnounced, kQueued, true);
    queue.MoveTo(kAnnounced, kQueued, true);
    EXPECT_EQ(Entries(kQueued), (List{&c}));
    EXPECT_EQ(Entries(kAnnounced), (List{&a, &a, &b}));
    queue.Clear(kAnnounced, false);
    queue.MoveTo(kQueued, kAnnounced, true);
    EXPECT_EQ(Entries(kQueued), (List{&c}));
}

TEST_F(BufferQueue, MoveToOfAListToItselfMovesTheFrontToTheBack)
{
    QueueAll();
    queue.MoveTo(kQueued, kQueued, true);
    EXPECT_EQ(Entries(kQueued), (List{&b, &c, &a}));
}

TEST_F(BufferQueue, FlushToAppendsAllInOrderAndEmptiesTheSource)
{
    queue.Add(kAnnounced, &c);
    queue.Add(kQueued, &a);
    queue.Add(kQueued, &b);
    queue.FlushTo(kAnnounced, kQueued, true);
    EXPECT_EQ(Entries(kAnnounced), (List{&c, &a, &b}));
    EXPECT_EQ(queue.GetCount(kQueued), 0U);
    queue.Clear(kAnnounced, false);
}

TEST_F(BufferQueue, FlushToWithoutClearLeavesTheEntriesInBothLists)
{
    QueueAll();
    queue.FlushTo(kAnnounced, kQueued, false);
    EXPECT_EQ(Entries(kQueued), (List{&a, &b, &c}));
    EXPECT_EQ(Entries(kAnnounced), (List{&a, &b, &c}));
    queue.Clear(kAnnounced, false);
}

TEST_F(BufferQueue, FlushToOfAListToItselfDoublesIt)
{
    QueueAll();
    queue.FlushTo(kQueued, kQueued, false);
    EXPECT_EQ(Entries(kQueued), (List{&a, &b, &c, &a, &b, &c}));
}

TEST_F(BufferQueue, AValueAboveOneSelectsNothing)
{
    QueueAll();
    EXPECT_EQ(queue.GetCount(kNothing), 0U);
    EXPECT_EQ(queue.GetBiggestSize(kNothing), 0U);
    EXPECT_FALSE(queue.Add(kNothing, &a));
    queue.Clear(kNothing, true);
    EXPECT_EQ(queue.GetFront(kNothing, true), nullptr);
    queue.MoveTo(kNothing, kQueued, true);
    queue.MoveTo(kQueued, kNothing, true);
    queue.FlushTo(kNothing, kQueued, true);
    queue.FlushTo(kQueued, kNothing, true);
    EXPECT_EQ(queue.FindByRdmaID(kNothing, &a, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(kNothing, 0, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(kNothing, &a, true), nullptr);
    EXPECT_EQ(queue.FindByBuffer(kNothing, &memory[0], true), nullptr);
    EXPECT_EQ(Entries(kQueued), (List{&a, &b, &c}));
}

TEST_F(BufferQueue, ClearDeletesOnlyWhenAsked)
{
    int deleted = 0;
    auto kept = std::make_unique<Watched>(deleted);
    queue.Add(kQueued, kept.get());
    queue.Clear(kQueued, false);
    EXPECT_EQ(deleted, 0);
    queue.Add(kQueued, kept.release());
    queue.Clear(kQueued, true);
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(queue.GetCount(kQueued), 0U);
}

TEST_F(BufferQueue, ABufferInAListTwiceIsDeletedOnce)
{
    int deleted = 0;
    auto* twice = new Watched(deleted);
    queue.Add(kAnnounced, twice);
    queue.Add(kAnnounced, twice);
    queue.Clear(kAnnounced, true);
    EXPECT_EQ(deleted, 1);
}

TEST_F(BufferQueue, DestructionDeletesEachAnnouncedBufferOnce)
{
    int deleted = 0;
    {
        NQGenTLBufferQueue owner;
        for (int i = 0; i < 3; ++i)
        {
            auto* buffer = new Watched(deleted);
            owner.Add(kAnnounced, buffer);
            owner.Add(kQueued, buffer);
        }
        owner.Add(kQueued, &a);
    }
    EXPECT_EQ(deleted, 3);
}

TEST_F(BufferQueue, TwoThreadsCanPassBuffersRound)
{
    QueueAll();
    std::atomic<int> passed = 0;
    auto pass = [&](NQ_BUFFER_TYPE_LIST from, NQ_BUFFER_TYPE_LIST to) {
        while (passed < 600)
        {
            if (NQGenTLBuffer* const buffer = queue.GetFront(from, true))
            {
                queue.Add(to, buffer);
                ++passed;
            }
            std::this_thread::yield();
        }
    };
    std::thread other([&] { pass(kAnnounced, kQueued); });
    pass(kQueued, kAnnounced);
    other.join();
    EXPECT_EQ(queue.GetCount(kQueued) + queue.GetCount(kAnnounced), 3U);
    queue.Clear(kAnnounced, false);
}
