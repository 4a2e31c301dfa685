// SPDX-License-Identifier: Apache-2.0
// The camera's address: what it is, and what it will be.
#include "bootstrap.h"
#include "device.h"

namespace nq::camera
{

using namespace bootstrap;

namespace
{

/// Whether a camera can have this address: one host among others of a subnet whose mask has no gap.
bool IsHostAddress(std::uint32_t address, std::uint32_t netmask)
{
    const std::uint32_t hosts = ~netmask;
    const std::uint32_t first = address >> 24;
    return netmask != 0 && (hosts & (hosts + 1)) == 0 && first > 0 && first < 224 && first != 127 &&
           (hosts <= 1 || ((address & hosts) != 0 && (address & hosts) != hosts));
}

} // namespace

LocalInterface Device::NetworkAtStart() const
{
    LocalInterface network = m_options.network;
    const IpConfiguration& ip = m_state.ip;
    // The command line may have one that no host gives away, such as 127.0.0.1.
    const bool usable = ip.address == network.address || IsHostAddress(ip.address, ip.netmask);
    if ((ip.flags & kIpConfigPersistent) != 0 && usable)
    {
        network.address = ip.address;
        network.netmask = ip.netmask;
        network.gateway = ip.gateway;
    }
    else if ((ip.flags & kIpConfigDhcp) == 0)
    {
        // 169.254.1.0 to 169.254.254.255 are for hosts, each with a number of its own.
        const auto number = static_cast<std::uint32_t>(m_options.mac % (std::uint64_t{254} * 256));
        network.address = 0xA9FE0100 + number;
        network.netmask = 0xFFFF0000;
        network.gateway = 0;
    }
    return network;
}

LocalInterface Device::ConfiguredNetwork()
{
    const std::lock_guard lock(m_mutex);
    return NetworkAtStart();
}

std::optional<LocalInterface> Device::ForceIp(std::uint64_t mac, std::uint32_t address, std::uint32_t netmask,
                                              std::uint32_t gateway)
{
    const std::lock_guard lock(m_mutex);
    if (mac != m_options.mac || m_privilege.Value() != 0)
    {
        return std::nullopt;
    }
    if (address == 0)
    {
        return NetworkAtStart();
    }
    LocalInterface network = m_network;
    network.address = address;
    network.netmask = netmask;
    network.gateway = gateway;
    return IsHostAddress(address, netmask) ? std::optional(network) : std::nullopt;
}

void Device::SetNetwork(const LocalInterface& network)
{
    const std::lock_guard lock(m_mutex);
    m_network = network;
    m_registers.Set(kCurrentIp, network.address);
    m_registers.Set(kCurrentMask, network.netmask);
    m_registers.Set(kCurrentGateway, network.gateway);
    m_registers.Set(kMessageSourcePort, m_messages.SourcePort());
    m_registers.Set(kStreamSourcePort, m_stream.SourcePort());
}

void Device::KeepIpConfiguration()
{
    // Every camera gives itself an address when nothing else does.
    const std::uint32_t flags = m_registers.Get(kIpConfigCurrent) & (kIpConfigDhcp | kIpConfigPersistent);
    m_registers.Set(kIpConfigCurrent, flags | kIpConfigLinkLocal);
    m_state.ip = {m_registers.Get(kIpConfigCurrent), m_registers.Get(kPersistentIp), m_registers.Get(kPersistentMask),
                  m_registers.Get(kPersistentGateway)};
    KeepState();
}

} // namespace nq::camera
