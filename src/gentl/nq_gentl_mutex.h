// SPDX-License-Identifier: Apache-2.0
// The framework's recursive mutex, its guard and its condition, which release what they hold on every way out.
#pragma once

#include "sync/nq_mutex.h"

#include <ctime>
#include <pthread.h>
#include <system_error>

namespace GigERDMA
{

/// A recursive pthread mutex. Any thread may use it; the thread that locked it n times unlocks it n times.
class NQ_CAPABILITY("mutex") NQGenTLMutex
{
  public:
    /// Throws std::system_error if the system refuses the mutex.
    NQGenTLMutex()
    {
        pthread_mutexattr_t attributes;
        Check(pthread_mutexattr_init(&attributes));
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        const int error = pthread_mutex_init(&m_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
        Check(error);
    }
    ~NQGenTLMutex() { pthread_mutex_destroy(&m_mutex); }
    NQGenTLMutex(const NQGenTLMutex&) = delete;
    NQGenTLMutex& operator=(const NQGenTLMutex&) = delete;

    void Lock() NQ_ACQUIRE() { pthread_mutex_lock(&m_mutex); }
    void Unlock() NQ_RELEASE() { pthread_mutex_unlock(&m_mutex); }

  private:
    friend class NQGenTLCondition;

    static void Check(int error)
    {
        if (error != 0)
            throw std::system_error(error, std::generic_category());
    }

    pthread_mutex_t m_mutex;
};

/// Holds a mutex from construction to destruction.
class NQ_SCOPED_CAPABILITY NQGenTLLock
{
  public:
    explicit NQGenTLLock(NQGenTLMutex& mutex) NQ_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~NQGenTLLock() NQ_RELEASE() { m_mutex.Unlock(); }
    NQGenTLLock(const NQGenTLLock&) = delete;
    NQGenTLLock& operator=(const NQGenTLLock&) = delete;

  private:
    NQGenTLMutex& m_mutex;
};

/// A condition with default attributes.
class NQGenTLCondition
{
  public:
    NQGenTLCondition() { NQGenTLMutex::Check(pthread_cond_init(&m_condition, nullptr)); }
    ~NQGenTLCondition() { pthread_cond_destroy(&m_condition); }
    NQGenTLCondition(const NQGenTLCondition&) = delete;
    NQGenTLCondition& operator=(const NQGenTLCondition&) = delete;

    /// Wakes one waiter, if there is any.
    void Signal() { pthread_cond_signal(&m_condition); }

    /// Sleeps until woken; may also wake without a signal. `mutex` is held exactly once by the caller. 0 or an errno.
    int Wait(NQGenTLMutex& mutex) NQ_REQUIRES(mutex) { return pthread_cond_wait(&m_condition, &mutex.m_mutex); }

    /// As Wait, but no longer than `deadline`, an instant of CLOCK_MONOTONIC; ETIMEDOUT when it has passed.
    int WaitUntil(NQGenTLMutex& mutex, const timespec& deadline) NQ_REQUIRES(mutex)
    {
        return pthread_cond_clockwait(&m_condition, &mutex.m_mutex, CLOCK_MONOTONIC, &deadline);
    }

  private:
    pthread_cond_t m_condition;
};

static_assert(sizeof(NQGenTLMutex) == sizeof(pthread_mutex_t));
static_assert(sizeof(NQGenTLCondition) == sizeof(pthread_cond_t));

} // namespace GigERDMA
