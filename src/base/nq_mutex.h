// SPDX-License-Identifier: Apache-2.0
// Mutexes, a guard and a condition that Clang's thread-safety analysis understands, and the words to annotate with. A
// forked child finds all of them free, without waiters.
#pragma once

#include "base/nq_fork.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

#if defined(__clang__)
#define NQ_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define NQ_THREAD_ANNOTATION(attribute)
#endif
#define NQ_CAPABILITY(name) NQ_THREAD_ANNOTATION(capability(name))
#define NQ_SCOPED_CAPABILITY NQ_THREAD_ANNOTATION(scoped_lockable)
#define NQ_GUARDED_BY(mutex) NQ_THREAD_ANNOTATION(guarded_by(mutex))
#define NQ_POINTEE_GUARDED_BY(mutex) NQ_THREAD_ANNOTATION(pt_guarded_by(mutex))
#define NQ_ACQUIRE(...) NQ_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define NQ_RELEASE(...) NQ_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NQ_REQUIRES(...) NQ_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))

/// A standard mutex under an annotated name. Thread-safe.
template <class Standard>
class NQ_CAPABILITY("mutex") NQMutexOf
{
  public:
    explicit NQMutexOf(NQHeld held = NQHeld::Briefly) : m_hook(*this, held) {}
    NQMutexOf(const NQMutexOf&) = delete;
    NQMutexOf& operator=(const NQMutexOf&) = delete;

    void lock() NQ_ACQUIRE() { m_mutex.lock(); }
    void unlock() NQ_RELEASE() { m_mutex.unlock(); }

  private:
    friend class NQCondition;
    friend class NQForkHook;

    bool AtForkLock() { return NQForkHook::TakeSoon(m_mutex.native_handle()); }
    void AtForkUnlock() { m_mutex.unlock(); }
    void AtForkRenew() { new (&m_mutex) Standard; }

    Standard m_mutex;
    NQForkHook m_hook;
};

using NQMutex = NQMutexOf<std::mutex>;
using NQRecursiveMutex = NQMutexOf<std::recursive_mutex>;

/// Holds a mutex from construction to destruction, but for the time between an unlock() and a lock(). Reentrant.
template <class Mutex>
class NQ_SCOPED_CAPABILITY NQLock
{
  public:
    explicit NQLock(Mutex& mutex) NQ_ACQUIRE(mutex) : m_lock(mutex) {}
    ~NQLock() NQ_RELEASE() = default;
    NQLock(const NQLock&) = delete;
    NQLock& operator=(const NQLock&) = delete;

    void lock() NQ_ACQUIRE() { m_lock.lock(); }
    void unlock() NQ_RELEASE() { m_lock.unlock(); }

  private:
    std::unique_lock<Mutex> m_lock;
};

/// A condition for NQMutex. Thread-safe. Waits may also end without a notification.
class NQCondition
{
  public:
    NQCondition() : m_hook(*this) {}
    NQCondition(const NQCondition&) = delete;
    NQCondition& operator=(const NQCondition&) = delete;

    void NotifyAll() { m_condition.notify_all(); }

    void Wait(NQMutex& mutex) NQ_REQUIRES(mutex)
    {
        std::unique_lock held(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(held);
        held.release();
    }

    template <class Clock, class Duration>
    void WaitUntil(NQMutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline) NQ_REQUIRES(mutex)
    {
        std::unique_lock held(mutex.m_mutex, std::adopt_lock);
        m_condition.wait_until(held, deadline);
        held.release();
    }

  private:
    friend class NQForkHook;

    void AtForkRenew() { new (&m_condition) std::condition_variable; }

    std::condition_variable m_condition;
    NQForkHook m_hook;
};
