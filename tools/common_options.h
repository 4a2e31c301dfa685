// SPDX-License-Identifier: Apache-2.0
// Options that every verb takes.
#pragma once

#include <cstdint>
#include <string>

namespace nq::tool
{

struct CommonOptions
{
    std::string producer;
    std::string answers = "standard"; ///< of our producer; the environment tells it
    bool json = false;
    uint64_t timeoutMs = 1000; ///< how long each interface listens for cameras, in milliseconds
};

} // namespace nq::tool
