// SPDX-License-Identifier: Apache-2.0
// The virtual camera's control socket: lines in pieces from several clients, who read, or do not, or hang up.
#include "camera/control_socket.h"
#include "camera/local_interface.h"
#include "camera/virtual_camera.h"
#include "fuzz/fuzz_input.h"
#include "support/network.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

/// Two cameras behind one socket in a folder of this process.
class Cameras
{
  public:
    Cameras()
    {
        for (const char* address : {"127.0.0.1", "127.0.0.2"})
        {
            nq::camera::CameraOptions options;
            options.network = nq::camera::FindInterfaceByAddress(nq::camera::ParseAddress(address));
            options.serial = "S\xFF";
            options.width = 64;
            options.height = 48;
            m_cameras.push_back(std::make_unique<nq::camera::VirtualCamera>(options));
        }
        m_socket = std::make_unique<nq::camera::ControlSocket>(m_folder + "/control", m_cameras);
    }
    ~Cameras()
    {
        m_socket.reset();
        rmdir(m_folder.c_str());
    }

    int Connect() const
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        std::strncpy(place.sun_path, (m_folder + "/control").c_str(), sizeof(place.sun_path) - 1);
        int result = 0;
        do
        {
            result = connect(fd, reinterpret_cast<const sockaddr*>(&place), sizeof(place));
        } while (result != 0 && errno == EINTR); // by the fuzzer's timer
        Require(result == 0, "the socket listens", errno);
        return fd;
    }

    void Restart()
    {
        for (const auto& camera : m_cameras)
        {
            for (const nq::camera::FaultInfo& info : nq::camera::kFaults)
            {
                camera->Clear(info.fault);
            }
        }
    }

  private:
    static std::string MakeFolder()
    {
        char path[] = "/tmp/nq-fuzz-XXXXXX";
        Require(mkdtemp(path) != nullptr, "a folder can be made");
        return path;
    }

    const std::string m_folder = MakeFolder();
    std::vector<std::unique_ptr<nq::camera::VirtualCamera>> m_cameras;
    std::unique_ptr<nq::camera::ControlSocket> m_socket;
};

/// One connection of the run.
class Client
{
  public:
    explicit Client(const Cameras& cameras) : m_fd(cameras.Connect()) {}
    ~Client() { close(m_fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Send(const std::string& bytes) const
    {
        // A client that does not read is not listened to in the end.
        static_cast<void>(send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
    }

    /// Takes what is there; false when the camera hung up. Every whole line is a JSON object that says whether the
    /// command was good.
    bool Read()
    {
        std::array<char, 4096> block;
        const ssize_t size = recv(m_fd, block.data(), block.size(), MSG_DONTWAIT);
        m_received.append(block.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
        for (std::size_t end = 0; (end = m_received.find('\n')) != std::string::npos; m_received.erase(0, end + 1))
        {
            const auto answer = nlohmann::json::parse(m_received.substr(0, end), nullptr, false);
            Require(answer.is_object() && answer.contains("ok") && answer["ok"].is_boolean(), "an answer is an object");
            Require(answer["ok"] != answer.contains("error"), "what failed says why");
            ++m_answers;
        }
        return size != 0;
    }

    /// Waits for the next answer; the fuzzer ends a run that takes too long.
    bool HearsAnswer()
    {
        const int before = m_answers;
        pollfd waiting{m_fd, POLLIN, 0};
        bool open = true;
        while (open && m_answers == before)
        {
            // The fuzzer's timer interrupts waits.
            open = poll(&waiting, 1, -1) < 0 ? errno == EINTR : Read();
        }
        return m_answers != before;
    }

  private:
    int m_fd;
    std::string m_received;
    int m_answers = 0;
};

void Step(const Cameras& cameras, std::array<std::unique_ptr<Client>, 3>& clients, FuzzInput& input)
{
    auto& client = clients[input.Below(clients.size())];
    switch (input.Below(4))
    {
    case 0:
        client.reset();
        break;
    case 1:
        if (client)
        {
            static_cast<void>(client->Read());
        }
        break;
    default:
        if (!client)
        {
            client = std::make_unique<Client>(cameras);
        }
        client->Send(input.Text(input.Byte()) + (input.Flag() ? "\n" : ""));
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    nq::test::EnterPrivateNetwork();
    nq::test::Shell("ip address add 127.0.0.2/8 dev lo");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Cameras cameras;
    cameras.Restart();
    std::array<std::unique_ptr<Client>, 3> clients;
    FuzzInput input(data, size);
    for (int step = 0; step < 40 && !input.Empty(); ++step)
    {
        Step(cameras, clients, input);
    }
    // Whatever the others did, one who asks is answered; behind his answer, what they sent has been executed.
    Client last(cameras);
    last.Send("{\"cmd\":\"status\"}\n");
    Require(last.HearsAnswer(), "one who asks is answered");
    return 0;
}
