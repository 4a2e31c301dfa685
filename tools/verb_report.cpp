// SPDX-License-Identifier: Apache-2.0
// nq-gev report: all that somebody wants to know who helps from afar, in one text.
#include "doctor/report.h"
#include "feature_json.h"
#include "new_file.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <system_error>

namespace nq::tool
{

namespace
{

std::string Report(const CommonOptions& common)
{
    const doctor::DoctorOptions options;
    return common.json ? doctor::ReportJson(common, options) : doctor::ReportText(common, options);
}

ExitCode Run(const CommonOptions& common, const std::string& path)
{
    if (path.empty())
    {
        fmt::print("{}", Report(common));
        return ExitCode::Success;
    }
    const std::filesystem::path absolute = std::filesystem::absolute(path);
    if (std::error_code none; std::filesystem::exists(std::filesystem::symlink_status(absolute, none)))
    {
        throw std::system_error(EEXIST, std::generic_category(), absolute.string()); // before seconds are spent on it
    }
    NewFile file(absolute);
    fmt::print(file.Stream(), "{}", Report(common));
    file.Publish(false);
    if (common.json)
    {
        PrintJson({{"file", path}});
    }
    else
    {
        fmt::print("{}It is in {}\n", doctor::ReportContents(), path);
    }
    return ExitCode::Success;
}

} // namespace

void AddReportVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("report", "Write down all that helps others to help, and say what that is");
    const auto path = std::make_shared<std::string>();
    verb->add_option("-o,--output", *path, "A new file for it (else standard output)");
    verb->callback([&common, &chosen, path] { chosen = [&common, path] { return Run(common, *path); }; });
}

} // namespace nq::tool
