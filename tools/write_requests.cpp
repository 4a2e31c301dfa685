// SPDX-License-Identifier: Apache-2.0
// How somebody asks a running grab to write what it keeps.
#include "write_requests.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

constexpr int64_t kNsPerS = 1'000'000'000;

std::atomic<uint64_t> g_requests{0};
std::atomic<int64_t> g_lastNs{0}; ///< when the last one came, on the clock that std::chrono::steady_clock is

void Ask()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now); // a signal handler may call it
    g_lastNs = static_cast<int64_t>(now.tv_sec) * kNsPerS + now.tv_nsec;
    ++g_requests;
}

void OnRequest(int)
{
    Ask();
}

void MaskRequests(int how)
{
    sigset_t requests;
    sigemptyset(&requests);
    sigaddset(&requests, SIGUSR1);
    pthread_sigmask(how, &requests, nullptr);
}

/// Reads what was typed. One who is not in front must not read: the system would stop it.
bool EnterWasPressed()
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (tcgetpgrp(STDIN_FILENO) != getpgrp() || poll(&input, 1, 0) != 1 || (input.revents & POLLIN) == 0)
    {
        return false;
    }
    char typed[256];
    const ssize_t size = read(STDIN_FILENO, typed, sizeof typed); // a line is there
    return size > 0 && std::find(typed, typed + size, '\n') != typed + size;
}

} // namespace

void HoldWriteRequests()
{
    MaskRequests(SIG_BLOCK);
}

void CatchWriteRequests()
{
    std::signal(SIGUSR1, OnRequest);
}

void ReleaseWriteRequests()
{
    MaskRequests(SIG_UNBLOCK);
}

void RequestWrite()
{
    Ask();
}

WriteRequests SeenWriteRequests()
{
    constexpr std::chrono::milliseconds kLook{50};
    static const bool kTerminal = isatty(STDIN_FILENO) != 0;
    static std::mutex mutex; // guards the time
    static std::chrono::steady_clock::time_point next{};
    const std::unique_lock lock(mutex, std::try_to_lock);
    const auto now = std::chrono::steady_clock::now();
    if (kTerminal && lock.owns_lock() && now >= next)
    {
        next = now + kLook;
        if (EnterWasPressed())
        {
            Ask();
        }
    }
    const uint64_t count = g_requests; // before the time, which then is that of this one or of a later one
    return {count, std::chrono::steady_clock::time_point(std::chrono::nanoseconds(g_lastNs))};
}

} // namespace nq::tool
