// SPDX-License-Identifier: Apache-2.0
// The newest picture of a camera for those who look, made beside the stream.
#pragma once

#include "picture.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace nq::tool::view
{

/// Rings when any camera has a new picture. Any thread may call.
class Bell
{
  public:
    void Ring();

    /// Waits until it has rung since it had rung `heard` times, at most 100 ms. How often it has rung.
    uint64_t Wait(uint64_t heard);

  private:
    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_rung;
    uint64_t m_count = 0;
};

/// One picture as it is shown. Nobody changes it.
struct ShownPicture
{
    uint64_t number = 0; ///< counts the pictures from 1 on
    uint64_t frameId = 0;
    uint64_t pixelFormat = 0;
    Samples samples; ///< as the camera sent them, a mosaic without colours; empty for a format that has no form
    std::string jpeg;
    std::string problem; ///< why it cannot be shown; empty for one that can
};

/// Takes at most 30 frames a second, and only while somebody asks for pictures and the last one is done.
class LivePicture
{
  public:
    explicit LivePicture(Bell& bell);
    ~LivePicture();
    LivePicture(const LivePicture&) = delete;
    LivePicture& operator=(const LivePicture&) = delete;

    /// Copies the frame, which was not refused, if a picture of it is wanted. For the thread of the stream.
    void Offer(const Frame& frame);

    /// The newest picture behind that number; null while there is none. Whoever asks wants more for a second. Any
    /// thread.
    std::shared_ptr<const ShownPicture> NewerThan(uint64_t number);

    /// The newest picture; null before the first. Asks for no more. Any thread.
    std::shared_ptr<const ShownPicture> Newest() const;

  private:
    using Clock = std::chrono::steady_clock;

    void Work();
    static ShownPicture Shown(const Picture& picture);

    Bell& m_bell;
    Clock::time_point m_nextOffer{}; ///< of the thread of the stream
    mutable std::mutex m_mutex;      ///< guards what follows
    std::condition_variable m_offered;
    std::optional<Picture> m_waiting;
    bool m_busy = false;
    bool m_stopping = false;
    Clock::time_point m_wantedUntil{};
    std::vector<uint8_t> m_spare; ///< memory of the last copy, to be used again
    std::shared_ptr<const ShownPicture> m_newest;
    std::thread m_worker; ///< last, so that it begins with everything in place
};

} // namespace nq::tool::view
