// SPDX-License-Identifier: Apache-2.0
// A connection as cpp-httplib reads a request from it: so much of it and no more, and not for ever.
#include "view/bounded_stream.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace nq::tool::view
{

bool BoundedStream::is_readable() const
{
    pollfd state{m_file, POLLIN, 0};
    return m_at < m_held || poll(&state, 1, 0) > 0;
}

bool BoundedStream::is_writable() const
{
    pollfd state{m_file, POLLRDHUP, 0};
    return poll(&state, 1, 0) == 0;
}

ssize_t BoundedStream::read(char* to, size_t size)
{
    if (m_at == m_held && !Fill())
    {
        return 0;
    }
    const size_t part = std::min(size, m_held - m_at);
    std::copy_n(m_buffer + m_at, part, to);
    m_at += part;
    return static_cast<ssize_t>(part);
}

bool BoundedStream::Fill()
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_end - Clock::now());
    pollfd readable{m_file, POLLIN, 0};
    if (m_left == 0 || left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0)
    {
        return false;
    }
    const ssize_t size = recv(m_file, m_buffer, std::min(sizeof m_buffer, m_left), 0);
    m_at = 0;
    m_held = static_cast<size_t>(std::max<ssize_t>(size, 0));
    m_left -= m_held;
    return m_held != 0;
}

void BoundedStream::Drain(Clock::time_point end)
{
    constexpr size_t kMostDrained = size_t{1} << 20;
    shutdown(m_file, SHUT_WR);
    m_end = end;
    m_left = kMostDrained;
    while (Fill())
    {
    }
}

ssize_t BoundedStream::write(const char* from, size_t size)
{
    ssize_t sent = -1;
    do
    {
        sent = send(m_file, from, size, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

void BoundedStream::get_remote_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

void BoundedStream::get_local_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

} // namespace nq::tool::view
