// SPDX-License-Identifier: Apache-2.0
// A bit-mask signal with a timed wait.
#pragma once

#include "gentl/nq_gentl_mutex.h"

#include <atomic>

namespace GigERDMA
{

/// The top four bits are the kill bits, accepted by every handler. The other 28 are the owner's own.
///
/// A wait sleeps only while no bit is set, and clears nothing but a kill that came while it slept: a kill pending when
/// the wait begins stays set until ResetEvent. Setting bits and waking are one step for a waiter, so that no signal
/// falls between its look at the bits and its sleep. Thread-safe; one signal wakes one waiter. Where nobody waits, bits
/// are set and cleared without a lock.
///
/// An owner kills the handler before it goes; nobody may be waiting by then.
class NQEventHandler
{
  public:
    static constexpr unsigned int kKillBits = 0xF0000000;

    /// Accepts the bits of `mask` and the kill bits.
    explicit NQEventHandler(unsigned int mask);
    NQEventHandler(const NQEventHandler&) = delete;
    NQEventHandler& operator=(const NQEventHandler&) = delete;

    /// If at least one of `bits` is in the mask: sets all of them and wakes one waiter. Otherwise does nothing.
    void SetEvent(unsigned int bits);

    /// Clears all of `bits` if at least one of them is in the mask.
    void ResetEvent(unsigned int bits);

    /// Waits up to `timeout` milliseconds (negative: without limit, 0: not at all) and returns the bits: 0 after the
    /// time has run out or after a wake-up without a bit, above 0x0FFFFFFF when killed.
    unsigned int WaitForEvent(int timeout);

    void Kill() { SetEvent(kKillBits); }

    /// Ends one WaitOnce: one that sleeps, else the next. Such kills add up, and no SetEvent or ResetEvent takes one
    /// back.
    void KillOnce();

    /// Ends every WaitOnce, now and from now on.
    void End();

    /// Ends every WaitOnce that sleeps, as a kill. If none does, ends the next one that finds no bit.
    void EndSleeps();

    /// No WaitOnce to come is ended by the EndSleeps before.
    void ForgetEndSleeps();

    /// As WaitForEvent, but 0 says that the time has run out, nothing else, and a kill is one of KillOnce, End or
    /// EndSleeps.
    unsigned int WaitOnce(int timeout);

  private:
    unsigned int TakeOnce(unsigned long sleepsEnded) NQ_REQUIRES(m_waitLock);

    /// After each sleep: whoever woke up counts again.
    void CountWoken() NQ_REQUIRES(m_waitLock);

    /// Reads the bits and uses up a kill among them.
    unsigned int TakeBits();

    NQGenTLMutex m_waitLock;
    NQGenTLCondition m_condition NQ_GUARDED_BY(m_waitLock);
    const unsigned int m_mask;

    // Each in the one order of all: who waits counts itself before it looks at the bits, and SetEvent sets bits before
    // it looks for somebody who waits, so that at least one of the two sees the other. At least as many count as sleep:
    // one that a signal of SetEvent is on its way to has been taken out, and is put in again if it sleeps on.
    std::atomic<unsigned int> m_bits{0};
    std::atomic<unsigned int> m_waiting{0};                 ///< Changed under the wait lock.
    unsigned int m_signalled NQ_GUARDED_BY(m_waitLock) = 0; ///< Taken out, and not yet awake.
    unsigned int m_kills NQ_GUARDED_BY(m_waitLock) = 0;
    bool m_ended NQ_GUARDED_BY(m_waitLock) = false;
    unsigned int m_sleeping NQ_GUARDED_BY(m_waitLock) = 0;     ///< Calls of WaitOnce.
    unsigned long m_sleepsEnded NQ_GUARDED_BY(m_waitLock) = 0; ///< How often EndSleeps found any.
    bool m_endNextSleep NQ_GUARDED_BY(m_waitLock) = false;
};

} // namespace GigERDMA
