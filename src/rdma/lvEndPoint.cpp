// SPDX-License-Identifier: Apache-2.0
// The connection side of the endpoint: setup through the connection manager, the watch for a disconnect, teardown.
#include "rdma/lvEndPoint.h"

#include "base/nq_trace.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace
{

constexpr int kCompletionQueueEntries = 500;
constexpr int kResolveAddressTimeoutMs = 500;
constexpr int kResolveRouteTimeoutMs = 20000;
constexpr int kEventPollMs = 800;

std::string ErrnoText()
{
    return std::strerror(errno);
}

[[noreturn]] void Fail(const std::string& text)
{
    throw std::runtime_error(text);
}

void Start(pthread_t& thread, void* (*body)(void*), void* argument)
{
    pthread_t started = 0;
    const int result = pthread_create(&started, nullptr, body, argument);
    if (result != 0)
    {
        Fail("Error pthread_create(): [" + std::to_string(result) + "]");
    }
    thread = started;
}

} // namespace

LvEndpoint::LvEndpoint(FrameMemory memory)
    : m_stop(0), m_event_channel(nullptr), m_cm_id_listener(nullptr), m_cm_id_connection(nullptr), m_qp(nullptr),
      m_pd(nullptr), m_cq(nullptr), m_comp_channel(nullptr), m_cq_thread(0), m_cm_thread(0), m_worker_thread(0),
      m_settings{}, m_connected(false), m_event(nullptr), m_memory(memory), m_receiveCount(0), m_sendCount(0),
      m_cancelled(false), m_ending(false), m_flushExpected(false), m_wake(-1)
{
}

LvEndpoint::~LvEndpoint()
{
    if (m_connected || m_origin.IsInherited())
    {
        DeInit();
    }
    m_blocks.Clear();
    if (m_pd != nullptr && ibv_dealloc_pd(m_pd) == 0)
    {
        m_pd = nullptr;
    }
}

bool LvEndpoint::Init(const sockaddr_in* address)
{
    // Held to the end: a DeInit on another thread takes down what is there only when nothing more is made.
    const NQLock setup(m_teardown);
    try
    {
        ThrowingConnect(address);
        m_connected = true;
        return true;
    }
    catch (const std::exception&)
    {
        NQTrace(NQTraceLevel::Failure, "%s GC_ERR_ERROR Failed ", "Init");
        TearDown();
        return false;
    }
}

void LvEndpoint::ThrowingConnect(const sockaddr_in* address)
{
    m_event_channel = rdma_create_event_channel();
    if (m_event_channel == nullptr)
    {
        Fail("Error rdma_create_event_channel(): [" + ErrnoText() + "]");
    }
    if (rdma_create_id(m_event_channel, &m_cm_id_connection, nullptr, RDMA_PS_TCP) != 0)
    {
        m_cm_id_connection = nullptr;
        Fail("Error rdma_create_id(): [" + ErrnoText() + "]");
    }
    sockaddr_in destination = *address;
    if (rdma_resolve_addr(m_cm_id_connection, nullptr, reinterpret_cast<sockaddr*>(&destination),
                          kResolveAddressTimeoutMs) != 0)
    {
        Fail("Error rdma_resolve_addr(): [" + ErrnoText() + "]");
    }

    // Deliberate(FirstEventStays): a mismatch of the first event leaves it unacknowledged for now: nothing but teardown
    // can follow, and that acknowledges it.
    ExpectEvent(RDMA_CM_EVENT_ADDR_RESOLVED, "RDMA_CM_EVENT_ADDR_RESOLVED", false);
    On_addr_resolved(m_event->id);
    AckEvent();

    ExpectEvent(RDMA_CM_EVENT_ROUTE_RESOLVED, "RDMA_CM_EVENT_ROUTE_RESOLVED", true);
    On_route_resolved(m_event->id);
    AckEvent();

    ExpectEvent(RDMA_CM_EVENT_ESTABLISHED, "RDMA_CM_EVENT_ESTABLISHED", true);
    m_cm_id_connection = m_event->id;
    AckEvent();

    Start(m_cm_thread, Cm_event_thread, this);
}

