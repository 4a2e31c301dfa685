// SPDX-License-Identifier: Apache-2.0
// Findings that a camera is asked for: it is only read, by a socket beside every producer.
#include "doctor/checks.h"

#include "address_holder.h"
#include "camera_owner.h"
#include "doctor/echo.h"
#include "doctor/route.h"
#include "gvcp_reader.h"
#include "heard_cameras.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fmt/format.h>
#include <sstream>

namespace nq::tool::doctor
{

namespace
{

using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr uint32_t kStreamChannels = 0x0904;
constexpr uint32_t kStreamCapability = 0x092C;
constexpr uint32_t kRdmaBit = 1U << 26;

constexpr size_t kReads = 20;
constexpr Milliseconds kLate{150};

/// How long answers took, shortest first; one that did not come ends it.
std::vector<Milliseconds> TimesOf(GvcpReader& reader)
{
    std::vector<Milliseconds> times;
    while (times.size() < kReads)
    {
        const auto start = std::chrono::steady_clock::now();
        if (!reader.Read(kControlPrivilege))
        {
            break;
        }
        times.push_back(std::chrono::steady_clock::now() - start);
    }
    std::sort(times.begin(), times.end());
    return times;
}

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char one) { return static_cast<char>(std::tolower(one)); });
    return text;
}

/// False when the camera is silent, and nothing more can be asked.
bool CheckAnswers(const SeenCamera& camera, GvcpReader& reader, Findings& findings)
{
    constexpr const char* kId = "camera.answers";
    const std::vector<Milliseconds> times = TimesOf(reader);
    const Findings::Words words = {{"ADAPTER", camera.adapter.empty() ? "this machine" : camera.adapter}};
    if (times.empty())
    {
        findings.Wrong(kId, camera.Name(), "it answers the discovery, and no read of a register", words);
        return false;
    }
    const std::string text = fmt::format("shortest {:.1f} ms, median {:.1f} ms, longest {:.1f} ms",
                                         times.front().count(), times[times.size() / 2].count(), times.back().count());
    const auto late = std::count_if(times.begin(), times.end(), [](Milliseconds one) { return one >= kLate; });
    if (times.size() < kReads)
    {
        findings.Wrong(kId, camera.Name(), fmt::format("it fell silent after {} reads; {}", times.size(), text), words);
    }
    else
    {
        late > 1 ? findings.Wrong(kId, camera.Name(), text, words) : findings.Right(kId, camera.Name(), text);
    }
    return true;
}

void CheckOwner(const SeenCamera& camera, Findings& findings)
{
    const std::optional<CameraOwner> owner = AskForOwner(camera.entry);
    if (!owner)
    {
        findings.Right("camera.owner", camera.Name(), "nobody controls it");
        return;
    }
    findings.Wrong("camera.owner", camera.Name(), "controlled by " + OwnerText(*owner),
                   {{"PORT", owner->port == 0 ? "its-port" : std::to_string(owner->port)},
                    {"HOST", owner->address.empty() ? "that it does not tell" : owner->address}});
}

void CheckStream(const SeenCamera& camera, GvcpReader& reader, Findings& findings)
{
    constexpr const char* kId = "camera.stream";
    const std::optional<uint32_t> channels = reader.Read(kStreamChannels);
    const std::optional<uint32_t> capability = reader.Read(kStreamCapability);
    if (!channels || !capability)
    {
        findings.Wrong(kId, camera.Name(), "it does not have these registers");
        return;
    }
    const std::string text = fmt::format("{} stream channel(s), capability 0x{:08X}", *channels, *capability);
    *channels != 0 && (*capability & kRdmaBit) != 0 ? findings.Right(kId, camera.Name(), text)
                                                    : findings.Wrong(kId, camera.Name(), text);
}

/// Two adapters on one subnet, or the route of a tunnel, lead packets elsewhere.
void CheckRoute(const Scene& scene, const SeenCamera& camera, Findings& findings)
{
    constexpr const char* kId = "camera.route";
    const Adapter* const adapter = AdapterCalled(scene, camera.adapter);
    if (adapter == nullptr)
    {
        findings.NotKnown(kId, camera.Name(), "only its producer sees it");
        return;
    }
    const Route route = RouteTo(camera.entry.address);
    const Findings::Words words = {{"ADDRESS", camera.entry.address}, {"ADAPTER", adapter->name}};
    const bool own = std::any_of(adapter->networks.begin(), adapter->networks.end(),
                                 [&](const Ipv4Network& one) { return one.address == route.source; });
    if (route.source == 0)
    {
        findings.Wrong(kId, camera.Name(), "no way leads there: " + route.problem, words);
    }
    else if (!own)
    {
        findings.Wrong(kId, camera.Name(),
                       fmt::format("they leave with the address {}, which is not {}'s", DottedAddress(route.source),
                                   adapter->name),
                       words);
    }
    else if (!route.adapter.empty() && route.adapter != adapter->name)
    {
        findings.Wrong(kId, camera.Name(),
                       fmt::format("they leave by {}, with an address of {}", route.adapter, adapter->name), words);
    }
    else
    {
        findings.Right(kId, camera.Name(), "by " + adapter->name);
    }
}

