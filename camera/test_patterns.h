// SPDX-License-Identifier: Apache-2.0
// Patterns that lie on the sensor instead of light.
#pragma once

#include "rgb_picture.h"

#include <cstdint>

namespace nq::camera
{

/// White, yellow, cyan, green, magenta, red, blue, black, one pixel each.
const RgbPicture& ColourBars();

/// All of one grey, one pixel.
RgbPicture Plain(std::uint8_t grey);

/// From black to white in 256 pixels, moved to the left by so many.
RgbPicture GreyRamp(std::uint64_t shift);

/// Writes the number in ten digits into the upper left corner, white on black, as far as it finds room.
void DrawNumber(RgbPicture& picture, std::uint64_t number);

/// The same for the same frame and place; with `grey` all three alike.
Rgb Noise(std::uint64_t frameId, std::uint64_t x, std::uint64_t y, bool grey);

} // namespace nq::camera
