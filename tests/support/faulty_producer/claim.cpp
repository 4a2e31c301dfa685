// SPDX-License-Identifier: Apache-2.0
// Which process has the camera: a socket with a name that one process alone can have. Each run of a check has a camera
// of its own.
#include "state.h"

#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace nq::faulty
{

namespace
{

std::string ProgramOf(pid_t process)
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/exe", error).string();
}

pid_t ParentOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t end = text.rfind(')');
    return end == std::string::npos ? 0 : static_cast<pid_t>(std::strtol(text.c_str() + end + 3, nullptr, 10));
}

/// The first process of the program that this one belongs to, by which the runs differ.
pid_t FirstOfTheProgram()
{
    pid_t process = getpid();
    const std::string program = ProgramOf(process);
    while (ProgramOf(ParentOf(process)) == program)
    {
        process = ParentOf(process);
    }
    return process;
}

struct Name
{
    sockaddr_un address{};
    socklen_t size = 0;

    Name()
    {
        static const std::string kName = "nq-faulty-camera-" + std::to_string(FirstOfTheProgram());
        address.sun_family = AF_UNIX;
        kName.copy(address.sun_path + 1, kName.size());
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + kName.size());
    }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

} // namespace

bool ClaimCamera()
{
    const Name name;
    const int claim = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(claim, name.Get(), name.size) != 0 || listen(claim, 8) != 0)
    {
        close(claim);
        return false;
    }
    The().claim = claim;
    return true;
}

void ReleaseCamera()
{
    if (The().claim >= 0)
    {
        close(The().claim);
        The().claim = -1;
    }
}

bool CameraIsTaken()
{
    const bool taken = The().claim < 0 && !ClaimCamera();
    if (!taken)
    {
        ReleaseCamera();
    }
    return taken;
}

void DisturbOwner()
{
    if (Fault("second_process_stops_frames"))
    {
        const Name name;
        const int caller = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connect(caller, name.Get(), name.size);
        close(caller);
    }
}

bool OwnerIsDisturbed()
{
    const int caller = The().claim < 0 ? -1 : accept4(The().claim, nullptr, nullptr, SOCK_CLOEXEC);
    if (caller >= 0)
    {
        close(caller);
    }
    return caller >= 0;
}

} // namespace nq::faulty
