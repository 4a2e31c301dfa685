// SPDX-License-Identifier: Apache-2.0
// The camera's end of the control channel.
#pragma once

#include "camera_options.h"
#include "gvcp_service.h"
#include "udp_socket.h"
#include "wake_event.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace nq::camera
{

/// Listens on UDP port 3956 of the camera's address, of its subnet's broadcast address and of the limited broadcast
/// address (Linux gives a broadcast to no socket that is bound to one address), and answers from the camera's address.
/// Also watches the heartbeat. All of it happens on one thread of its own between Start and Stop.
class GvcpServer
{
  public:
    using Clock = std::chrono::steady_clock;

    /// Binds the sockets; throws std::system_error when that fails. `restart` is called, on the server's thread, when
    /// the host has asked for a restart.
    /// `move` is called there when the camera is to go to another address.
    GvcpServer(const LocalInterface& network, Device& device, FaultPlan& faults, std::function<void()> restart,
               std::function<void(const LocalInterface&)> move);
    ~GvcpServer();
    GvcpServer(const GvcpServer&) = delete;
    GvcpServer& operator=(const GvcpServer&) = delete;

    void Start();
    void Stop();

    /// Answers at another address as soon as the thread is back at its sockets. Any thread.
    void MoveTo(const LocalInterface& network);

    /// Ignores everything for this long from now on. Any thread.
    void GoAway(std::chrono::milliseconds time);

  private:
    struct Delayed
    {
        Clock::time_point when;
        std::vector<std::uint8_t> bytes;
        Endpoint to;
    };

    /// The sockets of one address.
    struct Sockets
    {
        explicit Sockets(const LocalInterface& where);

        LocalInterface network;
        UdpSocket unicast;
        /// Empty for an address without a subnet of its own.
        std::unique_ptr<UdpSocket> directedBroadcast;
        UdpSocket limitedBroadcast;
    };

    void Run();
    void Move();
    int WaitTime();
    void TakeDatagrams();
    bool TakeOne(const UdpSocket& socket, bool broadcast);
    void Answer(const Endpoint& from, std::span<const std::uint8_t> datagram);
    bool IgnoresEverything();
    void SendDelayed();

    Device& m_device;
    FaultPlan& m_faults;
    const std::function<void()> m_restart;
    const std::function<void(const LocalInterface&)> m_move;
    GvcpService m_service;
    std::unique_ptr<Sockets> m_sockets;
    std::mutex m_mutex;
    /// Where MoveTo leads.
    std::optional<LocalInterface> m_next;
    WakeEvent m_wake;
    std::atomic<bool> m_stop{false};
    std::atomic<Clock::rep> m_awayUntil{0};
    std::optional<Clock::time_point> m_silentUntil;
    std::vector<Delayed> m_delayed;
    std::thread m_thread;
};

} // namespace nq::camera
