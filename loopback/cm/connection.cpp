// SPDX-License-Identifier: Apache-2.0
// The connection manager's side of one connection.
#include "cm/connection.h"

#include "base/faults.h"
#include "base/log.h"
#include "cm/cm_channel.h"
#include "cm/cm_id.h"
#include "cm/listener.h"

#include <cerrno>
#include <sys/epoll.h>

namespace nq::loopback
{

std::mutex& CmMutex()
{
    static auto& mutex = *new std::mutex;
    return mutex;
}

Connection::Connection(UniqueFd control, UniqueFd data, UniqueFd acknowledgements, CmId& id)
    : m_state(State::Requesting), m_id(&id), m_control(std::move(control)), m_data(std::move(data)),
      m_acknowledgements(std::move(acknowledgements))
{
}

Connection::Connection(UniqueFd control, std::weak_ptr<Listener> listener)
    : m_state(State::Offered), m_listener(std::move(listener)), m_control(std::move(control))
{
}

void Connection::Start(Clock::time_point unreachableAt)
{
    if (m_control)
    {
        m_watch.Start(m_control.Get(), shared_from_this());
        m_watch.Want(EPOLLIN);
        if (m_state == State::Offered)
        {
            Deadline(Clock::now() + Settings::Get().connectTimeout);
        }
    }
    else
    {
        Deadline(unreachableAt);
    }
}

bool Connection::Accept(const CmMessage& reply)
{
    if (m_state != State::Requested || !m_control)
    {
        return false;
    }
    m_state = State::Accepted;
    Send(reply);
    return true;
}

bool Connection::Establish()
{
    if (m_state != State::Replied || !m_control)
    {
        return false;
    }
    m_state = State::Established;
    Send(CmKind::ReadyToUse);
    return true;
}

bool Connection::Reject(const CmMessage& rejection)
{
    if (m_state != State::Requested)
    {
        return false;
    }
    Send(rejection);
    Close();
    return true;
}

void Connection::Disconnect()
{
    if (m_state == State::Established)
    {
        m_state = State::DisconnectSent;
        Send(CmKind::DisconnectRequest);
        Deadline(Clock::now() + Settings::Get().connectTimeout);
    }
    else if (m_state == State::DisconnectReceived)
    {
        Send(CmKind::DisconnectReply);
        EnterTimeWait();
    }
}

void Connection::Abandon()
{
    m_id = nullptr;
    switch (m_state)
    {
    case State::Requesting:
        Send(CmKind::Reject, rejectTimeout);
        break;
    case State::Replied:
    case State::Requested:
    case State::Accepted:
        Send(CmKind::Reject, rejectByConsumer);
        break;
    case State::Established:
        Send(CmKind::DisconnectRequest);
        break;
    case State::DisconnectReceived:
        Send(CmKind::DisconnectReply);
        break;
    default:
        break;
    }
    Close();
}

void Connection::ConfirmTaken()
{
    Send(CmKind::Taken);
}

void Connection::OnReady(int, uint32_t)
{
    const std::lock_guard lock(CmMutex());
    while (m_control && LinkIsUp())
    {
        CmMessage message;
        UniqueFd first;
        UniqueFd second;
        const Received received = ReceiveMessage(m_control.Get(), message, first, second);
        if (received == Received::Message)
        {
            OnMessage(message, std::move(first), std::move(second));
            continue;
        }
        if (received == Received::End)
        {
            OnEnd();
        }
        break;
    }
    FollowLink();
}

void Connection::OnMessage(const CmMessage& message, UniqueFd data, UniqueFd acknowledgements)
{
    switch (message.kind)
    {
    case CmKind::Request:
    case CmKind::WhoHas:
        OnOffer(message, std::move(data), std::move(acknowledgements));
        break;
    case CmKind::Reply:
        if (m_state == State::Requesting)
        {
            m_state = State::Replied;
            m_peer = message;
            m_id->Post(RDMA_CM_EVENT_CONNECT_RESPONSE, 0, &m_peer, kReplyPrivateData);
        }
        break;
    case CmKind::ReadyToUse:
        if (m_state == State::Accepted)
        {
            m_state = State::Established;
            m_id->Post(RDMA_CM_EVENT_ESTABLISHED, 0);
        }
        break;
    case CmKind::Reject:
        OnRejected(message);
        break;
    case CmKind::DisconnectRequest:
        OnPeerDisconnects();
        break;
    case CmKind::DisconnectReply:
        if (m_state == State::DisconnectSent)
        {
            m_id->Post(RDMA_CM_EVENT_DISCONNECTED, 0);
            EnterTimeWait();
        }
        break;
    default:
        break;
    }
}

void Connection::OnOffer(const CmMessage& message, UniqueFd data, UniqueFd acknowledgements)
{
    const std::shared_ptr<Listener> listener = m_listener.lock();
    if (m_state != State::Offered || !listener)
    {
        OnEnd();
        return;
    }
    // Without room for them the streams are lost on their way.
    if (message.kind == CmKind::Request && (!data || !acknowledgements))
    {
        OnEnd();
        return;
    }
    const CmKind answer = listener->Judge(message);
    if (answer != CmKind::Taken || message.kind == CmKind::WhoHas)
    {
        Send(answer);
        Close();
        listener->Forget(*this);
        return;
    }
    m_state = State::Requested;
    m_peer = message;
    m_data = std::move(data);
    m_acknowledgements = std::move(acknowledgements);
    ConfirmTaken();
    listener->Take(*this);
}

void Connection::OnRejected(const CmMessage& message)
{
    const bool waiting = m_state == State::Requesting || m_state == State::Replied || m_state == State::Requested ||
                         m_state == State::Accepted;
    if (!waiting)
    {
        OnEnd();
        return;
    }
    if (m_id != nullptr)
    {
        m_id->Post(RDMA_CM_EVENT_REJECTED, static_cast<int>(message.status), &message, kRejectPrivateData);
    }
    Close();
}

void Connection::OnPeerDisconnects()
{
    if (m_state == State::Established)
    {
        m_state = State::DisconnectReceived;
        m_id->Post(RDMA_CM_EVENT_DISCONNECTED, 0);
    }
    else if (m_state == State::DisconnectSent)
    {
        // Both asked at the same time.
        m_id->Post(RDMA_CM_EVENT_DISCONNECTED, 0);
        EnterTimeWait();
    }
}

void Connection::OnEnd()
{
    CmMessage rejection;
    switch (m_state)
    {
    case State::Offered:
        Close();
        if (const std::shared_ptr<Listener> listener = m_listener.lock())
        {
            listener->Forget(*this);
        }
        break;
    case State::Requesting:
    case State::Replied:
    case State::Requested:
    case State::Accepted:
        rejection.status = m_state == State::Requested ? rejectTimeout : rejectByConsumer;
        OnRejected(rejection);
        break;
    case State::Established:
    case State::DisconnectSent:
        OnPeerDisconnects();
        break;
    default:
        break;
    }
    m_watch.Stop();
    m_control.Reset();
}

void Connection::EnterTimeWait()
{
    m_state = State::TimeWait;
    Deadline(Clock::now() + Settings::Get().timeWait);
}

void Connection::Close()
{
    m_state = State::Closed;
    FlushOutbox(Clock::time_point::max());
    m_deadline = Clock::time_point::max();
    m_watch.Stop();
    m_control.Reset();
    m_data.Reset();
    m_acknowledgements.Reset();
}

void Connection::Send(CmKind kind, uint32_t status)
{
    CmMessage message;
    message.kind = kind;
    message.status = status;
    Send(message);
}

void Connection::Send(CmMessage message)
{
    const bool setsUp = message.kind == CmKind::Reply || message.kind == CmKind::ReadyToUse;
    const std::chrono::milliseconds delay = setsUp ? Settings::Get().connectDelay : std::chrono::milliseconds(0);
    const Clock::time_point now = Clock::now();
    m_outbox.push_back({message, now + delay});
    if (delay.count() != 0)
    {
        Engine::Instance().CallAt(now + delay, shared_from_this());
    }
    FlushOutbox(now);
}

void Connection::FlushOutbox(Clock::time_point until)
{
    while (m_control && LinkIsUp() && !m_outbox.empty() && m_outbox.front().notBefore <= until)
    {
        SendMessage(m_control.Get(), m_outbox.front().message);
        m_outbox.pop_front();
    }
}

void Connection::Deadline(Clock::time_point when)
{
    m_deadline = when;
    Engine::Instance().CallAt(m_deadline, shared_from_this());
}

void Connection::FollowLink()
{
    FlushOutbox(Clock::now());
    if (m_control)
    {
        m_watch.Want(LinkIsUp() ? static_cast<uint32_t>(EPOLLIN) : 0U);
    }
}

void Connection::OnTimer()
{
    const std::lock_guard lock(CmMutex());
    FollowLink();
    if (m_deadline > Clock::now())
    {
        return;
    }
    if (m_state == State::Offered)
    {
        OnSilentOffer();
        return;
    }
    if (m_id == nullptr)
    {
        return;
    }
    m_deadline = Clock::time_point::max();
    if (m_state == State::Requesting)
    {
        m_id->Post(RDMA_CM_EVENT_UNREACHABLE, -ETIMEDOUT);
        Close();
    }
    else if (m_state == State::DisconnectSent)
    {
        m_id->Post(RDMA_CM_EVENT_DISCONNECTED, 0);
        EnterTimeWait();
    }
    else if (m_state == State::TimeWait)
    {
        m_id->Post(RDMA_CM_EVENT_TIMEWAIT_EXIT, 0);
        Close();
    }
}

void Connection::OnSilentOffer()
{
    // Nothing is read while the link is down.
    if (LinkIsUp())
    {
        Log("an offer that says nothing is closed");
        OnEnd();
    }
    else
    {
        Deadline(Clock::now() + Settings::Get().connectTimeout);
    }
}

void Connection::OnBreak()
{
    const std::lock_guard lock(CmMutex());
    if (m_control)
    {
        OnEnd();
    }
}

} // namespace nq::loopback
