// SPDX-License-Identifier: Apache-2.0
// The signals that ask a verb to end: the first one ends it cleanly, a second one at once.
#include "stop_signals.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <ctime>

namespace nq::tool
{

namespace
{

constexpr int64_t kOneRequestMs = 200;

std::atomic<int> g_stop{0};
std::atomic<int64_t> g_stopMs{0}; ///< when it came

int64_t NowMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now); // a signal handler may call it
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void OnStop(int number)
{
    const int64_t now = NowMs();
    int64_t first = 0;
    g_stopMs.compare_exchange_strong(first, now); // before the other: a second thread may be in here at the same time
    int none = 0;
    const bool isFirst = g_stop.compare_exchange_strong(none, number);
    // `timeout` signals its child and then the group of both, which is one request to stop.
    if (!isFirst && (number != none || now - g_stopMs >= kOneRequestMs))
    {
        std::signal(number, SIG_DFL);
        std::raise(number); // takes effect when this handler returns
    }
}

} // namespace

void CatchStopSignals()
{
    for (const int number : {SIGINT, SIGTERM, SIGQUIT})
    {
        std::signal(number, OnStop);
    }
    if (std::signal(SIGHUP, OnStop) == SIG_IGN)
    {
        std::signal(SIGHUP, SIG_IGN); // the user asked by nohup
    }
    std::signal(SIGXFSZ, SIG_IGN);
}

bool StopAsked()
{
    return g_stop != 0;
}

void EndIfStopAsked(const std::string& text)
{
    if (StopAsked())
    {
        throw ToolFailure(StopCode(), text);
    }
}

ExitCode StopCode()
{
    constexpr int kSignalled = 128;
    return static_cast<ExitCode>(kSignalled + g_stop);
}

} // namespace nq::tool
