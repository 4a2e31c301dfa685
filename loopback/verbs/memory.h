// SPDX-License-Identifier: Apache-2.0
// Registered memory and the check that every access lies inside it.
#pragma once

#include "verbs/device.h"

#include <cstddef>
#include <cstdint>
#include <shared_mutex>
#include <unordered_map>

namespace nq::loopback
{

/// One registered region. Made and destroyed by MemoryTable.
class MemoryRegion : public ibv_mr, private Counted<Kind::MemoryRegion>
{
  public:
    MemoryRegion(ProtectionDomain& domain, void* start, size_t bytes, int access);
    ~MemoryRegion();
    int access;
};

/// All regions of the process by their local key. All threads.
class MemoryTable
{
  public:
    static MemoryTable& Instance();

    /// Throws EINVAL for an empty or wrapping range or access rights that contradict each other, EFAULT when the range
    /// is not mapped, ENOMEM above the limit of lockable memory.
    MemoryRegion* Register(ProtectionDomain& domain, void* start, size_t bytes, int access);

    /// Destroys the region once no access is going on.
    void Deregister(MemoryRegion* region);

    /// Held exclusively it keeps all threads out of the table.
    std::shared_mutex& Mutex() { return m_mutex; }

    /// Holds off every deregistration while it lives, so that what it has checked stays registered.
    class Access
    {
      public:
        Access() : m_lock(Instance().m_mutex) {}

        /// Whether the region of `entry.lkey` is in `domain`, covers the entry and may be written if `write` is set.
        bool Covers(const ibv_sge& entry, const ibv_pd* domain, bool write) const;

      private:
        std::shared_lock<std::shared_mutex> m_lock;
    };

  private:
    std::shared_mutex m_mutex;
    std::unordered_map<uint32_t, MemoryRegion*> m_regions;
    size_t m_lockedPages = 0;
};

} // namespace nq::loopback
