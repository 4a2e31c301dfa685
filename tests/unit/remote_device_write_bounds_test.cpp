// SPDX-License-Identifier: Apache-2.0
// The blocks that a port write is put together in are not written past their end.
#include "gev/nq_gev_remote_device.h"

#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/gvcp_camera.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <gmock/gmock.h>
#include <new>
#include <vector>

namespace
{

constexpr std::size_t kGuardSize = 16;
constexpr unsigned char kGuard = 0xC5;

std::atomic<int> overruns = 0;

} // namespace

/// Every block is followed by a guard, which is looked at when the block goes.
void* operator new(std::size_t size)
{
    auto* const memory = static_cast<unsigned char*>(std::malloc(size + kGuardSize));
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    std::fill_n(memory + size, kGuardSize, kGuard);
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t size) noexcept
{
    const unsigned char* const end = static_cast<unsigned char*>(memory) + size;
    if (memory != nullptr && std::any_of(end, end + kGuardSize, [](unsigned char byte) { return byte != kGuard; }))
    {
        ++overruns;
    }
    std::free(memory);
}

namespace
{

TEST(RemoteDeviceWriteBounds, NoWriteCopiesPastItsOwnBlock)
{
    nq::test::GvcpCamera camera;
    camera.SetRegister(0x0938, 600000);
    NQGevTL tl;
    NQGevRemoteDevice device(&tl, nq::test::LoopbackCamera(), 3, nullptr);
    ASSERT_EQ(device.Open(), 0);
    const std::vector<unsigned char> memory(2048, 0x77);
    for (const unsigned long given : {1UL, 2UL, 3UL, 4UL, 5UL, 7UL, 509UL, 511UL, 512UL, 513UL, 516UL, 1021UL, 1025UL})
    {
        unsigned long size = given;
        EXPECT_EQ(device.WritePort(0x9000, memory.data(), &size), 0) << given;
        EXPECT_EQ(overruns, 0) << given;
    }
    EXPECT_EQ(device.Close(), 0);
}

} // namespace
