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

constexpr auto g_Queued = NQ_BUFFER_TYPE_QUEUED;
constexpr auto g_Announced = NQ_BUFFER_TYPE_ANNOUNCED;
constexpr auto g_Nothing = static_cast<NQ_BUFFER_TYPE_LIST>(2);

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
            entries.push_back(queue.FindByIndex(list, i, false));
        return entries;
    }
    void QueueAll()
    {
        for (NQGenTLBuffer* buffer : {&a, &b, &c})
            queue.Add(g_Queued, buffer);
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
    EXPECT_EQ(queue.GetCount(g_Queued), 0U);
    EXPECT_EQ(queue.GetCount(g_Announced), 0U);
    EXPECT_EQ(queue.GetBiggestSize(g_Queued), 0U);
    EXPECT_EQ(queue.GetFront(g_Queued, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(g_Queued, 0, true), nullptr);
}

TEST_F(BufferQueue, TheListsAreSeparateAndKeepTheirOrder)
{
    QueueAll();
    EXPECT_EQ(Entries(g_Queued), (List{&a, &b, &c}));
    EXPECT_EQ(queue.GetCount(g_Announced), 0U);
}

TEST_F(BufferQueue, AddOfNullIsRefused)
{
    EXPECT_FALSE(queue.Add(g_Queued, nullptr));
    EXPECT_EQ(queue.GetCount(g_Queued), 0U);
}

TEST_F(BufferQueue, TheSameBufferTwiceIsTwoEntriesAndARemovingSearchTakesTheFirst)
{
    EXPECT_TRUE(queue.Add(g_Queued, &a));
    queue.Add(g_Queued, &b);
    EXPECT_TRUE(queue.Add(g_Queued, &a));
    EXPECT_EQ(queue.GetCount(g_Queued), 3U);
    EXPECT_EQ(queue.FindByHandle(g_Queued, &a, true), &a);
    EXPECT_EQ(Entries(g_Queued), (List{&b, &a}));
}

TEST_F(BufferQueue, BiggestSize)
{
    QueueAll();
    EXPECT_EQ(queue.GetBiggestSize(g_Queued), 30U);
}

// Deliberate: sizes are taken as 32 bits.
TEST_F(BufferQueue, BiggestSizeOfABufferBeyond4GiBIsItsLow32Bits)
{
    NQGenTLBuffer huge(nullptr, 0x100000007, false, nullptr, nullptr);
    queue.Add(g_Queued, &huge);
    EXPECT_EQ(queue.GetBiggestSize(g_Queued), 7U);
    queue.Add(g_Queued, &a);
    EXPECT_EQ(queue.GetBiggestSize(g_Queued), 10U);
}

TEST_F(BufferQueue, FrontWithAndWithoutRemove)
{
    QueueAll();
    EXPECT_EQ(queue.GetFront(g_Queued, false), &a);
    EXPECT_EQ(queue.GetFront(g_Queued, true), &a);
    EXPECT_EQ(Entries(g_Queued), (List{&b, &c}));
}

TEST_F(BufferQueue, FindByIndexAtTheCountGivesNull)
{
    QueueAll();
    EXPECT_EQ(queue.FindByIndex(g_Queued, 3, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(g_Queued, 0xFFFFFFFF, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(g_Queued, 1, true), &b);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &c}));
}

TEST_F(BufferQueue, FindByRdmaID)
{
    QueueAll();
    int block = 0;
    EXPECT_EQ(queue.FindByRdmaID(g_Queued, nullptr, true), nullptr) << "not even a buffer without an id";
    EXPECT_EQ(queue.FindByRdmaID(g_Queued, &block, true), nullptr);
    b.SetRdmaId(&block);
    c.SetRdmaId(&block);
    EXPECT_EQ(queue.FindByRdmaID(g_Queued, &block, false), &b);
    EXPECT_EQ(queue.FindByRdmaID(g_Queued, &block, true), &b);
    EXPECT_EQ(queue.FindByRdmaID(g_Queued, &block, true), &c);
    EXPECT_EQ(Entries(g_Queued), (List{&a}));
}

TEST_F(BufferQueue, FindByHandle)
{
    QueueAll();
    EXPECT_EQ(queue.FindByHandle(g_Queued, nullptr, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(g_Queued, this, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(g_Announced, &b, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(g_Queued, &b, false), &b);
    EXPECT_EQ(queue.FindByHandle(g_Queued, &b, true), &b);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &c}));
}

