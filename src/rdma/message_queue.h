// SPDX-License-Identifier: Apache-2.0
// The FIFO through which the endpoint's threads pass descriptors.
#pragma once

#include "base/nq_mutex.h"
#include "rdma/rdma_records.h"

#include <cstddef>
#include <vector>

/// A FIFO of descriptors it does not own, with its own lock. Thread-safe. Push and Pop allocate nothing while no more
/// entries are held than were reserved. No two queues are ever locked at once.
class MessageQueue
{
  public:
    MessageQueue() = default;
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    /// Makes room for `count` entries. Throws std::bad_alloc.
    void Reserve(std::size_t count);

    /// Appends the entry and wakes every waiter that sleeps.
    void Push(msg_buffer_mem* message);

    /// Takes the oldest entry. While there is none, sleeps until a push or a deadline of 800 ms, and asks `stopping()`
    /// after every wake: a stop flag is set without a notify, so the deadline is what ends such a wait.
    /// Returns null when `stopping()` was true before the first look or after a wake, even if that wake brought an
    /// entry.
    template <typename Stopping>
    msg_buffer_mem* Pop(Stopping stopping)
    {
        const NQLock lock(m_mutex);
        if (stopping())
        {
            return nullptr;
        }
        while (m_count == 0)
        {
            WaitUntilDeadline();
            if (stopping())
            {
                return nullptr;
            }
        }
        return TakeFront();
    }

  private:
    friend struct LvEndpointAccess;

    void WaitUntilDeadline() NQ_REQUIRES(m_mutex);
    msg_buffer_mem* TakeFront() NQ_REQUIRES(m_mutex);
    void Grow(std::size_t capacity) NQ_REQUIRES(m_mutex);

    NQMutex m_mutex;
    NQCondition m_changed;
    std::vector<msg_buffer_mem*> m_ring NQ_GUARDED_BY(m_mutex);
    std::size_t m_front NQ_GUARDED_BY(m_mutex) = 0;
    std::size_t m_count NQ_GUARDED_BY(m_mutex) = 0;
    bool m_asleep NQ_GUARDED_BY(m_mutex) = false; ///< Somebody has gone to sleep since the last notification.
};
