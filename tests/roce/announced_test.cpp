// SPDX-License-Identifier: Apache-2.0
// One consumer that brings memory at odd addresses, on whatever RDMA device there is: every byte of it.
#include "roce/roce_consumer.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

namespace
{

constexpr std::size_t kBefore = 4099; ///< An odd address in the second page of a mapping.
constexpr std::size_t kBehind = 3001;
constexpr unsigned char kGuard = 0xC3;
constexpr std::size_t kWidth = 640;
constexpr std::size_t kHeight = 480;
constexpr std::size_t kPixels = kWidth * kHeight;
constexpr int kFrames = 20;

using Memory = std::vector<unsigned char>;

bool IsGuarded(const Memory& memory, std::size_t first, std::size_t last)
{
    return std::all_of(memory.begin() + static_cast<std::ptrdiff_t>(first),
                       memory.begin() + static_cast<std::ptrdiff_t>(last),
                       [](unsigned char byte) { return byte == kGuard; });
}

/// Whether the pixels are those that the camera draws for the frame.
bool ShowsFrame(const unsigned char* pixels, std::uint64_t frame)
{
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel)
    {
        if (pixels[pixel] != static_cast<unsigned char>(pixel % kWidth + pixel / kWidth + 7 * frame))
        {
            return false;
        }
    }
    return true;
}

} // namespace

TEST(AnnouncedMemory, TakesEveryByteOfItsFramesWithoutACopyAndNoneOnceTheStopHasReturned)
{
    nq::test::RoceConsumer consumer(0);
    ASSERT_NE(consumer.stream, nullptr) << "no camera answered";
    std::vector<Memory> memories(4);
    for (Memory& memory : memories)
    {
        memory.assign(kBefore + kPixels + kBehind, kGuard);
        GenTL::BUFFER_HANDLE handle = nullptr;
        ASSERT_EQ(consumer.gentl.DSAnnounceBuffer(consumer.stream, memory.data() + kBefore, kPixels, nullptr, &handle),
                  0);
    }
    for (int run = 1; run <= 2; ++run)
    {
        ASSERT_EQ(consumer.Start(), 0);
        for (int frame = 0; frame < kFrames; ++frame)
        {
            const GenTL::BUFFER_HANDLE buffer = consumer.Next(30000);
            ASSERT_NE(buffer, nullptr) << "run " << run << ", frame " << frame;
            const auto* const pixels = consumer.Info<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE);
            EXPECT_TRUE(std::any_of(memories.begin(), memories.end(),
                                    [&](const Memory& memory) { return pixels == memory.data() + kBefore; }));
            EXPECT_EQ(consumer.Info<std::size_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), kPixels);
            EXPECT_TRUE(ShowsFrame(pixels, consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID)))
                << "run " << run << ", frame " << frame;
            ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
        }
        std::uint64_t copied = 1;
        std::size_t size = sizeof copied;
        ASSERT_EQ(consumer.gentl.GCReadPort(consumer.stream, 0x80168, &copied, &size), 0);
        EXPECT_EQ(copied, 0U);
        ASSERT_EQ(consumer.Stop(), 0);
        for (Memory& memory : memories)
        {
            EXPECT_TRUE(IsGuarded(memory, 0, kBefore));
            EXPECT_TRUE(IsGuarded(memory, kBefore + kPixels, memory.size()));
            std::fill(memory.begin(), memory.end(), kGuard);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        for (const Memory& memory : memories)
        {
            EXPECT_TRUE(IsGuarded(memory, 0, memory.size())) << "changed after the stop";
        }
        std::cout << "run " << run << ": " << kFrames << " frames, every byte checked" << std::endl;
    }
}
