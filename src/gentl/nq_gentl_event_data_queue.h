// SPDX-License-Identifier: Apache-2.0
// The first-in first-out queue of an event's pending entries.
#pragma once

#include "gentl/nq_gentl_mutex.h"
#include "gentl/nq_gentl_ring.h"

#include <atomic>
#include <deque>

namespace GigERDMA
{

/// Unbounded (its event looks after that), and never touches what its entries point to. Thread-safe: each operation
/// holds the mutex, but for the size, which is that after some change under the mutex.
class NQGenTLEventDataQueue
{
  public:
    NQGenTLEventDataQueue() = default;
    NQGenTLEventDataQueue(const NQGenTLEventDataQueue&) = delete;
    NQGenTLEventDataQueue& operator=(const NQGenTLEventDataQueue&) = delete;

    void Add(void* entry);

    /// The oldest entry, or null when there is none. With `remove` it also leaves the queue.
    void* GetFront(bool remove);

    unsigned long GetSize() const { return m_size; }

    /// Takes every occurrence of `entry` out.
    void Remove(void* entry);

    void Clear();
    std::deque<void*> Copy();

  private:
    NQGenTLMutex m_lock;
    NQGenTLRing<void*> m_entries NQ_GUARDED_BY(m_lock);
    std::atomic<unsigned long> m_size{0}; ///< Of the entries; changed under the mutex.
};

} // namespace GigERDMA