TEST_F(BufferQueue, FindByBuffer)
{
    QueueAll();
    NQGenTLBuffer bare(nullptr, 1, false, nullptr, nullptr);
    queue.Add(g_Queued, &bare);
    EXPECT_EQ(queue.FindByBuffer(g_Queued, nullptr, true), nullptr) << "not even a buffer without memory";
    EXPECT_EQ(queue.FindByBuffer(g_Queued, &bare, true), nullptr);
    EXPECT_EQ(queue.FindByBuffer(g_Queued, &memory[2], false), &c);
    EXPECT_EQ(queue.FindByBuffer(g_Queued, &memory[2], true), &c);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &b, &bare}));
}

TEST_F(BufferQueue, MoveToAppendsTheFirstEntry)
{
    QueueAll();
    queue.MoveTo(g_Announced, g_Queued, false);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &b, &c}));
    EXPECT_EQ(Entries(g_Announced), (List{&a}));
    queue.MoveTo(g_Announced, g_Queued, true);
    queue.MoveTo(g_Announced, g_Queued, true);
    EXPECT_EQ(Entries(g_Queued), (List{&c}));
    EXPECT_EQ(Entries(g_Announced), (List{&a, &a, &b}));
    queue.Clear(g_Announced, false);
    queue.MoveTo(g_Queued, g_Announced, true);
    EXPECT_EQ(Entries(g_Queued), (List{&c}));
}

TEST_F(BufferQueue, MoveToOfAListToItselfMovesTheFrontToTheBack)
{
    QueueAll();
    queue.MoveTo(g_Queued, g_Queued, true);
    EXPECT_EQ(Entries(g_Queued), (List{&b, &c, &a}));
}

TEST_F(BufferQueue, FlushToAppendsAllInOrderAndEmptiesTheSource)
{
    queue.Add(g_Announced, &c);
    queue.Add(g_Queued, &a);
    queue.Add(g_Queued, &b);
    queue.FlushTo(g_Announced, g_Queued, true);
    EXPECT_EQ(Entries(g_Announced), (List{&c, &a, &b}));
    EXPECT_EQ(queue.GetCount(g_Queued), 0U);
    queue.Clear(g_Announced, false);
}

TEST_F(BufferQueue, FlushToWithoutClearLeavesTheEntriesInBothLists)
{
    QueueAll();
    queue.FlushTo(g_Announced, g_Queued, false);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &b, &c}));
    EXPECT_EQ(Entries(g_Announced), (List{&a, &b, &c}));
    queue.Clear(g_Announced, false);
}

TEST_F(BufferQueue, FlushToOfAListToItselfDoublesIt)
{
    QueueAll();
    queue.FlushTo(g_Queued, g_Queued, false);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &b, &c, &a, &b, &c}));
}

TEST_F(BufferQueue, AValueAboveOneSelectsNothing)
{
    QueueAll();
    EXPECT_EQ(queue.GetCount(g_Nothing), 0U);
    EXPECT_EQ(queue.GetBiggestSize(g_Nothing), 0U);
    EXPECT_FALSE(queue.Add(g_Nothing, &a));
    queue.Clear(g_Nothing, true);
    EXPECT_EQ(queue.GetFront(g_Nothing, true), nullptr);
    queue.MoveTo(g_Nothing, g_Queued, true);
    queue.MoveTo(g_Queued, g_Nothing, true);
    queue.FlushTo(g_Nothing, g_Queued, true);
    queue.FlushTo(g_Queued, g_Nothing, true);
    EXPECT_EQ(queue.FindByRdmaID(g_Nothing, &a, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(g_Nothing, 0, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(g_Nothing, &a, true), nullptr);
    EXPECT_EQ(queue.FindByBuffer(g_Nothing, &memory[0], true), nullptr);
    EXPECT_EQ(Entries(g_Queued), (List{&a, &b, &c}));
}

TEST_F(BufferQueue, ClearDeletesOnlyWhenAsked)
{
    int deleted = 0;
    auto kept = std::make_unique<Watched>(deleted);
    queue.Add(g_Queued, kept.get());
    queue.Clear(g_Queued, false);
    EXPECT_EQ(deleted, 0);
    queue.Add(g_Queued, kept.release());
    queue.Clear(g_Queued, true);
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(queue.GetCount(g_Queued), 0U);
}

TEST_F(BufferQueue, ABufferInAListTwiceIsDeletedOnce)
{
    int deleted = 0;
    auto* twice = new Watched(deleted);
    queue.Add(g_Announced, twice);
    queue.Add(g_Announced, twice);
    queue.Clear(g_Announced, true);
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
            owner.Add(g_Announced, buffer);
            owner.Add(g_Queued, buffer);
        }
        owner.Add(g_Queued, &a);
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
    std::thread other([&] { pass(g_Announced, g_Queued); });
    pass(g_Queued, g_Announced);
    other.join();
    EXPECT_EQ(queue.GetCount(g_Queued) + queue.GetCount(g_Announced), 3U);
    queue.Clear(g_Announced, false);
}
