// SPDX-License-Identifier: Apache-2.0
// What one frame costs inside the producer: heap allocations and copied bytes per frame, counted, and the throughput.
// Run beside a virtual camera by `./run bench`. Prints JSON.
#include "camera_choice.h"
#include "grab_session.h"
#include "nq_version.h"
#include "producer_tree.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fmt/format.h>
#include <link.h>
#include <new>
#include <nlohmann/json.hpp>
#include <string_view>

namespace
{

/// The producer's code and what it did since counting began. Calls are told apart by their return address.
struct Counters
{
    std::atomic<uintptr_t> codeBegin{0};
    std::atomic<uintptr_t> codeEnd{0};
    std::atomic<bool> on{false};
    std::atomic<uint64_t> allocations{0};
    std::atomic<uint64_t> copies{0};
    std::atomic<uint64_t> copiedBytes{0};

    bool Counts(const void* caller) const
    {
        const auto address = reinterpret_cast<uintptr_t>(caller);
        return on && address >= codeBegin && address < codeEnd;
    }
};

Counters g_counters;

/// Copies below this size are single fields (a status, a handle); from here on they would be picture data.
constexpr size_t kSmallestCountedCopy = 4096;

void* CountedAllocation(size_t size, const void* caller)
{
    if (g_counters.Counts(caller))
    {
        ++g_counters.allocations;
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

void* operator new(size_t size)
{
    return CountedAllocation(size, __builtin_return_address(0));
}

void* operator new[](size_t size)
{
    return CountedAllocation(size, __builtin_return_address(0));
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, size_t) noexcept
{
    std::free(memory);
}

/// Stands in front of the C library's memcpy for every library of the process.
extern "C" __attribute__((visibility("default"))) void* memcpy(void* destination, const void* source, size_t size)
{
    using Copy = void* (*)(void*, const void*, size_t);
    static const Copy next = reinterpret_cast<Copy>(dlsym(RTLD_NEXT, "memmove"));
    if (size >= kSmallestCountedCopy && g_counters.Counts(__builtin_return_address(0)))
    {
        ++g_counters.copies;
        g_counters.copiedBytes += size;
    }
    return next(destination, source, size);
}

namespace
{

using namespace nq::tool;

int FindCode(dl_phdr_info* info, size_t, void* name)
{
    if (std::string(info->dlpi_name).find(static_cast<const char*>(name)) == std::string::npos)
    {
        return 0;
    }
    for (int index = 0; index < info->dlpi_phnum; ++index)
    {
        const ElfW(Phdr)& header = info->dlpi_phdr[index];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0)
        {
            g_counters.codeBegin = info->dlpi_addr + header.p_vaddr;
            g_counters.codeEnd = info->dlpi_addr + header.p_vaddr + header.p_memsz;
        }
    }
    return 1;
}

Frame NextFrame(GrabSession& session)
{
    std::optional<Frame> frame = session.Next(5000);
    if (!frame)
    {
        throw ToolFailure(ExitCode::CameraLost, session.WhyNoFrames());
    }
    return *frame;
}

nlohmann::ordered_json Measure(Interface& interface, const CameraEntry& camera, BufferOrigin origin, uint64_t frames)
{
    constexpr uint64_t warmUp = 200; // until every buffer is bound to its block and every queue has its capacity
    MemoryBudget memory;
    GrabSession session(interface, camera, origin, 8, memory);
    session.Start();
    uint64_t bytes = 0;
    std::chrono::steady_clock::time_point start;
    for (uint64_t index = 0; index < warmUp + frames; ++index)
    {
        if (index == warmUp)
        {
            g_counters.allocations = g_counters.copies = g_counters.copiedBytes = bytes = 0;
            g_counters.on = true;
            start = std::chrono::steady_clock::now();
        }
        const Frame frame = NextFrame(session);
        bytes += frame.size;
        session.Requeue(frame);
    }
    g_counters.on = false;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const auto perFrame = [frames](uint64_t total) { return static_cast<double>(total) / static_cast<double>(frames); };
    return {{"buffers", origin == BufferOrigin::Library ? "library-allocated" : "consumer-announced"},
            {"frames", frames},
            {"bytes_per_frame", perFrame(bytes)},
            {"allocations_per_frame", perFrame(g_counters.allocations)},
            {"copies_per_frame", perFrame(g_counters.copies)},
            {"copied_bytes_per_frame", perFrame(g_counters.copiedBytes)},
            {"megabytes_per_second", static_cast<double>(bytes) / seconds / 1e6}};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string_view(argv[1]) == "--version")
    {
        fmt::print("{}\n", NQ_VERSION_TEXT("frame_cost"));
        return 0;
    }
    try
    {
        const FoundCamera used = ChooseCameras(CommonOptions{}, {}).front();
        ProducerTree producers;
        Interface& interface = producers.InterfaceOf(used);
        dl_iterate_phdr(FindCode, const_cast<char*>("libnq_gev_rdma_tl.cti"));
        const uint64_t frames = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2000;
        nlohmann::ordered_json results = nlohmann::ordered_json::array();
        for (const BufferOrigin origin : {BufferOrigin::Library, BufferOrigin::Consumer})
        {
            results.push_back(Measure(interface, used.camera, origin, frames));
        }
        fmt::print("{}\n", nlohmann::ordered_json{{"frame_cost", results}}.dump(2));
        return 0;
    }
    catch (const std::exception& failure)
    {
        fmt::print(stderr, "frame_cost: {}\n", failure.what());
        return 1;
    }
}
