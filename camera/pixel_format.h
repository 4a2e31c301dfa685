// SPDX-License-Identifier: Apache-2.0
// The pixel formats of the virtual camera.
#pragma once

#include <array>
#include <cstdint>

namespace nq::camera
{

/// What the samples of a pixel are.
enum class PixelLayout
{
    Grey,
    /// One colour per pixel: red and green in even rows, green and blue in odd ones.
    Bayer,
    RgbOrder,
    BgrOrder,
    /// Brightness, then blue difference in even columns and red difference in odd ones.
    Yuv422,
};

/// One row of the table of formats.
struct PixelFormat
{
    const char* name;
    /// Value of the PixelFormat feature and of the frame's format field (Pixel Format Naming Convention).
    std::uint32_t code;
    std::uint32_t bitsPerPixel;
    /// Number of equal-sized samples of a pixel.
    std::uint32_t samples;
    /// Number of different values of one sample.
    std::uint32_t levels;
    PixelLayout layout;
    /// What it is, in one line.
    const char* tip;

    /// Bits from one sample to the next.
    constexpr std::uint32_t SampleBits() const { return bitsPerPixel / samples; }
    /// Bytes of so many pixels that follow each other without a gap.
    constexpr std::uint64_t Bytes(std::uint64_t pixels) const { return (pixels * bitsPerPixel + 7) / 8; }
};

constexpr std::array<PixelFormat, 11> kPixelFormats{{
    {"Mono8", 0x01080001, 8, 1, 256, PixelLayout::Grey, "Brightness, 8 bits"},
    {"Mono10", 0x01100003, 16, 1, 1024, PixelLayout::Grey, "Brightness, 10 bits in 2 bytes"},
    {"Mono12", 0x01100005, 16, 1, 4096, PixelLayout::Grey, "Brightness, 12 bits in 2 bytes"},
    {"Mono16", 0x01100007, 16, 1, 65536, PixelLayout::Grey, "Brightness, 16 bits"},
    {"BayerRG8", 0x01080009, 8, 1, 256, PixelLayout::Bayer, "One colour per pixel behind a Bayer filter, 8 bits"},
    {"RGB8", 0x02180014, 24, 3, 256, PixelLayout::RgbOrder, "Red, green and blue, 8 bits each"},
    {"Mono10p", 0x010A0046, 10, 1, 1024, PixelLayout::Grey, "Brightness, 10 bits without a gap"},
    {"Mono12p", 0x010C0047, 12, 1, 4096, PixelLayout::Grey, "Brightness, 12 bits without a gap"},
    {"BayerRG12", 0x01100011, 16, 1, 4096, PixelLayout::Bayer,
     "One colour per pixel behind a Bayer filter, 12 bits in 2 bytes"},
    {"BGR8", 0x02180015, 24, 3, 256, PixelLayout::BgrOrder, "Blue, green and red, 8 bits each"},
    {"YUV422_8", 0x02100032, 16, 2, 256, PixelLayout::Yuv422,
     "Brightness of each pixel, colour of each two, 8 bits each"},
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
