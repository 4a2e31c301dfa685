// SPDX-License-Identifier: Apache-2.0
// nq-gev ip: shows the addresses of cameras, also on foreign subnets, and changes them.
#include "address_change.h"
#include "camera_owner.h"
#include "feature_json.h"
#include "printable.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace nq::tool
{

namespace
{

using Json = nlohmann::ordered_json;

/// Who has control, of a camera that can be asked.
std::optional<CameraOwner> OwnerOf(const HeardCamera& camera)
{
    CameraEntry entry;
    entry.address = camera.IsReachable() ? DottedAddress(camera.network.address) : "";
    return AskForOwner(entry);
}

std::string GatewayText(uint32_t gateway)
{
    return gateway == 0 ? "-" : DottedAddress(gateway);
}

std::string SourcesText(uint32_t flags)
{
    std::string text;
    for (const auto& [bit, name] : {std::pair(kPersistent, "persistent"), {kDhcp, "DHCP"}, {kLinkLocal, "link-local"}})
    {
        text += (flags & bit) == 0 ? "" : (text.empty() ? "" : ", ") + std::string(name);
    }
    return text.empty() ? "-" : text;
}

void PrintAddresses(const std::vector<HeardCamera>& cameras)
{
    for (const HeardCamera& camera : cameras)
    {
        const Ipv4Network& own = camera.adapter.networks.front();
        fmt::print("{}  {}  serial {}{}\n", MacText(camera.mac), Printable(camera.model), Printable(camera.serial),
                   camera.userName.empty() ? "" : "  name " + Printable(camera.userName));
        fmt::print("  address {}  gateway {}  at power on {}\n", NetworkText(camera.network),
                   GatewayText(camera.gateway), SourcesText(camera.configured));
        fmt::print("  heard on {} ({}){}\n", camera.adapter.name, NetworkText(own),
                   camera.IsReachable()
                       ? ""
                       : ", out of reach: `nq-gev ip --force` gives it an address of the adapter's subnet");
        if (const std::optional<CameraOwner> owner = OwnerOf(camera))
        {
            fmt::print("  controlled by {}\n", OwnerText(*owner));
        }
    }
}

Json CameraJson(const HeardCamera& camera)
{
    const std::optional<CameraOwner> owner = OwnerOf(camera);
    const auto on = [](uint32_t flags) {
        return Json{{"persistent", (flags & kPersistent) != 0},
                    {"dhcp", (flags & kDhcp) != 0},
                    {"link_local", (flags & kLinkLocal) != 0}};
    };
    return {{"mac", MacText(camera.mac)},
            {"model", camera.model},
            {"serial", camera.serial},
            {"user_name", camera.userName},
            {"address", NetworkText(camera.network)},
            {"gateway", camera.gateway == 0 ? Json() : Json(DottedAddress(camera.gateway))},
            {"configured", on(camera.configured)},
            {"supported", on(camera.supported)},
            {"adapter", camera.adapter.name},
            {"adapter_address", NetworkText(camera.adapter.networks.front())},
            {"reachable", camera.IsReachable()},
            {"controlled_by", owner ? Json(OwnerText(*owner)) : Json()}};
}

ExitCode Show(const std::vector<HeardCamera>& cameras, bool json)
{
    if (json)
    {
        Json list = Json::array();
        for (const HeardCamera& camera : cameras)
        {
            list.push_back(CameraJson(camera));
        }
        PrintJson({{"cameras", list}});
    }
    else
    {
        PrintAddresses(cameras);
    }
    if (cameras.empty())
    {
        throw ToolFailure(
            ExitCode::NoCamera,
            "no camera answered a broadcast on any adapter. Look at: the camera's power and link; a "
            "firewall that drops UDP port 3956; the kernel's check of source addresses "
            "(`sysctl net.ipv4.conf.all.rp_filter`), which drops answers from foreign subnets; --timeout.");
    }
    return ExitCode::Success;
}

ExitCode Ip(const AddressChange& change, const CommonOptions& common)
{
    change.Check();
    std::vector<Adapter> adapters = FindAdapters();
    std::erase_if(adapters, [](const Adapter& one) { return one.networks.empty(); });
    const std::chrono::milliseconds time(common.timeoutMs);
    const std::vector<HeardCamera> cameras = HearCameras(adapters, time);
    if (change.IsNone())
    {
        return Show(cameras, common.json);
    }
    const HeardCamera& camera = change.Choose(cameras);
    change.CheckAgainst(camera);
    change.Confirm(camera);
    const std::string result = change.Execute(camera, time);
    if (common.json)
    {
        PrintJson({{"camera", MacText(camera.mac)}, {"before", NetworkText(camera.network)}, {"result", result}});
    }
    else
    {
        fmt::print("{}: {}\n", MacText(camera.mac), result);
    }
    return ExitCode::Success;
}

} // namespace

void AddIpVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("ip", "Show the addresses of cameras, also on foreign subnets, or change one");
    const auto change = std::make_shared<AddressChange>();
    verb->add_option("--camera", change->camera, "The camera: its MAC address, serial number, name or address");
    verb->add_option("--set", change->set, "Keep this address, A.B.C.D/N, and take it from the next start on");
    verb->add_option("--gateway", change->gateway, "The way out of the subnet, for --set and --force");
    verb->add_flag("--dhcp", change->dhcp, "Ask a DHCP server for an address from the next start on");
    verb->add_flag("--link-local", change->linkLocal, "Take an address of 169.254.0.0/16 from the next start on");
    verb->add_option("--force", change->force,
                     "Take this address, A.B.C.D/N, at once and until it is switched off; also of a foreign subnet");
    verb->add_flag("--outside", change->outside, "Take an address that is not of the adapter's subnet, too");
    verb->add_flag("--taken", change->taken,
                   "Take an address that another host has, too, as where a router answers for every address");
    verb->add_flag("--yes", change->yes, "Ask nothing");
    verb->callback([&common, &chosen, change] { chosen = [&common, change] { return Ip(*change, common); }; });
}

} // namespace nq::tool
