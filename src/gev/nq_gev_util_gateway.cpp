// SPDX-License-Identifier: Apache-2.0
// The host's default gateways as the kernel's table of routes lists them.
#include "gev/nq_gev_util.h"

#include <arpa/inet.h>
#include <climits>
#include <cstdio>
#include <memory>
#include <net/route.h>

unsigned int NQGevUtil::GetDefaultGateway(const std::string& adapterName)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> routes(std::fopen("/proc/thread-self/net/route", "re"), std::fclose);
    const std::string adapter =
        adapterName.substr(0, adapterName.find(':')); // routes do not know the label of an alias
    unsigned int gateway = 0;
    unsigned int best = UINT_MAX;
    char line[512];
    while (routes && std::fgets(line, sizeof line, routes.get()) != nullptr)
    {
        char name[64] = {};
        unsigned int destination = 0;
        unsigned int hop = 0; // both in network order
        unsigned int flags = 0;
        unsigned int metric = 0;
        unsigned int mask = 0;
        constexpr unsigned int kUsable = RTF_UP | RTF_GATEWAY;
        if (std::sscanf(line, "%63s %x %x %x %*d %*d %u %x", name, &destination, &hop, &flags, &metric, &mask) == 6 &&
            adapter == name && destination == 0 && mask == 0 && (flags & kUsable) == kUsable && metric < best)
        {
            gateway = ntohl(hop);
            best = metric;
        }
    }
    return gateway;
}
