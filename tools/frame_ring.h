// SPDX-License-Identifier: Apache-2.0
// The frames of the last seconds, in memory.
#pragma once

#include "available_memory.h"
#include "frame.h"
#include "picture_writer.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace nq::tool
{

/// A frame with a copy of its pixels.
struct KeptFrame
{
    Frame frame; ///< whose own data is gone
    uint64_t lostBefore = 0;
    Picture picture;
};

/// Keeps frames until they are older than its length, or the memory for them is used up: then the oldest goes. The
/// memory of a picture that was handed to the writer counts until that has written it. Used from one thread.
class FrameRing
{
  public:
    /// What the memory is for.
    struct Need
    {
        std::chrono::seconds length;
        uint64_t frameBytes;
        std::optional<double> framesPerSecond; ///< as the camera tells
    };

    /// Takes memory for as many frames as the camera is to send in that time, or as it tells none, for one; more later,
    /// as long as there is any. Half of what the machine has is left to others. Throws ToolFailure when there is not as
    /// much. The writer outlives the ring and lends it the memory of what it has written.
    FrameRing(const Need& need, MemoryBudget& memory, PictureWriter& writer);
    ~FrameRing();
    FrameRing(const FrameRing&) = delete;
    FrameRing& operator=(const FrameRing&) = delete;

    /// How many frames memory was taken for.
    uint64_t Room() const { return m_room; }

    /// False when there is no memory for the frame, as everything waits to be written.
    bool Keep(const Frame& frame, std::chrono::system_clock::time_point arrival, uint64_t lostBefore);

    /// Forgets what is older than the length of the ring at that time: where no frames come, nothing else does.
    void ForgetUntil(std::chrono::steady_clock::time_point now);

    /// What is kept, from the oldest on; nothing is kept then.
    std::deque<KeptFrame> TakeAll();

    bool IsEmpty() const { return m_frames.empty(); }

    /// Seconds from the oldest to the newest frame.
    double Seconds() const;

    /// Whether a frame had to go before its time.
    bool IsShort() const { return m_short; }

  private:
    std::optional<std::vector<uint8_t>> MemoryForOne();

    const Need m_need;
    MemoryBudget& m_memory;
    PictureWriter& m_writer;
    uint64_t m_room = 0;  ///< frames that memory was taken for
    uint64_t m_inUse = 0; ///< of these: kept, at the writer, or spare there
    bool m_short = false;
    std::deque<KeptFrame> m_frames;
};

} // namespace nq::tool
