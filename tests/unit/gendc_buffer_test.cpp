// SPDX-License-Identifier: Apache-2.0
// The frame memory block: its size, its content, and sizes that do not fit.
#include "rdma/GenDCBuffer.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <unistd.h>

namespace
{

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
}

TEST(GenDCBuffer, ASizeThatWrapsIn32BitsThrows)
{
    for (const std::uint64_t size : {0xFFFFFF50ULL, 0xFFFFFFFFULL, 0x100000000ULL, 0xFFFFFFFFFFFFFFFFULL})
    {
        EXPECT_THROW(GenDCBuffer{size}, std::length_error) << size;
    }
}

/// Bytes of memory that this process has in use.
std::size_t Resident()
{
    std::ifstream status("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    status >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(GenDCBuffer, TheLargestBlockUsesNoMemoryBeforeFramesArrive)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "the sanitizer marks every byte of an allocation";
    }
    const std::size_t before = Resident();
    try
    {
        const GenDCBuffer buffer(0xFFFFFF4F);
        EXPECT_EQ(buffer.GetBufferSize(), 0xFFFFFFFFU);
        EXPECT_EQ(buffer.GetBuffer()[0xFFFFFFFE], 0);
        EXPECT_LT(Resident() - before, std::size_t{64} << 20);
    }
    catch (const std::bad_alloc&)
    {
        GTEST_SKIP() << "this machine does not give out 8 GiB";
    }
}

} // namespace
