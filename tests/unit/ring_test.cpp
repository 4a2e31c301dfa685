// SPDX-License-Identifier: Apache-2.0
// The growing list in one block of memory.
#include "gentl/nq_gentl_ring.h"

#include <gmock/gmock.h>
#include <vector>

namespace
{

using GigERDMA::NQGenTLRing;
using testing::ElementsAre;

std::vector<int> Entries(const NQGenTLRing<int>& ring)
{
    std::vector<int> entries;
    for (std::size_t index = 0; index < ring.Size(); ++index)
    {
        entries.push_back(ring[index]);
    }
    return entries;
}

NQGenTLRing<int> RingOf(int count)
{
    NQGenTLRing<int> ring;
    for (int value = 0; value < count; ++value)
    {
        ring.PushBack(value);
    }
    return ring;
}

TEST(Ring, KeepsTheOrderWhenItGrowsInTheMiddleOfARound)
{
    NQGenTLRing<int> ring = RingOf(16);
    for (int taken = 0; taken < 10; ++taken)
    {
        EXPECT_EQ(ring.PopFront(), taken);
    }
    for (int value = 16; value < 40; ++value)
    {
        ring.PushBack(value);
    }
    ASSERT_EQ(ring.Size(), 30U);
    for (std::size_t index = 0; index < 30; ++index)
    {
        EXPECT_EQ(ring[index], static_cast<int>(index) + 10);
    }
}

TEST(Ring, GivesTheOldestFirstUntilItIsEmpty)
{
    NQGenTLRing<int> ring = RingOf(3);
    EXPECT_EQ(ring.PopFront(), 0);
    EXPECT_THAT(Entries(ring), ElementsAre(1, 2));
    EXPECT_EQ(ring.PopFront(), 1);
    EXPECT_EQ(ring.PopFront(), 2);
    EXPECT_TRUE(ring.IsEmpty());
}

TEST(Ring, IsEmptyAfterClearAndUsableAgain)
{
    NQGenTLRing<int> ring = RingOf(20);
    ring.Clear();
    EXPECT_TRUE(ring.IsEmpty());
    ring.PushBack(7);
    EXPECT_THAT(Entries(ring), ElementsAre(7));
}

} // namespace
