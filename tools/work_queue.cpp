// SPDX-License-Identifier: Apache-2.0
// Jobs done by threads of their own, behind a bounded queue.
#include "work_queue.h"

#include "exit_codes.h"

#include <chrono>
#include <csignal>
#include <pthread.h>
#include <string>
#include <system_error>
#include <utility>

namespace nq::tool
{

WorkQueue::WorkQueue(size_t threads, size_t bound) : m_bound(bound)
{
    // Signals are for the thread that waits for frames.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_threads.reserve(threads);
    std::string problem;
    try
    {
        while (m_threads.size() < threads)
        {
            m_threads.emplace_back([this] { Work(); });
        }
    }
    catch (const std::system_error& refused)
    {
        problem = refused.code().message();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (m_threads.empty())
    {
        throw ToolFailure(ExitCode::Failure, "cannot start a thread: " + problem);
    }
}

bool WorkQueue::Add(std::function<void()> job, const std::function<bool()>& givesUp)
{
    constexpr std::chrono::milliseconds kSlice{200};
    std::unique_lock lock(m_mutex);
    m_waits += m_jobs.size() < m_bound ? 0 : 1;
    while (!m_changed.wait_for(lock, kSlice, [this] { return m_jobs.size() < m_bound; }))
    {
        if (givesUp())
        {
            return false;
        }
    }
    m_jobs.push_back(std::move(job));
    m_changed.notify_all();
    return true;
}

void WorkQueue::Finish()
{
    {
        const std::lock_guard lock(m_mutex);
        m_finishing = true;
        m_changed.notify_all();
    }
    for (std::thread& thread : std::exchange(m_threads, {}))
    {
        thread.join();
    }
}

void WorkQueue::Work()
{
    std::unique_lock lock(m_mutex);
    while (true)
    {
        m_changed.wait(lock, [this] { return !m_jobs.empty() || m_finishing; });
        if (m_jobs.empty())
        {
            return;
        }
        const std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        m_changed.notify_all();
        lock.unlock();
        job();
        lock.lock();
    }
}

} // namespace nq::tool
