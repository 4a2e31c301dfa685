// SPDX-License-Identifier: Apache-2.0
// The handle of a queue pair that its user holds.
#include "verbs/queue_pair.h"

#include "base/error.h"

namespace nq::loopback
{

namespace
{

constexpr uint32_t kMaximumWork = 16384;
constexpr uint32_t kMaximumEntries = 32;
constexpr uint32_t kMaximumInline = 1024;

void Check(const ProtectionDomain& domain, const ibv_qp_init_attr& attributes)
{
    const ibv_qp_cap& cap = attributes.cap;
    if (attributes.qp_type != IBV_QPT_RC || attributes.srq != nullptr)
    {
        Throw(EOPNOTSUPP);
    }
    if (attributes.send_cq == nullptr || attributes.recv_cq == nullptr ||
        attributes.send_cq->context != domain.context || attributes.recv_cq->context != domain.context)
    {
        Throw(EINVAL);
    }
    if (cap.max_send_wr > kMaximumWork || cap.max_recv_wr > kMaximumWork || cap.max_send_sge > kMaximumEntries ||
        cap.max_recv_sge > kMaximumEntries || cap.max_inline_data > kMaximumInline)
    {
        Throw(EINVAL);
    }
}

} // namespace

QueuePair::QueuePair(ProtectionDomain& domain, ibv_qp_init_attr& attributes) : ibv_qp{}, m_initial(attributes)
{
    Check(domain, attributes);
    context = domain.context;
    qp_context = attributes.qp_context;
    pd = &domain;
    send_cq = attributes.send_cq;
    recv_cq = attributes.recv_cq;
    handle = NextHandle();
    qp_num = handle;
    state = IBV_QPS_RESET;
    qp_type = IBV_QPT_RC;
    m_transport = std::make_shared<ReliableTransport>(*this, attributes.cap, attributes.sq_sig_all != 0);
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&cond, nullptr);
    ++domain.users;
    ++CompletionQueue::From(send_cq).users;
    ++CompletionQueue::From(recv_cq).users;
}

QueuePair::~QueuePair()
{
    m_transport->Close();
    --CompletionQueue::From(recv_cq).users;
    --CompletionQueue::From(send_cq).users;
    --static_cast<ProtectionDomain*>(pd)->users;
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
}

void QueuePair::Modify(const ibv_qp_attr& attributes, int mask)
{
    if ((mask & IBV_QP_STATE) == 0)
    {
        return;
    }
    m_transport->Modify(attributes.qp_state);
    state = attributes.qp_state;
}

void QueuePair::Query(ibv_qp_attr& attributes, ibv_qp_init_attr& initial) const
{
    attributes = {};
    attributes.qp_state = m_transport->State();
    attributes.cur_qp_state = attributes.qp_state;
    attributes.path_mtu = IBV_MTU_4096;
    attributes.cap = m_initial.cap;
    attributes.port_num = 1;
    attributes.retry_cnt = 7;
    attributes.rnr_retry = 7;
    attributes.dest_qp_num = m_transport->PeerNumber();
    initial = m_initial;
}

int QueuePair::PostSend(ibv_qp* pair, ibv_send_wr* work, ibv_send_wr** bad)
{
    ibv_send_wr* current = work;
    const int error = InvokeCode("ibv_post_send", [&] {
        for (; current != nullptr; current = current->next)
        {
            From(pair).m_transport->PostSend(*current);
        }
    });
    if (error != 0)
    {
        *bad = current;
    }
    return error;
}

int QueuePair::PostReceive(ibv_qp* pair, ibv_recv_wr* work, ibv_recv_wr** bad)
{
    ibv_recv_wr* current = work;
    const int error = InvokeCode("ibv_post_recv", [&] {
        for (; current != nullptr; current = current->next)
        {
            From(pair).m_transport->PostReceive(*current);
        }
    });
    if (error != 0)
    {
        *bad = current;
    }
    return error;
}

} // namespace nq::loopback