void LvEndpoint::ExpectEvent(rdma_cm_event_type expected, const char* name, bool ackMismatch)
{
    int result = -1;
    while (AwaitEvent())
    {
        errno = 0;
        result = rdma_get_cm_event(m_event_channel, &m_event);
        if (result == 0 || errno != EINTR) // A signal of the application is no answer of the camera.
        {
            break;
        }
    }
    if (result != 0)
    {
        m_event = nullptr;
    }
    else if (m_event->event == expected)
    {
        return;
    }
    // The text is taken before the acknowledge, which frees the event.
    const std::string received = m_event != nullptr ? rdma_event_str(m_event->event) : "no event";
    if (ackMismatch)
    {
        AckEvent();
    }
    Fail(std::string("rdma_get_cm_event(): Expected [") + name + "], received [" + received + "], Result: [" +
         std::to_string(result) + "]");
}

/// Returns true when reading the next event does not block, false when the connection is torn down meanwhile.
bool LvEndpoint::AwaitEvent()
{
    while (!m_cancelled)
    {
        pollfd waiting{m_event_channel->fd, POLLIN, 0};
        const int ready = poll(&waiting, 1, kEventPollMs);
        if (ready > 0 || (ready < 0 && errno != EINTR))
        {
            return true;
        }
    }
    return false;
}

void LvEndpoint::AckEvent()
{
    if (m_event != nullptr)
    {
        rdma_ack_cm_event(m_event);
        m_event = nullptr;
    }
}

void LvEndpoint::On_addr_resolved(rdma_cm_id* id)
{
    Build_connection(id);
    const int result = rdma_resolve_route(id, kResolveRouteTimeoutMs);
    if (result != 0)
    {
        Fail("rdma_resolve_route(): [" + ErrnoText() + "], Result: [" + std::to_string(result) + "]");
    }
}

void LvEndpoint::Build_connection(rdma_cm_id* id)
{
    Build_context(id->verbs);
    ibv_qp_init_attr attributes;
    Build_qp_attr(&attributes);
    const int result = rdma_create_qp(id, m_pd, &attributes);
    if (result != 0)
    {
        Fail("rdma_create_qp(): [" + ErrnoText() + "], Result: [" + std::to_string(result) + "]");
    }
    m_qp = id->qp;
    m_cm_id_connection = id;
}

void LvEndpoint::Build_context(ibv_context* context)
{
    m_pd = ibv_alloc_pd(context);
    if (m_pd == nullptr)
    {
        Fail("ibv_alloc_pd(): [" + ErrnoText() + "]");
    }
    m_comp_channel = ibv_create_comp_channel(context);
    if (m_comp_channel == nullptr)
    {
        Fail("ibv_create_comp_channel(): [" + ErrnoText() + "]");
    }
    m_cq = ibv_create_cq(context, kCompletionQueueEntries, nullptr, m_comp_channel, 0);
    if (m_cq == nullptr)
    {
        Fail("ibv_create_cq(): [" + ErrnoText() + "]");
    }
    if (ibv_req_notify_cq(m_cq, 0) != 0)
    {
        Fail("ibv_req_notify_cq(): [" + ErrnoText() + "]");
    }
    m_wake = eventfd(0, EFD_CLOEXEC);
    if (m_wake < 0)
    {
        Fail("eventfd(): [" + ErrnoText() + "]");
    }
    Start(m_cq_thread, Cq_polling_thread, this);
}

void LvEndpoint::Build_qp_attr(ibv_qp_init_attr* attributes)
{
    *attributes = {};
    attributes->send_cq = m_cq;
    attributes->recv_cq = m_cq;
    attributes->qp_type = IBV_QPT_RC;
    attributes->cap.max_send_wr = kWorkRequestsPerDirection;
    attributes->cap.max_recv_wr = kWorkRequestsPerDirection;
    attributes->cap.max_send_sge = 1;
    attributes->cap.max_recv_sge = m_memory == FrameMemory::Buffers ? 2 : 1; // headers, pixels
    attributes->cap.max_inline_data = 0;
    attributes->sq_sig_all = 0;
}

