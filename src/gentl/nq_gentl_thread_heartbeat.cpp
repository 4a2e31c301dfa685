// SPDX-License-Identifier: Apache-2.0
// The beat of a heartbeat thread.
#include "gentl/nq_gentl_thread_heartbeat.h"

namespace GigERDMA
{

NQGenTLThreadHeartbeat::NQGenTLThreadHeartbeat() : m_exit(0) {}

bool NQGenTLThreadHeartbeat::Start(unsigned long timeoutMs)
{
    NQGenTLLock lock(m_threadLock);
    if (IsRunning())
    {
        return false;
    }
    m_timeoutMs.store(timeoutMs, std::memory_order_relaxed);
    m_exit.ResetEvent(NQEventHandler::kKillBits);
    return NQGenTLThreadBase::Start();
}

void NQGenTLThreadHeartbeat::Run()
{
    const int period = static_cast<int>(m_timeoutMs.load(std::memory_order_relaxed) >> 1);
    while (m_exit.WaitForEvent(period) <= ~NQEventHandler::kKillBits)
    {
        OnHeartBeat();
    }
}

void NQGenTLThreadHeartbeat::RequestExit()
{
    m_exit.Kill();
}

} // namespace GigERDMA
