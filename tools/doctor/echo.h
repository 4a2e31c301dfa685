// SPDX-License-Identifier: Apache-2.0
// How long a packet may be on its way to a camera and back.
#pragma once

#include <cstdint>
#include <string>

namespace nq::tool::doctor
{

struct EchoResult
{
    uint32_t bytes = 0;  ///< the longest IP packet that came back
    std::string problem; ///< why that is not known; else empty
};

/// Sends echo requests (ICMP) that may not be fragmented to a dotted address, first one of `mtu` bytes and then shorter
/// ones. Each is sent twice and waited for 300 ms; at most ten lengths are tried.
EchoResult LongestEcho(const std::string& address, uint32_t mtu);

} // namespace nq::tool::doctor
