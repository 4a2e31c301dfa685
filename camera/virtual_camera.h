// SPDX-License-Identifier: Apache-2.0
// A whole camera: control endpoint, image stream and events at one address.
#pragma once

#include "acquisition.h"
#include "camera_options.h"
#include "device.h"
#include "device_clock.h"
#include "fault_plan.h"
#include "gvcp_server.h"
#include "machine_address.h"
#include "message_channel.h"
#include "rdma_server.h"
#include "stream_channel.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace nq::camera
{

/// Owns the parts of one camera and wires them together. From construction to destruction the camera answers on the
/// network. Where there is no RDMA device it serves the control channel only. Any thread may call.
class VirtualCamera
{
  public:
    /// Binds all sockets and starts the threads. Throws std::system_error when a socket cannot be bound.
    explicit VirtualCamera(const CameraOptions& options);
    ~VirtualCamera();
    VirtualCamera(const VirtualCamera&) = delete;
    VirtualCamera& operator=(const VirtualCamera&) = delete;

    const CameraOptions& Options() const { return m_options; }

    /// Why there is no image stream; empty when there is one.
    std::string StreamProblem() const;

    /// Arms a fault written as NAME[:ARGUMENT[:COUNT]]; throws std::invalid_argument as FaultPlan::Arm.
    void Arm(std::string_view text);
    /// Ends a fault and its lasting effect.
    void Clear(Fault fault);

    /// The address that it has now.
    LocalInterface Network() const;

    /// Starts from defaults after `away`, at the address that its configuration says.
    void Reboot(std::chrono::milliseconds away);

    /// As if the host had executed TriggerSoftware.
    void Trigger() { m_device.Trigger(); }
    /// Sends an event packet; false while the message channel is closed.
    bool SendEvent(std::uint16_t id) { return m_messages.Send(id, 0); }

    struct State
    {
        std::uint32_t privilege = 0;
        Acquisition::Counters acquisition;
        RdmaServer::Counters stream;
        std::uint64_t events = 0;
    };
    State Observe();
    const FaultPlan& Faults() const { return m_faults; }

  private:
    void OpenStream(const LocalInterface& network);
    /// Goes to another address; stays when the machine does not let it.
    void MoveTo(const LocalInterface& network);
    std::shared_ptr<RdmaServer> Stream() const;

    const CameraOptions m_options;
    DeviceClock m_clock;
    FaultPlan m_faults;
    Acquisition m_acquisition;
    MessageChannel m_messages;
    StreamChannel m_testPackets;
    /// Moves come from the control channel and from the control socket.
    std::mutex m_moving;
    mutable std::mutex m_mutex;
    LocalInterface m_network;
    std::unique_ptr<MachineAddress> m_address;
    std::shared_ptr<RdmaServer> m_stream;
    std::string m_streamProblem;
    Device m_device;
    GvcpServer m_control;
};

} // namespace nq::camera
