// SPDX-License-Identifier: Apache-2.0
// Setting, clearing and waiting for bits.
#include "gentl/nq_event_handler.h"

#include <ctime>
#include <utility>

namespace GigERDMA
{

namespace
{

constexpr long kNanosecondsPerSecond = 1000000000;

/// On the clock that nobody sets: on the other one, a step back of an hour would make a wait an hour longer.
timespec DeadlineIn(int milliseconds)
{
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += milliseconds / 1000;
    deadline.tv_nsec += milliseconds % 1000 * 1000000L;
    if (deadline.tv_nsec >= kNanosecondsPerSecond)
    {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= kNanosecondsPerSecond;
    }
    return deadline;
}

} // namespace

NQEventHandler::NQEventHandler(unsigned int mask) : m_mask(mask | kKillBits) {}

void NQEventHandler::SetEvent(unsigned int bits)
{
    // Held from the bits to the signal: a waiter sees the bits before it sleeps, or is asleep when the signal comes.
    // Without it a late signal could also wake a later wait for nothing.
    NQGenTLLock wait(m_waitLock);
    {
        NQGenTLLock state(m_stateLock);
        if ((bits & m_mask) == 0)
        {
            return;
        }
        m_bits |= bits;
    }
    m_condition.Signal();
}

void NQEventHandler::ResetEvent(unsigned int bits)
{
    NQGenTLLock state(m_stateLock);
    if ((bits & m_mask) != 0)
    {
        m_bits &= ~bits;
    }
}

unsigned int NQEventHandler::WaitForEvent(int timeout)
{
    if (const unsigned int bits = ReadBits())
    {
        return bits;
    }

    NQGenTLLock wait(m_waitLock);
    if (ReadBits() == 0)
    {
        // Deliberate(WaitHasNoLoop): a wake-up without a bit ends the wait like a timeout. Every owner takes that
        // result for one and decides anew, so a loop here would only hide a wake-up from it.
        const int error =
            timeout < 0 ? m_condition.Wait(m_waitLock) : m_condition.WaitUntil(m_waitLock, DeadlineIn(timeout));
        if (error != 0)
        {
            return 0;
        }
    }
    return TakeBits();
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
    const unsigned long before = m_sleepsEnded;
    unsigned int bits = TakeOnce(before);
    ++m_sleeping;
    for (int error = 0; bits == 0 && error == 0; bits = TakeOnce(before))
    {
        error = timeout < 0 ? m_condition.Wait(m_waitLock) : m_condition.WaitUntil(m_waitLock, deadline);
    }
    --m_sleeping;
    // One signal wakes one waiter: what is left is the next one's.
    if (m_ended || m_kills != 0 || (bits > ~kKillBits && ReadBits() != 0))
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
    const unsigned int bits = ReadBits();
    return bits == 0 && std::exchange(m_endNextSleep, false) ? kKillBits : bits;
}

unsigned int NQEventHandler::ReadBits()
{
    NQGenTLLock state(m_stateLock);
    return m_bits;
}

unsigned int NQEventHandler::TakeBits()
{
    NQGenTLLock state(m_stateLock);
    const unsigned int bits = m_bits;
    if (bits > ~kKillBits)
    {
        m_bits &= ~kKillBits;
    }
    return bits;
}

} // namespace GigERDMA
