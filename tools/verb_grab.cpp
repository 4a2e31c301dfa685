// SPDX-License-Identifier: Apache-2.0
// nq-gev grab: takes frames from a camera, checks them, writes them as pictures and sums up.
#include "camera_choice.h"
#include "grab_arguments.h"
#include "grab_summary.h"
#include "name_pattern.h"
#include "picture_files.h"
#include "printable.h"
#include "stop_signals.h"
#include "verbs.h"
#include "whole_number.h"
#include "words.h"
#include "write_requests.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <deque>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <thread>

namespace nq::tool
{

namespace
{

nlohmann::ordered_json SummaryJson(const GrabOptions& options, const CameraGrab& grab)
{
    nlohmann::ordered_json summary = grab.Totals().Json();
    AddSource(summary, options, grab);
    if (options.burst != 0)
    {
        summary["bursts"] = grab.Bursts().Begun();
        summary["bursts_left_out"] = grab.Bursts().LeftOut();
    }
    if (options.ringS != 0)
    {
        summary["ring_writes"] = grab.Totals().ringWrites;
    }
    return summary;
}

std::string SummaryText(const GrabOptions& options, const CameraGrab& grab)
{
    std::string text = SourceText(options, grab) + grab.Totals().Text() + VerifiedText(options, grab.Totals());
    if (options.burst != 0)
    {
        const uint64_t leftOut = grab.Bursts().LeftOut();
        text += fmt::format("bursts     {}{}\n", grab.Bursts().Begun(),
                            leftOut == 0 ? "" : fmt::format(", and no time for {}", leftOut));
    }
    if (options.ringS != 0)
    {
        const uint64_t writes = grab.Totals().ringWrites;
        text += fmt::format("ring       written {} time{}\n", writes, writes == 1 ? "" : "s");
    }
    return text;
}

/// To standard output, or standard error when pictures or lines go there.
void PrintSummary(const CommonOptions& common, const GrabOptions& options, const std::deque<CameraGrab>& grabs)
{
    std::string text;
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const CameraGrab& grab : grabs)
    {
        text += (text.empty() ? "" : "\n") + SummaryText(options, grab);
        all.push_back(SummaryJson(options, grab));
        if (grabs.size() > 1)
        {
            const std::string problem = grab.Failure() ? grab.Failure()->what() : "";
            text += problem.empty() ? "" : fmt::format("problem    {}\n", Printable(problem));
            all.back()["problem"] = problem;
        }
    }
    if (common.json)
    {
        const nlohmann::ordered_json summary =
            grabs.size() == 1 ? all[0] : nlohmann::ordered_json{{"cameras", std::move(all)}};
        text = summary.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    }
    const bool taken = options.pictures.out == "-" || options.metadata == "-";
    PrintBehindProgress(taken ? stderr : stdout, text);
}

/// What holds for several cameras alone.
void FitToSeveral(GrabOptions& options, size_t cameras)
{
    if (options.pictures.out == "-")
    {
        throw ToolFailure(ExitCode::Usage, "--out - takes the frames of one camera");
    }
    if (options.pictures.name.find("{camera}") == std::string::npos)
    {
        throw ToolFailure(ExitCode::Usage, "--name needs {camera}: pictures of several cameras would have one name");
    }
    options.pictures.queuedBytes /= cameras;
}

/// Each camera on a thread of its own. What fails is told at once, for the others may go on for days.
void RunSideBySide(std::deque<CameraGrab>& grabs, Progress& progress)
{
    std::vector<std::jthread> threads;
    threads.reserve(grabs.size());
    for (size_t at = 0; at < grabs.size(); ++at)
    {
        CameraGrab& grab = grabs[at];
        try
        {
            threads.emplace_back([&grab, &progress, at] {
                grab.Run();
                if (grab.Failure())
                {
                    progress.Say(at, grab.Failure()->what());
                }
            });
        }
        catch (const std::system_error& refused)
        {
            grab.Fail(ToolFailure(ExitCode::Failure, "cannot start a thread: " + refused.code().message()));
            progress.Say(at, grab.Failure()->what());
        }
    }
}

/// The worst of what came of the cameras.
ExitCode WorstOf(const std::deque<CameraGrab>& grabs)
{
    const auto came = [&grabs](ExitCode code) {
        return std::any_of(grabs.begin(), grabs.end(),
                           [code](const CameraGrab& grab) { return grab.Failure() && grab.Failure()->Code() == code; });
    };
    for (const ExitCode code : {ExitCode::Failure, ExitCode::NoProducer, ExitCode::NoStream, ExitCode::CameraInUse,
                                ExitCode::CameraLost, ExitCode::WrongPicture})
    {
        if (came(code))
        {
            return code;
        }
    }
    return StopAsked() ? StopCode() : ExitCode::Success;
}

std::deque<CameraGrab> GrabsOf(const std::vector<FoundCamera>& cameras, const std::vector<std::string>& names,
                               GrabShare& share)
{
    std::deque<CameraGrab> grabs;
    for (size_t at = 0; at < cameras.size(); ++at)
    {
        grabs.emplace_back(cameras[at], GrabbedCamera{at, cameras[at].camera.id, names[at]}, share);
    }
    return grabs;
}

ExitCode Grab(const CommonOptions& common, GrabOptions options)
{
    const std::vector<FoundCamera> cameras =
        options.allCameras ? AllCameras(common) : ChooseCameras(common, options.cameras);
    const bool several = cameras.size() > 1;
    if (options.pictures.name.empty())
    {
        options.pictures.name = several ? "{camera}-{id}" : "frame-{id}";
    }
    if (several)
    {
        FitToSeveral(options, cameras.size());
    }
    const std::vector<std::string> names = ShortNames(cameras);
    const std::string& out = options.pictures.out;
    GrabShare share{options, {.progress = Progress(names, options.count, out == "-" ? "" : out), .metadata = nullptr}};
    if (!options.metadata.empty())
    {
        share.report.metadata = std::make_unique<MetadataFile>(options.metadata, options.pictures.overwrite);
    }
    std::deque<CameraGrab> grabs = GrabsOf(cameras, names, share);
    CatchStopSignals(); // from here on cameras may be held, which have to be given back
    several ? RunSideBySide(grabs, share.report.progress) : grabs.front().Run();
    std::optional<ToolFailure> failure = several ? std::nullopt : grabs.front().Failure();
    try
    {
        if (share.report.metadata)
        {
            share.report.metadata->Finish();
        }
    }
    catch (const ToolFailure& unwritten)
    {
        const bool told = std::any_of(grabs.begin(), grabs.end(), [&unwritten](const CameraGrab& grab) {
            return grab.Failure() && std::string_view(grab.Failure()->what()) == unwritten.what();
        });
        if (failure && !told)
        {
            share.report.progress.Say(0, unwritten.what()); // beside that, which has the exit code
        }
        failure = failure || told ? failure : unwritten;
    }
    if (several || grabs.front().Ran())
    {
        PrintSummary(common, options, grabs);
    }
    if (failure)
    {
        throw ToolFailure(*failure);
    }
    return WorstOf(grabs);
}

void AddPictureOptions(CLI::App& verb, PictureOptions& options)
{
    std::map<std::string, PictureFormat> formats = {
        {"png", PictureFormat::Png}, {"raw", PictureFormat::Raw}, {"gendc", PictureFormat::GenDC}};
    if (kWithTiff)
    {
        formats.emplace("tiff", PictureFormat::Tiff);
    }
    verb.add_option("--out", options.out,
                    "Folder for the pictures; with --format raw and gendc also - for standard output")
        ->check(NeverEmpty("a folder"));
    verb.add_option("--format", options.format,
                    "How pictures are written: png, tiff, raw (as the camera sends them), or gendc (the same in a "
                    "container that tells size and format)")
        ->transform(OneOf(formats, kWithTiff ? "png, tiff, raw or gendc" : "png, raw or gendc"))
        ->default_str("png");
    verb.add_option("--name", options.name, "Names of the files: {camera}, {id} and {time} are filled in")
        ->check([](const std::string& pattern) { return WhyNoPattern(pattern); })
        ->default_str("frame-{id}; of several cameras {camera}-{id}");
    verb.add_flag("--overwrite", options.overwrite, "Replace files that are there already");
    verb.add_flag("--debayer", options.debayer, "Write the mosaic of a Bayer format as colours");
}

void AddBurstOptions(CLI::App& verb, GrabOptions& options)
{
    CLI::Option* const burst =
        verb.add_option("--burst", options.burst, "Frames of each burst; those between bursts are left alone")
            ->check(WholeNumber(1, kMostFrames));
    CLI::Option* const every =
        verb.add_option("--every", options.everyS, "Seconds from the begin of one burst to that of the next")
            ->check(WholeNumber(1, kMostMs / 1000, "seconds"));
    burst->needs(every);
    every->needs(burst);
}

void AddRingOptions(CLI::App& verb, GrabOptions& options)
{
    CLI::Option* const ring =
        verb.add_option("--ring", options.ringS,
                        "Keep the frames of the last seconds in memory, and write them by Enter, SIGUSR1 or --on-event")
            ->check(WholeNumber(1, kMostMs / 1000, "seconds"))
            ->needs(verb.get_option("--out"))
            ->excludes(verb.get_option("--burst"));
    verb.add_option("--on-event", options.onEvent, "Event of the camera, by its name, that has them written")
        ->needs(ring);
}

/// What says how pictures are written wants to be told where.
void NeedOut(CLI::App& verb)
{
    for (const char* name : {"--format", "--name", "--debayer", "--save-every"})
    {
        verb.get_option(name)->needs(verb.get_option("--out"));
    }
}

void CheckOutputs(const GrabOptions& options)
{
    if (options.pictures.out == "-" && options.metadata == "-")
    {
        throw CLI::ValidationError("--metadata -", "standard output has the frames of --out -");
    }
    const bool asSent =
        options.pictures.format == PictureFormat::Raw || options.pictures.format == PictureFormat::GenDC;
    if (options.pictures.out == "-" && !asSent)
    {
        throw CLI::ValidationError("--out -", "takes --format raw or gendc");
    }
    if (options.pictures.debayer && asSent)
    {
        throw CLI::ValidationError("--debayer", "is for --format png and tiff: raw is what the camera sends");
    }
}

} // namespace

void AddGrabVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("grab", "Take frames from a camera");
    auto options = std::make_shared<GrabOptions>();
    verb->add_option("--count", options->count, "Number of frames (default: 1, without --duration, --burst and --ring)")
        ->check(WholeNumber(1, kMostFrames));
    AddStreamOptions(*verb, *options);
    verb->add_option("--metadata", options->metadata, "File for one line of JSON per frame; - for standard output")
        ->check(NeverEmpty("a file"));
    CLI::Option* const named =
        verb->add_option(
                "--camera", options->cameras,
                "Id, serial number, user-defined name, MAC or IP address (default: the only one); once for each "
                "of several")
            ->check(NeverEmpty("a camera"))
            ->allow_extra_args(false);
    verb->add_flag("--all-cameras", options->allCameras, "Take frames from every camera that answers")->excludes(named);
    AddBurstOptions(*verb, *options);
    verb->add_option("--save-every", options->saveEvery, "Write only every Nth frame")
        ->check(WholeNumber(1, kMostFrames))
        ->capture_default_str();
    AddPictureOptions(*verb, options->pictures);
    NeedOut(*verb);
    AddRingOptions(*verb, *options);
    verb->callback([&, options] {
        CheckOutputs(*options);
        const bool endless = options->durationS != 0 || options->burst != 0 || options->ringS != 0;
        options->count = options->count == 0 && !endless ? 1 : options->count;
        if (options->ringS != 0)
        {
            CatchWriteRequests();
        }
        chosen = [&common, options] { return Grab(common, *options); };
    });
}

} // namespace nq::tool
