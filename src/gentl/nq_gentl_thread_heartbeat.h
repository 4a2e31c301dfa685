// SPDX-License-Identifier: Apache-2.0
// The thread that calls a camera at half its heartbeat timeout.
#pragma once

#include "gentl/nq_event_handler.h"
#include "gentl/nq_gentl_thread_base.h"

#include <atomic>

namespace GigERDMA
{

/// Calls OnHeartBeat in a steady beat until RequestExit. It can be started again after Wait. A subclass's destructor
/// requests the exit and waits.
class NQGenTLThreadHeartbeat : public NQGenTLThreadBase
{
  public:
    NQGenTLThreadHeartbeat();

    using NQGenTLThreadBase::Start;

    /// Starts with a beat every half `timeoutMs` milliseconds, the first after half a timeout. 0 beats without a pause.
    /// False when running.
    bool Start(unsigned long timeoutMs);

    void Run() override;

    /// One beat; thread-bound to the heartbeat thread. May call RequestExit.
    virtual void OnHeartBeat() = 0;

    /// Ends the thread before its next beat. Thread-safe, also on the heartbeat thread.
    void RequestExit();

  private:
    NQEventHandler m_exit;

    /// Written under the thread lock, but read without it: a Wait right after Start holds that lock until Run ends.
    std::atomic<unsigned long> m_timeoutMs = 0;
};

} // namespace GigERDMA
