// SPDX-License-Identifier: Apache-2.0
// Starting a worker and waiting for its end.
#include "gentl/nq_gentl_thread_base.h"

namespace GigERDMA
{

NQGenTLThreadBase::~NQGenTLThreadBase() = default;

bool NQGenTLThreadBase::Start()
{
    NQGenTLLock lock(m_threadLock);
    if (m_thread)
    {
        return false;
    }
    m_thread = std::make_shared<NQSync::thread>(ThreadFunction, this);
    return true;
}

bool NQGenTLThreadBase::IsRunning()
{
    NQGenTLLock lock(m_threadLock);
    return m_thread != nullptr;
}

void NQGenTLThreadBase::Wait()
{
    NQGenTLLock lock(m_threadLock);
    if (!m_thread)
    {
        return;
    }
    m_thread->join();
    m_thread.reset();
}

void NQGenTLThreadBase::TimedWait(long long milliseconds)
{
    NQGenTLLock lock(m_threadLock);
    if (!m_thread)
    {
        return;
    }
    m_thread->timedjoin(milliseconds);
    m_thread.reset();
}

void NQGenTLThreadBase::ThreadFunction(void* object)
{
    static_cast<NQGenTLThreadBase*>(object)->Run();
}

void NQGenTLThreadBase::WaitUntilEnded()
{
    std::shared_ptr<NQSync::thread> running;
    {
        NQGenTLLock lock(m_threadLock);
        running = m_thread;
    }
    if (running)
    {
        running->WaitUntilGone();
    }
}

} // namespace GigERDMA
