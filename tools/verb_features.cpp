// SPDX-License-Identifier: Apache-2.0
// nq-gev features, get, describe, set and exec: the features of a module by name.
#include "feature_json.h"
#include "feature_text.h"
#include "module_session.h"
#include "printable.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <memory>

namespace nq::tool
{

namespace
{

struct FeatureOptions
{
    ModuleOptions module;
    std::vector<std::string> arguments;
};

bool Fits(const std::string& text, const std::string& filter)
{
    const auto same = [](unsigned char one, unsigned char other) { return std::tolower(one) == std::tolower(other); };
    return std::search(text.begin(), text.end(), filter.begin(), filter.end(), same) != text.end();
}

std::string ShownValue(const Reading& reading)
{
    const bool command = reading.feature.type == FeatureType::Command;
    return !reading.problem.empty() ? "(" + reading.problem + ")"
           : command                ? "(command)"
                                    : ValueAndUnit(reading.feature, reading.value);
}

void PrintList(const std::vector<Reading>& readings)
{
    size_t width = 0;
    for (const Reading& reading : readings)
    {
        width = std::max(width, reading.name.size());
    }
    std::string category = "\n"; // no category is called so
    for (const Reading& reading : readings)
    {
        if (reading.feature.category != category)
        {
            category = reading.feature.category;
            fmt::print("{}\n", Printable(category.empty() ? "Root" : category));
        }
        fmt::print("  {:<{}}  {}  {}\n", Printable(reading.name), width, AccessText(reading.feature),
                   Printable(ShownValue(reading)));
    }
}

void PrintDescription(const Reading& reading)
{
    const Feature& feature = reading.feature;
    const auto line = [](const char* name, const std::string& text) {
        text.empty() ? void() : fmt::print("  {:<12} {}\n", name, Printable(text));
    };
    const auto list = [](const std::vector<std::string>& names) {
        std::string text;
        for (const std::string& name : names)
        {
            text += (text.empty() ? "" : ", ") + name;
        }
        return text;
    };
    fmt::print("{}\n", Printable(reading.name));
    line("value", ShownValue(reading));
    line("type", TypeText(feature.type));
    line("access", AccessText(feature) + std::string(feature.locked ? ", locked now" : ""));
    line("takes", TakenValues(feature));
    line("selected by", list(feature.selectors));
    line("selects", list(feature.selected));
    line("category", feature.category);
    line("visibility", feature.visibility);
    line("description", feature.description);
}

void PrintReadings(const CommonOptions& common, const std::vector<Reading>& readings)
{
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const Reading& reading : readings)
    {
        if (common.json)
        {
            all.push_back(ToJson(reading));
        }
        else
        {
            fmt::print("{} = {}\n", Printable(reading.name), Printable(ShownValue(reading)));
        }
    }
    if (common.json)
    {
        PrintJson({{"features", all}});
    }
}

/// The vector does not grow: with GCC 12 and lld the emptied cold part of its growth hides the frame of the next
/// function from the unwinder, which then aborts.
std::vector<Reading> ReadEach(Features& features, const std::vector<std::string>& names)
{
    std::vector<Reading> readings(names.size());
    for (size_t at = 0; at < names.size(); ++at)
    {
        readings[at] = features.Read(names[at]);
    }
    return readings;
}

ExitCode List(const CommonOptions& common, const FeatureOptions& options)
{
    NeedFeatureEngine();
    ModuleSession session(common, options.module, ModuleUse::Read);
    Features features(session.Port(), false);
    const std::string filter = options.arguments.empty() ? "" : options.arguments.front();
    std::vector<std::string> names;
    std::copy_if(features.Names().begin(), features.Names().end(), std::back_inserter(names),
                 [&filter](const std::string& name) { return Fits(name, filter); });
    if (names.empty())
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("no feature has \"{}\" in its name", filter));
    }
    const std::vector<Reading> readings = ReadEach(features, names);
    common.json ? PrintReadings(common, readings) : PrintList(readings);
    return ExitCode::Success;
}

