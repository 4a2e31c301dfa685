// SPDX-License-Identifier: Apache-2.0
// Creation and end of one POSIX thread.
#include "gentl/CLThread.h"

#include <ctime>

namespace GigERDMA::NQSync
{

/// What a new thread is given, and owns.
struct thread::Start
{
    void (*function)(void*);
    void* argument;
    Flag finished;
};

thread::thread(void (*function)(void*), void* argument)
    : m_finished(std::make_shared<std::atomic<bool>>(false)), m_function(function), m_argument(argument)
{
    auto start = std::make_unique<Start>(Start{m_function, m_argument, m_finished});
    pthread_t handle = 0;
    if (pthread_create(&handle, nullptr, wrapper_function, start.get()) == 0)
    {
        m_handle = handle;
        static_cast<void>(start.release());
        return;
    }
    *m_finished = true;
}

thread::~thread()
{
    if (m_handle != 0 && !m_origin.IsInherited())
    {
        pthread_detach(m_handle);
    }
}

void* thread::wrapper_function(void* start) noexcept
{
    const std::unique_ptr<Start> own(static_cast<Start*>(start));
    own->function(own->argument);
    *own->finished = true;
    own->finished->notify_all();
    return nullptr;
}

void thread::join()
{
    // Deliberate(FinishedIsNotJoined): a function that has returned is not joined, so that a join never waits for a
    // thread on its way out; the destructor detaches it, so nothing leaks.
    if (!IsFinished() && !IsCurrent())
    {
        JoinOnce();
    }
}

void thread::timedjoin(long long milliseconds)
{
    if (IsFinished())
    {
        return;
    }
    const pthread_t handle = m_handle.exchange(0);
    if (handle == 0)
    {
        return;
    }
    // Deliberate(TimedJoinNeverWaits): the time goes in as if it were an instant, which lies in the past: who gives a
    // thread up with a time limit is not to be held by it. The thread is given up all the same.
    timespec instant{};
    instant.tv_sec = milliseconds / 1000;
    instant.tv_nsec = milliseconds % 1000 * 1000000;
    pthread_timedjoin_np(handle, nullptr, &instant);
}

bool thread::IsFinished() const
{
    return m_origin.IsInherited() || *m_finished;
}

bool thread::IsCurrent() const
{
    return m_handle != 0 && !m_origin.IsInherited() && pthread_equal(m_handle, pthread_self()) != 0;
}

void thread::WaitUntilGone()
{
    if (m_origin.IsInherited() || IsCurrent())
    {
        return;
    }
    m_finished->wait(false);
    JoinOnce();
}

void thread::JoinOnce()
{
    const pthread_t handle = m_handle.exchange(0);
    if (handle != 0)
    {
        pthread_join(handle, nullptr);
    }
}

} // namespace GigERDMA::NQSync
