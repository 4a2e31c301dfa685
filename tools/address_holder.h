// SPDX-License-Identifier: Apache-2.0
// Who has an IPv4 address on a cable, asked by ARP.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace nq::tool
{

struct AddressHolder
{
    std::string mac;      ///< as 02:00:0a:0b:0c:0d; empty when nobody has the address
    bool answered = true; ///< just now; else the kernel knows it from earlier, and this user may not ask again
};

/// Asks on the adapter whether any other host has the address, which is in host order, and waits a second for an
/// answer. With CAP_NET_RAW only an answer counts, whatever the kernel knows from earlier.
AddressHolder FindHolder(const std::string& adapter, uint32_t address);

/// What the kernel's table of neighbours has.
struct Neighbour
{
    std::string mac;      ///< as 02:00:0a:0b:0c:0d; empty for none
    bool isFixed = false; ///< somebody has put it there to stay, and no answer of a host changes it
};

/// Of an address, in host order, on an adapter; `table` is /proc/net/arp.
Neighbour FindNeighbour(std::istream& table, const std::string& adapter, uint32_t address);

} // namespace nq::tool
