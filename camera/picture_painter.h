// SPDX-License-Identifier: Apache-2.0
// Draws the camera's pictures.
#pragma once

#include "pixel_format.h"
#include "scene.h"

#include <cstdint>
#include <memory>
#include <span>
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

    bool operator==(const PictureSettings& other) const
    {
        return width == other.width && height == other.height && format.code == other.format.code &&
               pattern == other.pattern && images == other.images;
    }

    /// Bytes of one picture, without padding.
    std::uint64_t Payload() const { return std::uint64_t{width} * height * format.bytesPerPixel; }
};

/// Draws frame by frame. MovingRamp follows one formula, so that a consumer can check every byte:
///
///     value(x, y, c) = (x + y + 7 * frameId + 85 * c) modulo levels
///
/// with x and y counted from the picture's upper left corner, c the channel (0 but for the green and blue of RGB8) and
/// levels 256, 1024, 4096 or 65536 by pixel format. Two-byte values lie with the least significant byte first. A row is
/// one copy out of a prepared ramp.
///
/// Scene is for eyes. Its colours become brightness in a format without any, and the filter's in a Bayer format; images
/// of another size are scaled. Not safe for concurrent use.
class PicturePainter
{
  public:
    explicit PicturePainter(const PictureSettings& settings);

    const PictureSettings& Settings() const { return m_settings; }

    /// Whether all frames look the same.
    bool IsStill() const { return m_settings.pattern == TestPattern::ColorBar; }

    /// Fills `pixels`, which holds Payload() bytes.
    void Draw(std::uint64_t frameId, std::span<std::uint8_t> pixels);

  private:
    void PrepareRamp();
    void PrepareBars();
    void DrawNoise(std::uint64_t frameId, std::span<std::uint8_t> pixels) const;
    void DrawColours(const RgbPicture& picture, std::span<std::uint8_t> pixels) const;
    void PutPixel(std::size_t index, std::uint32_t channel, std::uint32_t value);

    PictureSettings m_settings;
    /// The source of all rows: a ramp longer than a row by its period, or one row of bars.
    std::vector<std::uint8_t> m_row;
    /// Null where no scene is to be drawn.
    std::unique_ptr<Scene> m_scene;
};

} // namespace nq::camera
