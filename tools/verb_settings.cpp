// SPDX-License-Identifier: Apache-2.0
// nq-gev save and load: the settings of a module in a file.
#include "feature_json.h"
#include "module_session.h"
#include "new_file.h"
#include "printable.h"
#include "settings_file.h"
#include "stop_signals.h"

#include <cerrno>
#include <fmt/format.h>
#include <fstream>
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

ExitCode Save(const CommonOptions& common, const SettingsOptions& options)
{
    NeedFeatureEngine();
    CatchStopSignals(); // so that selectors are put back
    ModuleSession session(common, options.module, ModuleUse::ControlIfFree);
    Features features(session.Port(), session.HasControl());
    const std::string text = SettingsText(features, session.Port().Who(), session.HasControl());
    const auto count = static_cast<size_t>(ParseSettings(text).size());
    WriteFile(options.file, text, options.overwrite);
    if (!session.HasControl())
    {
        fmt::print(stderr,
                   "nq-gev: warning: another program controls the camera: of each selector one value is saved\n");
    }
    if (common.json)
    {
        PrintJson({{"file", options.file}, {"saved", count}, {"all", session.HasControl()}});
    }
    else
    {
        fmt::print("{} settings saved in {}\n", count, Printable(options.file));
    }
    return ExitCode::Success;
}

std::string TextOf(const std::string& path)
{
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

ExitCode Load(const CommonOptions& common, const SettingsOptions& options)
{
    NeedFeatureEngine();
    const std::vector<Setting> settings = ParseSettings(TextOf(options.file));
    CatchStopSignals();
    ModuleSession session(common, options.module, ModuleUse::Control);
    Features features(session.Port());
    const std::vector<UnsetSetting> unset = ApplySettings(features, settings);
    const size_t set = settings.size() - unset.size();
    nlohmann::ordered_json rest = nlohmann::ordered_json::array();
    for (const UnsetSetting& one : unset)
    {
        rest.push_back({{"name", one.setting.name}, {"value", one.setting.value}, {"reason", one.reason}});
        if (!common.json)
        {
            fmt::print("not set: {}\n", Printable(one.reason));
        }
    }
    if (common.json)
    {
        PrintJson({{"file", options.file}, {"set", set}, {"not_set", rest}});
    }
    else
    {
        fmt::print("{} of {} settings set from {}\n", set, settings.size(), Printable(options.file));
    }
    return unset.empty() ? ExitCode::Success : ExitCode::Failure;
}

} // namespace

void AddSettingsVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    auto options = std::make_shared<SettingsOptions>();
    CLI::App* const save = app.add_subcommand("save", "Save the settings of a module in a file");
    CLI::App* const load = app.add_subcommand("load", "Set what a file of `save` says");
    for (CLI::App* const verb : {save, load})
    {
        AddModuleOptions(*verb, options->module, true);
        verb->add_option("FILE", options->file, "The file")->required();
    }
    save->add_flag("--overwrite", options->overwrite, "Replace a file that is there already");
    save->callback([&, options] { chosen = [&common, options] { return Save(common, *options); }; });
    load->callback([&, options] { chosen = [&common, options] { return Load(common, *options); }; });
}

} // namespace nq::tool
