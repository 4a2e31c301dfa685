// SPDX-License-Identifier: Apache-2.0
// How the virtual camera answers a discovery.
#include "camera/raw_host.h"

#include <gtest/gtest.h>

using namespace nq::test;

namespace
{

constexpr const char* kDiscovery = "42 11 00 02 00 00 00 01";

/// The 256 bytes of the camera's answer to request id 1, written out field by field.
Octets ExpectedAnswer()
{
    return Hex("00 00 00 03 00 F8 00 01") +  // status, code, length 248, id
           Hex("00 02 00 00") +              // specification 2.0
           Hex("80 00 00 01") +              // big endian, UTF-8
           Hex("00 00 02 00 0A 4D 00 02") +  // reserved, MAC 02:00:0A:4D:00:02
           Hex("00 00 00 07 00 00 00 05") +  // IP configurations: supported, current
           Octets(12) + Hex("0A 4D 00 02") + // address
           Octets(12) + Hex("FF FF FF 00") + // mask
           Octets(12) + Hex("00 00 00 00") + // gateway
           TextBytes("Acme", 32) + TextBytes("Eye", 32) + TextBytes("3.0.1", 32) +
           TextBytes("Virtual GigE Vision camera with RDMA stream", 48) + TextBytes("X42", 16) + TextBytes("Otto", 16);
}

VirtualCamera NamedCamera()
{
    return VirtualCamera(
        {"--vendor", "Acme", "--model", "Eye", "--device-version", "3.0.1", "--serial", "X42", "--user-name", "Otto"});
}

} // namespace

TEST(CameraDiscovery, UnicastIsAnsweredWithTheWholeRecord)
{
    const VirtualCamera camera = NamedCamera();
    const RawHost host;
    EXPECT_EQ(host.Ask(kDiscovery), ExpectedAnswer());
    EXPECT_EQ(host.SenderPort(), 3956);
}

TEST(CameraDiscovery, LimitedBroadcastIsAnsweredDirectly)
{
    const VirtualCamera camera = NamedCamera();
    const RawHost host;
    host.Send(Hex(kDiscovery), "255.255.255.255");
    EXPECT_EQ(host.Receive(), ExpectedAnswer());
}

TEST(CameraDiscovery, DirectedBroadcastIsAnsweredDirectly)
{
    const VirtualCamera camera = NamedCamera();
    const RawHost host;
    host.Send(Hex(kDiscovery), "10.77.0.255");
    EXPECT_EQ(host.Receive(), ExpectedAnswer());
}

TEST(CameraDiscovery, RequesterOfAnotherSubnetIsAnsweredByBroadcastWhenItAllowsThat)
{
    const VirtualCamera camera = NamedCamera();
    Shell("ip addr add 192.168.5.1/24 dev host0");
    const RawHost sender("192.168.5.1", 40001);
    const RawHost listener("255.255.255.255", 40001);
    sender.Send(Hex(kDiscovery), "255.255.255.255");
    EXPECT_EQ(listener.Receive(), ExpectedAnswer());
}

TEST(CameraDiscovery, RequesterOfAnotherSubnetIsNotAnsweredByBroadcastWithoutTheFlag)
{
    const VirtualCamera camera = NamedCamera();
    Shell("ip addr add 192.168.5.1/24 dev host0");
    camera.Machine().Shell("ip route add 192.168.5.0/24 dev cam0");
    const RawHost sender("192.168.5.1", 40001);
    const RawHost listener("255.255.255.255", 40001);
    sender.Send(Hex("42 01 00 02 00 00 00 01"), "255.255.255.255");
    EXPECT_EQ(sender.Receive(), ExpectedAnswer());
    EXPECT_TRUE(listener.Receive(std::chrono::milliseconds(0)).empty());
}

TEST(CameraDiscovery, CommandWithAnEightByteBodyIsAnsweredToo)
{
    const VirtualCamera camera = NamedCamera();
    const RawHost host;
    const Octets answer = host.Ask("42 11 00 02 00 08 12 34 00 00 00 00 00 00 00 00");
    ASSERT_EQ(answer.size(), 256U);
    EXPECT_EQ(Octets(answer.begin(), answer.begin() + 8), Hex("00 00 00 03 00 F8 12 34"));
}

TEST(CameraDiscovery, DeviceVersionIsAtLeastThreeByDefault)
{
    const VirtualCamera camera;
    const Octets answer = RawHost().Ask(kDiscovery);
    ASSERT_EQ(answer.size(), 256U);
    EXPECT_EQ(Octets(answer.begin() + 144, answer.begin() + 176), TextBytes("3.0.0", 32));
}

TEST(CameraDiscovery, TextsOfFullWidthHaveNoEnd)
{
    const VirtualCamera camera({"--model", std::string(32, 'M'), "--serial", std::string(16, 'S')});
    const Octets answer = RawHost().Ask(kDiscovery);
    ASSERT_EQ(answer.size(), 256U);
    EXPECT_EQ(Octets(answer.begin() + 112, answer.begin() + 144), Octets(32, 'M'));
    EXPECT_EQ(Octets(answer.begin() + 224, answer.begin() + 240), Octets(16, 'S'));
}

TEST(CameraDiscovery, SeveralCamerasAnswerOneBroadcastEachWithItsOwnIdentity)
{
    const Host machine;
    machine.Connect("host0", "10.77.0.1/24", "cam0", "10.77.0.2/24");
    machine.Shell("ip addr add 10.77.0.3/24 dev cam0");
    machine.Shell("ip addr add 10.77.0.4/24 dev cam0");
    ChildProcess cameras({NQ_CAMERA_PATH, "--address", "10.77.0.2", "--count", "3", "--serial", "A099"}, {}, &machine);
    ASSERT_TRUE(cameras.WaitForOutput("ready 10.77.0.4", std::chrono::seconds(20))) << cameras.Output();
    const RawHost host;
    host.Send(Hex(kDiscovery), "255.255.255.255");
    std::array<Octets, 3> answers;
    for (int i = 0; i < 3; ++i)
    {
        const Octets answer = host.Receive();
        ASSERT_EQ(answer.size(), 256U);
        ASSERT_GE(answer[47], 2);
        ASSERT_LE(answer[47], 4);
        answers[answer[47] - 2U] = answer;
    }
    const std::array<const char*, 3> serials{"A099", "A100", "A101"};
    for (std::size_t i = 0; i < 3; ++i)
    {
        const auto last = static_cast<std::uint8_t>(i + 2);
        ASSERT_EQ(answers[i].size(), 256U);
        EXPECT_EQ(Octets(answers[i].begin() + 18, answers[i].begin() + 24), Hex("02 00 0A 4D 00") + Octets{last});
        EXPECT_EQ(Octets(answers[i].begin() + 224, answers[i].begin() + 240), TextBytes(serials[i], 16));
    }
}
