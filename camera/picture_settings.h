// SPDX-License-Identifier: Apache-2.0
// Everything that the look of a picture depends on.
#pragma once

#include "pixel_format.h"
#include "rgb_picture.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace nq::camera
{

/// Values of the TestPattern feature.
enum class TestPattern : std::uint32_t
{
    MovingRamp = 0,
    ColorBar = 1,
    Noise = 2,
    /// A drawn scene, or the pictures that the camera was given.
    Scene = 3,
    // The standard's names; the values between are kept for patterns of our own.
    Off = 16,
    Black = 17,
    White = 18,
    GreyHorizontalRamp = 19,
    GreyHorizontalRampMoving = 20,
    /// The scene with the frame id on it in digits.
    FrameCounter = 21,
};

/// Which part of the sensor a picture shows, and how.
struct Readout
{
    /// Pixels of the sensor; 0 for as many as the picture has.
    std::uint32_t sensorWidth = 0;
    std::uint32_t sensorHeight = 0;
    /// Of the picture, in its own pixels.
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    /// Pixels of the sensor that become one by their mean, and of those each how manyth is read.
    std::uint32_t binningX = 1;
    std::uint32_t binningY = 1;
    std::uint32_t decimationX = 1;
    std::uint32_t decimationY = 1;
    /// From right to left, from bottom to top; the whole picture, before size and offset cut out their part.
    bool reverseX = false;
    bool reverseY = false;

    /// Pixels of the whole picture.
    std::uint32_t ColumnsOf(std::uint32_t sensor) const { return sensor / (binningX * decimationX); }
    std::uint32_t RowsOf(std::uint32_t sensor) const { return sensor / (binningY * decimationY); }

    bool operator==(const Readout&) const = default;
};

/// Brightness in a look-up table goes from 0 to this.
constexpr std::uint32_t kLastOfTable = 255;

/// What becomes of the light that falls on the sensor.
struct Development
{
    /// By exposure time and gain; 1 leaves a picture as it is.
    double factor = 1;
    /// Added to all brightness, in levels of 8 bits.
    double blackLevel = 0;
    /// Exponent of the brightness between 0 and 1.
    double gamma = 1;
    /// Of red, green and blue in formats with colour.
    std::array<double, 3> balance{1, 1, 1};
    /// For each brightness in levels of 8 bits the one that is shown; empty for the same.
    std::vector<std::uint8_t> table{};

    bool operator==(const Development&) const = default;
};

/// Size and kind of the pictures of one stream.
struct PictureSettings
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    PixelFormat format = kPixelFormats[0];
    TestPattern pattern = TestPattern::MovingRamp;
    /// Null for none.
    std::shared_ptr<const std::vector<RgbPicture>> images = {};
    Readout readout = {};
    Development development = {};

    bool operator==(const PictureSettings& other) const
    {
        return width == other.width && height == other.height && format.code == other.format.code &&
               pattern == other.pattern && images == other.images && readout == other.readout &&
               development == other.development;
    }

    /// Bytes of one picture, without padding.
    std::uint64_t Payload() const { return format.Bytes(std::uint64_t{width} * height); }
};

} // namespace nq::camera
