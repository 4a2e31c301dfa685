// SPDX-License-Identifier: Apache-2.0
// Remote control of the cameras of one program.
#pragma once

#include "listening_path.h"
#include "unique_fd.h"
#include "virtual_camera.h"
#include "wake_event.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace nq::camera
{

/// A UNIX stream socket that takes one JSON object per line and answers each with one line. See README.md for the
/// commands. Serves its clients on one thread, from construction to destruction, and waits for none of them: who does
/// not read gets no further answer, and when there are too many, who has been quiet for longest is hung up on.
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
        /// Rest of an answer. No line is answered before it has left.
        std::string unsent;
        /// When something last happened, counted by m_uses.
        std::uint64_t lastUse = 0;
    };

    void Run();
    void AcceptClient();
    bool DropQuietest();
    bool Serve(Client& client);
    static bool Receive(Client& client);
    static bool Flush(Client& client);

    const std::vector<std::unique_ptr<VirtualCamera>>& m_cameras;
    ListeningPath m_listener;
    std::map<int, Client> m_clients;
    std::uint64_t m_uses = 0;
    /// No descriptor was left for a client.
    bool m_acceptLater = false;
    WakeEvent m_wake;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace nq::camera
