// SPDX-License-Identifier: Apache-2.0
// The network adapters of this namespace.
#pragma once

#include "ipv4_network.h"

#include <cstdint>
#include <string>
#include <vector>

struct ifreq;

namespace nq::tool
{

struct Adapter
{
    std::string name;
    bool up = false;
    bool linked = false; ///< it has a carrier
    uint32_t mtu = 0;    ///< in bytes; 0 when not known
    std::vector<Ipv4Network> networks;

    /// Whether this address and one of the adapter's reach each other without a gateway.
    bool Reaches(const Ipv4Network& other) const;
};

/// All but lo, sorted by name, and lo where it has an address that other hosts could have. Empty when the kernel does
/// not list them.
std::vector<Adapter> FindAdapters();

/// Asks the kernel about an adapter by an ioctl() of sockets. What is told with the question, and the answer, is in
/// `request`; its name is put there. False when there is no answer.
bool AskAboutAdapter(const std::string& adapter, unsigned long question, ifreq& request);

} // namespace nq::tool
