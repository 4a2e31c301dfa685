// SPDX-License-Identifier: Apache-2.0
// The registers of the camera at power on.
#include "bootstrap.h"
#include "byte_order.h"
#include "device.h"
#include "feature_registers.h"

#include <array>
#include <bit>
#include <cstdio>

namespace nq::camera
{

namespace
{

std::string LocalUrl(const std::string& file, std::uint32_t address, std::size_t size)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "Local:%s;%X;%zX", file.c_str(), address, size);
    return text.data();
}

} // namespace

void Device::AddIdentity()
{
    using namespace bootstrap;
    RegisterMap& map = m_registers;
    map.AddRegister(kVersion, Access::ReadOnly, 0x00020000);
    map.AddRegister(kDeviceMode, Access::ReadOnly, kModeBigEndianUtf8);
    map.AddRegister(kMacHigh, Access::ReadOnly, static_cast<std::uint32_t>(m_options.mac >> 32));
    map.AddRegister(kMacLow, Access::ReadOnly, static_cast<std::uint32_t>(m_options.mac));
    map.AddRegister(kIpConfigSupported, Access::ReadOnly, kIpConfigLinkLocal | kIpConfigDhcp | kIpConfigPersistent);
    map.AddRegister(kIpConfigCurrent, Access::ReadWrite, m_state.ip.flags);
    map.AddRegister(kCurrentIp, Access::ReadOnly, m_network.address);
    map.AddRegister(kCurrentMask, Access::ReadOnly, m_network.netmask);
    map.AddRegister(kCurrentGateway, Access::ReadOnly, m_network.gateway);
    map.AddText(kManufacturerName, 32, Access::ReadOnly, m_options.vendor);
    map.AddText(kModelName, 32, Access::ReadOnly, m_options.model);
    map.AddText(kDeviceVersion, 32, Access::ReadOnly, m_options.deviceVersion);
    map.AddText(kManufacturerInfo, 48, Access::ReadOnly, m_options.manufacturerInfo);
    map.AddText(kSerialNumber, 16, Access::ReadOnly, m_options.serial);
    map.AddText(kUserName, kUserNameSize, Access::ReadWrite, m_state.userName);
    map.AddRegister(kInterfaceCount, Access::ReadOnly, 1);
    map.AddRegister(kPersistentIp, Access::ReadWrite, m_state.ip.address);
    map.AddRegister(kPersistentMask, Access::ReadWrite, m_state.ip.netmask);
    map.AddRegister(kPersistentGateway, Access::ReadWrite, m_state.ip.gateway);
    map.AddRegister(kLinkSpeed, Access::ReadOnly, 10000);
}

void Device::AddChannels()
{
    using namespace bootstrap;
    RegisterMap& map = m_registers;
    map.AddRegister(kMessageChannelCount, Access::ReadOnly, 1);
    map.AddRegister(kStreamChannelCount, Access::ReadOnly, 1);
    map.AddRegister(kActionSignalCount, Access::ReadOnly);
    map.AddRegister(kActiveLinkCount, Access::ReadOnly, 1);
    map.AddRegister(kStreamCapability, Access::ReadOnly,
                    kStreamHasSourcePort | kStreamHasExtendedBootstrap | kStreamHasRdma);
    map.AddRegister(kMessageCapability, Access::ReadOnly, kMessageHasSourcePort);
    map.AddRegister(kGvcpCapability, Access::ReadOnly,
                    kGvcpUserName | kGvcpSerialNumber | kGvcpHeartbeatDisable | kGvcpPrimaryRegisters |
                        kGvcpPendingAck | kGvcpEvent | kGvcpWriteMem | kGvcpConcatenation);
    map.AddRegister(kHeartbeatTimeout, Access::ReadWrite, m_options.heartbeat);
    map.AddRegister(kTickFrequencyHigh, Access::ReadOnly);
    map.AddRegister(kTickFrequencyLow, Access::ReadOnly, DeviceClock::kTicksPerSecond);
    map.AddRegister(kTimestampControl, Access::ReadWrite);
    map.AddRegister(kTimestampHigh, Access::ReadOnly);
    map.AddRegister(kTimestampLow, Access::ReadOnly);
    map.AddRegister(kDiscoveryDelay, Access::ReadOnly);
    map.AddRegister(kGvcpConfiguration, Access::ReadWrite);
    map.AddRegister(kPendingTimeout, Access::ReadOnly, 100);
    map.AddRegister(kControlPrivilege, Access::ReadWrite);
    map.AddRegister(kPrimaryPort, Access::ReadOnly);
    map.AddRegister(kPrimaryAddress, Access::ReadOnly);
    map.AddRegister(kMessagePort, Access::ReadWrite);
    map.AddRegister(kMessageAddress, Access::ReadWrite);
    map.AddRegister(kMessageTimeout, Access::ReadWrite);
    map.AddRegister(kMessageRetries, Access::ReadWrite);
    map.AddRegister(kMessageSourcePort, Access::ReadOnly, m_messages.SourcePort());
    map.AddRegister(kStreamPort, Access::ReadWrite);
    map.AddRegister(kStreamPacketSize, Access::ReadWrite, 1500);
    map.AddRegister(kStreamPacketDelay, Access::ReadWrite);
    map.AddRegister(kStreamAddress, Access::ReadWrite);
    map.AddRegister(kStreamSourcePort, Access::ReadOnly, m_stream.SourcePort());
    map.AddRegister(kStreamExtendedBootstrap, Access::ReadOnly, kExtendedBootstrap);
    map.AddRegister(kRdmaEnable, Access::ReadWrite);
    map.AddRegister(kRdmaLayoutAddress, Access::ReadOnly, kRdmaLayout);
    map.AddRegister(kRdmaLayoutWord, Access::ReadOnly);
    map.Add(kRdmaSettings, kRdmaSettingsSize, Access::ReadOnly);
    map.Add(kRdmaLayout, kRdmaLayoutSize, Access::ReadOnly);
}

