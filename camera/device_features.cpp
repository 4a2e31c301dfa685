// SPDX-License-Identifier: Apache-2.0
// What the camera's features allow, and what moves in them.
#include "device.h"

#include "feature_registers.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace nq::camera
{

using namespace feature;

namespace
{

/// What one RDMA message can hold everywhere, less the descriptor and some reserve.
constexpr std::uint64_t kLargestPayload = 0x3FFFF000;

/// Addresses of the features that user sets hold.
const std::vector<std::uint32_t>& UserSetRegisters()
{
    static const std::vector<std::uint32_t> addresses = [] {
        std::vector<std::uint32_t> found;
        for (const FeatureCategory& category : FeatureTable())
        {
            for (const Feature& feature : category.features)
            {
                for (std::uint32_t i = 0; feature.inUserSet && i < RegisterCount(feature); ++i)
                {
                    found.push_back(feature.address + 4 * i);
                }
            }
        }
        return found;
    }();
    return addresses;
}

} // namespace

GvcpStatus Device::Check(std::uint32_t address, std::uint32_t value) const
{
    const Feature* feature = FeatureAt(address);
    if (feature == nullptr)
    {
        return GvcpStatus::Success;
    }
    if (IsLocked(*feature))
    {
        return GvcpStatus::WriteProtect;
    }
    const bool asFastAsPossible = address == kAcquisitionFrameRate && value == 0;
    return asFastAsPossible || IsInRange(*feature, value) ? GvcpStatus::Success : GvcpStatus::InvalidParameter;
}

bool Device::IsLocked(const Feature& feature) const
{
    switch (feature.lock)
    {
    case Lock::Streaming:
        return Streaming();
    case Lock::Acquiring:
        return m_acquisition.Count().running;
    case Lock::Never:
        break;
    }
    return false;
}

double Device::Maximum(const Feature& feature) const
{
    // How many pixels there may be beside or below each pixel of the other direction.
    const auto room = [this](std::uint32_t other) {
        const std::uint64_t bytes = FindPixelFormat(m_registers.Get(kPixelFormat))->bytesPerPixel;
        return static_cast<double>(kLargestPayload / bytes / m_registers.Get(other));
    };
    switch (feature.address)
    {
    case kWidth:
        return std::min<double>(m_registers.Get(kWidthMax) - m_registers.Get(kOffsetX), room(kHeight));
    case kHeight:
        return std::min<double>(m_registers.Get(kHeightMax) - m_registers.Get(kOffsetY), room(kWidth));
    case kOffsetX:
        return m_registers.Get(kWidthMax) - m_registers.Get(kWidth);
    case kOffsetY:
        return m_registers.Get(kHeightMax) - m_registers.Get(kHeight);
    default:
        return feature.max;
    }
}

bool Device::FitsPixelFormat(std::uint32_t code) const
{
    const PixelFormat* format = FindPixelFormat(code);
    return format != nullptr &&
           std::uint64_t{m_registers.Get(kWidth)} * m_registers.Get(kHeight) * format->bytesPerPixel <= kLargestPayload;
}

bool Device::IsInRange(const Feature& feature, std::uint32_t value) const
{
    switch (feature.kind)
    {
    case FeatureKind::Integer:
        return value >= feature.min && value <= Maximum(feature) && std::fmod(value - feature.min, feature.step) == 0;
    case FeatureKind::Float: {
        const auto number = std::bit_cast<float>(value);
        // The limits as the register holds them, so that a host can write them.
        return number >= static_cast<float>(feature.min) && number <= static_cast<float>(Maximum(feature));
    }
    case FeatureKind::Enumeration:
        if (feature.address == kPixelFormat && !FitsPixelFormat(value))
        {
            return false;
        }
        return std::any_of(feature.entries.begin(), feature.entries.end(),
                           [value](const FeatureEntry& entry) { return entry.value == value; });
    case FeatureKind::Boolean:
        return value <= 1;
    default:
        return true;
    }
}

void Device::RefreshFeatures()
{
    m_registers.Set(kStreaming, Streaming() ? 1 : 0);
    m_registers.Set(kAcquiring, m_acquisition.Count().running ? 1 : 0);
    const std::uint64_t seconds = m_clock.Now() / DeviceClock::kTicksPerSecond;
    m_registers.SetFloat(kDeviceTemperature, 40.0F + static_cast<float>(seconds % 20) / 10.0F);
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            if (feature.movingMax && feature.kind == FeatureKind::Float)
            {
                m_registers.SetFloat(feature.address + kLimitOffset, static_cast<float>(Maximum(feature)));
            }
            else if (feature.movingMax)
            {
                m_registers.Set(feature.address + kLimitOffset, static_cast<std::uint32_t>(Maximum(feature)));
            }
        }
    }
}

void Device::LoadUserSet()
{
    const auto set = m_userSets.find(m_registers.Get(kUserSetSelector));
    if (set != m_userSets.end())
    {
        for (std::size_t i = 0; i < set->second.size(); ++i)
        {
            m_registers.Set(UserSetRegisters()[i], set->second[i]);
        }
        ApplySettings();
    }
}

void Device::SaveUserSet()
{
    const std::uint32_t selected = m_registers.Get(kUserSetSelector);
    if (selected == 0 && !m_userSets.empty())
    {
        return; // set 0 holds the defaults and stays as it was at power on
    }
    std::vector<std::uint32_t>& values = m_userSets[selected];
    values.clear();
    for (const std::uint32_t address : UserSetRegisters())
    {
        values.push_back(m_registers.Get(address));
    }
}

} // namespace nq::camera
