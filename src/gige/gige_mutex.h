// SPDX-License-Identifier: Apache-2.0
// The one lock of the camera layer.
#pragma once

#include "base/nq_mutex.h"

#include <pthread.h>

namespace GigETL
{

/// A plain, non-recursive mutex with default attributes. Thread-safe. Use it through NQLock. Nothing is destroyed with
/// it: there is nothing to give back, and a heartbeat that nobody ended may still take the lock while the process
/// exits.
class NQ_CAPABILITY("mutex") tMutexLock
{
  public:
    tMutexLock() : mHook(*this) {}
    tMutexLock(const tMutexLock&) = delete;
    tMutexLock& operator=(const tMutexLock&) = delete;

    void lock() NQ_ACQUIRE();
    void unlock() NQ_RELEASE();

  private:
    friend class ::NQForkHook;

    void AtForkRenew();

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    NQForkHook mHook;
};

/// Held from the building of a command to the check of its answer, for all cameras: request ids are matched against the
/// process's newest one. A thread must not take it twice.
extern tMutexLock lock;

} // namespace GigETL
