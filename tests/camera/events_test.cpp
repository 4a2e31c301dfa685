// SPDX-License-Identifier: Apache-2.0
// Event packets of the virtual camera.
#include "camera/raw_host.h"

#include <gtest/gtest.h>

using namespace nq::test;

namespace
{

/// Directs the camera's message channel at `events`.
void OpenChannel(const RawHost& host, const RawHost& events)
{
    host.KeepControl();
    host.Write(0x100, 0x0B10, 0x0A4D0001);
    host.Write(0x101, 0x0B00, events.Port());
}

} // namespace

TEST(CameraEvents, PacketHoldsOneEventWithItsIdAndTime)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    OpenChannel(host, events);
    EXPECT_EQ(camera.Control(R"({"cmd":"event","id":36881})"), R"({"ok":true,"sent":true})");
    const Octets packet = events.Receive();
    ASSERT_EQ(packet.size(), 24U);
    EXPECT_EQ(Octets(packet.begin(), packet.begin() + 16), Hex("42 00 00 C0 00 10 00 01 00 00 90 11 00 00 00 00"));
    EXPECT_NE(Octets(packet.begin() + 16, packet.end()), Octets(8));
    EXPECT_EQ(events.SenderPort(), host.Read(0x0B1C));
}

TEST(CameraEvents, RequestIdsCountUp)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    OpenChannel(host, events);
    camera.Control(R"({"cmd":"event"})");
    camera.Control(R"({"cmd":"event"})");
    EXPECT_EQ(events.Receive()[7], 1);
    EXPECT_EQ(events.Receive()[7], 2);
}

TEST(CameraEvents, TestEventFollowsItsNotification)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    OpenChannel(host, events);
    EXPECT_EQ(host.Write(1, 0x10080, 0), 0U);
    EXPECT_EQ(host.Write(2, 0x10064, 1), 0U);
    EXPECT_TRUE(events.Receive(std::chrono::milliseconds(0)).empty());
    EXPECT_EQ(host.Write(3, 0x10080, 1), 0U);
    EXPECT_EQ(host.Write(4, 0x10064, 1), 0U);
    const Octets packet = events.Receive();
    ASSERT_EQ(packet.size(), 24U);
    EXPECT_EQ(Octets(packet.begin() + 10, packet.begin() + 12), Hex("90 00"));
}

TEST(CameraEvents, ClosedChannelSendsNothing)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    EXPECT_EQ(camera.Control(R"({"cmd":"event"})"), R"({"ok":true,"sent":false})");
    OpenChannel(host, events);
    host.Write(1, 0x0B00, 0);
    EXPECT_EQ(camera.Control(R"({"cmd":"event"})"), R"({"ok":true,"sent":false})");
}

TEST(CameraEvents, LossOfControlClosesTheChannel)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    OpenChannel(host, events);
    host.Write(1, 0x0A00, 0);
    EXPECT_EQ(camera.Control(R"({"cmd":"event"})"), R"({"ok":true,"sent":false})");
}

TEST(CameraEvents, PortIsOpenForTheHostsFirstPacket)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    OpenChannel(host, events);
    const auto port = static_cast<std::uint16_t>(host.Read(0x0B1C));
    events.Send(Octets(12), VirtualCamera::kAddress, port);
    camera.Control(R"({"cmd":"event"})");
    EXPECT_EQ(events.Receive().size(), 24U);
}
