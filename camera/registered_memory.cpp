// SPDX-License-Identifier: Apache-2.0
// Memory that the RDMA device may read or write.
#include "registered_memory.h"

#include <cerrno>
#include <system_error>

namespace nq::camera
{

RegisteredMemory::RegisteredMemory(ibv_pd* domain, std::size_t size, int access)
    : m_size(size), m_bytes(std::make_unique<std::uint8_t[]>(size)),
      m_region(ibv_reg_mr(domain, m_bytes.get(), size, access))
{
    if (m_region == nullptr)
    {
        throw std::system_error(errno, std::generic_category(), "ibv_reg_mr");
    }
}

ibv_sge RegisteredMemory::Entry(std::size_t offset, std::size_t size) const
{
    ibv_sge entry{};
    entry.addr = reinterpret_cast<std::uintptr_t>(m_bytes.get()) + offset;
    entry.length = static_cast<std::uint32_t>(size);
    entry.lkey = m_region->lkey;
    return entry;
}

} // namespace nq::camera
