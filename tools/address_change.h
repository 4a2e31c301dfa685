// SPDX-License-Identifier: Apache-2.0
// One change of a camera's address: what is asked for, whether it may be, and doing it.
#pragma once

#include "heard_cameras.h"

#include <string>
#include <vector>

namespace nq::tool
{

/// Ways by which a camera comes to its address, as bits of its registers.
constexpr uint32_t kPersistent = 1;
constexpr uint32_t kDhcp = 2;
constexpr uint32_t kLinkLocal = 4;

/// As it was typed. Operations throw ToolFailure.
struct AddressChange
{
    std::string camera;
    std::string set;
    std::string gateway;
    std::string force;
    bool dhcp = false;
    bool linkLocal = false;
    bool outside = false;
    bool taken = false; ///< another host may have the address
    bool yes = false;

    bool IsNone() const { return set.empty() && force.empty() && !dhcp && !linkLocal; }

    /// That what was typed fits together.
    void Check() const;
    /// The one camera that is meant.
    const HeardCamera& Choose(const std::vector<HeardCamera>& cameras) const;
    /// That the camera can take the address, and that it is free and of the right subnet.
    void CheckAgainst(const HeardCamera& camera) const;
    /// Asks the user, unless told not to.
    void Confirm(const HeardCamera& camera) const;
    /// Does it; what has come of it, for the user. `time` is how long an answer may take.
    std::string Execute(const HeardCamera& camera, std::chrono::milliseconds time) const;

  private:
    uint32_t Bit() const { return dhcp ? kDhcp : linkLocal ? kLinkLocal : kPersistent; }
    Ipv4Network Wanted() const { return ParseNetwork(force.empty() ? set : force); }
    uint32_t Gateway() const { return gateway.empty() ? 0 : ParseDotted(gateway); }
    std::string Description() const;
    /// The number of network interfaces that the camera tells of.
    uint32_t Keep(const HeardCamera& camera) const;
};

} // namespace nq::tool
