// SPDX-License-Identifier: Apache-2.0
// A bound address and what is offered to it.
#include "cm/listener.h"

#include "base/error.h"
#include "cm/cm_channel.h"
#include "cm/cm_id.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace nq::loopback
{

namespace
{

constexpr int kLongestBacklog = 1024;
constexpr std::chrono::milliseconds kPauseWithoutDescriptors{100};

} // namespace

Listener::Listener(const Endpoint& address, std::shared_ptr<NetScope> scope, CmId& id)
    : m_address(address), m_scope(std::move(scope)), m_id(&id), m_socket(address, *m_scope)
{
}

void Listener::Start()
{
    m_watch.Start(m_socket.Fd(), shared_from_this());
    m_watch.Want(EPOLLIN);
}

void Listener::Listen(int backlog)
{
    m_backlog = backlog <= 0 || backlog > kLongestBacklog ? kLongestBacklog : backlog;
}

void Listener::Close()
{
    m_id = nullptr;
    m_watch.Stop();
    // The engine may hold this object a little longer; the address is free from here on.
    m_socket.Withdraw();
    for (const Request& request : m_waiting)
    {
        request.connection->Abandon();
    }
    for (const std::shared_ptr<Connection>& connection : m_offers)
    {
        connection->Abandon();
    }
    m_waiting.clear();
    m_offers.clear();
}

CmKind Listener::Judge(const CmMessage& message) const
{
    const bool here =
        m_address.IsAny() ? m_scope->IsLocal(message.destination) : m_address.SameHost(message.destination);
    if (!here || m_id == nullptr)
    {
        return CmKind::NotHere;
    }
    return message.kind == CmKind::Request && m_backlog == 0 ? CmKind::NotListening : CmKind::Taken;
}

void Listener::Take(Connection& connection)
{
    const auto self = std::static_pointer_cast<Connection>(connection.shared_from_this());
    m_offers.erase(self);
    const std::chrono::milliseconds delay = Settings::Get().connectDelay;
    m_waiting.push_back({self, Clock::now() + delay});
    if (delay.count() != 0)
    {
        Engine::Instance().CallAt(m_waiting.back().arrives, shared_from_this());
    }
    PostRequests();
}

void Listener::Forget(Connection& connection)
{
    m_offers.erase(std::static_pointer_cast<Connection>(connection.shared_from_this()));
}

void Listener::OnRequestRead()
{
    --m_unread;
    PostRequests();
}

void Listener::PostRequests()
{
    while (m_id != nullptr && m_unread < m_backlog && !m_waiting.empty() && m_waiting.front().arrives <= Clock::now())
    {
        ++m_unread;
        m_id->PostRequest(std::move(m_waiting.front().connection));
        m_waiting.pop_front();
    }
}

void Listener::OnReady(int, uint32_t)
{
    const std::lock_guard lock(CmMutex());
    if (!LinkIsUp())
    {
        m_watch.Want(0);
        return;
    }
    UniqueFd control(accept4(m_socket.Fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!control && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
    {
        // Out of descriptors, most likely: the offer stays, and so would the event.
        m_watch.Want(0);
        Engine::Instance().CallAt(Clock::now() + kPauseWithoutDescriptors, shared_from_this());
        return;
    }
    if (control && m_id != nullptr && PeerIsSameUser(control.Get()))
    {
        auto connection = std::make_shared<Connection>(
            std::move(control), std::weak_ptr(std::static_pointer_cast<Listener>(shared_from_this())));
        m_offers.insert(connection);
        connection->Start();
    }
}

void Listener::OnTimer()
{
    const std::lock_guard lock(CmMutex());
    if (m_id != nullptr)
    {
        m_watch.Want(LinkIsUp() ? static_cast<uint32_t>(EPOLLIN) : 0U);
        PostRequests();
    }
}

} // namespace nq::loopback