void LvEndpoint::On_route_resolved(rdma_cm_id* id)
{
    rdma_conn_param params{};
    build_params(&params);
    // Deliberate(ParametersAreDropped): the parameters are dropped. A null argument lets librdmacm use the most that
    // the device can do, which no number of ours can name.
    const int result = rdma_connect(id, nullptr);
    if (result != 0)
    {
        Fail("rdma_connect(): [" + ErrnoText() + "], Result: [" + std::to_string(result) + "]");
    }
}

void LvEndpoint::Cm_event_loop()
{
    const int channel = m_event_channel->fd;
    const int flags = fcntl(channel, F_GETFL);
    const bool polls = fcntl(channel, F_SETFL, flags | O_NONBLOCK) != -1;
    while (!Stopping())
    {
        pollfd waiting{channel, POLLIN, 0};
        const int ready = poll(&waiting, 1, kEventPollMs);
        if (ready <= 0)
        {
            continue;
        }
        if (polls && waiting.revents != POLLIN)
        {
            // An error condition stays readable: without the pause the thread would spin until the stop.
            poll(nullptr, 0, kEventPollMs / 8);
            continue;
        }
        if (!ReadCmEvent())
        {
            if (!polls)
            {
                return;
            }
            std::perror("cm_event_loop(): rdma_get_cm_event failed.");
        }
    }
}

bool LvEndpoint::ReadCmEvent()
{
    rdma_cm_event* event = nullptr;
    if (rdma_get_cm_event(m_event_channel, &event) != 0)
    {
        return false;
    }
    rdma_cm_event copy = *event;
    rdma_ack_cm_event(event);
    On_cm_event(&copy);
    return true;
}

void* LvEndpoint::Cm_event_thread(void* endpoint)
{
    static_cast<LvEndpoint*>(endpoint)->Cm_event_loop();
    return nullptr;
}

void LvEndpoint::On_cm_event(rdma_cm_event* event)
{
    if (event->event == RDMA_CM_EVENT_DISCONNECTED)
    {
        m_stop = 1;
        NQTrace(NQTraceLevel::Expected, "%s RDMA_CM_EVENT_DISCONNECTED ", "On_cm_event");
    }
}

bool LvEndpoint::Stopping() const
{
    return m_stop.load(std::memory_order_relaxed) != 0 || m_ending.load(std::memory_order_relaxed);
}

void LvEndpoint::DeInit()
{
    m_cancelled = true;
    const NQLock teardown(m_teardown);
    if (m_origin.IsInherited())
    {
        Abandon();
        return;
    }
    TearDown();
}

void LvEndpoint::TearDown()
{
    LeaveConnection();
    JoinThreads();
    DestroyQueues();
    ReleaseRegions();
    AckEvent();
    DestroyIds();
    m_connected = false;
}

void LvEndpoint::LeaveConnection()
{
    // Without a queue pair there is no connection to leave, and librdmacm looks into an id's device unasked.
    if (m_cm_id_connection != nullptr && m_qp != nullptr)
    {
        rdma_disconnect(m_cm_id_connection);
        if (m_receiveCount != 0)
        {
            // The queue pair is in the error state now, so this comes back as a failed completion even if nothing else
            // is outstanding. It wakes the completion thread, which then raises m_stop.
            Post_receive(&m_recv_msgs[0]);
            m_flushExpected = true;
        }
    }
    m_ending = true;
    if (m_wake >= 0)
    {
        eventfd_write(m_wake, 1);
    }
}

void LvEndpoint::JoinThreads()
{
    if (m_worker_thread != 0)
    {
        pthread_join(m_worker_thread, nullptr);
        m_worker_thread = 0;
    }
    if (m_cm_thread != 0)
    {
        pthread_join(m_cm_thread, nullptr);
        m_cm_thread = 0;
    }
    if (m_cq_thread != 0 && pthread_join(m_cq_thread, nullptr) == 0)
    {
        m_cq_thread = 0;
    }
    if (m_wake >= 0)
    {
        close(m_wake);
        m_wake = -1;
    }
}

