// SPDX-License-Identifier: Apache-2.0
// What one frame costs in memory: heap allocations and copied pixels in the library, counted. The consumer is the lean
// one of all benchmarks, since a question that the library refuses costs the text of an error. Prints JSON. Run beside
// a virtual camera by `./run bench`.
#include "code_range.h"
#include "frame_source.h"
#include "nq_version.h"

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fmt/format.h>
#include <new>
#include <nlohmann/json.hpp>
#include <vector>

namespace
{

/// The producer's code and what it did since counting began.
struct Counters
{
    nq::bench::CodeRange code;
    std::atomic<bool> on{false};
    std::atomic<uint64_t> allocations{0};
    std::atomic<uint64_t> copies{0};
    std::atomic<uint64_t> copiedBytes{0};

    bool Counts(const void* caller) const { return on && code.Holds(caller); }
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

/// Copies by the C library's memmove, which does for both.
void* CountedCopy(void* destination, const void* source, size_t size, const void* caller)
{
    using Copy = void* (*)(void*, const void*, size_t);
    static const Copy kNext = reinterpret_cast<Copy>(dlsym(RTLD_NEXT, "memmove"));
    if (size >= kSmallestCountedCopy && g_counters.Counts(caller))
    {
        ++g_counters.copies;
        g_counters.copiedBytes += size;
    }
    return kNext(destination, source, size);
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

// These stand in front of those of the C library, for every library of the process.
extern "C"
{
__attribute__((visibility("default"))) void* memcpy(void* destination, const void* source, size_t size)
{
    return CountedCopy(destination, source, size, __builtin_return_address(0));
}

__attribute__((visibility("default"))) void* memmove(void* destination, const void* source, size_t size)
{
    return CountedCopy(destination, source, size, __builtin_return_address(0));
}
}

namespace
{

using namespace nq::bench;

/// How many rounds of all buffers come before those that count: until each is bound to its block and every queue has
/// its capacity.
constexpr uint64_t kWarmUp = 25;

/// Takes a frame into each buffer, `rounds` times. In between none is on its way, since none has a buffer: what is
/// counted from one such moment to another is of the frames taken alone. Bytes of the pixels of all frames.
uint64_t TakeRounds(FrameSource& source, std::vector<SourceFrame>& held, uint64_t rounds)
{
    uint64_t bytes = 0;
    for (; rounds > 0; --rounds)
    {
        for (SourceFrame& frame : held)
        {
            if (frame.token != nullptr)
            {
                source.Return(frame);
            }
        }
        for (SourceFrame& frame : held)
        {
            if (!source.Next(frame) || frame.pixels == nullptr)
            {
                throw std::runtime_error("no frame came");
            }
            bytes += frame.size;
        }
    }
    return bytes;
}

nlohmann::ordered_json Measure(const SourcePlan& plan, uint64_t frames)
{
    const std::unique_ptr<FrameSource> source = MakeLibrarySource(plan);
    std::vector<SourceFrame> held(plan.buffers);
    g_counters.code.Take("libnq_gev_rdma_tl.cti");
    source->Start();
    TakeRounds(*source, held, kWarmUp);
    const uint64_t rounds = (frames + held.size() - 1) / held.size();
    g_counters.on = true;
    const uint64_t bytes = TakeRounds(*source, held, rounds);
    g_counters.on = false;
    source->Stop();
    const auto perFrame = [counted = rounds * held.size()](uint64_t total) {
        return static_cast<double>(total) / static_cast<double>(counted);
    };
    return {{"announced", plan.announced},
            {"frames", rounds * held.size()},
            {"bytes_per_frame", perFrame(bytes)},
            {"allocations_per_frame", perFrame(g_counters.allocations)},
            {"copies_per_frame", perFrame(g_counters.copies)},
            {"copied_bytes_per_frame", perFrame(g_counters.copiedBytes)}};
}

} // namespace

int main(int argc, char** argv)
{
    SourcePlan plan;
    uint64_t frames = 500;
    CLI::App app("What the library allocates and copies for a frame");
    app.set_version_flag("--version", NQ_VERSION_TEXT("frame_cost"));
    app.add_option("--camera", plan.camera, "dotted IPv4 address")->required();
    app.add_option("--producer", plan.producer, "path of the library")->required();
    app.add_flag("--announced", plan.announced, "buffers of the consumer");
    app.add_option("--frames", frames)->check(CLI::PositiveNumber);
    CLI11_PARSE(app, argc, argv);
    try
    {
        fmt::print("{}\n", Measure(plan, frames).dump(2));
        return 0;
    }
    catch (const std::exception& failure)
    {
        fmt::print(stderr, "frame_cost: {}\n", failure.what());
        return 1;
    }
}
