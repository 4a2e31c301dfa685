// SPDX-License-Identifier: Apache-2.0
// What the camera's features allow, and what moves in them.
#include "device.h"

#include "bootstrap.h"
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

} // namespace

GvcpStatus Device::Check(std::uint32_t address, std::uint32_t value) const
{
    const Feature* feature = FeatureAt(address);
    if (feature == nullptr)
    {
        return GvcpStatus::Success;
    }
    if (IsLocked(*feature) || !IsAvailable(*feature))
    {
        return GvcpStatus::WriteProtect;
    }
    return IsInRange(*feature, value) ? GvcpStatus::Success : GvcpStatus::InvalidParameter;
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

bool Device::IsAvailable(const Feature& feature) const
{
    const std::uint32_t set = m_registers.Get(kUserSetSelector);
    switch (feature.address)
    {
    case kUserSetLoad:
        return set == 0 || m_state.sets.contains(set);
    case kUserSetSave:
        return set != 0;
    case kLineSource:
        return m_registers.Get(kLineSelector) == 1;
    case kBalanceRatio:
        return FindPixelFormat(m_registers.Get(kPixelFormat))->layout != PixelLayout::Grey;
    case kExposureMode:
        return LineTimesExposure();
    case kExposureTime:
    case kExposureAuto:
        return !TakesTriggerWidth();
    default:
        return true;
    }
}

double Device::Minimum(const Feature& feature) const
{
    return feature.steppedWidth && feature.min > 0 ? m_options.widthStep : feature.min;
}

double Device::Step(const Feature& feature) const
{
    return feature.steppedWidth ? m_options.widthStep : feature.step;
}

double Device::Maximum(const Feature& feature) const
{
    const auto left = [this](std::uint32_t all, std::uint32_t used) {
        return m_registers.Get(all) - m_registers.Get(used);
    };
    // How many pixels there may be beside or below each pixel of the other direction.
    const auto room = [this](std::uint32_t other) {
        const std::uint64_t bits = FindPixelFormat(m_registers.Get(kPixelFormat))->bitsPerPixel;
        return static_cast<std::uint32_t>(
            std::min<std::uint64_t>(kLargestPayload * 8 / bits / m_registers.Get(other), 0xFFFFFFFF));
    };
    // Into how many whole steps the pixels can be put together, whatever the other of the two ways does already.
    const auto steps = [&](std::uint32_t pixels, std::uint32_t other) {
        const std::uint32_t most = pixels / m_registers.Get(other);
        return std::min<double>(feature.max, most);
    };
    switch (feature.address)
    {
    case kWidth: {
        const std::uint32_t most = std::min(left(kWidthMax, kOffsetX), room(kHeight));
        return most - most % m_options.widthStep;
    }
    case kHeight:
        return std::min(left(kHeightMax, kOffsetY), room(kWidth));
    case kOffsetX:
        return left(kWidthMax, kWidth);
    case kOffsetY:
        return left(kHeightMax, kHeight);
    case kBinningHorizontal:
        return steps(m_options.width / m_options.widthStep, kDecimationHorizontal);
    case kDecimationHorizontal:
        return steps(m_options.width / m_options.widthStep, kBinningHorizontal);
    case kBinningVertical:
        return steps(m_options.height, kDecimationVertical);
    case kDecimationVertical:
        return steps(m_options.height, kBinningVertical);
    case kAcquisitionFrameRate:
        return std::min({feature.max, 1e6 / Exposure(), ThroughputRate()});
    default:
        return feature.max;
    }
}

bool Device::FitsPixelFormat(std::uint32_t code) const
{
    const PixelFormat* format = FindPixelFormat(code);
    return format != nullptr &&
           format->Bytes(std::uint64_t{m_registers.Get(kWidth)} * m_registers.Get(kHeight)) <= kLargestPayload;
}

bool Device::IsInRange(const Feature& feature, std::uint32_t value) const
{
    switch (feature.kind)
    {
    case FeatureKind::Integer:
        return value >= Minimum(feature) && value <= Maximum(feature) &&
               std::fmod(value - Minimum(feature), Step(feature)) == 0;
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
    m_registers.SetFloat(kDeviceLinkHeartbeatTimeout,
                         1000 * static_cast<float>(m_registers.Get(bootstrap::kHeartbeatTimeout)));
    RefreshLines();
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            RefreshLimit(feature);
            if (feature.conditional)
            {
                m_registers.Set(feature.address + kAvailableOffset, IsAvailable(feature) ? 1 : 0);
            }
        }
    }
}

void Device::RefreshLimit(const Feature& feature)
{
    const std::uint32_t limit = feature.address + kLimitOffset;
    if (feature.movingMax && feature.kind == FeatureKind::Float)
    {
        m_registers.SetFloat(limit, static_cast<float>(Maximum(feature)));
    }
    else if (feature.movingMax)
    {
        m_registers.Set(limit, static_cast<std::uint32_t>(Maximum(feature)));
    }
    else if (feature.movingEntries)
    {
        std::uint32_t there = 0;
        for (std::size_t i = 0; i < feature.entries.size(); ++i)
        {
            there |= IsInRange(feature, feature.entries[i].value) ? 1U << i : 0;
        }
        m_registers.Set(limit, there);
    }
}

} // namespace nq::camera
