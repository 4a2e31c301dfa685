// SPDX-License-Identifier: Apache-2.0
// What the features amount to for pictures and time.
#include "device.h"
#include "feature_registers.h"

#include <cmath>

namespace nq::camera
{

using namespace feature;

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
                       .offsetY = m_registers.Get(kOffsetY)};
    // The light is such that pictures are right at the exposure of power on.
    const double exposed = static_cast<double>(m_registers.GetFloat(kExposureTime)) / m_options.exposure;
    const double decibels = m_registers.GetFloat(kGain);
    picture.development = {.factor = exposed * std::pow(10.0, decibels / 20),
                           .blackLevel = m_registers.GetFloat(kBlackLevel)};
    return picture;
}

AcquisitionSettings Device::CurrentSettings() const
{
    AcquisitionSettings settings;
    settings.picture = CurrentPicture();
    settings.offsetX = m_registers.Get(kOffsetX);
    settings.offsetY = m_registers.Get(kOffsetY);
    settings.mode = static_cast<AcquisitionMode>(m_registers.Get(kAcquisitionMode));
    settings.frameCount = m_registers.Get(kAcquisitionFrameCount);
    settings.frameRate =
        m_registers.Get(kAcquisitionFrameRateEnable) != 0 ? m_registers.GetFloat(kAcquisitionFrameRate) : 0;
    settings.exposure = static_cast<double>(m_registers.GetFloat(kExposureTime)) / 1e6;
    settings.softwareTrigger = m_registers.Get(kTriggerMode) != 0;
    return settings;
}

} // namespace nq::camera
