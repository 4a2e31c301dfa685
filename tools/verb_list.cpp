// SPDX-License-Identifier: Apache-2.0
// nq-gev list: the interfaces of this machine and the cameras that answer on them.
#include "camera_tree.h"
#include "printable.h"
#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace nq::tool
{

namespace
{

void PrintText(const std::vector<InterfaceEntry>& interfaces)
{
    for (const InterfaceEntry& interface : interfaces)
    {
        fmt::print("{}  {}\n", Printable(interface.id), Printable(interface.displayName));
        for (const CameraEntry& camera : interface.cameras)
        {
            fmt::print("  {}\n    model {}  serial {}  address {}  access {}\n", Printable(camera.id),
                       Printable(camera.model), Printable(camera.serial), camera.address.empty() ? "-" : camera.address,
                       AccessStatusText(camera.accessStatus));
        }
    }
}

void PrintJson(const std::vector<InterfaceEntry>& interfaces)
{
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const InterfaceEntry& interface : interfaces)
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
                               {"access", AccessStatusText(camera.accessStatus)}});
        }
        all.push_back({{"id", interface.id}, {"name", interface.displayName}, {"cameras", cameras}});
    }
    // ASCII alone, so that no terminal obeys a name; what is no UTF-8 becomes U+FFFD.
    const nlohmann::ordered_json list = {{"interfaces", all}};
    fmt::print("{}\n", list.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
}

ExitCode List(const CommonOptions& common)
{
    GenTLLibrary library(FindProducer(common.producer));
    const System system(library);
    const std::vector<InterfaceEntry> interfaces = ScanAll(system, common.timeoutMs);
    common.json ? PrintJson(interfaces) : PrintText(interfaces);
    if (!FindCamera(interfaces, ""))
    {
        throw ToolFailure(ExitCode::NoCamera, NoCameraAdvice(interfaces));
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
