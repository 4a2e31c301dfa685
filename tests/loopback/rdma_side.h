// SPDX-License-Identifier: Apache-2.0
// One side of an RDMA connection for tests: real calls of libibverbs and librdmacm only, so that the same cases run on
// any RDMA device.
#pragma once

#include "support/run_on_loopback.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <rdma/rdma_cma.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace nq::test
{

/// On a real RDMA device the cases run without the software RDMA.
[[gnu::constructor, gnu::used]] inline void StartOnLoopback(int, char** arguments, char**)
{
    if (std::getenv("NQ_RDMA_TEST_ADDRESS") == nullptr)
    {
        StartAgainOnLoopback(arguments);
    }
}

/// What the cases start, such as ip, is to run without what this program was preloaded with.
inline const bool kChildrenArePlain = unsetenv("LD_PRELOAD") == 0;

/// A peer on a machine under load may be late. Cases about a peer that is unreachable set less.
inline const bool kPeersMayBeLate = setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "60000", 0) == 0;

/// Access rights as a plain number: ibv_reg_mr is a macro that combines them with those of another enumeration.
constexpr int kLocalWrite = IBV_ACCESS_LOCAL_WRITE;
constexpr int kRemoteWrite = IBV_ACCESS_REMOTE_WRITE;

/// How long an event may take that has to come, in milliseconds. The connection manager gives real devices timeouts
/// that add up to more than half a minute before a send to a dead peer is given up.
constexpr int kPatience = 80000;

/// The local address that the cases use: NQ_RDMA_TEST_ADDRESS, by default that of the loopback interface.
inline sockaddr_in TestAddress(uint16_t port)
{
    const char* text = std::getenv("NQ_RDMA_TEST_ADDRESS");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, text == nullptr ? "127.0.0.1" : text, &address.sin_addr);
    return address;
}

/// True on a real RDMA device, which means real libraries too: they read through null pointers where the software RDMA
/// refuses.
inline bool OnRealDevice()
{
    return std::getenv("NQ_RDMA_TEST_ADDRESS") != nullptr;
}

/// True for the kernel's rdma_rxe, which departs from what network cards do in some places.
inline bool IsSoftRoce(ibv_context* context)
{
    constexpr uint32_t kVendorOfSoftRoce = 0xFFFFFF;
    ibv_device_attr attributes{};
    return ibv_query_device(context, &attributes) == 0 && attributes.vendor_id == kVendorOfSoftRoce;
}

