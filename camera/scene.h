// SPDX-License-Identifier: Apache-2.0
// A drawn scene for eyes: machined parts pass below the camera on a conveyor belt.
#pragma once

#include "rgb_picture.h"

#include <cstdint>
#include <vector>

namespace nq::camera
{

/// Whatever can be drawn once is drawn by the constructor; a frame is then a few copies. Not safe for concurrent use.
class Scene
{
  public:
    /// Sizes in pixels, at least 1.
    Scene(std::uint32_t width, std::uint32_t height);

    /// The scene of a frame, valid until the next call. The belt moves on with the frame id.
    const RgbPicture& Draw(std::uint64_t frameId);

  private:
    /// A part and how much it covers of what is below: 0 to 255.
    struct Sprite
    {
        RgbPicture picture;
        std::vector<std::uint8_t> cover;
    };

    void DrawFrame();
    void DrawBelt();
    void DrawParts(std::uint32_t radius);
    void MoveBelt(std::uint64_t distance);
    void Place(const Sprite& sprite, std::int64_t left, std::int64_t top);

    /// First and one past the last row of the belt.
    std::uint32_t m_beltTop;
    std::uint32_t m_beltEnd;
    /// Pixels after which the belt looks the same, and from one part to the next.
    std::uint32_t m_period;
    std::uint32_t m_spacing;
    /// The belt, wider than the picture by one period.
    RgbPicture m_belt;
    std::vector<Sprite> m_parts;
    RgbPicture m_picture;
};

} // namespace nq::camera
