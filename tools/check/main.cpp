// SPDX-License-Identifier: Apache-2.0
// gentl-check: says, rule by rule, whether a GenTL producer keeps the standard.
#include "baseline.h"
#include "completion.h"
#include "exit_codes.h"
#include "nq_version.h"
#include "other_process.h"
#include "printable.h"
#include "report.h"
#include "standard_output.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#include <unistd.h>

namespace
{

using namespace nq::check;
using nq::tool::ExitCode;

constexpr const char* kFooter =
    "Exit codes: 0 all that must and should be kept is kept (with --baseline: all is as it "
    "says),\n1 it is not, 2 wrong arguments, or a file that cannot be read or written, 3 the "
    "producer cannot be loaded.\n\n"
    "Examples:\n"
    "  gentl-check /opt/vendor/producer.cti\n"
    "  gentl-check producer.cti --only 'LB-*' --json\n"
    "  gentl-check producer.cti --repro BF-008 >again.c";

struct Options
{
    Target target;
    Selection selection;
    std::string baseline;
    std::string junit;
    std::string html;
    std::string repro;
    bool json = false;
    bool list = false;
    bool hold = false;
    bool markdown = false;
};

/// Empty, or what is wrong with a pattern: a slip would leave rules untried, and nobody the wiser.
std::string NamesARule(const std::string& pattern)
{
    return AnyRule([&](const Rule& rule) { return Fits(pattern, rule); }) ? "" : "no rule is called " + pattern;
}

std::string IsAnId(const std::string& id)
{
    return AnyRule([&](const Rule& rule) { return rule.id == id; }) ? "" : "no rule is called " + id;
}

void AddOptions(CLI::App& app, Options& options)
{
    app.add_option("PRODUCER", options.target.path, "The .cti to check")->check(CLI::ExistingFile);
    app.add_option("--interface", options.target.interfaceId, "Id of the camera's interface (else the first with one)");
    app.add_option("--device", options.target.deviceId, "Id of the camera (else the first)");
    app.add_option("--disturb", options.target.disturb,
                   "Shell command that makes the camera send one frame that is not whole");
    app.add_flag("--hold", options.hold, "Be the second process of a rule")->group("");
    app.add_option("--only", options.selection.only, "Rules to try: ids or shell patterns, with commas between")
        ->allow_extra_args(false)
        ->delimiter(',')
        ->check(NamesARule);
    app.add_option("--skip", options.selection.skip, "Rules to leave out: ids or shell patterns, with commas between")
        ->allow_extra_args(false)
        ->delimiter(',');
    app.add_option("--baseline", options.baseline, "Known failures: fails on other ones, and on ones that are gone")
        ->check(CLI::ExistingFile);
    app.add_flag("--json", options.json, "Print JSON instead of a table or a list");
    app.add_option("--junit", options.junit, "Write JUnit's XML to this file, too");
    app.add_option("--html", options.html, "Write a report to read to this file, too");
    app.add_option("--repro", options.repro, "Try one rule, and print its calls as a program in C if it is not kept")
        ->check(IsAnId);
    app.add_flag("--list", options.list, "Print the rules that --only and --skip leave, and end");
    app.add_flag("--list-markdown", options.markdown, "Print all rules for the documentation, and end");
    nq::completion::AddCompletionOption(app);
    app.footer(kFooter);
}

/// Shows on a terminal what is at work.
void ShowProgress(std::string_view family, size_t done)
{
    static const bool kTerminal = isatty(STDERR_FILENO) != 0;
    if (kTerminal)
    {
        fmt::print(stderr, "\r\033[K{} done, {}", done, family);
    }
}

void EndProgress()
{
    if (isatty(STDERR_FILENO) != 0)
    {
        fmt::print(stderr, "\r\033[K");
    }
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    if (!(file << text).flush())
    {
        throw nq::tool::ToolFailure(ExitCode::Usage, "cannot write " + path);
    }
}

void WriteFiles(const Options& options, const Report& report)
{
    if (!options.junit.empty())
    {
        WriteFile(options.junit, AsJUnit(report));
    }
    if (!options.html.empty())
    {
        WriteFile(options.html, AsHtml(report));
    }
}

void Print(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    {
        throw nq::tool::ToolFailure(ExitCode::Usage, "cannot write the output");
    }
}

ExitCode Check(const Options& options)
{
    Report report;
    const std::optional<Baseline> baseline =
        options.baseline.empty() ? std::nullopt : std::make_optional<Baseline>(options.baseline);
    WriteFiles(options, report); // empty ones at first: a path that is wrong is told at once
    Runner runner(options.target, options.selection, ShowProgress);
    report.problem = runner.Begin();
    report.target = runner.Tried();
    if (report.problem.empty())
    {
        report.findings = runner.Run();
    }
    EndProgress();
    if (baseline && report.problem.empty())
    {
        report.differences = baseline->Differences(report.findings);
    }
    WriteFiles(options, report);
    if (!report.problem.empty())
    {
        fmt::print(stderr, "gentl-check: {} {}\n", options.target.path, nq::tool::Printable(report.problem));
        Print(options.json ? AsJson(report) : "");
        return ExitCode::NoProducer;
    }
    const bool broken = report.findings.size() == 1 && report.findings[0].Broken();
    if (!options.repro.empty() && broken)
    {
        Print(AsProgram(report.findings[0]));
        return ExitCode::Failure;
    }
    Print(options.json ? AsJson(report) : AsTable(report));
    const bool failed = baseline ? !report.differences.empty()
                                 : std::any_of(report.findings.begin(), report.findings.end(),
                                               [](const Finding& finding) { return finding.Counts(); });
    return failed ? ExitCode::Failure : ExitCode::Success;
}

int Run(int argc, char** argv)
{
    CLI::App app("Says, rule by rule, whether a GenTL producer (.cti) keeps GenTL 1.5.", "gentl-check");
    app.set_version_flag("--version", NQ_VERSION_TEXT("gentl-check"), "Print versions and the commit, and end");
    Options options;
    AddOptions(app, options);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        if (app.exit(error) != 0)
        {
            return static_cast<int>(ExitCode::Usage);
        }
        nq::tool::FlushOutput();
        return 0;
    }
    if (options.list || options.markdown)
    {
        Print(options.markdown ? RulesAsMarkdown()
              : options.json   ? RulesAsJson(options.selection)
                               : ListOfRules(options.selection));
        return 0;
    }
    if (options.target.path.empty())
    {
        fmt::print(stderr, "gentl-check: which producer?\n");
        return static_cast<int>(ExitCode::Usage);
    }
    if (!options.repro.empty())
    {
        options.selection.only = {options.repro};
    }
    options.target.path = std::filesystem::absolute(options.target.path).string();
    if (options.hold)
    {
        return HoldCamera(options.target);
    }
    return static_cast<int>(Check(options));
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);
    try
    {
        return Run(argc, argv);
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "gentl-check: %s\n", nq::tool::Printable(failure.what()).c_str());
        return static_cast<int>(ExitCode::Usage);
    }
}
