// SPDX-License-Identifier: Apache-2.0
// Connection-manager events: how they are queued, read and acknowledged.
#include "base/error.h"
#include "base/event_names.h"
#include "base/log.h"
#include "cm/cm_id.h"
#include "cm/listener.h"
#include "verbs/queue_pair.h"

#include <cstring>

namespace nq::loopback
{

namespace
{

// What the peer offers to receive is what this side may send, and the other way round.
void SetParameters(CmEvent& event, const CmMessage& peer, uint8_t privateLength)
{
    rdma_conn_param& parameters = event.param.conn;
    parameters.responder_resources = peer.initiatorDepth;
    parameters.initiator_depth = peer.responderResources;
    parameters.flow_control = peer.flowControl;
    parameters.retry_count = peer.retryCount;
    parameters.rnr_retry_count = peer.rnrRetryCount;
    parameters.srq = peer.sharedReceiveQueue;
    parameters.qp_num = peer.queuePairNumber;
    // The room of the message is shown whole; it carries no length of what its sender put in.
    std::memcpy(event.data, peer.privateData, privateLength);
    parameters.private_data = privateLength == 0 ? nullptr : event.data;
    parameters.private_data_len = privateLength;
}

} // namespace

CmEvent::CmEvent(CmId& owningId, rdma_cm_event_type type, int eventStatus) : rdma_cm_event{}, owner(&owningId)
{
    id = &owningId;
    event = type;
    status = eventStatus;
}

void CmId::Post(rdma_cm_event_type type, int status, const CmMessage* peer, uint8_t privateLength)
{
    auto posted = std::make_unique<CmEvent>(*this, type, status);
    if (peer != nullptr)
    {
        SetParameters(*posted, *peer, privateLength);
    }
    Log("id %p: %s, status %d", static_cast<void*>(this), CmEventName(type), status);
    EventChannel::From(channel).Events().Push(std::move(posted));
}

void CmId::PostRequest(std::shared_ptr<Connection> connection)
{
    auto posted = std::make_unique<CmEvent>(*this, RDMA_CM_EVENT_CONNECT_REQUEST, 0);
    SetParameters(*posted, connection->Peer(), kRequestPrivateData);
    posted->listen_id = this;
    posted->connection = std::move(connection);
    Log("id %p: connect request", static_cast<void*>(this));
    EventChannel::From(channel).Events().Push(std::move(posted));
}

void CmId::OnConnectRequest(CmEvent& read)
{
    const std::shared_ptr<Connection> connection = std::move(read.connection);
    auto accepted = std::make_unique<CmId>(m_ownChannel ? nullptr : &EventChannel::From(channel), context, ps, m_scope);
    const CmMessage& request = connection->Peer();
    accepted->TakeDevice();
    accepted->SetSource(request.destination);
    accepted->SetDestination(request.source);
    accepted->m_phase = Phase::Connecting;
    accepted->m_connection = connection;
    connection->SetId(accepted.get());
    read.id = accepted.release();
    if (m_listener)
    {
        m_listener->OnRequestRead();
    }
}

void CmId::OnConnectResponse(CmEvent& read)
{
    if (qp == nullptr && m_connection && m_connection->Now() == Connection::State::Replied)
    {
        return; // The user brings his own queue pair up and then calls rdma_establish.
    }
    if (!m_connection || m_connection->Now() != Connection::State::Replied)
    {
        read.event = RDMA_CM_EVENT_CONNECT_ERROR;
        read.status = -1;
        return;
    }
    if (m_transport)
    {
        m_transport->Attach(m_connection->TakeData(), m_connection->TakeAcknowledgements(),
                            m_connection->Peer().queuePairNumber);
    }
    m_connection->Establish();
    read.event = RDMA_CM_EVENT_ESTABLISHED;
}

void CmId::OnRead(CmEvent& read)
{
    ++m_eventsRead;
    switch (read.event)
    {
    case RDMA_CM_EVENT_ADDR_RESOLVED:
        TakeDevice();
        break;
    case RDMA_CM_EVENT_CONNECT_REQUEST:
        OnConnectRequest(read);
        break;
    case RDMA_CM_EVENT_CONNECT_RESPONSE:
        OnConnectResponse(read);
        break;
    case RDMA_CM_EVENT_REJECTED:
        if (m_transport)
        {
            m_transport->ToError();
        }
        break;
    default:
        break;
    }
    if (const std::optional<int> substitute = Faults::Instance().SubstituteEvent())
    {
        read.event = static_cast<rdma_cm_event_type>(*substitute);
    }
}

void CmId::OnAcknowledged()
{
    ++m_eventsAcknowledged;
    m_acknowledged.notify_all();
}

CmEvent* EventChannel::Next()
{
    for (;;)
    {
        const uint32_t pushes = m_events.Pushes();
        std::unique_ptr<CmEvent> event;
        {
            const std::lock_guard lock(CmMutex());
            if (m_events.TryPop(event, [](const std::unique_ptr<CmEvent>&) {}))
            {
                event->owner->OnRead(*event);
                return event.release();
            }
        }
        if (const int error = m_events.Wait(pushes); error != 0)
        {
            Throw(error);
        }
    }
}

} // namespace nq::loopback
