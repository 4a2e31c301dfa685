// SPDX-License-Identifier: Apache-2.0
// nq-gev measure: how evenly frames come, and what taking them costs.
#include "camera_choice.h"
#include "grab_arguments.h"
#include "grab_summary.h"
#include "measure_plot.h"
#include "new_file.h"
#include "printable.h"
#include "stop_signals.h"
#include "verbs.h"
#include "whole_number.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace nq::tool
{

namespace
{

constexpr uint64_t kUsualSeconds = 10;

struct MeasureOptions
{
    GrabOptions grab;
    std::string camera; ///< empty for the only one
    std::string plot;   ///< file for it; empty for none
    bool overwrite = false;
};

constexpr double kUsInS = 1e6;

std::string RowOf(const char* name, const TimeDistribution& times)
{
    return fmt::format("{:<16}{:>11.3f}{:>11.3f}{:>11.3f}{:>11.3f}{:>11.3f}{:>11.3f}{:>11.3f}\n", name, times.Least(),
                       times.Mean(), times.Within(0.5), times.Within(0.9), times.Within(0.99), times.Within(0.999),
                       times.Most());
}

std::string TextOf(const GrabOptions& options, const CameraGrab& grab, const FrameTimes& times)
{
    std::string text = SourceText(options, grab) + grab.Totals().StreamText() + VerifiedText(options, grab.Totals());
    const std::optional<CpuTime> cpu = times.CpuPerFrame();
    if (!cpu)
    {
        return text;
    }
    text += fmt::format("cpu        {:.1f} us per frame (user {:.1f}, system {:.1f}), {:.1f}% of one processor\n\n",
                        (cpu->user + cpu->system) * kUsInS, cpu->user * kUsInS, cpu->system * kUsInS,
                        times.CpuShare() * 100);
    text += fmt::format("{:<16}{:>11}{:>11}{:>11}{:>11}{:>11}{:>11}{:>11}\n", "ms", "least", "mean", "50%", "90%",
                        "99%", "99.9%", "most");
    return text + RowOf("between frames", times.Intervals()) + RowOf("event to requeue", times.Holds());
}

nlohmann::ordered_json JsonOf(const TimeDistribution& times)
{
    return {{"min", times.Least()},     {"mean", times.Mean()},      {"p50", times.Within(0.5)},
            {"p90", times.Within(0.9)}, {"p99", times.Within(0.99)}, {"p99_9", times.Within(0.999)},
            {"max", times.Most()}};
}

nlohmann::ordered_json JsonOf(const GrabOptions& options, const CameraGrab& grab, const FrameTimes& times)
{
    nlohmann::ordered_json summary = grab.Totals().Json();
    summary.erase("pictures");
    summary.erase("waits");
    AddSource(summary, options, grab);
    const std::optional<CpuTime> cpu = times.CpuPerFrame();
    summary["cpu"] = nullptr;
    summary["interval_ms"] = nullptr;
    summary["requeue_ms"] = nullptr;
    if (cpu)
    {
        summary["cpu"] = {{"us_per_frame", (cpu->user + cpu->system) * kUsInS},
                          {"user_us_per_frame", cpu->user * kUsInS},
                          {"system_us_per_frame", cpu->system * kUsInS},
                          {"processors", times.CpuShare()}};
        summary["interval_ms"] = JsonOf(times.Intervals());
        summary["requeue_ms"] = JsonOf(times.Holds());
    }
    return summary;
}

void WritePlot(const MeasureOptions& options, const CameraGrab& grab, const FrameTimes& times)
{
    const std::optional<double> rate = grab.Totals().FramesPerSecond();
    if (!rate || times.Intervals().Count() == 0)
    {
        fmt::print(stderr, "nq-gev: no plot is written: it takes two frames\n");
        return;
    }
    const std::string subtitle =
        fmt::format("{} frames, {:.1f} frames/s, {:.1f} MB/s, {} lost, {:.1f} us of processor time per frame",
                    grab.Totals().frames, *rate, *grab.Totals().MegabytesPerSecond(), grab.Totals().lost,
                    (times.CpuPerFrame()->user + times.CpuPerFrame()->system) * kUsInS);
    WriteFile(options.plot, PlotOf(times, grab.Found().camera.id, subtitle), options.overwrite);
}

ExitCode Measure(const CommonOptions& common, const MeasureOptions& options)
{
    if (!options.plot.empty() && !options.overwrite)
    {
        RefuseExisting(options.plot); // and not after an hour
        RefuseWithoutFolder(options.plot);
    }
    const std::vector<FoundCamera> cameras = ChooseCameras(common, options.grab.cameras);
    const std::string name = ShortNames(cameras).front();
    FrameTimes times;
    GrabShare share{options.grab,
                    {.progress = Progress({name}, options.grab.count, ""), .metadata = nullptr, .times = &times}};
    CameraGrab grab(cameras.front(), {0, cameras.front().camera.id, name}, share);
    CatchStopSignals(); // from here on the camera may be held, which has to be given back
    grab.Run();
    std::optional<ToolFailure> failure = grab.Failure();
    if (grab.Ran())
    {
        PrintBehindProgress(
            stdout, common.json ? JsonOf(options.grab, grab, times)
                                          .dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) +
                                      "\n"
                                : TextOf(options.grab, grab, times));
    }
    try
    {
        if (grab.Ran() && !options.plot.empty())
        {
            WritePlot(options, grab, times);
        }
    }
    catch (const ToolFailure& unwritten)
    {
        if (failure)
        {
            fmt::print(stderr, "nq-gev: {}\n", Printable(unwritten.what())); // beside that, which has the exit code
        }
        failure = failure ? failure : unwritten;
    }
    if (failure)
    {
        throw ToolFailure(*failure);
    }
    return StopAsked() ? StopCode() : ExitCode::Success;
}

} // namespace

void AddMeasureVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* const verb =
        app.add_subcommand("measure", "Measure how evenly frames come from a camera, and what taking them costs");
    auto options = std::make_shared<MeasureOptions>();
    options->grab.verb = "measure";
    verb->add_option("--count", options->grab.count, "Number of frames")->check(WholeNumber(2, kMostFrames));
    AddStreamOptions(*verb, options->grab);
    verb->get_option("--duration")->description("How long to take frames, in seconds (default: 10, without --count)");
    verb->add_option("--camera", options->camera,
                     "Id, serial number, user-defined name, MAC or IP address (default: the only one)");
    verb->add_option("--plot", options->plot, "A new file for the times as curves, an SVG picture");
    verb->add_flag("--overwrite", options->overwrite, "Replace a file that is there already");
    verb->callback([&, options] {
        GrabOptions& grab = options->grab;
        grab.durationS = grab.count == 0 && grab.durationS == 0 ? kUsualSeconds : grab.durationS;
        if (!options->camera.empty())
        {
            grab.cameras = {options->camera};
        }
        chosen = [&common, options] { return Measure(common, *options); };
    });
}

} // namespace nq::tool
