// SPDX-License-Identifier: Apache-2.0
// Patterns that lie on the sensor instead of light.
#include "test_patterns.h"

#include <algorithm>
#include <array>

namespace nq::camera
{

const RgbPicture& ColourBars()
{
    static const RgbPicture kBars = [] {
        RgbPicture picture(8, 1);
        picture.pixels = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                          {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
        return picture;
    }();
    return kBars;
}

RgbPicture Plain(std::uint8_t grey)
{
    RgbPicture picture(1, 1);
    picture.pixels[0] = {grey, grey, grey};
    return picture;
}

RgbPicture GreyRamp(std::uint64_t shift)
{
    RgbPicture picture(256, 1);
    for (std::uint32_t x = 0; x < 256; ++x)
    {
        const auto grey = static_cast<std::uint8_t>(x + shift);
        picture.At(x, 0) = {grey, grey, grey};
    }
    return picture;
}

void DrawNumber(RgbPicture& picture, std::uint64_t number)
{
    // Three columns and five rows each, from the upper left, a bit for each dot.
    constexpr std::array<std::uint16_t, 10> kDigits{0x7B6F, 0x2C97, 0x73E7, 0x73CF, 0x5BC9,
                                                    0x79CF, 0x79EF, 0x7249, 0x7BEF, 0x7BCF};
    constexpr std::uint32_t kDot = 4;
    constexpr std::uint32_t kDigitCount = 10;
    constexpr std::uint32_t kWidth = 4 * kDot;
    constexpr std::uint32_t kHeight = 7 * kDot;
    for (std::uint32_t place = kDigitCount; place-- > 0; number /= 10)
    {
        const std::uint16_t dots = kDigits[number % 10];
        for (std::uint32_t y = 0; y < std::min(kHeight, picture.height); ++y)
        {
            for (std::uint32_t x = place * kWidth; x < std::min((place + 1) * kWidth, picture.width); ++x)
            {
                const std::uint32_t column = x % kWidth / kDot;
                const std::uint32_t row = y / kDot;
                const bool inside = column < 3 && row >= 1 && row < 6;
                const bool set = inside && ((dots >> (14 - 3 * (row - 1) - column)) & 1) != 0;
                picture.At(x, y) = set ? Rgb{255, 255, 255} : Rgb{0, 0, 0};
            }
        }
    }
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