void LvEndpoint::DestroyQueues()
{
    if (m_qp != nullptr)
    {
        if (ibv_destroy_qp(m_qp) == 0)
        {
            m_qp = nullptr;
        }
        else
        {
            NQTrace(NQTraceLevel::Expected, "%s ibv_destroy_qp Failed ", "DeInit");
        }
    }
    if (m_cq != nullptr)
    {
        if (ibv_destroy_cq(m_cq) == 0)
        {
            m_cq = nullptr;
        }
        else
        {
            NQTrace(NQTraceLevel::Expected, "%s ibv_destroy_cq Failed ", "DeInit");
        }
    }
    if (m_comp_channel != nullptr)
    {
        if (ibv_destroy_comp_channel(m_comp_channel) == 0)
        {
            m_comp_channel = nullptr;
        }
        else
        {
            NQTrace(NQTraceLevel::Failure, "%s GC_ERR_ERROR Exit ibv_destroy_comp_channel", "DeInit");
        }
    }
}

void LvEndpoint::ReleaseRegions()
{
    m_receives.End();
    if (m_recv_msgs == nullptr || m_send_msgs == nullptr)
    {
        return;
    }
    for (std::uint32_t index = 0; index < m_settings.bufferCount; ++index)
    {
        msg_buffer_mem& receive = m_recv_msgs[index];
        msg_buffer_mem& send = m_send_msgs[index];
        for (msg_buffer_mem* message : {&receive, &send})
        {
            if (message->mr != nullptr && ibv_dereg_mr(message->mr) == 0)
            {
                message->mr = nullptr;
            }
        }
        delete[] send.addr;
        send.addr = nullptr;
    }
}

void LvEndpoint::DestroyIds()
{
    if (m_cm_id_connection != nullptr)
    {
        if (rdma_destroy_id(m_cm_id_connection) != 0)
        {
            NQTrace(NQTraceLevel::Expected, "%s GC_ERR_ERROR rdma_destroy_id m_cm_id_connection Failed", "DeInit");
        }
        // Deliberate(UndestroyedIdIsForgotten): an id that could not be destroyed is forgotten; what is left of it
        // nobody knows, so a second try could reach into freed memory.
        m_cm_id_connection = nullptr;
    }
    if (m_cm_id_listener != nullptr)
    {
        if (rdma_destroy_id(m_cm_id_listener) != 0)
        {
            NQTrace(NQTraceLevel::Expected, "%s GC_ERR_ERROR rdma_destroy_id m_cm_id_listener Failed", "DeInit");
        }
        m_cm_id_listener = nullptr;
    }
    if (m_event_channel != nullptr)
    {
        rdma_destroy_event_channel(m_event_channel);
        m_event_channel = nullptr;
    }
}

/// Whatever is asked of the RDMA libraries reaches the parent's objects, so nothing is: what they hold of this
/// process's memory stays allocated.
void LvEndpoint::Abandon()
{
    for (const int descriptor : {m_wake, m_comp_channel != nullptr ? m_comp_channel->fd : -1,
                                 m_event_channel != nullptr ? m_event_channel->fd : -1})
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    m_wake = -1;
    m_comp_channel = nullptr;
    m_event_channel = nullptr;
    m_event = nullptr;
    m_cm_id_connection = nullptr;
    m_qp = nullptr;
    m_cq = nullptr;
    m_pd = nullptr;
    m_cq_thread = 0;
    m_cm_thread = 0;
    m_worker_thread = 0;
    m_connected = false;
}

void build_params(rdma_conn_param* params)
{
    // Static, where it would be enough to live as long as the call: the record must not keep a pointer to a dead frame.
    static const std::array<unsigned char, 24> kPrivateData{};
    params->private_data = kPrivateData.data();
    params->private_data_len = static_cast<std::uint8_t>(kPrivateData.size());
    params->responder_resources = 1;
    params->initiator_depth = 3;
    params->flow_control = 0;
    params->retry_count = 10;
    params->rnr_retry_count = 7;
    // Deliberate(RandomNumberUsedUp): one number of the process's sequence is used up and dropped. A program that seeds
    // the sequence to repeat its own runs then finds the rest of it unchanged across versions of this library.
    static_cast<void>(std::rand());
}
