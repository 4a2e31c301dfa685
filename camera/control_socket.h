// SPDX-License-Identifier: Apache-2.0
// Remote control of the cameras of one program.
#pragma once

#include "unique_fd.h"
#include "virtual_camera.h"
#include "wake_event.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace nq::camera
{

/// A UNIX stream socket that takes one JSON object per line and answers each with one line. See README.md for the
/// commands. Serves any number of clients on one thread, from construction to destruction.
class ControlSocket
{
  public:
    /// Listens at `path`, which is removed again at the end. Throws std::system_error. The cameras must outlive it.
    ControlSocket(std::string path, const std::vector<std::unique_ptr<VirtualCamera>>& cameras);
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

  private:
    struct Client
    {
        UniqueFd fd;
        std::string received;
    };

    void Run();
    void AcceptClient();
    bool Serve(Client& client) const;
    std::string Answer(const std::string& line) const;

    const std::string m_path;
    const std::vector<std::unique_ptr<VirtualCamera>>& m_cameras;
    UniqueFd m_listener;
    std::map<int, Client> m_clients;
    WakeEvent m_wake;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace nq::camera
