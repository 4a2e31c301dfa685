// SPDX-License-Identifier: Apache-2.0
// One camera of a grab, from the wait for its freedom to its last picture.
#include "camera_grab.h"

#include "camera_owner.h"
#include "stop_signals.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr std::chrono::seconds kDoubt{2}; ///< for a refusal that the camera itself does not bear out
constexpr std::chrono::milliseconds kPause{250};

} // namespace

CameraGrab::CameraGrab(FoundCamera found, GrabbedCamera camera, GrabShare& share)
    : m_found(std::move(found)), m_camera(std::move(camera)), m_share(share)
{
}

void CameraGrab::Run()
{
    try
    {
        Grab();
    }
    catch (const ToolFailure& failure)
    {
        m_failure = failure;
    }
    catch (const std::exception& failure)
    {
        m_failure.emplace(ExitCode::Failure, failure.what());
    }
    if (m_failure && m_failure->Code() == ExitCode::WrongPicture && StopAsked())
    {
        m_failure.emplace(StopCode(), std::string(m_failure->what()));
    }
}

void CameraGrab::Fail(const ToolFailure& failure)
{
    m_failure = failure;
}

void CameraGrab::Grab()
{
    std::unique_ptr<GrabSession> session = OpenFreeCamera();
    Grabber grabber(*session, m_share.options, m_camera, m_share.report);
    if (!StopAsked())
    {
        session->Start();
    }
    grabber.Run();
    session.reset(); // the camera is free before the last pictures are written
    grabber.Finish();
    m_ran = true;
    m_totals = grabber.Totals();
    m_failure = grabber.Failure();
}

/// Opens the camera once it is free. Another program that waits as well may be the faster one; then it is waited for
/// again. A producer may refuse what nobody controls, for it waits but a moment for the camera's word on that: a camera
/// that can be asked beside it is tried for longer.
std::unique_ptr<GrabSession> CameraGrab::OpenFreeCamera()
{
    const GrabOptions& options = m_share.options;
    Interface& interface = m_share.producers.InterfaceOf(m_found);
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(options.waitSeconds);
    const auto endOfRefusals = m_found.camera.address.empty() ? end : std::max(end, start + kDoubt);
    const auto tell = [this](const std::string& text) { m_share.report.progress.Say(m_camera.index, text); };
    for (bool told = false;;)
    {
        AwaitFreeCamera(m_found.camera, end, tell);
        try
        {
            return std::make_unique<GrabSession>(interface, m_found.camera,
                                                 options.announce ? BufferOrigin::Consumer : BufferOrigin::Library,
                                                 options.buffers, m_share.memory);
        }
        catch (const RefusedOpen& refused)
        {
            if (std::chrono::steady_clock::now() >= endOfRefusals)
            {
                throw;
            }
            if (!std::exchange(told, true))
            {
                tell("waiting for the camera, which the producer refuses to open: " + refused.Answer());
            }
            std::this_thread::sleep_for(kPause);
        }
        catch (const ToolFailure& failure)
        {
            if (failure.Code() != ExitCode::CameraInUse || std::chrono::steady_clock::now() >= end)
            {
                throw;
            }
        }
    }
}

} // namespace nq::tool
