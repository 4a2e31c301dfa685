// SPDX-License-Identifier: Apache-2.0
// The network adapters of this namespace.
#include "network_adapters.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <ifaddrs.h>
#include <map>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

uint32_t AddressIn(const sockaddr* address)
{
    sockaddr_in place{};
    if (address != nullptr)
    {
        std::memcpy(&place, address, sizeof place);
    }
    return ntohl(place.sin_addr.s_addr);
}

bool IsForOthers(const Adapter& adapter)
{
    return adapter.name != "lo" || std::any_of(adapter.networks.begin(), adapter.networks.end(),
                                               [](const Ipv4Network& one) { return one.address >> 24 != 127; });
}

} // namespace

bool Adapter::Reaches(const Ipv4Network& other) const
{
    return std::any_of(networks.begin(), networks.end(), [&](const Ipv4Network& own) {
        return own.Contains(other.address) && other.Contains(own.address);
    });
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
        // An alias is named "eth0:1"; the adapter itself carries the part before the colon.
        const std::string label = one->ifa_name;
        Adapter& adapter = adapters[label.substr(0, label.find(':'))];
        adapter.up = (one->ifa_flags & IFF_UP) != 0;
        adapter.linked = (one->ifa_flags & IFF_RUNNING) != 0;
        if (one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET)
        {
            adapter.networks.push_back({AddressIn(one->ifa_addr), AddressIn(one->ifa_netmask)});
        }
    }
    std::vector<Adapter> found;
    for (auto& [name, adapter] : adapters)
    {
        adapter.name = name;
        ifreq request{};
        adapter.mtu = AskAboutAdapter(name, SIOCGIFMTU, request) ? static_cast<uint32_t>(request.ifr_mtu) : 0;
        if (IsForOthers(adapter))
        {
            found.push_back(adapter);
        }
    }
    return found;
}

bool AskAboutAdapter(const std::string& adapter, unsigned long question, ifreq& request)
{
    const int file = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (file < 0)
    {
        return false;
    }
    adapter.copy(request.ifr_name, IFNAMSIZ - 1);
    const bool told = ioctl(file, question, &request) == 0;
    close(file);
    return told;
}

} // namespace nq::tool
