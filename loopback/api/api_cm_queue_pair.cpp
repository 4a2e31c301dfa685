// SPDX-License-Identifier: Apache-2.0
// The exported calls that give an id its queue pair.
#include "base/error.h"
#include "cm/cm_id.h"
#include "verbs/queue_pair.h"

#include <algorithm>
#include <memory>

using namespace nq::loopback;

namespace
{

ProtectionDomain* SharedDomain()
{
    static auto& domain = *new ProtectionDomain(&Context::Shared());
    return &domain;
}

void DestroyOwnQueue(ibv_cq*& queue, ibv_comp_channel*& channel)
{
    if (queue != nullptr)
    {
        ibv_destroy_cq(queue);
        queue = nullptr;
    }
    if (channel != nullptr)
    {
        ibv_destroy_comp_channel(channel);
        channel = nullptr;
    }
}

/// Completion queues that librdmacm makes for an id whose user gives none; they go with the queue pair.
class OwnQueues
{
  public:
    explicit OwnQueues(CmId& id) : m_id(id) {}
    ~OwnQueues()
    {
        if (!m_kept)
        {
            Destroy(m_id);
        }
    }
    OwnQueues(const OwnQueues&) = delete;
    OwnQueues& operator=(const OwnQueues&) = delete;

    void MakeMissing(ibv_qp_init_attr& attributes)
    {
        Make(attributes.send_cq, attributes.cap.max_send_wr, m_id.send_cq, m_id.send_cq_channel);
        Make(attributes.recv_cq, attributes.cap.max_recv_wr, m_id.recv_cq, m_id.recv_cq_channel);
    }

    void Keep() { m_kept = true; }

    static void Destroy(CmId& id)
    {
        DestroyOwnQueue(id.send_cq, id.send_cq_channel);
        DestroyOwnQueue(id.recv_cq, id.recv_cq_channel);
    }

  private:
    void Make(ibv_cq*& wanted, uint32_t entries, ibv_cq*& queue, ibv_comp_channel*& channel)
    {
        if (wanted != nullptr)
        {
            return;
        }
        channel = ibv_create_comp_channel(m_id.verbs);
        queue = channel == nullptr
                    ? nullptr
                    : ibv_create_cq(m_id.verbs, static_cast<int>(std::max(entries, 1U)), &m_id, channel, 0);
        if (queue == nullptr)
        {
            Throw(errno);
        }
        wanted = queue;
    }

    CmId& m_id;
    bool m_kept = false;
};

} // namespace

extern "C"
{

int rdma_create_qp(rdma_cm_id* id, ibv_pd* domain, ibv_qp_init_attr* attributes)
{
    return Invoke("rdma_create_qp", -1, [&] {
        CmId& self = CmId::From(id);
        if (self.qp != nullptr || self.verbs == nullptr || (domain != nullptr && domain->context != self.verbs))
        {
            Throw(EINVAL);
        }
        auto* home = domain == nullptr ? SharedDomain() : static_cast<ProtectionDomain*>(domain);
        ibv_qp_init_attr complete = *attributes;
        OwnQueues queues(self);
        queues.MakeMissing(complete);
        auto pair = std::make_unique<QueuePair>(*home, complete);
        ibv_qp_attr initial{};
        initial.qp_state = IBV_QPS_INIT;
        pair->Modify(initial, IBV_QP_STATE);
        self.SetTransport(pair->Transport());
        queues.Keep();
        *attributes = complete;
        self.pd = home;
        self.qp = pair.release();
        return 0;
    });
}

void rdma_destroy_qp(rdma_cm_id* id)
{
    Invoke("rdma_destroy_qp", 0, [&] {
        CmId& self = CmId::From(id);
        delete static_cast<QueuePair*>(self.qp);
        self.SetTransport(nullptr);
        self.qp = nullptr;
        OwnQueues::Destroy(self);
        return 0;
    });
}

} // extern "C"
