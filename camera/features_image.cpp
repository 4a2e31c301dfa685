// SPDX-License-Identifier: Apache-2.0
// Features of the picture: its size, form and brightness.
#include "feature_groups.h"
#include "feature_registers.h"
#include "picture_settings.h"

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
    FeatureEntry{"Off", 16, "What the camera sees: the same as Scene"},
    FeatureEntry{"Black", 17, "No light"},
    FeatureEntry{"White", 18, "As bright as a pixel can be"},
    FeatureEntry{"GreyHorizontalRamp", 19, "From black on the left to white on the right"},
    FeatureEntry{"GreyHorizontalRampMoving", 20, "The same, moving on with the frame id"},
    FeatureEntry{"FrameCounter", 21, "The scene with the frame id on it in digits"},
};
constexpr std::array kFilters{
    FeatureEntry{"None", 0, "Every pixel sees all that the format holds"},
    FeatureEntry{"BayerRG", 1, "Red and green in even rows, green and blue in odd ones"},
};
constexpr std::array kColours{
    FeatureEntry{"Red", 0, "Red"},
    FeatureEntry{"Green", 1, "Green"},
    FeatureEntry{"Blue", 2, "Blue"},
};

constexpr Feature Factor(const char* name, std::uint32_t address, const char* tip, const char* about)
{
    return {.name = name,
            .address = address,
            .tip = tip,
            .about = about,
            .visibility = "Expert",
            .value = 1,
            .min = 1,
            .max = 4,
            .lock = Lock::Streaming,
            .movingMax = true,
            .inUserSet = true};
}

constexpr Feature Fact(const char* name, std::uint32_t address, const char* tip, const char* changedBy)
{
    return {.name = name,
            .address = address,
            .tip = tip,
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .changedBy = changedBy};
}

constexpr std::array kImage{
    Fact("SensorWidth", kSensorWidth, "Columns of the sensor", ""),
    Fact("SensorHeight", kSensorHeight, "Rows of the sensor", ""),
    Factor("BinningHorizontal", kBinningHorizontal, "Columns of the sensor that become one by their mean",
           "Width and OffsetX keep the part of the sensor that they show"),
    Factor("BinningVertical", kBinningVertical, "Rows of the sensor that become one by their mean",
           "Height and OffsetY keep the part of the sensor that they show"),
    Factor("DecimationHorizontal", kDecimationHorizontal, "One of so many columns is read, after binning",
           "Width and OffsetX keep the part of the sensor that they show"),
    Factor("DecimationVertical", kDecimationVertical, "One of so many rows is read, after binning",
           "Height and OffsetY keep the part of the sensor that they show"),
    Feature{.name = "ReverseX",
            .kind = Boolean,
            .address = kReverseX,
            .tip = "Whether the picture is turned from right to left",
            .about = "The checkable ramp is not",
            .lock = Lock::Streaming,
            .inUserSet = true},
    Feature{.name = "ReverseY",
            .kind = Boolean,
            .address = kReverseY,
            .tip = "Whether the picture is turned upside down",
            .about = "The checkable ramp is not",
            .lock = Lock::Streaming,
            .inUserSet = true},
    Fact("WidthMax", kWidthMax, "Width of the whole picture", "BinningHorizontal DecimationHorizontal"),
    Fact("HeightMax", kHeightMax, "Height of the whole picture", "BinningVertical DecimationVertical"),
    Feature{.name = "Width",
            .address = kWidth,
            .tip = "Pixels per line",
            .about = "WidthMax less OffsetX at most",
            .min = 1,
            .lock = Lock::Streaming,
            .changedBy = "BinningHorizontal DecimationHorizontal",
            .movingMax = true,
            .steppedWidth = true,
            .inUserSet = true},
    Feature{.name = "Height",
            .address = kHeight,
            .tip = "Lines",
            .about = "HeightMax less OffsetY at most, and less where a frame would hold more than 1 GiB",
            .min = 1,
            .lock = Lock::Streaming,
            .changedBy = "BinningHorizontal DecimationHorizontal BinningVertical DecimationVertical",
            .movingMax = true,
            .inUserSet = true},
    Feature{.name = "OffsetX",
            .address = kOffsetX,
            .tip = "Columns left of the picture that are left out",
            .about = "WidthMax less Width at most",
            .lock = Lock::Streaming,
            .changedBy = "BinningHorizontal DecimationHorizontal",
            .movingMax = true,
            .steppedWidth = true,
            .inUserSet = true},
    Feature{.name = "OffsetY",
            .address = kOffsetY,
            .tip = "Lines above the picture that are left out",
            .about = "HeightMax less Height at most",
            .lock = Lock::Streaming,
            .changedBy = "BinningVertical DecimationVertical",
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
    Fact("PixelSize", kPixelSize, "Bits of a pixel", "PixelFormat"),
    Feature{.name = "PixelColorFilter",
            .kind = Enumeration,
            .address = kPixelColorFilter,
            .tip = "What lies ahead of the pixels",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .entries = kFilters,
            .changedBy = "PixelFormat"},
    Fact("PixelDynamicRangeMin", kPixelDynamicRangeMin, "The least value of a sample", ""),
    Fact("PixelDynamicRangeMax", kPixelDynamicRangeMax, "The largest value of a sample", "PixelFormat"),
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
    Feature{.name = "Gamma",
            .kind = Float,
            .address = kGamma,
            .tip = "Exponent of the brightness",
            .about = "Below 1 dark parts come out brighter",
            .value = 1,
            .min = 0.1,
            .max = 4,
            .representation = "Linear",
            .inUserSet = true},
    Feature{.name = "BalanceRatioSelector",
            .kind = Enumeration,
            .address = kBalanceRatioSelector,
            .tip = "The colour that is meant",
            .entries = kColours},
    Feature{.name = "BalanceRatio",
            .kind = Float,
            .address = kBalanceRatio,
            .tip = "Amplification of the colour",
            .about = "Available in formats with colour",
            .value = 1,
            .min = 0.1,
            .max = 8,
            .representation = "Linear",
            .selector = "BalanceRatioSelector",
            .conditional = true,
            .inUserSet = true},
};

constexpr std::array kLut{
    Feature{.name = "LUTEnable",
            .kind = Boolean,
            .address = kLUTEnable,
            .tip = "Whether the look-up table holds",
            .about = "It comes behind Gamma; the checkable ramp leaves it out",
            .visibility = "Expert",
            .inUserSet = true},
    Feature{.name = "LUTIndex",
            .address = kLUTIndex,
            .tip = "The brightness that is meant",
            .about = "In levels of 8 bits; formats with more go straight from one to the next",
            .visibility = "Expert",
            .max = kLastOfTable},
    Feature{.name = "LUTValue",
            .address = kLUTValue,
            .tip = "What becomes of the brightness",
            .about = "In levels of 8 bits. As bright as before at first",
            .visibility = "Expert",
            .max = kLastOfTable,
            .selector = "LUTIndex",
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

std::span<const Feature> LutFeatures()
{
    return kLut;
}

} // namespace nq::camera
