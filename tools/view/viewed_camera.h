// SPDX-License-Identifier: Apache-2.0
// One camera of the page: opened, streamed, lost and opened again by a thread of its own.
#pragma once

#include "grab_session.h"
#include "producer_tree.h"
#include "view/live_picture.h"
#include "view/recorder.h"
#include "view/stream_numbers.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

namespace nq::tool::view
{

/// What the cameras of the page have in common. Outlives them.
struct ViewShare
{
    size_t buffers = 16;
    PictureOptions pictures; ///< of recordings
    ProducerTree producers{};
    MemoryBudget memory{};
    Bell bell{};
};

/// Every public function may be called from any thread.
class ViewedCamera
{
  public:
    /// `name` is short, for people.
    ViewedCamera(FoundCamera found, std::string name, ViewShare& share);

    /// Gives the camera back.
    ~ViewedCamera();
    ViewedCamera(const ViewedCamera&) = delete;
    ViewedCamera& operator=(const ViewedCamera&) = delete;

    LivePicture& Picture() { return m_picture; }
    Recorder& Recording() { return m_recorder; }

    /// Stops the stream while the camera stays open, or starts it again.
    void SetPaused(bool paused);

    /// Runs `work` with the features of the camera. Throws ToolFailure while it is not open, and what `work` throws.
    void WithFeatures(const std::function<void(Features&)>& work);

    /// Whether the camera is open, so that nobody else controls it.
    bool HasControl();
    const std::string& Address() const { return m_found.camera.address; }

    /// Names, state and numbers, and the windows of the numbers after the one of that number.
    nlohmann::ordered_json Json(uint64_t afterWindow) const;

  private:
    void Run();
    void OpenAndStream();
    void Stream(GrabSession& session);
    void Look(GrabSession& session, std::chrono::steady_clock::time_point& lastFrame);
    void BecomeLost(const std::string& text);
    void BecomeUnusable(const ToolFailure& failure);
    void Become(const char* state, const std::string& text = "");
    bool Goes() const { return !m_stopping && !m_paused; }
    void WaitWhile(const std::function<bool()>& holds, std::chrono::milliseconds most);

    const FoundCamera m_found;
    const std::string m_name;
    ViewShare& m_share;
    StreamNumbers m_numbers;
    LivePicture m_picture;
    Recorder m_recorder;
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_paused{false};
    std::mutex m_sessionMutex; ///< guards whether there is a session, and what other threads do with it
    std::unique_ptr<GrabSession> m_session;
    std::atomic<uint64_t> m_underruns{0};
    mutable std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::string m_state = "opening";
    std::string m_text;
    std::thread m_thread; ///< last, so that it begins with everything in place
};

} // namespace nq::tool::view
