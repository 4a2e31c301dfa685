// SPDX-License-Identifier: Apache-2.0
// The queue of pending entries.
#include "gentl/nq_gentl_event_data_queue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using GigERDMA::NQGenTLEventDataQueue;

namespace
{

class EventDataQueue : public testing::Test
{
  protected:
    int a = 0;
    int b = 0;
    NQGenTLEventDataQueue queue;
};

} // namespace

TEST_F(EventDataQueue, GivesTheOldestEntryFirst)
{
    queue.Add(&a);
    queue.Add(&b);
    EXPECT_EQ(queue.GetFront(true), &a);
    EXPECT_EQ(queue.GetFront(true), &b);
    EXPECT_EQ(queue.GetFront(true), nullptr);
}

TEST_F(EventDataQueue, WithoutRemoveTheFrontStays)
{
    EXPECT_EQ(queue.GetFront(false), nullptr);
    queue.Add(&a);
    EXPECT_EQ(queue.GetFront(false), &a);
    EXPECT_EQ(queue.GetSize(), 1U);
}

TEST_F(EventDataQueue, CountsItsEntries)
{
    EXPECT_EQ(queue.GetSize(), 0U);
    queue.Add(&a);
    queue.Add(&a);
    EXPECT_EQ(queue.GetSize(), 2U);
}

TEST_F(EventDataQueue, ClearEmptiesWithoutTouchingTheEntries)
{
    queue.Add(reinterpret_cast<void*>(0x10));
    queue.Clear();
    EXPECT_EQ(queue.GetSize(), 0U);
    EXPECT_EQ(queue.GetFront(true), nullptr);
}

TEST_F(EventDataQueue, CopyIsIndependentOfTheQueue)
{
    queue.Add(&a);
    queue.Add(&b);
    const std::deque<void*> copy = queue.Copy();
    queue.Clear();
    EXPECT_EQ(copy, (std::deque<void*>{&a, &b}));
}

TEST_F(EventDataQueue, RemoveTakesEveryOccurrenceAndKeepsTheRest)
{
    queue.Add(&a);
    queue.Add(&b);
    queue.Add(&a);
    queue.Remove(&a);
    EXPECT_EQ(queue.Copy(), (std::deque<void*>{&b}));
}

TEST_F(EventDataQueue, RemoveOfFirstMiddleAndLastKeepsTheOrderOfTheRest)
{
    std::vector<int> values(40);
    for (int& value : values)
    {
        queue.Add(&value);
    }
    queue.Remove(&values[0]);
    queue.Remove(&values[20]);
    queue.Remove(&values[39]);
    queue.Remove(&a); // not there
    for (std::size_t at = 1; at < 39; ++at)
    {
        if (at != 20)
        {
            EXPECT_EQ(queue.GetFront(true), &values[at]);
        }
    }
    EXPECT_EQ(queue.GetFront(true), nullptr);
}

TEST_F(EventDataQueue, HasNoLimitAndDropsNothing)
{
    for (int i = 0; i < 100000; ++i)
    {
        queue.Add(&a);
    }
    EXPECT_EQ(queue.GetSize(), 100000U);
}

TEST_F(EventDataQueue, ManyThreadsMayAddAndTakeAtOnce)
{
    std::atomic<int> taken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
    {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n)
            {
                queue.Add(&a);
            }
        });
        threads.emplace_back([&] {
            while (taken < 3000)
            {
                taken += queue.GetFront(true) != nullptr;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(taken, 3000);
    EXPECT_EQ(queue.GetSize(), 0U);
}
