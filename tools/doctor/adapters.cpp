// SPDX-License-Identifier: Apache-2.0
// The network adapters of this namespace.
#include "doctor/adapters.h"

#include "camera_tree.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cstring>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

/// Asks the kernel about an adapter. What is there and what comes back is in `request`.
bool Ask(const std::string& adapter, unsigned long command, ifreq& request)
{
    const int file = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (file < 0)
    {
        return false;
    }
    adapter.copy(request.ifr_name, IFNAMSIZ - 1);
    const bool told = ioctl(file, command, &request) == 0;
    close(file);
    return told;
}

uint32_t AddressIn(const sockaddr* address)
{
    return address == nullptr ? 0 : ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

bool IsForOthers(const Adapter& adapter)
{
    return adapter.name != "lo" || std::any_of(adapter.addresses.begin(), adapter.addresses.end(),
                                               [](const Subnet& one) { return one.address >> 24 != 127; });
}

bool AskEthtool(const std::string& adapter, void* command)
{
    ifreq request{};
    request.ifr_data = static_cast<char*>(command);
    return Ask(adapter, SIOCETHTOOL, request);
}

/// The records end in arrays, so each is laid out in words of 8 bytes.
uint32_t CounterCount(const std::string& adapter)
{
    uint64_t words[sizeof(ethtool_sset_info) / sizeof(uint64_t) + 1] = {};
    auto* const info = reinterpret_cast<ethtool_sset_info*>(words);
    info->cmd = ETHTOOL_GSSET_INFO;
    info->sset_mask = uint64_t{1} << ETH_SS_STATS;
    return AskEthtool(adapter, words) && info->sset_mask != 0 ? info->data[0] : 0;
}

} // namespace

std::string SubnetText(const Subnet& subnet)
{
    return fmt::format("{}/{}", DottedAddress(subnet.address), std::popcount(subnet.mask));
}

std::vector<Adapter> FindAdapters()
{
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
    {
        return {};
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
    std::map<std::string, Adapter> adapters;
    for (const ifaddrs* one = first; one != nullptr; one = one->ifa_next)
    {
        const std::string label = one->ifa_name;
        Adapter& adapter = adapters[label.substr(0, label.find(':'))];
        adapter.up = (one->ifa_flags & IFF_UP) != 0;
        adapter.linked = (one->ifa_flags & IFF_RUNNING) != 0;
        if (one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET)
        {
            adapter.addresses.push_back({AddressIn(one->ifa_addr), AddressIn(one->ifa_netmask)});
        }
    }
    std::vector<Adapter> found;
    for (auto& [name, adapter] : adapters)
    {
        adapter.name = name;
        ifreq request{};
        adapter.mtu = Ask(name, SIOCGIFMTU, request) ? static_cast<uint32_t>(request.ifr_mtu) : 0;
        if (IsForOthers(adapter))
        {
            found.push_back(adapter);
        }
    }
    return found;
}

std::optional<std::map<std::string, uint64_t>> CountersOf(const Machine& machine, const std::string& adapter)
{
    if (!machine.IsThisOne())
    {
        const std::string path = "ethtool/" + adapter;
        return machine.Has(path) ? std::optional(machine.Numbers(path)) : std::nullopt;
    }
    const uint32_t count = CounterCount(adapter);
    std::vector<uint64_t> names(2 + size_t{count} * ETH_GSTRING_LEN / sizeof(uint64_t));
    std::vector<uint64_t> values(1 + count);
    auto* const strings = reinterpret_cast<ethtool_gstrings*>(names.data());
    strings->cmd = ETHTOOL_GSTRINGS;
    strings->string_set = ETH_SS_STATS;
    strings->len = count;
    auto* const statistics = reinterpret_cast<ethtool_stats*>(values.data());
    statistics->cmd = ETHTOOL_GSTATS;
    statistics->n_stats = count;
    if (count == 0 || !AskEthtool(adapter, names.data()) || !AskEthtool(adapter, values.data()))
    {
        return std::nullopt;
    }
    std::map<std::string, uint64_t> counters;
    for (uint32_t at = 0; at < count; ++at)
    {
        const char* name = reinterpret_cast<const char*>(strings->data) + size_t{at} * ETH_GSTRING_LEN;
        counters[std::string(name, strnlen(name, ETH_GSTRING_LEN))] = values[1 + at];
    }
    return counters;
}

std::string HardwareAddressOf(const std::string& adapter)
{
    ifreq request{};
    if (!Ask(adapter, SIOCGIFHWADDR, request))
    {
        return "-";
    }
    std::string text;
    for (size_t at = 0; at < 6; ++at)
    {
        text += fmt::format("{}{:02x}", at == 0 ? "" : ":", static_cast<uint8_t>(request.ifr_hwaddr.sa_data[at]));
    }
    return text;
}

std::string DriverOf(const std::string& adapter)
{
    ethtool_drvinfo info{};
    info.cmd = ETHTOOL_GDRVINFO;
    return AskEthtool(adapter, &info) ? fmt::format("{} {} {}", info.driver, info.version, info.fw_version) : "-";
}

} // namespace nq::tool::doctor
