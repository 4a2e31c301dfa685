// SPDX-License-Identifier: Apache-2.0
// What a process of our own says in a time that has an end.
#include "doctor/hear_child.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

std::string Hear(int pipe, std::chrono::milliseconds patience)
{
    constexpr size_t kMost = size_t{1} << 20;
    std::string heard;
    const auto end = std::chrono::steady_clock::now() + patience;
    for (auto now = end - patience; now < end && heard.size() < kMost; now = std::chrono::steady_clock::now())
    {
        pollfd readable{pipe, POLLIN, 0};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
        if (poll(&readable, 1, static_cast<int>(left.count())) > 0)
        {
            char bytes[4096];
            const ssize_t size = read(pipe, bytes, sizeof bytes);
            if (size <= 0)
            {
                break;
            }
            heard.append(bytes, static_cast<size_t>(size));
        }
    }
    return heard;
}

} // namespace

std::string HearChild(const std::function<void(int pipe)>& body, std::chrono::milliseconds patience)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        return {};
    }
    std::fflush(nullptr); // the child would print it again
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body(ends[1]);
        _exit(0); // what it holds of its parent is not its to clean up
    }
    close(ends[1]);
    std::string heard = child < 0 ? "" : Hear(ends[0], patience);
    close(ends[0]);
    if (child > 0)
    {
        kill(child, SIGKILL); // it has said all, or says nothing
        waitpid(child, nullptr, 0);
    }
    return heard;
}

} // namespace nq::tool::doctor
