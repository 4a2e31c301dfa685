// SPDX-License-Identifier: Apache-2.0
// The info commands of GenTL 1.5 by their names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace nq::tool
{

struct InfoCommand
{
    int32_t command;
    const char* name;
};

using InfoCommands = std::span<const InfoCommand>;

extern const InfoCommands kSystemCommands;
extern const InfoCommands kInterfaceCommands;
extern const InfoCommands kDeviceCommands;
extern const InfoCommands kStreamCommands;
extern const InfoCommands kBufferCommands;
extern const InfoCommands kPartCommands;
extern const InfoCommands kPortCommands;
extern const InfoCommands kUrlCommands;
extern const InfoCommands kEventCommands;

/// What our producer offers beyond the standard: of an interface, and of a device that is closed or open.
extern const InfoCommands kOurInterfaceCommands;
extern const InfoCommands kOurDeviceCommands;

/// How many of kOurDeviceCommands a closed device answers too.
constexpr size_t kOurClosedDeviceCommands = 6;

} // namespace nq::tool
