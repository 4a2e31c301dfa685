// SPDX-License-Identifier: Apache-2.0
// Draws the camera's pictures.
#include "picture_painter.h"

#include "byte_order.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace nq::camera
{

namespace
{

constexpr std::uint32_t kChannelStep = 85;
constexpr std::uint32_t kFrameStep = 7;
constexpr std::uint32_t kBayerRg8 = 0x01080009;

} // namespace

PicturePainter::PicturePainter(const PictureSettings& settings) : m_settings(settings)
{
    if (m_settings.pattern == TestPattern::MovingRamp)
    {
        PrepareRamp();
    }
    else if (m_settings.pattern == TestPattern::ColorBar)
    {
        PrepareBars();
    }
    else if (m_settings.pattern == TestPattern::Scene && !m_settings.images)
    {
        m_scene = std::make_unique<Scene>(m_settings.width, m_settings.height);
    }
}

void PicturePainter::PutPixel(std::size_t index, std::uint32_t channel, std::uint32_t value)
{
    const PixelFormat& format = m_settings.format;
    const std::size_t channelBytes = format.bytesPerPixel / format.channels;
    std::uint8_t* at = &m_row[index * format.bytesPerPixel + channel * channelBytes];
    if (channelBytes == 1)
    {
        *at = static_cast<std::uint8_t>(value);
    }
    else
    {
        PutLittle(at, static_cast<std::uint16_t>(value));
    }
}

void PicturePainter::PrepareRamp()
{
    const PixelFormat& format = m_settings.format;
    const std::size_t pixels = std::size_t{m_settings.width} + format.levels;
    m_row.resize(pixels * format.bytesPerPixel);
    for (std::size_t i = 0; i < pixels; ++i)
    {
        for (std::uint32_t channel = 0; channel < format.channels; ++channel)
        {
            PutPixel(i, channel, static_cast<std::uint32_t>((i + std::size_t{kChannelStep} * channel) % format.levels));
        }
    }
}

void PicturePainter::PrepareBars()
{
    // White, yellow, cyan, green, magenta, red, blue, black; in a format without colour their brightness.
    constexpr std::array<std::array<std::uint32_t, 3>, 8> kBars{
        {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}}};
    const PixelFormat& format = m_settings.format;
    m_row.resize(std::size_t{m_settings.width} * format.bytesPerPixel);
    for (std::size_t x = 0; x < m_settings.width; ++x)
    {
        const auto& [red, green, blue] = kBars[x * kBars.size() / m_settings.width];
        const std::uint32_t top = format.levels - 1;
        if (format.channels == 3)
        {
            PutPixel(x, 0, red * top);
            PutPixel(x, 1, green * top);
            PutPixel(x, 2, blue * top);
        }
        else
        {
            PutPixel(x, 0, (299 * red + 587 * green + 114 * blue) * top / 1000);
        }
    }
}

void PicturePainter::DrawNoise(std::uint64_t frameId, std::span<std::uint8_t> pixels) const
{
    std::uint64_t state = (frameId + 1) * 0x9E3779B97F4A7C15;
    const auto highByteMask = static_cast<std::uint8_t>((m_settings.format.levels - 1) >> 8);
    const bool twoBytes = m_settings.format.bytesPerPixel == 2;
    for (std::size_t i = 0; i < pixels.size(); i += sizeof(state))
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(&pixels[i], &state, std::min(sizeof(state), pixels.size() - i));
    }
    for (std::size_t i = 1; twoBytes && i < pixels.size(); i += 2)
    {
        pixels[i] &= highByteMask;
    }
}

void PicturePainter::DrawColours(const RgbPicture& picture, std::span<std::uint8_t> pixels) const
{
    const auto& [width, height, format, pattern, images] = m_settings;
    std::uint8_t* to = pixels.data();
    for (std::uint32_t y = 0; y < height; ++y)
    {
        const auto row = static_cast<std::uint32_t>(std::uint64_t{y} * picture.height / height);
        for (std::uint32_t x = 0; x < width; ++x)
        {
            const Rgb& colour = picture.At(static_cast<std::uint32_t>(std::uint64_t{x} * picture.width / width), row);
            const auto& [red, green, blue] = colour;
            if (format.channels == 3)
            {
                to = std::copy(colour.begin(), colour.end(), to);
                continue;
            }
            // RG in even rows of a Bayer picture, GB in odd ones.
            const std::uint32_t grey = (299U * red + 587U * green + 114U * blue) / 1000;
            const std::uint32_t value = format.code == kBayerRg8 ? colour[x % 2 + y % 2] : grey;
            if (format.bytesPerPixel == 1)
            {
                *to++ = static_cast<std::uint8_t>(value);
                continue;
            }
            PutLittle(to, static_cast<std::uint16_t>(value * (format.levels - 1) / 255));
            to += 2;
        }
    }
}

void PicturePainter::Draw(std::uint64_t frameId, std::span<std::uint8_t> pixels)
{
    if (m_settings.pattern == TestPattern::Scene)
    {
        const auto& images = m_settings.images;
        DrawColours(images ? (*images)[frameId % images->size()] : m_scene->Draw(frameId), pixels);
        return;
    }
    if (m_settings.pattern == TestPattern::Noise)
    {
        DrawNoise(frameId, pixels);
        return;
    }
    const PixelFormat& format = m_settings.format;
    const std::size_t rowBytes = std::size_t{m_settings.width} * format.bytesPerPixel;
    for (std::size_t y = 0; y < m_settings.height; ++y)
    {
        const std::size_t shift =
            m_settings.pattern == TestPattern::MovingRamp ? (y + kFrameStep * frameId) % format.levels : 0;
        std::memcpy(&pixels[y * rowBytes], &m_row[shift * format.bytesPerPixel], rowBytes);
    }
}

} // namespace nq::camera
