// SPDX-License-Identifier: Apache-2.0
// The wrapper of one POSIX thread.
#pragma once

#include "base/nq_fork.h"

#include <atomic>
#include <memory>
#include <pthread.h>

namespace GigERDMA::NQSync
{

/// Runs a function on a thread of its own from construction on. A body may outlive the object: what the thread needs at
/// its end is shared with it, so a detached thread touches nothing of a destroyed object. What the body itself uses is
/// the business of whoever gave the body.
///
/// A forked child has no such thread: there the object is finished, and nothing waits for it.
///
/// Reentrant, but for IsFinished and WaitUntilGone, which are thread-safe.
class thread
{
  public:
    /// Calls `function` with `argument` on a new thread. When the system refuses the thread, the object is finished and
    /// the function is never called. An exception that leaves the function ends the process.
    thread(void (*function)(void*), void* argument);

    /// Detaches a thread that is still joinable.
    ~thread();
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;

    /// Waits until the thread has ended. Returns at once, without joining, when the function has already returned.
    void join();

    /// Waits for nothing, whatever `milliseconds` says, and gives the thread up: one that still runs is afterwards
    /// neither joined nor detached.
    void timedjoin(long long milliseconds);

    /// Whether the function has returned, or the thread was never made.
    bool IsFinished() const;

    /// Whether the caller is the thread of this object.
    bool IsCurrent() const;

    /// Waits until the function has returned and joins its thread, so that no instruction of it is left to run; of
    /// several callers one joins. Returns at once on the thread itself, and without a thread.
    void WaitUntilGone();

  private:
    /// Shared by the object and its thread. Setting it is the last thing the thread does.
    using Flag = std::shared_ptr<std::atomic<bool>>;
    struct Start;

    static void* wrapper_function(void* start) noexcept;
    void JoinOnce();

    std::atomic<pthread_t> m_handle = 0; ///< 0 when there is no joinable thread.
    Flag m_finished;
    NQOrigin m_origin;
    void (*m_function)(void*);
    void* m_argument;
};

} // namespace GigERDMA::NQSync
