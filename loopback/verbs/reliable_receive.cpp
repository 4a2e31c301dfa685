// SPDX-License-Identifier: Apache-2.0
// The receiving half of a reliable connection.
#include "base/error.h"
#include "base/log.h"
#include "verbs/memory.h"
#include "verbs/queue_pair.h"
#include "verbs/reliable_transport.h"
#include "verbs/waiting_sends.h"

#include <algorithm>
#include <sys/socket.h>

namespace nq::loopback
{

namespace
{

// How much one call reads before other connections get their turn.
constexpr uint64_t kReadBudget = 4ULL << 20;

} // namespace

void ReliableTransport::PostReceive(const ibv_recv_wr& work)
{
    const std::lock_guard lock(m_mutex);
    if (m_pair == nullptr || m_state == IBV_QPS_RESET || work.num_sge < 0 ||
        static_cast<uint32_t>(work.num_sge) > m_capacity.max_recv_sge)
    {
        Throw(EINVAL);
    }
    if (m_receives.size() >= m_capacity.max_recv_wr)
    {
        Throw(ENOMEM);
    }
    ReceiveWork made;
    made.id = work.wr_id;
    made.entries.assign(work.sg_list, work.sg_list + work.num_sge);
    for (const ibv_sge& entry : made.entries)
    {
        made.room += entry.length;
    }
    // A message that has come already was there before its receive, even if the engine has not looked yet.
    if (m_receives.empty() && m_data && !m_peerGone && LinkCarries())
    {
        ReceiveHeader();
    }
    m_receives.push_back(std::move(made));
    if (m_state == IBV_QPS_ERR)
    {
        Flush();
        return;
    }
    if (HeaderIsWhole() && m_header.length == 0)
    {
        // Nothing more of it comes that could wake the engine.
        Engine::Instance().CallAt(Clock::now(), shared_from_this());
    }
    UpdateInterest();
}

void ReliableTransport::Receive()
{
    uint64_t before = m_payloadBytes;
    for (uint64_t budget = kReadBudget; m_data && !m_peerGone && budget > 0;)
    {
        if (ReceiveHeader() == Step::Stop || ReceivePayload() == Step::Stop)
        {
            return;
        }
        const uint64_t read = m_payloadBytes > before ? m_payloadBytes - before : sizeof m_header;
        before = m_payloadBytes;
        budget -= std::min(budget, read);
    }
}

ReliableTransport::Step ReliableTransport::ReceiveHeader()
{
    if (!HeaderIsWhole())
    {
        const ssize_t count = recv(m_data.Get(), reinterpret_cast<uint8_t*>(&m_header) + m_headerBytes,
                                   sizeof m_header - m_headerBytes, MSG_DONTWAIT);
        if (OnReadResult(count) == Step::Stop)
        {
            return Step::Stop;
        }
        m_headerBytes += static_cast<size_t>(count);
        if (!HeaderIsWhole())
        {
            return Step::Stop;
        }
        m_payloadBytes = 0;
        if (m_header.magic != kHeaderMagic)
        {
            Log("queue pair %u: the stream is broken", m_pair->qp_num);
            PeerIsGone();
            return Step::Stop;
        }
        CountWaiting();
    }
    return m_receives.empty() ? Step::Stop : Step::Continue;
}

void ReliableTransport::CountWaiting()
{
    if (m_receives.empty())
    {
        ++WaitingSends::Instance().ofPeers;
        SendAcknowledgement({AckKind::Waiting, 0, m_header.sequence});
    }
}

ReliableTransport::Step ReliableTransport::OnReadResult(ssize_t count)
{
    if (count > 0)
    {
        return Step::Continue;
    }
    if (count == 0 || (errno != EAGAIN && errno != EINTR))
    {
        PeerIsGone();
    }
    return Step::Stop;
}

ReliableTransport::Step ReliableTransport::ReceivePayload()
{
    const ReceiveWork& work = m_receives.front();
    if (m_header.length > work.room)
    {
        return RefuseMessage(IBV_WC_LOC_LEN_ERR, IBV_WC_REM_INV_REQ_ERR);
    }
    if (m_payloadBytes < m_header.length)
    {
        const ssize_t count = ReadInto(work);
        if (count < 0 && errno == EFAULT)
        {
            return RefuseMessage(IBV_WC_LOC_PROT_ERR, IBV_WC_REM_OP_ERR);
        }
        if (OnReadResult(count) == Step::Stop)
        {
            return Step::Stop;
        }
        m_payloadBytes += static_cast<uint64_t>(count);
    }
    if (m_payloadBytes == m_header.length)
    {
        m_placed = m_header.sequence;
        m_headerBytes = 0;
        // First, because a user who has seen the completion may end the process.
        Acknowledge();
        CompleteFrontReceive(IBV_WC_SUCCESS);
    }
    return m_overflowed ? Step::Stop : Step::Continue;
}

ssize_t ReliableTransport::ReadInto(const ReceiveWork& work)
{
    const MemoryTable::Access access;
    std::vector<iovec> vectors;
    uint64_t skip = m_payloadBytes;
    uint64_t left = m_header.length - m_payloadBytes;
    for (const ibv_sge& entry : work.entries)
    {
        const uint64_t skipped = std::min<uint64_t>(skip, entry.length);
        const uint64_t used = std::min<uint64_t>(left, entry.length - skipped);
        skip -= skipped;
        left -= used;
        if (used == 0)
        {
            continue;
        }
        if (!access.Covers(entry, m_pair->pd, true))
        {
            errno = EFAULT;
            return -1;
        }
        vectors.push_back({reinterpret_cast<uint8_t*>(entry.addr) + skipped, used});
    }
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = vectors.size();
    return recvmsg(m_data.Get(), &message, MSG_DONTWAIT);
}

ReliableTransport::Step ReliableTransport::RefuseMessage(ibv_wc_status local, ibv_wc_status remote)
{
    Acknowledge();
    SendAcknowledgement({AckKind::Refused, static_cast<uint32_t>(remote), m_header.sequence});
    CompleteFrontReceive(local);
    EnterError();
    return Step::Stop;
}

void ReliableTransport::CompleteFrontReceive(ibv_wc_status status)
{
    const uint64_t work = m_receives.front().id;
    m_receives.pop_front();
    if (status != IBV_WC_SUCCESS)
    {
        Complete(CompletionQueue::From(m_pair->recv_cq), FailedCompletion(work, status, m_pair->qp_num, IBV_WC_RECV),
                 false);
        return;
    }
    ibv_wc completion{};
    completion.wr_id = work;
    completion.opcode = IBV_WC_RECV;
    completion.byte_len = static_cast<uint32_t>(m_header.length);
    completion.qp_num = m_pair->qp_num;
    completion.src_qp = m_peerNumber;
    if ((m_header.flags & kFlagImmediate) != 0)
    {
        completion.wc_flags = IBV_WC_WITH_IMM;
        completion.imm_data = m_header.immediate;
    }
    Complete(CompletionQueue::From(m_pair->recv_cq), completion, (m_header.flags & kFlagSolicited) != 0);
}

void ReliableTransport::Acknowledge()
{
    if (m_acknowledged < m_placed && SendAcknowledgement({AckKind::Placed, 0, m_placed}))
    {
        m_acknowledged = m_placed;
    }
}

bool ReliableTransport::SendAcknowledgement(const Acknowledgement& acknowledgement)
{
    return m_acknowledgements && send(m_acknowledgements.Get(), &acknowledgement, sizeof acknowledgement,
                                      MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof acknowledgement);
}

} // namespace nq::loopback
