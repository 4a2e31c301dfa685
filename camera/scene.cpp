// SPDX-License-Identifier: Apache-2.0
// The conveyor belt and the parts on it.
#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace nq::camera
{

namespace
{

/// A point of a part; the part has a radius of about 1.
struct Point
{
    float x;
    float y;
};

/// Distance to the edge of a shape: below 0 inside.
using Shape = float (*)(Point);

float Circle(Point at, Point centre, float radius)
{
    return std::hypot(at.x - centre.x, at.y - centre.y) - radius;
}

/// The nearest of `count` circles around the middle.
float Holes(Point at, int count, float distance, float radius)
{
    const float step = 2 * std::numbers::pi_v<float> / static_cast<float>(count);
    const float angle = step * std::round(std::atan2(at.y, at.x) / step);
    return Circle(at, {distance * std::cos(angle), distance * std::sin(angle)}, radius);
}

float Gear(Point at)
{
    constexpr float kTeeth = 18;
    const float tooth = std::clamp(2.5F * std::sin(kTeeth * std::atan2(at.y, at.x)), -1.0F, 1.0F);
    const float outside = std::hypot(at.x, at.y) - 0.9F - 0.07F * tooth;
    return std::max({outside, -Circle(at, {0, 0}, 0.22F), -Holes(at, 5, 0.53F, 0.15F)});
}

float Nut(Point at)
{
    const float x = std::abs(at.x);
    const float y = std::abs(at.y);
    return std::max({0.866F * x + 0.5F * y - 0.72F, y - 0.72F, std::hypot(x, y) - 0.8F, -Circle(at, {0, 0}, 0.4F)});
}

float Flange(Point at)
{
    return std::max({Circle(at, {0, 0}, 0.92F), -Circle(at, {0, 0}, 0.45F), -Holes(at, 8, 0.7F, 0.09F)});
}

struct PartKind
{
    Shape shape;
    Rgb metal;
};

/// Steel, brass, copper.
constexpr std::array<PartKind, 3> kParts{{{Gear, {196, 204, 214}}, {Nut, {222, 184, 92}}, {Flange, {206, 132, 96}}}};

/// How bright turned metal is at a point, with a bevelled edge in a light from the upper left.
float Brightness(Shape shape, Point at)
{
    constexpr float kBevel = 0.07F;
    constexpr float kStep = 0.004F;
    const float depth = -shape(at);
    const float glow = 0.16F * std::cos(2 * (std::atan2(at.y, at.x) - 0.8F));
    const float grooves = 0.02F * std::sin(160 * std::hypot(at.x, at.y));
    float light = 0.72F + glow + grooves;
    if (depth < kBevel)
    {
        const float slopeX = shape({at.x + kStep, at.y}) - shape({at.x - kStep, at.y});
        const float slopeY = shape({at.x, at.y + kStep}) - shape({at.x, at.y - kStep});
        light += 0.3F * (1 - depth / kBevel) * (-slopeX - slopeY) / (2 * kStep);
    }
    return std::clamp(light, 0.1F, 1.15F);
}

Rgb Scaled(const Rgb& colour, float light)
{
    Rgb result{};
    for (std::size_t i = 0; i < colour.size(); ++i)
    {
        result[i] = static_cast<std::uint8_t>(std::clamp(static_cast<float>(colour[i]) * light, 0.0F, 255.0F));
    }
    return result;
}

/// The same for the same place, and without a pattern to the eye: -1 to 1.
float Grain(std::uint32_t x, std::uint32_t y)
{
    std::uint32_t state = x * 0x9E3779B1U ^ y * 0x85EBCA77U;
    state ^= state >> 15;
    state *= 0x2C1B3C6DU;
    state ^= state >> 12;
    return static_cast<float>(state & 0xFFFFU) / 32768.0F - 1;
}

} // namespace

Scene::Scene(std::uint32_t width, std::uint32_t height)
    : m_beltTop(height / 6), m_beltEnd(height - height / 6), m_period(std::max(1U, height / 4)),
      m_spacing(std::max(2U, height / 2)), m_belt(width + m_period, m_beltEnd - m_beltTop), m_picture(width, height)
{
    DrawFrame();
    DrawBelt();
    DrawParts(height / 5);
}

/// What stands still: the rails beside the belt, brighter towards the middle of the picture.
void Scene::DrawFrame()
{
    const auto middle = static_cast<float>(m_picture.width) / 2;
    for (std::uint32_t y = 0; y < m_picture.height; ++y)
    {
        const std::uint32_t off = y < m_beltTop ? m_beltTop - y : y < m_beltEnd ? 0 : y - m_beltEnd + 1;
        const float across = static_cast<float>(off) / static_cast<float>(std::max(1U, m_beltTop));
        const float edge = across < 0.16F ? 0.35F : 1.0F - 0.35F * across;
        for (std::uint32_t x = 0; x < m_picture.width; ++x)
        {
            const float side = (static_cast<float>(x) - middle) / middle;
            m_picture.At(x, y) = Scaled({92, 116, 140}, edge * (1.05F - 0.5F * side * side) + 0.02F * Grain(x, y));
        }
    }
}

void Scene::DrawBelt()
{
    const std::uint32_t seam = std::max(1U, m_period / 40);
    for (std::uint32_t y = 0; y < m_belt.height; ++y)
    {
        const float across = static_cast<float>(y) / static_cast<float>(m_belt.height) - 0.5F;
        for (std::uint32_t x = 0; x < m_belt.width; ++x)
        {
            const std::uint32_t at = x % m_period;
            const float relief = at < seam ? 0.55F : at < 2 * seam ? 1.3F : 1.0F;
            m_belt.At(x, y) = Scaled({58, 64, 70}, relief * (1.1F - 1.4F * across * across) + 0.09F * Grain(at, y));
        }
    }
}

/// Each part with a soft shadow to its lower right.
void Scene::DrawParts(std::uint32_t radius)
{
    if (radius < 2)
    {
        return;
    }
    const std::uint32_t side = radius * 5 / 2;
    const float pixel = 1.0F / static_cast<float>(radius);
    for (const PartKind& kind : kParts)
    {
        Sprite sprite{RgbPicture(side, side), std::vector<std::uint8_t>(std::size_t{side} * side)};
        for (std::uint32_t y = 0; y < side; ++y)
        {
            for (std::uint32_t x = 0; x < side; ++x)
            {
                const Point at{static_cast<float>(x) * pixel - 1.15F, static_cast<float>(y) * pixel - 1.15F};
                const float metal = std::clamp(0.5F - kind.shape(at) / pixel, 0.0F, 1.0F);
                const float shadow =
                    0.6F * std::clamp(0.5F - kind.shape({at.x - 0.07F, at.y - 0.09F}) / 0.12F, 0.0F, 1.0F);
                const float cover = metal + (1 - metal) * shadow;
                sprite.picture.At(x, y) =
                    Scaled(kind.metal, cover > 0 ? Brightness(kind.shape, at) * metal / cover : 0.0F);
                sprite.cover[std::size_t{y} * side + x] = static_cast<std::uint8_t>(255 * cover);
            }
        }
        m_parts.push_back(std::move(sprite));
    }
}

void Scene::MoveBelt(std::uint64_t distance)
{
    // The belt moves to the right, so what is seen begins further to the left on it.
    const auto begin = static_cast<std::uint32_t>((m_period - distance % m_period) % m_period);
    for (std::uint32_t y = 0; y < m_belt.height; ++y)
    {
        std::memcpy(&m_picture.At(0, m_beltTop + y), &m_belt.At(begin, y), sizeof(Rgb) * m_picture.width);
    }
}

void Scene::Place(const Sprite& sprite, std::int64_t left, std::int64_t top)
{
    const std::int64_t first = std::max<std::int64_t>(0, -left);
    const std::int64_t end = std::min<std::int64_t>(sprite.picture.width, m_picture.width - left);
    for (std::uint32_t y = 0; y < sprite.picture.height; ++y)
    {
        for (std::int64_t x = first; x < end; ++x)
        {
            const Rgb& over = sprite.picture.At(static_cast<std::uint32_t>(x), y);
            const unsigned cover = sprite.cover[std::size_t{y} * sprite.picture.width + static_cast<std::size_t>(x)];
            Rgb& under = m_picture.At(static_cast<std::uint32_t>(left + x), static_cast<std::uint32_t>(top) + y);
            for (std::size_t i = 0; cover != 0 && i < under.size(); ++i)
            {
                under[i] = static_cast<std::uint8_t>((over[i] * cover + under[i] * (255 - cover)) / 255);
            }
        }
    }
}

const RgbPicture& Scene::Draw(std::uint64_t frameId)
{
    const std::uint64_t perFrame = std::max(1U, m_picture.height / 128);
    const std::uint32_t side = m_parts.empty() ? 0 : m_parts[0].picture.width;
    // Enough parts that one which leaves has gone before it comes in again.
    const std::uint64_t kinds = kParts.size();
    const std::uint64_t count = (m_picture.width + side + m_spacing * kinds) / (m_spacing * kinds) * kinds;
    const std::uint64_t lap = count * m_spacing;
    const std::uint64_t distance = frameId % (lap * m_period) * perFrame;
    MoveBelt(distance);
    for (std::uint64_t i = 0; i < count && !m_parts.empty(); ++i)
    {
        const auto left = static_cast<std::int64_t>((distance + i * m_spacing) % lap) - side;
        const std::uint32_t sway = (m_belt.height - side) * static_cast<std::uint32_t>(i * 2 % 5) / 8;
        Place(m_parts[i % kinds], left, m_beltTop + (m_belt.height - side) / 4 + sway);
    }
    return m_picture;
}

} // namespace nq::camera
