// SPDX-License-Identifier: Apache-2.0
// Patterns that lie on the sensor instead of light.
#pragma once

#include "rgb_picture.h"

#include <cstdint>

namespace nq::camera
{

/// White, yellow, cyan, green, magenta, red, blue, black, one pixel each.
const RgbPicture& ColourBars();

/// The same for the same frame and place; with `grey` all three alike.
Rgb Noise(std::uint64_t frameId, std::uint64_t x, std::uint64_t y, bool grey);

} // namespace nq::camera
