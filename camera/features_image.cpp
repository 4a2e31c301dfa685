// SPDX-License-Identifier: Apache-2.0
// Features of the picture: its size, form and brightness.
#include "feature_groups.h"
#include "feature_registers.h"
#include "pixel_format.h"

#include <array>

namespace nq::camera
{

namespace
{

using namespace feature;
using enum FeatureKind;

constexpr auto kFormatEntries = [] {
    std::array<FeatureEntry, kPixelFormats.size()> entries{};
    for (std::size_t i = 0; i < entries.size(); ++i)
    {
        entries[i] = {kPixelFormats[i].name, kPixelFormats[i].code, kPixelFormats[i].tip};
    }
    return entries;
}();

constexpr std::array kPatterns{
    FeatureEntry{"MovingRamp", 0, "A ramp that moves on with the frame id and can be checked byte by byte"},
    FeatureEntry{"ColorBar", 1, "Eight bars from white to black"},
    FeatureEntry{"Noise", 2, "Noise that follows from the frame id"},
    FeatureEntry{"Scene", 3, "Machined parts on a conveyor belt, or the picture files of --images"},
};

constexpr std::array kImage{
    Feature{.name = "WidthMax",
            .address = kWidthMax,
            .tip = "Width of the whole picture",
            .access = Access::ReadOnly,
            .visibility = "Expert"},
    Feature{.name = "HeightMax",
            .address = kHeightMax,
            .tip = "Height of the whole picture",
            .access = Access::ReadOnly,
            .visibility = "Expert"},
    Feature{.name = "Width",
            .address = kWidth,
            .tip = "Pixels per line",
            .about = "WidthMax less OffsetX at most",
            .min = 1,
            .lock = Lock::Streaming,
            .movingMax = true,
            .steppedWidth = true,
            .inUserSet = true},
    Feature{.name = "Height",
            .address = kHeight,
            .tip = "Lines",
            .about = "HeightMax less OffsetY at most",
            .min = 1,
            .lock = Lock::Streaming,
            .movingMax = true,
            .inUserSet = true},
    Feature{.name = "OffsetX",
            .address = kOffsetX,
            .tip = "Columns left of the picture that are left out",
            .about = "WidthMax less Width at most",
            .lock = Lock::Streaming,
            .movingMax = true,
            .steppedWidth = true,
            .inUserSet = true},
    Feature{.name = "OffsetY",
            .address = kOffsetY,
            .tip = "Lines above the picture that are left out",
            .about = "HeightMax less Height at most",
            .lock = Lock::Streaming,
            .movingMax = true,
            .inUserSet = true},
    Feature{.name = "PixelFormat",
            .kind = Enumeration,
            .address = kPixelFormat,
            .tip = "How a pixel lies in memory",
            .entries = kFormatEntries,
            .lock = Lock::Streaming,
            .movingEntries = true,
            .inUserSet = true},
    Feature{.name = "TestPattern",
            .kind = Enumeration,
            .address = kTestPattern,
            .tip = "What the pictures show",
            .entries = kPatterns,
            .lock = Lock::Acquiring,
            .inUserSet = true},
};

constexpr std::array kGains{
    FeatureEntry{"AnalogAll", 0, "Ahead of the converter"},
    FeatureEntry{"DigitalAll", 1, "Behind the converter"},
};
constexpr std::array kGainAutos{
    FeatureEntry{"Off", 0, "Set by the host"},
    FeatureEntry{"Once", 1, "Set by the camera until the pictures are of medium brightness, then Off"},
    FeatureEntry{"Continuous", 2, "Set by the camera, picture by picture"},
};

constexpr std::array kAnalog{
    Feature{.name = "GainSelector",
            .kind = Enumeration,
            .address = kGainSelector,
            .tip = "The gain that is meant",
            .entries = kGains},
    Feature{.name = "Gain",
            .kind = Float,
            .address = kGain,
            .tip = "Amplification",
            .about = "6 dB are twice as bright; both gains add up",
            .max = 48,
            .unit = "dB",
            .representation = "Linear",
            .polling = 500,
            .selector = "GainSelector",
            .stride = 0x100,
            .inUserSet = true},
    Feature{.name = "GainAuto",
            .kind = Enumeration,
            .address = kGainAuto,
            .tip = "Whether the camera sets the analog gain",
            .about = "For pictures of medium brightness, as far as ExposureAuto does not reach them",
            .entries = kGainAutos,
            .polling = 500,
            .inUserSet = true},
    Feature{.name = "BlackLevel",
            .kind = Float,
            .address = kBlackLevel,
            .tip = "Brightness of black",
            .about = "In levels of 8 bits, added to every pixel",
            .max = 255,
            .representation = "Linear",
            .inUserSet = true},
};

} // namespace

std::span<const Feature> ImageFeatures()
{
    return kImage;
}

std::span<const Feature> AnalogFeatures()
{
    return kAnalog;
}

} // namespace nq::camera
