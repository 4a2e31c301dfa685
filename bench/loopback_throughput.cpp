// SPDX-License-Identifier: Apache-2.0
// Measures SENDs from one process to another, as frames go: GB/s for some message sizes, one JSON object per line.
#include "nq_version.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <rdma/rdma_cma.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr int kDepth = 16;
constexpr uint16_t kPort = 4791;
constexpr uint64_t kBytesPerSize = 4ULL << 30;

void Check(bool good, const char* what)
{
    if (!good)
    {
        throw std::runtime_error(what);
    }
}

/// One side of a connection with `kDepth` buffers. Ends with the process.
class Side
{
  public:
    Side() : m_channel(rdma_create_event_channel())
    {
        Check(m_channel != nullptr && rdma_create_id(m_channel, &m_id, nullptr, RDMA_PS_TCP) == 0, "no RDMA device");
        m_address.sin_family = AF_INET;
        m_address.sin_port = htons(kPort);
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }

    void Serve(int readyPipe)
    {
        Check(rdma_bind_addr(m_id, Address()) == 0 && rdma_listen(m_id, 1) == 0, "rdma_listen");
        Check(write(readyPipe, "", 1) == 1, "write");
        m_id = Await(RDMA_CM_EVENT_CONNECT_REQUEST);
    }

    void Reach()
    {
        Check(rdma_resolve_addr(m_id, nullptr, Address(), 1000) == 0, "rdma_resolve_addr");
        Await(RDMA_CM_EVENT_ADDR_RESOLVED);
        Check(rdma_resolve_route(m_id, 1000) == 0, "rdma_resolve_route");
        Await(RDMA_CM_EVENT_ROUTE_RESOLVED);
    }

    void MakeQueuePair(size_t size)
    {
        m_size = size;
        ibv_pd* domain = ibv_alloc_pd(m_id->verbs);
        m_completions = ibv_create_comp_channel(m_id->verbs);
        m_queue = ibv_create_cq(m_id->verbs, 2 * kDepth, nullptr, m_completions, 0);
        ibv_req_notify_cq(m_queue, 0);
        ibv_qp_init_attr attributes{};
        attributes.send_cq = m_queue;
        attributes.recv_cq = m_queue;
        attributes.qp_type = IBV_QPT_RC;
        attributes.cap = {kDepth, kDepth, 1, 1, 0};
        Check(rdma_create_qp(m_id, domain, &attributes) == 0, "rdma_create_qp");
        m_memory.resize(size * kDepth, 0x5A);
        constexpr int access = IBV_ACCESS_LOCAL_WRITE; // a number: the call is a macro that mixes enumerations
        m_region = ibv_reg_mr(domain, m_memory.data(), m_memory.size(), access);
        Check(m_region != nullptr, "ibv_reg_mr");
    }

    void Accept()
    {
        Check(rdma_accept(m_id, nullptr) == 0, "rdma_accept");
        Await(RDMA_CM_EVENT_ESTABLISHED);
    }

    void Connect()
    {
        Check(rdma_connect(m_id, nullptr) == 0, "rdma_connect");
        Await(RDMA_CM_EVENT_ESTABLISHED);
    }

    void PostReceive(uint64_t slot)
    {
        ibv_sge entry = Entry(slot);
        ibv_recv_wr work{};
        work.wr_id = slot;
        work.sg_list = &entry;
        work.num_sge = 1;
        ibv_recv_wr* bad = nullptr;
        Check(ibv_post_recv(m_id->qp, &work, &bad) == 0, "ibv_post_recv");
    }

    void PostSend(uint64_t slot)
    {
        ibv_sge entry = Entry(slot);
        ibv_send_wr work{};
        work.wr_id = slot;
        work.sg_list = &entry;
        work.num_sge = 1;
        work.opcode = IBV_WR_SEND;
        work.send_flags = IBV_SEND_SIGNALED;
        ibv_send_wr* bad = nullptr;
        Check(ibv_post_send(m_id->qp, &work, &bad) == 0, "ibv_post_send");
    }

