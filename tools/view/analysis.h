// SPDX-License-Identifier: Apache-2.0
// What people read off a picture: values of pixels, a histogram, the values along a line. All in the numbers that the
// camera sent, before a mosaic became colours.
#pragma once

#include "view/live_picture.h"

#include <nlohmann/json.hpp>

namespace nq::tool::view
{

struct Spot
{
    size_t x = 0;
    size_t y = 0;
};

/// The values of a rectangle from `corner` on, row by row, at most 64 x 64 pixels and no further than the picture goes.
nlohmann::ordered_json PixelsJson(const ShownPicture& picture, Spot corner, size_t width, size_t height);

/// How many samples of each channel have the values of each of 256 equal parts of the range, with the least, the
/// largest and the mean value.
nlohmann::ordered_json HistogramJson(const ShownPicture& picture);

/// The values from one pixel to another, at most 4096 of them.
nlohmann::ordered_json LineJson(const ShownPicture& picture, Spot from, Spot to);

} // namespace nq::tool::view
