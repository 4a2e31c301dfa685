// SPDX-License-Identifier: Apache-2.0
// What a forked child finds: no lock that a thread of its parent held.
#include "cm/fork.h"

#include "cm/connection.h"
#include "verbs/memory.h"

#include <mutex>
#include <pthread.h>

namespace nq::loopback
{

namespace
{

// The order is that of all other code, so that the engine can finish what it is at.
void BeforeFork()
{
    CmMutex().lock();
    MemoryTable::Instance().Mutex().lock();
}

void InParent()
{
    MemoryTable::Instance().Mutex().unlock();
    CmMutex().unlock();
}

// Made anew, not unlocked: the thread that took them has another number here.
void InChild()
{
    new (&MemoryTable::Instance().Mutex()) std::shared_mutex;
    new (&CmMutex()) std::mutex;
}

} // namespace

void KeepForksSafe()
{
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(BeforeFork, InParent, InChild); });
}

} // namespace nq::loopback
