// SPDX-License-Identifier: Apache-2.0
// An IPv4 address with its subnet, as "10.0.0.9/24".
#include "ipv4_network.h"

#include "camera_tree.h"
#include "exit_codes.h"

#include <arpa/inet.h>
#include <bit>
#include <charconv>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

/// Whether one host can have it: no number of the network as a whole, of many, of this machine.
bool IsOfAHost(const Ipv4Network& network)
{
    const uint32_t hosts = ~network.mask;
    const uint32_t number = network.address & hosts;
    const uint32_t first = network.address >> 24;
    return first != 0 && first != 127 && first < 224 && (hosts <= 1 || (number != 0 && number != hosts));
}

} // namespace

std::string NetworkText(const Ipv4Network& network)
{
    return fmt::format("{}/{}", DottedAddress(network.address), std::popcount(network.mask));
}

uint32_t ParseDotted(const std::string& text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("'{}' is no IPv4 address like 10.0.0.9", text));
    }
    return ntohl(address.s_addr);
}

Ipv4Network ParseNetwork(const std::string& text)
{
    const size_t slash = text.find('/');
    const std::string tail = slash == std::string::npos ? "" : text.substr(slash + 1);
    unsigned bits = 0;
    const auto [end, error] = std::from_chars(tail.data(), tail.data() + tail.size(), bits);
    if (tail.empty() || error != std::errc{} || end != tail.data() + tail.size() || bits < 1 || bits > 30)
    {
        throw ToolFailure(
            ExitCode::Usage,
            fmt::format("'{}' is no address with the bits of its subnet, 1 to 30, like 10.0.0.9/24", text));
    }
    const Ipv4Network network{ParseDotted(text.substr(0, slash)), ~uint32_t{0} << (32 - bits)};
    if (!IsOfAHost(network))
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("{} is no address that a camera can have", text));
    }
    return network;
}

} // namespace nq::tool