void Device::AddFeatures()
{
    using namespace feature;
    RegisterMap& map = m_registers;
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            if (feature.address >= kFirstFeature)
            {
                AddFeature(feature);
            }
        }
    }
    map.AddRegister(kStreaming, Access::ReadOnly);
    map.AddRegister(kAcquiring, Access::ReadOnly);
    map.AddRegister(kWidthStep, Access::ReadOnly, m_options.widthStep);
    map.Set(kWidth, m_options.width);
    map.Set(kHeight, m_options.height);
    map.Set(kPixelFormat, m_options.pixelFormat.code);
    map.Set(kWidthMax, m_options.width);
    map.Set(kHeightMax, m_options.height);
    map.Set(kSensorWidth, m_options.width);
    map.Set(kSensorHeight, m_options.height);
    map.Set(kUserSetDefault, m_state.defaultSet);
    for (std::uint32_t i = 0; i <= kLastOfTable; ++i)
    {
        map.Set(kLUTValue + 4 * i, i);
    }
    map.SetFloat(kExposureTime, static_cast<float>(m_options.exposure));
    if (m_options.frameRate > 0)
    {
        map.SetFloat(kAcquisitionFrameRate, static_cast<float>(m_options.frameRate));
        map.Set(kAcquisitionFrameRateEnable, 1);
    }
    map.Set(kTestPattern, m_options.pattern);
}

void Device::AddFeature(const Feature& feature)
{
    RegisterMap& map = m_registers;
    const bool isFloat = feature.kind == FeatureKind::Float;
    const auto value = isFloat ? std::bit_cast<std::uint32_t>(static_cast<float>(feature.value))
                               : static_cast<std::uint32_t>(feature.value);
    for (std::uint32_t i = 0; i < RegisterCount(feature); ++i)
    {
        map.AddRegister(feature.address + feature.stride * i, feature.access, value);
    }
    if (feature.movingMax || feature.movingEntries)
    {
        map.AddRegister(feature.address + feature::kLimitOffset, Access::ReadOnly);
    }
    if (feature.conditional)
    {
        map.AddRegister(feature.address + feature::kAvailableOffset, Access::ReadOnly);
    }
}

void Device::AddDescription()
{
    const std::string& xml = m_description;
    m_registers.AddBlob(feature::kXmlAddress, {reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()});
    m_registers.AddBlob(feature::kZipAddress, m_zippedDescription);
    constexpr std::uint32_t kUrlSize = 512;
    m_registers.AddText(bootstrap::kFirstUrl, kUrlSize, Access::ReadOnly,
                        LocalUrl(m_descriptionName + ".xml", feature::kXmlAddress, xml.size()));
    m_registers.AddText(bootstrap::kSecondUrl, kUrlSize, Access::ReadOnly,
                        LocalUrl(m_descriptionName + ".zip", feature::kZipAddress, m_zippedDescription.size()));
}

} // namespace nq::camera
