// SPDX-License-Identifier: Apache-2.0
// The reliable connection behind a queue pair: its states and its streams.
#include "verbs/reliable_transport.h"

#include "base/error.h"
#include "base/log.h"
#include "verbs/queue_pair.h"

#include <sys/epoll.h>
#include <sys/socket.h>

namespace nq::loopback
{

ReliableTransport::ReliableTransport(QueuePair& pair, const ibv_qp_cap& capacity, bool signalAll)
    : m_pair(&pair), m_capacity(capacity), m_signalAll(signalAll)
{
}

ibv_qp_state ReliableTransport::State() const
{
    const std::lock_guard lock(m_mutex);
    return m_state;
}

uint32_t ReliableTransport::PeerNumber() const
{
    const std::lock_guard lock(m_mutex);
    return m_peerNumber;
}

void ReliableTransport::Attach(UniqueFd data, UniqueFd acknowledgements, uint32_t peerNumber)
{
    const std::lock_guard lock(m_mutex);
    m_peerNumber = peerNumber;
    if (m_pair == nullptr || m_state == IBV_QPS_ERR)
    {
        return;
    }
    m_data = std::move(data);
    m_acknowledgements = std::move(acknowledgements);
    m_dataWatch.Start(m_data.Get(), shared_from_this());
    m_acknowledgementWatch.Start(m_acknowledgements.Get(), shared_from_this());
    m_state = IBV_QPS_RTS;
    FollowLink();
    UpdateInterest();
}

void ReliableTransport::Modify(ibv_qp_state state)
{
    const std::lock_guard lock(m_mutex);
    if (state == IBV_QPS_ERR)
    {
        EnterError();
        return;
    }
    if (state == IBV_QPS_RESET)
    {
        CutStreams();
        m_sends.clear();
        m_receives.clear();
        m_transmittedSends = 0;
        m_lastSequence = 0;
        m_placed = 0;
        m_acknowledged = 0;
        m_state = IBV_QPS_RESET;
        return;
    }
    const bool forward = (m_state == IBV_QPS_RESET && state == IBV_QPS_INIT) ||
                         (m_state == IBV_QPS_INIT && (state == IBV_QPS_INIT || state == IBV_QPS_RTR)) ||
                         (m_state == IBV_QPS_RTR && state == IBV_QPS_RTS) ||
                         (m_state == IBV_QPS_RTS && state == IBV_QPS_RTS);
    if (!forward)
    {
        Throw(EINVAL);
    }
    m_state = state;
}

void ReliableTransport::ToError()
{
    const std::lock_guard lock(m_mutex);
    EnterError();
}

void ReliableTransport::Close()
{
    const std::lock_guard lock(m_mutex);
    CutStreams();
    m_sends.clear();
    m_receives.clear();
    m_transmittedSends = 0;
    m_state = IBV_QPS_RESET;
    m_pair = nullptr;
}

void ReliableTransport::OnBreak()
{
    const std::lock_guard lock(m_mutex);
    if (m_pair != nullptr && m_data && !m_peerGone)
    {
        shutdown(m_data.Get(), SHUT_RDWR);
        shutdown(m_acknowledgements.Get(), SHUT_RDWR);
        PeerIsGone();
        UpdateInterest();
    }
}

void ReliableTransport::EnterError()
{
    if (m_pair == nullptr || m_state == IBV_QPS_ERR)
    {
        return;
    }
    CutStreams();
    m_state = IBV_QPS_ERR;
    Flush();
}

void ReliableTransport::Flush()
{
    while (!m_sends.empty())
    {
        CompleteFrontSend(IBV_WC_WR_FLUSH_ERR);
    }
    m_transmittedSends = 0;
    while (!m_receives.empty())
    {
        CompleteFrontReceive(IBV_WC_WR_FLUSH_ERR);
    }
}

void ReliableTransport::CutStreams()
{
    m_dataWatch.Stop();
    m_acknowledgementWatch.Stop();
    m_data.Reset();
    m_acknowledgements.Reset();
    m_headerBytes = 0;
    m_payloadBytes = 0;
}

void ReliableTransport::PeerIsGone()
{
    if (m_peerGone)
    {
        return;
    }
    Log("queue pair %u: the peer is gone", m_pair->qp_num);
    m_peerGone = true;
    m_dataWatch.Stop();
    m_acknowledgementWatch.Stop();
    // What it had acknowledged before counts; the rest is retried for a while, as over a real cable, and then fails.
    ReadAcknowledgements();
    CheckRetryDeadline();
}

void ReliableTransport::Complete(CompletionQueue& queue, const ibv_wc& completion, bool solicited)
{
    if (!queue.Push(completion, solicited) && !m_overflowed)
    {
        m_overflowed = true;
        ibv_async_event event{};
        event.element.qp = m_pair;
        event.event_type = IBV_EVENT_QP_FATAL;
        Context::From(m_pair->context).PostAsync(event);
    }
}

bool ReliableTransport::LinkCarries() const
{
    return m_linkWasUp && m_peerLinkUp;
}

void ReliableTransport::FollowLink()
{
    const bool up = LinkIsUp();
    if (up != m_linkWasUp && m_acknowledgements)
    {
        m_linkWasUp = up;
        SendAcknowledgement({up ? AckKind::LinkUp : AckKind::LinkDown, 0, 0});
    }
}

void ReliableTransport::UpdateInterest()
{
    if (!m_data || m_peerGone)
    {
        return;
    }
    uint32_t events = 0;
    if (LinkCarries())
    {
        events = EPOLLRDHUP;
        events |= m_receives.empty() && HeaderIsWhole() ? 0U : static_cast<uint32_t>(EPOLLIN);
        const bool mayTransmit = m_transmittedSends < m_sends.size() &&
                                 m_sends[m_transmittedSends].failure == IBV_WC_SUCCESS &&
                                 m_sends[m_transmittedSends].notBefore <= Clock::now();
        events |= mayTransmit ? static_cast<uint32_t>(EPOLLOUT) : 0U;
    }
    m_dataWatch.Want(events);
    m_acknowledgementWatch.Want(m_linkWasUp ? EPOLLIN | (m_acknowledged < m_placed ? EPOLLOUT : 0U) : 0U);
}

void ReliableTransport::OnReady(int fd, uint32_t events)
{
    const std::lock_guard lock(m_mutex);
    if (m_pair == nullptr || !m_data || m_peerGone)
    {
        return;
    }
    FollowLink();
    if (fd == m_acknowledgements.Get() && m_linkWasUp)
    {
        ReadAcknowledgements();
    }
    else if (fd == m_data.Get() && LinkCarries())
    {
        if ((events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0)
        {
            Receive();
        }
        if ((events & EPOLLOUT) != 0)
        {
            Transmit();
        }
        // With a receive posted the end of the stream shows after the last message; without one nothing more can come.
        if ((events & (EPOLLRDHUP | EPOLLHUP)) != 0 && m_receives.empty() && m_data)
        {
            PeerIsGone();
        }
    }
    Settle();
}

void ReliableTransport::Settle()
{
    if (m_data && m_acknowledged < m_placed)
    {
        Acknowledge();
    }
    if (m_overflowed)
    {
        EnterError();
    }
    UpdateInterest();
}

void ReliableTransport::OnTimer()
{
    const std::lock_guard lock(m_mutex);
    if (m_pair == nullptr || !m_data)
    {
        return;
    }
    FollowLink();
    if (!m_peerGone && LinkCarries())
    {
        Receive();
        Transmit();
    }
    CheckRetryDeadline();
    Settle();
}

} // namespace nq::loopback
