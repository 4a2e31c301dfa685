// SPDX-License-Identifier: Apache-2.0
// What a program that the application executes inherits of a running acquisition: nothing.
#include "support/stream_consumer.h"

#include <gmock/gmock.h>

#include <fstream>

namespace
{

using nq::test::ChildProcess;
using nq::test::Consumer;
using nq::test::Ids;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

std::set<int> OpenDescriptors()
{
    std::set<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        open.insert(std::stoi(entry.path().filename()));
    }
    return open;
}

bool IsClosedOnExec(int descriptor)
{
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(descriptor));
    for (std::string word; info >> word;)
    {
        if (word == "flags:")
        {
            unsigned long flags = 0;
            info >> std::oct >> flags;
            return (flags & 02000000) != 0;
        }
    }
    return true; // Gone meanwhile: the listing's own.
}

TEST(Descriptors, OfARunningAcquisitionAreAllClosedOnExec)
{
    const VirtualCamera camera(SmallFrames());
    const std::set<int> before = OpenDescriptors();
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(5), Ids(1, 5));
    int opened = 0;
    for (const int descriptor : OpenDescriptors())
    {
        if (!before.contains(descriptor))
        {
            ++opened;
            EXPECT_TRUE(IsClosedOnExec(descriptor))
                << descriptor << " is " << std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
        }
    }
    EXPECT_GE(opened, 5) << "discovery, control, messages, completion channel and event channel";
    EXPECT_EQ(consumer.Stop(), 0);
}

} // namespace
