// SPDX-License-Identifier: Apache-2.0
// How much memory a program may still take.
#include "available_memory.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace nq::tool
{

namespace
{

std::optional<uint64_t> NumberIn(const std::string& path)
{
    std::ifstream file(path);
    uint64_t number = 0;
    return file >> number ? std::optional(number) : std::nullopt; // "max" is none
}

uint64_t AvailableOnMachine()
{
    std::ifstream file("/proc/meminfo");
    uint64_t kibibytes = 0;
    for (std::string name; file >> name; file.ignore(1000, '\n'))
    {
        if (name == "MemAvailable:" && file >> kibibytes)
        {
            return kibibytes * 1024;
        }
    }
    return static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(getpagesize());
}

/// Bytes of file contents, which a group gives back when its programs want memory.
uint64_t CachedIn(const std::string& folder)
{
    std::ifstream file(folder + "memory.stat");
    uint64_t all = 0;
    uint64_t bytes = 0;
    for (std::string name; file >> name >> bytes;)
    {
        all += name == "active_file" || name == "inactive_file" ? bytes : 0;
    }
    return all;
}

/// What the control group of this process and those above it leave, where version 2 of them is mounted.
uint64_t AvailableInGroup()
{
    std::ifstream file("/proc/self/cgroup");
    std::string group;
    std::getline(file, group);
    uint64_t least = UINT64_MAX;
    group = group.starts_with("0::/") ? group.substr(3) : "/";
    for (bool top = false; !top;)
    {
        top = group == "/";
        const std::string folder = "/sys/fs/cgroup" + group + "/";
        const std::optional<uint64_t> most = NumberIn(folder + "memory.max");
        const uint64_t charged = NumberIn(folder + "memory.current").value_or(0);
        const uint64_t used = charged - std::min(charged, CachedIn(folder));
        least = most ? std::min(least, *most - std::min(*most, used)) : least;
        group.resize(std::max<size_t>(group.rfind('/'), 1));
    }
    return least;
}

} // namespace

uint64_t AvailableMemory()
{
    return std::min(AvailableOnMachine(), AvailableInGroup());
}

void MemoryBudget::Look()
{
    m_all = m_taken + m_takenHalf == 0 ? AvailableMemory() : m_all;
}

uint64_t MemoryBudget::Take(uint64_t size, uint64_t count)
{
    const std::lock_guard lock(m_mutex);
    Look();
    const uint64_t left = m_all - m_taken - m_takenHalf;
    m_taken += size <= left / count ? size * count : 0;
    return left;
}

void MemoryBudget::GiveBack(uint64_t bytes)
{
    const std::lock_guard lock(m_mutex);
    m_taken -= bytes;
}

uint64_t MemoryBudget::TakeHalf(uint64_t size, uint64_t count)
{
    const std::lock_guard lock(m_mutex);
    Look();
    const uint64_t used = m_taken + m_takenHalf;
    const uint64_t left = m_all / 2 - std::min(used, m_all / 2);
    m_takenHalf += size <= left / count ? size * count : 0;
    return left;
}

void MemoryBudget::GiveBackHalf(uint64_t bytes)
{
    const std::lock_guard lock(m_mutex);
    m_takenHalf -= bytes;
}

uint64_t MemoryBudget::Taken()
{
    const std::lock_guard lock(m_mutex);
    return m_taken;
}

} // namespace nq::tool
