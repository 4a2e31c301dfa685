// SPDX-License-Identifier: Apache-2.0
// A device of its own for unit tests of the RDMA endpoint, whose calls can be recorded, refused and answered at will. A
// test includes fake_verbs_symbols.h, with which the calls come here.
#pragma once

#include "support/call_recorder.h"
#include "support/fake_memory.h"
#include "support/object_list.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <rdma/rdma_cma.h>
#include <set>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace nq::test
{

/// What one posted SEND carried.
struct SentMessage
{
    std::vector<unsigned char> bytes;
    unsigned int flags;
    ibv_wr_opcode opcode;
};

/// One RDMA device with one peer, for one test. Answers every call with success until told otherwise.
class FakeVerbs : public CallRecorder, public FakeMemory
{
  public:
    FakeVerbs() { Current() = this; }
    ~FakeVerbs() { Current() = nullptr; }
    FakeVerbs(const FakeVerbs&) = delete;
    FakeVerbs& operator=(const FakeVerbs&) = delete;

    static FakeVerbs*& Current()
    {
        static FakeVerbs* current = nullptr;
        return current;
    }

    // ---- what a test asks for

    /// The events with which address resolution, route resolution and connection are answered.
    rdma_cm_event_type addressAnswer = RDMA_CM_EVENT_ADDR_RESOLVED;
    rdma_cm_event_type routeAnswer = RDMA_CM_EVENT_ROUTE_RESOLVED;
    rdma_cm_event_type connectAnswer = RDMA_CM_EVENT_ESTABLISHED;

    /// How many of these answers come at all: a camera that accepts late leaves the host waiting for the next one.
    int answers = INT_MAX;

    /// Whether a disconnect flushes the posted work, and whether sends complete by themselves.
    std::atomic<bool> flushes{true};
    std::atomic<bool> completesSends{true};

    /// Delivers an event of the connection manager.
    void RaiseEvent(rdma_cm_event_type type)
    {
        auto event = std::make_unique<rdma_cm_event>();
        event->id = &m_id;
        event->event = type;
        const std::lock_guard lock(m_mutex);
        m_events.push_back(event.release());
        eventfd_write(m_eventFd, 1);
    }

    /// Puts `bytes` into the oldest posted receive and completes it; waits for a receive first. Where they were put, as
    /// Scatter has it.
    unsigned char* DeliverFrame(const std::vector<unsigned char>& bytes)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_receives.empty(); });
        const Work work = m_receives.front();
        m_receives.pop_front();
        unsigned char* const start = Scatter(bytes, work.entries);
        Complete(work.id, IBV_WC_SUCCESS, IBV_WC_RECV, static_cast<std::uint32_t>(bytes.size()));
        return start;
    }

    /// Completes the oldest outstanding send; for tests that switched `completesSends` off.
    void CompleteSend()
    {
        const std::lock_guard lock(m_mutex);
        const Work work = m_sends.front();
        m_sends.pop_front();
        Complete(work.id, IBV_WC_SUCCESS, IBV_WC_SEND, 0);
    }

    /// Raises any completion.
    void RaiseCompletion(std::uint64_t id, ibv_wc_status status, ibv_wc_opcode opcode, std::uint32_t length)
    {
        const std::lock_guard lock(m_mutex);
        Complete(id, status, opcode, length);
    }

    std::uint32_t longestMessage = 0x40000000; ///< What the port says of itself.

    // ---- what a test looks at

    /// Lets the endpoint see another descriptor number for the event channel.
    void ShowEventChannelAs(int fd) { m_eventChannel.fd = fd; }

    std::vector<SentMessage> Sent() const
    {
        const std::lock_guard lock(m_mutex);
        return m_sent;
    }

    /// Sleeps until `count` sends have been posted.
    void WaitForSent(std::size_t count)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_sent.size() >= count; });
    }

    /// Number of frames that the camera may send: posted receives that hold none.
    std::size_t Credits() const
    {
        const std::lock_guard lock(m_mutex);
        return m_receives.size();
    }

    /// Names of the objects that exist, empty when everything was given back.
    std::multiset<std::string> LiveObjects() const { return m_objects.Live(); }

    /// Rules that were broken: an object destroyed while something of it was outstanding.
    std::vector<std::string> Violations() const { return m_objects.Violations(); }

    ibv_qp_init_attr qpAttributes{};
    int cqEntries = 0;
    bool cqHadContext = true;
    int cqVector = -1;
    int resolveAddressTimeout = 0;
    int resolveRouteTimeout = 0;
    bool resolveHadSource = true;
    sockaddr_in resolvedAddress{};
    bool connectHadParameters = true;
    rdma_port_space portSpace = RDMA_PS_UDP;

    // ---- the calls

    rdma_event_channel* CreateEventChannel()
    {
        if (!Enter("rdma_create_event_channel"))
        {
            return nullptr;
        }
        m_eventFd = eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE);
        m_eventChannel.fd = m_eventFd;
        m_objects.Born("event channel");
        return &m_eventChannel;
    }

    void DestroyEventChannel()
    {
        Enter("rdma_destroy_event_channel");
        close(m_eventFd);
        const std::lock_guard lock(m_mutex);
        for (rdma_cm_event* event : m_events)
        {
            delete event;
        }
        m_events.clear();
        m_objects.Gone("event channel");
    }

    int CreateId(rdma_cm_id** id, rdma_port_space space)
    {
        if (!Enter("rdma_create_id"))
        {
            return -1;
        }
        portSpace = space;
        *id = &m_id;
        m_objects.Born("id");
        return 0;
    }

    int DestroyId()
    {
        const bool succeeds = Enter("rdma_destroy_id");
        const std::lock_guard lock(m_mutex);
        if (m_unackedEvents != 0)
        {
            m_objects.Violated("id destroyed with an unacknowledged event: this blocks for ever");
        }
        m_objects.Gone("id");
        return succeeds ? 0 : -1;
    }

    int ResolveAddr(sockaddr* source, const sockaddr* destination, int timeout)
    {
        if (!Enter("rdma_resolve_addr"))
        {
            return -1;
        }
        resolveHadSource = source != nullptr;
        std::memcpy(&resolvedAddress, destination, sizeof resolvedAddress);
        resolveAddressTimeout = timeout;
        m_id.verbs = &m_context;
        Answer(addressAnswer);
        return 0;
    }

    int ResolveRoute(int timeout)
    {
        if (!Enter("rdma_resolve_route"))
        {
            return -1;
        }
        resolveRouteTimeout = timeout;
        Answer(routeAnswer);
        return 0;
    }

    int Connect(rdma_conn_param* parameters)
    {
        if (!Enter("rdma_connect"))
        {
            return -1;
        }
        connectHadParameters = parameters != nullptr;
        Answer(connectAnswer);
        return 0;
    }

    int Disconnect()
    {
        const bool succeeds = Enter("rdma_disconnect");
        if (m_id.verbs == nullptr)
        {
            m_objects.Violated("id disconnected before it had a device: this crashes");
        }
        if (!succeeds)
        {
            return -1;
        }
        {
            const std::lock_guard lock(m_mutex);
            m_error = true;
            if (flushes)
            {
                for (auto* queue : {&m_receives, &m_sends})
                {
                    for (const Work& work : *queue)
                    {
                        Complete(work.id, IBV_WC_WR_FLUSH_ERR, IBV_WC_SEND, 0);
                    }
                    queue->clear();
                }
            }
        }
        RaiseEvent(RDMA_CM_EVENT_DISCONNECTED);
        return 0;
    }

    int GetCmEvent(rdma_cm_event** event)
    {
        if (!Enter("rdma_get_cm_event"))
        {
            return -1;
        }
        eventfd_t one = 0;
        if (eventfd_read(m_eventFd, &one) != 0)
        {
            return -1;
        }
        const std::lock_guard lock(m_mutex);
        *event = m_events.front();
        m_events.pop_front();
        ++m_unackedEvents;
        return 0;
    }

    int AckCmEvent(rdma_cm_event* event)
    {
        Enter("rdma_ack_cm_event");
        std::memset(static_cast<void*>(event), 0xEE, sizeof *event);
        delete event;
        const std::lock_guard lock(m_mutex);
        --m_unackedEvents;
        return 0;
    }

    int CreateQp(rdma_cm_id* id, ibv_qp_init_attr* attributes)
    {
        if (!Enter("rdma_create_qp"))
        {
            return -1;
        }
        qpAttributes = *attributes;
        m_error = false;
        m_qp.context = &m_context;
        id->qp = &m_qp;
        m_objects.Born("queue pair");
        return 0;
    }

    int DestroyQp()
    {
        const int error = Destroy("ibv_destroy_qp", "queue pair");
        if (error == 0)
        {
            const std::lock_guard lock(m_mutex);
            m_receives.clear();
            m_sends.clear();
        }
        return error;
    }

    ibv_pd* AllocPd()
    {
        if (!Enter("ibv_alloc_pd"))
        {
            return nullptr;
        }
        m_pd.context = &m_context;
        m_objects.Born("protection domain");
        return &m_pd;
    }

    int DeallocPd() { return Destroy("ibv_dealloc_pd", "protection domain"); }

    ibv_comp_channel* CreateCompChannel()
    {
        if (!Enter("ibv_create_comp_channel"))
        {
            return nullptr;
        }
        m_compChannel.context = &m_context;
        m_compChannel.fd = eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE);
        m_objects.Born("completion channel");
        return &m_compChannel;
    }

    int DestroyCompChannel()
    {
        const int result = Destroy("ibv_destroy_comp_channel", "completion channel");
        if (result == 0)
        {
            close(m_compChannel.fd);
        }
        return result;
    }

    ibv_cq* CreateCq(int entries, void* context, ibv_comp_channel* channel, int vector)
    {
        if (!Enter("ibv_create_cq"))
        {
            return nullptr;
        }
        cqEntries = entries;
        m_armed = false;
        m_completions.clear();
        cqHadContext = context != nullptr;
        cqVector = vector;
        m_cq.context = &m_context;
        m_cq.channel = channel;
        m_objects.Born("completion queue");
        return &m_cq;
    }

    int DestroyCq()
    {
        {
            const std::lock_guard lock(m_mutex);
            if (m_unackedCompletionEvents != 0)
            {
                m_objects.Violated("queue destroyed with an unacknowledged event: this blocks for ever");
            }
        }
        return Destroy("ibv_destroy_cq", "completion queue");
    }

    int GetCqEvent(ibv_cq** queue, void** context)
    {
        if (!Enter("ibv_get_cq_event"))
        {
            return -1;
        }
        eventfd_t one = 0;
        if (eventfd_read(m_compChannel.fd, &one) != 0)
        {
            return -1;
        }
        *queue = &m_cq;
        *context = nullptr;
        const std::lock_guard lock(m_mutex);
        ++m_unackedCompletionEvents;
        return 0;
    }

    void AckCqEvents(unsigned int count)
    {
        Enter("ibv_ack_cq_events");
        const std::lock_guard lock(m_mutex);
        m_unackedCompletionEvents -= static_cast<int>(count);
    }

    int ReqNotify()
    {
        const int error = EnterWithError("ibv_req_notify_cq");
        const std::lock_guard lock(m_mutex);
        m_armed = m_armed || error == 0;
        return error;
    }

    int PollCq(ibv_wc* completion)
    {
        if (!Enter("ibv_poll_cq"))
        {
            return -1;
        }
        const std::lock_guard lock(m_mutex);
        if (m_completions.empty())
        {
            return 0;
        }
        *completion = m_completions.front();
        m_completions.pop_front();
        return 1;
    }

    int PostRecv(const ibv_recv_wr* work)
    {
        const int error = EnterWithError("ibv_post_recv");
        Entries entries = NoteReceive(*work);
        const std::lock_guard lock(m_mutex);
        if (static_cast<std::uint32_t>(work->num_sge) > qpAttributes.cap.max_recv_sge)
        {
            m_objects.Violated("receive with more entries than the queue pair has");
            return EINVAL;
        }
        if (error != 0 || m_receives.size() >= qpAttributes.cap.max_recv_wr)
        {
            return error != 0 ? error : ENOMEM;
        }
        if (m_error)
        {
            if (flushes)
            {
                Complete(work->wr_id, IBV_WC_WR_FLUSH_ERR, IBV_WC_RECV, 0);
            }
            return 0;
        }
        CheckEntries(entries);
        m_receives.push_back({work->wr_id, std::move(entries)});
        m_changed.notify_all();
        return 0;
    }

    int PostSend(const ibv_send_wr* work)
    {
        const int error = EnterWithError("ibv_post_send");
        const std::lock_guard lock(m_mutex);
        const auto* bytes = reinterpret_cast<const unsigned char*>(work->sg_list->addr);
        m_sent.push_back({{bytes, bytes + work->sg_list->length}, work->send_flags, work->opcode});
        m_changed.notify_all();
        if (error != 0 || m_sends.size() >= qpAttributes.cap.max_send_wr)
        {
            return error != 0 ? error : ENOMEM;
        }
        if (m_error || completesSends)
        {
            Complete(work->wr_id, m_error ? IBV_WC_WR_FLUSH_ERR : IBV_WC_SUCCESS, IBV_WC_SEND, 0);
            return 0;
        }
        m_sends.push_back({work->wr_id, {work->sg_list, work->sg_list + work->num_sge}});
        return 0;
    }

    ibv_mr* RegMr(void* address, std::size_t length, int access)
    {
        if (!Enter("ibv_reg_mr"))
        {
            return nullptr;
        }
        m_objects.Born("region");
        return MakeRegion(address, length, access);
    }

    int QueryPort(ibv_port_attr* attributes)
    {
        const int error = EnterWithError("ibv_query_port");
        attributes->max_msg_sz = longestMessage;
        return error;
    }

    int DeregMr(ibv_mr* region)
    {
        const int error = Destroy("ibv_dereg_mr", "region");
        if (error == 0)
        {
            EndRegion(region);
            const std::lock_guard lock(m_mutex);
            for (const Work& work : m_receives)
            {
                CheckEntries(work.entries);
            }
        }
        return error;
    }

  private:
    struct Work
    {
        std::uint64_t id;
        Entries entries;
    };

    void CheckEntries(const Entries& entries)
    {
        if (!AreRegistered(entries))
        {
            m_objects.Violated("posted receive without its region");
        }
    }

    void Answer(rdma_cm_event_type type)
    {
        if (answers > 0)
        {
            --answers;
            RaiseEvent(type);
        }
    }

    int Destroy(const std::string& function, const std::string& object)
    {
        const int error = EnterWithError(function);
        if (error == 0)
        {
            m_objects.Gone(object);
        }
        return error;
    }

    void Complete(std::uint64_t id, ibv_wc_status status, ibv_wc_opcode opcode, std::uint32_t length)
    {
        ibv_wc completion{};
        completion.wr_id = id;
        completion.status = status;
        completion.opcode = opcode;
        completion.byte_len = length;
        m_completions.push_back(completion);
        if (m_armed)
        {
            m_armed = false;
            eventfd_write(m_compChannel.fd, 1);
        }
    }

    static ibv_context MakeContext()
    {
        ibv_context context{};
        context.ops.poll_cq = [](ibv_cq*, int, ibv_wc* completion) { return Current()->PollCq(completion); };
        context.ops.req_notify_cq = [](ibv_cq*, int) { return Current()->ReqNotify(); };
        context.ops.post_recv = [](ibv_qp*, ibv_recv_wr* work, ibv_recv_wr**) { return Current()->PostRecv(work); };
        context.ops.post_send = [](ibv_qp*, ibv_send_wr* work, ibv_send_wr**) { return Current()->PostSend(work); };
        return context;
    }

    ObjectList m_objects;

    ibv_context m_context = MakeContext();
    rdma_event_channel m_eventChannel{-1};
    int m_eventFd = -1;
    rdma_cm_id m_id{};
    ibv_pd m_pd{};
    ibv_comp_channel m_compChannel{};
    ibv_cq m_cq{};
    ibv_qp m_qp{};

    std::deque<rdma_cm_event*> m_events;
    int m_unackedEvents = 0;
    int m_unackedCompletionEvents = 0;
    bool m_armed = false;
    bool m_error = false;
    std::deque<ibv_wc> m_completions;
    std::deque<Work> m_receives;
    std::deque<Work> m_sends;
    std::vector<SentMessage> m_sent;
};

} // namespace nq::test
