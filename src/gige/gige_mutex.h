// SPDX-License-Identifier: Apache-2.0
// The one lock of the camera layer.
#pragma once

#include "gige/nq_mutex.h"

#include <pthread.h>

namespace GigETL
{

/// A plain, non-recursive mutex with default attributes. Use it through NQLock.
class NQ_CAPABILITY("mutex") tMutexLock
{
  public:
    tMutexLock();
    ~tMutexLock();
    tMutexLock(const tMutexLock&) = delete;
    tMutexLock& operator=(const tMutexLock&) = delete;

    void lock() NQ_ACQUIRE();
    void unlock() NQ_RELEASE();

  private:
    pthread_mutex_t mMutex;
};

/// Held from the building of a command to the check of its answer, for all cameras: request ids are matched against the
/// process's newest one. A thread must not take it twice.
extern tMutexLock lock;

} // namespace GigETL
