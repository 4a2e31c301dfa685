// SPDX-License-Identifier: Apache-2.0
// Memory that the RDMA device may read or write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <infiniband/verbs.h>
#include <memory>
#include <span>

namespace nq::camera
{

/// Owns a block of memory and its registration. The protection domain must outlive it.
class RegisteredMemory
{
  public:
    /// `access` is a set of IBV_ACCESS flags; 0 lets the device only read. Throws std::system_error when the memory
    /// cannot be registered.
    RegisteredMemory(ibv_pd* domain, std::size_t size, int access);

    std::span<std::uint8_t> Bytes() const { return {m_bytes.get(), m_size}; }
    /// A scatter/gather entry for the part that begins at `offset`.
    ibv_sge Entry(std::size_t offset, std::size_t size) const;

  private:
    struct Deregister
    {
        void operator()(ibv_mr* region) const { ibv_dereg_mr(region); }
    };

    std::size_t m_size;
    std::unique_ptr<std::uint8_t[]> m_bytes;
    std::unique_ptr<ibv_mr, Deregister> m_region;
};

} // namespace nq::camera
