// SPDX-License-Identifier: Apache-2.0
// The finding about the memory that a user may lock, and the container that may forbid it.
#include "doctor/checks.h"
#include "doctor/memory_rights.h"

#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <linux/capability.h>
#include <sys/resource.h>

namespace nq::tool::doctor
{

bool MayLockAnything(const Machine& machine)
{
    const std::string status = machine.Text("proc/self/status").value_or("");
    constexpr std::string_view kName = "CapEff:";
    const size_t line = status.find(kName);
    return line != std::string::npos &&
           (std::strtoull(status.c_str() + line + kName.size(), nullptr, 16) >> CAP_IPC_LOCK & 1) != 0;
}

uint64_t LockableBytes()
{
    rlimit limit{};
    return getrlimit(RLIMIT_MEMLOCK, &limit) == 0 ? limit.rlim_cur : std::numeric_limits<uint64_t>::max();
}

void CheckMemory(const Scene& scene, Findings& findings)
{
    constexpr const char* kId = "memory.lock";
    if (scene.onSoftwareRdma && scene.ports.empty())
    {
        findings.Right(kId, "", "not needed on software RDMA");
        return;
    }
    if (MayLockAnything(scene.machine))
    {
        findings.Right(kId, "", "any amount (CAP_IPC_LOCK)");
        return;
    }
    if (LockableBytes() == RLIM_INFINITY)
    {
        findings.Right(kId, "", "any amount");
        return;
    }
    if (!scene.payload)
    {
        findings.NotKnown(kId, "", fmt::format("{} KiB; {}", LockableBytes() / 1024, scene.whyNoPayload));
        return;
    }
    const uint64_t most = std::numeric_limits<uint64_t>::max() / scene.options.buffers;
    const uint64_t needed = std::min(*scene.payload, most) * scene.options.buffers;
    const std::string text = fmt::format("{} KiB, and {} frames of {} bytes need {} KiB", LockableBytes() / 1024,
                                         scene.options.buffers, *scene.payload, (needed + 1023) / 1024);
    LockableBytes() >= needed ? findings.Right(kId, "", text) : findings.Wrong(kId, "", text);
}

} // namespace nq::tool::doctor
