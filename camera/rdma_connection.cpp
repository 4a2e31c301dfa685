// SPDX-License-Identifier: Apache-2.0
// One RDMA connection of a host.
#include "rdma_connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace nq::camera
{

namespace
{

/// 1 in bytes 0 and 3, nothing else.
constexpr std::array<std::uint8_t, 60> kReadyMessage{1, 0, 0, 1};
/// Room of one receive; longer than the ready message, so that a wrong one can be told apart.
constexpr std::size_t kMessageRoom = 64;
/// Ready messages that may be under way at once; more than a host has buffers outstanding.
constexpr std::uint64_t kMessageCount = 256;
/// Marks the work request id of a send; the rest is the index of the block.
constexpr std::uint64_t kSendMark = std::uint64_t{1} << 63;

template <typename T>
T* Required(T* object, const char* call)
{
    if (object == nullptr)
    {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return object;
}

void RequireZero(int result, const char* call)
{
    if (result != 0)
    {
        throw std::system_error(result > 0 ? result : errno, std::generic_category(), call);
    }
}

} // namespace

RdmaConnection::RdmaConnection(rdma_cm_id* id, std::uint32_t sendBuffers)
    : m_id(id), m_domain(Required(ibv_alloc_pd(id->verbs), "ibv_alloc_pd")),
      m_channel(Required(ibv_create_comp_channel(id->verbs), "ibv_create_comp_channel")),
      m_queue(
          Required(ibv_create_cq(id->verbs, static_cast<int>(kMessageCount + sendBuffers), nullptr, m_channel.get(), 0),
                   "ibv_create_cq")),
      m_blocks(sendBuffers)
{
    RequireZero(ibv_req_notify_cq(m_queue.get(), 0), "ibv_req_notify_cq");
    CreateQueuePair(sendBuffers);
    try
    {
        m_messages =
            std::make_unique<RegisteredMemory>(m_domain.get(), kMessageCount * kMessageRoom, IBV_ACCESS_LOCAL_WRITE);
        for (std::uint64_t i = 0; i < kMessageCount; ++i)
        {
            RequireZero(PostReceive(i) ? 0 : EIO, "ibv_post_recv");
        }
        for (std::uint32_t i = 0; i < sendBuffers; ++i)
        {
            m_free.push_back(sendBuffers - 1 - i);
        }
    }
    catch (...)
    {
        rdma_destroy_qp(m_id.get());
        throw;
    }
}

RdmaConnection::~RdmaConnection()
{
    rdma_disconnect(m_id.get());
    rdma_destroy_qp(m_id.get());
    // Blocks and messages are deregistered before their domain goes, the domain before the id.
    m_blocks.clear();
    m_messages.reset();
    m_queue.reset();
    m_channel.reset();
    m_domain.reset();
}

void RdmaConnection::CreateQueuePair(std::uint32_t sendBuffers)
{
    ibv_qp_init_attr attributes{};
    attributes.send_cq = m_queue.get();
    attributes.recv_cq = m_queue.get();
    attributes.qp_type = IBV_QPT_RC;
    attributes.cap.max_send_wr = sendBuffers;
    attributes.cap.max_recv_wr = kMessageCount;
    attributes.cap.max_send_sge = 1;
    attributes.cap.max_recv_sge = 1;
    RequireZero(rdma_create_qp(m_id.get(), m_domain.get(), &attributes), "rdma_create_qp");
}

void RdmaConnection::Accept()
{
    RequireZero(rdma_accept(m_id.get(), nullptr), "rdma_accept");
}

bool RdmaConnection::PostReceive(std::uint64_t index)
{
    ibv_sge entry = m_messages->Entry(index * kMessageRoom, kMessageRoom);
    ibv_recv_wr request{};
    request.wr_id = index;
    request.sg_list = &entry;
    request.num_sge = 1;
    ibv_recv_wr* refused = nullptr;
    return ibv_post_recv(m_id->qp, &request, &refused) == 0;
}

void RdmaConnection::TakeMessage(const ibv_wc& completion)
{
    const auto message = m_messages->Bytes().subspan(completion.wr_id * kMessageRoom, kMessageRoom);
    if (std::ranges::equal(message.first(completion.byte_len), kReadyMessage))
    {
        ++m_credits;
    }
    else
    {
        ++m_strangeMessages;
    }
}

bool RdmaConnection::TakeEvent()
{
    ibv_cq* queue = nullptr;
    void* context = nullptr;
    if (ibv_get_cq_event(m_channel.get(), &queue, &context) != 0)
    {
        return false;
    }
    ibv_ack_cq_events(queue, 1);
    return ibv_req_notify_cq(queue, 0) == 0;
}

bool RdmaConnection::TakeCompletions(std::vector<std::uint64_t>& sent)
{
    ibv_wc completion{};
    int count = 0;
    while ((count = ibv_poll_cq(m_queue.get(), 1, &completion)) > 0)
    {
        if (completion.status != IBV_WC_SUCCESS)
        {
            return false;
        }
        if ((completion.wr_id & kSendMark) != 0)
        {
            const auto index = static_cast<std::uint32_t>(completion.wr_id & ~kSendMark);
            sent.push_back(m_blocks[index].frameId);
            m_free.push_back(index);
        }
        else
        {
            TakeMessage(completion);
            if (!PostReceive(completion.wr_id))
            {
                return false;
            }
        }
    }
    return count == 0;
}

RdmaConnection::Block RdmaConnection::TakeBlock(std::size_t size)
{
    const std::uint32_t index = m_free.back();
    SendBlock& block = m_blocks[index];
    if (!block.memory || block.memory->Bytes().size() < size)
    {
        block.memory.reset();
        block.memory = std::make_unique<RegisteredMemory>(m_domain.get(), size, 0);
        block.picture = 0;
    }
    m_free.pop_back();
    return {index, block.memory->Bytes().first(size), block.picture};
}

bool RdmaConnection::Send(const Block& block, std::size_t size, std::uint64_t frameId)
{
    --m_credits;
    m_blocks[block.index].frameId = frameId;
    ibv_sge entry = m_blocks[block.index].memory->Entry(0, size);
    ibv_send_wr request{};
    request.wr_id = kSendMark | block.index;
    request.sg_list = &entry;
    request.num_sge = size > 0 ? 1 : 0;
    request.opcode = IBV_WR_SEND;
    request.send_flags = IBV_SEND_SIGNALED;
    ibv_send_wr* refused = nullptr;
    return ibv_post_send(m_id->qp, &request, &refused) == 0;
}

} // namespace nq::camera
