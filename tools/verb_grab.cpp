// SPDX-License-Identifier: Apache-2.0
// nq-gev grab: takes frames from a camera, checks them, writes them as pictures and sums up.
#include "camera_choice.h"
#include "camera_grab.h"
#include "grab_options.h"
#include "name_pattern.h"
#include "picture_files.h"
#include "printable.h"
#include "stop_signals.h"
#include "verbs.h"
#include "whole_number.h"

#include <algorithm>
#include <deque>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace nq::tool
{

namespace
{

const char* OriginOfBuffers(const GrabOptions& options)
{
    return options.announce ? "consumer-announced" : "library-allocated";
}

nlohmann::ordered_json SummaryJson(const GrabOptions& options, const CameraGrab& grab)
{
    nlohmann::ordered_json summary = grab.Totals().Json();
    summary["camera"] = grab.Found().camera.id;
    summary["producer"] = grab.Found().producer;
    summary["buffers"] = options.buffers;
    summary["buffer_origin"] = OriginOfBuffers(options);
    if (options.verify)
    {
        summary["wrong_bytes"] = grab.Totals().wrongBytes;
    }
    return summary;
}

std::string SummaryText(const GrabOptions& options, const CameraGrab& grab)
{
    std::string text =
        fmt::format("camera     {}\nproducer   {}\nbuffers    {} {}\n{}", Printable(grab.Found().camera.id),
                    Printable(grab.Found().producer), options.buffers, OriginOfBuffers(options), grab.Totals().Text());
    return text + (options.verify ? fmt::format("wrong      {} bytes\n", grab.Totals().wrongBytes) : "");
}

/// To standard output, or standard error when pictures go there.
void PrintSummary(const CommonOptions& common, const GrabOptions& options, const std::deque<CameraGrab>& grabs)
{
    std::FILE* const file = options.pictures.out == "-" ? stderr : stdout;
    if (isatty(STDERR_FILENO) != 0)
    {
        fmt::print(stderr, "\r\033[K"); // where the progress stands
    }
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
    fmt::print(file, "{}", text);
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
        failure = failure ? failure : unwritten;
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
                    "Folder for the pictures; with --format raw and gendc also - for standard output");
    verb.add_option("--format", options.format,
                    "How pictures are written: png, tiff, raw (as the camera sends them), or gendc (the same in a "
                    "container that tells size and format)")
        ->transform(
            CLI::CheckedTransformer(formats).description(kWithTiff ? "png, tiff, raw or gendc" : "png, raw or gendc"))
        ->default_str("png");
    verb.add_option("--name", options.name, "Names of the files: {camera}, {id} and {time} are filled in")
        ->check([](const std::string& pattern) { return WhyNoPattern(pattern); })
        ->default_str("frame-{id}; of several cameras {camera}-{id}");
    verb.add_flag("--overwrite", options.overwrite, "Replace files that are there already");
    verb.add_flag("--debayer", options.debayer, "Write the mosaic of a Bayer format as colours");
}

void CheckPictureOptions(const GrabOptions& options)
{
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
    verb->add_option("--count", options->count, "Number of frames (default: 1, without --duration)")
        ->check(WholeNumber(1, kMostFrames));
    verb->add_option("--duration", options->durationS, "How long to take frames, in seconds")
        ->check(WholeNumber(1, kMostMs / 1000 * 365, "seconds"));
    verb->add_option("SETTING", options->settings, "NAME=VALUE: features to set before the start, in order");
    verb->add_option("--metadata", options->metadata, "File for one line of JSON per frame");
    CLI::Option* const named =
        verb->add_option(
                "--camera", options->cameras,
                "Id, serial number, user-defined name, MAC or IP address (default: the only one); once for each "
                "of several")
            ->allow_extra_args(false);
    verb->add_flag("--all-cameras", options->allCameras, "Take frames from every camera that answers")->excludes(named);
    verb->add_option("--wait", options->waitSeconds, "Seconds to wait for a camera that another program controls")
        ->check(WholeNumber(0, kMostMs / 1000, "seconds"))
        ->capture_default_str();
    verb->add_option("--save-every", options->saveEvery, "Write only every Nth frame")
        ->check(WholeNumber(1, kMostFrames))
        ->capture_default_str();
    verb->add_option("--buffers", options->buffers, "Number of buffers")
        ->check(WholeNumber(1, kMostBuffers))
        ->capture_default_str();
    verb->add_option("--allow-loss", options->allowLoss, "Lost and incomplete frames that are no failure (exit code 7)")
        ->check(WholeNumber(0, kMostFrames))
        ->capture_default_str();
    verb->add_flag("--announce", options->announce,
                   "Announce buffers of this program instead of library-allocated ones");
    verb->add_flag("--verify", options->verify, "Check every byte against the moving ramp of nq-gev-camera");
    verb->add_option("--frame-timeout", options->frameTimeoutMs, "How long to wait for one frame, in milliseconds")
        ->check(WholeNumber(1, kMostMs, "milliseconds"))
        ->capture_default_str();
    AddPictureOptions(*verb, options->pictures);
    verb->callback([&, options] {
        CheckPictureOptions(*options);
        options->count = options->count == 0 && options->durationS == 0 ? 1 : options->count;
        chosen = [&common, options] { return Grab(common, *options); };
    });
}

} // namespace nq::tool
