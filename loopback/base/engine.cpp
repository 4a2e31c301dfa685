// SPDX-License-Identifier: Apache-2.0
// The one thread of the loopback: it waits for descriptors and deadlines and calls their handlers.
#include "base/engine.h"

#include "base/error.h"
#include "base/log.h"

#include <algorithm>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <vector>

namespace nq::loopback
{

namespace
{

std::mutex g_instanceMutex;
Engine* g_instance = nullptr;

constexpr uint64_t kWakeKey = 0;

// Out of memory or descriptors: one connection may stall but the host's process goes on.
template <typename Call>
void Guarded(Call&& call)
{
    try
    {
        call();
    }
    catch (const std::exception& error)
    {
        Log("engine: %s", error.what());
    }
}

} // namespace

Engine& Engine::Instance()
{
    const std::lock_guard lock(g_instanceMutex);
    if (g_instance == nullptr)
    {
        [[maybe_unused]] static const int kRegistered = pthread_atfork(nullptr, nullptr, ForgetInChild);
        g_instance = new Engine;
    }
    return *g_instance;
}

void Engine::ForgetInChild()
{
    new (&g_instanceMutex) std::mutex;
    g_instance = nullptr;
}

Engine::Engine() : m_epoll(epoll_create1(EPOLL_CLOEXEC)), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_epoll || !m_wake)
    {
        Throw(errno);
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWakeKey;
    if (epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, m_wake.Get(), &event) != 0)
    {
        Throw(errno);
    }
    StartThread();
}

uint64_t Engine::Register(int fd, const std::shared_ptr<Pollable>& handler)
{
    const std::lock_guard lock(m_mutex);
    m_registrations.emplace(++m_lastKey, Registration{fd, handler});
    return m_lastKey;
}

void Engine::Unregister(uint64_t key)
{
    const std::lock_guard lock(m_mutex);
    m_registrations.erase(key);
}

void Engine::Watch(uint64_t key, int fd, uint32_t before, uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    const int operation = events == 0 ? EPOLL_CTL_DEL : before == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (epoll_ctl(m_epoll.Get(), operation, fd, &event) != 0 && operation != EPOLL_CTL_DEL)
    {
        Throw(errno);
    }
}

void Engine::CallAt(Clock::time_point when, const std::shared_ptr<Pollable>& handler)
{
    {
        const std::lock_guard lock(m_mutex);
        m_timers.emplace(when, handler);
    }
    Wake();
}

void Engine::CallAll()
{
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& entry : m_registrations)
        {
            m_timers.emplace(Clock::time_point::min(), entry.second.handler);
        }
    }
    Wake();
}

void Engine::BreakAll()
{
    std::vector<std::shared_ptr<Pollable>> handlers;
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& entry : m_registrations)
        {
            if (std::shared_ptr<Pollable> handler = entry.second.handler.lock())
            {
                handlers.push_back(std::move(handler));
            }
        }
    }
    for (const std::shared_ptr<Pollable>& handler : handlers)
    {
        handler->OnBreak();
    }
}

void Engine::Wake() const
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake.Get(), &one, sizeof one);
}

int Engine::MillisecondsToNextTimer()
{
    const std::lock_guard lock(m_mutex);
    if (m_timers.empty())
    {
        return -1;
    }
    const Clock::time_point now = Clock::now();
    const Clock::time_point next = m_timers.begin()->first;
    if (next <= now)
    {
        return 0;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    return static_cast<int>(std::min<long long>(left, 60000));
}

void Engine::RunTimers()
{
    std::vector<std::shared_ptr<Pollable>> due;
    {
        const std::lock_guard lock(m_mutex);
        const auto end = m_timers.upper_bound(Clock::now());
        for (auto timer = m_timers.begin(); timer != end; timer = m_timers.erase(timer))
        {
            if (std::shared_ptr<Pollable> handler = timer->second.lock())
            {
                due.push_back(std::move(handler));
            }
        }
    }
    for (const std::shared_ptr<Pollable>& handler : due)
    {
        Guarded([&] { handler->OnTimer(); });
    }
}

void Engine::Dispatch(uint64_t key, uint32_t events)
{
    std::shared_ptr<Pollable> handler;
    int fd = -1;
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_registrations.find(key);
        if (found == m_registrations.end())
        {
            return;
        }
        handler = found->second.handler.lock();
        fd = found->second.fd;
    }
    if (handler)
    {
        Guarded([&] { handler->OnReady(fd, events); });
    }
}

int Engine::Turn(int longest)
{
    const int next = MillisecondsToNextTimer();
    epoll_event events[32];
    const int count =
        epoll_wait(m_epoll.Get(), events, 32, longest < 0 || (next >= 0 && next < longest) ? next : longest);
    for (int index = 0; index < count; ++index)
    {
        if (events[index].data.u64 == kWakeKey)
        {
            uint64_t value = 0;
            [[maybe_unused]] const ssize_t got = read(m_wake.Get(), &value, sizeof value);
        }
        else
        {
            Dispatch(events[index].data.u64, events[index].events);
        }
    }
    RunTimers();
    return count;
}

void Watch::Start(int fd, const std::shared_ptr<Pollable>& handler)
{
    Stop();
    m_key = Engine::Instance().Register(fd, handler);
    m_fd = fd;
}

void Watch::Want(uint32_t events)
{
    if (m_fd >= 0 && events != m_events)
    {
        Engine::Instance().Watch(m_key, m_fd, m_events, events);
        m_events = events;
    }
}

void Watch::Stop()
{
    if (m_fd >= 0)
    {
        Want(0);
        Engine::Instance().Unregister(m_key);
        m_fd = -1;
    }
}

} // namespace nq::loopback
