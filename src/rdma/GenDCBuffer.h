// SPDX-License-Identifier: Apache-2.0
// One frame memory block: room for a GenDC descriptor and the payload behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

/// The memory that one frame is received into. The endpoint registers `GetBuffer()` once and keeps the object until its
/// own end, and buffers that point into it may keep it for longer.
class GenDCBuffer
{
  public:
    /// Container header 64, component header 56 and part header 56 bytes.
    static constexpr std::size_t DescriptorSize = 176;

    /// Makes a block for `size` bytes of payload, all zero.
    /// Throws std::length_error when block and descriptor together do not fit in 32 bits, before anything is allocated,
    /// and std::bad_alloc. Of a large block no page is touched here: the camera may name any size.
    explicit GenDCBuffer(std::size_t size);
    GenDCBuffer(const GenDCBuffer&) = delete;
    GenDCBuffer& operator=(const GenDCBuffer&) = delete;

    /// The frame block, owned by this object.
    unsigned char* GetBuffer() const { return m_buffer.get(); }

    /// Bytes of the frame block: payload and descriptor.
    std::uint32_t GetBufferSize() const { return m_bufferSize; }

  private:
    friend struct GenDCBufferLayout;

    struct Free
    {
        void operator()(unsigned char* memory) const { std::free(memory); }
    };
    using Zeroes = std::unique_ptr<unsigned char[], Free>;

    static Zeroes Allocate(std::size_t size);

    std::array<unsigned char, DescriptorSize> m_descriptor{};
    Zeroes m_payload;
    [[maybe_unused]] std::uint64_t m_payloadSize;
    Zeroes m_buffer;
    std::uint32_t m_bufferSize;
};
