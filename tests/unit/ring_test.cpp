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
        ring.Erase(0);
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

TEST(Ring, ErasesFirstMiddleAndLast)
{
    NQGenTLRing<int> ring = RingOf(5);
    ring.Erase(0);
    EXPECT_THAT(Entries(ring), ElementsAre(1, 2, 3, 4));
    ring.Erase(1);
    EXPECT_THAT(Entries(ring), ElementsAre(1, 3, 4));
    ring.Erase(2);
    EXPECT_THAT(Entries(ring), ElementsAre(1, 3));
}

TEST(Ring, FindsTheFirstFitOrTheSize)
{
    const NQGenTLRing<int> ring = RingOf(4);
    EXPECT_EQ(ring.FindIf([](int value) { return value >= 2; }), 2U);
    EXPECT_EQ(ring.FindIf([](int value) { return value == 9; }), 4U);
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
