// SPDX-License-Identifier: Apache-2.0
// An IPv4 address with its subnet, as "10.0.0.9/24".
#pragma once

#include <cstdint>
#include <string>

namespace nq::tool
{

/// Numbers in host order.
struct Ipv4Network
{
    uint32_t address = 0;
    uint32_t mask = 0;

    bool Contains(uint32_t other) const { return ((address ^ other) & mask) == 0; }
};

/// "10.0.0.9/24"
std::string NetworkText(const Ipv4Network& network);

/// Reads "10.0.0.9/24". Throws ToolFailure(Usage) when the text is nothing like that, or no host can have the address.
Ipv4Network ParseNetwork(const std::string& text);

/// Reads "10.0.0.1"; throws as ParseNetwork.
uint32_t ParseDotted(const std::string& text);

} // namespace nq::tool
