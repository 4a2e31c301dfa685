// SPDX-License-Identifier: Apache-2.0
// The sending half of a reliable connection.
#include "base/error.h"
#include "base/log.h"
#include "verbs/memory.h"
#include "verbs/queue_pair.h"
#include "verbs/reliable_transport.h"
#include "verbs/waiting_sends.h"

#include <algorithm>
#include <cstring>
#include <sys/socket.h>

namespace nq::loopback
{

namespace
{

constexpr uint64_t kLongestMessage = 1ULL << 31;
constexpr uint64_t kSentByPoster = uint64_t{64} * 1024;

// Appends to `vectors` what of `bytes` at `base` is left after skipping `skip` bytes; `skip` becomes what is left of
// it.
void Append(std::vector<iovec>& vectors, void* base, uint64_t bytes, uint64_t& skip)
{
    const uint64_t skipped = std::min(skip, bytes);
    skip -= skipped;
    if (skipped < bytes)
    {
        vectors.push_back({static_cast<uint8_t*>(base) + skipped, bytes - skipped});
    }
}

// The peer may send any number.
ibv_wc_status RefusalStatus(uint32_t status)
{
    const bool known = status > IBV_WC_SUCCESS && status <= IBV_WC_GENERAL_ERR;
    return known ? static_cast<ibv_wc_status>(status) : IBV_WC_BAD_RESP_ERR;
}

} // namespace

ReliableTransport::SendWork ReliableTransport::MakeSend(const ibv_send_wr& work) const
{
    if (work.opcode != IBV_WR_SEND && work.opcode != IBV_WR_SEND_WITH_IMM)
    {
        Throw(EOPNOTSUPP);
    }
    if (work.num_sge < 0 || static_cast<uint32_t>(work.num_sge) > m_capacity.max_send_sge)
    {
        Throw(EINVAL);
    }
    SendWork made;
    made.id = work.wr_id;
    made.flags = work.send_flags;
    made.withImmediate = work.opcode == IBV_WR_SEND_WITH_IMM;
    made.immediate = made.withImmediate ? work.imm_data : 0;
    made.entries.assign(work.sg_list, work.sg_list + work.num_sge);
    for (const ibv_sge& entry : made.entries)
    {
        made.length += entry.length;
    }
    const bool inlined = (work.send_flags & IBV_SEND_INLINE) != 0;
    if (made.length > kLongestMessage || (inlined && made.length > m_capacity.max_inline_data))
    {
        Throw(EINVAL);
    }
    if (inlined)
    {
        for (const ibv_sge& entry : made.entries)
        {
            const auto* from = reinterpret_cast<const uint8_t*>(entry.addr);
            made.inlineData.insert(made.inlineData.end(), from, from + entry.length);
        }
        made.entries.clear();
    }
    made.notBefore = Clock::now() + Faults::Instance().MessageDelay();
    return made;
}

void ReliableTransport::PostSend(const ibv_send_wr& work)
{
    const std::lock_guard lock(m_mutex);
    if (m_pair == nullptr || (m_state != IBV_QPS_RTS && m_state != IBV_QPS_ERR))
    {
        Throw(EINVAL);
    }
    SendWork made = MakeSend(work);
    if (m_sends.size() >= m_capacity.max_send_wr)
    {
        Throw(ENOMEM);
    }
    made.sequence = ++m_lastSequence;
    const Clock::time_point start = made.notBefore;
    const bool delayed = Faults::Instance().MessageDelay().count() != 0;
    const bool direct = made.length <= kSentByPoster && !delayed;
    m_sends.push_back(std::move(made));
    if (m_state == IBV_QPS_ERR)
    {
        Flush();
        return;
    }
    if (delayed)
    {
        Engine::Instance().CallAt(start, shared_from_this());
    }
    FollowLink();
    // A short message goes at once, on the thread that posts it; a long one would hold that thread up.
    if (direct && m_data && !m_peerGone && LinkCarries() && m_transmittedSends + 1 == m_sends.size())
    {
        Transmit();
    }
    CheckRetryDeadline();
    UpdateInterest();
}

ReliableTransport::Header ReliableTransport::HeaderOf(const SendWork& work)
{
    Header header{};
    header.magic = kHeaderMagic;
    header.flags =
        ((work.flags & IBV_SEND_SOLICITED) != 0 ? kFlagSolicited : 0) | (work.withImmediate ? kFlagImmediate : 0);
    header.sequence = work.sequence;
    header.length = work.length;
    header.immediate = work.immediate;
    return header;
}

void ReliableTransport::Transmit()
{
    while (m_data && m_transmittedSends < m_sends.size())
    {
        SendWork& work = m_sends[m_transmittedSends];
        if (work.failure != IBV_WC_SUCCESS || work.notBefore > Clock::now() || TransmitFront(work) == Step::Stop)
        {
            return;
        }
    }
}

ReliableTransport::Step ReliableTransport::TransmitFront(SendWork& work)
{
    const MemoryTable::Access access;
    const bool covered = std::all_of(work.entries.begin(), work.entries.end(),
                                     [&](const ibv_sge& entry) { return access.Covers(entry, m_pair->pd, false); });
    Header header = HeaderOf(work);
    std::vector<iovec> vectors;
    uint64_t skip = work.transmitted;
    Append(vectors, &header, sizeof header, skip);
    Append(vectors, work.inlineData.data(), work.inlineData.size(), skip);
    for (const ibv_sge& entry : work.entries)
    {
        Append(vectors, reinterpret_cast<void*>(entry.addr), entry.length, skip);
    }
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = vectors.size();
    const ssize_t count = covered ? sendmsg(m_data.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) : -1;
    if (count >= 0)
    {
        work.transmitted += static_cast<uint64_t>(count);
        if (work.transmitted < sizeof header + work.length)
        {
            return Step::Stop;
        }
        ++m_transmittedSends;
        return Step::Continue;
    }
    if (!covered || errno == EFAULT)
    {
        work.failure = IBV_WC_LOC_PROT_ERR;
        FailStalledSend();
    }
    else if (errno != EAGAIN && errno != EINTR)
    {
        PeerIsGone();
    }
    return Step::Stop;
}

void ReliableTransport::FailStalledSend()
{
    // Completions keep their order: those before it are acknowledged first.
    if (!m_sends.empty() && m_sends.front().failure != IBV_WC_SUCCESS && m_transmittedSends == 0)
    {
        CompleteFrontSend(m_sends.front().failure);
        EnterError();
    }
}

void ReliableTransport::ReadAcknowledgements()
{
    Acknowledgement acknowledgement{};
    while (m_acknowledgements)
    {
        const ssize_t count = recv(m_acknowledgements.Get(), &acknowledgement, sizeof acknowledgement, MSG_DONTWAIT);
        if (count == static_cast<ssize_t>(sizeof acknowledgement))
        {
            OnAcknowledgement(acknowledgement);
            continue;
        }
        // A peer that closed with something unread shows once as a reset, before what it had still sent.
        if (count < 0 && (errno == EINTR || errno == ECONNRESET))
        {
            continue;
        }
        if (count >= 0 || errno != EAGAIN)
        {
            PeerIsGone();
        }
        return;
    }
}

void ReliableTransport::OnAcknowledgement(const Acknowledgement& acknowledgement)
{
    switch (acknowledgement.kind)
    {
    case AckKind::LinkDown:
    case AckKind::LinkUp:
        m_peerLinkUp = acknowledgement.kind == AckKind::LinkUp;
        CheckRetryDeadline();
        break;
    case AckKind::Waiting:
        ++WaitingSends::Instance().own;
        break;
    case AckKind::Placed:
        CompleteSendsBefore(acknowledgement.sequence + 1);
        FailStalledSend();
        break;
    case AckKind::Refused:
        CompleteSendsBefore(acknowledgement.sequence);
        FailStalledSend();
        if (!m_sends.empty() && m_sends.front().sequence == acknowledgement.sequence)
        {
            CompleteFrontSend(RefusalStatus(acknowledgement.status));
        }
        EnterError();
        break;
    default:
        Log("queue pair %u: the acknowledgements are broken", m_pair->qp_num);
        PeerIsGone();
    }
}

void ReliableTransport::CompleteSendsBefore(uint64_t sequence)
{
    while (m_transmittedSends > 0 && m_sends.front().sequence < sequence)
    {
        CompleteFrontSend(IBV_WC_SUCCESS);
    }
}

void ReliableTransport::CompleteFrontSend(ibv_wc_status status)
{
    const SendWork work = std::move(m_sends.front());
    m_sends.pop_front();
    m_transmittedSends -= m_transmittedSends > 0 ? 1 : 0;
    if (status == IBV_WC_SUCCESS && !m_signalAll && (work.flags & IBV_SEND_SIGNALED) == 0)
    {
        return;
    }
    if (status != IBV_WC_SUCCESS)
    {
        Complete(CompletionQueue::From(m_pair->send_cq), FailedCompletion(work.id, status, m_pair->qp_num, IBV_WC_SEND),
                 false);
        return;
    }
    ibv_wc completion{};
    completion.wr_id = work.id;
    completion.opcode = IBV_WC_SEND;
    completion.byte_len = static_cast<uint32_t>(work.length);
    completion.qp_num = m_pair->qp_num;
    completion.src_qp = m_peerNumber;
    Complete(CompletionQueue::From(m_pair->send_cq), completion, false);
}

void ReliableTransport::CheckRetryDeadline()
{
    const bool unreachable = m_peerGone || !LinkCarries();
    if (!unreachable || m_sends.empty() || m_state != IBV_QPS_RTS)
    {
        m_retryDeadline = {};
        return;
    }
    const Clock::time_point now = Clock::now();
    if (m_retryDeadline == Clock::time_point{})
    {
        m_retryDeadline = now + Settings::Get().retryTimeout;
        Engine::Instance().CallAt(m_retryDeadline, shared_from_this());
    }
    else if (m_retryDeadline <= now)
    {
        CompleteFrontSend(IBV_WC_RETRY_EXC_ERR);
        EnterError();
    }
}

} // namespace nq::loopback
