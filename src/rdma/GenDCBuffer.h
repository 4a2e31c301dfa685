// SPDX-License-Identifier: Apache-2.0
// One frame memory block: room for a GenDC descriptor and the payload behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

/// The memory that one frame is received into. The endpoint registers `GetBuffer()` once and keeps the object until its
/// own end, so that pixel pointers handed to the consumer stay good across a stop.
class GenDCBuffer
{
  public:
    /// Container header 64, component header 56 and part header 56 bytes.
    static constexpr std::size_t DescriptorSize = 176;

    /// Makes a block for `size` bytes of payload, all zero.
    /// Throws std::length_error when block and descriptor together do not fit in 32 bits, before anything is allocated.
    explicit GenDCBuffer(std::size_t size);
    GenDCBuffer(const GenDCBuffer&) = delete;
    GenDCBuffer& operator=(const GenDCBuffer&) = delete;

    /// The frame block, owned by this object.
    unsigned char* GetBuffer() const { return m_buffer.get(); }

    /// Bytes of the frame block: payload and descriptor.
    std::uint32_t GetBufferSize() const { return m_bufferSize; }

  private:
    friend struct GenDCBufferLayout;

    std::array<unsigned char, DescriptorSize> m_descriptor{};
    std::unique_ptr<unsigned char[]> m_payload;
    std::uint64_t m_payloadSize;
    std::unique_ptr<unsigned char[]> m_buffer;
    std::uint32_t m_bufferSize;
};
