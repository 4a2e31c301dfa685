// SPDX-License-Identifier: Apache-2.0
// Draws the camera's pictures.
#include "picture_painter.h"

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

/// The brightness from 0 to 1 that the table has for this one, straight from one place to the next.
double LookUp(const std::vector<std::uint8_t>& table, double bright)
{
    if (table.empty())
    {
        return bright;
    }
    const double place = bright * kLastOfTable;
    const auto below = static_cast<std::size_t>(place);
    const double rest = place - static_cast<double>(below);
    const std::size_t above = std::min<std::size_t>(below + 1, kLastOfTable);
    return (table[below] * (1 - rest) + table[above] * rest) / kLastOfTable;
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
    const bool scene = m_settings.pattern == TestPattern::Scene || m_settings.pattern == TestPattern::Off ||
                       m_settings.pattern == TestPattern::FrameCounter;
    if (scene && !m_settings.images)
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
    switch (m_settings.pattern)
    {
    case TestPattern::ColorBar:
    case TestPattern::Black:
    case TestPattern::White:
    case TestPattern::GreyHorizontalRamp:
        return true;
    default:
        return false;
    }
}

void PicturePainter::PrepareRamp()
{
    const PixelFormat& format = m_settings.format;
    if (format.layout == PixelLayout::Yuv422 || format.SampleBits() % 8 != 0)
    {
        return; // no row of these can be copied from anywhere out of another
    }
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
    const std::uint32_t binned = m_settings.readout.binningX * m_settings.readout.binningY;
    for (std::size_t channel = 0; channel < m_samples.size(); ++channel)
    {
        const double balance = channel == kGrey ? 1 : development.balance[channel];
        m_samples[channel].resize(255 * binned + 1);
        for (std::size_t light = 0; light < m_samples[channel].size(); ++light)
        {
            const double exposed = static_cast<double>(light) / binned * development.factor * balance;
            const double bright = std::clamp((exposed + development.blackLevel) / 255, 0.0, 1.0);
            const double curved = development.gamma == 1 ? bright : std::pow(bright, development.gamma);
            // A little more, so that what is whole stays whole.
            m_samples[channel][light] =
                static_cast<std::uint16_t>(std::min(LookUp(development.table, curved) * top + 1e-6, top));
        }
    }
}

/// The sensor's first column or row for each of the picture's.
std::vector<std::uint32_t> PicturePainter::SensorPlaces(std::uint32_t count, std::uint32_t offset, std::uint32_t all,
                                                        std::uint32_t step, bool reversed)
{
    std::vector<std::uint32_t> places(count);
    for (std::uint32_t i = 0; i < count; ++i)
    {
        places[i] = (reversed ? all - 1 - offset - i : offset + i) * step;
    }
    return places;
}

template <typename Source>
void PicturePainter::Develop(const Source& source, std::span<std::uint8_t> pixels)
{
    const PixelFormat& format = m_settings.format;
    const Readout& readout = m_settings.readout;
    const auto columns = SensorPlaces(m_settings.width, readout.offsetX, readout.ColumnsOf(SensorWidth()),
                                      readout.binningX * readout.decimationX, readout.reverseX);
    const auto rows = SensorPlaces(m_settings.height, readout.offsetY, readout.RowsOf(SensorHeight()),
                                   readout.binningY * readout.decimationY, readout.reverseY);
    PixelWriter writer(format, pixels);
    std::uint64_t light = 0;
    for (std::uint32_t y = 0; y < m_settings.height; ++y)
    {
        for (std::uint32_t x = 0; x < m_settings.width; ++x)
        {
            // Red, green, blue and grey of the pixels that become one.
            std::array<std::uint32_t, 4> sums{};
            for (std::uint32_t i = 0; i < readout.binningX * readout.binningY; ++i)
            {
                const Rgb colour = source(columns[x] + i % readout.binningX, rows[y] + i / readout.binningX);
                sums[0] += colour[0];
                sums[1] += colour[1];
                sums[2] += colour[2];
                sums[kGrey] += Grey(colour);
            }
            light += PutPixel(writer, x, y, sums);
        }
    }
    writer.Finish();
    m_brightness = static_cast<double>(light) / (format.levels - 1) / m_settings.width / m_settings.height;
}

