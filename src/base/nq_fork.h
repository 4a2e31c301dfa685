// SPDX-License-Identifier: Apache-2.0
// What a forked child finds of its parent: locks that nobody holds, and objects that know whose they are.
#pragma once

#include <pthread.h>

/// A number that a forked child does not share with its parent, or its parent's parents. Costs no system call.
/// Thread-safe.
unsigned int NQProcessGeneration();

/// Remembers in which process its owner was made. Reentrant.
class NQOrigin
{
  public:
    /// True in a forked child for what was made before the fork: its threads and connections are those of the parent,
    /// only its memory and its descriptors are the child's.
    bool IsInherited() const { return m_generation != NQProcessGeneration(); }

  private:
    unsigned int m_generation = NQProcessGeneration();
};

/// For how long a mutex is held.
enum class NQHeld
{
    Briefly, ///< for a few instructions: fork() waits for them, and the child finds what the mutex guards in order
    Long     ///< across waits: fork() does not wait; the child only finds the mutex free
};

/// Makes a lock fit for fork(). The lock declares it as its last member, so that a fork on another thread meets whole
/// locks only, and has functions for it alone:
///
///     bool AtForkLock();    takes the lock by TakeSoon()
///     void AtForkUnlock();  gives it back
///     void AtForkRenew();   makes it anew, whoever holds it or waits: that thread does not exist here
class NQForkHook
{
  public:
    template <class Lock>
    NQForkHook(Lock& lock, NQHeld held) : NQForkHook(&lock, held == NQHeld::Briefly ? &Brief<Lock> : &Long<Lock>)
    {
    }

    /// For what a fork does not wait for. Needs the last function only.
    template <class Lock>
    explicit NQForkHook(Lock& lock) : NQForkHook(&lock, &Long<Lock>)
    {
    }

    ~NQForkHook();

    /// Locks the mutex unless that takes long; whether it is locked.
    static bool TakeSoon(pthread_mutex_t* mutex);

    NQForkHook(const NQForkHook&) = delete;
    NQForkHook& operator=(const NQForkHook&) = delete;

  private:
    friend class NQForkHooks;

    enum class Step
    {
        Before,
        InParent,
        InChild
    };

    /// Takes one step for the lock. False when it could not be taken before the fork.
    using Action = bool (*)(void* lock, Step step);

    NQForkHook(void* lock, Action action);

    template <class Lock>
    static bool Brief(void* lock, Step step)
    {
        auto* const self = static_cast<Lock*>(lock);
        switch (step)
        {
        case Step::Before:
            return self->AtForkLock();
        case Step::InParent:
            self->AtForkUnlock();
            return true;
        default:
            self->AtForkRenew();
            return true;
        }
    }

    template <class Lock>
    static bool Long(void* lock, Step step)
    {
        if (step == Step::InChild)
        {
            static_cast<Lock*>(lock)->AtForkRenew();
        }
        return true;
    }

    void* const m_lock;
    const Action m_action;
    bool m_taken = false;
    NQForkHook* m_previous = nullptr;
    NQForkHook* m_next = nullptr;
};
