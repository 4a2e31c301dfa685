// SPDX-License-Identifier: Apache-2.0
// Undoing at the end of a scope.
#include "base/nq_rollback.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{

TEST(Rollback, RunsOnceWhenTheScopeIsLeft)
{
    int undone = 0;
    {
        const NQRollback rollback([&] { ++undone; });
        EXPECT_EQ(undone, 0);
    }
    EXPECT_EQ(undone, 1);
}

TEST(Rollback, RunsWhenTheScopeIsLeftByAnException)
{
    int undone = 0;
    try
    {
        const NQRollback rollback([&] { ++undone; });
        throw std::runtime_error("half way");
    }
    catch (const std::runtime_error&)
    {
        EXPECT_EQ(undone, 1);
    }
    EXPECT_EQ(undone, 1);
}

TEST(Rollback, DoesNotRunOnceDismissed)
{
    int undone = 0;
    {
        NQRollback rollback([&] { ++undone; });
        rollback.Dismiss();
    }
    EXPECT_EQ(undone, 0);
}

} // namespace
