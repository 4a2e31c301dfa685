// SPDX-License-Identifier: Apache-2.0
// The system's release, and the pages of a piece of memory.
#include "rdma/pinned_pages.h"

#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace
{

bool AskSystem()
{
    utsname system{};
    return uname(&system) == 0 && ForkTearsPinnedPages(system.release);
}

/// Asked when the library is loaded, so that no child meets the question half answered.
const bool kForkTears = AskSystem();

/// Whether the pages of `length` bytes at `memory` hold nothing but the `room` bytes there.
bool HasPagesOfItsOwn(const unsigned char* memory, std::size_t length, std::size_t room)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return reinterpret_cast<std::uintptr_t>(memory) % page == 0 && (length + page - 1) / page * page <= room;
}

} // namespace

bool ForkTearsPinnedPages(const char* release)
{
    char* rest = nullptr;
    const long version = std::strtol(release, &rest, 10);
    const long revision = *rest == '.' ? std::strtol(rest + 1, nullptr, 10) : 0;
    return version < 5 || (version == 5 && revision < 12);
}

bool ForkTearsPinnedPages()
{
    return kForkTears;
}

PagesKeptFromForks::PagesKeptFromForks(unsigned char* memory, std::size_t length, std::size_t room)
{
    if (!ForkTearsPinnedPages())
    {
        return;
    }
    m_fit = HasPagesOfItsOwn(memory, length, room) && madvise(memory, length, MADV_DONTFORK) == 0;
    if (m_fit)
    {
        m_kept = memory;
        m_length = length;
    }
}

PagesKeptFromForks::~PagesKeptFromForks()
{
    // In a child there is nothing, or other memory.
    if (m_kept != nullptr && !m_origin.IsInherited())
    {
        madvise(m_kept, m_length, MADV_DOFORK);
    }
}
