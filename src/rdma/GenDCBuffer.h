// SPDX-License-Identifier: Apache-2.0
// One frame memory block: room for a GenDC descriptor and the payload behind it.
#pragma once

#include "base/nq_fork.h"
#include "rdma/gendc_wire.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// The memory that one frame is received into. The endpoint registers `GetBuffer()` once and keeps the object until its
/// own end, and buffers that point into it may keep it for longer. Reentrant; who may touch the
/// block itself is for FrameBlocks to say.
///
/// The block is a mapping of its own: an RDMA device pins whole pages, and those of a block hold nothing else.
class GenDCBuffer
{
  public:
    /// Makes a block for `size` bytes of payload, all zero, at the start of a page; from 4 MiB on at the start of a
    /// huge page, which the system is asked to use.
    /// Throws std::length_error when block and descriptor together do not fit in 32 bits, before anything is allocated,
    /// and std::bad_alloc. Of a large block no page is touched here: the camera may name any size.
    explicit GenDCBuffer(std::size_t size);
    ~GenDCBuffer();
    GenDCBuffer(const GenDCBuffer&) = delete;
    GenDCBuffer& operator=(const GenDCBuffer&) = delete;

    /// The frame block, owned by this object.
    unsigned char* GetBuffer() const { return m_buffer; }

    /// Bytes of the frame block: payload and descriptor.
    std::uint32_t GetBufferSize() const { return m_bufferSize; }

  private:
    friend struct GenDCBufferLayout;

    [[maybe_unused]] std::array<unsigned char, gendc_wire::kDescriptorSize> m_descriptor{};
    [[maybe_unused]] unsigned char*
        m_payload; // Where the payload lies in the block: nobody reads another copy of its zeroes.
    [[maybe_unused]] std::uint64_t m_payloadSize;
    unsigned char* m_buffer;
    std::uint32_t m_bufferSize;
    const NQOrigin m_origin;
};
