// SPDX-License-Identifier: Apache-2.0
// Remote control of the cameras of one program.
#include "control_socket.h"

#include "control_commands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

namespace nq::camera
{

namespace
{

constexpr std::size_t kLongestLine = 65536;
constexpr std::size_t kMostClients = 32;
/// Until the next try when there was no descriptor for a client, in milliseconds.
constexpr int kAcceptPause = 500;

bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

bool NothingLeft()
{
    return errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
}

} // namespace

ControlSocket::ControlSocket(std::string path, const std::vector<std::unique_ptr<VirtualCamera>>& cameras)
    : m_cameras(cameras), m_listener(std::move(path))
{
    m_thread = std::thread([this] { Run(); });
    pthread_setname_np(m_thread.native_handle(), "control"); // as top -H shows it
}

ControlSocket::~ControlSocket()
{
    m_stop = true;
    m_wake.Signal();
    m_thread.join();
}

void ControlSocket::Run()
{
    while (!m_stop)
    {
        std::vector<pollfd> fds{{m_wake.Fd(), POLLIN, 0}, {m_acceptLater ? -1 : m_listener.Fd(), POLLIN, 0}};
        for (const auto& [fd, client] : m_clients)
        {
            const int event = client.unsent.empty() ? POLLIN : POLLOUT;
            fds.push_back({fd, static_cast<short>(event), 0});
        }
        poll(fds.data(), fds.size(), m_acceptLater ? kAcceptPause : -1);
        m_acceptLater = false;
        for (std::size_t i = 2; i < fds.size(); ++i)
        {
            if (fds[i].revents != 0 && !Serve(m_clients[fds[i].fd]))
            {
                m_clients.erase(fds[i].fd);
            }
        }
        if ((fds[1].revents & POLLIN) != 0)
        {
            AcceptClient();
        }
    }
}

void ControlSocket::AcceptClient()
{
    if (m_clients.size() >= kMostClients)
    {
        DropQuietest();
    }
    const int fd = accept4(m_listener.Fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0)
    {
        m_clients[fd].fd = UniqueFd(fd);
        m_clients[fd].lastUse = ++m_uses;
    }
    else if (NothingLeft())
    {
        // The listener stays readable meanwhile, so it is not polled for a while unless a descriptor came free.
        m_acceptLater = !DropQuietest();
    }
}

bool ControlSocket::DropQuietest()
{
    const auto quietest = std::ranges::min_element(m_clients, {}, [](const auto& one) { return one.second.lastUse; });
    if (quietest == m_clients.end())
    {
        return false;
    }
    m_clients.erase(quietest);
    return true;
}

bool ControlSocket::Serve(Client& client)
{
    client.lastUse = ++m_uses;
    if (client.unsent.empty() ? !Receive(client) : !Flush(client))
    {
        return false;
    }
    std::size_t end = 0;
    while (client.unsent.empty() && (end = client.received.find('\n')) != std::string::npos)
    {
        client.unsent = AnswerControlLine(m_cameras, client.received.substr(0, end)) + "\n";
        client.received.erase(0, end + 1);
        if (!Flush(client))
        {
            return false;
        }
    }
    return client.received.size() <= kLongestLine;
}

bool ControlSocket::Receive(Client& client)
{
    std::array<char, 4096> buffer;
    const ssize_t size = recv(client.fd.Get(), buffer.data(), buffer.size(), 0);
    if (size < 0)
    {
        return WouldBlock();
    }
    client.received.append(buffer.data(), static_cast<std::size_t>(size));
    return size > 0;
}

bool ControlSocket::Flush(Client& client)
{
    const ssize_t size = send(client.fd.Get(), client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL);
    if (size < 0)
    {
        return WouldBlock();
    }
    client.unsent.erase(0, static_cast<std::size_t>(size));
    return true;
}

} // namespace nq::camera
