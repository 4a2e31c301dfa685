// SPDX-License-Identifier: Apache-2.0
// The camera's user sets, and what it keeps when it is switched off.
#include "bootstrap.h"
#include "device.h"
#include "feature_registers.h"

#include <algorithm>
#include <bit>

namespace nq::camera
{

using namespace feature;

namespace
{

template <typename Use>
void ForEachOfUserSet(Use use)
{
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            if (feature.inUserSet)
            {
                use(feature);
            }
        }
    }
}

} // namespace

FeatureValues Device::PresentValues() const
{
    FeatureValues values;
    ForEachOfUserSet([&](const Feature& feature) {
        for (std::uint32_t i = 0; i < RegisterCount(feature); ++i)
        {
            const std::uint32_t value = m_registers.Get(feature.address + feature.stride * i);
            const bool isFloat = feature.kind == FeatureKind::Float;
            values[feature.name].push_back(isFloat ? static_cast<double>(std::bit_cast<float>(value))
                                                   : static_cast<double>(value));
        }
    });
    return values;
}

void Device::TakeValues(const FeatureValues& values)
{
    // The values of the set find room when those of before are gone: the table has binning ahead of size, size ahead of
    // offset, and offset ahead of the format.
    FeatureValues wanted = values;
    wanted.try_emplace("PixelFormat", std::vector{static_cast<double>(m_registers.Get(kPixelFormat))});
    m_registers.Set(kPixelFormat, kPixelFormats[0].code);
    for (const std::uint32_t factor :
         {kBinningHorizontal, kBinningVertical, kDecimationHorizontal, kDecimationVertical})
    {
        m_registers.Set(factor, 1);
    }
    FitSize();
    m_registers.Set(kOffsetX, 0);
    m_registers.Set(kOffsetY, 0);
    ForEachOfUserSet([&](const Feature& feature) {
        const auto found = wanted.find(feature.name);
        const std::size_t count = found == wanted.end() ? 0 : found->second.size();
        for (std::uint32_t i = 0; i < std::min<std::size_t>(count, RegisterCount(feature)); ++i)
        {
            const double number = found->second[i];
            const auto value = feature.kind == FeatureKind::Float
                                   ? std::bit_cast<std::uint32_t>(static_cast<float>(number))
                                   : static_cast<std::uint32_t>(std::clamp(number, 0.0, 4294967295.0));
            if (IsInRange(feature, value))
            {
                m_registers.Set(feature.address + feature.stride * i, value);
            }
            if (feature.address >= kBinningHorizontal && feature.address <= kDecimationVertical)
            {
                FitSize();
            }
        }
    });
}

void Device::LoadUserSet(std::uint32_t set)
{
    TakeValues(set == 0 ? m_defaults : m_state.sets[set]);
    ApplySettings();
}

void Device::SaveUserSet(std::uint32_t set)
{
    m_state.sets[set] = PresentValues();
    KeepState();
}

void Device::KeepState()
{
    const auto name = m_registers.Bytes(bootstrap::kUserName);
    m_state.userName.assign(name.begin(), std::find(name.begin(), name.end(), 0));
    m_state.defaultSet = m_registers.Get(kUserSetDefault);
    m_stateKept = m_options.stateFile.empty() || WriteState(m_options.stateFile, m_state);
}

} // namespace nq::camera
