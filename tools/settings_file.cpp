// SPDX-License-Identifier: Apache-2.0
// The settings of a module as a file that people read and edit.
#include "settings_file.h"

#include "feature_text.h"
#include "stop_signals.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace nq::tool
{

namespace
{

constexpr size_t kMostSelections = 4096;

/// Says what the consumer does at the moment, and is no setting.
constexpr const char* kParamsLocked = "TLParamsLocked";

/// The values of a selector that there are now.
std::vector<std::string> ValuesOf(const Feature& selector)
{
    std::vector<std::string> values;
    for (const FeatureEntry& entry : selector.entries)
    {
        if (entry.available)
        {
            values.push_back(entry.name);
        }
    }
    const auto* const min = std::get_if<int64_t>(&selector.min);
    const auto* const max = std::get_if<int64_t>(&selector.max);
    if (selector.type == FeatureType::Integer && min != nullptr && max != nullptr)
    {
        const auto* const step = std::get_if<int64_t>(&selector.step);
        const uint64_t by = step == nullptr || *step < 1 ? 1 : static_cast<uint64_t>(*step);
        const uint64_t last = static_cast<uint64_t>(*max) - static_cast<uint64_t>(*min);
        for (uint64_t at = 0; *max >= *min && at <= last && values.size() <= kMostSelections; at += by)
        {
            values.push_back(std::to_string(*min + static_cast<int64_t>(at)));
        }
    }
    return values;
}

class SettingsWriter
{
  public:
    SettingsWriter(Features& features, bool control) : m_features(features), m_control(control) {}

    std::string Text()
    {
        std::string selectors;
        for (const std::string& name : m_features.Names())
        {
            CheckStop();
            const Reading reading = m_features.Read(name);
            if (name == kParamsLocked || reading.feature.type == FeatureType::Command)
            {
                continue;
            }
            if (!reading.feature.selected.empty())
            {
                selectors += Line(reading);
            }
            else if (m_control && !reading.feature.selectors.empty())
            {
                AddSelected(reading.feature);
            }
            else
            {
                Add(reading);
            }
        }
        return m_text + (selectors.empty() ? "" : "\n# Selectors\n" + selectors);
    }

  private:
    static void CheckStop()
    {
        if (StopAsked())
        {
            throw ToolFailure(StopCode(), "stopped before all settings were read");
        }
    }

    static std::string Line(const Reading& reading)
    {
        const Feature& feature = reading.feature;
        const bool kept = reading.problem.empty() && feature.available && feature.readable && feature.writable;
        return kept ? fmt::format("{} = {}\n", reading.name, ValueAndUnit(feature, reading.value)) : "";
    }

    void Add(const Reading& reading)
    {
        const std::string line = Line(reading);
        if (!line.empty() && reading.feature.category != m_category)
        {
            m_category = reading.feature.category;
            m_text += fmt::format("\n# {}\n", m_category);
        }
        m_text += line;
    }

    /// A line for each value of the selectors.
    void AddSelected(const Feature& feature)
    {
        std::vector<std::string> selections = {""};
        for (const std::string& selector : feature.selectors)
        {
            std::vector<std::string> longer;
            for (const std::string& selection : selections)
            {
                for (const std::string& value : ValuesOf(m_features.Read(selector).feature))
                {
                    longer.push_back(fmt::format("{}{}{}", selection, selection.empty() ? "" : ",", value));
                }
            }
            selections = longer;
        }
        for (const std::string& selection : selections)
        {
            CheckStop();
            Add(m_features.Read(fmt::format("{}[{}]", feature.name, selection)));
        }
    }

    Features& m_features;
    bool m_control;
    std::string m_text;
    std::string m_category = "\n"; // no category is called so
};

std::string Trimmed(const std::string& text)
{
    const size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

/// Sets what can be set. The rest comes back.
std::vector<UnsetSetting> SetMost(Features& features, const std::vector<Setting>& settings, size_t& done)
{
    std::vector<UnsetSetting> unset;
    for (const Setting& setting : settings)
    {
        if (StopAsked())
        {
            throw ToolFailure(StopCode(), fmt::format("stopped behind {} settings", done));
        }
        try
        {
            features.Set(setting);
            ++done;
        }
        catch (const ToolFailure& failure)
        {
            if (failure.Code() == ExitCode::CameraLost)
            {
                throw ToolFailure(failure.Code(),
                                  fmt::format("{}; {} settings were set before it; this one may be set or not",
                                              failure.what(), done));
            }
            unset.push_back({setting, failure.what()});
        }
    }
    return unset;
}

} // namespace

std::string SettingsText(Features& features, const std::string& who, bool control)
{
    std::string text = fmt::format("# Settings of {}, for `nq-gev load`\n", who);
    text += control ? "" : "# Another program controls it: of each selector one value alone.\n";
    return text + SettingsWriter(features, control).Text();
}

std::vector<Setting> ParseSettings(const std::string& text)
{
    std::vector<Setting> settings;
    std::istringstream lines(text);
    size_t number = 0;
    for (std::string line; std::getline(lines, line);)
    {
        ++number;
        const std::string content = Trimmed(line);
        if (content.empty() || content.starts_with("#"))
        {
            continue;
        }
        const size_t equals = content.find('=');
        Setting setting{Trimmed(content.substr(0, equals)), ""};
        bool whole = equals != std::string::npos && !setting.name.empty();
        if (whole)
        {
            setting.value = Trimmed(content.substr(equals + 1));
            if (setting.value.starts_with("\""))
            {
                const auto quoted = nlohmann::json::parse(setting.value, nullptr, false);
                whole = quoted.is_string();
                setting.value = whole ? quoted.get<std::string>() : "";
            }
        }
        if (!whole)
        {
            throw ToolFailure(ExitCode::Usage,
                              fmt::format("line {} is no setting: {}; nothing was changed", number, content));
        }
        try
        {
            static_cast<void>(ParseFeatureName(setting.name));
        }
        catch (const ToolFailure& failure)
        {
            throw ToolFailure(failure.Code(), fmt::format("line {}: {}; nothing was changed", number, failure.what()));
        }
        settings.push_back(setting);
    }
    return settings;
}

std::vector<UnsetSetting> ApplySettings(Features& features, const std::vector<Setting>& settings)
{
    size_t done = 0;
    const std::vector<UnsetSetting> later = SetMost(features, settings, done);
    std::vector<Setting> again;
    again.reserve(later.size());
    for (const UnsetSetting& one : later)
    {
        again.push_back(one.setting);
    }
    return SetMost(features, again, done);
}

} // namespace nq::tool
