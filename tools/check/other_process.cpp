// SPDX-License-Identifier: Apache-2.0
// Both sides of a second process.
#include "other_process.h"

#include "tree.h"

#include <charconv>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT(readability-redundant-declaration): not declared by every unistd.h

namespace nq::check
{

namespace
{

constexpr int kOpenMs = 15000;

/// Starts this program with its standard input and output at two pipes' ends.
pid_t Spawn(const Target& target, int input, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    std::string words[] = {"gentl-check", target.path,     "--interface", target.interfaceId,
                           "--device",    target.deviceId, "--hold"};
    std::vector<char*> arguments;
    for (std::string& word : words)
    {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t process = -1;
    const int error = posix_spawn(&process, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? process : -1;
}

/// A line of at most some bytes; empty when none comes in time.
std::string ReadLine(int from)
{
    std::string line;
    pollfd ready{from, POLLIN, 0};
    char byte = 0;
    while (line.size() < 64 && poll(&ready, 1, kOpenMs) == 1 && read(from, &byte, 1) == 1 && byte != '\n')
    {
        line += byte;
    }
    return line;
}

GenTL::GC_ERROR OpenCamera(Context& context)
{
    const Producer& gentl = context.gentl;
    GenTL::TL_HANDLE system = nullptr;
    GenTL::IF_HANDLE interface = nullptr;
    GenTL::DEV_HANDLE device = nullptr;
    Context::Needs(gentl.GCInitLib(), "GCInitLib");
    Context::Needs(gentl.TLOpen(&system), "TLOpen");
    Context::Needs(gentl.TLUpdateInterfaceList(system, nullptr, 1000), "TLUpdateInterfaceList");
    Context::Needs(gentl.TLOpenInterface(system, context.target.interfaceId.c_str(), &interface), "TLOpenInterface");
    Context::Needs(gentl.IFUpdateDeviceList(interface, nullptr, 1000), "IFUpdateDeviceList");
    return gentl.IFOpenDevice(interface, context.target.deviceId.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &device);
}

} // namespace

OtherProcess::OtherProcess(const Target& target)
{
    int input[2] = {-1, -1};
    int output[2] = {-1, -1};
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
    {
        Context::NotTried("no pipes for a second process");
    }
    m_input = input[1];
    m_process = Spawn(target, input[0], output[1]);
    close(input[0]);
    close(output[1]);
    const std::string line = ReadLine(output[0]);
    close(output[0]);
    if (std::from_chars(line.data(), line.data() + line.size(), m_opened).ec != std::errc())
    {
        End();
        Context::NotTried("the second process got no further than opening the interface");
    }
}

OtherProcess::~OtherProcess()
{
    End();
}

void OtherProcess::End() const
{
    close(m_input);
    if (m_process > 0)
    {
        waitpid(m_process, nullptr, 0);
    }
}

int HoldCamera(const Target& target)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // A producer may close or use descriptors that are not its own: standard ones first.
    const int answer = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int wish = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDOUT_FILENO); // what the producer prints is no answer
    CurrentRecord() = new Record();
    void* library = dlopen(target.path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
    {
        return 1;
    }
    Producer producer;
    producer.Resolve(library);
    Context context(producer, target);
    try
    {
        const std::string line = fmt::format("{}\n", OpenCamera(context));
        char byte = 0;
        if (write(answer, line.data(), line.size()) == static_cast<ssize_t>(line.size()))
        {
            while (read(wish, &byte, 1) > 0)
            {
            }
        }
    }
    catch (const RuleEnded&)
    {
        close(answer); // without an answer
    }
    producer.GCCloseLib();
    _exit(0); // threads that the producer leaves are no concern here
}

} // namespace nq::check
