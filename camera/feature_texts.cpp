// SPDX-License-Identifier: Apache-2.0
// The table of features as people read it.
#include "feature_table.h"

#include <array>
#include <cstdio>

namespace nq::camera
{

namespace
{

std::string Number(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", value);
    return text.data();
}

std::string Values(const Feature& feature)
{
    switch (feature.kind)
    {
    case FeatureKind::Command:
        return "command";
    case FeatureKind::Text:
        return "text";
    case FeatureKind::Boolean:
        return "true, false";
    case FeatureKind::Enumeration: {
        std::string names;
        for (const FeatureEntry& entry : feature.entries)
        {
            names += (names.empty() ? "" : ", ") + std::string(entry.name);
        }
        return names;
    }
    default:
        break;
    }
    const std::string unit = *feature.unit == '\0' ? "" : " " + std::string(feature.unit);
    if (feature.access == Access::ReadOnly)
    {
        return "number" + (unit.empty() ? unit : "," + unit);
    }
    return Number(feature.min) + " to " + (feature.movingMax ? "what is possible" : Number(feature.max)) + unit;
}

} // namespace

std::string FeaturesAsMarkdown()
{
    std::string text;
    for (const FeatureCategory& category : FeatureTable())
    {
        text += "\n### " + std::string(category.name) + "\n\n| Feature | | Values | |\n|---|---|---|---|\n";
        for (const Feature& feature : category.features)
        {
            const char* access = feature.access == Access::ReadOnly     ? "RO"
                                 : feature.kind == FeatureKind::Command ? "WO"
                                                                        : "RW";
            text += "| `" + std::string(feature.name) + "` | " + access + " | " + Values(feature) + " | " +
                    feature.tip + (*feature.about == '\0' ? "" : ". " + std::string(feature.about)) + " |\n";
        }
    }
    return text;
}

std::string FeaturesAsHelp()
{
    constexpr std::size_t kLineLength = 110;
    std::string text = "Features (--features tells what they do):\n";
    for (const FeatureCategory& category : FeatureTable())
    {
        std::string line = "  " + std::string(category.name) + ":";
        for (const Feature& feature : category.features)
        {
            const std::string name = " " + std::string(feature.name);
            if (line.size() + name.size() > kLineLength)
            {
                text += line + "\n";
                line = "     ";
            }
            line += name;
        }
        text += line + "\n";
    }
    return text;
}

} // namespace nq::camera
