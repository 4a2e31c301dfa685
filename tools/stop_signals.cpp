// SPDX-License-Identifier: Apache-2.0
// The signals that ask a grab to end: the first one ends it cleanly, a second one at once.
#include "stop_signals.h"

#include <atomic>
#include <csignal>

namespace nq::tool
{

namespace
{

std::atomic<int> g_stop{0};

void OnStop(int number)
{
    int none = 0;
    if (!g_stop.compare_exchange_strong(none, number))
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

ExitCode StopCode()
{
    constexpr int signalled = 128;
    return static_cast<ExitCode>(signalled + g_stop);
}

} // namespace nq::tool
