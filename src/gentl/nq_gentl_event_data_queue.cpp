// SPDX-License-Identifier: Apache-2.0
// The queue of an event's pending entries.
#include "gentl/nq_gentl_event_data_queue.h"

namespace GigERDMA
{

void NQGenTLEventDataQueue::Add(void* entry)
{
    NQGenTLLock lock(m_lock);
    m_entries.PushBack(entry);
    m_size = m_entries.Size();
}

void* NQGenTLEventDataQueue::GetFront(bool remove)
{
    NQGenTLLock lock(m_lock);
    if (m_entries.IsEmpty())
    {
        return nullptr;
    }
    if (!remove)
    {
        return m_entries[0];
    }
    void* const front = m_entries.PopFront();
    m_size = m_entries.Size();
    return front;
}

void NQGenTLEventDataQueue::Remove(void* entry)
{
    NQGenTLLock lock(m_lock);
    // Once round: what stays goes to the back in its order.
    for (std::size_t left = m_entries.Size(); left != 0; --left)
    {
        void* const oldest = m_entries.PopFront();
        if (oldest != entry)
        {
            m_entries.PushBack(oldest);
        }
    }
    m_size = m_entries.Size();
}

void NQGenTLEventDataQueue::Clear()
{
    NQGenTLLock lock(m_lock);
    m_entries.Clear();
    m_size = 0;
}

std::deque<void*> NQGenTLEventDataQueue::Copy()
{
    NQGenTLLock lock(m_lock);
    std::deque<void*> copy;
    for (std::size_t index = 0; index < m_entries.Size(); ++index)
    {
        copy.push_back(m_entries[index]);
    }
    return copy;
}

} // namespace GigERDMA
