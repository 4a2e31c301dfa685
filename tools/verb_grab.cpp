// SPDX-License-Identifier: Apache-2.0
// nq-gev grab: takes frames from a camera, checks them, writes them as pictures and sums up.
#include "grab_session.h"
#include "grab_totals.h"
#include "moving_ramp.h"
#include "picture_writer.h"
#include "verbs.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace nq::tool
{

namespace
{

using Clock = GrabTotals::Clock;

struct GrabOptions
{
    std::string camera;
    std::string out;
    uint64_t count = 1;
    uint64_t saveEvery = 1;
    size_t buffers = 4;
    bool announce = false;
    bool verify = false;
    uint64_t frameTimeoutMs = 5000;
};

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int)
{
    g_interrupted = true;
}

void CatchSignals()
{
    for (const int number : {SIGINT, SIGTERM, SIGQUIT})
    {
        std::signal(number, OnInterrupt);
    }
    if (std::signal(SIGHUP, OnInterrupt) == SIG_IGN)
    {
        std::signal(SIGHUP, SIG_IGN); // the user asked by nohup
    }
    std::signal(SIGXFSZ, SIG_IGN); // a file that grows too large fails instead
}

/// Takes frames until the count is reached, none comes in time, or the user interrupts.
class Grabber
{
  public:
    Grabber(GrabSession& session, const GrabOptions& options) : m_session(session), m_options(options)
    {
        if (!options.out.empty())
        {
            m_writer = std::make_unique<PictureWriter>(options.out);
        }
    }

    /// The reason when frames stopped coming; empty when all frames came.
    std::string Run()
    {
        std::string reason;
        while (m_totals.frames + m_totals.refused < m_options.count && reason.empty() && !g_interrupted)
        {
            const std::optional<Frame> frame = WaitForFrame();
            if (frame)
            {
                Take(*frame, Clock::now());
                m_session.Requeue(*frame);
                ShowProgress();
            }
            else if (!g_interrupted)
            {
                reason = m_session.WhyNoFrames();
            }
        }
        m_totals.underruns = m_session.Underruns();
        return reason;
    }

    const GrabTotals& Result() const { return m_totals; }

    /// Why the first of the refused frames was.
    const std::string& FirstRefusal() const { return m_firstRefusal; }

  private:
    std::optional<Frame> WaitForFrame()
    {
        constexpr uint64_t sliceMs = 200; // how soon an interrupt is noticed
        for (uint64_t waited = 0; waited < m_options.frameTimeoutMs && !g_interrupted; waited += sliceMs)
        {
            if (std::optional<Frame> frame = m_session.Next(std::min(sliceMs, m_options.frameTimeoutMs - waited)))
            {
                return frame;
            }
        }
        return std::nullopt;
    }

    void Take(const Frame& frame, Clock::time_point arrival)
    {
        if (!frame.refusal.empty())
        {
            m_firstRefusal = m_totals.refused == 0 ? frame.refusal : m_firstRefusal;
            ++m_totals.refused;
            return;
        }
        if (m_totals.frames > 0 && frame.frameId > m_lastId)
        {
            const uint64_t missing = frame.frameId - m_lastId - 1;
            m_totals.lost += std::min(missing, UINT64_MAX - m_totals.lost);
        }
        m_lastId = frame.frameId;
        m_totals.incomplete += frame.incomplete ? 1 : 0;
        const bool wanted = m_totals.frames % m_options.saveEvery == 0;
        m_totals.Arrived(arrival, frame.size);
        if (m_options.verify)
        {
            Verify(frame);
        }
        if (m_writer && wanted)
        {
            m_writer->Write(frame);
            m_totals.pictures = m_writer->Written();
        }
    }

    void Verify(const Frame& frame)
    {
        constexpr uint64_t mono8 = 0x01080001;
        if (frame.pixelFormat != mono8)
        {
            throw ToolFailure(
                ExitCode::Failure,
                fmt::format("--verify knows the test pattern only in Mono8, not in 0x{:08x}", frame.pixelFormat));
        }
        m_totals.wrongBytes += m_ramp.CountWrongBytes(frame.data, frame.size, frame.width, frame.height, frame.frameId);
    }

    void ShowProgress()
    {
        const Clock::time_point now = Clock::now();
        if (isatty(STDERR_FILENO) == 0 || now < m_nextProgress)
        {
            return;
        }
        m_nextProgress = now + std::chrono::milliseconds(200);
        fmt::print(stderr, "\r{}/{} frames, {:.1f} frames/s ", m_totals.frames, m_options.count,
                   m_totals.FramesPerSecond().value_or(0));
    }

    GrabSession& m_session;
    const GrabOptions& m_options;
    std::unique_ptr<PictureWriter> m_writer;
    MovingRamp m_ramp;
    GrabTotals m_totals;
    std::string m_firstRefusal;
    uint64_t m_lastId = 0;
    Clock::time_point m_nextProgress{};
};

void PrintSummary(const CommonOptions& common, const GrabOptions& options, const GrabTotals& totals)
{
    const char* origin = options.announce ? "consumer-announced" : "library-allocated";
    if (common.json)
    {
        nlohmann::ordered_json summary = totals.Json();
        summary["buffers"] = options.buffers;
        summary["buffer_origin"] = origin;
        if (options.verify)
        {
            summary["wrong_bytes"] = totals.wrongBytes;
        }
        fmt::print("{}\n", summary.dump(2));
        return;
    }
    if (isatty(STDERR_FILENO) != 0)
    {
        fmt::print(stderr, "\r");
    }
    fmt::print("buffers    {} {}\n", options.buffers, origin);
    fmt::print("{}", totals.Text());
    if (options.verify)
    {
        fmt::print("wrong      {} bytes\n", totals.wrongBytes);
    }
}

ExitCode Grab(const CommonOptions& common, const GrabOptions& options)
{
    GenTLLibrary library(FindProducer(common.producer));
    const System system(library);
    const std::vector<InterfaceEntry> interfaces = ScanAll(system, common.timeoutMs);
    const std::optional<CameraEntry> camera = FindCamera(interfaces, options.camera);
    if (!camera)
    {
        throw ToolFailure(ExitCode::NoCamera,
                          options.camera.empty() || !FindCamera(interfaces, "")
                              ? NoCameraAdvice(interfaces)
                              : fmt::format("no camera fits \"{}\"; see `nq-gev list`", options.camera));
    }
    CatchSignals(); // from here on a camera is held, which has to be given back
    GrabSession session(system, *camera, options.announce ? BufferOrigin::Consumer : BufferOrigin::Library,
                        options.buffers);
    Grabber grabber(session, options);
    if (!g_interrupted)
    {
        session.Start();
    }
    const std::string reason = grabber.Run();
    session.Stop();
    const GrabTotals& totals = grabber.Result();
    PrintSummary(common, options, totals);
    const std::string refused = totals.refused == 0 ? std::string()
                                                    : fmt::format("{} frames refused; the first because {}",
                                                                  totals.refused, grabber.FirstRefusal());
    if (!reason.empty())
    {
        throw ToolFailure(ExitCode::CameraLost,
                          fmt::format("no frame for {} ms after {} of {}: {}{}{}", options.frameTimeoutMs,
                                      totals.frames, options.count, reason, refused.empty() ? "" : "; ", refused));
    }
    if (!refused.empty())
    {
        throw ToolFailure(ExitCode::WrongPicture, refused);
    }
    if (options.verify && (totals.lost != 0 || totals.incomplete != 0 || totals.wrongBytes != 0))
    {
        throw ToolFailure(ExitCode::WrongPicture, fmt::format("{} lost, {} incomplete, {} wrong bytes", totals.lost,
                                                              totals.incomplete, totals.wrongBytes));
    }
    return g_interrupted ? ExitCode::Failure : ExitCode::Success;
}

} // namespace

void AddGrabVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("grab", "Take frames from a camera");
    auto options = std::make_shared<GrabOptions>();
    verb->add_option("--count", options->count, "Number of frames")->check(CLI::PositiveNumber)->capture_default_str();
    verb->add_option("--camera", options->camera, "Id, serial number, name or address (default: the first camera)");
    verb->add_option("--out", options->out, "Folder for the pictures, as PNG files");
    verb->add_option("--save-every", options->saveEvery, "Write only every Nth frame")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    verb->add_option("--buffers", options->buffers, "Number of buffers")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    verb->add_flag("--announce", options->announce,
                   "Announce buffers of this program instead of library-allocated ones");
    verb->add_flag("--verify", options->verify, "Check every byte against the moving ramp of nq-gev-camera");
    verb->add_option("--frame-timeout", options->frameTimeoutMs, "How long to wait for one frame, in milliseconds")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    verb->callback([&, options] { chosen = [&common, options] { return Grab(common, *options); }; });
}

} // namespace nq::tool
