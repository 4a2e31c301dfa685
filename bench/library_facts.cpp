// SPDX-License-Identifier: Apache-2.0
// What the library takes beside the flow of frames, one fact per call: the steps of a start, the memory of its blocks,
// the pages that a start touches, and single calls. Prints JSON. Run beside a virtual camera by `./run bench`.
#include "library_camera.h"
#include "nq_version.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/resource.h>
#include <thread>

namespace
{

using namespace nq::bench;
using nq::tool::GenTLLibrary;
using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

struct Options
{
    std::string fact;
    std::string camera;
    std::string producer;
    std::size_t buffers = 8;
    double seconds = 0.3;
};

/// Milliseconds of each step since the one before.
class Steps
{
  public:
    void Done(const std::string& step)
    {
        const auto now = Clock::now();
        m_steps[step + "_ms"] = std::chrono::duration<double, std::milli>(now - m_last).count();
        m_last = now;
    }
    Json Take() { return std::move(m_steps); }

  private:
    Clock::time_point m_last = Clock::now();
    Json m_steps = Json::object();
};

void TakeFrames(LibraryCamera& camera, std::size_t count)
{
    for (SourceFrame frame; count > 0; --count)
    {
        if (!camera.Next(frame))
        {
            throw std::runtime_error("no frame came");
        }
        camera.Return(frame);
    }
}

Json StepsOfAStart(const Options& options)
{
    Steps steps;
    std::optional<LibraryHost> host(options.producer);
    steps.Done("load_and_interfaces");
    std::optional<LibraryCamera> camera(std::in_place, *host, options.camera);
    steps.Done("find_and_open_camera");
    camera->OpenStream();
    camera->Announce(options.buffers, false);
    steps.Done("announce");
    camera->Start();
    steps.Done("start");
    TakeFrames(*camera, 1);
    steps.Done("first_frame");
    TakeFrames(*camera, 3 * options.buffers);
    steps.Done("more_frames");
    camera->Stop();
    steps.Done("stop");
    camera->Start();
    steps.Done("start_again");
    TakeFrames(*camera, 1);
    steps.Done("first_frame_again");
    camera->Stop();
    steps.Done("stop_again");
    camera.reset();
    host.reset();
    steps.Done("close");
    return steps.Take();
}

std::uint64_t ResidentBytes()
{
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;)
    {
        std::uint64_t kilobytes = 0;
        if (word == "Rss:" && file >> kilobytes)
        {
            return kilobytes * 1024;
        }
    }
    throw std::runtime_error("the system does not tell how much memory is resident");
}

/// What is resident of the mappings of at least this size.
std::uint64_t ResidentInLarge(std::uint64_t least)
{
    std::ifstream file("/proc/self/smaps");
    std::uint64_t size = 0;
    std::uint64_t sum = 0;
    for (std::string word; file >> word;)
    {
        std::uint64_t kilobytes = 0;
        if (word == "Size:")
        {
            file >> size;
        }
        else if (word == "Rss:" && file >> kilobytes && size * 1024 >= least)
        {
            sum += kilobytes * 1024;
        }
    }
    return sum;
}

/// While frames come, every buffer has been round.
Json MemoryWhileStreaming(const Options& options)
{
    LibraryHost host(options.producer);
    LibraryCamera camera(host, options.camera);
    camera.OpenStream();
    const std::uint64_t before = ResidentBytes();
    camera.Announce(options.buffers, false);
    camera.Start();
    TakeFrames(camera, 3 * options.buffers);
    const std::uint64_t streaming = ResidentBytes();
    const std::uint64_t payload = camera.PayloadSize();
    camera.Stop();
    return {{"buffers", options.buffers}, {"payload", payload}, {"resident", streaming - before}};
}

/// Of the blocks alone, with a camera that sends no frame.
Json PagesOfAStart(const Options& options)
{
    LibraryHost host(options.producer);
    LibraryCamera camera(host, options.camera);
    camera.OpenStream();
    const std::uint64_t payload = camera.PayloadSize();
    const std::uint64_t before = ResidentInLarge(payload);
    camera.Announce(options.buffers, false);
    camera.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the worker posts receives and credits
    const std::uint64_t started = ResidentInLarge(payload);
    camera.Stop();
    return {{"buffers", options.buffers}, {"payload", payload}, {"resident", started - before}};
}

/// Nanoseconds of DSGetBufferInfo, with as many buffers announced as the options say: each is a module to look up.
Json InfoCalls(const Options& options)
{
    LibraryHost host(options.producer);
    LibraryCamera camera(host, options.camera);
    camera.OpenStream();
    camera.Announce(options.buffers, false);
    const std::vector<GenTL::BUFFER_HANDLE>& buffers = camera.Buffers();
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(options.seconds);
    std::uint64_t calls = 0;
    auto now = start;
    for (; now < end; now = Clock::now())
    {
        for (int index = 0; index < 1000; ++index)
        {
            std::uint64_t value = 0;
            std::size_t size = sizeof value;
            GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
            // A stride without a common divisor, so that no two calls in a row are about the same buffer.
            GenTLLibrary::Check(host.Library().DSGetBufferInfo(camera.Stream(), buffers[calls * 7 % buffers.size()],
                                                               GenTL::BUFFER_INFO_SIZE, &type, &value, &size),
                                "DSGetBufferInfo");
            ++calls;
        }
    }
    return {{"modules", options.buffers},
            {"calls", calls},
            {"ns", std::chrono::duration<double, std::nano>(now - start).count() / static_cast<double>(calls)}};
}

const std::map<std::string, Json (*)(const Options&)> kFacts = {
    {"steps", StepsOfAStart}, {"memory", MemoryWhileStreaming}, {"touch", PagesOfAStart}, {"info-calls", InfoCalls}};

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("What the library takes beside the flow of frames");
    app.set_version_flag("--version", NQ_VERSION_TEXT("library_facts"));
    app.add_option("--fact", options.fact)->required()->check(CLI::IsMember(kFacts));
    app.add_option("--camera", options.camera, "dotted IPv4 address")->required();
    app.add_option("--producer", options.producer, "path of the library")->required();
    app.add_option("--buffers", options.buffers);
    app.add_option("--seconds", options.seconds);
    CLI11_PARSE(app, argc, argv);
    try
    {
        fmt::print("{}\n", kFacts.at(options.fact)(options).dump(2));
        return 0;
    }
    catch (const std::exception& failure)
    {
        fmt::print(stderr, "library_facts: {}\n", failure.what());
        return 1;
    }
}
