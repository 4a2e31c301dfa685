// SPDX-License-Identifier: Apache-2.0
// Patterns that lie on the sensor instead of light.
#include "test_patterns.h"

namespace nq::camera
{

const RgbPicture& ColourBars()
{
    static const RgbPicture bars = [] {
        RgbPicture picture(8, 1);
        picture.pixels = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                          {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
        return picture;
    }();
    return bars;
}

Rgb Noise(std::uint64_t frameId, std::uint64_t x, std::uint64_t y, bool grey)
{
    std::uint64_t state = (frameId + 1) * 0x9E3779B97F4A7C15 + (y << 32) + x;
    state = (state ^ (state >> 30)) * 0xBF58476D1CE4E5B9;
    state = (state ^ (state >> 27)) * 0x94D049BB133111EB;
    const auto red = static_cast<std::uint8_t>(state >> 32);
    return grey ? Rgb{red, red, red}
                : Rgb{red, static_cast<std::uint8_t>(state >> 40), static_cast<std::uint8_t>(state >> 48)};
}

} // namespace nq::camera
