// SPDX-License-Identifier: Apache-2.0
// nq-gev grab: takes frames from a camera, checks them, writes them as pictures and sums up.
#include "camera_choice.h"
#include "camera_owner.h"
#include "grab_options.h"
#include "grab_session.h"
#include "grabber.h"
#include "name_pattern.h"
#include "picture_files.h"
#include "printable.h"
#include "stop_signals.h"
#include "verbs.h"
#include "whole_number.h"

#include <chrono>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace nq::tool
{

namespace
{

/// To standard output, or standard error when pictures go there.
void PrintSummary(const CommonOptions& common, const GrabOptions& options, const FoundCamera& used,
                  const GrabTotals& totals)
{
    std::FILE* const file = options.pictures.out == "-" ? stderr : stdout;
    if (isatty(STDERR_FILENO) != 0)
    {
        fmt::print(stderr, "\r\033[K"); // where the progress stands
    }
    const char* origin = options.announce ? "consumer-announced" : "library-allocated";
    if (common.json)
    {
        nlohmann::ordered_json summary = totals.Json();
        summary["camera"] = used.camera.id;
        summary["producer"] = used.producer;
        summary["buffers"] = options.buffers;
        summary["buffer_origin"] = origin;
        if (options.verify)
        {
            summary["wrong_bytes"] = totals.wrongBytes;
        }
        fmt::print(file, "{}\n", summary.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
        return;
    }
    fmt::print(file, "camera     {}\nproducer   {}\n", Printable(used.camera.id), Printable(used.producer));
    fmt::print(file, "buffers    {} {}\n{}", options.buffers, origin, totals.Text());
    if (options.verify)
    {
        fmt::print(file, "wrong      {} bytes\n", totals.wrongBytes);
    }
}

/// Opens the camera once it is free. Another program that waits as well may be the faster one; then it is waited for
/// again.
std::unique_ptr<GrabSession> OpenFreeCamera(const System& system, const CameraEntry& camera, const GrabOptions& options)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options.waitSeconds);
    while (true)
    {
        AwaitFreeCamera(camera, end);
        try
        {
            return std::make_unique<GrabSession>(
                system, camera, options.announce ? BufferOrigin::Consumer : BufferOrigin::Library, options.buffers);
        }
        catch (const ToolFailure& failure)
        {
            if (failure.Code() != ExitCode::CameraInUse || std::chrono::steady_clock::now() >= end)
            {
                throw;
            }
        }
    }
}

ExitCode Grab(const CommonOptions& common, GrabOptions options)
{
    const FoundCamera used = ChooseCamera(common, options.camera);
    GenTLLibrary library(used.producer);
    const System system(library);
    options.pictures.camera = !used.camera.userName.empty() ? used.camera.userName
                              : !used.camera.serial.empty() ? used.camera.serial
                                                            : used.camera.id;
    CatchStopSignals(); // from here on a camera may be held, which has to be given back
    std::unique_ptr<GrabSession> session = OpenFreeCamera(system, used.camera, options);
    Grabber grabber(*session, options);
    if (!StopAsked())
    {
        session->Start();
    }
    grabber.Run();
    session.reset(); // the camera is free before the last pictures are written
    grabber.Finish();
    PrintSummary(common, options, used, grabber.Totals());
    const std::optional<ToolFailure> failure = grabber.Failure();
    if (failure && StopAsked() && failure->Code() == ExitCode::WrongPicture)
    {
        throw ToolFailure(StopCode(), failure->what());
    }
    if (failure)
    {
        throw ToolFailure(*failure);
    }
    return StopAsked() ? StopCode() : ExitCode::Success;
}

void AddPictureOptions(CLI::App& verb, PictureOptions& options)
{
    std::map<std::string, PictureFormat> formats = {{"png", PictureFormat::Png}, {"raw", PictureFormat::Raw}};
    if (kWithTiff)
    {
        formats.emplace("tiff", PictureFormat::Tiff);
    }
    verb.add_option("--out", options.out, "Folder for the pictures; with --format raw also - for standard output");
    verb.add_option("--format", options.format,
                    "How pictures are written: png, tiff, or raw (as the camera sends them)")
        ->transform(CLI::CheckedTransformer(formats).description(kWithTiff ? "png, tiff or raw" : "png or raw"))
        ->default_str("png");
    verb.add_option("--name", options.name, "Names of the files: {camera}, {id} and {time} are filled in")
        ->check([](const std::string& pattern) { return WhyNoPattern(pattern); })
        ->capture_default_str();
    verb.add_flag("--overwrite", options.overwrite, "Replace files that are there already");
    verb.add_flag("--debayer", options.debayer, "Write the mosaic of a Bayer format as colours");
}

void CheckPictureOptions(const GrabOptions& options)
{
    if (options.pictures.out == "-" && options.pictures.format != PictureFormat::Raw)
    {
        throw CLI::ValidationError("--out -", "takes --format raw");
    }
    if (options.pictures.debayer && options.pictures.format == PictureFormat::Raw)
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
    verb->add_option("--metadata", options->metadata, "File for one line of JSON per frame");
    verb->add_option("--camera", options->camera,
                     "Id, serial number, user-defined name, MAC or IP address (default: the only one)");
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
