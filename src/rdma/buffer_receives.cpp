// SPDX-License-Identifier: Apache-2.0
// Registration of the buffers' memory and of the ready messages.
#include "rdma/buffer_receives.h"

#include "rdma/ready_message.h"

#include <algorithm>
#include <infiniband/verbs.h>
#include <utility>

namespace
{

constexpr int kLocalWrite = IBV_ACCESS_LOCAL_WRITE;

} // namespace

bool BufferReceives::Begin(ibv_pd* domain, MessageQueue& sends)
{
    const NQLock lock(m_lock);
    m_readyMessage = MakeReadyMessage();
    m_readyRegion = ibv_reg_mr(domain, m_readyMessage.get(), gendc_wire::kReadySize, 0);
    if (m_readyRegion == nullptr)
    {
        return false;
    }
    m_domain = domain;
    m_sends.assign(m_most, {m_readyMessage.get(), 0, 0, m_readyRegion});
    sends.Reserve(m_most);
    for (msg_buffer_mem& send : m_sends)
    {
        sends.Push(&send);
    }
    return true;
}

void* BufferReceives::Add(unsigned char* memory, std::uint32_t length, std::shared_ptr<const void> share)
{
    const NQLock lock(m_lock);
    if (m_domain == nullptr || length > kLongestReceive)
    {
        return nullptr;
    }
    auto receive = std::make_unique<Receive>(Receive{{memory, length, 0, nullptr}, std::move(share)});
    m_receives.reserve(m_receives.size() + 1);
    receive->descriptor.mr = ibv_reg_mr(m_domain, memory, length, kLocalWrite);
    if (receive->descriptor.mr == nullptr)
    {
        return nullptr;
    }
    m_receives.push_back(std::move(receive));
    return &m_receives.back()->descriptor;
}

void BufferReceives::Remove(const void* id)
{
    std::unique_ptr<Receive> removed; // Goes last, without the lock: it may have the last share.
    const NQLock lock(m_lock);
    const auto found = Find(id);
    if (found == m_receives.end())
    {
        return;
    }
    removed = std::move(*found);
    m_receives.erase(found);
    if (removed->descriptor.mr != nullptr)
    {
        ibv_dereg_mr(removed->descriptor.mr);
    }
}

msg_buffer_mem* BufferReceives::TakeForPost(const void* id)
{
    const NQLock lock(m_lock);
    const auto found = Find(id);
    if (found == m_receives.end() || m_domain == nullptr || m_posted == m_most)
    {
        return nullptr;
    }
    ++m_posted;
    return &(*found)->descriptor;
}

void BufferReceives::Completed(const void* id)
{
    const NQLock lock(m_lock);
    if (Find(id) != m_receives.end())
    {
        --m_posted;
    }
}

void BufferReceives::End()
{
    const NQLock lock(m_lock);
    m_domain = nullptr;
    for (const auto& receive : m_receives)
    {
        if (ibv_mr* const region = std::exchange(receive->descriptor.mr, nullptr))
        {
            ibv_dereg_mr(region);
        }
    }
    if (ibv_mr* const region = std::exchange(m_readyRegion, nullptr))
    {
        ibv_dereg_mr(region);
    }
}

std::vector<std::unique_ptr<BufferReceives::Receive>>::iterator BufferReceives::Find(const void* id)
{
    // Ids come back from the stream, possibly from a run long gone: only compared, never followed.
    return std::find_if(m_receives.begin(), m_receives.end(),
                        [id](const std::unique_ptr<Receive>& receive) { return &receive->descriptor == id; });
}
