// SPDX-License-Identifier: Apache-2.0
// The camera addresses this library uses: the GigE Vision bootstrap registers, and the block of the RDMA stream.
#pragma once

namespace nq::reg
{

// Bootstrap memory and registers (GigE Vision).
inline constexpr unsigned int userDefinedName = 0x00E8;
inline constexpr unsigned int firstUrl = 0x0200;
inline constexpr unsigned int secondUrl = 0x0400;
inline constexpr unsigned int persistentIp = 0x064C;
inline constexpr unsigned int persistentSubnet = 0x065C;
inline constexpr unsigned int persistentGateway = 0x066C;
inline constexpr unsigned int messageChannels = 0x0900;
inline constexpr unsigned int streamChannels = 0x0904;
inline constexpr unsigned int streamCapability = 0x092C;
inline constexpr unsigned int gvcpCapability = 0x0934;
inline constexpr unsigned int heartbeatTimeout = 0x0938; // in milliseconds
inline constexpr unsigned int timestampFrequencyHigh = 0x093C;
inline constexpr unsigned int timestampFrequencyLow = 0x0940;
inline constexpr unsigned int gvcpConfiguration = 0x0954;
inline constexpr unsigned int controlPrivilege = 0x0A00;
inline constexpr unsigned int messagePort = 0x0B00;
inline constexpr unsigned int messageAddress = 0x0B10;
inline constexpr unsigned int messageSourcePort = 0x0B1C;
inline constexpr unsigned int streamPort = 0x0D00;
inline constexpr unsigned int streamPacketSize = 0x0D04;
inline constexpr unsigned int streamAddress = 0x0D18;
inline constexpr unsigned int camera0D3C = 0x0D3C;

// The RDMA stream of these cameras.
inline constexpr unsigned int rdmaStreamEnable = 0xE030;
inline constexpr unsigned int bufferLayout = 0xE034;
inline constexpr unsigned int bufferLayout2 = 0xE038;
inline constexpr unsigned int rdmaSettings = 0xE600;

} // namespace nq::reg
