// SPDX-License-Identifier: Apache-2.0
// What people read off a picture: values of pixels, a histogram, the values along a line.
#include "view/analysis.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace nq::tool::view
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr size_t kMostPixels = 64;
constexpr size_t kMostSteps = 4095;
constexpr size_t kBins = 256;

/// One sample as the number that the camera sent.
unsigned ValueAt(const Samples& samples, size_t index)
{
    if (samples.bits == 8)
    {
        return samples.bytes[index];
    }
    uint16_t sample = 0;
    std::memcpy(&sample, &samples.bytes[index * 2], sizeof sample);
    return static_cast<unsigned>(sample) >> (16 - samples.significant);
}

Json PixelJson(const Samples& samples, Spot spot)
{
    Json values = Json::array();
    for (size_t channel = 0; channel < samples.channels; ++channel)
    {
        values.push_back(ValueAt(samples, (spot.y * samples.width + spot.x) * samples.channels + channel));
    }
    return values;
}

Spot Inside(const Samples& samples, Spot spot)
{
    return {std::min(spot.x, samples.width - 1), std::min(spot.y, samples.height - 1)};
}

/// What all of these answers tell.
Json Begun(const ShownPicture& picture)
{
    return {{"frame_id", picture.frameId},
            {"channels", picture.samples.channels},
            {"largest", (1U << picture.samples.significant) - 1}};
}

struct Channel
{
    std::vector<uint64_t> bins = std::vector<uint64_t>(kBins);
    unsigned least = UINT32_MAX;
    unsigned largest = 0;
    double sum = 0;
};

} // namespace

Json PixelsJson(const ShownPicture& picture, Spot corner, size_t width, size_t height)
{
    const Samples& samples = picture.samples;
    corner = Inside(samples, corner);
    width = std::min({width, kMostPixels, samples.width - corner.x});
    height = std::min({height, kMostPixels, samples.height - corner.y});
    Json values = Json::array();
    for (size_t row = 0; row < height; ++row)
    {
        for (size_t column = 0; column < width; ++column)
        {
            values.push_back(PixelJson(samples, {corner.x + column, corner.y + row}));
        }
    }
    Json json = Begun(picture);
    json.update(Json{{"x", corner.x}, {"y", corner.y}, {"width", width}, {"height", height}, {"values", values}});
    return json;
}

Json HistogramJson(const ShownPicture& picture)
{
    const Samples& samples = picture.samples;
    std::vector<Channel> channels(samples.channels);
    const size_t count = samples.width * samples.height;
    for (size_t index = 0; index < count * samples.channels; ++index)
    {
        Channel& channel = channels[index % samples.channels];
        const unsigned value = ValueAt(samples, index);
        ++channel.bins[value >> (samples.significant - 8)];
        channel.least = std::min(channel.least, value);
        channel.largest = std::max(channel.largest, value);
        channel.sum += value;
    }
    Json json = Begun(picture);
    json["histograms"] = Json::array();
    for (const Channel& channel : channels)
    {
        json["histograms"].push_back({{"bins", channel.bins},
                                      {"least", channel.least},
                                      {"largest", channel.largest},
                                      {"mean", channel.sum / static_cast<double>(count)}});
    }
    return json;
}

Json LineJson(const ShownPicture& picture, Spot from, Spot to)
{
    const Samples& samples = picture.samples;
    from = Inside(samples, from);
    to = Inside(samples, to);
    const double across = static_cast<double>(to.x) - static_cast<double>(from.x);
    const double down = static_cast<double>(to.y) - static_cast<double>(from.y);
    const auto longest = static_cast<size_t>(std::max(std::fabs(across), std::fabs(down)));
    const size_t steps = std::min(longest, kMostSteps);
    Json values = Json::array();
    for (size_t step = 0; step <= steps; ++step)
    {
        const double part = steps == 0 ? 0 : static_cast<double>(step) / static_cast<double>(steps);
        const auto x = static_cast<size_t>(std::lround(static_cast<double>(from.x) + part * across));
        const auto y = static_cast<size_t>(std::lround(static_cast<double>(from.y) + part * down));
        values.push_back(PixelJson(samples, {x, y}));
    }
    Json json = Begun(picture);
    json["values"] = values;
    return json;
}

} // namespace nq::tool::view
