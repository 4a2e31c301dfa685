// SPDX-License-Identifier: Apache-2.0
// What the virtual camera says of itself by name, and features that change others.
#include "camera/feature_host.h"

#include <gmock/gmock.h>

using namespace nq::test;

namespace
{

Octets EventPacket(const RawHost& events)
{
    Octets packet = events.Receive();
    EXPECT_EQ(packet.size(), 24U);
    packet.erase(packet.begin(), packet.begin() + 8);
    return packet;
}

/// What a node of the event's port reads out of a packet.
std::uint64_t FromPacket(const FeatureHost& host, const std::string& name, const Octets& packet)
{
    const XmlNode& node = host.Node(ChildText(host.Node(name), "pValue"));
    const std::size_t begin = std::stoul(ChildText(node, "Address"), nullptr, 16);
    std::uint64_t value = 0;
    for (std::size_t i = begin; i < begin + std::stoul(ChildText(node, "Length")); ++i)
    {
        value = value << 8 | packet.at(i);
    }
    return value;
}

} // namespace

TEST(CameraFacts, AreTrue)
{
    const VirtualCamera camera({"--width", "320", "--height", "200"});
    const FeatureHost host;
    const std::map<std::string, double> numbers{{"DeviceTLVersionMajor", 2},
                                                {"DeviceTLVersionMinor", 0},
                                                {"DeviceSFNCVersionMajor", 2},
                                                {"DeviceLinkSpeed", 1250000000},
                                                {"GevLinkSpeed", 10000},
                                                {"DeviceStreamChannelCount", 1},
                                                {"DeviceEventChannelCount", 1},
                                                {"SensorWidth", 320},
                                                {"SensorHeight", 200},
                                                {"PixelSize", 8},
                                                {"PixelDynamicRangeMax", 255},
                                                {"GevCurrentIPAddress", 0x0A4D0002},
                                                {"GevCurrentSubnetMask", 0xFFFFFF00},
                                                {"GevPersistentIPAddress", 0x0A4D0002},
                                                {"GevPrimaryApplicationIPAddress", 0x0A4D0001},
                                                {"GevCurrentIPConfigurationLLA", 1},
                                                {"GevCurrentIPConfigurationDHCP", 0},
                                                {"GevTimestampTickFrequency", 1000000000},
                                                {"GevPrimaryApplicationSocket", host.Port()}};
    for (const auto& [name, value] : numbers)
    {
        EXPECT_EQ(host.Get(name), value) << name;
    }
    EXPECT_EQ(host.Entry("DeviceType"), "Transmitter");
    EXPECT_EQ(host.Entry("DeviceScanType"), "Areascan");
    EXPECT_EQ(host.Entry("DeviceTLType"), "GigEVision");
    EXPECT_EQ(host.Entry("DeviceCharacterSet"), "UTF8");
    EXPECT_EQ(host.Entry("DeviceRegistersEndianness"), "Big");
    EXPECT_EQ(host.Entry("GevCCP"), "ControlAccess");
}

TEST(CameraFacts, FollowThePixelFormat)
{
    const VirtualCamera camera;
    FeatureHost host;
    EXPECT_EQ(host.Entry("PixelColorFilter"), "None");
    EXPECT_FALSE(host.IsAvailable("BalanceRatio"));
    ASSERT_EQ(host.Set("PixelFormat", "BayerRG12"), 0U);
    EXPECT_EQ(host.Entry("PixelColorFilter"), "BayerRG");
    EXPECT_EQ(host.Get("PixelSize"), 16);
    EXPECT_EQ(host.Get("PixelDynamicRangeMax"), 4095);
    EXPECT_TRUE(host.IsAvailable("BalanceRatio"));
    ASSERT_EQ(host.Set("PixelFormat", "Mono10p"), 0U);
    EXPECT_EQ(host.Get("PayloadSize"), 640 * 480 * 10 / 8);
}

TEST(CameraFacts, BinningKeepsThePartOfTheSensor)
{
    const VirtualCamera camera;
    FeatureHost host;
    ASSERT_EQ(host.Set("Width", 400), 0U);
    ASSERT_EQ(host.Set("OffsetX", 100), 0U);
    ASSERT_EQ(host.Set("BinningHorizontal", 2), 0U);
    EXPECT_EQ(host.Get("WidthMax"), 320);
    EXPECT_EQ(host.Get("Width"), 200);
    EXPECT_EQ(host.Get("OffsetX"), 50);
    ASSERT_EQ(host.Set("DecimationHorizontal", 2), 0U);
    EXPECT_EQ(host.Get("Width"), 100);
    ASSERT_EQ(host.Set("BinningHorizontal", 1), 0U);
    ASSERT_EQ(host.Set("DecimationHorizontal", 1), 0U);
    EXPECT_EQ(host.Get("Width"), 400);
    EXPECT_EQ(host.Get("OffsetX"), 100);
}

TEST(CameraFacts, LimitsAndTimeoutsMoveEachOther)
{
    const VirtualCamera camera;
    FeatureHost host;
    ASSERT_EQ(host.Set("DeviceLinkThroughputLimit", 3072000), 0U);
    EXPECT_EQ(host.Limit("AcquisitionFrameRate", "Max"), 100000) << "switched off";
    ASSERT_EQ(host.Set("DeviceLinkThroughputLimitMode", "On"), 0U);
    EXPECT_EQ(host.Limit("AcquisitionFrameRate", "Max"), 10) << "307200 bytes each";
    ASSERT_EQ(host.Set("DeviceLinkHeartbeatTimeout", 50000000), 0U);
    EXPECT_EQ(host.Get("GevHeartbeatTimeout"), 50000);
    ASSERT_EQ(host.Set("DeviceLinkHeartbeatMode", "Off"), 0U);
    EXPECT_EQ(host.Read(0x0954), 1U);
}

TEST(CameraFacts, EventsCarryWhatTheirNodesSay)
{
    const VirtualCamera camera;
    FeatureHost host;
    const RawHost events;
    ASSERT_EQ(host.Set("GevMCDA", 0x0A4D0001), 0U);
    ASSERT_EQ(host.Set("GevMCPHostPort", events.Port()), 0U);
    ASSERT_EQ(host.Execute("TimestampLatch"), 0U);
    const std::map<std::string, std::string> ports{{"Test", "9000"}, {"ExposureEnd", "9001"}, {"FrameEnd", "9002"}};
    for (const auto& [name, id] : ports)
    {
        ASSERT_EQ(camera.Control(R"({"cmd":"event","id":)" + std::to_string(std::stoul(id, nullptr, 16)) + "}"),
                  R"({"ok":true,"sent":true})");
        const Octets packet = EventPacket(events);
        const std::string event = "Event" + name;
        EXPECT_EQ(FromPacket(host, event, packet), std::stoul(id, nullptr, 16));
        EXPECT_EQ(FromPacket(host, event + "FrameID", packet), 0U);
        EXPECT_GT(FromPacket(host, event + "Timestamp", packet), static_cast<std::uint64_t>(host.Read(0x094C)));
        for (const std::string& node : {event, event + "FrameID", event + "Timestamp"})
        {
            const std::string port = ChildText(host.Node(ChildText(host.Node(node), "pValue")), "pPort");
            EXPECT_EQ(host.Node(port).name, "Port");
            EXPECT_EQ(ChildText(host.Node(port), "EventID"), id);
        }
    }
}
