// SPDX-License-Identifier: Apache-2.0
// The RDMA devices of this machine, port by port, as the kernel shows them in files.
#include "doctor/rdma_ports.h"

#include <cstdlib>
#include <fmt/format.h>
#include <map>

namespace nq::tool::doctor
{

namespace
{

constexpr const char* kDevices = "sys/class/infiniband/";

/// A port's link to its adapter stands in one of three places, by driver and kernel.
std::set<std::string> AdaptersOf(const Machine& machine, const std::string& device, const std::string& port)
{
    std::set<std::string> adapters;
    const std::string indexed = port + "/gid_attrs/ndevs";
    for (const std::string& index : machine.Names(indexed))
    {
        adapters.insert(machine.Text(fmt::format("{}/{}", indexed, index)).value_or(""));
    }
    adapters.insert(machine.Text(device + "/parent").value_or(""));
    adapters.erase("");
    if (adapters.empty())
    {
        for (const std::string& name : machine.Names(device + "/device/net"))
        {
            adapters.insert(name);
        }
    }
    return adapters;
}

std::vector<std::string> V2GidsOf(const Machine& machine, const std::string& port)
{
    std::vector<std::string> gids;
    for (const std::string& index : machine.Names(port + "/gids"))
    {
        if (machine.Text(fmt::format("{}/gid_attrs/types/{}", port, index)) == "RoCE v2")
        {
            gids.push_back(machine.Text(fmt::format("{}/gids/{}", port, index)).value_or(""));
        }
    }
    return gids;
}

VerbsPort VerbsIn(const Machine& machine, const std::string& device, uint8_t port)
{
    if (machine.IsThisOne())
    {
        return AskVerbs(device, port);
    }
    std::map<std::string, uint64_t> numbers = machine.Numbers("verbs/" + device);
    if (numbers.empty())
    {
        return {0, 0, "no verbs/" + device};
    }
    return {static_cast<uint32_t>(numbers["active_mtu"]), numbers["max_msg_sz"], ""};
}

/// The part behind the number, as in "4: ACTIVE".
std::string StateIn(const std::string& text)
{
    const size_t colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

} // namespace

std::vector<RdmaPort> FindRdmaPorts(const Machine& machine)
{
    std::vector<RdmaPort> ports;
    for (const std::string& device : machine.Names(kDevices))
    {
        const std::string folder = kDevices + device;
        for (const std::string& number : machine.Names(folder + "/ports"))
        {
            const std::string files = fmt::format("{}/ports/{}", folder, number);
            const auto port = static_cast<uint8_t>(std::strtoul(number.c_str(), nullptr, 10));
            ports.push_back({device, port, AdaptersOf(machine, folder, files),
                             machine.Text(files + "/link_layer").value_or(""),
                             StateIn(machine.Text(files + "/state").value_or("")), V2GidsOf(machine, files),
                             VerbsIn(machine, device, port)});
        }
    }
    return ports;
}

} // namespace nq::tool::doctor
