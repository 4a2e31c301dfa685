// SPDX-License-Identifier: Apache-2.0
// The one lock of the camera layer.
#include "gige/gige_mutex.h"

namespace GigETL
{

tMutexLock lock;

void tMutexLock::lock()
{
    pthread_mutex_lock(&mMutex);
}

void tMutexLock::unlock()
{
    pthread_mutex_unlock(&mMutex);
}

void tMutexLock::AtForkRenew()
{
    mMutex = PTHREAD_MUTEX_INITIALIZER;
}

} // namespace GigETL
