// SPDX-License-Identifier: Apache-2.0
// A program started by a test, ended with the object.
#include "support/child_process.h"

#include "support/network.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace nq::test
{

namespace
{

using Clock = std::chrono::steady_clock;

std::vector<char*> Pointers(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (const std::string& text : texts)
    {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// What this process has, and `more`, which counts where both have a name: of a name that stands twice some programs
/// take the first and some the last.
std::vector<std::string> FullEnvironment(const std::vector<std::string>& more)
{
    std::vector<std::string> all = more;
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string inherited = *entry;
        const std::string name = inherited.substr(0, inherited.find('=') + 1);
        if (std::none_of(more.begin(), more.end(), [&](const std::string& given) { return given.rfind(name, 0) == 0; }))
        {
            all.push_back(inherited);
        }
    }
    return all;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                           const Host* host)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    const std::vector<std::string> all = FullEnvironment(environment);
    const std::vector<char*> argv = Pointers(arguments);
    const std::vector<char*> envp = Pointers(all);
    const auto spawn = [&] {
        m_pid = fork();
        if (m_pid == 0)
        {
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            execvpe(argv[0], argv.data(), envp.data());
            _exit(127);
        }
    };
    if (host != nullptr)
    {
        host->Run(spawn);
    }
    else
    {
        spawn();
    }
    close(ends[1]);
    m_pipe = ends[0];
}

ChildProcess::~ChildProcess()
{
    if (!m_ended)
    {
        Signal(SIGTERM);
        if (WaitForExit(std::chrono::seconds(5)) == -1)
        {
            Signal(SIGKILL);
            WaitForExit(std::chrono::seconds(5));
        }
    }
    close(m_pipe);
}

bool ChildProcess::ReadMore(std::chrono::milliseconds timeout)
{
    pollfd poller{m_pipe, POLLIN, 0};
    if (poll(&poller, 1, static_cast<int>(timeout.count())) <= 0)
    {
        return false;
    }
    char block[4096];
    const ssize_t count = read(m_pipe, block, sizeof block);
    if (count <= 0)
    {
        return false;
    }
    m_output.append(block, static_cast<size_t>(count));
    return true;
}

bool ChildProcess::WaitForOutput(const std::string& text, std::chrono::milliseconds timeout)
{
    const auto end = Clock::now() + timeout;
    while (m_output.find(text) == std::string::npos)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0 || !ReadMore(left))
        {
            return false;
        }
    }
    return true;
}

int ChildProcess::WaitForExit(std::chrono::milliseconds timeout)
{
    const auto end = Clock::now() + timeout;
    while (!m_ended)
    {
        ReadMore(std::chrono::milliseconds(0));
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid)
        {
            m_ended = true;
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            while (ReadMore(std::chrono::milliseconds(0)))
            {
            }
            break;
        }
        if (Clock::now() > end)
        {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return m_status;
}

void ChildProcess::Signal(int number) const
{
    if (!m_ended)
    {
        kill(m_pid, number);
    }
}

} // namespace nq::test
