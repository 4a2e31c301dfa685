// SPDX-License-Identifier: Apache-2.0
// A ring of descriptors under one lock.
#include "rdma/message_queue.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace
{

constexpr std::chrono::nanoseconds kWaitLimit{800000000};

} // namespace

void MessageQueue::Reserve(std::size_t count)
{
    const NQLock lock(m_mutex);
    if (count > m_ring.size())
    {
        Grow(count);
    }
}

void MessageQueue::Push(msg_buffer_mem* message)
{
    const NQLock lock(m_mutex);
    if (m_count == m_ring.size())
    {
        Grow(std::max<std::size_t>(8, m_ring.size() * 2));
    }
    m_ring[(m_front + m_count) % m_ring.size()] = message;
    ++m_count;
    if (std::exchange(m_asleep, false))
    {
        m_changed.NotifyAll();
    }
}

void MessageQueue::WaitUntilDeadline()
{
    m_asleep = true;
    m_changed.WaitUntil(m_mutex, std::chrono::steady_clock::now() + kWaitLimit);
}

msg_buffer_mem* MessageQueue::TakeFront()
{
    msg_buffer_mem* const message = m_ring[m_front];
    m_front = (m_front + 1) % m_ring.size();
    --m_count;
    return message;
}

void MessageQueue::Grow(std::size_t capacity)
{
    std::vector<msg_buffer_mem*> ring(capacity, nullptr);
    for (std::size_t index = 0; index < m_count; ++index)
    {
        ring[index] = m_ring[(m_front + index) % m_ring.size()];
    }
    m_ring.swap(ring);
    m_front = 0;
}
