// SPDX-License-Identifier: Apache-2.0
// Connection-manager ids: from creation to a connection.
#include "cm/cm_id.h"

#include "base/error.h"
#include "base/log.h"
#include "cm/cm_registry.h"
#include "cm/fork.h"
#include "cm/listener.h"
#include "cm/rendezvous.h"
#include "verbs/queue_pair.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <sys/socket.h>

namespace nq::loopback
{

namespace
{

constexpr int kStreamBuffer = 1 << 20; // bytes
constexpr int kBindAttempts = 100;

uint16_t EphemeralPort()
{
    static std::atomic<unsigned> last{static_cast<unsigned>(getpid()) * 61U};
    return static_cast<uint16_t>(32768 + ++last % 28000);
}

void MakeStream(int type, UniqueFd& here, UniqueFd& there)
{
    int ends[2];
    if (socketpair(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
    {
        Throw(errno);
    }
    here = UniqueFd(ends[0]);
    there = UniqueFd(ends[1]);
    for (const int end : ends)
    {
        // Without the privilege for the first the second gives what the system's limit allows.
        if (setsockopt(end, SOL_SOCKET, SO_SNDBUFFORCE, &kStreamBuffer, sizeof kStreamBuffer) != 0)
        {
            setsockopt(end, SOL_SOCKET, SO_SNDBUF, &kStreamBuffer, sizeof kStreamBuffer);
        }
    }
}

// Copies what the user gives; without parameters a real connection uses the device's limits.
void Fill(CmMessage& message, const rdma_conn_param* parameters, uint8_t longest)
{
    message.responderResources = 16;
    message.initiatorDepth = 16;
    if (parameters == nullptr)
    {
        return;
    }
    if (parameters->private_data_len > longest)
    {
        Throw(EINVAL);
    }
    message.responderResources = parameters->responder_resources;
    message.initiatorDepth = parameters->initiator_depth;
    message.flowControl = parameters->flow_control;
    message.retryCount = parameters->retry_count;
    message.rnrRetryCount = parameters->rnr_retry_count;
    message.sharedReceiveQueue = parameters->srq;
    message.queuePairNumber = parameters->qp_num;
    if (parameters->private_data != nullptr)
    {
        std::memcpy(message.privateData, parameters->private_data, parameters->private_data_len);
    }
}

} // namespace

CmId::CmId(EventChannel* events, void* userContext, rdma_port_space space, std::shared_ptr<NetScope> netScope)
    : rdma_cm_id{}, m_ownChannel(events == nullptr ? std::make_unique<EventChannel>() : nullptr),
      m_scope(std::move(netScope))
{
    channel = events == nullptr ? m_ownChannel.get() : events;
    context = userContext;
    ps = space;
    qp_type = IBV_QPT_RC;
    KeepForksSafe();
    CmRegistry::Add(this);
}

CmId::~CmId()
{
    CmRegistry::Remove(this);
}

CmId& CmId::From(rdma_cm_id* id)
{
    const std::lock_guard lock(CmMutex());
    auto* self = static_cast<CmId*>(id);
    if (!CmRegistry::Contains(self))
    {
        Throw(EINVAL);
    }
    return *self;
}

void CmId::SetSource(const Endpoint& address)
{
    m_source = address;
    std::memcpy(&route.addr.src_storage, m_source.Raw(), m_source.Length());
}

void CmId::SetDestination(const Endpoint& address)
{
    m_destination = address;
    std::memcpy(&route.addr.dst_storage, m_destination.Raw(), m_destination.Length());
}

void CmId::TakeDevice()
{
    verbs = &Context::Shared();
    port_num = 1;
}

void CmId::BindHere(Endpoint address)
{
    if (!address.IsAny() && !m_scope->IsLocal(address))
    {
        Throw(EADDRNOTAVAIL);
    }
    const bool anyPort = address.Port() == 0;
    for (int attempt = 0; m_listener == nullptr; ++attempt)
    {
        if (anyPort)
        {
            address.SetPort(EphemeralPort());
        }
        try
        {
            m_listener = std::make_shared<Listener>(address, m_scope, *this);
        }
        catch (const std::system_error& error)
        {
            if (!anyPort || error.code().value() != EADDRINUSE || attempt == kBindAttempts)
            {
                throw;
            }
        }
    }
    m_listener->Start();
    SetSource(address);
    m_phase = Phase::Bound;
    if (!address.IsAny())
    {
        TakeDevice();
    }
}

void CmId::Bind(const sockaddr* address)
{
    const Endpoint endpoint(address);
    const std::lock_guard lock(CmMutex());
    if (m_phase != Phase::Idle)
    {
        Throw(EINVAL);
    }
    BindHere(endpoint);
}

void CmId::ResolveAddress(const sockaddr* source, const sockaddr* destination)
{
    Endpoint target(destination);
    const std::lock_guard lock(CmMutex());
    if (m_phase != Phase::Idle && m_phase != Phase::Bound)
    {
        Throw(EINVAL);
    }
    if (source != nullptr && m_phase == Phase::Idle && !Endpoint(source).IsAny())
    {
        BindHere(Endpoint(source));
    }
    Endpoint from = m_scope->SourceFor(target);
    from.SetPort(m_phase == Phase::Bound ? m_source.Port() : EphemeralPort());
    if (m_phase == Phase::Idle || m_source.IsAny())
    {
        SetSource(from);
    }
    SetDestination(target);
    m_phase = Phase::AddressResolved;
    Post(RDMA_CM_EVENT_ADDR_RESOLVED, 0);
}

void CmId::ResolveRoute()
{
    const std::lock_guard lock(CmMutex());
    if (m_phase != Phase::AddressResolved)
    {
        Throw(EINVAL);
    }
    m_phase = Phase::RouteResolved;
    Post(RDMA_CM_EVENT_ROUTE_RESOLVED, 0);
}

CmMessage CmId::MakeRequest(const rdma_conn_param* parameters) const
{
    CmMessage request;
    Fill(request, parameters, kRequestPrivateData);
    request.kind = CmKind::Request;
    request.netScope = m_scope->Identity();
    request.destinationIsLocal = m_scope->IsLocal(m_destination);
    request.source = m_source;
    request.destination = m_destination;
    if (qp != nullptr)
    {
        request.queuePairNumber = qp->qp_num;
    }
    return request;
}

void CmId::Connect(const rdma_conn_param* parameters)
{
    std::unique_lock lock(CmMutex());
    if (m_phase != Phase::RouteResolved || (qp == nullptr && parameters == nullptr))
    {
        Throw(EINVAL);
    }
    const CmMessage request = MakeRequest(parameters);
    UniqueFd here[2];
    UniqueFd there[2];
    MakeStream(SOCK_STREAM, here[0], there[0]);
    MakeStream(SOCK_SEQPACKET, here[1], there[1]);
    m_phase = Phase::Connecting;
    const Clock::time_point end = Clock::now() + Settings::Get().connectTimeout;
    // The listener may be served by this process: its engine needs the lock to answer.
    lock.unlock();
    FoundListener found;
    if (LinkIsUp())
    {
        found = FindListener(request, there[0].Get(), there[1].Get(), end);
    }
    lock.lock();
    Log("connecting to %s port %u: %d", m_destination.HostText().c_str(), m_destination.Port(),
        static_cast<int>(found.outcome));
    if (found.outcome == FoundListener::Outcome::Refused)
    {
        CmMessage rejection;
        Post(RDMA_CM_EVENT_REJECTED, rejectInvalidService, &rejection, kRejectPrivateData);
        return;
    }
    m_connection =
        std::make_shared<Connection>(std::move(found.control), std::move(here[0]), std::move(here[1]), *this);
    m_connection->Start(end);
}

void CmId::Listen(int backlog)
{
    const std::lock_guard lock(CmMutex());
    if (m_phase == Phase::Idle)
    {
        sockaddr_in any{};
        any.sin_family = AF_INET;
        BindHere(Endpoint(reinterpret_cast<const sockaddr*>(&any)));
    }
    if (m_phase != Phase::Bound && m_phase != Phase::Listening)
    {
        Throw(EINVAL);
    }
    m_phase = Phase::Listening;
    m_listener->Listen(backlog);
}

void CmId::Accept(const rdma_conn_param* parameters)
{
    const std::lock_guard lock(CmMutex());
    CmMessage reply;
    Fill(reply, parameters, kReplyPrivateData);
    reply.kind = CmKind::Reply;
    if (qp != nullptr)
    {
        reply.queuePairNumber = qp->qp_num;
    }
    if (!m_connection || m_connection->Now() != Connection::State::Requested)
    {
        Throw(EINVAL);
    }
    if (m_transport)
    {
        m_transport->Attach(m_connection->TakeData(), m_connection->TakeAcknowledgements(),
                            m_connection->Peer().queuePairNumber);
    }
    m_connection->Accept(reply);
}

void CmId::Reject(const void* privateData, uint8_t length)
{
    const std::lock_guard lock(CmMutex());
    CmMessage rejection;
    rejection.kind = CmKind::Reject;
    rejection.status = rejectByConsumer;
    if (length > kRejectPrivateData)
    {
        Throw(EINVAL);
    }
    if (privateData != nullptr)
    {
        std::memcpy(rejection.privateData, privateData, length);
    }
    if (!m_connection || !m_connection->Reject(rejection))
    {
        Throw(EINVAL);
    }
}

void CmId::Establish()
{
    const std::lock_guard lock(CmMutex());
    if (qp != nullptr || !m_connection || !m_connection->Establish())
    {
        Throw(EINVAL);
    }
}

void CmId::Disconnect()
{
    const std::lock_guard lock(CmMutex());
    if (m_transport)
    {
        m_transport->ToError();
    }
    if (!m_connection)
    {
        Throw(EINVAL);
    }
    m_connection->Disconnect();
}

void CmId::Migrate(EventChannel* events)
{
    std::unique_lock lock(CmMutex());
    if (m_phase == Phase::Retired || (events == nullptr && m_ownChannel))
    {
        Throw(EINVAL);
    }
    std::unique_ptr<EventChannel> old;
    if (events == nullptr)
    {
        m_ownChannel = std::make_unique<EventChannel>();
        events = m_ownChannel.get();
    }
    else
    {
        old = std::move(m_ownChannel);
    }
    auto moved = EventChannel::From(channel).Events().Extract(
        [this](const std::unique_ptr<CmEvent>& unread) { return unread->owner == this; });
    channel = events;
    for (std::unique_ptr<CmEvent>& unread : moved)
    {
        events->Events().Push(std::move(unread));
    }
    // Whoever still looks at an event may use its id's old channel.
    m_acknowledged.wait(lock, [this] { return m_eventsAcknowledged == m_eventsRead; });
}

void CmId::SetTransport(std::shared_ptr<ReliableTransport> transport)
{
    const std::lock_guard lock(CmMutex());
    m_transport = std::move(transport);
}

void CmId::LeaveService()
{
    m_phase = Phase::Retired;
    if (m_connection)
    {
        m_connection->Abandon();
        m_connection.reset();
    }
    if (m_listener)
    {
        m_listener->Close();
        m_listener.reset();
    }
    if (channel == nullptr)
    {
        return;
    }
    const auto unread = EventChannel::From(channel).Events().Extract(
        [this](const std::unique_ptr<CmEvent>& posted) { return posted->owner == this; });
    for (const std::unique_ptr<CmEvent>& posted : unread)
    {
        if (posted->connection)
        {
            posted->connection->Abandon();
        }
    }
}

void CmId::LoseChannel()
{
    LeaveService();
    channel = nullptr;
}

void CmId::Retire()
{
    std::unique_lock lock(CmMutex());
    LeaveService();
    m_acknowledged.wait(lock, [this] { return m_eventsAcknowledged == m_eventsRead; });
}

EventChannel::~EventChannel()
{
    for (CmId* id : CmRegistry::Ids())
    {
        if (id->channel == this)
        {
            id->LoseChannel();
        }
    }
}

} // namespace nq::loopback
