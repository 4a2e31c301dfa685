// SPDX-License-Identifier: Apache-2.0
// A whole camera: control endpoint, image stream and events at one address.
#include "virtual_camera.h"

#include <system_error>

namespace nq::camera
{

VirtualCamera::VirtualCamera(const CameraOptions& options)
    : m_options(options), m_acquisition(m_clock, options.freeRun, options.frameLimit),
      m_messages(options.network.address, m_clock, m_faults), m_testPackets(options.network.address),
      m_device(m_options, m_clock, m_acquisition, m_messages, m_testPackets, m_faults,
               [this] {
                   if (m_stream)
                   {
                       m_stream->DropConnection();
                   }
               }),
      m_control(options.network, m_device, m_faults, [this] { Reboot(std::chrono::milliseconds(0)); })
{
    OpenStream();
    m_control.Start();
}

VirtualCamera::~VirtualCamera()
{
    m_control.Stop();
    if (m_stream)
    {
        m_stream->Stop();
    }
}

void VirtualCamera::OpenStream()
{
    try
    {
        m_stream = std::make_unique<RdmaServer>(
            m_options.network.address, m_acquisition, m_messages, m_faults, m_options.sendBuffers,
            [this](std::uint32_t host) { return m_device.IsControlledFrom(host); },
            [this](double brightness) { m_device.Measured(brightness); });
        m_stream->Start();
    }
    catch (const std::system_error& error)
    {
        m_streamProblem = error.what();
    }
}

void VirtualCamera::Arm(std::string_view text)
{
    switch (m_faults.Arm(text))
    {
    case Fault::Reboot:
        Reboot(std::chrono::milliseconds(m_faults.Strike(Fault::Reboot).value_or(0)));
        break;
    case Fault::PrivilegeTaken:
        m_device.TakePrivilege(static_cast<std::uint32_t>(m_faults.Strike(Fault::PrivilegeTaken).value_or(1)));
        break;
    default:
        break;
    }
}

void VirtualCamera::Clear(Fault fault)
{
    m_faults.Clear(fault);
    if (fault == Fault::PrivilegeTaken)
    {
        m_device.ReleasePrivilege();
    }
}

void VirtualCamera::Reboot(std::chrono::milliseconds away)
{
    m_control.GoAway(away);
    m_device.PowerCycle();
}

VirtualCamera::State VirtualCamera::Observe()
{
    return {m_device.Privilege(), m_acquisition.Count(), m_stream ? m_stream->Count() : RdmaServer::Counters{},
            m_messages.SentCount()};
}

} // namespace nq::camera
