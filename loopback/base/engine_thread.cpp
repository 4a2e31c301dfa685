// SPDX-License-Identifier: Apache-2.0
// The thread on which the engine turns.
#include "base/engine.h"

#include <csignal>
#include <pthread.h>
#include <thread>

namespace nq::loopback
{

void Engine::StartThread()
{
    // The host's signal handlers must not run on a thread that it does not know.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try
    {
        std::thread thread([this] { Run(); });
        pthread_setname_np(thread.native_handle(), "nq-loopback");
        thread.detach();
    }
    catch (...)
    {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Engine::Run()
{
    for (;;)
    {
        Turn(-1);
    }
}

} // namespace nq::loopback
