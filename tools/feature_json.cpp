// SPDX-License-Identifier: Apache-2.0
// Features for scripts.
#include "feature_json.h"

#include "feature_text.h"

#include <cstdio>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

using nlohmann::ordered_json;

/// Numbers, flags and texts as they are; bytes of a register in hex.
ordered_json ValueJson(const Feature& feature, const FeatureValue& value)
{
    if (const auto* const number = std::get_if<int64_t>(&value))
    {
        return *number;
    }
    if (const auto* const number = std::get_if<double>(&value))
    {
        return *number;
    }
    if (const auto* const flag = std::get_if<bool>(&value))
    {
        return *flag;
    }
    if (const auto* const text = std::get_if<std::string>(&value))
    {
        return feature.type == FeatureType::Register ? ValueText(feature, value) : *text;
    }
    return nullptr;
}

ordered_json EntriesJson(const Feature& feature)
{
    ordered_json entries = ordered_json::array();
    for (const FeatureEntry& entry : feature.entries)
    {
        entries.push_back({{"name", entry.name}, {"value", entry.value}, {"available", entry.available}});
    }
    return entries;
}

} // namespace

ordered_json ToJson(const Reading& reading)
{
    const Feature& feature = reading.feature;
    const bool valued = reading.problem.empty() && feature.readable;
    return {{"name", reading.name},
            {"type", TypeText(feature.type)},
            {"access", AccessText(feature)},
            {"value", ValueJson(feature, reading.value)},
            {"text", valued ? ordered_json(ValueText(feature, reading.value)) : ordered_json(nullptr)},
            {"unit", feature.unit},
            {"min", ValueJson(feature, feature.min)},
            {"max", ValueJson(feature, feature.max)},
            {"step", ValueJson(feature, feature.step)},
            {"length", feature.length ? ordered_json(*feature.length) : ordered_json(nullptr)},
            {"entries", EntriesJson(feature)},
            {"selectors", feature.selectors},
            {"selected", feature.selected},
            {"available", feature.available},
            {"locked", feature.locked},
            {"problem", reading.problem},
            {"category", feature.category},
            {"display_name", feature.displayName},
            {"description", feature.description},
            {"visibility", feature.visibility}};
}

void PrintJson(const ordered_json& json)
{
    // ASCII alone, so that no terminal obeys a name; what is no UTF-8 becomes U+FFFD.
    fmt::print("{}\n", json.dump(2, ' ', true, ordered_json::error_handler_t::replace));
}

} // namespace nq::tool
