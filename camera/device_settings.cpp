// SPDX-License-Identifier: Apache-2.0
// What the features amount to for pictures and time.
#include "device.h"
#include "feature_registers.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace nq::camera
{

using namespace feature;

namespace
{

/// From the register of the first of two selected features to that of the second.
constexpr std::uint32_t kSecond = 0x100;

} // namespace

bool Device::LineTimesExposure() const
{
    return m_registers.Get(kTriggerMode) != 0 &&
           static_cast<TriggerSource>(m_registers.Get(kTriggerSource)) == TriggerSource::Line0 &&
           static_cast<TriggerActivation>(m_registers.Get(kTriggerActivation)) != TriggerActivation::AnyEdge;
}

bool Device::TakesTriggerWidth() const
{
    return LineTimesExposure() && m_registers.Get(kExposureMode) != 0;
}

double Device::Exposure() const
{
    if (TakesTriggerWidth())
    {
        return 0.5e6 / m_registers.GetFloat(kTestLineFrequency);
    }
    return m_registers.GetFloat(kExposureTime);
}

double Device::ThroughputRate() const
{
    if (m_registers.Get(kDeviceLinkThroughputLimitMode) == 0)
    {
        return std::numeric_limits<double>::infinity();
    }
    const double payload = static_cast<double>(CurrentPicture().Payload());
    return m_registers.Get(kDeviceLinkThroughputLimit) / payload;
}

LineWave Device::CurrentWave() const
{
    return {.frequency = m_registers.GetFloat(kTestLineFrequency), .inverted = m_registers.Get(kLineInverter) != 0};
}

TriggerSettings Device::CurrentTrigger(std::uint32_t which) const
{
    TriggerSettings trigger;
    trigger.on = m_registers.Get(kTriggerMode + which) != 0;
    trigger.source = static_cast<TriggerSource>(m_registers.Get(kTriggerSource + which));
    trigger.activation = static_cast<TriggerActivation>(m_registers.Get(kTriggerActivation + which));
    trigger.delay =
        std::chrono::nanoseconds(std::llround(1000 * static_cast<double>(m_registers.GetFloat(kTriggerDelay + which))));
    trigger.wave = CurrentWave();
    trigger.counter = m_counter;
    return trigger;
}

void Device::FitSize()
{
    const Readout readout = CurrentPicture().readout;
    FitDirection(kWidthMax, kWidth, kOffsetX, readout.ColumnsOf(m_options.width), m_options.widthStep);
    FitDirection(kHeightMax, kHeight, kOffsetY, readout.RowsOf(m_options.height), 1);
    // Of what would be more than a frame can hold, the lower part is cut off.
    const auto most = static_cast<std::uint32_t>(Maximum(*FeatureAt(kHeight)));
    m_registers.Set(kHeight, std::min(m_registers.Get(kHeight), most));
}

void Device::FitDirection(std::uint32_t maximum, std::uint32_t size, std::uint32_t offset, std::uint32_t most,
                          std::uint32_t step)
{
    most -= most % step;
    const std::uint64_t before = m_registers.Get(maximum);
    const auto scaled = [&](std::uint32_t which) {
        const auto value = static_cast<std::uint32_t>(std::uint64_t{m_registers.Get(which)} * most / before);
        return value - value % step;
    };
    const std::uint32_t wanted = std::max(scaled(size), step);
    m_registers.Set(offset, std::min(scaled(offset), most - wanted));
    m_registers.Set(size, wanted);
    m_registers.Set(maximum, most);
}

PictureSettings Device::CurrentPicture() const
{
    PictureSettings picture;
    picture.width = m_registers.Get(kWidth);
    picture.height = m_registers.Get(kHeight);
    picture.format = *FindPixelFormat(m_registers.Get(kPixelFormat));
    picture.pattern = static_cast<TestPattern>(m_registers.Get(kTestPattern));
    picture.images = m_options.images;
    picture.readout = {.sensorWidth = m_options.width,
                       .sensorHeight = m_options.height,
                       .offsetX = m_registers.Get(kOffsetX),
                       .offsetY = m_registers.Get(kOffsetY),
                       .binningX = m_registers.Get(kBinningHorizontal),
                       .binningY = m_registers.Get(kBinningVertical),
                       .decimationX = m_registers.Get(kDecimationHorizontal),
                       .decimationY = m_registers.Get(kDecimationVertical),
                       .reverseX = m_registers.Get(kReverseX) != 0,
                       .reverseY = m_registers.Get(kReverseY) != 0};
    // The light is such that pictures are right at the exposure of power on.
    const double exposed = Exposure() / m_options.exposure;
    const double decibels = m_registers.GetFloat(kGain) + m_registers.GetFloat(kGain + kSecond);
    picture.development = {.factor = exposed * std::pow(10.0, decibels / 20),
                           .blackLevel = m_registers.GetFloat(kBlackLevel),
                           .gamma = m_registers.GetFloat(kGamma),
                           .balance = {m_registers.GetFloat(kBalanceRatio), m_registers.GetFloat(kBalanceRatio + 4),
                                       m_registers.GetFloat(kBalanceRatio + 8)}};
    return picture;
}

std::vector<std::uint8_t> Device::LookUpTable() const
{
    std::vector<std::uint8_t> table;
    for (std::uint32_t i = 0; m_registers.Get(kLUTEnable) != 0 && i <= kLastOfTable; ++i)
    {
        table.push_back(static_cast<std::uint8_t>(m_registers.Get(kLUTValue + 4 * i)));
    }
    return table;
}

AcquisitionSettings Device::CurrentSettings() const
{
    AcquisitionSettings settings;
    settings.picture = CurrentPicture();
    settings.picture.development.table = LookUpTable();
    settings.offsetX = m_registers.Get(kOffsetX);
    settings.offsetY = m_registers.Get(kOffsetY);
    settings.mode = static_cast<AcquisitionMode>(m_registers.Get(kAcquisitionMode));
    settings.frameCount = m_registers.Get(kAcquisitionFrameCount);
    const bool rated = m_registers.Get(kAcquisitionFrameRateEnable) != 0;
    const bool limited = m_registers.Get(kDeviceLinkThroughputLimitMode) != 0;
    settings.frameRate = rated ? m_registers.GetFloat(kAcquisitionFrameRate) : limited ? ThroughputRate() : 0;
    settings.exposure = Exposure() / 1e6;
    settings.frameTrigger = CurrentTrigger(0);
    settings.burstTrigger = CurrentTrigger(kSecond);
    settings.burstCount = m_registers.Get(kAcquisitionBurstFrameCount);
    return settings;
}

} // namespace nq::camera
