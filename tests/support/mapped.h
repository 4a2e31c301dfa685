// SPDX-License-Identifier: Apache-2.0
// Whether an address may be read, found out without reading it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace nq::test
{

/// False for an address whose page is gone, and under AddressSanitizer also for one inside freed memory. What an
/// allocator keeps of freed memory counts as mapped otherwise: allocate 33 MiB or more to be sure that it keeps
/// nothing.
inline bool IsMapped(const void* address)
{
#if defined(__SANITIZE_ADDRESS__)
    if (__asan_address_is_poisoned(address))
    {
        return false;
    }
#endif
    constexpr std::uintptr_t kPageSize = 4096;
    unsigned char resident = 0;
    const std::uintptr_t page = reinterpret_cast<std::uintptr_t>(address) / kPageSize * kPageSize;
    return mincore(reinterpret_cast<void*>(page), 1, &resident) == 0;
}

} // namespace nq::test
