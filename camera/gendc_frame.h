// SPDX-License-Identifier: Apache-2.0
// The GenDC descriptor that stands before the pixels of a frame.
#pragma once

#include "picture_settings.h"

#include <cstdint>
#include <span>

namespace nq::camera
{

// Source: GenDC standard, container, component and 2D part headers; all numbers with the least significant byte first.
namespace gendc
{
constexpr std::uint32_t kContainerSize = 64;
constexpr std::uint32_t kComponentSize = 56;
constexpr std::uint32_t kPartSize = 56;
constexpr std::uint32_t kDescriptorSize = kContainerSize + kComponentSize + kPartSize;
constexpr std::uint32_t kFirstComponentOffsetAt = 56;
constexpr std::uint32_t kFirstPartOffsetAt = 112;
constexpr std::uint32_t kPart = kContainerSize + kComponentSize;
constexpr std::uint32_t kPartDataSizeAt = kPart + 24;
constexpr std::uint32_t kPartDataOffsetAt = kPart + 32;
static_assert(kDescriptorSize == 176);
static_assert(kPart == 120);
} // namespace gendc

/// What is told about one frame besides its pixels.
struct FrameTicket
{
    std::uint64_t id = 0;
    /// Nanoseconds of the camera's clock.
    std::uint64_t timestamp = 0;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    PictureSettings picture{};
};

/// Writes the 176 bytes in front of the pixels: one container with one component and one two-dimensional part.
void WriteGenDcDescriptor(const FrameTicket& ticket, std::span<std::uint8_t, gendc::kDescriptorSize> descriptor);

} // namespace nq::camera
