// SPDX-License-Identifier: Apache-2.0
// One measurement of frames: takes them from the library or from a reference, as fast as they come, and prints JSON:
// the rate, and what a frame cost this process. Run beside a virtual camera; `./run bench` alternates its calls.
#include "call_counts.h"
#include "frame_source.h"
#include "nq_version.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace
{

using namespace nq::bench;
using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

struct Options
{
    std::string road = "library";
    std::vector<std::string> cameras;
    SourcePlan plan;
    double seconds = 0.5;
    bool latency = false;
    std::size_t show = 0;
};

/// What has been used up to a moment.
struct Reading
{
    Clock::time_point time;
    double cpuSeconds = 0;
    std::uint64_t sleeps = 0; ///< Times that a thread went to sleep of its own accord, and so had to be woken.
    std::uint64_t preemptions = 0;
    std::uint64_t frames = 0;
    CallCounts calls;
};

std::unique_ptr<FrameSource> MakeSource(const Options& options, const std::string& camera)
{
    SourcePlan plan = options.plan;
    plan.camera = camera;
    if (options.road == "bare")
    {
        return MakeBareSource(plan);
    }
    return options.road == "handover" ? MakeHandoverSource(plan) : MakeLibrarySource(plan);
}

/// The consumer of one camera.
class Consumer
{
  public:
    Consumer(const Options& options, const std::string& camera) : m_source(MakeSource(options, camera)) {}

    void Start() { m_source->Start(); }
    void Stop() { m_source->Stop(); }

    /// One frame: looks at its first pixel and gives it back.
    void Take(Json* show = nullptr, std::vector<double>* ages = nullptr)
    {
        SourceFrame frame;
        if (!m_source->Next(frame) || frame.pixels == nullptr || frame.size == 0)
        {
            throw std::runtime_error("no frame came");
        }
        if (ages != nullptr)
        {
            ages->push_back(CallCounts::SinceCompletion());
        }
        m_looked = m_looked + *frame.pixels;
        if (show != nullptr)
        {
            show->push_back(Describe(frame));
        }
        m_source->Return(frame);
        m_frames.store(m_frames.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    std::uint64_t Frames() const { return m_frames.load(std::memory_order_relaxed); }

  private:
    static Json Describe(const SourceFrame& frame)
    {
        Json pixels = Json::array();
        for (const std::size_t at : std::array{std::size_t{0}, frame.size / 3, frame.size / 2, frame.size - 1})
        {
            pixels.push_back({at, frame.pixels[at]});
        }
        return {{"id", frame.id}, {"size", frame.size}, {"pixels", pixels}};
    }

    std::unique_ptr<FrameSource> m_source;
    volatile unsigned m_looked = 0;
    std::atomic<std::uint64_t> m_frames{0};
};

using Consumers = std::vector<std::unique_ptr<Consumer>>;

Reading ReadAll(const Consumers& consumers)
{
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    Reading reading;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    reading.time = Clock::now();
    reading.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    reading.sleeps = static_cast<std::uint64_t>(usage.ru_nvcsw);
    reading.preemptions = static_cast<std::uint64_t>(usage.ru_nivcsw);
    for (const auto& consumer : consumers)
    {
        reading.frames += consumer->Frames();
    }
    reading.calls = CallCounts::Now();
    return reading;
}

Json Result(const Reading& before, const Reading& after)
{
    const double seconds = std::chrono::duration<double>(after.time - before.time).count();
    const auto frames = static_cast<double>(after.frames - before.frames);
    const auto perFrame = [frames](std::uint64_t from, std::uint64_t to) {
        return static_cast<double>(to - from) / frames;
    };
    Json result = {{"frames", after.frames - before.frames},
                   {"seconds", seconds},
                   {"frames_per_second", frames / seconds},
                   {"cpu_us_per_frame", (after.cpuSeconds - before.cpuSeconds) * 1e6 / frames},
                   {"wakeups_per_frame", perFrame(before.sleeps, after.sleeps)},
                   {"preemptions_per_frame", perFrame(before.preemptions, after.preemptions)}};
    if (CallCounts::kAvailable)
    {
        result["locks_per_frame"] = perFrame(before.calls.locks, after.calls.locks);
        result["notifies_per_frame"] = perFrame(before.calls.notifies, after.calls.notifies);
        result["waits_per_frame"] = perFrame(before.calls.waits, after.calls.waits);
        if (after.calls.syscalls != 0)
        {
            result["syscalls_per_frame"] = perFrame(before.calls.syscalls, after.calls.syscalls);
        }
    }
    return result;
}

/// At these parts of all that were measured, the smallest first.
Json Percentiles(std::vector<double> ages)
{
    std::sort(ages.begin(), ages.end());
    const auto at = [&ages](double part) {
        return ages[static_cast<std::size_t>(part * static_cast<double>(ages.size()))];
    };
    return {{"p50", at(0.5)}, {"p99", at(0.99)}, {"p99.9", at(0.999)}};
}

/// Frames until every buffer has been round thrice, and a tenth of the time that is measured.
void WarmUp(const Options& options, Consumer& consumer, Json& shown)
{
    const auto end = Clock::now() + std::chrono::duration<double>(options.seconds / 10);
    const std::size_t least = std::max(options.show, 3 * options.plan.buffers);
    for (std::size_t frame = 0; frame < least || Clock::now() < end; ++frame)
    {
        consumer.Take(frame < options.show ? &shown : nullptr);
    }
}

Json Measure(const Options& options)
{
    CallCounts::CountSyscalls();
    Consumers consumers;
    for (const std::string& camera : options.cameras)
    {
        consumers.push_back(std::make_unique<Consumer>(options, camera));
        consumers.back()->Start();
    }
    CallCounts::CountCallsOf(options.road == "library" ? "libnq_gev_rdma_tl.cti" : "");
    std::atomic<bool> stop{false};
    std::vector<std::thread> others;
    for (std::size_t index = 1; index < consumers.size(); ++index)
    {
        others.emplace_back([&consumer = *consumers[index], &stop] {
            while (!stop)
            {
                consumer.Take();
            }
        });
    }
    Json shown = Json::array();
    WarmUp(options, *consumers[0], shown);
    const Reading before = ReadAll(consumers);
    const auto end = before.time + std::chrono::duration<double>(options.seconds);
    std::vector<double> ages;
    do
    {
        consumers[0]->Take(nullptr, options.latency ? &ages : nullptr);
    } while (Clock::now() < end);
    const Reading after = ReadAll(consumers);
    stop = true;
    for (std::thread& other : others)
    {
        other.join();
    }
    Json result = {{"road", options.road}, {"announced", options.plan.announced}, {"buffers", options.plan.buffers}};
    result.update(Result(before, after));
    if (options.latency)
    {
        result["latency_us"] = Percentiles(std::move(ages));
    }
    if (options.show > 0)
    {
        result["shown"] = shown;
    }
    for (const auto& consumer : consumers)
    {
        consumer->Stop();
    }
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("What a frame costs");
    app.set_version_flag("--version", NQ_VERSION_TEXT(NQ_BENCH_PROGRAM));
    app.add_option("--road", options.road)->check(CLI::IsMember({"library", "handover", "bare"}));
    app.add_option("--camera", options.cameras, "dotted IPv4 addresses")->required();
    app.add_option("--producer", options.plan.producer, "path of the library");
    app.add_option("--buffers", options.plan.buffers);
    app.add_flag("--announced", options.plan.announced, "buffers of the consumer");
    app.add_option("--seconds", options.seconds);
    if (CallCounts::kAvailable)
    {
        app.add_flag("--latency", options.latency,
                     "from the completion to the consumer; for a camera that takes its time");
    }
    app.add_option("--show", options.show, "how many of the first frames to describe");
    CLI11_PARSE(app, argc, argv);
    try
    {
        fmt::print("{}\n", Measure(options).dump(2));
        return 0;
    }
    catch (const std::exception& failure)
    {
        fmt::print(stderr, NQ_BENCH_PROGRAM ": {}\n", failure.what());
        return 1;
    }
}