inline sockaddr* Raw(sockaddr_in& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

inline void Require(bool good, const char* what)
{
    if (!good)
    {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

inline bool Readable(int fd, int milliseconds)
{
    pollfd poller{fd, POLLIN, 0};
    return poll(&poller, 1, milliseconds) == 1 && poller.revents == POLLIN;
}

/// A copy of an event that was acknowledged at once.
struct Event
{
    rdma_cm_event_type type{};
    int status = 0;
    rdma_cm_id* id = nullptr;
    rdma_cm_id* listener = nullptr;
    rdma_conn_param parameters{};
    std::vector<uint8_t> data;
};

inline Event NextEvent(rdma_event_channel* channel)
{
    if (!Readable(channel->fd, kPatience))
    {
        throw std::runtime_error("no event in time");
    }
    rdma_cm_event* event = nullptr;
    Require(rdma_get_cm_event(channel, &event) == 0, "rdma_get_cm_event");
    Event copy{event->event, event->status, event->id, event->listen_id, event->param.conn, {}};
    const auto* data = static_cast<const uint8_t*>(copy.parameters.private_data);
    if (data != nullptr)
    {
        copy.data.assign(data, data + copy.parameters.private_data_len);
    }
    rdma_ack_cm_event(event);
    return copy;
}

/// The next event, which has to be of that type.
inline Event Expect(rdma_event_channel* channel, rdma_cm_event_type type)
{
    Event event = NextEvent(channel);
    if (event.type != type)
    {
        throw std::runtime_error(std::string("expected ") + rdma_event_str(type) + ", got " +
                                 rdma_event_str(event.type) + ", status " + std::to_string(event.status));
    }
    return event;
}

/// Sizes of what a side makes.
struct Sizes
{
    uint32_t sends = 16;
    uint32_t receives = 16;
    uint32_t entries = 4;
    uint32_t inlineData = 64;
    int completions = 64;
    bool signalAll = false;
};

/// Bytes that a device may read and, by default, write.
class Memory
{
  public:
    Memory(ibv_pd* domain, size_t size, int access = kLocalWrite)
        : bytes(size), m_region(ibv_reg_mr(domain, bytes.data(), size, access))
    {
        Require(m_region != nullptr, "ibv_reg_mr");
    }
    ~Memory() { ibv_dereg_mr(m_region); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    ibv_sge Entry(size_t offset, size_t length) const
    {
        return {reinterpret_cast<uint64_t>(bytes.data()) + offset, static_cast<uint32_t>(length), m_region->lkey};
    }
    ibv_sge Whole() const { return Entry(0, bytes.size()); }

    std::vector<uint8_t> bytes;

  private:
    ibv_mr* m_region;
};

/// An id with its channel and, once there is a device, its queue pair. Torn down in the order that the calls demand.
class Side
{
  public:
    explicit Side(Sizes wanted = {}) : sizes(wanted), channel(rdma_create_event_channel())
    {
        Require(channel != nullptr, "rdma_create_event_channel");
        Require(rdma_create_id(channel, &id, this, RDMA_PS_TCP) == 0, "rdma_create_id");
    }
    ~Side()
    {
        DropQueuePair();
        if (id != nullptr)
        {
            rdma_destroy_id(id);
        }
        if (queue != nullptr)
        {
            ibv_destroy_cq(queue);
        }
        if (completions != nullptr)
        {
            ibv_destroy_comp_channel(completions);
        }
        memory.clear();
        if (domain != nullptr)
        {
            ibv_dealloc_pd(domain);
        }
        rdma_destroy_event_channel(channel);
    }
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

    void DropQueuePair()
    {
        if (id != nullptr && id->qp != nullptr)
        {
            rdma_destroy_qp(id);
        }
    }

    void Resolve(sockaddr_in address)
    {
        Require(rdma_resolve_addr(id, nullptr, Raw(address), 2000) == 0, "rdma_resolve_addr");
        Expect(channel, RDMA_CM_EVENT_ADDR_RESOLVED);
        Require(rdma_resolve_route(id, 2000) == 0, "rdma_resolve_route");
        Expect(channel, RDMA_CM_EVENT_ROUTE_RESOLVED);
    }

    void Listen(sockaddr_in address, int backlog = 4)
    {
        Require(rdma_bind_addr(id, Raw(address)) == 0, "rdma_bind_addr");
        Require(rdma_listen(id, backlog) == 0, "rdma_listen");
    }

    void MakeQueuePair()
    {
        domain = ibv_alloc_pd(id->verbs);
        completions = ibv_create_comp_channel(id->verbs);
        queue = ibv_create_cq(id->verbs, sizes.completions, this, completions, 0);
        Require(domain != nullptr && completions != nullptr && queue != nullptr, "verbs objects");
        ibv_qp_init_attr attributes = Attributes();
        Require(rdma_create_qp(id, domain, &attributes) == 0, "rdma_create_qp");
        capacity = attributes.cap;
    }

    ibv_qp_init_attr Attributes() const
    {
        ibv_qp_init_attr attributes{};
        attributes.send_cq = queue;
        attributes.recv_cq = queue;
        attributes.qp_type = IBV_QPT_RC;
        attributes.sq_sig_all = sizes.signalAll ? 1 : 0;
        attributes.cap = {sizes.sends, sizes.receives, sizes.entries, sizes.entries, sizes.inlineData};
        return attributes;
    }

    Memory& Register(size_t size, int access = kLocalWrite)
    {
        memory.push_back(std::make_unique<Memory>(domain, size, access));
        return *memory.back();
    }

    /// The result of ibv_post_recv.
    int PostReceive(uint64_t number, std::vector<ibv_sge> entries) const
    {
        ibv_recv_wr work{};
        work.wr_id = number;
        work.sg_list = entries.data();
        work.num_sge = static_cast<int>(entries.size());
        ibv_recv_wr* bad = nullptr;
        const int result = ibv_post_recv(id->qp, &work, &bad);
        EXPECT_TRUE(bad == (result == 0 ? nullptr : &work) || IsSoftRoce(id->verbs));
        return result;
    }

    /// The result of ibv_post_send.
    int PostSend(uint64_t number, std::vector<ibv_sge> entries, unsigned flags = IBV_SEND_SIGNALED,
                 std::optional<uint32_t> immediate = std::nullopt) const
    {
        ibv_send_wr work{};
        work.wr_id = number;
        work.sg_list = entries.data();
        work.num_sge = static_cast<int>(entries.size());
        work.opcode = immediate ? IBV_WR_SEND_WITH_IMM : IBV_WR_SEND;
        work.imm_data = htonl(immediate.value_or(0));
        work.send_flags = flags;
        ibv_send_wr* bad = nullptr;
        const int result = ibv_post_send(id->qp, &work, &bad);
        EXPECT_TRUE(bad == (result == 0 ? nullptr : &work) || IsSoftRoce(id->verbs));
        return result;
    }

    /// The next completion; sleeps in the completion channel until it comes.
    ibv_wc Next()
    {
        ibv_wc completion{};
        while (ibv_poll_cq(queue, 1, &completion) == 0)
        {
            ibv_req_notify_cq(queue, 0);
            if (ibv_poll_cq(queue, 1, &completion) != 0)
            {
                break;
            }
            TakeEvent();
        }
        return completion;
    }

    /// Reads and acknowledges one completion event.
    void TakeEvent()
    {
        if (!Readable(completions->fd, kPatience))
        {
            throw std::runtime_error("no completion in time");
        }
        ibv_cq* told = nullptr;
        void* context = nullptr;
        Require(ibv_get_cq_event(completions, &told, &context) == 0, "ibv_get_cq_event");
        EXPECT_EQ(told, queue);
        EXPECT_EQ(context, this);
        ibv_ack_cq_events(told, 1);
    }

    ibv_qp_state State() const
    {
        ibv_qp_attr attributes{};
        ibv_qp_init_attr initial{};
        Require(ibv_query_qp(id->qp, &attributes, IBV_QP_STATE, &initial) == 0, "ibv_query_qp");
        return attributes.qp_state;
    }

    Sizes sizes;
    rdma_event_channel* channel;
    rdma_cm_id* id = nullptr;
    ibv_pd* domain = nullptr;
    ibv_comp_channel* completions = nullptr;
    ibv_cq* queue = nullptr;
    ibv_qp_cap capacity{};
    std::vector<std::unique_ptr<Memory>> memory;
};

/// A listener and two sides, both with queue pairs, not connected yet. The passive side's id comes with the request.
class Meeting
{
  public:
    explicit Meeting(Sizes activeSizes = {}, Sizes passiveSizes = {}) : active(activeSizes), passive(passiveSizes)
    {
        listener.Listen(TestAddress(0));
        address = TestAddress(ntohs(rdma_get_src_port(listener.id)));
    }

    /// Up to the passive side's having the request.
    void Request(rdma_conn_param* parameters = nullptr)
    {
        active.Resolve(address);
        active.MakeQueuePair();
        Require(rdma_connect(active.id, parameters) == 0, "rdma_connect");
        request = Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST);
        rdma_destroy_id(passive.id);
        passive.id = request.id;
        Require(rdma_migrate_id(passive.id, passive.channel) == 0, "rdma_migrate_id");
        passive.MakeQueuePair();
    }

    /// From there to the connection.
    void Accept(rdma_conn_param* parameters = nullptr)
    {
        Require(rdma_accept(passive.id, parameters) == 0, "rdma_accept");
        reply = Expect(active.channel, RDMA_CM_EVENT_ESTABLISHED);
        Expect(passive.channel, RDMA_CM_EVENT_ESTABLISHED);
    }

    Side listener;
    Side active;
    Side passive;
    sockaddr_in address{};
    Event request;
    Event reply;
};

/// Two connected sides.
class Connected : public Meeting
{
  public:
    explicit Connected(Sizes activeSizes = {}, Sizes passiveSizes = {}) : Meeting(activeSizes, passiveSizes)
    {
        Request();
        Accept();
    }
};

} // namespace nq::test