/// The features of the names; control is wanted where a selector may have to be changed for one.
std::vector<Reading> ReadAll(const CommonOptions& common, const FeatureOptions& options)
{
    NeedFeatureEngine();
    const bool selects = std::any_of(options.arguments.begin(), options.arguments.end(),
                                     [](const std::string& name) { return name.find('[') != std::string::npos; });
    ModuleSession session(common, options.module, selects ? ModuleUse::ControlIfFree : ModuleUse::Read);
    Features features(session.Port(), session.HasControl());
    return ReadEach(features, options.arguments);
}

ExitCode Get(const CommonOptions& common, const FeatureOptions& options)
{
    const std::vector<Reading> readings = ReadAll(common, options);
    PrintReadings(common, readings);
    for (const Reading& reading : readings)
    {
        if (!reading.problem.empty())
        {
            throw ToolFailure(ExitCode::Failure, reading.name + ": " + reading.problem);
        }
    }
    return ExitCode::Success;
}

ExitCode Describe(const CommonOptions& common, const FeatureOptions& options)
{
    const std::vector<Reading> readings = ReadAll(common, options);
    if (common.json)
    {
        PrintReadings(common, readings);
        return ExitCode::Success;
    }
    for (const Reading& reading : readings)
    {
        PrintDescription(reading);
    }
    return ExitCode::Success;
}

ExitCode Set(const CommonOptions& common, const FeatureOptions& options)
{
    NeedFeatureEngine();
    for (const std::string& text : options.arguments)
    {
        static_cast<void>(ParseFeatureName(ParseSetting(text).name));
    }
    ModuleSession session(common, options.module, ModuleUse::Control);
    Features features(session.Port());
    features.SetAll(options.arguments);
    std::vector<std::string> names;
    for (const std::string& text : options.arguments)
    {
        names.push_back(ParseSetting(text).name);
    }
    PrintReadings(common, ReadEach(features, names));
    return ExitCode::Success;
}

ExitCode Execute(const CommonOptions& common, const FeatureOptions& options)
{
    NeedFeatureEngine();
    ModuleSession session(common, options.module, ModuleUse::Control);
    Features features(session.Port());
    const std::string& name = options.arguments.front();
    features.Execute(name);
    if (common.json)
    {
        PrintJson({{"executed", name}});
    }
    else
    {
        fmt::print("{} executed\n", Printable(name));
    }
    return ExitCode::Success;
}

struct VerbRow
{
    const char* name;
    const char* about;
    const char* argument;
    const char* argumentAbout;
    int least; ///< number of arguments
    int most;
    bool control;
    ExitCode (*run)(const CommonOptions&, const FeatureOptions&);
};

constexpr int kAny = 1 << 20;

constexpr VerbRow kVerbs[] = {
    {"features", "List features with their values", "FILTER", "A part of their names", 0, 1, false, List},
    {"get", "Print the values of features", "NAME", "Feature, or NAME[SELECTION] as in Gain[AnalogAll]", 1, kAny, false,
     Get},
    {"describe", "Print all about features", "NAME", "Feature, or NAME[SELECTION]", 1, kAny, false, Describe},
    {"set", "Set features, in order", "SETTING", "NAME=VALUE: a feature, or NAME[SELECTION], and its value", 1, kAny,
     true, Set},
    {"exec", "Execute a command", "NAME", "Feature that is a command", 1, 1, true, Execute},
};

} // namespace

void AddFeatureVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    for (const VerbRow& row : kVerbs)
    {
        CLI::App* const verb = app.add_subcommand(row.name, row.about);
        auto options = std::make_shared<FeatureOptions>();
        AddModuleOptions(*verb, options->module, row.control);
        verb->add_option(row.argument, options->arguments, row.argumentAbout)
            ->expected(std::max(1, row.least), row.most) // with 0 CLI11 takes what stands behind "--" for options
            ->required(row.least > 0);
        verb->callback(
            [&, options, run = row.run] { chosen = [&common, options, run] { return run(common, *options); }; });
    }
}

} // namespace nq::tool
