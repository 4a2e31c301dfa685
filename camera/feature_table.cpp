// SPDX-License-Identifier: Apache-2.0
// Looks features up in their table.
#include "feature_table.h"

#include "feature_groups.h"
#include "feature_registers.h"

#include <array>
#include <sstream>
#include <stdexcept>

namespace nq::camera
{

std::span<const FeatureCategory> FeatureTable()
{
    static const std::array kTable{
        FeatureCategory{"DeviceControl", "What the camera is, and its state", DeviceFeatures()},
        FeatureCategory{"ImageFormatControl", "Size and form of the pictures", ImageFeatures()},
        FeatureCategory{"AcquisitionControl", "When pictures are taken", AcquisitionFeatures()},
        FeatureCategory{"DigitalIOControl", "Input and output of the camera", LineFeatures()},
        FeatureCategory{"CounterAndTimerControl", "What counts and what waits", CounterFeatures()},
        FeatureCategory{"AnalogControl", "Brightness of the pictures", AnalogFeatures()},
        FeatureCategory{"LUTControl", "A curve for the brightness", LutFeatures()},
        FeatureCategory{"EventControl", "Messages that the camera sends", EventFeatures()},
        FeatureCategory{"UserSetControl", "Settings that are kept", UserSetFeatures()},
        FeatureCategory{"TestControl", "For tests of the host", TestFeatures()},
        FeatureCategory{"TransportLayerControl", "The link to the host", TransportFeatures()},
    };
    return kTable;
}

const Feature& FeatureByName(std::string_view name)
{
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            if (feature.name == name)
            {
                return feature;
            }
        }
    }
    throw std::logic_error("there is no feature " + std::string(name));
}

const Feature* FeatureAt(std::uint32_t address)
{
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            const std::uint32_t behind = address - feature.address;
            if (feature.address >= feature::kFirstFeature && address >= feature.address &&
                behind % feature.stride < 4 && behind / feature.stride < RegisterCount(feature))
            {
                return &feature;
            }
        }
    }
    return nullptr;
}

std::uint32_t RegisterCount(const Feature& feature)
{
    if (std::string_view(feature.selector).empty())
    {
        return 1;
    }
    const Feature& selector = FeatureByName(feature.selector);
    return selector.kind == FeatureKind::Integer ? static_cast<std::uint32_t>(selector.max) + 1
                                                 : static_cast<std::uint32_t>(selector.entries.size());
}

std::vector<std::string> Words(std::string_view text)
{
    std::istringstream stream{std::string(text)};
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
    {
        words.push_back(word);
    }
    return words;
}

} // namespace nq::camera
