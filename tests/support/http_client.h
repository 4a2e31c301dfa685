// SPDX-License-Identifier: Apache-2.0
// Asks a server by HTTP with exactly the bytes of a test, right or wrong ones.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace nq::test
{

/// One connection to a server on this host. Used from one thread.
class HttpClient
{
  public:
    /// `receiveBuffer` is how many bytes the kernel takes for a client that does not read; 0 for its own idea.
    explicit HttpClient(uint16_t port, const std::string& address = "127.0.0.1", int receiveBuffer = 0)
        : m_file(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        if (receiveBuffer != 0)
        {
            setsockopt(m_file, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        }
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(port);
        inet_pton(AF_INET, address.c_str(), &name.sin_addr);
        m_connected = connect(m_file, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    }
    ~HttpClient() { close(m_file); }
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    bool IsConnected() const { return m_connected; }

    /// Sends as many of the bytes as the other side takes.
    void Send(const std::string& bytes) const
    {
        for (size_t at = 0; at < bytes.size();)
        {
            const ssize_t sent = send(m_file, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            if (sent <= 0)
            {
                return;
            }
            at += static_cast<size_t>(sent);
        }
    }

    /// Reads until `enough` says so, the other side ends, or 90 s are over. What was read so far, all in all.
    const std::string& Read(const std::function<bool(const std::string&)>& enough)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(90);
        while (!enough(m_read) && std::chrono::steady_clock::now() < end)
        {
            pollfd readable{m_file, POLLIN, 0};
            char bytes[16384];
            const ssize_t size = poll(&readable, 1, 1000) > 0 ? recv(m_file, bytes, sizeof bytes, 0) : 1;
            if (size <= 0)
            {
                break;
            }
            m_read.append(bytes, readable.revents == 0 ? 0 : static_cast<size_t>(size));
        }
        return m_read;
    }

    /// Waits at most a second for bytes, and reads no more of them than so many. What was read so far, all in all.
    const std::string& ReadSome(size_t most)
    {
        pollfd readable{m_file, POLLIN, 0};
        std::string bytes(most, '\0');
        const ssize_t size = poll(&readable, 1, 1000) > 0 ? recv(m_file, bytes.data(), bytes.size(), 0) : 0;
        return m_read.append(bytes, 0, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }

    /// Everything until the other side ends.
    const std::string& ReadAll()
    {
        return Read([](const std::string&) { return false; });
    }

  private:
    const int m_file;
    bool m_connected = false;
    std::string m_read;
};

/// The whole answer to a request of these bytes.
inline std::string Answer(uint16_t port, const std::string& bytes)
{
    HttpClient client(port);
    client.Send(bytes);
    return client.ReadAll();
}

} // namespace nq::test
