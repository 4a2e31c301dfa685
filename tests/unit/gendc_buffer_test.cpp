// SPDX-License-Identifier: Apache-2.0
// The frame memory block: its size, its content, its pages, and sizes that do not fit.
#include "rdma/GenDCBuffer.h"

#include "support/page_flags.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kDescriptor = 176;

std::uintptr_t Address(const GenDCBuffer& buffer)
{
    return reinterpret_cast<std::uintptr_t>(buffer.GetBuffer());
}

std::set<std::string> PageFlags(const GenDCBuffer& buffer)
{
    return nq::test::PageFlags(buffer.GetBuffer());
}

/// Memory of this process, in bytes.
struct Memory
{
    std::size_t mapped;
    std::size_t resident;

    static Memory Now()
    {
        std::ifstream status("/proc/self/statm");
        Memory pages{};
        status >> pages.mapped >> pages.resident;
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        return {pages.mapped * page, pages.resident * page};
    }
};

TEST(GenDCBuffer, HasRoomForTheDescriptorAndThePayload)
{
    const GenDCBuffer buffer(1000);
    EXPECT_EQ(buffer.GetBufferSize(), 1176U);
    EXPECT_TRUE(
        std::all_of(buffer.GetBuffer(), buffer.GetBuffer() + 1176, [](unsigned char byte) { return byte == 0; }));
}

TEST(GenDCBuffer, WithoutPayloadHoldsTheDescriptorOnly)
{
    const GenDCBuffer buffer(0);
    EXPECT_EQ(buffer.GetBufferSize(), 176U);
    ASSERT_NE(buffer.GetBuffer(), nullptr);
    std::memset(buffer.GetBuffer(), 1, 176);
}

TEST(GenDCBuffer, StartsAtAPage)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{1000}, std::size_t{3920}, 3 * kMiB})
    {
        const GenDCBuffer one(size);
        const GenDCBuffer other(size);
        EXPECT_EQ(Address(one) % 4096, 0U) << size;
        EXPECT_EQ(Address(other) % 4096, 0U) << size;
        EXPECT_NE(one.GetBuffer(), other.GetBuffer());
    }
}

TEST(GenDCBuffer, From4MiBOnStartsAtAHugePageAndAsksForThem)
{
    const bool hugePages = std::filesystem::exists("/sys/kernel/mm/transparent_hugepage");
    for (const std::size_t size : {4 * kMiB, 4 * kMiB + 1, 5 * kMiB, 6 * kMiB - 1, 64 * kMiB})
    {
        const GenDCBuffer buffer(size - kDescriptor);
        EXPECT_EQ(Address(buffer) % (2 * kMiB), 0U) << size;
        EXPECT_EQ(PageFlags(buffer).count("hg"), hugePages ? 1U : 0U) << size;
        EXPECT_EQ(PageFlags(buffer).count("wr"), 1U) << size;
        buffer.GetBuffer()[size - 1] = 1;
    }
    const GenDCBuffer small(4 * kMiB - 1 - kDescriptor);
    EXPECT_EQ(PageFlags(small).count("hg"), 0U);
}

TEST(GenDCBuffer, TakesThePagesOfTheBlockAloneAndGivesThemBack)
{
    for (const std::size_t size : {kMiB, 3 * kMiB + 4096, 8 * kMiB, 64 * kMiB + 4096})
    {
        const std::size_t before = Memory::Now().mapped;
        {
            const GenDCBuffer buffer(size - kDescriptor);
            EXPECT_EQ(Memory::Now().mapped - before, size);
        }
        EXPECT_EQ(Memory::Now().mapped, before) << size;
    }
}

TEST(GenDCBuffer, WithoutRoomForItThrowsAndLeavesNothing)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "under a limit the sanitizer finds no room for its own memory";
    }
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
    const std::size_t before = Memory::Now().mapped;
    rlimit narrow = limit;
    narrow.rlim_cur = before + kMiB;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &narrow), 0);
    for (const std::size_t size : {2 * kMiB, 64 * kMiB})
    {
        EXPECT_THROW(GenDCBuffer{size}, std::bad_alloc) << size;
    }
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    EXPECT_LT(Memory::Now().mapped - before, kMiB);
}

// ---- fork

TEST(GenDCBuffer, AChildMayLookAtAPicture)
{
    if (PageFlags(GenDCBuffer(1000)).count("dc") != 0)
    {
        GTEST_SKIP() << "before Linux 5.12 a child must not have the block";
    }
    for (const std::size_t size : {std::size_t{1000}, 8 * kMiB})
    {
        const GenDCBuffer buffer(size);
        std::memset(buffer.GetBuffer(), 77, buffer.GetBufferSize());
        const pid_t child = fork();
        if (child == 0)
        {
            const unsigned char* const start = buffer.GetBuffer();
            _exit(std::all_of(start, start + buffer.GetBufferSize(), [](int byte) { return byte == 77; }) ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << size;
    }
}

// ---- sizes

TEST(GenDCBuffer, ASizeThatWrapsIn32BitsThrows)
{
    for (const std::uint64_t size : {0xFFFFFF50ULL, 0xFFFFFFFFULL, 0x100000000ULL, 0xFFFFFFFFFFFFFFFFULL})
    {
        EXPECT_THROW(GenDCBuffer{size}, std::length_error) << size;
    }
}

TEST(GenDCBuffer, TheLargestBlockUsesNoMemoryBeforeFramesArrive)
{
    const std::size_t before = Memory::Now().resident;
    try
    {
        const GenDCBuffer buffer(0xFFFFFF4F);
        EXPECT_EQ(buffer.GetBufferSize(), 0xFFFFFFFFU);
        EXPECT_EQ(buffer.GetBuffer()[0xFFFFFFFE], 0);
        EXPECT_LT(Memory::Now().resident - before, std::size_t{64} << 20);
    }
    catch (const std::bad_alloc&)
    {
        GTEST_SKIP() << "this machine does not give out 4 GiB";
    }
}

} // namespace
