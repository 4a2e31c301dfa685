// SPDX-License-Identifier: Apache-2.0
// The thread that fetches the messages of a camera's message channel.
#pragma once

#include "gentl/nq_event_handler.h"
#include "gentl/nq_gentl_thread_base.h"

namespace GigERDMA
{

class NQGenTLMessageStream;

/// Fetches messages until RequestExit, then tears the channel down on its own thread. Used for one run only: its owner
/// deletes it after WaitForExit.
class NQGenTLThreadMessageReceiver : public NQGenTLThreadBase
{
  public:
    /// `stream` is not owned and outlives the run.
    explicit NQGenTLThreadMessageReceiver(NQGenTLMessageStream* stream);
    ~NQGenTLThreadMessageReceiver() override;

    /// Sets the channel up on the calling thread and starts the thread, whether or not that worked. False when running.
    bool Start() override;

    void Run() override;

    /// Ends the thread after the message under way. Thread-safe.
    void RequestExit();

    /// As Wait. Not on the receiver's own thread.
    void WaitForExit();

  private:
    NQEventHandler m_signal;
    NQGenTLMessageStream* const m_stream;
};

} // namespace GigERDMA
