// SPDX-License-Identifier: Apache-2.0
// Allocation and layout of a frame memory block.
#include "rdma/GenDCBuffer.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

struct GenDCBufferLayout
{
    static_assert(offsetof(GenDCBuffer, m_descriptor) == 0);
    static_assert(offsetof(GenDCBuffer, m_payload) == 176);
    static_assert(offsetof(GenDCBuffer, m_payloadSize) == 184);
    static_assert(offsetof(GenDCBuffer, m_buffer) == 192);
    static_assert(offsetof(GenDCBuffer, m_bufferSize) == 200);
};

namespace
{

/// Work requests carry 32-bit lengths. A larger block would be registered with a length that wrapped.
std::uint32_t BlockSize(std::size_t payloadSize)
{
    if (payloadSize > std::numeric_limits<std::uint32_t>::max() - GenDCBuffer::DescriptorSize)
    {
        throw std::length_error("frame block exceeds 32 bits");
    }
    return static_cast<std::uint32_t>(payloadSize + GenDCBuffer::DescriptorSize);
}

} // namespace

GenDCBuffer::Zeroes GenDCBuffer::Allocate(std::size_t size)
{
    // From calloc, large memory comes as pages that the system makes when they are first used.
    Zeroes memory(static_cast<unsigned char*>(std::calloc(std::max<std::size_t>(size, 1), 1)));
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

GenDCBuffer::GenDCBuffer(std::size_t size) : m_payloadSize(size), m_bufferSize(BlockSize(size))
{
    m_payload = Allocate(size);
    m_buffer = Allocate(m_bufferSize);
    std::copy(m_descriptor.begin(), m_descriptor.end(), m_buffer.get());
    // The payload would be copied behind it, but that is all zero already.
}
