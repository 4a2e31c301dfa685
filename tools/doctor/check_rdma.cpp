// SPDX-License-Identifier: Apache-2.0
// Findings about the RDMA device of each adapter and its port.
#include "doctor/checks.h"

#include "software_rdma.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::tool::doctor
{

namespace
{

const RdmaPort* PortOf(const Scene& scene, const std::string& adapter)
{
    const auto found = std::find_if(scene.ports.begin(), scene.ports.end(),
                                    [&](const RdmaPort& port) { return port.adapters.contains(adapter); });
    return found == scene.ports.end() ? nullptr : &*found;
}

/// How the kernel writes the GID of an IPv4 address.
std::string GidOf(uint32_t address)
{
    return fmt::format("0000:0000:0000:0000:0000:ffff:{:04x}:{:04x}", address >> 16, address & 0xFFFF);
}

void CheckGid(const Adapter& adapter, const RdmaPort& port, const std::string& subject, Findings& findings)
{
    for (const Ipv4Network& one : adapter.networks)
    {
        if (std::find(port.v2Gids.begin(), port.v2Gids.end(), GidOf(one.address)) != port.v2Gids.end())
        {
            findings.Right("rdma.gid", subject, GidOf(one.address));
            return;
        }
    }
    if (adapter.networks.empty())
    {
        findings.NotKnown("rdma.gid", subject, "the adapter has no IPv4 address (adapter.address)");
        return;
    }
    findings.Wrong(
        "rdma.gid", subject,
        fmt::format("{} RoCE v2 GID(s), none of {}", port.v2Gids.size(), NetworkText(adapter.networks.front())),
        {{"ADAPTER", adapter.name}});
}

/// The longest RDMA packet in Ethernet packets of `mtu` bytes, as the kernel reckons it.
uint32_t LongestPacketIn(uint32_t mtu)
{
    constexpr uint32_t kHeaders = 40 + 8 + 12 + 4 + 28 + 4;
    for (uint32_t bytes = 4096; bytes > 256; bytes /= 2)
    {
        if (bytes + kHeaders <= mtu)
        {
            return bytes;
        }
    }
    return 256;
}

void CheckVerbs(const Scene& scene, const VerbsPort& verbs, const std::string& subject, const Adapter& adapter,
                Findings& findings)
{
    if (!verbs.problem.empty())
    {
        findings.NotKnown("rdma.mtu", subject, verbs.problem);
        findings.NotKnown("rdma.message", subject, verbs.problem);
        return;
    }
    const uint32_t possible = LongestPacketIn(adapter.mtu);
    const std::string packets = fmt::format("{} bytes", verbs.activeMtu);
    verbs.activeMtu >= possible
        ? findings.Right("rdma.mtu", subject, packets)
        : findings.Wrong("rdma.mtu", subject,
                         fmt::format("{}, and its MTU of {} allows {}", packets, adapter.mtu, possible),
                         {{"ADAPTER", adapter.name}});
    const std::string most = fmt::format("{} bytes", verbs.longestMessage);
    if (!scene.payload)
    {
        findings.NotKnown("rdma.message", subject, fmt::format("{}; {}", most, scene.whyNoPayload));
        return;
    }
    const std::string text = fmt::format("{}, and a frame has {}", most, *scene.payload);
    *scene.payload <= verbs.longestMessage
        ? findings.Right("rdma.message", subject, text)
        : findings.Wrong("rdma.message", subject, text, {{"BYTES", std::to_string(verbs.longestMessage)}});
}

void CheckPort(const Scene& scene, const Adapter& adapter, const RdmaPort& port, Findings& findings)
{
    const std::string subject = fmt::format("{} of {}", port.device, adapter.name);
    findings.Right("rdma.device", adapter.name, port.device);
    port.linkLayer == "Ethernet"
        ? findings.Right("rdma.port", subject, port.linkLayer)
        : findings.Wrong("rdma.port", subject, fmt::format("it is \"{}\"", port.linkLayer), {{"DEVICE", port.device}});
    port.state == "ACTIVE"
        ? findings.Right("rdma.state", subject, port.state)
        : findings.Wrong("rdma.state", subject, fmt::format("it is {}", port.state), {{"ADAPTER", adapter.name}});
    CheckGid(adapter, port, subject, findings);
    CheckVerbs(scene, port.verbs, subject, adapter, findings);
}

void CheckSoftware(const Scene& scene, Findings& findings)
{
    constexpr const char* kSubject = "software RDMA";
    findings.Right("rdma.device", kSubject, "it serves every adapter of this machine");
    for (const char* id : {"rdma.port", "rdma.state", "rdma.gid"})
    {
        findings.Right(id, kSubject, "always there");
    }
    CheckVerbs(scene, AskVerbs("", 1), kSubject, Adapter(), findings);
}

} // namespace

void CheckRdma(const Scene& scene, Findings& findings)
{
    if (scene.onSoftwareRdma)
    {
        CheckSoftware(scene, findings);
        return;
    }
    for (const Adapter& adapter : scene.concerned)
    {
        if (const RdmaPort* const port = PortOf(scene, adapter.name))
        {
            CheckPort(scene, adapter, *port, findings);
            continue;
        }
        findings.Wrong("rdma.device", adapter.name, "it has none." + SoftwareRdmaAdvice(), {{"ADAPTER", adapter.name}});
    }
    findings.NotKnownElse({"rdma.device"}, "there is no adapter (adapter.found)");
    findings.NotKnownElse({"rdma.port", "rdma.state", "rdma.gid", "rdma.mtu", "rdma.message"},
                          "there is no RDMA device (rdma.device)");
}

} // namespace nq::tool::doctor
