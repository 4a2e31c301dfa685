// SPDX-License-Identifier: Apache-2.0
// The queue of an event's pending entries.
#include "gentl/nq_gentl_event_data_queue.h"

#include <algorithm>

namespace GigERDMA
{

void NQGenTLEventDataQueue::Add(void* entry)
{
    NQGenTLLock lock(m_lock);
    m_entries.push_back(entry);
}

void* NQGenTLEventDataQueue::GetFront(bool remove)
{
    NQGenTLLock lock(m_lock);
    if (m_entries.empty())
        return nullptr;
    void* const front = m_entries.front();
    if (remove)
        m_entries.pop_front();
    return front;
}

unsigned long NQGenTLEventDataQueue::GetSize()
{
    NQGenTLLock lock(m_lock);
    return m_entries.size();
}

void NQGenTLEventDataQueue::Remove(void* entry)
{
    NQGenTLLock lock(m_lock);
    m_entries.erase(std::remove(m_entries.begin(), m_entries.end(), entry), m_entries.end());
}

void NQGenTLEventDataQueue::Clear()
{
    NQGenTLLock lock(m_lock);
    m_entries.clear();
}

std::deque<void*> NQGenTLEventDataQueue::Copy()
{
    NQGenTLLock lock(m_lock);
    return m_entries;
}

} // namespace GigERDMA
