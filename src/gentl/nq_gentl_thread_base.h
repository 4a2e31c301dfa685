// SPDX-License-Identifier: Apache-2.0
// The base of the framework's worker threads.
#pragma once

#include "gentl/CLThread.h"
#include "gentl/nq_gentl_mutex.h"

#include <memory>

namespace GigERDMA
{

/// A worker is an object whose Run is the body of one thread.
///
///     idle ---Start---> running (body running, or body ended) ---Wait---> idle
///
/// The usual end: make the body return, then Wait. A worker that is not waited for must still not go before its body:
/// its most derived class, whose Run and members the body uses, calls WaitUntilEnded first in its destructor, after it
/// has told the body to return. The destructor of this class comes too late for that and only detaches.
///
/// Run is thread-bound to the worker's thread; Start, IsRunning, Wait and TimedWait are thread-safe on every other.
class NQGenTLThreadBase
{
  public:
    NQGenTLThreadBase() = default;

    /// Detaches a thread that was not waited for. Does not stop it.
    virtual ~NQGenTLThreadBase();
    NQGenTLThreadBase(const NQGenTLThreadBase&) = delete;
    NQGenTLThreadBase& operator=(const NQGenTLThreadBase&) = delete;

    /// False when started and not yet waited for. True says nothing about whether the system had a thread to give.
    virtual bool Start();

    /// The body, on the worker's thread. What it throws ends the process.
    virtual void Run() = 0;

    /// Started and not yet waited for: stays true after the body has returned.
    bool IsRunning();

    /// Waits until the body has returned. Holds the mutex meanwhile, so the body may use neither it nor this object's
    /// other operations.
    void Wait();

    /// Gives the thread up without waiting, whatever `milliseconds` says.
    void TimedWait(long long milliseconds);

    /// Calls Run of the NQGenTLThreadBase given.
    static void ThreadFunction(void* object);

  protected:
    /// Waits until the body has returned and its thread is gone, without holding the mutex; IsRunning() stays as it is.
    /// Returns at once when nothing was started, and when called on the worker's own thread, which cannot wait for
    /// itself. For destructors of subclasses, and for an owner's restart through a public operation of the subclass.
    /// The body must have been told to return.
    void WaitUntilEnded();

  private:
    std::shared_ptr<NQSync::thread> m_thread NQ_GUARDED_BY(m_threadLock);

  protected:
    NQGenTLMutex m_threadLock{NQHeld::Long}; ///< Guards m_thread, and the start and stop state of subclasses.
};

} // namespace GigERDMA
