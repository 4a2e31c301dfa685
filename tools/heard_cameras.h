// SPDX-License-Identifier: Apache-2.0
// Cameras that answer a broadcast on the cable, on whatever subnet they are, and the command that moves one.
#pragma once

#include "network_adapters.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace nq::tool
{

/// What a camera says of itself.
struct HeardCamera
{
    Adapter adapter; ///< on which it was heard
    uint64_t mac = 0;
    uint32_t supported = 0;  ///< IP configurations it knows: bit 0 persistent, 1 DHCP, 2 link-local
    uint32_t configured = 0; ///< those that are on, in the same bits
    Ipv4Network network;
    uint32_t gateway = 0;
    std::string model;
    std::string version; ///< of the device
    std::string serial;
    std::string userName;

    /// Whether packets of this machine and of the camera find each other.
    bool IsReachable() const { return adapter.Reaches(network); }
};

/// Asks on each adapter that is up, all at once and more than once, from each of its addresses, and listens for `time`.
/// Gives each camera once per adapter, at most 256, as its last answer has it. Throws ToolFailure when no adapter lets
/// it ask.
std::vector<HeardCamera> HearCameras(const std::vector<Adapter>& adapters, std::chrono::milliseconds time);

/// Tells the camera, on the adapter where it was heard and by its MAC address, to take an address until it is switched
/// off. True when it has acknowledged within `time`.
bool ForceAddress(const HeardCamera& camera, const Ipv4Network& network, uint32_t gateway,
                  std::chrono::milliseconds time);

/// "02:00:0A:4D:00:02"
std::string MacText(uint64_t mac);

} // namespace nq::tool
