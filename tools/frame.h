// SPDX-License-Identifier: Apache-2.0
// One delivered frame as the producer describes it, and the one judgement whether that may be believed.
#pragma once

#include "GenTL/GenTL.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace nq::tool
{

constexpr size_t kMaxSide = 1'000'000; ///< pixels; libpng writes no larger ones

/// One delivered frame. The data is valid until the buffer is queued again.
struct Frame
{
    static constexpr uint64_t kUntold = UINT64_MAX;

    GenTL::BUFFER_HANDLE buffer = nullptr;
    const uint8_t* data = nullptr;
    size_t size = kUntold; ///< bytes of picture data
    size_t width = 0;
    size_t height = 0;
    uint64_t pixelFormat = 0;
    uint64_t frameId = 0;
    std::optional<uint64_t> cameraTime;   ///< in ticks of the camera
    std::optional<uint64_t> cameraTimeNs; ///< in nanoseconds
    uint32_t offsetX = 0;                 ///< of the region on the sensor, in pixels; 0 where it is not told
    uint32_t offsetY = 0;                 ///< in lines
    bool incomplete = false;
    std::chrono::steady_clock::time_point arrived; ///< when the producer gave it
    std::string refusal;                           ///< why nothing of the frame may be read; empty for a good one
};

/// PFNC names the bits of a pixel in its formats; 0 for what is none of them.
size_t BitsPerPixel(uint64_t pixelFormat);

/// Why nothing of the frame may be read, in words; empty when its `size` bytes lie within the `announced` bytes of its
/// buffer and a picture of its width, height and pixel format would fit there too.
std::string WhyRefused(const Frame& frame, size_t announced);

} // namespace nq::tool
