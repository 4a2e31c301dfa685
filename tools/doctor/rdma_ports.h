// SPDX-License-Identifier: Apache-2.0
// The RDMA devices of this machine, port by port.
#pragma once

#include "doctor/machine.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace nq::tool::doctor
{

/// What libibverbs tells of a port; nothing of it when the device could not be opened.
struct VerbsPort
{
    uint32_t activeMtu = 0; ///< of its packets, in bytes
    uint64_t longestMessage = 0;
    std::string problem; ///< why nothing is known
};

struct RdmaPort
{
    std::string device;
    uint8_t port = 0; ///< counts from 1
    std::set<std::string> adapters;
    std::string linkLayer;
    std::string state;               ///< for example "ACTIVE"
    std::vector<std::string> v2Gids; ///< of RoCE v2, as the kernel writes them
    VerbsPort verbs;
};

/// The ports that the kernel shows, which is none of the software RDMA.
std::vector<RdmaPort> FindRdmaPorts(const Machine& machine);

/// Asks libibverbs, which is loaded for that and need not be there, about a port of a device; an empty name is the
/// first device.
VerbsPort AskVerbs(const std::string& device, uint8_t port);

} // namespace nq::tool::doctor
