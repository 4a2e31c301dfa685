// SPDX-License-Identifier: Apache-2.0
// Features of the link: the GigE Vision bootstrap registers by name.
#include "bootstrap.h"
#include "feature_groups.h"
#include "feature_registers.h"

#include <array>

namespace nq::camera
{

namespace
{

using namespace bootstrap;
using namespace feature;

constexpr Feature Address(const char* name, std::uint32_t address, const char* tip, Access access)
{
    return {.name = name,
            .address = address,
            .tip = tip,
            .access = access,
            .visibility = "Expert",
            .representation = "IPV4Address"};
}

constexpr Feature Bit(const char* name, std::uint32_t address, std::uint32_t bit, const char* tip, const char* about,
                      Access access)
{
    return {.name = name,
            .kind = FeatureKind::Boolean,
            .address = address,
            .tip = tip,
            .about = about,
            .access = access,
            .visibility = "Expert",
            .firstBit = bit,
            .lastBit = bit};
}

constexpr Feature PortNumber(const char* name, std::uint32_t address, const char* tip, Access access)
{
    return {.name = name,
            .address = address,
            .tip = tip,
            .access = access,
            .visibility = "Expert",
            .max = 65535,
            .firstBit = 16};
}

constexpr std::array kPrivileges{
    FeatureEntry{"OpenAccess", 0, "Nobody has control"},
    FeatureEntry{"ExclusiveAccess", 1, "Nobody else may read or write"},
    FeatureEntry{"ControlAccess", 2, "Nobody else may write"},
};

constexpr std::array kTransport{
    Feature{.name = "PayloadSize",
            .address = kPayloadSize,
            .tip = "Bytes of a picture",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .unit = "B",
            .changedBy = "Width Height PixelFormat BinningHorizontal BinningVertical DecimationHorizontal "
                         "DecimationVertical"},
    Feature{.name = "GevHeartbeatTimeout",
            .address = kHeartbeatTimeout,
            .tip = "Silence of the host after which it loses control",
            .visibility = "Guru",
            .min = 500,
            .max = 3600000,
            .unit = "ms"},
    Feature{.name = "GevSCPSPacketSize",
            .address = kStreamPacketSize,
            .tip = "Size of test packets; pictures come by RDMA",
            .visibility = "Expert",
            .min = 576,
            .max = 9000,
            .step = 4,
            .unit = "B",
            .lock = Lock::Streaming,
            .firstBit = 16},
    Bit("GevSCPSFireTestPacket", kStreamPacketSize, 0, "Sends one test packet", "Reads false again at once",
        Access::ReadWrite),
    Bit("GevSCPSDoNotFragment", kStreamPacketSize, 1, "Whether a test packet may not be cut into pieces on its way", "",
        Access::ReadWrite),
    PortNumber("GevSCPHostPort", kStreamPort, "The host's port for test packets", Access::ReadWrite),
    Address("GevSCDA", kStreamAddress, "The host's address for test packets", Access::ReadWrite),
    PortNumber("GevSCSP", kStreamSourcePort, "The camera's port for test packets", Access::ReadOnly),
    PortNumber("GevMCPHostPort", kMessagePort, "The host's port for events", Access::ReadWrite),
    Address("GevMCDA", kMessageAddress, "The host's address for events", Access::ReadWrite),
    PortNumber("GevMCSP", kMessageSourcePort, "The camera's port for events", Access::ReadOnly),
    Feature{.name = "GevCCP",
            .kind = FeatureKind::Enumeration,
            .address = kControlPrivilege,
            .tip = "Who may use the camera",
            .visibility = "Guru",
            .entries = kPrivileges},
    PortNumber("GevPrimaryApplicationSocket", kPrimaryPort, "Port of the host that has control", Access::ReadOnly),
    Address("GevPrimaryApplicationIPAddress", kPrimaryAddress, "Address of the host that has control",
            Access::ReadOnly),
    Feature{.name = "GevMACAddress",
            .address = kMacHigh,
            .tip = "MAC address of the camera",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .max = 281474976710655,
            .representation = "MACAddress",
            .length = 8},
    Feature{.name = "GevLinkSpeed",
            .address = kLinkSpeed,
            .tip = "Speed of the link",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .unit = "Mbps"},
    Feature{.name = "GevTimestampTickFrequency",
            .address = kTickFrequencyHigh,
            .tip = "Ticks of the camera's clock per second",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .max = 9223372036854774784.0,
            .unit = "Hz",
            .length = 8},
    Bit("GevCurrentIPConfigurationLLA", kIpConfigCurrent, 29, "Whether the camera gives itself an address",
        "As every camera does when nothing else gives it one", Access::ReadOnly),
    Bit("GevCurrentIPConfigurationDHCP", kIpConfigCurrent, 30, "Whether it asks for an address at power on",
        "What it is given is --address", Access::ReadWrite),
    Bit("GevCurrentIPConfigurationPersistentIP", kIpConfigCurrent, 31,
        "Whether it takes the address of its own at power on", "", Access::ReadWrite),
    Address("GevCurrentIPAddress", kCurrentIp, "Address of the camera", Access::ReadOnly),
    Address("GevCurrentSubnetMask", kCurrentMask, "Mask of its subnet", Access::ReadOnly),
    Address("GevCurrentDefaultGateway", kCurrentGateway, "Way out of its subnet", Access::ReadOnly),
    Address("GevPersistentIPAddress", kPersistentIp, "The address of its own", Access::ReadWrite),
    Address("GevPersistentSubnetMask", kPersistentMask, "The mask to it", Access::ReadWrite),
    Address("GevPersistentDefaultGateway", kPersistentGateway, "The way out of its subnet", Access::ReadWrite),
};

} // namespace

std::span<const Feature> TransportFeatures()
{
    return kTransport;
}

} // namespace nq::camera
