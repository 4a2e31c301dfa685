// SPDX-License-Identifier: Apache-2.0
// Registration of the buffers' memory and of the ready messages.
#include "rdma/buffer_receives.h"

#include "rdma/GenDCBuffer.h"
#include "rdma/ready_message.h"

#include <algorithm>
#include <cstring>
#include <infiniband/verbs.h>
#include <utility>

namespace
{

constexpr int kLocalWrite = IBV_ACCESS_LOCAL_WRITE;

void Deregister(ibv_mr*& region)
{
    if (region != nullptr)
    {
        ibv_dereg_mr(std::exchange(region, nullptr));
    }
}

/// Of `length` bytes from `offset` on, how many lie before `end`.
std::uint64_t Before(std::uint64_t end, std::uint64_t offset, std::uint64_t length)
{
    return offset < end ? std::min(end - offset, length) : 0;
}

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
    auto receive = std::make_unique<Receive>();
    receive->descriptor = {memory, length, 0, nullptr};
    receive->memory = std::move(share);
    return Keep(std::move(receive), length);
}

void* BufferReceives::AddBehindHeaders(unsigned char* memory, std::uint32_t length, std::size_t room)
{
    const NQLock lock(m_lock);
    if (m_domain == nullptr || length > kLongestReceive - gendc_wire::kDescriptorSize)
    {
        return nullptr;
    }
    // A page of its own, for a device has pages only.
    const auto headers = std::make_shared<GenDCBuffer>(0);
    auto receive = std::make_unique<Receive>();
    receive->descriptor = {memory, headers->GetBufferSize() + length, 0, nullptr};
    receive->memory = headers;
    receive->headers = {headers->GetBuffer(), headers->GetBufferSize(), 0, nullptr};
    if (!receive->pages.emplace(memory, length, room).AreFit())
    {
        return nullptr;
    }
    return Keep(std::move(receive), length);
}

/// Registers the headers, if they have a piece of their own, and the `length` bytes of the last piece. The id; null,
/// with nothing registered, when the system refuses.
void* BufferReceives::Keep(std::unique_ptr<Receive> receive, std::uint32_t length)
{
    m_receives.reserve(m_receives.size() + 1); // Nothing may fail once there are registrations.
    msg_buffer_mem& headers = receive->headers;
    if (headers.addr != nullptr)
    {
        headers.mr = ibv_reg_mr(m_domain, headers.addr, headers.length, kLocalWrite);
    }
    if (headers.addr == nullptr || headers.mr != nullptr)
    {
        receive->descriptor.mr = ibv_reg_mr(m_domain, receive->descriptor.addr, length, kLocalWrite);
    }
    if (receive->descriptor.mr == nullptr)
    {
        EndRegions(*receive);
        return nullptr;
    }
    m_receives.push_back(std::move(receive));
    return &m_receives.back()->descriptor;
}

void BufferReceives::EndRegions(Receive& receive)
{
    Deregister(receive.headers.mr);
    Deregister(receive.descriptor.mr);
    receive.pages.reset();
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
    EndRegions(*removed);
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

const msg_buffer_mem* BufferReceives::HeadersOf(const void* id)
{
    const NQLock lock(m_lock);
    const auto found = Find(id);
    return found != m_receives.end() && (*found)->headers.addr != nullptr ? &(*found)->headers : nullptr;
}

bool BufferReceives::Read(const void* id, std::uint64_t offset, void* out, std::size_t length)
{
    const NQLock lock(m_lock);
    const auto found = Find(id);
    if (found == m_receives.end() || m_domain == nullptr)
    {
        return false;
    }
    const Receive& receive = **found;
    const std::uint64_t received = receive.descriptor.received;
    if (offset > received || length > received - offset)
    {
        return false;
    }
    const std::uint64_t first = Before(receive.headers.length, offset, length);
    auto* const bytes = static_cast<unsigned char*>(out);
    std::copy_n(receive.headers.addr + (first != 0 ? offset : 0), first, bytes);
    if (length != first)
    {
        std::memcpy(bytes + first, receive.descriptor.addr + (offset + first - receive.headers.length), length - first);
    }
    return true;
}

FramePixels BufferReceives::PixelsOf(const void* id, std::uint64_t offset, std::uint64_t size)
{
    const NQLock lock(m_lock);
    const auto found = Find(id);
    if (found == m_receives.end())
    {
        return {};
    }
    const Receive& receive = **found;
    const std::uint64_t front = Before(receive.headers.length, offset, size);
    return {front != 0 ? receive.headers.addr + offset : nullptr, front,
            receive.descriptor.addr +
                (std::max<std::uint64_t>(offset, receive.headers.length) - receive.headers.length)};
}

void BufferReceives::End()
{
    const NQLock lock(m_lock);
    m_domain = nullptr;
    for (const auto& receive : m_receives)
    {
        EndRegions(*receive);
    }
    Deregister(m_readyRegion);
}

std::vector<std::unique_ptr<BufferReceives::Receive>>::iterator BufferReceives::Find(const void* id)
{
    // Ids come back from the stream, possibly from a run long gone: only compared, never followed.
    return std::find_if(m_receives.begin(), m_receives.end(),
                        [id](const std::unique_ptr<Receive>& receive) { return &receive->descriptor == id; });
}
