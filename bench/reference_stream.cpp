// SPDX-License-Identifier: Apache-2.0
// A connection to the stream port of a camera, its memory and its work requests.
#include "reference_stream.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/mman.h>

namespace nq::bench
{

namespace
{

constexpr std::uint16_t kStreamPort = 4791;
constexpr int kResolveMs = 2000;

// Of a frame: where its id, the offset of its part header, and in that the size and the offset of the pixels are.
constexpr std::size_t kIdAt = 16;
constexpr std::size_t kPartAt = 112;
constexpr std::size_t kPixelBytesAt = 24;
constexpr std::size_t kPixelsAt = 32;
constexpr std::size_t kPartHeader = 56;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kHugePagesFrom = std::size_t{4} << 20;

template <typename Number>
Number Little(const std::uint8_t* at)
{
    Number value = 0;
    std::memcpy(&value, at, sizeof value);
    return value;
}

void Require(bool good, const char* what)
{
    if (!good)
    {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

/// Whole pages; of the big kind where a block is worth it, and then from the start of one on.
std::uint8_t* MakeBlock(std::size_t size)
{
    const bool huge = size >= kHugePagesFrom;
    const std::size_t pages = (size + kPage - 1) / kPage * kPage;
    void* const memory = std::aligned_alloc(huge ? kHugePage : kPage, pages);
    Require(memory != nullptr, "aligned_alloc");
    if (huge)
    {
        madvise(memory, pages, MADV_HUGEPAGE);
    }
    return static_cast<std::uint8_t*>(memory);
}

} // namespace

std::uint64_t FrameBlock::FrameId() const
{
    return Little<std::uint64_t>(memory + kIdAt);
}

const std::uint8_t* FrameBlock::Pixels(std::size_t& bytes) const
{
    const std::size_t part = Little<std::uint32_t>(memory + kPartAt);
    if (received < kPartHeader || part > received - kPartHeader)
    {
        return nullptr;
    }
    bytes = Little<std::uint64_t>(memory + part + kPixelBytesAt);
    const std::size_t pixels = Little<std::uint32_t>(memory + part + kPixelsAt);
    return pixels <= received && bytes <= received - pixels ? memory + pixels : nullptr;
}

ReferenceStream::ReferenceStream(const std::string& camera) : m_events(rdma_create_event_channel())
{
    Require(m_events != nullptr, "rdma_create_event_channel");
    Require(rdma_create_id(m_events, &m_id, nullptr, RDMA_PS_TCP) == 0, "rdma_create_id");
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(kStreamPort);
    inet_pton(AF_INET, camera.c_str(), &place.sin_addr);
    Require(rdma_resolve_addr(m_id, nullptr, reinterpret_cast<sockaddr*>(&place), kResolveMs) == 0,
            "rdma_resolve_addr");
    Await(RDMA_CM_EVENT_ADDR_RESOLVED);
    MakeQueuePair();
    Require(rdma_resolve_route(m_id, kResolveMs) == 0, "rdma_resolve_route");
    Await(RDMA_CM_EVENT_ROUTE_RESOLVED);
    Require(rdma_connect(m_id, nullptr) == 0, "rdma_connect");
    Await(RDMA_CM_EVENT_ESTABLISHED);
}

ReferenceStream::~ReferenceStream()
{
    rdma_destroy_qp(m_id);
    for (const FrameBlock& block : m_blocks)
    {
        ibv_dereg_mr(block.region);
        std::free(block.memory);
    }
    for (const ReadyMessage& message : m_ready)
    {
        ibv_dereg_mr(message.region);
    }
    ibv_destroy_cq(m_queue);
    ibv_destroy_comp_channel(m_channel);
    ibv_dealloc_pd(m_domain);
    rdma_destroy_id(m_id);
    rdma_destroy_event_channel(m_events);
}

void ReferenceStream::Await(rdma_cm_event_type expected)
{
    rdma_cm_event* event = nullptr;
    Require(rdma_get_cm_event(m_events, &event) == 0, "rdma_get_cm_event");
    const rdma_cm_event_type came = event->event;
    rdma_ack_cm_event(event);
    Require(came == expected, rdma_event_str(expected));
}

void ReferenceStream::MakeQueuePair()
{
    m_domain = ibv_alloc_pd(m_id->verbs);
    m_channel = ibv_create_comp_channel(m_id->verbs);
    m_queue = ibv_create_cq(m_id->verbs, 500, nullptr, m_channel, 0);
    Require(m_domain != nullptr && m_queue != nullptr && ibv_req_notify_cq(m_queue, 0) == 0, "ibv_create_cq");
    ibv_qp_init_attr attributes{};
    attributes.send_cq = m_queue;
    attributes.recv_cq = m_queue;
    attributes.qp_type = IBV_QPT_RC;
    attributes.cap = {100, 100, 1, 1, 0};
    Require(rdma_create_qp(m_id, m_domain, &attributes) == 0, "rdma_create_qp");
}

void ReferenceStream::Begin(std::size_t blocks, std::size_t frameBytes)
{
    m_blocks.resize(blocks);
    m_ready.resize(blocks);
    const int mayWrite = static_cast<int>(IBV_ACCESS_LOCAL_WRITE); // no constant: the call is a macro that mixes enums
    for (FrameBlock& block : m_blocks)
    {
        block.memory = MakeBlock(frameBytes);
        block.size = frameBytes;
        block.index = static_cast<std::uint32_t>(&block - m_blocks.data());
        block.region = ibv_reg_mr(m_domain, block.memory, block.size, mayWrite);
        Require(block.region != nullptr, "ibv_reg_mr");
    }
    for (ReadyMessage& message : m_ready)
    {
        message.region = ibv_reg_mr(m_domain, message.bytes, sizeof message.bytes, 0);
        Require(message.region != nullptr, "ibv_reg_mr");
    }
    for (FrameBlock& block : m_blocks)
    {
        Post(block);
    }
    for (ReadyMessage& message : m_ready)
    {
        Post(message);
    }
}

void ReferenceStream::Post(FrameBlock& block)
{
    ibv_sge entry{reinterpret_cast<std::uintptr_t>(block.memory), static_cast<std::uint32_t>(block.size),
                  block.region->lkey};
    ibv_recv_wr request{};
    request.wr_id = reinterpret_cast<std::uintptr_t>(&block);
    request.sg_list = &entry;
    request.num_sge = 1;
    ibv_recv_wr* refused = nullptr;
    Require(ibv_post_recv(m_id->qp, &request, &refused) == 0, "ibv_post_recv");
}

void ReferenceStream::Post(ReadyMessage& message)
{
    ibv_sge entry{reinterpret_cast<std::uintptr_t>(message.bytes), sizeof message.bytes, message.region->lkey};
    ibv_send_wr request{};
    request.wr_id = reinterpret_cast<std::uintptr_t>(&message);
    request.sg_list = &entry;
    request.num_sge = 1;
    request.opcode = IBV_WR_SEND;
    request.send_flags = IBV_SEND_SIGNALED;
    ibv_send_wr* refused = nullptr;
    Require(ibv_post_send(m_id->qp, &request, &refused) == 0, "ibv_post_send");
}

bool ReferenceStream::AwaitEvent()
{
    ibv_cq* queue = nullptr;
    void* context = nullptr;
    if (ibv_get_cq_event(m_channel, &queue, &context) != 0)
    {
        return false;
    }
    ibv_ack_cq_events(queue, 1);
    return ibv_req_notify_cq(queue, 0) == 0;
}

bool ReferenceStream::Poll(Completion& completion)
{
    ibv_wc work{};
    const int count = ibv_poll_cq(m_queue, 1, &work);
    if (count == 0)
    {
        return false;
    }
    completion = {};
    if (count < 0 || work.status != IBV_WC_SUCCESS)
    {
        completion.failed = true;
    }
    else if (work.opcode == IBV_WC_RECV)
    {
        completion.frame = reinterpret_cast<FrameBlock*>(static_cast<std::uintptr_t>(work.wr_id));
        completion.frame->received = work.byte_len;
    }
    else
    {
        completion.ready = reinterpret_cast<ReadyMessage*>(static_cast<std::uintptr_t>(work.wr_id));
    }
    return true;
}

void ReferenceStream::Disconnect()
{
    rdma_disconnect(m_id);
    try
    {
        Post(m_blocks.at(0));
    }
    catch (const std::exception&)
    {
        // Then others are posted, and fail.
    }
}

} // namespace nq::bench
