// SPDX-License-Identifier: Apache-2.0
// Keeps the frames of the last seconds of one camera, and has them written when somebody asks.
#include "ring_recording.h"

#include "write_requests.h"

#include <fmt/format.h>
#include <iterator>
#include <unistd.h>

namespace nq::tool
{

namespace
{

/// Who can ask, for people.
std::string WaysToAsk(const GrabOptions& options)
{
    return fmt::format("{}kill -USR1 {}{}", isatty(STDIN_FILENO) == 0 ? "" : "Enter, ", getpid(),
                       options.onEvent.empty() ? "" : ", and the event " + options.onEvent);
}

} // namespace

RingRecording::RingRecording(const GrabOptions& options, const GrabbedCamera& camera, GrabReport& report,
                             PictureWriter& writer, const FrameRing::Need& need, MemoryBudget& memory)
    : m_options(options), m_camera(camera), m_report(report), m_writer(writer), m_ring(need, memory, writer)
{
    const std::string room = need.framesPerSecond
                                 ? fmt::format(", {} frames of {} bytes", m_ring.Room(), need.frameBytes)
                                 : fmt::format(", as many frames of {} bytes as come", need.frameBytes);
    report.progress.Say(camera.index, fmt::format("keeps the last {} s in memory{}; written by {}", options.ringS, room,
                                                  WaysToAsk(options)));
}

bool RingRecording::Keep(const Frame& frame, std::chrono::system_clock::time_point arrival, uint64_t lostBefore)
{
    const bool kept = m_ring.Keep(frame, arrival, lostBefore);
    if (m_ring.IsShort() && !m_toldShort)
    {
        m_toldShort = true;
        m_report.progress.Say(m_camera.index, fmt::format("the memory for the ring is full: it holds the last {:.1f} s",
                                                          m_ring.Seconds()));
    }
    return kept;
}

void RingRecording::Tend()
{
    constexpr size_t kAtOnce = 16; // while frames come
    m_writer.ThrowFailure();
    Look();
    for (size_t count = 0; count < kAtOnce && !m_asked.empty(); ++count)
    {
        HandOver();
    }
}

void RingRecording::Finish()
{
    Look();
    while (!m_asked.empty())
    {
        HandOver();
    }
}

void RingRecording::Look()
{
    const WriteRequests requests = SeenWriteRequests();
    if (requests.count == m_requests)
    {
        return;
    }
    m_requests = requests.count;
    const bool isEmpty = m_ring.IsEmpty();
    m_ring.ForgetUntil(requests.last);
    const double seconds = m_ring.Seconds();
    std::deque<KeptFrame> kept = m_ring.TakeAll();
    m_report.progress.Say(m_camera.index, isEmpty ? "nothing is kept that is not written already"
                                          : kept.empty()
                                              ? fmt::format("no frame came in the last {} s", m_options.ringS)
                                              : fmt::format("writes {} frame{} of the last {:.1f} s", kept.size(),
                                                            kept.size() == 1 ? "" : "s", seconds));
    m_writes += kept.empty() ? 0 : 1;
    std::move(kept.begin(), kept.end(), std::back_inserter(m_asked));
}

void RingRecording::HandOver()
{
    KeptFrame one = std::move(m_asked.front());
    m_asked.pop_front();
    if (m_report.metadata)
    {
        nlohmann::ordered_json line = FrameLine(one.frame, m_camera, one.lostBefore, one.picture.arrival);
        line["ring"] = m_writes;
        if (m_options.pictures.out != "-")
        {
            line["file"] = m_writer.NameOf(one.frame.frameId, one.picture.arrival);
        }
        AddLine(*m_report.metadata, line);
    }
    m_writer.Write(std::move(one.picture));
}

} // namespace nq::tool
