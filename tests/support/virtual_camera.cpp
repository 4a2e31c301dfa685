// SPDX-License-Identifier: Apache-2.0
// The virtual camera on a host of its own, one virtual cable away from the test.
#include "support/virtual_camera.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace nq::test
{

namespace
{

std::string MakeFolder()
{
    char path[] = "/tmp/nq-test-XXXXXX";
    if (mkdtemp(path) == nullptr)
    {
        throw std::runtime_error("mkdtemp failed");
    }
    return path;
}

/// The library gives a camera 100 ms for some answers, and on a machine under load an ordinary thread may get no
/// processor for longer. Where this is refused, a case has to be lucky.
void AnswerAtOnce(pid_t camera)
{
    const sched_param priority{.sched_priority = 1};
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(camera) + "/task"))
    {
        std::string name;
        std::ifstream(thread.path() / "comm") >> name;
        if (name == "gvcp")
        {
            sched_setscheduler(std::stoi(thread.path().filename()), SCHED_RR | SCHED_RESET_ON_FORK, &priority);
        }
    }
}

} // namespace

std::string RdmaFolder()
{
    static const std::string kFolder = [] {
        const std::string made = MakeFolder();
        setenv("NQ_RDMA_LOOPBACK_DIR", made.c_str(), 1);
        std::atexit([] {
            std::error_code ignored; // an exception would end a test that has passed
            std::filesystem::remove_all(std::getenv("NQ_RDMA_LOOPBACK_DIR"), ignored);
        });
        return made;
    }();
    return kFolder;
}

VirtualCamera::VirtualCamera(const std::vector<std::string>& arguments) : m_folder(MakeFolder())
{
    m_host.Connect("host0", "10.77.0.1/24", "cam0", std::string(kAddress) + "/24");
    // LD_PRELOAD would split a path with a space or a colon.
    std::filesystem::create_symlink(NQ_LOOPBACK_PATH, m_folder + "/rdma.so");
    m_command = {NQ_CAMERA_PATH, "--address", kAddress, "--control", ControlPath()};
    m_command.insert(m_command.end(), arguments.begin(), arguments.end());
    Start();
}

void VirtualCamera::Start()
{
    m_process = std::make_unique<ChildProcess>(m_command, Environment(), &m_host);
    if (!m_process->WaitForOutput("ready", std::chrono::seconds(60)))
    {
        throw std::runtime_error("the virtual camera did not become ready:\n" + m_process->Output());
    }
    AnswerAtOnce(m_process->Pid());
}

void VirtualCamera::Kill()
{
    m_process->Signal(SIGKILL);
    m_process->WaitForExit(std::chrono::seconds(20));
    m_process.reset();
}

VirtualCamera::~VirtualCamera()
{
    m_process.reset();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::vector<std::string> VirtualCamera::Environment() const
{
    return {"LD_PRELOAD=" + m_folder + "/rdma.so", "NQ_RDMA_LOOPBACK_DIR=" + RdmaFolder()};
}

std::string VirtualCamera::Control(const std::string& line) const
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un peer{};
    peer.sun_family = AF_UNIX;
    const std::string path = ControlPath();
    std::memcpy(peer.sun_path, path.c_str(), path.size() + 1);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0)
    {
        close(fd);
        throw std::runtime_error("no connection to the camera's control socket");
    }
    const std::string sent = line + "\n";
    std::string answer;
    if (send(fd, sent.data(), sent.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sent.size()))
    {
        char byte = 0;
        while (recv(fd, &byte, 1, 0) == 1 && byte != '\n')
        {
            answer += byte;
        }
    }
    close(fd);
    return answer;
}

void VirtualCamera::Fault(const std::string& name) const
{
    const std::string answer = Control(R"({"fault":")" + name + R"("})");
    if (answer.find("error") != std::string::npos || answer.empty())
    {
        throw std::runtime_error("the camera refused the fault " + name + ": " + answer);
    }
}

bool VirtualCamera::HasStruck(const std::string& fault) const
{
    return Control(R"({"cmd":"status"})").find("\"" + fault + R"(":{"armed":false,"strikes":)") != std::string::npos;
}

} // namespace nq::test
