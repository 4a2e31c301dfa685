// SPDX-License-Identifier: Apache-2.0
// The camera's end of the control channel.
#include "gvcp_server.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <pthread.h>
#include <system_error>

namespace nq::camera
{

namespace
{

constexpr std::uint32_t kLimitedBroadcast = 0xFFFFFFFF;
/// Larger than any GVCP packet, so that one that is too long shows its true size.
constexpr std::size_t kReceiveSize = 2048;
/// Datagrams after which heartbeat, delayed answers and the end are looked at.
constexpr int kDatagramsPerTurn = 64;
/// Answers that may wait at once; what is late beyond them is lost.
constexpr std::size_t kMostDelayed = 64;

std::unique_ptr<UdpSocket> BindDirectedBroadcast(const LocalInterface& network)
{
    const std::uint32_t hostBits = ~network.netmask;
    if (hostBits <= 1)
    {
        return nullptr;
    }
    return std::make_unique<UdpSocket>(Endpoint{network.address | hostBits, kGvcpPort}, UdpSocket::Sharing::Shared);
}

} // namespace

GvcpServer::Sockets::Sockets(const LocalInterface& where)
    : network(where), unicast(Endpoint{where.address, kGvcpPort}), directedBroadcast(BindDirectedBroadcast(where)),
      limitedBroadcast(Endpoint{kLimitedBroadcast, kGvcpPort}, UdpSocket::Sharing::Shared)
{
}

GvcpServer::GvcpServer(const LocalInterface& network, Device& device, FaultPlan& faults, std::function<void()> restart,
                       std::function<void(const LocalInterface&)> move)
    : m_device(device), m_faults(faults), m_restart(std::move(restart)), m_move(std::move(move)),
      m_service(device, faults), m_sockets(std::make_unique<Sockets>(network))
{
}

GvcpServer::~GvcpServer()
{
    Stop();
}

void GvcpServer::Start()
{
    m_thread = std::thread([this] { Run(); });
    pthread_setname_np(m_thread.native_handle(), "gvcp"); // as top -H shows it
}

void GvcpServer::Stop()
{
    if (m_thread.joinable())
    {
        m_stop = true;
        m_wake.Signal();
        m_thread.join();
    }
}

void GvcpServer::GoAway(std::chrono::milliseconds time)
{
    m_awayUntil = (Clock::now() + time).time_since_epoch().count();
}

void GvcpServer::MoveTo(const LocalInterface& network)
{
    {
        const std::lock_guard lock(m_mutex);
        m_next = network;
    }
    m_wake.Signal();
}

void GvcpServer::Move()
{
    std::optional<LocalInterface> next;
    {
        const std::lock_guard lock(m_mutex);
        next.swap(m_next);
    }
    if (!next || *next == m_sockets->network)
    {
        return;
    }
    try
    {
        m_sockets = std::make_unique<Sockets>(*next);
    }
    catch (const std::system_error&)
    {
        // Somebody else has the port there; hosts find the camera where it was.
    }
}

void GvcpServer::Run()
{
    while (!m_stop)
    {
        Move();
        std::array<pollfd, 4> sockets{
            {{m_wake.Fd(), POLLIN, 0},
             {m_sockets->unicast.Fd(), POLLIN, 0},
             {m_sockets->limitedBroadcast.Fd(), POLLIN, 0},
             {m_sockets->directedBroadcast ? m_sockets->directedBroadcast->Fd() : -1, POLLIN, 0}}};
        poll(sockets.data(), sockets.size(), WaitTime());
        m_wake.Clear();
        SendDelayed();
        TakeDatagrams();
    }
}

int GvcpServer::WaitTime()
{
    auto next = m_device.CheckHeartbeat();
    for (const Delayed& delayed : m_delayed)
    {
        next = next ? std::min(*next, delayed.when) : delayed.when;
    }
    if (!next)
    {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3600000));
}

void GvcpServer::SendDelayed()
{
    const auto now = Clock::now();
    for (const Delayed& delayed : m_delayed)
    {
        if (delayed.when <= now)
        {
            m_sockets->unicast.Send(delayed.bytes, delayed.to);
        }
    }
    std::erase_if(m_delayed, [now](const Delayed& delayed) { return delayed.when <= now; });
}

void GvcpServer::TakeDatagrams()
{
    const std::array<const UdpSocket*, 3> sockets{&m_sockets->unicast, &m_sockets->limitedBroadcast,
                                                  m_sockets->directedBroadcast.get()};
    int taken = 0;
    bool more = true;
    while (more)
    {
        more = false;
        // In turns, so that a flood on one of them hides nothing that comes by the others.
        for (const UdpSocket* socket : sockets)
        {
            if (socket != nullptr && taken < kDatagramsPerTurn && TakeOne(*socket, socket != &m_sockets->unicast))
            {
                more = true;
                ++taken;
            }
        }
    }
}

bool GvcpServer::TakeOne(const UdpSocket& socket, bool broadcast)
{
    std::array<std::uint8_t, kReceiveSize> buffer;
    const auto datagram = socket.Receive(buffer);
    if (!datagram)
    {
        return false;
    }
    // Every interface's broadcasts arrive; only those of the camera's own are meant for it.
    const bool mine = !broadcast || datagram->interfaceIndex == m_sockets->network.index;
    if (mine && !IgnoresEverything())
    {
        Answer(datagram->from, std::span(buffer).first(datagram->size));
    }
    return true;
}

bool GvcpServer::IgnoresEverything()
{
    const auto now = Clock::now();
    if (now.time_since_epoch().count() < m_awayUntil)
    {
        return true;
    }
    const auto silence = m_faults.Armed(Fault::Silent);
    if (!silence)
    {
        m_silentUntil.reset();
        return false;
    }
    if (*silence > 0 && !m_silentUntil)
    {
        m_silentUntil = now + std::chrono::milliseconds(*silence);
    }
    if (m_silentUntil && now >= *m_silentUntil)
    {
        m_faults.Clear(Fault::Silent);
        m_silentUntil.reset();
        return false;
    }
    m_faults.Strike(Fault::Silent);
    return true;
}

void GvcpServer::Answer(const Endpoint& from, std::span<const std::uint8_t> datagram)
{
    GvcpReply reply = m_service.Handle(from, datagram);
    const bool onSubnet = ((from.address ^ m_sockets->network.address) & m_sockets->network.netmask) == 0;
    const bool broadcast = reply.broadcastAllowed && !onSubnet;
    if (!reply.now.empty())
    {
        m_sockets->unicast.Send(reply.now, broadcast ? Endpoint{kLimitedBroadcast, from.port} : from);
    }
    if (!reply.later.empty() && m_delayed.size() < kMostDelayed)
    {
        m_delayed.push_back({Clock::now() + reply.delay, std::move(reply.later), from});
    }
    if (reply.move)
    {
        m_move(*reply.move);
    }
    if (reply.reset)
    {
        m_restart();
    }
}

} // namespace nq::camera
