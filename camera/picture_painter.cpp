// SPDX-License-Identifier: Apache-2.0
// Draws the camera's pictures.
#include "picture_painter.h"

#include "pixel_writer.h"
#include "test_patterns.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nq::camera
{

namespace
{

constexpr std::uint32_t kChannelStep = 85;
constexpr std::uint32_t kFrameStep = 7;
constexpr std::size_t kGrey = 3;

/// Red, green and blue in this order, whatever the format's; a pixel of another layout has one sample.
std::uint32_t ChannelOf(const PixelFormat& format, std::uint32_t sample)
{
    return format.layout == PixelLayout::BgrOrder ? 2 - sample : sample;
}

std::uint32_t Grey(const Rgb& colour)
{
    return (299U * colour[0] + 587U * colour[1] + 114U * colour[2]) / 1000;
}

} // namespace

PicturePainter::PicturePainter(const PictureSettings& settings) : m_settings(settings)
{
    if (m_settings.pattern == TestPattern::MovingRamp)
    {
        PrepareRamp();
        return;
    }
    PrepareTables();
    if (m_settings.pattern == TestPattern::Scene && !m_settings.images)
    {
        m_scene = std::make_unique<Scene>(SensorWidth(), SensorHeight());
    }
}

std::uint32_t PicturePainter::SensorWidth() const
{
    return m_settings.readout.sensorWidth == 0 ? m_settings.width : m_settings.readout.sensorWidth;
}

std::uint32_t PicturePainter::SensorHeight() const
{
    return m_settings.readout.sensorHeight == 0 ? m_settings.height : m_settings.readout.sensorHeight;
}

bool PicturePainter::IsStill() const
{
    return m_settings.pattern == TestPattern::ColorBar;
}

void PicturePainter::PrepareRamp()
{
    const PixelFormat& format = m_settings.format;
    const std::size_t pixels = std::size_t{m_settings.width} + format.levels;
    m_row.resize(format.Bytes(pixels));
    PixelWriter writer(format, m_row);
    for (std::size_t i = 0; i < pixels; ++i)
    {
        for (std::uint32_t sample = 0; sample < format.samples; ++sample)
        {
            const std::size_t value = i + std::size_t{kChannelStep} * ChannelOf(format, sample);
            writer.Put(static_cast<std::uint32_t>(value % format.levels));
        }
    }
}

void PicturePainter::PrepareTables()
{
    const Development& development = m_settings.development;
    const double top = m_settings.format.levels - 1;
    for (std::vector<std::uint16_t>& table : m_samples)
    {
        table.resize(256);
        for (std::size_t light = 0; light < table.size(); ++light)
        {
            const double bright = (static_cast<double>(light) * development.factor + development.blackLevel) / 255;
            // A little more, so that what is whole stays whole.
            table[light] = static_cast<std::uint16_t>(std::clamp(bright, 0.0, 1.0) * top + 1e-6);
        }
    }
}

template <typename Source>
void PicturePainter::Develop(const Source& source, std::span<std::uint8_t> pixels)
{
    const PixelFormat& format = m_settings.format;
    const Readout& readout = m_settings.readout;
    PixelWriter writer(format, pixels);
    std::uint64_t light = 0;
    const auto put = [&](std::size_t channel, std::uint32_t value) {
        writer.Put(m_samples[channel][value]);
        light += m_samples[channel][value];
    };
    for (std::uint32_t y = 0; y < m_settings.height; ++y)
    {
        for (std::uint32_t x = 0; x < m_settings.width; ++x)
        {
            const Rgb colour = source(x + readout.offsetX, y + readout.offsetY);
            if (format.layout == PixelLayout::Grey)
            {
                put(kGrey, Grey(colour));
            }
            else if (format.layout == PixelLayout::Bayer)
            {
                put(x % 2 + y % 2, colour[x % 2 + y % 2]);
            }
            else
            {
                for (std::uint32_t sample = 0; sample < 3; ++sample)
                {
                    put(ChannelOf(format, sample), colour[ChannelOf(format, sample)]);
                }
            }
        }
    }
    writer.Finish();
    m_brightness =
        static_cast<double>(light) / (format.levels - 1) / m_settings.width / m_settings.height / format.samples;
}

void PicturePainter::DevelopPicture(const RgbPicture& picture, std::span<std::uint8_t> pixels)
{
    const std::uint64_t width = SensorWidth();
    const std::uint64_t height = SensorHeight();
    Develop(
        [&](std::uint64_t x, std::uint64_t y) {
            return picture.At(static_cast<std::uint32_t>(x * picture.width / width),
                              static_cast<std::uint32_t>(y * picture.height / height));
        },
        pixels);
}

void PicturePainter::DrawRamp(std::uint64_t frameId, std::span<std::uint8_t> pixels) const
{
    const PixelFormat& format = m_settings.format;
    const std::size_t rowBytes = format.Bytes(m_settings.width);
    for (std::size_t y = 0; y < m_settings.height; ++y)
    {
        const std::size_t shift = (y + kFrameStep * frameId) % format.levels;
        std::memcpy(&pixels[y * rowBytes], &m_row[format.Bytes(shift)], rowBytes);
    }
}

void PicturePainter::Draw(std::uint64_t frameId, std::span<std::uint8_t> pixels)
{
    switch (m_settings.pattern)
    {
    case TestPattern::MovingRamp:
        DrawRamp(frameId, pixels);
        break;
    case TestPattern::ColorBar:
        DevelopPicture(ColourBars(), pixels);
        break;
    case TestPattern::Noise: {
        const bool grey = m_settings.format.layout == PixelLayout::Grey;
        Develop([&](std::uint64_t x, std::uint64_t y) { return Noise(frameId, x, y, grey); }, pixels);
        break;
    }
    case TestPattern::Scene: {
        const auto& images = m_settings.images;
        DevelopPicture(images ? (*images)[frameId % images->size()] : m_scene->Draw(frameId), pixels);
        break;
    }
    }
}

} // namespace nq::camera
