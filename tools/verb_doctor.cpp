// SPDX-License-Identifier: Apache-2.0
// nq-gev doctor: why nothing comes, and what to do about it.
#include "doctor/doctor.h"
#include "grab_options.h"
#include "verbs.h"
#include "whole_number.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>

namespace nq::tool
{

namespace
{

ExitCode Run(const CommonOptions& common, const doctor::DoctorOptions& options, bool table)
{
    if (table)
    {
        fmt::print("{}", doctor::TableText());
        return ExitCode::Success;
    }
    const std::vector<doctor::Finding> findings = doctor::Examine(common, options);
    fmt::print("{}", common.json ? doctor::FindingsJson(findings) : doctor::FindingsText(findings));
    return doctor::CountOf(findings, doctor::Verdict::Wrong) == 0 ? ExitCode::Success : ExitCode::Failure;
}

} // namespace

void AddDoctorVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("doctor", "Say what is right, what is wrong, and the line that mends it");
    const auto options = std::make_shared<doctor::DoctorOptions>();
    const auto table = std::make_shared<bool>(false);
    verb->add_option("--camera", options->camera, "The camera that is meant, by any of its names (else all)");
    verb->add_option("--buffers", options->buffers, "How many frames a consumer wants to have memory for")
        ->check(WholeNumber(1, kMostBuffers))
        ->capture_default_str();
    verb->add_option("--frame-bytes", options->frameBytes, "How long a frame is, in bytes (else the camera is asked)")
        ->check(WholeNumber(1, UINT64_MAX, "bytes"));
    verb->add_option("--root", options->root, "Where to look for sys, proc and dev instead of /, for tests")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    verb->add_flag("--table", *table, "Print all that can be found, and how, and end");
    verb->callback([&common, &chosen, options, table] {
        chosen = [&common, options, table] { return Run(common, *options, *table); };
    });
}

} // namespace nq::tool
