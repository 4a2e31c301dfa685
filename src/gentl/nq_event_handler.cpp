// SPDX-License-Identifier: Apache-2.0
// Setting, clearing and waiting for bits.
#include "gentl/nq_event_handler.h"

#include <ctime>
#include <utility>

namespace GigERDMA
{

namespace
{

constexpr long kNanosecondsInSecond = 1000000000;

/// On the clock that nobody sets: on the other one, a step back of an hour would make a wait an hour longer.
timespec DeadlineIn(int milliseconds)
{
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += milliseconds / 1000;
    deadline.tv_nsec += milliseconds % 1000 * 1000000L;
    if (deadline.tv_nsec >= kNanosecondsInSecond)
    {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= kNanosecondsInSecond;
    }
    return deadline;
}

} // namespace

NQEventHandler::NQEventHandler(unsigned int mask) : m_mask(mask | kKillBits) {}

void NQEventHandler::SetEvent(unsigned int bits)
{
    if ((bits & m_mask) == 0)
    {
        return;
    }
    const bool nobodyWaited = m_waiting == 0;
    if (nobodyWaited)
    {
        m_bits |= bits;
        if (m_waiting == 0)
        {
            return;
        }
    }
    // Held from the bits to the signal: a waiter sees the bits before it sleeps, or is asleep when the signal comes.
    NQGenTLLock wait(m_waitLock);
    if (!nobodyWaited)
    {
        m_bits |= bits;
    }
    // Bits set above may have been taken meanwhile: a signal for them could wake a later wait for nothing.
    if (m_waiting != 0 && (m_bits & bits) != 0)
    {
        --m_waiting;
        ++m_signalled;
        m_condition.Signal();
    }
}

void NQEventHandler::ResetEvent(unsigned int bits)
{
    if ((bits & m_mask) != 0)
    {
        m_bits &= ~bits;
    }
}

unsigned int NQEventHandler::WaitForEvent(int timeout)
{
    if (const unsigned int bits = m_bits)
    {
        return bits;
    }

    NQGenTLLock wait(m_waitLock);
    ++m_waiting;
    int error = 0;
    if (m_bits == 0)
    {
        // Deliberate(WaitHasNoLoop): a wake-up without a bit ends the wait like a timeout. Every owner takes that
        // result for one and decides anew, so a loop here would only hide a wake-up from it.
        error = timeout < 0 ? m_condition.Wait(m_waitLock) : m_condition.WaitUntil(m_waitLock, DeadlineIn(timeout));
        CountWoken();
    }
    --m_waiting;
    return error != 0 ? 0 : TakeBits();
}

void NQEventHandler::KillOnce()
{
    NQGenTLLock wait(m_waitLock);
    ++m_kills;
    m_condition.Signal();
}

void NQEventHandler::End()
{
    NQGenTLLock wait(m_waitLock);
    m_ended = true;
    m_condition.Signal();
}

unsigned int NQEventHandler::WaitOnce(int timeout)
{
    const timespec deadline = DeadlineIn(timeout < 0 ? 0 : timeout);
    NQGenTLLock wait(m_waitLock);
    ++m_waiting;
    const unsigned long before = m_sleepsEnded;
    unsigned int bits = TakeOnce(before);
    ++m_sleeping;
    for (int error = 0; bits == 0 && error == 0; bits = TakeOnce(before))
    {
        error = timeout < 0 ? m_condition.Wait(m_waitLock) : m_condition.WaitUntil(m_waitLock, deadline);
        CountWoken();
    }
    --m_sleeping;
    --m_waiting;
    // One signal wakes one waiter: what is left is the next one's.
    if (m_ended || m_kills != 0 || (bits > ~kKillBits && m_bits != 0))
    {
        m_condition.Signal();
    }
    return bits;
}

void NQEventHandler::EndSleeps()
{
    NQGenTLLock wait(m_waitLock);
    if (m_sleeping == 0)
    {
        m_endNextSleep = true;
        return;
    }
    ++m_sleepsEnded;
    m_condition.SignalAll();
}

void NQEventHandler::ForgetEndSleeps()
{
    NQGenTLLock wait(m_waitLock);
    m_endNextSleep = false;
}

/// What there is for a WaitOnce that began when `sleepsEnded` was counted: a kill before any bit, and any bit before
/// an end that nobody slept through.
unsigned int NQEventHandler::TakeOnce(unsigned long sleepsEnded)
{
    if (m_ended || m_sleepsEnded != sleepsEnded)
    {
        return kKillBits;
    }
    if (m_kills != 0)
    {
        --m_kills;
        return kKillBits;
    }
    const unsigned int bits = m_bits;
    return bits == 0 && std::exchange(m_endNextSleep, false) ? kKillBits : bits;
}

void NQEventHandler::CountWoken()
{
    // Which of two sleepers a signal woke cannot be told, and need not: the other finds no signal left and stays
    // counted, so that no more than a signal for nobody comes of it.
    if (m_signalled != 0)
    {
        --m_signalled;
        ++m_waiting;
    }
}

unsigned int NQEventHandler::TakeBits()
{
    const unsigned int bits = m_bits;
    return bits > ~kKillBits ? m_bits.fetch_and(~kKillBits) : bits;
}

} // namespace GigERDMA
