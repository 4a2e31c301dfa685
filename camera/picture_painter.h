// SPDX-License-Identifier: Apache-2.0
// Draws the camera's pictures.
#pragma once

#include "picture_settings.h"
#include "pixel_writer.h"
#include "scene.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace nq::camera
{

/// Draws frame by frame. MovingRamp follows one formula, so that a consumer can check every byte:
///
///     value(x, y, c) = (x + y + 7 * frameId + 85 * c) modulo levels
///
/// with x and y counted from the picture's upper left corner, c the channel (0 but for green and blue, or the blue
/// and red difference of YUV422_8, 1 and 2) and levels 256, 1024, 4096 or 65536 by pixel format. A row is one copy out
/// of a prepared ramp where the format allows it.
///
/// All other patterns lie on the sensor in 8 bits per colour and are read out and developed: what a pixel shows depends
/// on where it lies, and how bright it is on exposure and gain. Colours become brightness in a format without any, and
/// the filter's in a Bayer format; images of another size are scaled to the sensor. Not safe for concurrent use.
class PicturePainter
{
  public:
    explicit PicturePainter(const PictureSettings& settings);

    const PictureSettings& Settings() const { return m_settings; }

    /// Whether all frames look the same.
    bool IsStill() const;

    /// Fills `pixels`, which holds Payload() bytes.
    void Draw(std::uint64_t frameId, std::span<std::uint8_t> pixels);

    /// How bright the picture drawn last is, from 0 to 1; nothing for MovingRamp, which no setting changes.
    std::optional<double> Brightness() const { return m_brightness; }

  private:
    void PrepareRamp();
    void PrepareTables();
    void DrawRamp(std::uint64_t frameId, std::span<std::uint8_t> pixels) const;
    void DrawRampBySample(std::uint64_t frameId, std::span<std::uint8_t> pixels) const;
    const RgbPicture& SceneOf(std::uint64_t frameId);
    static std::vector<std::uint32_t> SensorPlaces(std::uint32_t count, std::uint32_t offset, std::uint32_t all,
                                                   std::uint32_t step, bool reversed);
    std::uint32_t PutPixel(PixelWriter& writer, std::uint32_t x, std::uint32_t y,
                           const std::array<std::uint32_t, 4>& sums) const;
    template <typename Source>
    void Develop(const Source& source, std::span<std::uint8_t> pixels);
    /// The source lies scaled on the sensor.
    void DevelopPicture(const RgbPicture& picture, std::span<std::uint8_t> pixels);
    std::uint32_t SensorWidth() const;
    std::uint32_t SensorHeight() const;

    PictureSettings m_settings;
    /// A ramp longer than a row by its period; empty for a format whose rows are no copies out of one.
    std::vector<std::uint8_t> m_row;
    /// By the brightness of a sensor pixel, the sample of red, green and blue; the last is that of grey.
    std::array<std::vector<std::uint16_t>, 4> m_samples;
    std::optional<double> m_brightness;
    /// Null where no scene is to be drawn.
    std::unique_ptr<Scene> m_scene;
};

} // namespace nq::camera
