// SPDX-License-Identifier: Apache-2.0
// A whole camera: control endpoint, image stream and events at one address.
#include "virtual_camera.h"

#include <iostream>
#include <system_error>

namespace nq::camera
{

VirtualCamera::VirtualCamera(const CameraOptions& options)
    : m_options(options), m_acquisition(m_clock, options.freeRun, options.frameLimit),
      m_messages(options.network.address, m_clock, m_faults), m_testPackets(options.network.address),
      m_network(options.network), m_device(m_options, m_clock, m_acquisition, m_messages, m_testPackets, m_faults,
                                           [this] {
                                               if (const auto stream = Stream())
                                               {
                                                   stream->DropConnection();
                                               }
                                           }),
      m_control(
          options.network, m_device, m_faults, [this] { Reboot(std::chrono::milliseconds(0)); },
          [this](const LocalInterface& network) { MoveTo(network); })
{
    OpenStream(options.network);
    MoveTo(m_device.ConfiguredNetwork());
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

std::shared_ptr<RdmaServer> VirtualCamera::Stream() const
{
    const std::lock_guard lock(m_mutex);
    return m_stream;
}

std::string VirtualCamera::StreamProblem() const
{
    const std::lock_guard lock(m_mutex);
    return m_streamProblem;
}

LocalInterface VirtualCamera::Network() const
{
    const std::lock_guard lock(m_mutex);
    return m_network;
}

void VirtualCamera::OpenStream(const LocalInterface& network)
{
    std::shared_ptr<RdmaServer> stream;
    std::string problem;
    try
    {
        stream = std::make_shared<RdmaServer>(
            network.address, m_acquisition, m_messages, m_faults, m_options.sendBuffers,
            [this](std::uint32_t host) { return m_device.IsControlledFrom(host); },
            [this](double brightness) { m_device.Measured(brightness); });
        stream->Start();
    }
    catch (const std::system_error& error)
    {
        problem = error.what();
    }
    const std::lock_guard lock(m_mutex);
    m_stream = std::move(stream);
    m_streamProblem = std::move(problem);
}

void VirtualCamera::MoveTo(const LocalInterface& network)
{
    const std::lock_guard moving(m_moving);
    if (network == Network())
    {
        return;
    }
    try
    {
        auto address = std::make_unique<MachineAddress>(network);
        m_messages.MoveTo(network.address);
        m_testPackets.MoveTo(network.address);
        m_address.swap(address);
        m_device.SetNetwork(network);
        if (const auto stream = Stream())
        {
            stream->Stop(); // here, where nothing is locked that its thread waits for
        }
        OpenStream(network);
        m_control.MoveTo(network);
        const std::lock_guard lock(m_mutex);
        m_network = network;
    }
    catch (const std::system_error& error)
    {
        std::cerr << "nq-gev-camera: the camera stays where it is: " << error.what() << "\n";
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
    MoveTo(m_device.ConfiguredNetwork());
}

VirtualCamera::State VirtualCamera::Observe()
{
    const auto stream = Stream();
    return {m_device.Privilege(), m_acquisition.Count(), stream ? stream->Count() : RdmaServer::Counters{},
            m_messages.SentCount()};
}

} // namespace nq::camera
