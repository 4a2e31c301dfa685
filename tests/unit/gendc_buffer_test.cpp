// SPDX-License-Identifier: Apache-2.0
// The frame memory block: its size, its content, and sizes that do not fit.
#include "rdma/GenDCBuffer.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <stdexcept>

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

} // namespace
