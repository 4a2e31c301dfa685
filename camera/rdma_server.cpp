// SPDX-License-Identifier: Apache-2.0
// The camera's end of the image stream.
#include "rdma_server.h"

#include "frame_faults.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <system_error>

namespace nq::camera
{

namespace
{

constexpr std::uint16_t kRdmaPort = 4791;
constexpr int kBacklog = 8;
/// A host that lives answers an acceptance within milliseconds; when its word is lost on the way, each repetition takes
/// some 4 s.
constexpr std::chrono::seconds kEstablishTime{10};

[[noreturn]] void ThrowErrno(const char* call)
{
    throw std::system_error(errno, std::generic_category(), call);
}

/// The earlier of two times, either of which may be none.
std::optional<RdmaServer::Clock::time_point> Earlier(std::optional<RdmaServer::Clock::time_point> one,
                                                     std::optional<RdmaServer::Clock::time_point> other)
{
    return one && other ? std::min(*one, *other) : one.has_value() ? one : other;
}

} // namespace

RdmaServer::RdmaServer(std::uint32_t address, Acquisition& acquisition, MessageChannel& messages, FaultPlan& faults,
                       std::uint32_t sendBuffers, Admission admission, Measured measured)
    : m_acquisition(acquisition), m_messages(messages), m_faults(faults), m_sendBuffers(sendBuffers),
      m_admission(std::move(admission)), m_measured(std::move(measured))
{
    Listen(address);
}

RdmaServer::~RdmaServer()
{
    Stop();
    m_connection.reset();
}

void RdmaServer::Listen(std::uint32_t address)
{
    m_channel.reset(rdma_create_event_channel());
    if (!m_channel)
    {
        ThrowErrno("rdma_create_event_channel");
    }
    const int flags = fcntl(m_channel->fd, F_GETFL);
    if (flags < 0 || fcntl(m_channel->fd, F_SETFL, flags | O_NONBLOCK) != 0)
    {
        ThrowErrno("fcntl of the RDMA event channel");
    }
    rdma_cm_id* listener = nullptr;
    if (rdma_create_id(m_channel.get(), &listener, nullptr, RDMA_PS_TCP) != 0)
    {
        ThrowErrno("rdma_create_id");
    }
    m_listener.reset(listener);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(kRdmaPort);
    place.sin_addr.s_addr = htonl(address);
    if (rdma_bind_addr(listener, reinterpret_cast<sockaddr*>(&place)) != 0)
    {
        ThrowErrno("rdma_bind_addr");
    }
    if (rdma_listen(listener, kBacklog) != 0)
    {
        ThrowErrno("rdma_listen");
    }
}

void RdmaServer::Start()
{
    m_thread = std::thread([this] { Run(); });
    pthread_setname_np(m_thread.native_handle(), "rdma"); // as top -H shows it
}

void RdmaServer::Stop()
{
    if (m_thread.joinable())
    {
        m_stop = true;
        m_acquisition.Changed().Signal();
        m_thread.join();
    }
}

void RdmaServer::DropConnection()
{
    m_drop = true;
    m_acquisition.Changed().Signal();
}

RdmaServer::Counters RdmaServer::Count() const
{
    return {m_connectedShown, m_creditsShown, m_sent, m_accepted, m_rejected, m_strangeShown};
}

void RdmaServer::Publish()
{
    m_connectedShown = m_established;
    m_creditsShown = m_connection ? m_connection->Credits() : 0;
    m_strangeShown = m_connection ? m_connection->StrangeMessages() : 0;
}

void RdmaServer::Run()
{
    while (!m_stop)
    {
        if (m_drop.exchange(false))
        {
            EndConnection();
        }
        if (m_acceptAt && Clock::now() >= *m_acceptAt)
        {
            Accept();
        }
        if (m_establishBy && Clock::now() >= *m_establishBy)
        {
            CloseConnection();
        }
        const auto due = SendFrames();
        Publish();
        Wait(Earlier(Earlier(m_acceptAt, m_establishBy), due));
    }
}

void RdmaServer::Wait(std::optional<Clock::time_point> until)
{
    std::array<pollfd, 3> fds{{{m_acquisition.Changed().Fd(), POLLIN, 0},
                               {m_channel->fd, POLLIN, 0},
                               {m_connection ? m_connection->CompletionFd() : -1, POLLIN, 0}}};
    timespec time{};
    if (until)
    {
        const auto left = std::max(Clock::duration::zero(), *until - Clock::now());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        time.tv_sec = seconds.count();
        time.tv_nsec = std::chrono::nanoseconds(left - seconds).count();
    }
    ppoll(fds.data(), fds.size(), until ? &time : nullptr, nullptr);
    if ((fds[0].revents & POLLIN) != 0)
    {
        m_acquisition.Changed().Clear();
    }
    if ((fds[2].revents & POLLIN) != 0)
    {
        if (m_connection->TakeEvent())
        {
            TakeCompletions();
        }
        else
        {
            CloseConnection();
        }
    }
    if ((fds[1].revents & POLLIN) != 0)
    {
        TakeConnectionEvent();
    }
}

void RdmaServer::TakeConnectionEvent()
{
    rdma_cm_event* event = nullptr;
    if (rdma_get_cm_event(m_channel.get(), &event) != 0)
    {
        return;
    }
    const rdma_cm_event_type kind = event->event;
    rdma_cm_id* const id = event->id;
    // An id can only be destroyed once all its events are acknowledged.
    rdma_ack_cm_event(event);
    const bool current = m_connection && m_connection->Id() == id;
    switch (kind)
    {
    case RDMA_CM_EVENT_CONNECT_REQUEST:
        OnRequest(id);
        break;
    case RDMA_CM_EVENT_ESTABLISHED:
        if (current)
        {
            m_established = true;
            m_establishBy.reset();
        }
        if (current && m_endOnceEstablished)
        {
            CloseConnection();
        }
        break;
    case RDMA_CM_EVENT_DISCONNECTED:
    case RDMA_CM_EVENT_CONNECT_ERROR:
    case RDMA_CM_EVENT_UNREACHABLE:
    case RDMA_CM_EVENT_REJECTED:
    case RDMA_CM_EVENT_DEVICE_REMOVAL:
        if (current)
        {
            CloseConnection();
        }
        break;
    default:
        break;
    }
}

void RdmaServer::OnRequest(rdma_cm_id* id)
{
    if (m_drop.exchange(false))
    {
        EndConnection(); // the request may come from the next host already
    }
    const bool admitted = IsAdmitted(id);
    // What is left of an earlier control does not keep out the host that has it now, nor does a request that the host
    // gave up before it was accepted: the end of that one may come after the next one.
    if (admitted && (m_endOnceEstablished || m_acceptAt))
    {
        CloseConnection();
    }
    if (m_connection || !admitted || m_faults.Strike(Fault::RejectConnect))
    {
        ++m_rejected;
        rdma_reject(id, nullptr, 0);
        rdma_destroy_id(id);
        return;
    }
    const std::chrono::milliseconds delay(m_faults.Strike(Fault::SlowAccept).value_or(0));
    try
    {
        m_connection = std::make_unique<RdmaConnection>(id, m_sendBuffers);
        m_acceptAt = Clock::now() + delay;
    }
    catch (const std::exception&)
    {
        ++m_rejected; // the id is gone, which rejects the request
    }
}

bool RdmaServer::IsAdmitted(rdma_cm_id* id) const
{
    const sockaddr* const peer = rdma_get_peer_addr(id);
    if (peer->sa_family != AF_INET)
    {
        return false;
    }
    sockaddr_in place{};
    std::memcpy(&place, peer, sizeof(place));
    return m_admission(ntohl(place.sin_addr.s_addr));
}

void RdmaServer::Accept()
{
    m_acceptAt.reset();
    try
    {
        m_connection->Accept();
        m_establishBy = Clock::now() + kEstablishTime;
        ++m_accepted;
    }
    catch (const std::exception&)
    {
        CloseConnection();
    }
}

void RdmaServer::TakeCompletions()
{
    std::vector<std::uint64_t> sent;
    const bool healthy = m_connection->TakeCompletions(sent);
    m_sent += sent.size();
    for (const std::uint64_t frameId : sent)
    {
        m_messages.Notify(EventKind::FrameEnd, frameId);
    }
    if (!healthy)
    {
        CloseConnection();
    }
}

/// Looks for completions first where a frame would be lost without one: credits that came while a picture was drawn
/// count for the next one, which may be due already.
bool RdmaServer::CanSend()
{
    if (m_established && m_connection && !m_connection->CanSend())
    {
        TakeCompletions();
    }
    return m_established && m_connection && m_connection->CanSend();
}

std::optional<RdmaServer::Clock::time_point> RdmaServer::SendFrames()
{
    while (!m_stop && !m_drop)
    {
        const Acquisition::Decision decision = m_acquisition.Next(CanSend(), Clock::now());
        if (const auto* due = std::get_if<Clock::time_point>(&decision))
        {
            return *due;
        }
        const auto* ticket = std::get_if<FrameTicket>(&decision);
        if (ticket == nullptr)
        {
            return std::nullopt;
        }
        if (SendFrame(*ticket) == AfterSend::Disconnect)
        {
            CloseConnection();
        }
    }
    return std::nullopt;
}

RdmaServer::AfterSend RdmaServer::SendFrame(FrameTicket ticket)
{
    const std::int64_t shift = FrameIdFault(m_faults);
    m_acquisition.ShiftId(shift);
    ticket.id += static_cast<std::uint64_t>(shift);
    m_messages.Notify(EventKind::ExposureEnd, ticket.id);
    try
    {
        if (!m_painter || !(m_painter->Settings() == ticket.picture))
        {
            m_painter = std::make_unique<PicturePainter>(ticket.picture);
            ++m_pictureNumber;
        }
        const auto block = m_connection->TakeBlock(gendc::kDescriptorSize + ticket.picture.Payload());
        WriteGenDcDescriptor(ticket, block.bytes.first<gendc::kDescriptorSize>());
        if (!m_painter->IsStill() || block.picture != m_pictureNumber)
        {
            m_painter->Draw(ticket.id, block.bytes.subspan(gendc::kDescriptorSize));
            block.picture = m_pictureNumber;
        }
        if (const auto brightness = m_painter->Brightness())
        {
            m_measured(*brightness);
        }
        const std::size_t size = ApplyFrameFaults(m_faults, block.bytes);
        const bool disconnect = m_faults.Strike(Fault::DisconnectMidFrame).has_value();
        const bool healthy = m_connection->Send(block, size, ticket.id);
        return healthy && !disconnect ? AfterSend::GoOn : AfterSend::Disconnect;
    }
    catch (const std::exception&)
    {
        return AfterSend::Disconnect; // there is no memory for the frame
    }
}

void RdmaServer::EndConnection()
{
    // An accepted request that is given up before the host's last word reaches it would look to the host like a
    // connection that stands. If that word never comes, the connection ends when its time is over.
    const bool underWay = m_connection && !m_acceptAt && !m_established;
    if (underWay)
    {
        m_endOnceEstablished = true;
        return;
    }
    CloseConnection();
}

void RdmaServer::CloseConnection()
{
    if (m_established)
    {
        // A stream without a connection has ended, and the enable register says so; a host can tell it from a quiet
        // one.
        m_acquisition.EnableStream(false);
    }
    m_established = false;
    m_endOnceEstablished = false;
    m_acceptAt.reset();
    m_establishBy.reset();
    m_connection.reset();
}

} // namespace nq::camera
