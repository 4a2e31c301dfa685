// SPDX-License-Identifier: Apache-2.0
// A picture in colour, whatever the camera makes of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nq::camera
{

using Rgb = std::array<std::uint8_t, 3>;

/// Rows from the top, without padding.
struct RgbPicture
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<Rgb> pixels;

    RgbPicture() = default;
    RgbPicture(std::uint32_t columns, std::uint32_t rows)
        : width(columns), height(rows), pixels(std::size_t{columns} * rows)
    {
    }

    Rgb& At(std::uint32_t x, std::uint32_t y) { return pixels[std::size_t{y} * width + x]; }
    const Rgb& At(std::uint32_t x, std::uint32_t y) const { return pixels[std::size_t{y} * width + x]; }
};

} // namespace nq::camera