/// A fixed entry of the kernel's table outlives the camera, or the cable, that it was made for.
void CheckArp(const Scene& scene, const SeenCamera& camera, bool answers, Findings& findings)
{
    constexpr const char* kId = "camera.arp";
    std::istringstream table(scene.machine.Text("proc/net/arp").value_or(""));
    const Neighbour entry = FindNeighbour(table, camera.adapter, camera.subnet.address);
    if (camera.adapter.empty())
    {
        findings.NotKnown(kId, camera.Name(), "only its producer sees it");
        return;
    }
    if (!entry.isFixed)
    {
        findings.Right(kId, camera.Name(), "no entry is fixed");
        return;
    }
    if (answers)
    {
        findings.Right(kId, camera.Name(), fmt::format("fixed at {}, and it answers there", entry.mac));
        return;
    }
    const AddressHolder holder = FindHolder(camera.adapter, camera.subnet.address);
    const std::string own =
        holder.answered && !holder.mac.empty() ? holder.mac : Lower(MacText(camera.entry.macAddress));
    if (own == entry.mac)
    {
        findings.Right(kId, camera.Name(), fmt::format("fixed at {}, its own", entry.mac));
        return;
    }
    findings.Wrong(kId, camera.Name(), fmt::format("fixed at {}, and the camera has {}", entry.mac, own),
                   {{"ADDRESS", DottedAddress(camera.subnet.address)}, {"ADAPTER", camera.adapter}});
}

constexpr uint32_t kOrdinaryMtu = 1500;

/// Whether packets of the ordinary length come back. To be shorter itself does not mend the adapter where they do not.
bool CheckPackets(const SeenCamera& camera, const Adapter& adapter, uint32_t bytes, Findings& findings)
{
    constexpr const char* kId = "camera.packets";
    if (adapter.mtu < kOrdinaryMtu)
    {
        findings.NotKnown(kId, camera.Name(), fmt::format("{} sends none (adapter.mtu)", adapter.name));
        return true;
    }
    if (bytes < kOrdinaryMtu)
    {
        findings.Wrong(kId, camera.Name(), fmt::format("of {} bytes they do", bytes));
        return false;
    }
    findings.Right(kId, camera.Name(), "they come back");
    return true;
}

void CheckPath(const Scene& scene, const SeenCamera& camera, Findings& findings)
{
    constexpr const char* kId = "camera.path";
    const Adapter* const adapter = AdapterCalled(scene, camera.adapter);
    if (adapter == nullptr)
    {
        findings.NotKnown("camera.packets", camera.Name(), "only its producer sees it");
        findings.NotKnown(kId, camera.Name(), "only its producer sees it");
        return;
    }
    const EchoResult result = LongestEcho(camera.entry.address, adapter->mtu);
    if (!result.problem.empty())
    {
        findings.NotKnown("camera.packets", camera.Name(), result.problem);
        findings.NotKnown(kId, camera.Name(), result.problem);
    }
    else if (!CheckPackets(camera, *adapter, result.bytes, findings))
    {
        findings.NotKnown(kId, camera.Name(), "shorter ones do not (camera.packets)");
    }
    else if (result.bytes == adapter->mtu)
    {
        findings.Right(kId, camera.Name(), fmt::format("{} bytes come back", result.bytes));
    }
    else
    {
        findings.Wrong(kId, camera.Name(), fmt::format("{} bytes come back, and not {}", result.bytes, adapter->mtu),
                       {{"ADAPTER", adapter->name}, {"SIZE", std::to_string(result.bytes)}});
    }
}

} // namespace

void CheckCameras(const Scene& scene, Findings& findings)
{
    for (const SeenCamera& camera : scene.cameras)
    {
        if (camera.isForeign || camera.entry.address.empty())
        {
            continue;
        }
        CheckRoute(scene, camera, findings);
        GvcpReader reader(camera.entry.address);
        const bool answers = CheckAnswers(camera, reader, findings);
        CheckArp(scene, camera, answers, findings);
        if (answers)
        {
            CheckOwner(camera, findings);
            CheckStream(camera, reader, findings);
        }
        CheckPath(scene, camera, findings);
    }
    findings.NotKnownElse({"camera.subnet", "camera.unique", "camera.listed", "camera.route", "camera.arp",
                           "camera.owner", "camera.answers", "camera.packets", "camera.path", "camera.stream"},
                          scene.cameras.empty() ? "no camera is there to ask (camera.discovery)"
                                                : "no camera can be asked (camera.subnet, camera.answers)");
}

} // namespace nq::tool::doctor
