// SPDX-License-Identifier: Apache-2.0
// The list of all locks, and what fork() does to them.
#include "base/nq_fork.h"

#include <chrono>
#include <mutex>
#include <new>
#include <pthread.h>
#include <thread>

namespace
{

/// A lock is free soon, unless its holder waits for another lock, which may be one that the fork has taken already:
/// then all are given back for a moment. Whoever does not give way in the end sleeps, and is not waited for.
constexpr int kLooks = 20;
constexpr std::chrono::microseconds kPause{100};
constexpr std::chrono::milliseconds kLimit{500};

unsigned int g_generation = 0; // written in a child while it has one thread

} // namespace

/// All hooks, in no order that matters: before a fork each lock is only tried, so nothing can be locked out for good.
class NQForkHooks
{
  public:
    /// Never destroyed: locks of static objects come and go at either end of the process.
    static NQForkHooks& All()
    {
        static NQForkHooks& all = *new NQForkHooks;
        return all;
    }

    void Add(NQForkHook& hook)
    {
        const std::lock_guard lock(m_mutex);
        hook.m_next = m_first;
        if (m_first != nullptr)
        {
            m_first->m_previous = &hook;
        }
        m_first = &hook;
    }

    void Remove(NQForkHook& hook)
    {
        const std::lock_guard lock(m_mutex);
        (hook.m_previous != nullptr ? hook.m_previous->m_next : m_first) = hook.m_next;
        if (hook.m_next != nullptr)
        {
            hook.m_next->m_previous = hook.m_previous;
        }
    }

  private:
    using Step = NQForkHook::Step;

    NQForkHooks() { pthread_atfork(BeforeFork, InParent, InChild); }

    static void BeforeFork()
    {
        NQForkHooks& all = All();
        all.m_mutex.lock();
        const auto deadline = std::chrono::steady_clock::now() + kLimit;
        while (!all.TakeLocks(std::chrono::steady_clock::now() > deadline))
        {
            all.m_mutex.unlock();
            std::this_thread::sleep_for(kPause);
            all.m_mutex.lock();
        }
    }

    static void InParent()
    {
        NQForkHooks& all = All();
        all.GiveBackLocks(nullptr);
        all.m_mutex.unlock();
    }

    static void InChild()
    {
        NQForkHooks& all = All();
        ++g_generation;
        for (const NQForkHook* hook = all.m_first; hook != nullptr; hook = hook->m_next)
        {
            hook->m_action(hook->m_lock, Step::InChild);
        }
        new (&all.m_mutex) std::mutex;
    }

    /// Takes all locks, or none; with `anyway` those that are free.
    bool TakeLocks(bool anyway)
    {
        for (NQForkHook* hook = m_first; hook != nullptr; hook = hook->m_next)
        {
            hook->m_taken = hook->m_action(hook->m_lock, Step::Before);
            if (!hook->m_taken && !anyway)
            {
                GiveBackLocks(hook);
                return false;
            }
        }
        return true;
    }

    /// Gives back what was taken before `end`.
    void GiveBackLocks(const NQForkHook* end)
    {
        for (NQForkHook* hook = m_first; hook != end; hook = hook->m_next)
        {
            if (hook->m_taken)
            {
                hook->m_action(hook->m_lock, Step::InParent);
            }
        }
    }

    std::mutex m_mutex;
    NQForkHook* m_first = nullptr;
};

unsigned int NQProcessGeneration()
{
    return g_generation;
}

bool NQForkHook::TakeSoon(pthread_mutex_t* mutex)
{
    // Each look after a sleep, so that the holder gets the processor.
    for (int look = 1; pthread_mutex_trylock(mutex) != 0; ++look)
    {
        if (look == kLooks)
        {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

NQForkHook::NQForkHook(void* lock, Action action) : m_lock(lock), m_action(action)
{
    NQForkHooks::All().Add(*this);
}

NQForkHook::~NQForkHook()
{
    NQForkHooks::All().Remove(*this);
}
