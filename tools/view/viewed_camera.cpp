// SPDX-License-Identifier: Apache-2.0
// One camera of the page: opened, streamed, lost and opened again by a thread of its own.
#include "view/viewed_camera.h"

#include "camera_owner.h"
#include "printable.h"

#include <fmt/format.h>
#include <utility>

namespace nq::tool::view
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr uint64_t kSliceMs = 100;                ///< how soon a wish of the page is noticed
constexpr std::chrono::milliseconds kQuiet{2000}; ///< without a frame, until the camera is asked why
constexpr std::chrono::milliseconds kRetry{1000};

PictureOptions OfCamera(PictureOptions options, const std::string& name)
{
    options.camera = name;
    return options;
}

} // namespace

ViewedCamera::ViewedCamera(FoundCamera found, std::string name, ViewShare& share)
    : m_found(std::move(found)), m_name(std::move(name)), m_share(share), m_picture(share.bell),
      m_recorder(OfCamera(share.pictures, m_name)), m_thread([this] { Run(); })
{
}

ViewedCamera::~ViewedCamera()
{
    m_stopping = true;
    {
        const std::lock_guard lock(m_mutex);
        m_changed.notify_all();
    }
    m_thread.join();
    m_recorder.End();
}

void ViewedCamera::SetPaused(bool paused)
{
    m_paused = paused;
    const std::lock_guard lock(m_mutex);
    m_changed.notify_all();
}

void ViewedCamera::WithFeatures(const std::function<void(Features&)>& work)
{
    const std::lock_guard lock(m_sessionMutex);
    if (!m_session)
    {
        throw ToolFailure(ExitCode::CameraLost, "the camera is not open now");
    }
    m_session->Acquisition().WithFeatures(work);
}

void ViewedCamera::Become(const char* state, const std::string& text)
{
    const std::lock_guard lock(m_mutex);
    if (m_state == state && m_text == text)
    {
        return;
    }
    fmt::print(stderr, "{}: {}{}{}\n", Printable(m_name), state, text.empty() ? "" : ": ", Printable(text));
    m_state = state;
    m_text = text;
    m_changed.notify_all();
}

/// Why a lost camera cannot be opened yet says less than why it was lost.
void ViewedCamera::BecomeLost(const std::string& text)
{
    std::string why = text;
    {
        const std::lock_guard lock(m_mutex);
        why = m_state == "lost" ? m_text : text;
    }
    Become("lost", why);
}

void ViewedCamera::BecomeUnusable(const ToolFailure& failure)
{
    if (failure.Code() == ExitCode::CameraInUse)
    {
        Become("taken", failure.Bare()); // how verbs are told to wait is no advice here: this one waits
    }
    else if (failure.Code() == ExitCode::CameraLost)
    {
        BecomeLost(failure.what());
    }
    else
    {
        Become("lost", failure.what());
    }
}

bool ViewedCamera::HasControl()
{
    const std::lock_guard lock(m_sessionMutex);
    return m_session != nullptr;
}

void ViewedCamera::WaitWhile(const std::function<bool()>& holds, std::chrono::milliseconds most)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, most, [&] { return m_stopping || !holds(); });
}

void ViewedCamera::Run()
{
    while (!m_stopping)
    {
        try
        {
            OpenAndStream();
        }
        catch (const StreamGivenUp&)
        {
            Become("lost", "its stream broke off");
        }
        catch (const GenTLError& failure)
        {
            BecomeLost(failure.what());
        }
        catch (const ToolFailure& failure)
        {
            BecomeUnusable(failure);
        }
        catch (const std::exception& failure)
        {
            Become("lost", failure.what());
        }
        {
            const std::lock_guard lock(m_sessionMutex);
            m_session.reset();
        }
        WaitWhile([this] { return m_state == "lost" || m_state == "taken"; }, kRetry);
    }
}

void ViewedCamera::OpenAndStream()
{
    Interface& interface = m_share.producers.InterfaceOf(m_found);
    std::unique_ptr<GrabSession> session;
    OnceFree(
        m_found.camera, 0, [](const std::string&) {},
        [&] {
            session = std::make_unique<GrabSession>(interface, m_found.camera, BufferOrigin::Library, m_share.buffers,
                                                    m_share.memory);
        });
    GrabSession& open = *session;
    {
        const std::lock_guard lock(m_sessionMutex);
        m_session = std::move(session);
    }
    if (!m_paused)
    {
        m_numbers.BeginStream();
        m_recorder.BeginStream();
        open.Start();
        Become("running");
        Stream(open);
        const std::lock_guard lock(m_sessionMutex);
        open.Stop();
    }
    while (m_paused && !m_stopping)
    {
        Become("paused");
        WaitWhile([this] { return m_paused.load(); }, std::chrono::milliseconds(kSliceMs));
        m_numbers.Tick(Clock::now());
    }
    if (!m_stopping)
    {
        Become("opening");
    }
}

void ViewedCamera::Stream(GrabSession& session)
{
    Clock::time_point lastFrame = Clock::now();
    while (Goes())
    {
        if (const std::optional<Frame> frame = session.Next(kSliceMs))
        {
            lastFrame = Clock::now();
            m_numbers.Take(*frame, lastFrame);
            if (frame->refusal.empty())
            {
                m_recorder.Take(*frame);
                m_picture.Offer(*frame);
            }
            session.Requeue(*frame);
            m_underruns = session.Underruns();
            Become("running");
        }
        else
        {
            m_numbers.Tick(Clock::now());
            Look(session, lastFrame);
        }
    }
}

/// Asks a camera that sends nothing why. Throws ToolFailure when its stream is over.
void ViewedCamera::Look(GrabSession& session, Clock::time_point& lastFrame)
{
    if (Clock::now() - lastFrame < kQuiet)
    {
        return;
    }
    lastFrame = Clock::now();
    const std::string why = session.WhyNoFrames();
    if (!session.IsStreaming())
    {
        throw ToolFailure(ExitCode::CameraLost, why);
    }
    Become("quiet", why);
}

nlohmann::ordered_json ViewedCamera::Json(uint64_t afterWindow) const
{
    const CameraEntry& camera = m_found.camera;
    nlohmann::ordered_json json = {{"name", m_name},           {"id", camera.id},
                                   {"vendor", camera.vendor},  {"model", camera.model},
                                   {"serial", camera.serial},  {"user_name", camera.userName},
                                   {"address", camera.address}};
    {
        const std::lock_guard lock(m_mutex);
        json["state"] = m_state;
        json["text"] = m_text;
    }
    json["numbers"] = m_numbers.Json(afterWindow);
    json["numbers"]["underruns"] = m_underruns.load();
    json["recording"] = m_recorder.Json();
    return json;
}

} // namespace nq::tool::view
