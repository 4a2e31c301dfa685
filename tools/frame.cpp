// SPDX-License-Identifier: Apache-2.0
// The one judgement whether a frame may be believed.
#include "frame.h"

#include <fmt/format.h>

namespace nq::tool
{

size_t BitsPerPixel(uint64_t pixelFormat)
{
    return pixelFormat <= UINT32_MAX ? (pixelFormat >> 16) & 0xFF : 0;
}

std::string WhyRefused(const Frame& frame, size_t announced)
{
    if (frame.size == Frame::kUntold)
    {
        return "its size is not told";
    }
    if (frame.size > announced)
    {
        return fmt::format("it is said to have {} bytes, its buffer has {}", frame.size, announced);
    }
    if (frame.data == nullptr)
    {
        return "it is said to lie nowhere";
    }
    if (frame.width == 0 || frame.height == 0 || frame.width > kMaxSide || frame.height > kMaxSide)
    {
        return fmt::format("it is said to be {} x {} pixels large", frame.width, frame.height);
    }
    const size_t picture = (frame.width * frame.height * BitsPerPixel(frame.pixelFormat) + 7) / 8;
    if (picture > announced)
    {
        return fmt::format("its {} x {} pixels of format 0x{:08x} take {} bytes, its buffer has {}", frame.width,
                           frame.height, frame.pixelFormat, picture, announced);
    }
    return {};
}

} // namespace nq::tool