/// Puts the samples of one pixel; its brightness.
std::uint32_t PicturePainter::PutPixel(PixelWriter& writer, std::uint32_t x, std::uint32_t y,
                                       const std::array<std::uint32_t, 4>& sums) const
{
    const PixelFormat& format = m_settings.format;
    const auto sample = [&](std::size_t channel) { return std::uint32_t{m_samples[channel][sums[channel]]}; };
    if (format.layout == PixelLayout::Grey || format.layout == PixelLayout::Bayer)
    {
        const std::uint32_t value = sample(format.layout == PixelLayout::Grey ? kGrey : x % 2 + y % 2);
        writer.Put(value);
        return value;
    }
    const Rgb colour{static_cast<std::uint8_t>(sample(0)), static_cast<std::uint8_t>(sample(1)),
                     static_cast<std::uint8_t>(sample(2))};
    const std::uint32_t grey = Grey(colour);
    if (format.layout == PixelLayout::Yuv422)
    {
        const int difference =
            x % 2 == 0 ? (colour[2] - static_cast<int>(grey)) * 564 : (colour[0] - static_cast<int>(grey)) * 713;
        writer.Put(grey);
        writer.Put(static_cast<std::uint32_t>(std::clamp(128 + difference / 1000, 0, 255)));
        return grey;
    }
    for (std::uint32_t i = 0; i < 3; ++i)
    {
        writer.Put(colour[ChannelOf(format, i)]);
    }
    return grey;
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
    if (m_row.empty())
    {
        DrawRampBySample(frameId, pixels);
        return;
    }
    const std::size_t rowBytes = format.Bytes(m_settings.width);
    for (std::size_t y = 0; y < m_settings.height; ++y)
    {
        const std::size_t shift = (y + kFrameStep * frameId) % format.levels;
        std::memcpy(&pixels[y * rowBytes], &m_row[format.Bytes(shift)], rowBytes);
    }
}

void PicturePainter::DrawRampBySample(std::uint64_t frameId, std::span<std::uint8_t> pixels) const
{
    const PixelFormat& format = m_settings.format;
    PixelWriter writer(format, pixels);
    for (std::uint32_t y = 0; y < m_settings.height; ++y)
    {
        for (std::uint32_t x = 0; x < m_settings.width; ++x)
        {
            for (std::uint32_t sample = 0; sample < format.samples; ++sample)
            {
                // The second sample of YUV422 is blue in even columns and red in odd ones.
                const std::uint32_t channel = sample == 0 ? 0 : sample + x % 2;
                writer.Put(static_cast<std::uint32_t>(
                    (x + y + kFrameStep * frameId + std::uint64_t{kChannelStep} * channel) % format.levels));
            }
        }
    }
    writer.Finish();
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
    case TestPattern::Black:
        DevelopPicture(Plain(0), pixels);
        break;
    case TestPattern::White:
        DevelopPicture(Plain(255), pixels);
        break;
    case TestPattern::GreyHorizontalRamp:
        DevelopPicture(GreyRamp(0), pixels);
        break;
    case TestPattern::GreyHorizontalRampMoving:
        DevelopPicture(GreyRamp(frameId), pixels);
        break;
    case TestPattern::Off:
    case TestPattern::Scene:
        DevelopPicture(SceneOf(frameId), pixels);
        break;
    case TestPattern::FrameCounter: {
        RgbPicture picture = SceneOf(frameId);
        DrawNumber(picture, frameId);
        DevelopPicture(picture, pixels);
        break;
    }
    }
}

const RgbPicture& PicturePainter::SceneOf(std::uint64_t frameId)
{
    const auto& images = m_settings.images;
    return images ? (*images)[frameId % images->size()] : m_scene->Draw(frameId);
}

} // namespace nq::camera
