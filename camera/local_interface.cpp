// SPDX-License-Identifier: Apache-2.0
// Finds the network interface that a camera lives on.
#include "local_interface.h"

#include "udp_socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>

namespace nq::camera
{

namespace
{

std::uint32_t AddressOf(const sockaddr* address)
{
    sockaddr_in place{};
    std::memcpy(&place, address, sizeof(place));
    return ntohl(place.sin_addr.s_addr);
}

std::optional<LocalInterface> FindInterface(const std::function<bool(const LocalInterface&)>& wanted)
{
    const std::vector<LocalInterface> all = LocalInterfaces();
    const auto found = std::find_if(all.begin(), all.end(), wanted);
    return found == all.end() ? std::nullopt : std::optional(*found);
}

} // namespace

std::uint32_t ParseAddress(const std::string& text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
    {
        throw std::invalid_argument("'" + text + "' is no IPv4 address");
    }
    return ntohl(address.s_addr);
}

std::vector<LocalInterface> LocalInterfaces()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
    {
        throw std::runtime_error(std::string("the network interfaces cannot be listed: ") + std::strerror(errno));
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> keep(list, &freeifaddrs);
    std::vector<LocalInterface> all;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
    {
        if (entry->ifa_addr == nullptr || entry->ifa_netmask == nullptr || entry->ifa_addr->sa_family != AF_INET)
        {
            continue;
        }
        // An alias is named "eth0:1"; the interface itself carries the part before the colon.
        std::string name = entry->ifa_name;
        name = name.substr(0, name.find(':'));
        all.push_back({name, static_cast<int>(if_nametoindex(name.c_str())), AddressOf(entry->ifa_addr),
                       AddressOf(entry->ifa_netmask)});
    }
    return all;
}

LocalInterface FindInterfaceByAddress(std::uint32_t address)
{
    auto found = FindInterface([address](const LocalInterface& one) { return one.address == address; });
    if (!found)
    {
        throw std::runtime_error("no network interface has the address " + AddressText(address) +
                                 " (add it with: ip addr add " + AddressText(address) + "/24 dev NAME)");
    }
    return *found;
}

LocalInterface FindInterfaceByName(const std::string& name)
{
    auto found = FindInterface([&name](const LocalInterface& one) { return one.name == name; });
    if (!found)
    {
        throw std::runtime_error("no network interface '" + name + "' with an IPv4 address");
    }
    return *found;
}

} // namespace nq::camera
