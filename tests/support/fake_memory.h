// SPDX-License-Identifier: Apache-2.0
// The registered memory of a fake device, and the receives that are posted in it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <infiniband/verbs.h>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace nq::test
{

using Entries = std::vector<ibv_sge>;

/// The regions that exist, each with a key of its own, and a record of all registrations and receives. Any thread, but
/// for the two public members.
class FakeMemory
{
  public:
    std::vector<int> regionAccess;
    std::vector<std::size_t> regionLengths;

    /// Where the regions are that exist, and how long, in the order of their registration.
    std::vector<std::pair<void*, std::size_t>> Regions() const
    {
        const std::lock_guard lock(m_memoryMutex);
        std::vector<std::pair<void*, std::size_t>> regions;
        for (const auto& [key, region] : m_regions)
        {
            regions.emplace_back(region->addr, region->length);
        }
        return regions;
    }

    /// wr_id of every receive posted, in order.
    std::vector<std::uint64_t> ReceiveIds() const
    {
        const std::lock_guard lock(m_memoryMutex);
        return m_receiveIds;
    }

    /// The entries of every receive posted, in order.
    std::vector<Entries> ReceiveEntries() const
    {
        const std::lock_guard lock(m_memoryMutex);
        return m_receiveEntries;
    }

    /// How long the last entry of each of them is.
    std::vector<std::uint32_t> ReceiveLengths() const
    {
        std::vector<std::uint32_t> lengths;
        for (const Entries& entries : ReceiveEntries())
        {
            lengths.push_back(entries.back().length);
        }
        return lengths;
    }

  protected:
    ibv_mr* MakeRegion(void* address, std::size_t length, int access)
    {
        auto region = std::make_unique<ibv_mr>();
        region->addr = address;
        region->length = length;
        const std::lock_guard lock(m_memoryMutex);
        regionAccess.push_back(access);
        regionLengths.push_back(length);
        region->lkey = ++m_lastKey;
        return (m_regions[m_lastKey] = std::move(region)).get();
    }

    void EndRegion(const ibv_mr* region)
    {
        const std::lock_guard lock(m_memoryMutex);
        m_regions.erase(region->lkey);
    }

    Entries NoteReceive(const ibv_recv_wr& work)
    {
        const std::lock_guard lock(m_memoryMutex);
        m_receiveIds.push_back(work.wr_id);
        m_receiveEntries.emplace_back(work.sg_list, work.sg_list + work.num_sge);
        return m_receiveEntries.back();
    }

    /// Whether each entry lies in its region.
    bool AreRegistered(const Entries& entries) const
    {
        const std::lock_guard lock(m_memoryMutex);
        return std::all_of(entries.begin(), entries.end(), [this](const ibv_sge& entry) {
            const auto found = m_regions.find(entry.lkey);
            if (found == m_regions.end())
            {
                return false;
            }
            const std::uint64_t start = reinterpret_cast<std::uintptr_t>(found->second->addr);
            return entry.addr >= start && entry.addr + entry.length <= start + found->second->length;
        });
    }

  private:
    mutable std::mutex m_memoryMutex;
    std::uint32_t m_lastKey = 0;
    std::map<std::uint32_t, std::unique_ptr<ibv_mr>> m_regions;
    std::vector<std::uint64_t> m_receiveIds;
    std::vector<Entries> m_receiveEntries;
};

/// Puts `bytes` into the entries, one behind the other, as far as they have room. Where they would begin if all of them
/// lay before those of the last entry.
inline unsigned char* Scatter(const std::vector<unsigned char>& bytes, const Entries& entries)
{
    std::size_t room = 0;
    for (const ibv_sge& entry : entries)
    {
        const std::size_t start = std::min(room, bytes.size());
        const std::size_t length = std::min<std::size_t>(bytes.size() - start, entry.length);
        std::copy_n(bytes.data() + start, length, reinterpret_cast<unsigned char*>(entry.addr));
        room += entry.length;
    }
    return reinterpret_cast<unsigned char*>(entries.back().addr) - (room - entries.back().length);
}

} // namespace nq::test
