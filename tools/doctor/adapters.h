// SPDX-License-Identifier: Apache-2.0
// The network adapters of this namespace.
#pragma once

#include "doctor/machine.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool::doctor
{

/// An IPv4 address in host order and its subnet.
struct Subnet
{
    uint32_t address = 0;
    uint32_t mask = 0;

    bool Holds(uint32_t other) const { return ((address ^ other) & mask) == 0; }
};

/// For example "10.0.0.1/24".
std::string SubnetText(const Subnet& subnet);

struct Adapter
{
    std::string name;
    bool up = false;
    bool linked = false; ///< it has a carrier
    uint32_t mtu = 0;    ///< in bytes; 0 when not known
    std::vector<Subnet> addresses;
};

/// All but lo, sorted by name, and lo where it has an address that other hosts could have.
std::vector<Adapter> FindAdapters();

/// The counters of its driver, as `ethtool -S` has them; nothing when the driver has none.
std::optional<std::map<std::string, uint64_t>> CountersOf(const Machine& machine, const std::string& adapter);

/// Its MAC address, as 02:00:0a:0b:0c:0d.
std::string HardwareAddressOf(const std::string& adapter);

/// The name of its driver, the version, and that of the firmware, as far as the driver tells.
std::string DriverOf(const std::string& adapter);

} // namespace nq::tool::doctor
