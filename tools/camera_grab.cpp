// SPDX-License-Identifier: Apache-2.0
// One camera of a grab, from the wait for its freedom to its last picture.
#include "camera_grab.h"

#include "camera_owner.h"
#include "stop_signals.h"

#include <utility>

namespace nq::tool
{

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
    if (!m_share.options.onEvent.empty())
    {
        session->ListenTo(m_share.options.onEvent);
    }
    Grabber grabber(*session, m_share.options, m_camera, m_share.report, m_share.memory);
    if (!StopAsked())
    {
        session->Start();
    }
    grabber.Run();
    session.reset(); // the camera is free before the last pictures are written
    grabber.Finish();
    m_ran = true;
    m_totals = grabber.Totals();
    m_bursts = grabber.Bursts();
    m_failure = grabber.Failure();
}

std::unique_ptr<GrabSession> CameraGrab::OpenFreeCamera()
{
    const GrabOptions& options = m_share.options;
    Interface& interface = m_share.producers.InterfaceOf(m_found);
    std::unique_ptr<GrabSession> session;
    const auto tell = [this](const std::string& text) { m_share.report.progress.Say(m_camera.index, text); };
    OnceFree(m_found.camera, options.waitSeconds, tell, [&] {
        session = std::make_unique<GrabSession>(interface, m_found.camera,
                                                options.announce ? BufferOrigin::Consumer : BufferOrigin::Library,
                                                options.buffers, m_share.memory, options.settings);
    });
    return session;
}

} // namespace nq::tool
