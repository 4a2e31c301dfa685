// SPDX-License-Identifier: Apache-2.0
// Sockets that are a queue each, and a clock that waits move on.
#include "fuzz/fake_network.h"

#include <arpa/inet.h>
#include <sys/eventfd.h>
#include <thread>
#include <utility>

namespace nq::fuzz
{
namespace
{

const std::thread::id kMainThread = std::this_thread::get_id();

} // namespace

FakeNetwork& FakeNetwork::Instance()
{
    static FakeNetwork& network = *new FakeNetwork;
    return network;
}

bool FakeNetwork::OnMainThread()
{
    return std::this_thread::get_id() == kMainThread;
}

void FakeNetwork::React(Reaction reaction)
{
    const std::lock_guard reacting(m_reacting);
    m_reaction = std::move(reaction);
    const std::lock_guard lock(m_mutex);
    for (auto& [number, socket] : m_sockets)
    {
        socket.waiting.clear();
    }
}

void FakeNetwork::Deliver(int socket, Bytes datagram)
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_sockets.find(socket);
    if (found != m_sockets.end())
    {
        found->second.waiting.push_back(std::move(datagram));
    }
}

int FakeNetwork::SocketAt(std::uint16_t port)
{
    const std::lock_guard lock(m_mutex);
    for (const auto& [number, socket] : m_sockets)
    {
        if (socket.local.sin_port == htons(port))
        {
            return number;
        }
    }
    return -1;
}

std::size_t FakeNetwork::OpenSockets()
{
    const std::lock_guard lock(m_mutex);
    return m_sockets.size();
}

int FakeNetwork::Open()
{
    const int number = eventfd(0, EFD_CLOEXEC);
    const std::lock_guard lock(m_mutex);
    m_sockets[number] = {};
    return number;
}

bool FakeNetwork::Knows(int socket)
{
    const std::lock_guard lock(m_mutex);
    return m_sockets.count(socket) > 0;
}

void FakeNetwork::Forget(int socket)
{
    const std::lock_guard lock(m_mutex);
    m_sockets.erase(socket);
}

int FakeNetwork::Bind(int socket, sockaddr_in& address)
{
    const std::lock_guard lock(m_mutex);
    for (const auto& [number, other] : m_sockets)
    {
        if (address.sin_port != 0 && other.local.sin_port == address.sin_port)
        {
            return -1;
        }
    }
    if (address.sin_port == 0)
    {
        m_lastPort = m_lastPort >= 60000 ? std::uint16_t{40001} : static_cast<std::uint16_t>(m_lastPort + 1);
        address.sin_port = htons(m_lastPort);
    }
    m_sockets[socket].local = address;
    return 0;
}

sockaddr_in FakeNetwork::LocalAddress(int socket)
{
    const std::lock_guard lock(m_mutex);
    return m_sockets[socket].local;
}

void FakeNetwork::Shut(int socket)
{
    const std::lock_guard lock(m_mutex);
    m_sockets[socket].shut = true;
}

void FakeNetwork::SetReceiveTimeout(int socket, std::uint64_t milliseconds)
{
    const std::lock_guard lock(m_mutex);
    m_sockets[socket].receiveTimeout = milliseconds;
}

bool FakeNetwork::Send(int socket, const sockaddr_in& to, Bytes datagram)
{
    const std::lock_guard reacting(m_reacting);
    if (m_reaction)
    {
        m_reaction(socket, to, datagram);
    }
    return true;
}

bool FakeNetwork::IsReadable(int socket)
{
    const std::lock_guard lock(m_mutex);
    const Socket& looked = m_sockets[socket];
    return looked.shut || !looked.waiting.empty();
}

bool FakeNetwork::Wait(int socket, std::uint64_t milliseconds)
{
    if (IsReadable(socket))
    {
        return true;
    }
    if (OnMainThread())
    {
        Advance(milliseconds);
        return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds == 0 ? 0 : 1));
    return IsReadable(socket);
}

bool FakeNetwork::Receive(int socket, Bytes& datagram)
{
    std::uint64_t timeout = 0;
    {
        const std::lock_guard lock(m_mutex);
        Socket& from = m_sockets[socket];
        if (!from.waiting.empty())
        {
            datagram = std::move(from.waiting.front());
            from.waiting.pop_front();
            return true;
        }
        timeout = from.receiveTimeout;
    }
    Advance(timeout);
    return false;
}

std::uint64_t FakeNetwork::Nanoseconds()
{
    const std::lock_guard lock(m_mutex);
    m_nanoseconds += 100;
    return m_nanoseconds;
}

std::uint64_t FakeNetwork::Milliseconds()
{
    return Nanoseconds() / 1000000;
}

void FakeNetwork::Advance(std::uint64_t milliseconds)
{
    const std::lock_guard lock(m_mutex);
    m_nanoseconds += milliseconds * 1000000;
}

} // namespace nq::fuzz
