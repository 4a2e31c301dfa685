// SPDX-License-Identifier: Apache-2.0
// Addresses of the registers every GigE Vision camera has, and of the block that controls the RDMA stream.
#pragma once

#include <cstdint>

namespace nq::camera::bootstrap
{

// Source: GigE Vision, chapter "bootstrap registers".
constexpr std::uint32_t kVersion = 0x0000;
constexpr std::uint32_t kDeviceMode = 0x0004;
constexpr std::uint32_t kMacHigh = 0x0008;
constexpr std::uint32_t kMacLow = 0x000C;
constexpr std::uint32_t kIpConfigSupported = 0x0010;
constexpr std::uint32_t kIpConfigCurrent = 0x0014;
constexpr std::uint32_t kCurrentIp = 0x0024;
constexpr std::uint32_t kCurrentMask = 0x0034;
constexpr std::uint32_t kCurrentGateway = 0x0044;
constexpr std::uint32_t kManufacturerName = 0x0048;
constexpr std::uint32_t kModelName = 0x0068;
constexpr std::uint32_t kDeviceVersion = 0x0088;
constexpr std::uint32_t kManufacturerInfo = 0x00A8;
constexpr std::uint32_t kSerialNumber = 0x00D8;
constexpr std::uint32_t kUserName = 0x00E8;
constexpr std::uint32_t kUserNameSize = 16;
constexpr std::uint32_t kFirstUrl = 0x0200;
constexpr std::uint32_t kSecondUrl = 0x0400;
constexpr std::uint32_t kInterfaceCount = 0x0600;
constexpr std::uint32_t kPersistentIp = 0x064C;
constexpr std::uint32_t kPersistentMask = 0x065C;
constexpr std::uint32_t kPersistentGateway = 0x066C;
constexpr std::uint32_t kLinkSpeed = 0x0670;
constexpr std::uint32_t kMessageChannelCount = 0x0900;
constexpr std::uint32_t kStreamChannelCount = 0x0904;
constexpr std::uint32_t kActionSignalCount = 0x0908;
constexpr std::uint32_t kActiveLinkCount = 0x0910;
constexpr std::uint32_t kStreamCapability = 0x092C;
constexpr std::uint32_t kMessageCapability = 0x0930;
constexpr std::uint32_t kGvcpCapability = 0x0934;
constexpr std::uint32_t kHeartbeatTimeout = 0x0938;
constexpr std::uint32_t kTickFrequencyHigh = 0x093C;
constexpr std::uint32_t kTickFrequencyLow = 0x0940;
constexpr std::uint32_t kTimestampControl = 0x0944;
constexpr std::uint32_t kTimestampHigh = 0x0948;
constexpr std::uint32_t kTimestampLow = 0x094C;
constexpr std::uint32_t kDiscoveryDelay = 0x0950;
constexpr std::uint32_t kGvcpConfiguration = 0x0954;
constexpr std::uint32_t kPendingTimeout = 0x0958;
constexpr std::uint32_t kControlPrivilege = 0x0A00;
constexpr std::uint32_t kPrimaryPort = 0x0A04;
constexpr std::uint32_t kPrimaryAddress = 0x0A14;
constexpr std::uint32_t kMessagePort = 0x0B00;
constexpr std::uint32_t kMessageAddress = 0x0B10;
constexpr std::uint32_t kMessageTimeout = 0x0B14;
constexpr std::uint32_t kMessageRetries = 0x0B18;
constexpr std::uint32_t kMessageSourcePort = 0x0B1C;
constexpr std::uint32_t kStreamPort = 0x0D00;
constexpr std::uint32_t kStreamPacketSize = 0x0D04;
constexpr std::uint32_t kStreamPacketDelay = 0x0D08;
constexpr std::uint32_t kStreamAddress = 0x0D18;
constexpr std::uint32_t kStreamSourcePort = 0x0D1C;
constexpr std::uint32_t kStreamExtendedBootstrap = 0x0D3C;
/// Memory reads below this address deliver zero for bytes that belong to no register.
constexpr std::uint32_t kBootstrapEnd = 0x1000;

constexpr std::uint32_t kModeBigEndianUtf8 = 0x80000001;
constexpr std::uint32_t kIpConfigPersistent = 0x00000001;
constexpr std::uint32_t kIpConfigDhcp = 0x00000002;
constexpr std::uint32_t kIpConfigLinkLocal = 0x00000004;
constexpr std::uint32_t kStreamHasSourcePort = 0x80000000;
constexpr std::uint32_t kStreamHasExtendedBootstrap = 0x10000000;
constexpr std::uint32_t kStreamHasRdma = 0x04000000;
constexpr std::uint32_t kMessageHasSourcePort = 0x80000000;
constexpr std::uint32_t kGvcpUserName = 0x80000000;
constexpr std::uint32_t kGvcpSerialNumber = 0x40000000;
constexpr std::uint32_t kGvcpHeartbeatDisable = 0x20000000;
constexpr std::uint32_t kGvcpPrimaryRegisters = 0x08000000;
constexpr std::uint32_t kGvcpPendingAck = 0x00000020;
constexpr std::uint32_t kGvcpEvent = 0x00000008;
constexpr std::uint32_t kGvcpWriteMem = 0x00000002;
constexpr std::uint32_t kGvcpConcatenation = 0x00000001;
constexpr std::uint32_t kConfigHeartbeatDisable = 0x00000001;
constexpr std::uint32_t kConfigPendingAckEnable = 0x00000002;
constexpr std::uint32_t kTimestampReset = 0x00000001;
constexpr std::uint32_t kTimestampLatch = 0x00000002;
constexpr std::uint32_t kPacketFireTest = 0x80000000;
constexpr std::uint32_t kPacketDoNotFragment = 0x40000000;
constexpr std::uint32_t kPacketSizeMask = 0x0000FFFF;

/// Values of the control privilege register.
constexpr std::uint32_t kPrivilegeExclusive = 0x00000001;
constexpr std::uint32_t kPrivilegeControl = 0x00000002;

// The RDMA block, in the stream channel's extended bootstrap registers.
constexpr std::uint32_t kExtendedBootstrap = 0xE000;
constexpr std::uint32_t kRdmaEnable = 0xE030;
constexpr std::uint32_t kRdmaLayoutAddress = 0xE034;
constexpr std::uint32_t kRdmaLayoutWord = 0xE038;
constexpr std::uint32_t kRdmaSettings = 0xE600;
constexpr std::uint32_t kRdmaSettingsSize = 176;
/// Unsigned 64-bit, least significant byte first, inside the settings.
constexpr std::uint32_t kRdmaPayloadOffset = 32;
constexpr std::uint32_t kRdmaLayout = 0xE700;
constexpr std::uint32_t kRdmaLayoutSize = 16;
constexpr std::uint32_t kRdmaEnableOn = 0x80000000;

} // namespace nq::camera::bootstrap
