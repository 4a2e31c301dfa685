// SPDX-License-Identifier: Apache-2.0
// The host's side of the image stream in plain verbs, for tests that state what passes over the queue pair.
#pragma once

#include "support/preload_loopback.h"
#include "support/virtual_camera.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>
#include <rdma/rdma_cma.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace nq::test
{

/// One received frame.
struct ReceivedFrame
{
    bool good = false;
    std::vector<std::uint8_t> bytes;

    std::uint32_t Little32(std::size_t at) const
    {
        std::uint32_t value = 0;
        std::memcpy(&value, &bytes.at(at), sizeof(value));
        return value;
    }
    std::uint64_t Id() const { return Little32(16) + (std::uint64_t{Little32(20)} << 32); }
};

/// One connection to the camera's port 4791, with receives of one size and ready messages on demand. Throws
/// std::runtime_error naming the call that failed.
class PlainRdmaHost
{
  public:
    explicit PlainRdmaHost(std::size_t frameSize, std::size_t buffers = 4)
        : m_channel(rdma_create_event_channel()), m_buffers(buffers, std::vector<std::uint8_t>(frameSize)), m_ready(60)
    {
        Require(m_channel != nullptr, "rdma_create_event_channel");
        Require(rdma_create_id(m_channel, &m_id, nullptr, RDMA_PS_TCP) == 0, "rdma_create_id");
        sockaddr_in camera{};
        camera.sin_family = AF_INET;
        camera.sin_port = htons(4791);
        inet_pton(AF_INET, VirtualCamera::kAddress, &camera.sin_addr);
        Require(rdma_resolve_addr(m_id, nullptr, reinterpret_cast<sockaddr*>(&camera), 2000) == 0, "rdma_resolve_addr");
        Require(NextEvent() == RDMA_CM_EVENT_ADDR_RESOLVED, "address");
        MakeQueuePair();
        Require(rdma_resolve_route(m_id, 2000) == 0 && NextEvent() == RDMA_CM_EVENT_ROUTE_RESOLVED, "route");
        m_ready[0] = 1;
        m_ready[3] = 1;
    }

    ~PlainRdmaHost()
    {
        rdma_disconnect(m_id);
        rdma_destroy_qp(m_id);
        for (ibv_mr* region : m_regions)
        {
            ibv_dereg_mr(region);
        }
        ibv_destroy_cq(m_queue);
        ibv_destroy_comp_channel(m_completions);
        ibv_dealloc_pd(m_domain);
        rdma_destroy_id(m_id);
        rdma_destroy_event_channel(m_channel);
    }
    PlainRdmaHost(const PlainRdmaHost&) = delete;
    PlainRdmaHost& operator=(const PlainRdmaHost&) = delete;

    /// Asks for the connection. It is not established before NextEvent has taken the answer.
    void Request() { Require(rdma_connect(m_id, nullptr) == 0, "rdma_connect"); }

    /// Asks for the connection; the event that ends the attempt.
    int Connect()
    {
        Request();
        return NextEvent();
    }

    /// The next connection event; -1 when none came within `wait`.
    int NextEvent(std::chrono::milliseconds wait = std::chrono::seconds(10))
    {
        pollfd waiting{m_channel->fd, POLLIN, 0};
        rdma_cm_event* event = nullptr;
        if (poll(&waiting, 1, static_cast<int>(wait.count())) != 1 || rdma_get_cm_event(m_channel, &event) != 0)
        {
            return -1;
        }
        const int kind = event->event;
        rdma_ack_cm_event(event);
        return kind;
    }

    /// Posts the receive of one buffer.
    void PostReceive(std::size_t index)
    {
        ibv_sge entry = Entry(index);
        ibv_recv_wr request{};
        request.wr_id = index;
        request.sg_list = &entry;
        request.num_sge = 1;
        ibv_recv_wr* refused = nullptr;
        Require(ibv_post_recv(m_id->qp, &request, &refused) == 0, "ibv_post_recv");
    }

    /// Sends the first `size` bytes of the ready message, with `first` as its byte 0.
    void SendReady(std::uint32_t size = 60, std::uint8_t first = 1)
    {
        m_ready[0] = first;
        ibv_sge entry = Entry(m_buffers.size());
        entry.length = size;
        ibv_send_wr request{};
        request.wr_id = kReadyId;
        request.sg_list = &entry;
        request.num_sge = 1;
        request.opcode = IBV_WR_SEND;
        request.send_flags = IBV_SEND_SIGNALED;
        ibv_send_wr* refused = nullptr;
        Require(ibv_post_send(m_id->qp, &request, &refused) == 0, "ibv_post_send");
        AwaitReadySent();
    }

    /// Sends a ready message whose byte `at` has its highest bit turned over.
    void SendReadyWithWrongByte(std::size_t at)
    {
        m_ready.at(at) ^= 0x80;
        SendReady(60, m_ready[0]);
        m_ready.at(at) ^= 0x80;
    }

    /// A receive and a ready message for every buffer.
    void GrantAll()
    {
        for (std::size_t i = 0; i < m_buffers.size(); ++i)
        {
            PostReceive(i);
        }
        for (std::size_t i = 0; i < m_buffers.size(); ++i)
        {
            SendReady();
        }
    }

    /// The next frame; not good when the connection failed or nothing came within `wait`.
    ReceivedFrame NextFrame(std::chrono::milliseconds wait = std::chrono::seconds(10))
    {
        if (m_frames.empty())
        {
            Poll(wait, [this] { return !m_frames.empty(); });
        }
        if (m_frames.empty())
        {
            return {};
        }
        ReceivedFrame frame = std::move(m_frames.front());
        m_frames.erase(m_frames.begin());
        return frame;
    }

    /// Gives the oldest buffer that holds a frame back to the camera.
    void Return()
    {
        Require(!m_filled.empty(), "a buffer to return");
        PostReceive(m_filled.front());
        m_filled.erase(m_filled.begin());
        SendReady();
    }

  private:
    static constexpr std::uint64_t kReadyId = 1000000;

    static void Require(bool good, const char* what)
    {
        if (!good)
        {
            throw std::runtime_error(std::string(what) + " failed");
        }
    }

    void MakeQueuePair()
    {
        m_domain = ibv_alloc_pd(m_id->verbs);
        m_completions = ibv_create_comp_channel(m_id->verbs);
        m_queue = ibv_create_cq(m_id->verbs, 500, nullptr, m_completions, 0);
        Require(m_domain != nullptr && m_queue != nullptr && ibv_req_notify_cq(m_queue, 0) == 0, "completion queue");
        ibv_qp_init_attr attributes{};
        attributes.send_cq = m_queue;
        attributes.recv_cq = m_queue;
        attributes.qp_type = IBV_QPT_RC;
        attributes.cap = {100, 100, 1, 1, 0};
        Require(rdma_create_qp(m_id, m_domain, &attributes) == 0, "rdma_create_qp");
        // A variable, because the header's macro mixes enumerations when it sees a constant.
        const int mayWrite = static_cast<int>(IBV_ACCESS_LOCAL_WRITE);
        for (auto& buffer : m_buffers)
        {
            m_regions.push_back(ibv_reg_mr(m_domain, buffer.data(), buffer.size(), mayWrite));
        }
        m_regions.push_back(ibv_reg_mr(m_domain, m_ready.data(), m_ready.size(), 0));
        for (const ibv_mr* region : m_regions)
        {
            Require(region != nullptr, "ibv_reg_mr");
        }
    }

    ibv_sge Entry(std::size_t region) const
    {
        return {reinterpret_cast<std::uintptr_t>(m_regions[region]->addr),
                static_cast<std::uint32_t>(m_regions[region]->length), m_regions[region]->lkey};
    }

    void AwaitReadySent()
    {
        const int before = m_readySent;
        Poll(std::chrono::seconds(10), [&] { return m_readySent != before; });
    }

    template <typename Done>
    void Poll(std::chrono::milliseconds wait, Done done)
    {
        const auto end = std::chrono::steady_clock::now() + wait;
        Drain();
        while (!done() && !m_failed && std::chrono::steady_clock::now() < end)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            pollfd waiting{m_completions->fd, POLLIN, 0};
            if (poll(&waiting, 1, static_cast<int>(left.count())) == 1)
            {
                ibv_cq* queue = nullptr;
                void* context = nullptr;
                Require(ibv_get_cq_event(m_completions, &queue, &context) == 0, "ibv_get_cq_event");
                ibv_ack_cq_events(queue, 1);
                Require(ibv_req_notify_cq(queue, 0) == 0, "ibv_req_notify_cq");
            }
            Drain();
        }
    }

    void Drain()
    {
        ibv_wc completion{};
        while (ibv_poll_cq(m_queue, 1, &completion) > 0)
        {
            if (completion.status != IBV_WC_SUCCESS)
            {
                m_failed = true;
            }
            else if (completion.wr_id == kReadyId)
            {
                ++m_readySent;
            }
            else
            {
                const auto& buffer = m_buffers[completion.wr_id];
                m_frames.push_back({true, {buffer.begin(), buffer.begin() + completion.byte_len}});
                m_filled.push_back(completion.wr_id);
            }
        }
    }

    rdma_event_channel* m_channel;
    rdma_cm_id* m_id = nullptr;
    ibv_pd* m_domain = nullptr;
    ibv_comp_channel* m_completions = nullptr;
    ibv_cq* m_queue = nullptr;
    std::vector<std::vector<std::uint8_t>> m_buffers;
    std::vector<std::uint8_t> m_ready;
    std::vector<ibv_mr*> m_regions;
    std::vector<ReceivedFrame> m_frames;
    std::vector<std::size_t> m_filled;
    int m_readySent = 0;
    bool m_failed = false;
};

} // namespace nq::test
