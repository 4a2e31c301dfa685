// SPDX-License-Identifier: Apache-2.0
// Addresses of the virtual camera: forced ones, its own, and those it gives itself.
#include "camera/feature_host.h"
#include "support/temporary_folder.h"

#include <gmock/gmock.h>

#include <thread>

using namespace nq::test;

namespace
{

/// FORCEIP for the camera of 10.77.0.2, whose MAC address is 02:00:0A:4D:00:02, to an address of 10.77.0.0/24.
Octets ForceTo(const std::string& address, const std::string& mac = "02 00 0A 4D 00 02")
{
    return Hex("42 11 00 04 00 38 12 34 00 00") + Hex(mac) + Octets(12) + Hex(address) + Octets(12) +
           Hex("FF FF FF 00") + Octets(12) + Hex("0A 4D 00 01");
}

/// Whether the camera says within 10 s that it stands at the address; `asker` asks it by broadcast.
bool StandsAt(const std::string& address, const std::string& asker = "10.77.0.1")
{
    const RawHost host(asker);
    const Octets wanted = Hex(address);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < end)
    {
        host.Send(Hex("42 01 00 02 00 00 00 01"), "10.77.0.255");
        host.Send(Hex("42 11 00 02 00 00 00 01"), "255.255.255.255");
        // Until it is silent: an answer from before a reset must not stand in front of the next one.
        for (Octets answer; !(answer = host.Receive(std::chrono::milliseconds(100))).empty();)
        {
            if (answer.size() == 256 && std::equal(wanted.begin(), wanted.end(), answer.begin() + 8 + 0x24))
            {
                return true;
            }
        }
    }
    return false;
}

const char* const kForced = "0A 4D 00 09";
const char* const kOfTheCommandLine = "0A 4D 00 02";

} // namespace

TEST(CameraAddress, ForcedOneIsTakenAcknowledgedAndLostAtPowerOff)
{
    const VirtualCamera camera;
    const RawHost host;
    host.Send(ForceTo(kForced), "255.255.255.255");
    EXPECT_EQ(host.Receive(), Hex("00 00 00 05 00 00 12 34"));
    EXPECT_TRUE(StandsAt(kForced));
    camera.Control(R"({"fault":"reboot:0"})");
    EXPECT_TRUE(StandsAt(kOfTheCommandLine)) << "its persistent address";
}

TEST(CameraAddress, ForcedTwiceOntoAnotherSubnetItStandsAtTheLast)
{
    // The camera itself brings the first address of that subnet, with which the kernel takes away the later ones.
    const VirtualCamera camera;
    Shell("ip addr add 10.78.0.1/24 dev host0");
    for (const char* const address : {"0A 4E 00 09", "0A 4E 00 0A", "0A 4E 00 0B"})
    {
        const RawHost host("10.78.0.1");
        bool stands = false;
        for (int tries = 0; tries < 2 && !stands; ++tries) // a camera that still moves may lose a command
        {
            host.Send(ForceTo(address), "255.255.255.255");
            stands = StandsAt(address, "10.78.0.1");
        }
        ASSERT_TRUE(stands) << address;
    }
}

TEST(CameraAddress, ForcedOneIsForOneCameraAndAnAddress)
{
    const VirtualCamera camera;
    const RawHost host;
    for (const Octets& command : {ForceTo(kForced, "02 00 0A 4D 00 03"), ForceTo("0A 4D 00 FF"), ForceTo("E0 00 00 01"),
                                  Hex("42 11 00 04 00 04 12 34 00 00 00 00")})
    {
        host.Send(command, "255.255.255.255");
    }
    EXPECT_TRUE(host.Receive(std::chrono::milliseconds(100)).empty());
    EXPECT_TRUE(StandsAt(kOfTheCommandLine));
}

TEST(CameraAddress, ForcedOneIsIgnoredUnderControl)
{
    const VirtualCamera camera;
    const FeatureHost holder;
    const RawHost host;
    host.Send(ForceTo(kForced), "255.255.255.255");
    EXPECT_TRUE(host.Receive(std::chrono::milliseconds(100)).empty());
    EXPECT_EQ(holder.Get("GevCurrentIPAddress"), 0x0A4D0002);
}

TEST(CameraAddress, PersistentOneHoldsFromTheNextStartOn)
{
    const TemporaryFolder folder;
    VirtualCamera camera({"--state", folder / "state.json"});
    {
        FeatureHost host;
        EXPECT_EQ(host.Set("GevPersistentIPAddress", 0x0A4D0007), 0U);
        EXPECT_EQ(host.Get("GevCurrentIPAddress"), 0x0A4D0002);
    }
    camera.Kill();
    camera.Start();
    EXPECT_TRUE(StandsAt("0A 4D 00 07"));
    EXPECT_THAT(camera.Process().Output(), testing::HasSubstr("ready 10.77.0.7"));
}

TEST(CameraAddress, FlagsSayWhereTheAddressComesFrom)
{
    const VirtualCamera camera;
    Shell("ip addr add 169.254.0.1/16 dev host0");
    FeatureHost host;
    EXPECT_EQ(host.Set("GevPersistentIPAddress", 0x0A4D0007), 0U);
    EXPECT_EQ(host.Set("GevCurrentIPConfigurationPersistentIP", 0), 0U);
    EXPECT_EQ(host.Set("GevCurrentIPConfigurationDHCP", 1), 0U);
    EXPECT_EQ(host.Get("GevCurrentIPConfigurationLLA"), 1);
    EXPECT_EQ(host.Read(0x0014), 6U);
    EXPECT_EQ(host.Execute("DeviceReset"), 0U);
    EXPECT_TRUE(StandsAt(kOfTheCommandLine)) << "what it is given";
    host.KeepControl();
    EXPECT_EQ(host.Read(0x0014), 6U);
    EXPECT_EQ(host.Write(0x777, 0x0014, 0), 0U);
    EXPECT_EQ(host.Read(0x0014), 4U) << "it always gives itself an address when nothing else does";
    EXPECT_EQ(host.Execute("DeviceReset"), 0U);
    // From its new subnet: a host of the old one is answered by broadcast, which no socket with an address receives.
    EXPECT_TRUE(StandsAt("A9 FE", "169.254.0.1"));
}
