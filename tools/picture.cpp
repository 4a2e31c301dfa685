// SPDX-License-Identifier: Apache-2.0
// A copied frame, and what viewers want of it: samples of 8 or 16 bits in rows.
#include "picture.h"

#include "exit_codes.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <utility>

namespace nq::tool
{

namespace
{

/// Which colour lies in the upper left corner of a Bayer mosaic: its column and row of red.
struct Mosaic
{
    size_t redX;
    size_t redY;
};

constexpr Mosaic kRg{0, 0};
constexpr Mosaic kGr{1, 0};
constexpr Mosaic kGb{0, 1};
constexpr Mosaic kBg{1, 1};

/// How PFNC lays out one pixel format.
struct Layout
{
    uint64_t pixelFormat;
    const char* name;
    uint8_t bits;        ///< of one sample
    bool packed = false; ///< samples follow each other bit by bit, the lowest first
    uint8_t channels = 1;
    bool blueFirst = false;
    const Mosaic* mosaic = nullptr;
};

constexpr Layout kLayouts[] = {
    {0x01080001, "Mono8", 8},
    {0x01100003, "Mono10", 10},
    {0x01100005, "Mono12", 12},
    {0x01100025, "Mono14", 14},
    {0x01100007, "Mono16", 16},
    {0x010A0046, "Mono10p", 10, true},
    {0x010C0047, "Mono12p", 12, true},
    {0x02180014, "RGB8", 8, false, 3},
    {0x02180015, "BGR8", 8, false, 3, true},
    {0x02300018, "RGB10", 10, false, 3},
    {0x0230001A, "RGB12", 12, false, 3},
    {0x02300033, "RGB16", 16, false, 3},
    {0x01080008, "BayerGR8", 8, false, 1, false, &kGr},
    {0x01080009, "BayerRG8", 8, false, 1, false, &kRg},
    {0x0108000A, "BayerGB8", 8, false, 1, false, &kGb},
    {0x0108000B, "BayerBG8", 8, false, 1, false, &kBg},
    {0x0110000C, "BayerGR10", 10, false, 1, false, &kGr},
    {0x0110000D, "BayerRG10", 10, false, 1, false, &kRg},
    {0x0110000E, "BayerGB10", 10, false, 1, false, &kGb},
    {0x0110000F, "BayerBG10", 10, false, 1, false, &kBg},
    {0x01100010, "BayerGR12", 12, false, 1, false, &kGr},
    {0x01100011, "BayerRG12", 12, false, 1, false, &kRg},
    {0x01100012, "BayerGB12", 12, false, 1, false, &kGb},
    {0x01100013, "BayerBG12", 12, false, 1, false, &kBg},
    {0x0110002E, "BayerGR16", 16, false, 1, false, &kGr},
    {0x0110002F, "BayerRG16", 16, false, 1, false, &kRg},
    {0x01100030, "BayerGB16", 16, false, 1, false, &kGb},
    {0x01100031, "BayerBG16", 16, false, 1, false, &kBg},
    {0x010A0052, "BayerBG10p", 10, true, 1, false, &kBg},
    {0x010C0053, "BayerBG12p", 12, true, 1, false, &kBg},
    {0x010A0054, "BayerGB10p", 10, true, 1, false, &kGb},
    {0x010C0055, "BayerGB12p", 12, true, 1, false, &kGb},
    {0x010A0056, "BayerGR10p", 10, true, 1, false, &kGr},
    {0x010C0057, "BayerGR12p", 12, true, 1, false, &kGr},
    {0x010A0058, "BayerRG10p", 10, true, 1, false, &kRg},
    {0x010C0059, "BayerRG12p", 12, true, 1, false, &kRg},
};

const Layout* FindLayout(uint64_t pixelFormat)
{
    return std::find_if(std::begin(kLayouts), std::end(kLayouts),
                        [&](const Layout& layout) { return layout.pixelFormat == pixelFormat; });
}

const Layout& LayoutOf(uint64_t pixelFormat)
{
    const auto* const found = FindLayout(pixelFormat);
    if (found == std::end(kLayouts))
    {
        throw ToolFailure(
            ExitCode::Failure,
            fmt::format("pixel format 0x{:08x} has no form as a picture; --format raw writes any", pixelFormat));
    }
    return *found;
}

/// Sample `index` of a format with more than 8 bits, moved to the top of 16.
uint16_t WideSample(const std::vector<uint8_t>& bytes, const Layout& layout, size_t index)
{
    const size_t first = layout.packed ? index * layout.bits : index * 16;
    const auto byte = [&](size_t at) { return at < bytes.size() ? static_cast<unsigned>(bytes[at]) : 0U; };
    const unsigned word = byte(first / 8) | byte(first / 8 + 1) << 8;
    return static_cast<uint16_t>(word >> first % 8 << (16 - layout.bits));
}

/// The mean of the pixels of each colour in the three by three around (x, y); of its own colour the pixel alone.
template <class Sample>
void Debayer(const Sample* from, Sample* to, size_t width, size_t height, const Mosaic& mosaic)
{
    const auto colour = [&](size_t x, size_t y) { return ((x + mosaic.redX) & 1) + ((y + mosaic.redY) & 1); };
    for (size_t y = 0; y < height; ++y)
    {
        for (size_t x = 0; x < width; ++x)
        {
            uint32_t sum[3] = {};
            uint32_t count[3] = {};
            for (size_t row = y - std::min<size_t>(y, 1); row < std::min(y + 2, height); ++row)
            {
                for (size_t column = x - std::min<size_t>(x, 1); column < std::min(x + 2, width); ++column)
                {
                    sum[colour(column, row)] += from[row * width + column];
                    ++count[colour(column, row)];
                }
            }
            const size_t own = colour(x, y);
            sum[own] = from[y * width + x];
            count[own] = 1;
            for (size_t channel = 0; channel < 3; ++channel)
            {
                *to++ = static_cast<Sample>(count[channel] == 0 ? 0 : sum[channel] / count[channel]);
            }
        }
    }
}

Samples Debayered(const Samples& grey, const Mosaic& mosaic)
{
    Samples colour = grey;
    colour.channels = 3;
    colour.bytes.resize(grey.bytes.size() * 3);
    if (grey.bits == 8)
    {
        Debayer(grey.bytes.data(), colour.bytes.data(), grey.width, grey.height, mosaic);
    }
    else
    {
        Debayer(reinterpret_cast<const uint16_t*>(grey.bytes.data()), reinterpret_cast<uint16_t*>(colour.bytes.data()),
                grey.width, grey.height, mosaic);
    }
    return colour;
}

} // namespace

Picture CopyOf(const Frame& frame, std::chrono::system_clock::time_point arrival, std::vector<uint8_t> memory)
{
    const size_t bits = BitsPerPixel(frame.pixelFormat);
    const size_t size = bits == 0 ? frame.size : (frame.width * frame.height * bits + 7) / 8;
    memory.assign(frame.data, frame.data + std::min(size, frame.size));
    memory.resize(size);
    Picture picture{frame.width, frame.height, frame.pixelFormat, frame.frameId, arrival, std::move(memory)};
    picture.cameraTime = frame.cameraTime.value_or(0);
    picture.offsetX = frame.offsetX;
    picture.offsetY = frame.offsetY;
    return picture;
}

bool HasForm(uint64_t pixelFormat)
{
    return FindLayout(pixelFormat) != std::end(kLayouts);
}

std::optional<uint64_t> PixelFormatOf(const std::string& name)
{
    const auto* const found = std::find_if(std::begin(kLayouts), std::end(kLayouts),
                                           [&](const Layout& layout) { return layout.name == name; });
    return found == std::end(kLayouts) ? std::nullopt : std::optional(found->pixelFormat);
}

Samples SamplesOf(const Picture& picture, bool debayer)
{
    const Layout& layout = LayoutOf(picture.pixelFormat);
    Samples samples{picture.width, picture.height, layout.channels, layout.bits == 8 ? 8U : 16U, layout.bits, {}};
    const size_t count = picture.width * picture.height * layout.channels;
    if (layout.bits == 8)
    {
        samples.bytes = picture.bytes;
    }
    else
    {
        samples.bytes.resize(count * 2);
        for (size_t index = 0; index < count; ++index)
        {
            const uint16_t sample = WideSample(picture.bytes, layout, index);
            std::memcpy(&samples.bytes[index * 2], &sample, sizeof sample);
        }
    }
    for (size_t at = 0; layout.blueFirst && at < samples.bytes.size(); at += 3)
    {
        std::swap(samples.bytes[at], samples.bytes[at + 2]);
    }
    return debayer && layout.mosaic != nullptr ? Debayered(samples, *layout.mosaic) : samples;
}

} // namespace nq::tool
