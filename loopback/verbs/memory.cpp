// SPDX-License-Identifier: Apache-2.0
// Registered memory and the check that every access lies inside it.
#include "verbs/memory.h"

#include "base/error.h"
#include "base/settings.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <sys/mman.h>

namespace nq::loopback
{

namespace
{

constexpr size_t kPageSize = 4096;

size_t PagesOf(const void* start, size_t bytes)
{
    const auto address = reinterpret_cast<uintptr_t>(start);
    return (address % kPageSize + bytes + kPageSize - 1) / kPageSize;
}

bool IsMapped(const void* start, size_t bytes)
{
    const auto first = reinterpret_cast<uintptr_t>(start) / kPageSize * kPageSize;
    constexpr size_t kStep = 4096;
    unsigned char residency[kStep];
    size_t left = PagesOf(start, bytes);
    for (uintptr_t page = first; left > 0;)
    {
        const size_t count = std::min(left, kStep);
        if (mincore(reinterpret_cast<void*>(page), count * kPageSize, residency) != 0)
        {
            return false;
        }
        page += count * kPageSize;
        left -= count;
    }
    return true;
}

} // namespace

MemoryRegion::MemoryRegion(ProtectionDomain& domain, void* start, size_t bytes, int rights) : ibv_mr{}, access(rights)
{
    context = domain.context;
    pd = &domain;
    addr = start;
    length = bytes;
    handle = NextHandle();
    // As with real devices the key is no small number, so that a forgotten lkey of 0 does not work.
    lkey = handle << 8 | 0x5A;
    rkey = lkey;
    ++domain.users;
}

MemoryRegion::~MemoryRegion()
{
    --static_cast<ProtectionDomain*>(pd)->users;
}

MemoryTable& MemoryTable::Instance()
{
    static auto& table = *new MemoryTable;
    return table;
}

MemoryRegion* MemoryTable::Register(ProtectionDomain& domain, void* start, size_t bytes, int access)
{
    const auto address = reinterpret_cast<uintptr_t>(start);
    if (bytes == 0 || address + bytes < address || address + bytes > UINTPTR_MAX - kPageSize)
    {
        Throw(EINVAL);
    }
    const bool remoteWrites = (access & (IBV_ACCESS_REMOTE_WRITE | IBV_ACCESS_REMOTE_ATOMIC)) != 0;
    if (remoteWrites && (access & IBV_ACCESS_LOCAL_WRITE) == 0)
    {
        Throw(EINVAL);
    }
    const size_t pages = PagesOf(start, bytes);
    const std::unique_lock lock(m_mutex);
    const std::optional<size_t> limit = Settings::Get().memoryLimit;
    if (limit && m_lockedPages + pages > *limit / kPageSize)
    {
        Throw(ENOMEM);
    }
    if (!IsMapped(start, bytes))
    {
        Throw(EFAULT);
    }
    auto region = std::make_unique<MemoryRegion>(domain, start, bytes, access);
    m_regions.emplace(region->lkey, region.get());
    m_lockedPages += pages;
    return region.release();
}

void MemoryTable::Deregister(MemoryRegion* region)
{
    const std::unique_lock lock(m_mutex);
    const auto found = m_regions.find(region->lkey);
    if (found == m_regions.end() || found->second != region)
    {
        Throw(EINVAL);
    }
    m_lockedPages -= PagesOf(region->addr, region->length);
    m_regions.erase(found);
    delete region;
}

bool MemoryTable::Access::Covers(const ibv_sge& entry, const ibv_pd* domain, bool write) const
{
    if (entry.length == 0)
    {
        return true;
    }
    const auto& regions = Instance().m_regions;
    const auto found = regions.find(entry.lkey);
    if (found == regions.end())
    {
        return false;
    }
    const MemoryRegion& region = *found->second;
    const auto start = reinterpret_cast<uintptr_t>(region.addr);
    return region.pd == domain && entry.addr >= start && entry.length <= region.length &&
           entry.addr - start <= region.length - entry.length &&
           (!write || (region.access & IBV_ACCESS_LOCAL_WRITE) != 0);
}

} // namespace nq::loopback
