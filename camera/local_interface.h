// SPDX-License-Identifier: Apache-2.0
// Finds the network interface that a camera lives on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nq::camera
{

/// One IPv4 address of this machine. Addresses in host order.
struct LocalInterface
{
    std::string name;
    int index = 0;
    std::uint32_t address = 0;
    std::uint32_t netmask = 0;
    /// Of the camera; 0 for none.
    std::uint32_t gateway = 0;

    bool operator==(const LocalInterface&) const = default;
};

/// Reads "10.9.0.1". Throws std::invalid_argument for any other text.
std::uint32_t ParseAddress(const std::string& text);

/// Every IPv4 address of this machine, with the interface that has it. Throws std::runtime_error.
std::vector<LocalInterface> LocalInterfaces();

/// The interface that has this address. Throws std::runtime_error when none has.
LocalInterface FindInterfaceByAddress(std::uint32_t address);

/// The first IPv4 address of the interface of this name. Throws std::runtime_error when there is none.
LocalInterface FindInterfaceByName(const std::string& name);

} // namespace nq::camera
