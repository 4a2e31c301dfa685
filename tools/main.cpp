// SPDX-License-Identifier: Apache-2.0
// nq-gev: lists cameras and grabs pictures through any GenTL producer.
#include "completion.h"
#include "gentl_library.h"
#include "nq_version.h"
#include "printable.h"
#include "software_rdma.h"
#include "standard_output.h"
#include "verbs.h"
#include "whole_number.h"
#include "words.h"
#include "write_requests.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace
{

constexpr const char* kExitCodesText =
    "Exit codes: 0 success, 1 failure, 2 wrong arguments, 3 no producer, 4 no camera, 5 the stream did not start,\n"
    "6 frames stopped coming or the camera went silent, 7 lost, incomplete, wrong or refused frames,\n"
    "8 another program controls the camera, 130 ended by ^C, 143 by SIGTERM.\n"
    "Of several cameras the worst counts: the one that comes first in 1, 3, 5, 8, 6, 7, 130 and 143, 0.\n\n"
    "Examples:\n"
    "  nq-gev list\n"
    "  nq-gev grab --count 10 --out pictures\n"
    "  nq-gev grab --camera left --camera right --duration 60 --metadata frames.jsonl\n"
    "  nq-gev --software-rdma grab --count 10\n"
    "  nq-gev --producer /opt/vendor/producer.cti list --json";

/// Our producer reads it when it is initialised, here and in the processes that this one starts.
void AskForAnswers(const std::string& answers)
{
    constexpr const char* kSwitch = "NQ_GEV_TL_STANDARD";
    static_cast<void>(answers == "standard" ? setenv(kSwitch, "1", 1) : unsetenv(kSwitch));
}

/// Throws where the first word is no verb, of which CLI11 tells as of one that is missing.
void NeedKnownVerb(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<std::string> rest = app.remaining();
    const bool noVerb = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && app.get_subcommands().empty();
    if (noVerb && !rest.empty() && !rest.front().starts_with('-'))
    {
        throw nq::tool::ToolFailure(nq::tool::ExitCode::Usage,
                                    "there is no verb \"" + rest.front() + "\"; `nq-gev --help` lists them");
    }
}

int Run(int argc, char** argv)
{
    using namespace nq::tool;
    CLI::App app("Lists GigE Vision cameras and grabs pictures through a GenTL producer (.cti).", "nq-gev");
    app.set_version_flag("--version", NQ_VERSION_TEXT("nq-gev"), "Print versions and the commit, and end");
    nq::completion::AddCompletionOption(app);
    app.require_subcommand(1);
    app.footer(kExitCodesText);
    app.fallthrough();
    CommonOptions common;
    app.add_option("--producer", common.producer, "The .cti to load (else all in GENICAM_GENTL64_PATH, else ours)")
        ->check(CLI::ExistingFile);
    app.add_option("--answers", common.answers,
                   "What our producer answers: standard, or stated as its own hosts know it")
        ->check(OneOf({"standard", "stated"}, "standard or stated"))
        ->capture_default_str();
    app.add_flag("--json", common.json, "Print JSON instead of text");
    app.add_option("--timeout", common.timeoutMs, "How long to look for cameras on each interface, in milliseconds")
        ->check(WholeNumber(1, kMostMs, "milliseconds"))
        ->capture_default_str();
    app.add_flag("--software-rdma")
        ->disable_flag_override()
        ->description("Run on RDMA made of software, for a camera that does so on this machine");
    Verb chosen;
    AddListVerb(app, common, chosen);
    AddInfoVerb(app, common, chosen);
    AddGrabVerb(app, common, chosen);
    AddMeasureVerb(app, common, chosen);
    AddConvertVerb(app, common, chosen);
    AddFeatureVerbs(app, common, chosen);
    AddSettingsVerbs(app, common, chosen);
    AddEventsVerb(app, common, chosen);
    AddWatchVerb(app, common, chosen);
    AddPortVerbs(app, common, chosen);
    AddDoctorVerb(app, common, chosen);
    AddReportVerb(app, common, chosen);
    AddIpVerb(app, common, chosen);
#ifdef NQ_WITH_VIEW
    AddViewVerb(app, common, chosen);
#endif
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        NeedKnownVerb(app, error);
        if (app.exit(error) != 0)
        {
            return static_cast<int>(ExitCode::Usage);
        }
        FlushOutput();
        return 0;
    }
    AskForAnswers(common.answers);
    ReleaseWriteRequests();
    const ExitCode code = chosen();
    FlushOutput();
    return static_cast<int>(code);
}

/// Takes the places of closed standard files, which pipes and sockets would get else. Writing there fails as before.
void FillStandardFiles()
{
    for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (fcntl(file, F_GETFD) == -1)
        {
            static_cast<void>(open("/dev/null", O_RDONLY)); // the lowest that is free
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    using namespace nq::tool;
    HoldWriteRequests();
    FillStandardFiles();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is a failure like a full disk
    std::signal(SIGCHLD, SIG_DFL); // who ignores it, and programs started by those, hear of no child's end
    const auto tell = [](const std::exception& failure) {
        std::fprintf(stderr, "nq-gev: %s\n", Printable(failure.what()).c_str());
    };
    try
    {
        StartAgainOnSoftwareRdma(argc, argv);
        return Run(argc, argv);
    }
    catch (const ToolFailure& failure)
    {
        tell(failure);
        return static_cast<int>(failure.Code());
    }
    catch (const std::system_error& failure)
    {
        // What is longer than a buffer is written where it is printed, and fails with a text of fmt's.
        const bool output = std::ferror(stdout) != 0;
        output ? tell(std::runtime_error(UnwrittenText(failure.code().value()))) : tell(failure);
        return static_cast<int>(ExitCode::Failure);
    }
    catch (const std::exception& failure)
    {
        tell(failure);
        return static_cast<int>(ExitCode::Failure);
    }
}
