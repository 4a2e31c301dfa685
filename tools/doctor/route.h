// SPDX-License-Identifier: Apache-2.0
// From which of its addresses this machine sends to another.
#pragma once

#include <cstdint>
#include <string>

namespace nq::tool::doctor
{

struct Route
{
    uint32_t source = 0; ///< the address of this machine, 0 where there is no way
    std::string problem; ///< why there is none
};

/// As the kernel would send to `address` now. Sends nothing.
Route RouteTo(const std::string& address);

} // namespace nq::tool::doctor
