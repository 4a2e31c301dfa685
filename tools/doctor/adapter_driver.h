// SPDX-License-Identifier: Apache-2.0
// What the drivers of network adapters tell.
#pragma once

#include "doctor/machine.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace nq::tool::doctor
{

/// The counters of its driver, as `ethtool -S` has them; nothing when the driver has none.
std::optional<std::map<std::string, uint64_t>> CountersOf(const Machine& machine, const std::string& adapter);

/// Its MAC address, as 02:00:0a:0b:0c:0d.
std::string HardwareAddressOf(const std::string& adapter);

/// The name of its driver, the version, and that of the firmware, as far as the driver tells.
std::string DriverOf(const std::string& adapter);

} // namespace nq::tool::doctor
