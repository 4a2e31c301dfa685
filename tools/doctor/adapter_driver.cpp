// SPDX-License-Identifier: Apache-2.0
// What the drivers of network adapters tell.
#include "doctor/adapter_driver.h"

#include "network_adapters.h"

#include <cstring>
#include <fmt/format.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <vector>

namespace nq::tool::doctor
{

namespace
{

bool AskEthtool(const std::string& adapter, void* command)
{
    ifreq request{};
    request.ifr_data = static_cast<char*>(command);
    return AskAboutAdapter(adapter, SIOCETHTOOL, request);
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
    if (!AskAboutAdapter(adapter, SIOCGIFHWADDR, request))
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
