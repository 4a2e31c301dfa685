// SPDX-License-Identifier: Apache-2.0
// Functions that stand in front of those of the C library and of libibverbs, for every library of the process.
#include "call_counts.h"

#include "code_range.h"

#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <fstream>
#include <infiniband/verbs.h>
#include <linux/perf_event.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace nq::bench
{

namespace
{

using Clock = std::chrono::steady_clock;

CodeRange g_counted;
std::atomic<std::uint64_t> g_locks{0};
std::atomic<std::uint64_t> g_notifies{0};
std::atomic<std::uint64_t> g_waits{0};
std::atomic<Clock::rep> g_completion{0};
int g_syscalls = -1;

/// Calls the function of this name behind the one here, which is found at the first call.
template <typename... Parameters>
int PassOn(std::atomic<void*>& known, const char* name, Parameters... arguments)
{
    void* function = known.load(std::memory_order_relaxed);
    if (function == nullptr)
    {
        function = dlsym(RTLD_NEXT, name);
        known.store(function, std::memory_order_relaxed);
    }
    return reinterpret_cast<int (*)(Parameters...)>(function)(arguments...);
}

void Count(std::atomic<std::uint64_t>& counter, const void* caller)
{
    if (g_counted.Holds(caller))
    {
        counter.fetch_add(1, std::memory_order_relaxed);
    }
}

} // namespace

void CallCounts::CountSyscalls()
{
    std::uint64_t tracepoint = 0;
    if (!(std::ifstream("/sys/kernel/tracing/events/raw_syscalls/sys_enter/id") >> tracepoint))
    {
        return;
    }
    perf_event_attr attributes{};
    attributes.type = PERF_TYPE_TRACEPOINT;
    attributes.size = sizeof attributes;
    attributes.config = tracepoint;
    attributes.inherit = 1;
    g_syscalls = static_cast<int>(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
}

void CallCounts::CountCallsOf(const std::string& part)
{
    g_counted.Take(part);
}

CallCounts CallCounts::Now()
{
    std::uint64_t syscalls = 0;
    if (g_syscalls < 0 || read(g_syscalls, &syscalls, sizeof syscalls) != sizeof syscalls)
    {
        syscalls = 0;
    }
    return {g_locks, g_notifies, g_waits, syscalls};
}

double CallCounts::SinceCompletion()
{
    const Clock::duration told(g_completion.load());
    return std::chrono::duration<double, std::micro>(Clock::now().time_since_epoch() - told).count();
}

} // namespace nq::bench

/// Defines a function that counts its calls and passes them on.
#define NQ_COUNTED(counter, name, parameters, ...)                                                                     \
    extern "C" __attribute__((visibility("default"))) int name parameters                                              \
    {                                                                                                                  \
        static std::atomic<void*> known{nullptr};                                                                      \
        nq::bench::Count(nq::bench::counter, __builtin_return_address(0));                                             \
        return nq::bench::PassOn(known, #name, __VA_ARGS__);                                                           \
    }

NQ_COUNTED(g_locks, pthread_mutex_lock, (pthread_mutex_t * mutex) noexcept, mutex)
NQ_COUNTED(g_notifies, pthread_cond_signal, (pthread_cond_t * condition) noexcept, condition)
NQ_COUNTED(g_notifies, pthread_cond_broadcast, (pthread_cond_t * condition) noexcept, condition)
NQ_COUNTED(g_waits, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex), condition, mutex)
NQ_COUNTED(g_waits, pthread_cond_timedwait,
           (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* deadline), condition, mutex, deadline)
NQ_COUNTED(g_waits, pthread_cond_clockwait,
           (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* deadline), condition,
           mutex, clock, deadline)

extern "C" __attribute__((visibility("default"))) int ibv_get_cq_event(ibv_comp_channel* channel, ibv_cq** queue,
                                                                       void** context)
{
    static std::atomic<void*> known{nullptr};
    const int result = nq::bench::PassOn(known, "ibv_get_cq_event", channel, queue, context);
    nq::bench::g_completion = std::chrono::steady_clock::now().time_since_epoch().count();
    return result;
}
