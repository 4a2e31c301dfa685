// SPDX-License-Identifier: Apache-2.0
// Connection-manager ids, their event channels and events.
#pragma once

#include "base/event_queue.h"
#include "base/tally.h"
#include "cm/connection.h"
#include "verbs/reliable_transport.h"

#include <condition_variable>
#include <memory>
#include <rdma/rdma_cma.h>

namespace nq::loopback
{

class CmId;

/// One event. It belongs to the channel until it is read and to the user until it is acknowledged.
struct CmEvent : rdma_cm_event, private Counted<Kind::CmEvent>
{
    explicit CmEvent(CmId& owningId, rdma_cm_event_type type, int eventStatus);
    CmId* owner;                            ///< Whose destruction waits for the acknowledgement.
    std::shared_ptr<Connection> connection; ///< Of a connect request.
    uint8_t data[256] = {};
};

/// A channel of events.
class EventChannel : public rdma_event_channel, private Counted<Kind::EventChannel>
{
  public:
    EventChannel() { fd = m_events.Fd(); }

    /// Called under CmMutex(). Takes the ids that still use the channel out of service, as the kernel does.
    ~EventChannel();
    EventChannel(const EventChannel&) = delete;
    EventChannel& operator=(const EventChannel&) = delete;

    static EventChannel& From(rdma_event_channel* channel) { return *static_cast<EventChannel*>(channel); }

    EventQueue<std::unique_ptr<CmEvent>>& Events() { return m_events; }

    /// Waits for the next event and does what its arrival demands, which is what makes a reply an established
    /// connection. Throws EAGAIN on a non-blocking channel without events, EINTR.
    CmEvent* Next();

  private:
    EventQueue<std::unique_ptr<CmEvent>> m_events;
};

/// One id. The operations take CmMutex() themselves, unless told otherwise, and throw std::system_error with the errno
/// of the call that they serve.
class CmId : public rdma_cm_id, private Counted<Kind::CmId>
{
  public:
    /// Made and destroyed under CmMutex(). Without a channel the id gets one of its own and its calls wait for their
    /// event.
    CmId(EventChannel* events, void* userContext, rdma_port_space space, std::shared_ptr<NetScope> netScope);
    ~CmId();

    /// Throws EINVAL for what is no live id.
    static CmId& From(rdma_cm_id* id);

    bool IsSynchronous() const { return m_ownChannel != nullptr; }

    void Bind(const sockaddr* address);
    void ResolveAddress(const sockaddr* source, const sockaddr* destination);
    void ResolveRoute();
    void Connect(const rdma_conn_param* parameters);
    void Listen(int backlog);
    void Accept(const rdma_conn_param* parameters);
    void Reject(const void* privateData, uint8_t length);
    void Establish();
    void Disconnect();
    void Migrate(EventChannel* channel);

    /// Ends what the id is part of, takes back its unread events and waits until those read are acknowledged.
    void Retire();

    void SetTransport(std::shared_ptr<ReliableTransport> transport);

    // All below are called under CmMutex().

    /// The channel is destroyed: nothing but the destruction of the id works from now on.
    void LoseChannel();

    /// Queues an event, with the parameters and the private data of `peer` if there is one.
    void Post(rdma_cm_event_type type, int status, const CmMessage* peer = nullptr, uint8_t privateLength = 0);

    /// Queues a connect request on a listening id.
    void PostRequest(std::shared_ptr<Connection> connection);

    /// What the user's reading of an event brings about.
    void OnRead(CmEvent& read);
    void OnAcknowledged();

  private:
    enum class Phase
    {
        Idle,
        Bound,
        AddressResolved,
        RouteResolved,
        Connecting,
        Listening,
        Retired
    };

    void LeaveService();
    void BindHere(Endpoint address);
    void SetSource(const Endpoint& address);
    void SetDestination(const Endpoint& address);
    void TakeDevice();
    CmMessage MakeRequest(const rdma_conn_param* parameters) const;
    void OnConnectRequest(CmEvent& read);
    void OnConnectResponse(CmEvent& read);

    std::unique_ptr<EventChannel> m_ownChannel;
    std::shared_ptr<NetScope> m_scope;
    Phase m_phase = Phase::Idle;
    Endpoint m_source;
    Endpoint m_destination;
    std::shared_ptr<Connection> m_connection;
    std::shared_ptr<Listener> m_listener;
    std::shared_ptr<ReliableTransport> m_transport;
    uint32_t m_eventsRead = 0;
    uint32_t m_eventsAcknowledged = 0;
    std::condition_variable m_acknowledged;
};

} // namespace nq::loopback
