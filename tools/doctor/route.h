// SPDX-License-Identifier: Apache-2.0
// By which adapter, and from which of its addresses, this machine sends to another.
#pragma once

#include <cstdint>
#include <string>

namespace nq::tool::doctor
{

struct Route
{
    uint32_t source = 0; ///< the address of this machine, 0 where there is no way
    std::string adapter; ///< empty where the kernel does not tell, and for an address of this machine
    std::string problem; ///< why there is no way
};

/// As the kernel would send to `address` now. Sends nothing.
Route RouteTo(const std::string& address);

} // namespace nq::tool::doctor
