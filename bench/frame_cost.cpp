// SPDX-License-Identifier: Apache-2.0
// What one frame costs: heap allocations and copied bytes in the producer, counted; the throughput, the time of all
// processors in this process, the software RDMA's own copy included, and the memory registered once started and once
// started again. For buffers of both kinds, by the library's own answers and with the standard's. Run beside a virtual
// camera by `./run bench`. Prints JSON.
#include "camera_choice.h"
#include "code_range.h"
#include "grab_session.h"
#include "nq_version.h"
#include "producer_tree.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fmt/format.h>
#include <infiniband/verbs.h>
#include <new>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/resource.h>
#include <thread>

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

std::atomic<uint64_t> g_registeredBytes{0};

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

// These stand in front of those of the libraries, for every library of the process.
#undef ibv_reg_mr
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

__attribute__((visibility("default"))) ibv_mr* ibv_reg_mr(ibv_pd* domain, void* start, size_t size, int access)
{
    using Register = ibv_mr* (*)(ibv_pd*, void*, size_t, int);
    static const Register kNext = reinterpret_cast<Register>(dlsym(RTLD_NEXT, "ibv_reg_mr"));
    ibv_mr* const region = kNext(domain, start, size, access);
    g_registeredBytes += region != nullptr ? size : 0;
    return region;
}

__attribute__((visibility("default"))) int ibv_dereg_mr(ibv_mr* region)
{
    using Deregister = int (*)(ibv_mr*);
    static const Deregister kNext = reinterpret_cast<Deregister>(dlsym(RTLD_NEXT, "ibv_dereg_mr"));
    g_registeredBytes -= region->length;
    return kNext(region);
}
}

namespace
{

using namespace nq::tool;

Frame NextFrame(GrabSession& session)
{
    std::optional<Frame> frame = session.Next(5000);
    if (!frame)
    {
        throw ToolFailure(ExitCode::CameraLost, session.WhyNoFrames());
    }
    return *frame;
}

/// Of this process, on all processors.
double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A session that has started. A busy camera may hear late that the last one has ended.
std::unique_ptr<GrabSession> Start(Interface& interface, const CameraEntry& camera, BufferOrigin origin,
                                   MemoryBudget& memory)
{
    for (int attempt = 1;; ++attempt)
    {
        try
        {
            auto session = std::make_unique<GrabSession>(interface, camera, origin, 8, memory);
            session->Start();
            return session;
        }
        catch (const ToolFailure& failure)
        {
            if (failure.Code() != ExitCode::CameraInUse || attempt == 10)
            {
                throw;
            }
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
    }
}

/// What is registered while a session runs, once some frames have come.
uint64_t RegisteredOnceStarted(Interface& interface, const CameraEntry& camera, BufferOrigin origin)
{
    MemoryBudget memory;
    const auto session = Start(interface, camera, origin, memory);
    for (int index = 0; index < 10; ++index)
    {
        session->Requeue(NextFrame(*session));
    }
    return g_registeredBytes;
}

nlohmann::ordered_json Measure(Interface& interface, const CameraEntry& camera, BufferOrigin origin, uint64_t frames)
{
    // Until every buffer is bound to its block and every queue has its capacity.
    const uint64_t warmUp = std::min<uint64_t>(frames, 200);
    const uint64_t registered = RegisteredOnceStarted(interface, camera, origin);
    MemoryBudget memory;
    const auto session = Start(interface, camera, origin, memory);
    double cpu = 0;
    uint64_t bytes = 0;
    std::chrono::steady_clock::time_point start;
    for (uint64_t index = 0; index < warmUp + frames; ++index)
    {
        if (index == warmUp)
        {
            g_counters.allocations = g_counters.copies = g_counters.copiedBytes = bytes = 0;
            g_counters.on = true;
            cpu = CpuSeconds();
            start = std::chrono::steady_clock::now();
        }
        const Frame frame = NextFrame(*session);
        bytes += frame.size;
        session->Requeue(frame);
    }
    g_counters.on = false;
    cpu = CpuSeconds() - cpu;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const auto perFrame = [frames](uint64_t total) { return static_cast<double>(total) / static_cast<double>(frames); };
    return {{"buffers", origin == BufferOrigin::Library ? "library-allocated" : "consumer-announced"},
            {"frames", frames},
            {"bytes_per_frame", perFrame(bytes)},
            {"allocations_per_frame", perFrame(g_counters.allocations)},
            {"copies_per_frame", perFrame(g_counters.copies)},
            {"copied_bytes_per_frame", perFrame(g_counters.copiedBytes)},
            {"megabytes_per_second", static_cast<double>(bytes) / seconds / 1e6},
            {"cpu_microseconds_per_frame", cpu * 1e6 / static_cast<double>(frames)},
            {"registered_bytes_once_started", registered},
            {"registered_bytes_once_started_again", g_registeredBytes.load()}};
}

/// Rows for both kinds of buffers of a producer that is asked for these answers.
void MeasureAnswers(const std::string& answers, uint64_t frames, nlohmann::ordered_json& results)
{
    answers == "standard" ? setenv("NQ_GEV_TL_STANDARD", "1", 1) : unsetenv("NQ_GEV_TL_STANDARD");
    const FoundCamera used = ChooseCameras(CommonOptions{}, {}).front();
    ProducerTree producers;
    Interface& interface = producers.InterfaceOf(used);
    g_counters.code.Take("libnq_gev_rdma_tl.cti");
    for (const BufferOrigin origin : {BufferOrigin::Library, BufferOrigin::Consumer})
    {
        nlohmann::ordered_json row = {{"answers", answers}};
        row.update(Measure(interface, used.camera, origin, frames));
        results.push_back(std::move(row));
    }
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
        const uint64_t frames = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2000;
        nlohmann::ordered_json results = nlohmann::ordered_json::array();
        for (const char* answers : {"stated", "standard"})
        {
            MeasureAnswers(answers, frames, results);
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
