// SPDX-License-Identifier: Apache-2.0
// A client of the camera's control socket that may behave badly, and a camera that has nothing but this socket.
#pragma once

#include "support/child_process.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace nq::test
{

inline sockaddr_un SocketAddress(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

/// One connection. Throws std::runtime_error when there is none to be had.
class ControlClient
{
  public:
    explicit ControlClient(const std::string& path) : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_un peer = SocketAddress(path);
        if (connect(m_fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0)
        {
            close(m_fd);
            throw std::runtime_error("no connection to " + path);
        }
    }
    ~ControlClient() { close(m_fd); }
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    /// True when all of it was taken at once.
    bool Send(const std::string& bytes) const
    {
        return send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
               static_cast<ssize_t>(bytes.size());
    }

    /// The next line without its end; nothing when the camera hung up or the time is over.
    std::optional<std::string> Line(std::chrono::milliseconds wait = std::chrono::seconds(10)) const
    {
        std::string line;
        pollfd waiting{m_fd, POLLIN, 0};
        char byte = 0;
        while (poll(&waiting, 1, static_cast<int>(wait.count())) == 1 && recv(m_fd, &byte, 1, 0) == 1)
        {
            if (byte == '\n')
            {
                return line;
            }
            line += byte;
        }
        return std::nullopt;
    }

    std::optional<std::string> Ask(const std::string& line) const { return Send(line + "\n") ? Line() : std::nullopt; }

  private:
    int m_fd;
};

/// Cameras on the loopback interface with their control sockets in a folder of their own.
class ControlFolder
{
  public:
    ControlFolder()
    {
        char path[] = "/tmp/nq-test-XXXXXX";
        if (mkdtemp(path) == nullptr)
        {
            throw std::runtime_error("mkdtemp failed");
        }
        m_path = path;
    }
    ~ControlFolder() { std::filesystem::remove_all(m_path); }
    ControlFolder(const ControlFolder&) = delete;
    ControlFolder& operator=(const ControlFolder&) = delete;

    std::string Socket() const { return m_path + "/control"; }

    /// Names of all that lies in the folder.
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
        {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::vector<std::string> Command(const std::string& address = "127.0.0.1",
                                     const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> command{NQ_CAMERA_PATH, "--address", address, "--control", Socket()};
        command.insert(command.end(), more.begin(), more.end());
        return command;
    }

  private:
    std::string m_path;
};

} // namespace nq::test
