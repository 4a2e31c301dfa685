// SPDX-License-Identifier: Apache-2.0
// The settings of a module as a file that people read and edit.
#include "settings_file.h"

#include "feature_text.h"
#include "printable.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <variant>

namespace nq::tool
{

namespace
{

constexpr size_t kMostSelections = 4096;

/// Says what the consumer does at the moment, and is no setting.
constexpr const char* kLockedByConsumer = "TLParamsLocked";

/// Around the module in the first line of a file.
constexpr std::string_view kHead = "# Settings of ";
constexpr std::string_view kTail = ", for `nq-gev load`";

/// Before the bytes of a text that is no UTF-8.
constexpr std::string_view kBytes = "hex:";

/// By the beginnings of their names, what makes a camera this one among others: its name and its address.
constexpr std::string_view kIdentity[] = {"DeviceUserID", "GevPersistent", "GevCurrentIPConfiguration"};

/// A text that the file itself can hold. JSON has no bytes beside UTF-8.
std::string SavedValue(const Feature& feature, const FeatureValue& value)
{
    const auto* const text = std::get_if<std::string>(&value);
    if (text != nullptr && feature.type == FeatureType::String)
    {
        try
        {
            return nlohmann::json(*text).dump();
        }
        catch (const nlohmann::json::type_error&)
        {
            return std::string(kBytes) + HexBytes(*text);
        }
    }
    return ValueAndUnit(feature, value);
}

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

    /// `head` stands at the beginning.
    SavedSettings Saved(std::string head)
    {
        std::string selectors;
        for (const std::string& name : m_features.Names())
        {
            const Reading reading = m_features.Read(name);
            if (name == kLockedByConsumer || reading.feature.type == FeatureType::Command)
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
        for (const std::string& one : m_left)
        {
            head += fmt::format("# {}\n", one);
        }
        return {head + m_text + (selectors.empty() ? "" : "\n# Selectors\n" + selectors), m_left};
    }

  private:
    static std::string Line(const Reading& reading)
    {
        const Feature& feature = reading.feature;
        const bool kept = reading.problem.empty() && feature.available && feature.readable && feature.writable;
        return kept ? fmt::format("{} = {}\n", reading.name, SavedValue(feature, reading.value)) : "";
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
            const std::vector<std::string> values = ValuesOf(m_features.Read(selector).feature);
            if (selections.size() * values.size() > kMostSelections)
            {
                m_left.push_back(fmt::format("{} is not saved: it has more than {} values, by {}", feature.name,
                                             kMostSelections, fmt::join(feature.selectors, ", ")));
                return;
            }
            std::vector<std::string> longer;
            for (const std::string& selection : selections)
            {
                for (const std::string& value : values)
                {
                    longer.push_back(fmt::format("{}{}{}", selection, selection.empty() ? "" : ",", value));
                }
            }
            selections = longer;
        }
        for (const std::string& selection : selections)
        {
            Add(m_features.Read(fmt::format("{}[{}]", feature.name, selection)));
        }
    }

    Features& m_features;
    bool m_control;
    std::string m_text;
    std::vector<std::string> m_left;
    std::string m_category = "\n"; // no category is called so
};

std::string TrimmedLine(const std::string& text)
{
    const size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

/// The value behind "="; nothing for one that is none.
std::optional<std::string> SettingValue(const std::string& text)
{
    if (text.starts_with("\""))
    {
        const auto quoted = nlohmann::json::parse(text, nullptr, false);
        return quoted.is_string() ? std::optional(quoted.get<std::string>()) : std::nullopt;
    }
    return text.starts_with(kBytes) ? BytesFromHex(std::string_view(text).substr(kBytes.size())) : std::optional(text);
}

/// The setting of a line, or why it is none, in the rest of a sentence that begins with the number of the line.
std::variant<Setting, std::string> SettingOf(const std::string& line)
{
    const size_t equals = line.find('=');
    const std::string name = TrimmedLine(line.substr(0, equals));
    const std::optional<std::string> value =
        equals == std::string::npos ? std::nullopt : SettingValue(TrimmedLine(line.substr(equals + 1)));
    if (name.empty() || !value)
    {
        return " is no setting: " + line;
    }
    if (value->find('\0') != std::string::npos)
    {
        return ": no feature takes a text with the character U+0000 in it: " + line;
    }
    try
    {
        static_cast<void>(ParseFeatureName(name));
    }
    catch (const ToolFailure& failure)
    {
        return std::string(": ") + failure.what();
    }
    return Setting{name, *value};
}

/// Sets what can be set. The rest comes back.
std::vector<UnsetSetting> SetMost(Features& features, const std::vector<Setting>& settings, size_t& done)
{
    std::vector<UnsetSetting> unset;
    for (const Setting& setting : settings)
    {
        try
        {
            features.Set(setting);
            ++done;
        }
        catch (const ToolFailure& failure)
        {
            const bool silent = failure.Code() == ExitCode::CameraLost;
            if (failure.Code() != ExitCode::Failure && failure.Code() != ExitCode::Usage)
            {
                throw ToolFailure(failure.With(fmt::format("; {} settings were set before it{}", done,
                                                           silent ? "; this one may be set or not" : "")));
            }
            unset.push_back({setting, failure.what()});
        }
    }
    return unset;
}

} // namespace

SavedSettings SettingsText(Features& features, const std::string& who, bool control)
{
    std::string text = fmt::format("{}{}{}\n", kHead, Printable(who), kTail);
    text += control ? "" : "# Another program controls it: of each selector one value alone.\n";
    return SettingsWriter(features, control).Saved(text);
}

SettingsFile ParseSettings(std::string_view text)
{
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF"; // some editors begin a text with it
    text.remove_prefix(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
    SettingsFile file;
    std::istringstream lines{std::string(text)};
    size_t number = 0;
    for (std::string line; std::getline(lines, line);)
    {
        ++number;
        const std::string content = TrimmedLine(line);
        if (number == 1 && content.starts_with(kHead) && content.ends_with(kTail))
        {
            file.who = content.substr(kHead.size(), content.size() - kHead.size() - kTail.size());
        }
        if (content.empty() || content.starts_with("#"))
        {
            continue;
        }
        const std::variant<Setting, std::string> setting = SettingOf(content);
        if (const auto* const problem = std::get_if<std::string>(&setting))
        {
            throw ToolFailure(ExitCode::Usage, fmt::format("line {}{}; nothing was changed", number, *problem));
        }
        file.settings.push_back(std::get<Setting>(setting));
    }
    return file;
}

std::vector<UnsetSetting> LeaveOutIdentity(SettingsFile& file, const std::string& who)
{
    if (file.who == Printable(who))
    {
        return {};
    }
    const std::string origin =
        file.who.empty() ? "the file does not say of which camera it is" : "the file is of " + file.who;
    std::vector<UnsetSetting> left;
    std::erase_if(file.settings, [&](const Setting& setting) {
        const bool identity = std::any_of(std::begin(kIdentity), std::end(kIdentity),
                                          [&](std::string_view name) { return setting.name.starts_with(name); });
        if (identity)
        {
            left.push_back({setting, fmt::format("{}={}: it is for one camera alone, and {}", setting.name,
                                                 setting.value, origin)});
        }
        return identity;
    });
    return left;
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
