// SPDX-License-Identifier: Apache-2.0
// The camera's end of the image stream.
#pragma once

#include "acquisition.h"
#include "fault_plan.h"
#include "message_channel.h"
#include "picture_painter.h"
#include "rdma_connection.h"
#include "wake_event.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace nq::camera
{

/// Listens for RDMA connections on port 4791 of the camera's address and streams to one host at a time, which is the
/// holder of control, known by its address.
///
///     listening --request--> accepting --established--> connected --disconnect, failure, DropConnection--> listening
///
/// Requests are rejected in every state but the first, and those of other hosts always. A request that was accepted and
/// is not established within seconds is given up. All verbs calls happen on one thread of its own between Start
/// and Stop; it also draws the frames.
class RdmaServer
{
  public:
    using Clock = Acquisition::Clock;

    /// Whether the host of this address may connect now. Called on the server's thread.
    using Admission = std::function<bool(std::uint32_t address)>;
    /// Takes the brightness of each picture that can be brighter or darker, from 0 to 1.
    using Measured = std::function<void(double brightness)>;

    /// Begins to listen; throws std::system_error naming the call that failed.
    RdmaServer(std::uint32_t address, Acquisition& acquisition, MessageChannel& messages, FaultPlan& faults,
               std::uint32_t sendBuffers, Admission admission, Measured measured);
    ~RdmaServer();
    RdmaServer(const RdmaServer&) = delete;
    RdmaServer& operator=(const RdmaServer&) = delete;

    void Start();
    void Stop();

    /// Ends the connection, if there is one. Any thread.
    void DropConnection();

    struct Counters
    {
        bool connected = false;
        std::uint64_t credits = 0;
        std::uint64_t sent = 0;
        std::uint64_t accepted = 0;
        std::uint64_t rejected = 0;
        std::uint64_t strangeMessages = 0;
    };
    /// Any thread.
    Counters Count() const;

  private:
    struct ChannelDeleter
    {
        void operator()(rdma_event_channel* channel) const { rdma_destroy_event_channel(channel); }
    };
    struct IdDeleter
    {
        void operator()(rdma_cm_id* id) const { rdma_destroy_id(id); }
    };
    /// A frame that a due disconnect must overtake.
    enum class AfterSend
    {
        GoOn,
        Disconnect
    };

    void Listen(std::uint32_t address);
    void Run();
    void Wait(std::optional<Clock::time_point> until);
    void TakeConnectionEvent();
    void OnRequest(rdma_cm_id* id);
    bool IsAdmitted(rdma_cm_id* id) const;
    void Accept();
    void TakeCompletions();
    bool CanSend();
    std::optional<Clock::time_point> SendFrames();
    AfterSend SendFrame(FrameTicket ticket);
    void EndConnection();
    void CloseConnection();
    void Publish();

    Acquisition& m_acquisition;
    MessageChannel& m_messages;
    FaultPlan& m_faults;
    const std::uint32_t m_sendBuffers;
    const Admission m_admission;
    const Measured m_measured;

    std::unique_ptr<rdma_event_channel, ChannelDeleter> m_channel;
    std::unique_ptr<rdma_cm_id, IdDeleter> m_listener;
    std::unique_ptr<RdmaConnection> m_connection;
    bool m_established = false;
    bool m_endOnceEstablished = false;
    /// When the request of m_connection is to be accepted.
    std::optional<Clock::time_point> m_acceptAt;
    /// Until when an accepted request may take to be established.
    std::optional<Clock::time_point> m_establishBy;
    std::unique_ptr<PicturePainter> m_painter;
    std::uint64_t m_pictureNumber = 0;

    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_drop{false};
    std::atomic<bool> m_connectedShown{false};
    std::atomic<std::uint64_t> m_creditsShown{0};
    std::atomic<std::uint64_t> m_strangeShown{0};
    std::atomic<std::uint64_t> m_sent{0};
    std::atomic<std::uint64_t> m_accepted{0};
    std::atomic<std::uint64_t> m_rejected{0};
    std::thread m_thread;
};

} // namespace nq::camera
