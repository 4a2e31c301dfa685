// SPDX-License-Identifier: Apache-2.0
// Cameras that answer a broadcast on the cable, on whatever subnet they are, and the command that moves one.
#pragma once

#include "ipv4_network.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace nq::tool
{

/// A network adapter that is up, with its IPv4 addresses.
struct Adapter
{
    std::string name;
    std::vector<Ipv4Network> networks;

    /// Whether this address and the adapter's reach each other without a gateway.
    bool Reaches(const Ipv4Network& other) const;
};

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
    std::string serial;
    std::string userName;

    /// Whether packets of this machine and of the camera find each other.
    bool IsReachable() const { return adapter.Reaches(network); }
};

/// The adapters of this machine that can broadcast. Throws ToolFailure.
std::vector<Adapter> FindAdapters();

/// Asks on each adapter at once and listens for `time`. Throws ToolFailure when no adapter lets it.
std::vector<HeardCamera> HearCameras(const std::vector<Adapter>& adapters, std::chrono::milliseconds time);

/// Tells the camera, on the adapter where it was heard and by its MAC address, to take an address until it is switched
/// off. True when it has acknowledged within `time`.
bool ForceAddress(const HeardCamera& camera, const Ipv4Network& network, uint32_t gateway,
                  std::chrono::milliseconds time);

/// "02:00:0A:4D:00:02"
std::string MacText(uint64_t mac);

} // namespace nq::tool
