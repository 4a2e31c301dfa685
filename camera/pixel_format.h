// SPDX-License-Identifier: Apache-2.0
// The pixel formats of the virtual camera.
#pragma once

#include <array>
#include <cstdint>

namespace nq::camera
{

/// One row of the table of formats.
struct PixelFormat
{
    const char* name;
    /// Value of the PixelFormat feature and of the frame's format field (Pixel Format Naming Convention).
    std::uint32_t code;
    std::uint32_t bytesPerPixel;
    /// Number of equal-sized channels of a pixel.
    std::uint32_t channels;
    /// Number of different values of one channel.
    std::uint32_t levels;
    /// What it is, in one line.
    const char* tip;
};

constexpr std::array<PixelFormat, 6> kPixelFormats{{
    {"Mono8", 0x01080001, 1, 1, 256, "Brightness, 8 bits"},
    {"Mono10", 0x01100003, 2, 1, 1024, "Brightness, 10 bits in 2 bytes"},
    {"Mono12", 0x01100005, 2, 1, 4096, "Brightness, 12 bits in 2 bytes"},
    {"Mono16", 0x01100007, 2, 1, 65536, "Brightness, 16 bits"},
    {"BayerRG8", 0x01080009, 1, 1, 256, "One colour per pixel behind a Bayer filter, 8 bits"},
    {"RGB8", 0x02180014, 3, 3, 256, "Red, green and blue, 8 bits each"},
}};

/// The row with this code, or null.
constexpr const PixelFormat* FindPixelFormat(std::uint32_t code)
{
    for (const PixelFormat& format : kPixelFormats)
    {
        if (format.code == code)
        {
            return &format;
        }
    }
    return nullptr;
}

} // namespace nq::camera
