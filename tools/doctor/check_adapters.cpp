// SPDX-License-Identifier: Apache-2.0
// Findings about the network adapters: up, linked, addressed, alone on their subnets.
#include "doctor/checks.h"

#include "address_holder.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::tool::doctor
{

namespace
{

bool IsTaken(const Scene& scene, uint32_t address)
{
    const auto has = [address](const Adapter& adapter) {
        return std::any_of(adapter.networks.begin(), adapter.networks.end(),
                           [address](const Ipv4Network& one) { return one.address == address; });
    };
    return std::any_of(scene.adapters.begin(), scene.adapters.end(), has) ||
           std::any_of(scene.cameras.begin(), scene.cameras.end(),
                       [address](const SeenCamera& camera) { return camera.subnet.address == address; });
}

/// Whether any host answers for the address on the adapter, if one is named.
bool IsHeld(const std::string& adapter, uint32_t address)
{
    return !adapter.empty() && !FindHolder(adapter, address).mac.empty();
}

/// A camera that was heard on the adapter, or none.
const SeenCamera* HeardOn(const Scene& scene, const Adapter& adapter)
{
    const auto heard = std::find_if(scene.cameras.begin(), scene.cameras.end(),
                                    [&](const SeenCamera& camera) { return camera.adapter == adapter.name; });
    return heard == scene.cameras.end() ? nullptr : &*heard;
}

bool IsOnNoAdapter(const Scene& scene, const Ipv4Network& subnet)
{
    return std::none_of(scene.adapters.begin(), scene.adapters.end(), [&](const Adapter& adapter) {
        return std::any_of(adapter.networks.begin(), adapter.networks.end(), [&](const Ipv4Network& one) {
            return one.Contains(subnet.address) || subnet.Contains(one.address);
        });
    });
}

/// An address for an adapter on which no camera is heard: on the subnet of cameras without an address of their own, or,
/// since that can be one adapter's alone, on a subnet that nobody has. A camera of any subnet answers there.
Ipv4Network AddressForAny(const Scene& scene, const Adapter& adapter)
{
    const auto sameNeed = [&](const Adapter& one) {
        return one.name < adapter.name && one.networks.empty() && HeardOn(scene, one) == nullptr;
    };
    auto turn = std::count_if(scene.concerned.begin(), scene.concerned.end(), sameNeed);
    Ipv4Network candidate{0xA9FE0101, 0xFFFF0000}; // 169.254.1.1/16, then 192.168.100.1/24, 192.168.101.1/24 ...
    for (uint32_t next = 0xC0A86401; next < 0xC0A8FF01; next += 256)
    {
        if (IsOnNoAdapter(scene, candidate) && turn-- == 0)
        {
            break;
        }
        candidate = {next, 0xFFFFFF00};
    }
    return FreeAddress(scene, candidate);
}

void CheckAddress(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    const SeenCamera* const heard = HeardOn(scene, adapter);
    const Ipv4Network wanted = heard == nullptr ? AddressForAny(scene, adapter) : FreeAddress(scene, heard->subnet);
    findings.Wrong("adapter.address", adapter.name, "it has no IPv4 address",
                   {{"ADDRESS", NetworkText(wanted)}, {"ADAPTER", adapter.name}});
}

/// What `ip addr add` is told without a mask is alone on its subnet.
void CheckMask(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    constexpr const char* kId = "adapter.mask";
    const Ipv4Network& own = adapter.networks.front();
    const SeenCamera* const heard = HeardOn(scene, adapter);
    if (!IsAlone(own) || heard == nullptr)
    {
        findings.Right(kId, adapter.name, NetworkText(own));
        return;
    }
    const bool stays = heard->subnet.Contains(own.address) && heard->subnet.address != own.address;
    const Ipv4Network wanted = stays ? Ipv4Network{own.address, heard->subnet.mask} : FreeAddress(scene, heard->subnet);
    findings.Wrong(kId, adapter.name, fmt::format("{} has no room for {}", NetworkText(own), heard->Name()),
                   {{"ADDRESS", NetworkText(own)}, {"OTHER", NetworkText(wanted)}, {"ADAPTER", adapter.name}});
}

void CheckOne(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    const Findings::Words words = {{"ADAPTER", adapter.name}};
    adapter.up ? findings.Right("adapter.up", adapter.name, "it is up")
               : findings.Wrong("adapter.up", adapter.name, "it is down", words);
    if (!adapter.up)
    {
        findings.NotKnown("adapter.link", adapter.name, "the adapter is down");
    }
    else
    {
        adapter.linked ? findings.Right("adapter.link", adapter.name, "it has a link")
                       : findings.Wrong("adapter.link", adapter.name, "it has no link", words);
    }
    adapter.mtu >= 1500 ? findings.Right("adapter.mtu", adapter.name, fmt::format("{} bytes", adapter.mtu))
                        : findings.Wrong("adapter.mtu", adapter.name, fmt::format("only {} bytes", adapter.mtu), words);
    if (adapter.networks.empty())
    {
        CheckAddress(scene, adapter, findings);
        return;
    }
    CheckMask(scene, adapter, findings);
    std::string all;
    for (const Ipv4Network& one : adapter.networks)
    {
        all += (all.empty() ? "" : ", ") + NetworkText(one);
    }
    findings.Right("adapter.address", adapter.name, all);
}

bool IsOwn(const Scene& scene, const std::string& mac)
{
    return std::any_of(scene.adapters.begin(), scene.adapters.end(), [&](const Adapter& adapter) {
        return scene.machine.Text("sys/class/net/" + adapter.name + "/address").value_or("").starts_with(mac);
    });
}

/// The kernel takes no packet from an address of this machine, so a camera that has it as well is never heard.
void CheckUnique(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    constexpr const char* kId = "adapter.unique";
    if (!scene.cameras.empty() || scene.otherCameras != 0)
    {
        findings.Right(kId, adapter.name, "cameras answer");
        return;
    }
    for (const Adapter& other : scene.adapters)
    {
        for (const Ipv4Network& one : other.networks)
        {
            const AddressHolder holder = adapter.linked ? FindHolder(adapter.name, one.address) : AddressHolder();
            if (!holder.mac.empty() && !IsOwn(scene, holder.mac))
            {
                findings.Wrong(kId, adapter.name,
                               fmt::format("the host {} there has {} as well", holder.mac, NetworkText(one)),
                               {{"ADDRESS", NetworkText(one)}, {"OTHER", other.name}});
                return;
            }
        }
    }
    findings.NotKnown(kId, adapter.name, "no host there says that it has one, and no camera answers");
}

/// The address of another adapter that shares a subnet with this one.
const Ipv4Network* Shared(const Adapter& adapter, const Adapter& other)
{
    for (const Ipv4Network& one : adapter.networks)
    {
        for (const Ipv4Network& address : other.networks)
        {
            if (one.Contains(address.address) || address.Contains(one.address))
            {
                return &address;
            }
        }
    }
    return nullptr;
}

bool IsConcerned(const Scene& scene, const Adapter& adapter)
{
    return std::any_of(scene.concerned.begin(), scene.concerned.end(),
                       [&](const Adapter& one) { return one.name == adapter.name; });
}

/// Of two adapters that both matter the one that comes first in the alphabet keeps its address.
void CheckSubnet(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    for (const Adapter& other : scene.adapters)
    {
        const Ipv4Network* const shared = other.name == adapter.name || !other.up ? nullptr : Shared(adapter, other);
        if (shared != nullptr && (adapter.name < other.name || !IsConcerned(scene, other)))
        {
            findings.Wrong("adapter.subnet", adapter.name,
                           fmt::format("{} is on its subnet with {}", other.name, NetworkText(*shared)),
                           {{"ADDRESS", NetworkText(*shared)}, {"OTHER", other.name}});
            return;
        }
    }
    findings.Right("adapter.subnet", adapter.name, "no other adapter is on its subnet");
}

} // namespace

bool IsAlone(const Ipv4Network& network)
{
    return network.mask >= 0xFFFFFFFE;
}

Ipv4Network FreeAddress(const Scene& scene, const Ipv4Network& camera, const std::string& adapter)
{
    const uint32_t network = camera.address & camera.mask;
    const uint32_t hosts = ~camera.mask; // the last is for broadcasts
    constexpr int kMostHeld = 32;        // a router may answer for every address
    int held = 0;
    for (uint32_t step = 1; step < hosts && step < 65536; ++step)
    {
        const uint32_t part = ((camera.address & hosts) + step) % hosts;
        if (part == 0 || IsTaken(scene, network | part))
        {
            continue;
        }
        if (held == kMostHeld || !IsHeld(adapter, network | part))
        {
            return {network | part, camera.mask};
        }
        ++held;
    }
    return camera;
}

void CheckAdapters(const Scene& scene, Findings& findings)
{
    scene.adapters.empty() ? findings.Wrong("adapter.found", "", "there is none but lo")
                           : findings.Right("adapter.found", "", fmt::format("{} of them", scene.adapters.size()));
    for (const Adapter& adapter : scene.concerned)
    {
        CheckOne(scene, adapter, findings);
        CheckUnique(scene, adapter, findings);
        CheckSubnet(scene, adapter, findings);
    }
    findings.NotKnownElse(
        {"adapter.up", "adapter.link", "adapter.address", "adapter.unique", "adapter.mtu", "adapter.subnet"},
        "there is no adapter (adapter.found)");
    findings.NotKnownElse({"adapter.mask"}, "no adapter has an address (adapter.found, adapter.address)");
}

} // namespace nq::tool::doctor