    /// Runs `count` messages; `post` keeps `kDepth` of them going.
    void Run(uint64_t count, void (Side::*post)(uint64_t), uint64_t posted)
    {
        for (uint64_t done = 0; done < count;)
        {
            ibv_wc completion;
            if (ibv_poll_cq(m_queue, 1, &completion) == 0)
            {
                ibv_cq* queue = nullptr;
                void* context = nullptr;
                Check(ibv_get_cq_event(m_completions, &queue, &context) == 0, "ibv_get_cq_event");
                ibv_ack_cq_events(queue, 1);
                ibv_req_notify_cq(queue, 0);
                // What came before the queue was armed raises no event.
                if (ibv_poll_cq(m_queue, 1, &completion) == 0)
                {
                    continue;
                }
            }
            Check(completion.status == IBV_WC_SUCCESS, ibv_wc_status_str(completion.status));
            ++done;
            if (posted < count)
            {
                (this->*post)(completion.wr_id);
                ++posted;
            }
        }
    }

  private:
    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&m_address); }

    ibv_sge Entry(uint64_t slot) const
    {
        return {reinterpret_cast<uint64_t>(m_memory.data()) + slot * m_size, static_cast<uint32_t>(m_size),
                m_region->lkey};
    }

    rdma_cm_id* Await(rdma_cm_event_type type)
    {
        rdma_cm_event* event = nullptr;
        Check(rdma_get_cm_event(m_channel, &event) == 0, "rdma_get_cm_event");
        rdma_cm_id* id = event->id;
        const bool expected = event->event == type;
        const char* name = rdma_event_str(event->event);
        rdma_ack_cm_event(event);
        Check(expected, name);
        return id;
    }

    rdma_event_channel* m_channel;
    rdma_cm_id* m_id = nullptr;
    sockaddr_in m_address{};
    size_t m_size = 0;
    ibv_comp_channel* m_completions = nullptr;
    ibv_cq* m_queue = nullptr;
    ibv_mr* m_region = nullptr;
    std::vector<uint8_t> m_memory;
};

void Receiver(size_t size, uint64_t count, int readyPipe)
{
    Side side;
    side.Serve(readyPipe);
    side.MakeQueuePair(size);
    for (uint64_t slot = 0; slot < kDepth; ++slot)
    {
        side.PostReceive(slot);
    }
    side.Accept();
    side.Run(count, &Side::PostReceive, kDepth);
}

double Sender(size_t size, uint64_t count)
{
    Side side;
    side.Reach();
    side.MakeQueuePair(size);
    side.Connect();
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t slot = 0; slot < kDepth; ++slot)
    {
        side.PostSend(slot);
    }
    side.Run(count, &Side::PostSend, kDepth);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Both sides run in processes of their own, so that the measurement begins afresh for each size.
void Measure(size_t size)
{
    const uint64_t count = kBytesPerSize / size;
    std::array<int, 2> ready{};
    Check(pipe(ready.data()) == 0, "pipe");
    const pid_t receiver = fork();
    if (receiver == 0)
    {
        Receiver(size, count, ready[1]);
        _exit(0);
    }
    char byte = 0;
    Check(read(ready[0], &byte, 1) == 1, "the receiver did not start");
    const double seconds = Sender(size, count);
    std::printf(
        "{\"name\": \"loopback_throughput\", \"message_bytes\": %zu, \"gb_per_s\": %.2f, \"us_per_message\": %.2f}\n",
        size, static_cast<double>(kBytesPerSize) / seconds / 1e9, seconds / static_cast<double>(count) * 1e6);
    std::fflush(stdout);
    close(ready[0]);
    close(ready[1]);
    int status = 0;
    waitpid(receiver, &status, 0);
    Check(status == 0, "the receiver failed");
}

} // namespace

int main(int argc, char** argv)
try
{
    if (argc == 2 && std::string_view(argv[1]) == "--version")
    {
        std::puts(NQ_VERSION_TEXT("loopback_throughput"));
        return EXIT_SUCCESS;
    }
    for (const size_t size : {size_t{64} << 10, size_t{1} << 20, size_t{4} << 20})
    {
        const pid_t sender = fork();
        if (sender == 0)
        {
            Measure(size);
            _exit(0);
        }
        int status = 0;
        waitpid(sender, &status, 0);
        Check(status == 0, "a measurement failed");
    }
    return EXIT_SUCCESS;
}
catch (const std::exception& error)
{
    std::fprintf(stderr, "loopback_throughput: %s\n", error.what());
    return EXIT_FAILURE;
}
