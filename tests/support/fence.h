// SPDX-License-Identifier: Apache-2.0
// Memory that ends where no more can be read.
#pragma once

#include <algorithm>
#include <cstddef>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace nq::test
{

/// Memory that ends where an unreadable page begins.
class Fence
{
  public:
    explicit Fence(const std::vector<unsigned char>& bytes) : m_size(bytes.size())
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        m_mapped = 2 * page;
        m_memory = static_cast<unsigned char*>(
            mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(m_memory + page, page, PROT_NONE);
        m_start = m_memory + page - m_size;
        std::copy(bytes.begin(), bytes.end(), m_start);
    }
    ~Fence() { munmap(m_memory, m_mapped); }
    Fence(const Fence&) = delete;
    Fence& operator=(const Fence&) = delete;

    const void* Data() const { return m_start; }

  private:
    std::size_t m_size;
    std::size_t m_mapped;
    unsigned char* m_memory;
    unsigned char* m_start;
};

} // namespace nq::test
