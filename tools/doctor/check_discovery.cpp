// SPDX-License-Identifier: Apache-2.0
// Findings about which cameras are heard, where, and on which subnet.
#include "doctor/checks.h"

#include "heard_cameras.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <sstream>

namespace nq::tool::doctor
{

namespace
{

/// The adapters of default routes.
std::vector<std::string> DefaultRoutes(const Machine& machine)
{
    std::vector<std::string> adapters;
    std::istringstream lines(machine.Text("proc/net/route").value_or(""));
    for (std::string line; std::getline(lines, line);)
    {
        std::string adapter;
        std::string destination;
        if (std::istringstream(line) >> adapter >> destination && destination == "00000000")
        {
            adapters.push_back(adapter);
        }
    }
    return adapters;
}

/// The kernel goes by the larger of two settings.
std::optional<long> FilterOf(const Machine& machine, const std::string& adapter)
{
    const std::string folder = "proc/sys/net/ipv4/conf/";
    const auto all = machine.Text(folder + "all/rp_filter");
    const auto own = machine.Text(folder + adapter + "/rp_filter");
    return all && own
               ? std::optional(std::max(std::strtol(all->c_str(), nullptr, 10), std::strtol(own->c_str(), nullptr, 10)))
               : std::nullopt;
}

void CheckFilter(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    constexpr const char* kId = "adapter.filter";
    const std::optional<long> filter = FilterOf(scene.machine, adapter.name);
    if (!filter)
    {
        findings.NotKnown(kId, adapter.name, "/proc/sys/net/ipv4/conf does not have it");
        return;
    }
    const std::vector<std::string> routes = DefaultRoutes(scene.machine);
    const bool byRoute =
        *filter == 1 ? std::find(routes.begin(), routes.end(), adapter.name) != routes.end() : !routes.empty();
    const std::string text = fmt::format("rp_filter is {}", *filter);
    if (*filter == 0 || byRoute)
    {
        findings.Right(kId, adapter.name, text + (*filter == 0 ? "" : ", and the default route lets them in"));
    }
    else if (!scene.cameras.empty())
    {
        findings.Right(kId, adapter.name, text + ": not needed, cameras answer");
    }
    else
    {
        findings.Wrong(kId, adapter.name, text + " and there is no default route", {{"ADAPTER", adapter.name}});
    }
}

std::string NobodyText(const Scene& scene)
{
    if (scene.options.camera.empty() || scene.otherCameras == 0)
    {
        return "no camera answers";
    }
    return fmt::format("\"{}\" does not answer, {} other(s) do", scene.options.camera, scene.otherCameras);
}

void CheckHeard(const Scene& scene, const Adapter& adapter, Findings& findings)
{
    constexpr const char* kId = "camera.discovery";
    std::string names;
    for (const SeenCamera& camera : scene.cameras)
    {
        if (camera.adapter == adapter.name)
        {
            names += (names.empty() ? "" : ", ") + camera.Name();
        }
    }
    if (!names.empty())
    {
        findings.Right(kId, adapter.name, names);
    }
    else if (!adapter.up)
    {
        findings.NotKnown(kId, adapter.name, "the adapter is down");
    }
    else if (!scene.cameras.empty())
    {
        findings.Right(kId, adapter.name, "none here, but a producer lists cameras");
    }
    else
    {
        findings.Wrong(kId, adapter.name, NobodyText(scene), {{"ADAPTER", adapter.name}});
    }
}

constexpr const char* kNotHeard = "only its producer sees it";

Findings::Words WordsToForce(const Scene& scene, const SeenCamera& camera)
{
    return {{"ADDRESS", NetworkText(FreeAddress(scene, camera.adapterSubnet, camera.adapter))},
            {"MAC", MacText(camera.entry.macAddress)}};
}

void CheckSubnet(const Scene& scene, const SeenCamera& camera, Findings& findings)
{
    constexpr const char* kId = "camera.subnet";
    if (camera.adapter.empty())
    {
        findings.NotKnown(kId, camera.Name(), kNotHeard);
    }
    else if (camera.adapterSubnet.mask == 0)
    {
        findings.NotKnown(kId, camera.Name(), camera.adapter + " has no address (adapter.address)");
    }
    else if (camera.isForeign && IsAlone(camera.adapterSubnet))
    {
        findings.NotKnown(kId, camera.Name(), camera.adapter + " has no room for it (adapter.mask)");
    }
    else if (camera.isForeign)
    {
        findings.Wrong(kId, camera.Name(),
                       fmt::format("it has {}, and {} {}", NetworkText(camera.subnet), camera.adapter,
                                   NetworkText(camera.adapterSubnet)),
                       WordsToForce(scene, camera));
    }
    else
    {
        findings.Right(kId, camera.Name(), "on that of " + camera.adapter);
    }
}

void CheckTwin(const Scene& scene, const SeenCamera& camera, Findings& findings)
{
    constexpr const char* kId = "camera.unique";
    if (camera.adapter.empty())
    {
        findings.NotKnown(kId, camera.Name(), kNotHeard);
    }
    else if (camera.twin == 0)
    {
        findings.Right(kId, camera.Name(), "no other camera on " + camera.adapter + " tells it");
    }
    else if (camera.isForeign)
    {
        findings.NotKnown(kId, camera.Name(), "it needs another one anyway (camera.subnet)");
    }
    else
    {
        findings.Wrong(kId, camera.Name(), fmt::format("the camera {} tells it as well", MacText(camera.twin)),
                       WordsToForce(scene, camera));
    }
}

void CheckListed(const Scene& scene, const SeenCamera& camera, Findings& findings)
{
    const bool works = std::any_of(scene.producers.begin(), scene.producers.end(),
                                   [](const ProducerEntry& producer) { return producer.problem.empty(); });
    if (!camera.producer.empty())
    {
        findings.Right("camera.listed", camera.Name(), "as " + camera.entry.id);
    }
    else if (!works)
    {
        findings.NotKnown("camera.listed", camera.Name(), "no producer works (producer.path, producer.load)");
    }
    else if (camera.isForeign)
    {
        findings.NotKnown("camera.listed", camera.Name(), "it is on another subnet (camera.subnet)");
    }
    else
    {
        findings.Wrong("camera.listed", camera.Name(),
                       fmt::format("no producer lists it; its device version is \"{}\"", camera.version));
    }
}

} // namespace

void CheckDiscovery(const Scene& scene, Findings& findings)
{
    for (const Adapter& adapter : scene.concerned)
    {
        CheckFilter(scene, adapter, findings);
        CheckHeard(scene, adapter, findings);
    }
    for (const SeenCamera& camera : scene.cameras)
    {
        CheckSubnet(scene, camera, findings);
        CheckTwin(scene, camera, findings);
        CheckListed(scene, camera, findings);
    }
    findings.NotKnownElse({"adapter.filter", "camera.discovery"}, "there is no adapter (adapter.found)");
}

} // namespace nq::tool::doctor
