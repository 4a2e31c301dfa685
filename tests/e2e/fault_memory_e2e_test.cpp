// SPDX-License-Identifier: Apache-2.0
// No memory at each of the allocations that a start of an acquisition makes.
#include "support/fault_row.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <execinfo.h>
#include <new>
#include <string_view>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// Counts down the allocations of one thread that come from the library; the one at 0 fails. Negative: none does.
thread_local int g_untilFailure = -1;
thread_local bool g_failed = false;
thread_local int g_failedMappings = 0; ///< Those of them that asked the system for pages of their own.

/// Whether the call comes from the library under test, through whatever part of the run-time; not from the software
/// RDMA.
bool ComesFromTheLibrary()
{
    std::array<void*, 16> frames{};
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    for (int index = 1; index < count; ++index)
    {
        Dl_info info{};
        if (dladdr(frames[static_cast<std::size_t>(index)], &info) == 0)
        {
            continue;
        }
        const std::string_view name = info.dli_fname;
        if (name.find("libnq_rdma_loopback") != std::string_view::npos)
        {
            return false;
        }
        if (name.find(".cti") != std::string_view::npos)
        {
            return true;
        }
    }
    return false;
}

bool FailsNow()
{
    if (g_untilFailure < 0)
    {
        return false;
    }
    const int left = g_untilFailure;
    g_untilFailure = -1; // The look at the callers may itself allocate.
    const bool counts = ComesFromTheLibrary();
    if (counts && left == 0)
    {
        g_failed = true;
        return true;
    }
    g_untilFailure = counts ? left - 1 : left;
    return false;
}

} // namespace

// These take the place of the run-time's functions in the whole process, the library under test included.
void* operator new(std::size_t size)
{
    void* const memory = FailsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

#if NQ_SANITIZED == 0
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* calloc(std::size_t count, std::size_t size) noexcept
{
    return FailsNow() ? nullptr : __libc_calloc(count, size);
}
extern "C" void* mmap(void* address, std::size_t length, int protection, int flags, int file, off_t offset) noexcept
{
    if (FailsNow())
    {
        ++g_failedMappings;
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return reinterpret_cast<void*>(syscall(SYS_mmap, address, length, protection, flags, file, offset));
}
#endif

namespace
{

using nq::test::Consumer;
using nq::test::FaultRow;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

class OutOfMemory : public FaultRow
{
  protected:
    // On a machine under load the camera may be late to answer a connection; that is not the failure meant here.
    void SetUp() override { setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "20000", 1); }
};

TEST_F(OutOfMemory, AtEachAllocationOfAStartFailsThatStartAlone)
{
    std::array<void*, 1> warm{};
    backtrace(warm.data(), 1);
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    ASSERT_NE(consumer.stream, nullptr);
    consumer.AnnounceAndQueue(3);
    nq::test::ExpectAWholeRun(consumer);

    Fault("out of memory at each allocation of a start");
    int allocation = 0;
    int refused = 0;
    int thrown = 0;
    for (g_failed = true; g_failed; ++allocation)
    {
        ASSERT_LT(allocation, 500);
        g_failed = false;
        int result = 0;
        g_untilFailure = allocation;
        try
        {
            result = consumer.Start();
        }
        catch (const std::bad_alloc&)
        {
            result = -1;
            ++thrown;
        }
        g_untilFailure = -1;
        refused += result == -1001 ? 1 : 0;
        ASSERT_TRUE(result == 0 || result == -1 || result == -1001) << result << " at allocation " << allocation;
        EXPECT_TRUE(result != 0 || consumer.Stop() == 0);
        nq::test::ExpectAWholeRun(consumer);
        ASSERT_FALSE(HasFailure()) << "after allocation " << allocation;
    }
    EXPECT_GT(refused, 10);
    EXPECT_EQ(g_failedMappings > 0, !NQ_SANITIZED) << "the frame blocks";
    Sees("of " + std::to_string(allocation - 1) + " allocations " + std::to_string(refused) + " give GC_ERR_ERROR, " +
         std::to_string(thrown) + " std::bad_alloc");
    NextWorks(consumer, "at once, after each");
}

} // namespace
