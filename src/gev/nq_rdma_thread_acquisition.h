// SPDX-License-Identifier: Apache-2.0
// The thread that turns endpoint frames into GenTL deliveries.
#pragma once

#include "gentl/nq_gentl_thread_base.h"

#include <atomic>
#include <cstdint>

class NQGevDataStream;

/// Calls NQGevDataStream::AcquireImage until it is told to stop.
///
/// Nothing joins the thread at a stop, because a stop may come from the thread itself. WaitForEnd and the destructor
/// wait for the body: once the endpoint is down, for no longer than the 800 ms it sleeps there at a time.
class NQRMAXThreadAcquisition : public GigERDMA::NQGenTLThreadBase
{
  public:
    /// `stream` is not owned and outlives the object.
    explicit NQRMAXThreadAcquisition(NQGevDataStream* stream);

    /// Stops the body and waits for it. Not to be called on the acquisition thread.
    ~NQRMAXThreadAcquisition() override;
    NQRMAXThreadAcquisition(const NQRMAXThreadAcquisition&) = delete;
    NQRMAXThreadAcquisition& operator=(const NQRMAXThreadAcquisition&) = delete;

    /// The body; thread-bound to the acquisition thread.
    void Run() override;

    /// Asks the body to end and returns without waiting. Thread-safe, also on the acquisition thread.
    void Stop();

    /// Stops the body and waits until it has returned; on the acquisition thread only stops. Thread-safe.
    void WaitForEnd();

    /// If not running, stores the value, clears the stop flag and starts. Thread-safe. Nothing here calls it.
    void StartAcquisition(unsigned long value);

  private:
    bool MustStop() const { return m_stop; }

    NQGevDataStream* m_stream;
    std::atomic<bool> m_stop{false};
    std::uint64_t m_value NQ_GUARDED_BY(m_threadLock) = 0;
};
