// SPDX-License-Identifier: Apache-2.0
// nq-gev list: the interfaces of this machine and the cameras that answer on them.
#include "camera_cache.h"
#include "camera_choice.h"
#include "camera_owner.h"
#include "printable.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace nq::tool
{

namespace
{

/// Nobody asks for the owner of a camera that is free.
std::optional<CameraOwner> OwnerOf(const CameraEntry& camera)
{
    return camera.accessStatus == GenTL::DEVICE_ACCESS_STATUS_READWRITE ? std::nullopt : AskForOwner(camera);
}

/// What keeps others from the camera, as a line; empty for one that is free.
std::string ObstacleText(const CameraEntry& camera)
{
    if (const std::optional<CameraOwner> owner = OwnerOf(camera))
    {
        return fmt::format("    controlled by {}\n", OwnerText(*owner));
    }
    const bool apart = camera.accessStatus == GenTL::DEVICE_ACCESS_STATUS_NOACCESS && !camera.address.empty();
    return apart ? fmt::format("    {}\n", kOutOfReach) : "";
}

/// What the user called it, as a line; empty for one without a name.
std::string NameText(const CameraEntry& camera)
{
    return camera.userName.empty() ? "" : fmt::format("    name {}\n", Printable(camera.userName));
}

nlohmann::ordered_json OwnerJson(const CameraEntry& camera)
{
    const std::optional<CameraOwner> owner = OwnerOf(camera);
    if (!owner)
    {
        return nullptr;
    }
    return {{"address", owner->address},
            {"port", owner->port},
            {"exclusive", owner->exclusive},
            {"heartbeat_ms", owner->heartbeatMs}};
}

void PrintCameras(const std::vector<ProducerEntry>& producers)
{
    for (const ProducerEntry& producer : producers)
    {
        for (const InterfaceEntry& interface : producer.interfaces)
        {
            fmt::print("{}  {}\n", Printable(interface.id), Printable(interface.displayName));
            for (const CameraEntry& camera : interface.cameras)
            {
                fmt::print("  {}\n    model {}  serial {}  address {}  access {}\n    producer {}\n",
                           Printable(camera.id), Printable(camera.model), Printable(camera.serial),
                           camera.address.empty() ? "-" : camera.address, AccessStatusText(camera.accessStatus),
                           Printable(producer.path));
                fmt::print("{}{}", NameText(camera), ObstacleText(camera));
            }
        }
    }
}

void PrintCamerasAsJson(const std::vector<ProducerEntry>& producers)
{
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    nlohmann::ordered_json states = nlohmann::ordered_json::array();
    for (const ProducerEntry& producer : producers)
    {
        states.push_back({{"path", producer.path}, {"problem", producer.problem}});
        for (const InterfaceEntry& interface : producer.interfaces)
        {
            nlohmann::ordered_json cameras = nlohmann::ordered_json::array();
            for (const CameraEntry& camera : interface.cameras)
            {
                cameras.push_back({{"id", camera.id},
                                   {"vendor", camera.vendor},
                                   {"model", camera.model},
                                   {"serial", camera.serial},
                                   {"user_name", camera.userName},
                                   {"address", camera.address},
                                   {"access", AccessStatusText(camera.accessStatus)},
                                   {"producer", producer.path},
                                   {"controlled_by", OwnerJson(camera)}});
            }
            all.push_back({{"id", interface.id}, {"name", interface.displayName}, {"cameras", cameras}});
        }
    }
    // ASCII alone, so that no terminal obeys a name; what is no UTF-8 becomes U+FFFD.
    const nlohmann::ordered_json list = {{"interfaces", all}, {"producers", states}};
    fmt::print("{}\n", list.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
}

ExitCode List(const CommonOptions& common)
{
    SearchPlan plan;
    plan.scansMs = {common.timeoutMs};
    const std::vector<ProducerEntry> producers = AskProducers(common.producer, plan);
    const std::vector<FoundCamera> cameras = CamerasOf(producers);
    NoteCameras(cameras);
    common.json ? PrintCamerasAsJson(producers) : PrintCameras(producers);
    if (cameras.empty())
    {
        throw ToolFailure(ExitCode::NoCamera, NoCameraAdvice(producers));
    }
    return ExitCode::Success;
}

} // namespace

void AddListVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("list", "Show the interfaces and the cameras that answer on them");
    verb->callback([&] { chosen = [&common] { return List(common); }; });
}

} // namespace nq::tool
