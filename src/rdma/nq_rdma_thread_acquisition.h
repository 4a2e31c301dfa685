// SPDX-License-Identifier: Apache-2.0
// The thread that turns endpoint frames into GenTL deliveries.
// Layer exception: derives from the framework's thread base and calls the data stream it works for.
#pragma once

#include "gentl/nq_gentl_thread_base.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>

class NQGevDataStream;

/// Calls NQGevDataStream::AcquireImage until it is told to stop.
///
/// Nothing joins the thread at a stop, because a stop may come from the thread itself. Destroying the object, or
/// WaitForEnd, waits for the body: at most the 800 ms for which the endpoint sleeps, once the endpoint is down.
class NQRMAXThreadAcquisition : public GigERDMA::NQGenTLThreadBase
{
  public:
    /// `stream` is not owned and outlives the object.
    explicit NQRMAXThreadAcquisition(NQGevDataStream* stream);

    /// Stops and waits for the body. Not to be called on the acquisition thread.
    ~NQRMAXThreadAcquisition() override;
    NQRMAXThreadAcquisition(const NQRMAXThreadAcquisition&) = delete;
    NQRMAXThreadAcquisition& operator=(const NQRMAXThreadAcquisition&) = delete;

    void Run() override;

    /// Asks the body to end and returns without waiting. Any thread, the acquisition thread included.
    void Stop();

    /// Stops the body and waits until it has returned. Not to be called on the acquisition thread.
    void WaitForEnd();

    /// If not running, stores the value, clears the stop flag and starts. Nothing in the library calls it.
    void StartAcquisition(unsigned long value);

  private:
    bool MayRun();
    void PauseAfterMiss();

    NQGevDataStream* m_stream;
    bool m_stop = false;
    std::uint64_t m_value = 0;

    // The base holds its own lock for the length of a join; the body must not need it.
    std::mutex m_stopLock;
    std::condition_variable m_stopped;
};
