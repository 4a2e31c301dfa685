// SPDX-License-Identifier: Apache-2.0
// The loop of a grab: takes frames, counts and checks them, and hands them on.
#include "grabber.h"

#include "stop_signals.h"
#include "write_requests.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>
#include <utility>

namespace nq::tool
{

using Clock = GrabTotals::Clock;

Grabber::Grabber(GrabSession& session, const GrabOptions& options, GrabbedCamera camera, GrabReport& report,
                 MemoryBudget& memory)
    : m_session(session), m_options(options), m_camera(std::move(camera)), m_report(report),
      m_bursts(options.burst, std::chrono::seconds(options.everyS))
{
    if (options.pictures.out.empty())
    {
        return;
    }
    PictureOptions pictures = options.pictures;
    pictures.camera = m_camera.name;
    if (options.ringS != 0)
    {
        pictures.queuedBytes = pictures.queued = SIZE_MAX; // the ring bounds them
    }
    m_writer = std::make_unique<PictureWriter>(pictures);
    if (options.ringS != 0)
    {
        std::optional<double> rate = session.Acquisition().FrameRate();
        rate = rate ? std::optional(*rate / static_cast<double>(options.saveEvery)) : rate;
        const FrameRing::Need need{std::chrono::seconds(options.ringS), session.FrameBytes(), rate};
        m_ring = std::make_unique<RingRecording>(options, m_camera, report, *m_writer, need, memory);
    }
}

bool Grabber::WantsMore() const
{
    const bool all = m_options.count != 0 && m_totals.frames + m_totals.refused >= m_options.count;
    return !all && !m_failure && !StopAsked() && !TimeIsOver();
}

void Grabber::Run()
{
    m_end = Clock::now() + std::chrono::seconds(m_options.durationS);
    try
    {
        if (m_report.metadata)
        {
            m_report.metadata->Open();
        }
        while (WantsMore())
        {
            const std::optional<Frame> frame = WaitForFrame();
            if (frame)
            {
                const BurstPlan::Place place = m_bursts.Next(frame->arrived);
                if (place == BurstPlan::Place::First)
                {
                    BeginBurst();
                }
                if (place != BurstPlan::Place::Between)
                {
                    Take(*frame);
                }
                m_session.Requeue(*frame);
                if (m_report.times != nullptr)
                {
                    m_report.times->Add(frame->arrived, Clock::now());
                }
            }
            else if (!StopAsked() && (!TimeIsOver() || m_totals.frames == 0))
            {
                m_failure.emplace(ExitCode::CameraLost, WhyNoneCame());
            }
        }
    }
    catch (const ToolFailure& failure)
    {
        m_failure = failure;
    }
    catch (const StreamGivenUp&)
    {
        m_failure.emplace(ExitCode::CameraLost, WhyLost("the producer gave the stream up after " + CountText()));
    }
    catch (const GenTLError& error)
    {
        m_failure.emplace(ExitCode::Failure, error.what());
    }
    if (m_report.times != nullptr)
    {
        m_report.times->End();
    }
    m_totals.underruns = m_session.Underruns();
}

void Grabber::Finish()
{
    if (!m_writer)
    {
        return;
    }
    const auto attempt = [this](auto& part) {
        try
        {
            part.Finish();
        }
        catch (const ToolFailure& failure)
        {
            if (m_failure && std::string_view(m_failure->what()) != failure.what())
            {
                m_report.progress.Say(m_camera.index, failure.what()); // beside that, which has the exit code
            }
            m_failure = m_failure ? m_failure : failure;
        }
    };
    if (m_ring)
    {
        attempt(*m_ring);
        m_totals.ringWrites = m_ring->Writes();
    }
    attempt(*m_writer);
    m_totals.pictures = m_writer->Written();
    m_totals.waits += m_writer->Waits();
}

std::optional<ToolFailure> Grabber::Failure() const
{
    if (m_failure)
    {
        return m_failure;
    }
    if (m_totals.refused != 0)
    {
        return ToolFailure(ExitCode::WrongPicture, Refusals());
    }
    const std::string loss = LossComplaint(m_totals, m_options);
    return loss.empty() ? std::nullopt : std::optional(ToolFailure(ExitCode::WrongPicture, loss));
}

std::string Grabber::CountText() const
{
    return fmt::format("{}{}", m_totals.frames, m_options.count == 0 ? "" : fmt::format(" of {}", m_options.count));
}

std::string Grabber::WhyNoneCame() const
{
    return WhyLost(TimeIsOver() ? fmt::format("no frame for {} s", m_options.durationS)
                                : fmt::format("no frame for {} ms after {}", m_options.frameTimeoutMs, CountText()));
}

std::string Grabber::WhyLost(const std::string& event) const
{
    const std::string refusals = Refusals();
    return fmt::format("{}: {}{}{}", event, m_session.WhyNoFrames(), refusals.empty() ? "" : "; ", refusals);
}

std::string Grabber::Refusals() const
{
    return m_totals.refused == 0
               ? std::string()
               : fmt::format("{} frames refused; the first because {}", m_totals.refused, m_firstRefusal);
}

std::optional<Frame> Grabber::WaitForFrame()
{
    constexpr uint64_t kSliceMs = 200; // how soon a signal is noticed
    uint64_t slice = 0;
    for (uint64_t waited = 0; waited < m_options.frameTimeoutMs && !StopAsked() && !TimeIsOver(); waited += slice)
    {
        m_report.progress.Show(m_camera.index, m_totals);
        TendRing();
        slice = std::min(m_ring && m_ring->IsBusy() ? 1 : kSliceMs, m_options.frameTimeoutMs - waited);
        if (std::optional<Frame> frame = m_session.Next(slice))
        {
            return frame;
        }
    }
    return std::nullopt;
}

void Grabber::TendRing()
{
    if (!m_ring)
    {
        return;
    }
    if (m_session.EventCame())
    {
        RequestWrite();
    }
    m_ring->Tend();
}

/// What is missing before it is missed by nobody.
void Grabber::BeginBurst()
{
    m_totals.Pause();
    m_lastId.reset();
    m_refusedSince = 0;
}

void Grabber::Take(const Frame& frame)
{
    const bool refused = !frame.refusal.empty();
    const uint64_t missing = !refused && m_lastId && frame.frameId > *m_lastId ? frame.frameId - *m_lastId - 1 : 0;
    const uint64_t lost = missing - std::min(missing, m_refusedSince); // refused ones are counted as such
    const auto now = std::chrono::system_clock::now();
    const bool wanted = m_writer && !refused && m_totals.frames % m_options.saveEvery == 0;
    if (m_report.metadata && !m_ring)
    {
        Note(frame, lost, now, wanted);
    }
    if (refused)
    {
        m_firstRefusal = m_totals.refused == 0 ? frame.refusal : m_firstRefusal;
        ++m_totals.refused;
        ++m_refusedSince;
        return;
    }
    m_refusedSince = 0;
    m_totals.lost += std::min(lost, UINT64_MAX - m_totals.lost);
    m_lostSinceKept += lost;
    m_lastId = frame.frameId;
    if (m_ring && !Keep(frame, now, wanted))
    {
        return;
    }
    m_totals.incomplete += frame.incomplete ? 1 : 0;
    m_totals.Arrived(frame.arrived, frame.size);
    if (m_options.verify)
    {
        Verify(frame);
    }
    if (wanted && !m_ring)
    {
        m_writer->Write(frame, now);
    }
}

/// False for a frame that has no room: it is lost, as if there had been no buffer for it.
bool Grabber::Keep(const Frame& frame, std::chrono::system_clock::time_point now, bool wanted)
{
    if (!wanted)
    {
        return true;
    }
    if (m_ring->Keep(frame, now, m_lostSinceKept))
    {
        m_lostSinceKept = 0;
        return true;
    }
    ++m_lostSinceKept;
    m_totals.lost += m_totals.lost == UINT64_MAX ? 0 : 1;
    ++m_totals.waits;
    return false;
}

void Grabber::Verify(const Frame& frame)
{
    constexpr uint64_t kMono8 = 0x01080001;
    if (frame.pixelFormat != kMono8)
    {
        throw ToolFailure(
            ExitCode::Failure,
            fmt::format("--verify knows the test pattern only in Mono8, not in 0x{:08x}", frame.pixelFormat));
    }
    m_totals.wrongBytes += m_ramp.CountWrongBytes(frame.data, frame.size, frame.width, frame.height, frame.frameId);
}

void Grabber::Note(const Frame& frame, uint64_t lostBefore, std::chrono::system_clock::time_point now, bool wanted)
{
    nlohmann::ordered_json line = FrameLine(frame, m_camera, lostBefore, now);
    if (m_options.burst != 0)
    {
        line["burst"] = m_bursts.Begun();
    }
    if (m_writer && m_options.pictures.out != "-")
    {
        line["file"] = wanted ? nlohmann::ordered_json(m_writer->NameOf(frame.frameId, now)) : nullptr;
    }
    AddLine(*m_report.metadata, line);
}

std::string LossComplaint(const GrabTotals& totals, const GrabOptions& options)
{
    const uint64_t missing = totals.lost + std::min(totals.incomplete, UINT64_MAX - totals.lost);
    if (missing <= options.allowLoss && totals.wrongBytes == 0)
    {
        return {};
    }
    std::string text = fmt::format("{} frames lost, {} incomplete", totals.lost, totals.incomplete);
    if (totals.wrongBytes != 0)
    {
        text += fmt::format(", {} wrong bytes", totals.wrongBytes);
    }
    text += fmt::format(" (of {})", totals.frames + std::min(totals.lost, UINT64_MAX - totals.frames));
    if (missing <= options.allowLoss)
    {
        return text;
    }
    if (totals.lost != 0 && totals.waits != 0)
    {
        text +=
            fmt::format("; the files were written too slowly {} times: a faster --out, --format raw, or --save-every "
                        "{}",
                        totals.waits, std::min(options.saveEvery * 2, kMostFrames));
    }
    else if (totals.lost != 0 && options.buffers < kMostBuffers)
    {
        text += fmt::format("; more buffers bridge the time in which none is free: nq-gev {} --buffers {}",
                            options.verb, std::min(options.buffers * 4, kMostBuffers));
    }
    if (totals.incomplete != 0)
    {
        text += "; incomplete ones come so from the camera: look at its payload settings and at the cable";
    }
    return text + (missing > kMostFrames ? std::string() : fmt::format("; or accept it: --allow-loss {}", missing));
}

} // namespace nq::tool
