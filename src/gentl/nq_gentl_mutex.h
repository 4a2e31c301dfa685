// SPDX-License-Identifier: Apache-2.0
// The framework's recursive mutex, its guard and its condition, which release what they hold on every way out.
#pragma once

#include "base/nq_mutex.h"

#include <ctime>
#include <pthread.h>

namespace GigERDMA
{

/// A recursive pthread mutex. Thread-safe; the thread that locked it n times unlocks it n times.
class NQ_CAPABILITY("mutex") NQGenTLMutex
{
  public:
    explicit NQGenTLMutex(NQHeld held = NQHeld::Briefly) : m_hook(*this, held) {}
    NQGenTLMutex(const NQGenTLMutex&) = delete;
    NQGenTLMutex& operator=(const NQGenTLMutex&) = delete;

    void Lock() NQ_ACQUIRE() { pthread_mutex_lock(&m_native.mutex); }
    void Unlock() NQ_RELEASE() { pthread_mutex_unlock(&m_native.mutex); }

  private:
    friend class NQGenTLCondition;
    friend class ::NQForkHook;

    struct Native
    {
        ~Native() { pthread_mutex_destroy(&mutex); }

        pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    };

    bool AtForkLock() { return NQForkHook::TakeSoon(&m_native.mutex); }
    void AtForkUnlock() { pthread_mutex_unlock(&m_native.mutex); }
    void AtForkRenew() { m_native.mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP; }

    Native m_native;
    NQForkHook m_hook;
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

/// A condition with default attributes. Thread-safe.
class NQGenTLCondition
{
  public:
    NQGenTLCondition() : m_hook(*this) {}
    ~NQGenTLCondition() { pthread_cond_destroy(&m_condition); }
    NQGenTLCondition(const NQGenTLCondition&) = delete;
    NQGenTLCondition& operator=(const NQGenTLCondition&) = delete;

    /// Wakes one waiter, if there is any.
    void Signal() { pthread_cond_signal(&m_condition); }

    /// Wakes all waiters.
    void SignalAll() { pthread_cond_broadcast(&m_condition); }

    /// Sleeps until woken; may also wake without a signal. `mutex` is held exactly once by the caller. 0 or an errno.
    int Wait(NQGenTLMutex& mutex) NQ_REQUIRES(mutex) { return pthread_cond_wait(&m_condition, &mutex.m_native.mutex); }

    /// As Wait, but no longer than `deadline`, an instant of CLOCK_MONOTONIC; ETIMEDOUT when it has passed.
    int WaitUntil(NQGenTLMutex& mutex, const timespec& deadline) NQ_REQUIRES(mutex)
    {
        return pthread_cond_clockwait(&m_condition, &mutex.m_native.mutex, CLOCK_MONOTONIC, &deadline);
    }

  private:
    friend class ::NQForkHook;

    void AtForkRenew() { m_condition = PTHREAD_COND_INITIALIZER; }

    pthread_cond_t m_condition = PTHREAD_COND_INITIALIZER;
    NQForkHook m_hook;
};

} // namespace GigERDMA
