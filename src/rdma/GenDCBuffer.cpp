// SPDX-License-Identifier: Apache-2.0
// Allocation and layout of a frame memory block.
#include "rdma/GenDCBuffer.h"

#include "rdma/pinned_pages.h"

#include <limits>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

struct GenDCBufferLayout
{
    static_assert(offsetof(GenDCBuffer, m_descriptor) == 0);
    static_assert(offsetof(GenDCBuffer, m_payload) == gendc_wire::kDescriptorSize);
    static_assert(offsetof(GenDCBuffer, m_payloadSize) == 184);
    static_assert(offsetof(GenDCBuffer, m_buffer) == 192);
    static_assert(offsetof(GenDCBuffer, m_bufferSize) == 200);
};

namespace
{

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kHugePagesFrom = std::size_t{4} << 20;

/// Work requests carry 32-bit lengths. A larger block would be registered with a length that wrapped.
std::uint32_t BlockSize(std::size_t payloadSize)
{
    if (payloadSize > std::numeric_limits<std::uint32_t>::max() - gendc_wire::kDescriptorSize)
    {
        throw std::length_error("frame block exceeds 32 bits");
    }
    return static_cast<std::uint32_t>(payloadSize + gendc_wire::kDescriptorSize);
}

std::size_t RoundUp(std::size_t size, std::size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

/// Zeroes that start at a page and take memory only as they are written to. Throws std::bad_alloc.
unsigned char* Map(std::size_t size)
{
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
    {
        throw std::bad_alloc();
    }
    return static_cast<unsigned char*>(memory);
}

/// As Map, but from the start of a huge page on.
unsigned char* MapHuge(std::size_t size)
{
    const std::size_t pages = RoundUp(size, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    unsigned char* const memory = Map(pages + kHugePage);
    // What lies before and behind the block goes back.
    const std::size_t before = (kHugePage - reinterpret_cast<std::uintptr_t>(memory) % kHugePage) % kHugePage;
    if (before != 0)
    {
        munmap(memory, before);
    }
    munmap(memory + before + pages, kHugePage - before);
    unsigned char* const block = memory + before;
    madvise(block, pages, MADV_HUGEPAGE); // Where the system has none, ordinary pages do.
    return block;
}

} // namespace

GenDCBuffer::GenDCBuffer(std::size_t size) : m_payloadSize(size), m_buffer(nullptr), m_bufferSize(BlockSize(size))
{
    m_buffer = m_bufferSize < kHugePagesFrom ? Map(m_bufferSize) : MapHuge(m_bufferSize);
    if (ForkTearsPinnedPages()) // A child must not have the block then.
    {
        madvise(m_buffer, m_bufferSize, MADV_DONTFORK);
    }
    // The descriptor and the payload would be copied here, but all of it is zero already.
    m_payload = m_buffer + gendc_wire::kDescriptorSize;
}

GenDCBuffer::~GenDCBuffer()
{
    // A child that must not have the block has nothing there, or other memory.
    if (!ForkTearsPinnedPages() || !m_origin.IsInherited())
    {
        munmap(m_buffer, m_bufferSize);
    }
}
