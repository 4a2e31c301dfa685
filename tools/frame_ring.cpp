// SPDX-License-Identifier: Apache-2.0
// The frames of the last seconds, in memory.
#include "frame_ring.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <utility>

namespace nq::tool
{

FrameRing::FrameRing(const Need& need, MemoryBudget& memory, PictureWriter& writer)
    : m_need(need), m_memory(memory), m_writer(writer)
{
    const double rate = need.framesPerSecond.value_or(0);
    const auto seconds = static_cast<double>(need.length.count());
    m_room = static_cast<uint64_t>(std::ceil(std::min(rate * seconds, 1e15))) + 1;
    const uint64_t available = m_memory.TakeHalf(need.frameBytes, m_room);
    const uint64_t fitting = available / need.frameBytes;
    if (fitting < m_room)
    {
        const uint64_t fittingSeconds =
            rate > 0 && fitting > 0 ? static_cast<uint64_t>(static_cast<double>(fitting - 1) / rate) : 0;
        throw ToolFailure(ExitCode::NoStream,
                          fmt::format("the stream did not start: a ring of {} s is {} frames of {} bytes, and {} bytes "
                                      "are available for it, which is half of this machine's memory at most; {}",
                                      need.length.count(), m_room, need.frameBytes, available,
                                      fittingSeconds == 0 ? "not one second would fit"
                                                          : fmt::format("at most --ring {} would", fittingSeconds)));
    }
}

FrameRing::~FrameRing()
{
    m_memory.GiveBackHalf(m_room * m_need.frameBytes);
}

bool FrameRing::Keep(const Frame& frame, std::chrono::system_clock::time_point arrival, uint64_t lostBefore)
{
    ForgetUntil(frame.arrived);
    std::optional<std::vector<uint8_t>> memory = MemoryForOne();
    if (!memory)
    {
        return false;
    }
    m_frames.push_back({frame, lostBefore, CopyOf(frame, arrival, std::move(*memory))});
    m_frames.back().frame.data = nullptr; // goes with its buffer
    return true;
}

void FrameRing::ForgetUntil(std::chrono::steady_clock::time_point now)
{
    while (!m_frames.empty() && m_frames.front().frame.arrived < now - m_need.length)
    {
        m_writer.Spare(std::move(m_frames.front().picture.bytes));
        m_frames.pop_front();
    }
}

std::optional<std::vector<uint8_t>> FrameRing::MemoryForOne()
{
    std::vector<uint8_t> spare = m_writer.SpareMemory();
    if (spare.capacity() != 0)
    {
        return spare;
    }
    if (m_inUse == m_room && m_memory.TakeHalf(m_need.frameBytes, 1) >= m_need.frameBytes)
    {
        ++m_room;
    }
    if (m_inUse < m_room)
    {
        ++m_inUse;
        return spare;
    }
    m_short = true;
    if (m_frames.empty())
    {
        return std::nullopt;
    }
    std::vector<uint8_t> oldest = std::move(m_frames.front().picture.bytes);
    m_frames.pop_front();
    return oldest;
}

std::deque<KeptFrame> FrameRing::TakeAll()
{
    return std::exchange(m_frames, {});
}

double FrameRing::Seconds() const
{
    return m_frames.empty()
               ? 0
               : std::chrono::duration<double>(m_frames.back().frame.arrived - m_frames.front().frame.arrived).count();
}

} // namespace nq::tool
