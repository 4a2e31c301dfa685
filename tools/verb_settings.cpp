// SPDX-License-Identifier: Apache-2.0
// nq-gev save and load: the settings of a module in a file.
#include "feature_json.h"
#include "module_session.h"
#include "new_file.h"
#include "printable.h"
#include "settings_file.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <system_error>

namespace nq::tool
{

namespace
{

struct SettingsOptions
{
    ModuleOptions module;
    std::string file;
    bool overwrite = false;
};

/// Standard output or input instead of a file.
constexpr const char* kStandardFile = "-";

ExitCode Save(const CommonOptions& common, const SettingsOptions& options)
{
    NeedFeatureEngine();
    ModuleSession session(common, options.module, ModuleUse::ControlIfFree);
    Features features(session.Port(), session.HasControl());
    const SavedSettings saved = SettingsText(features, session.Port().Who(), session.HasControl());
    const auto count = static_cast<size_t>(ParseSettings(saved.text).settings.size());
    const bool inFile = options.file != kStandardFile;
    inFile ? WriteFile(options.file, saved.text, options.overwrite) : void();
    for (const std::string& one : saved.left)
    {
        fmt::print(stderr, "nq-gev: warning: {}\n", Printable(one));
    }
    if (!session.HasControl())
    {
        fmt::print(stderr,
                   "nq-gev: warning: another program controls the camera: of each selector one value is saved\n");
    }
    if (common.json)
    {
        nlohmann::ordered_json told = {
            {"file", options.file}, {"saved", count}, {"all", session.HasControl() && saved.left.empty()}};
        inFile ? void() : told.update({{"settings", saved.text}});
        PrintJson(told);
    }
    else if (!inFile)
    {
        fmt::print("{}", saved.text);
    }
    else
    {
        fmt::print("{} settings saved in {}\n", count, Printable(options.file));
    }
    return ExitCode::Success;
}

std::string TextOf(const std::string& path)
{
    if (path == kStandardFile)
    {
        return {std::istreambuf_iterator<char>(std::cin), {}};
    }
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("cannot read {}: {}", path, std::generic_category().message(errno)));
    }
    try
    {
        return {std::istreambuf_iterator<char>(file), {}};
    }
    catch (const std::system_error& failure) // a folder can be opened, but not read
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("cannot read {}: {}", path, failure.code().message()));
    }
}

/// For scripts, or told at once, behind `why`.
nlohmann::ordered_json Told(const CommonOptions& common, const char* why, const std::vector<UnsetSetting>& settings)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const UnsetSetting& one : settings)
    {
        list.push_back({{"name", one.setting.name}, {"value", one.setting.value}, {"reason", one.reason}});
        if (!common.json)
        {
            fmt::print("{}: {}\n", why, Printable(one.reason));
        }
    }
    return list;
}

ExitCode Load(const CommonOptions& common, const SettingsOptions& options)
{
    NeedFeatureEngine();
    SettingsFile file = ParseSettings(TextOf(options.file));
    const size_t all = file.settings.size();
    if (all == 0)
    {
        throw ToolFailure(ExitCode::Usage,
                          fmt::format("{} holds no setting; nothing was changed",
                                      options.file == kStandardFile ? "standard input" : options.file));
    }
    ModuleSession session(common, options.module, ModuleUse::Control);
    Features features(session.Port());
    const std::vector<UnsetSetting> left = LeaveOutIdentity(file, session.Port().Who());
    const std::vector<UnsetSetting> unset = ApplySettings(features, file.settings);
    const size_t set = file.settings.size() - unset.size();
    const nlohmann::ordered_json notSet = Told(common, "not set", unset);
    const nlohmann::ordered_json leftOut = Told(common, "left out", left);
    if (common.json)
    {
        PrintJson({{"file", options.file}, {"set", set}, {"not_set", notSet}, {"left_out", leftOut}});
    }
    else
    {
        fmt::print("{} of {} settings set from {}\n", set, all, Printable(options.file));
    }
    return unset.empty() ? ExitCode::Success : ExitCode::Failure;
}

} // namespace

void AddSettingsVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    auto options = std::make_shared<SettingsOptions>();
    CLI::App* const save = app.add_subcommand("save", "Save the settings of a module in a file");
    CLI::App* const load = app.add_subcommand(
        "load", "Set what a file of `save` says; name and persistent address of a camera only to the "
                "camera that the file is of");
    for (CLI::App* const verb : {save, load})
    {
        AddModuleOptions(*verb, options->module, true);
        verb->add_option("FILE", options->file,
                         std::string("The file; - is standard ") + (verb == save ? "output" : "input"))
            ->required();
    }
    save->add_flag("--overwrite", options->overwrite, "Replace a file that is there already");
    save->callback([&, options] { chosen = [&common, options] { return Save(common, *options); }; });
    load->callback([&, options] { chosen = [&common, options] { return Load(common, *options); }; });
}

} // namespace nq::tool
