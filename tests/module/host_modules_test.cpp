// SPDX-License-Identifier: Apache-2.0
// Adapters, interfaces and discovery through the library's C interface, as a consumer uses them.
#include "support/gvcp_camera.h"
#include "support/module_queries.h"
#include "support/network.h"
#include "support/producer.h"

#include <gmock/gmock.h>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr char kAdapter[] = "Linux Socket:02-00-00-00-00-01";
constexpr char kCamera[] = "Eye:02-11-22-33-44-55";

/// The library with an open system; one adapter and a camera behind it.
class HostModules : public testing::Test
{
  protected:
    void SetUp() override
    {
        Shell("ip link add cam0 address 02:00:00:00:00:01 type veth peer name eth0 netns " + host.Path());
        Shell("ip addr add 10.9.0.1/24 brd + dev cam0 && ip link set cam0 up");
        host.Shell("ip addr add 10.9.0.5/24 brd + dev eth0 && ip link set eth0 up");
        Shell("until ip link show dev cam0 | grep -q 'state UP'; do :; done");
        host.Shell("until ip link show dev eth0 | grep -q 'state UP'; do :; done");
        GvcpDiscovery discovery;
        discovery.model = "Eye";
        discovery.deviceVersion = "3.2.1";
        discovery.ipAddress = 0x0A090005;
        discovery.subnetMask = 0xFFFFFF00;
        peer.SetDiscovery(discovery);
        ASSERT_EQ(gentl.GCInitLib(), 0);
        ASSERT_EQ(gentl.TLOpen(&system), 0);
    }

    void TearDown() override { EXPECT_EQ(gentl.GCCloseLib(), 0); }

    std::uint32_t Interfaces()
    {
        std::uint32_t count = 99;
        EXPECT_EQ(gentl.TLGetNumInterfaces(system, &count), 0);
        return count;
    }

    GenTL::IF_HANDLE OpenInterface()
    {
        GenTL::IF_HANDLE handle = nullptr;
        EXPECT_EQ(gentl.TLOpenInterface(system, kAdapter, &handle), 0);
        return handle;
    }

    std::vector<std::string> Devices(GenTL::IF_HANDLE interface)
    {
        std::uint32_t count = 0;
        EXPECT_EQ(gentl.IFGetNumDevices(interface, &count), 0);
        std::vector<std::string> ids;
        for (std::uint32_t i = 0; i < count; ++i)
        {
            char id[256];
            std::size_t size = sizeof id;
            EXPECT_EQ(gentl.IFGetDeviceID(interface, i, id, &size), 0);
            ids.emplace_back(id);
        }
        return ids;
    }

    /// The description that the URL of a port names, read through the port.
    std::string Description(GenTL::PORT_HANDLE port)
    {
        char url[256];
        std::size_t size = sizeof url;
        EXPECT_EQ(gentl.GCGetPortURL(port, url, &size), 0);
        char file[128];
        unsigned long address = 0;
        unsigned long length = 0;
        EXPECT_EQ(std::sscanf(url, "local:%127[^;];%lx;%lx", file, &address, &length), 3) << url;
        EXPECT_EQ(address, 0x10000u);
        std::string text(length, '\0');
        std::size_t read = length;
        EXPECT_EQ(gentl.GCReadPort(port, address, text.data(), &read), 0);
        EXPECT_EQ(read, length);
        return text;
    }

    Host host;
    GvcpCamera peer{&host};
    Producer gentl;
    GenTL::TL_HANDLE system = nullptr;
};

} // namespace

TEST_F(HostModules, TheNumberOfInterfacesIsZeroRightAfterTheOpen)
{
    EXPECT_EQ(Interfaces(), 0u);
    GenTL::bool8_t changed = false;
    EXPECT_EQ(gentl.TLUpdateInterfaceList(system, &changed, 100), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(Interfaces(), 1u);
    EXPECT_EQ(gentl.TLUpdateInterfaceList(system, &changed, 100), 0);
    EXPECT_FALSE(changed);
    EXPECT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
}

TEST_F(HostModules, AnInterfaceIsDescribedByTheListAndByItsModule)
{
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    char id[256];
    std::size_t size = sizeof id;
    ASSERT_EQ(gentl.TLGetInterfaceID(system, 0, id, &size), 0);
    EXPECT_STREQ(id, kAdapter);
    EXPECT_EQ(gentl.TLGetInterfaceID(system, 1, id, &size), -1017);
    const auto listed = [&](int command) {
        return Ask([&](int* type, void* buffer, unsigned long* space) {
            return gentl.TLGetInterfaceInfo(system, kAdapter, command, type, buffer, space);
        });
    };
    EXPECT_EQ(listed(1).text, "cam0:10.9.0.1");
    EXPECT_EQ(listed(3).result, -1014);
    const GenTL::IF_HANDLE interface = OpenInterface();
    EXPECT_EQ(listed(3).result, -1003) << "the open module answers";
    const Info own = Ask([&](int* type, void* buffer, unsigned long* space) {
        return gentl.IFGetInfo(interface, 0xA002, type, buffer, space);
    });
    EXPECT_EQ(own.text, "255.255.255.0");
}

TEST_F(HostModules, PortsServeTheDescriptionTheirUrlNames)
{
    const std::string systemText = Description(system);
    EXPECT_THAT(systemText, testing::StartsWith("<?xml"));
    EXPECT_THAT(systemText, testing::HasSubstr("ModelName=\"NQGenTLRDMAGEV\""));
    EXPECT_THAT(systemText, testing::EndsWith("</RegisterDescription>\n"));
    const std::string interfaceText = Description(OpenInterface());
    EXPECT_THAT(interfaceText, testing::HasSubstr("ToolTip=\"IF RegisterMap\""));
    EXPECT_THAT(interfaceText, testing::EndsWith("</RegisterDescription>\n"));
}

TEST_F(HostModules, TheParentOfAnInterfaceIsTheSystem)
{
    GenTL::TL_HANDLE parent = nullptr;
    EXPECT_EQ(gentl.IFGetParentTL(OpenInterface(), &parent), 0);
    EXPECT_EQ(parent, system);
}

TEST_F(HostModules, ACameraIsFoundAndDescribed)
{
    const GenTL::IF_HANDLE interface = OpenInterface();
    EXPECT_THAT(Devices(interface), IsEmpty());
    GenTL::bool8_t changed = false;
    EXPECT_EQ(gentl.IFUpdateDeviceList(interface, &changed, 1000), 0);
    EXPECT_TRUE(changed);
    EXPECT_THAT(Devices(interface), ElementsAre(kCamera));
    const auto info = [&](int command) {
        return Ask([&](int* type, void* buffer, unsigned long* space) {
            return gentl.IFGetDeviceInfo(interface, kCamera, command, type, buffer, space);
        });
    };
    EXPECT_EQ(info(2).text, "Eye");
    // The answer may come too late on a busy machine, and then the next question gets it.
    const auto status = [&](unsigned long expected) {
        unsigned long number = info(5).number;
        for (int attempt = 0; attempt < 20 && number != expected; ++attempt)
        {
            EXPECT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 1000), 0);
            number = info(5).number;
        }
        return number;
    };
    EXPECT_EQ(status(1), 1u) << "nobody controls it";
    EXPECT_EQ(info(0xB001).number, 0x0A090005u);
    peer.SetRegister(0x0A00, 2);
    EXPECT_EQ(status(2), 2u);
}

TEST_F(HostModules, ADeviceThatVanishesWhileOpenStaysUsable)
{
    const GenTL::IF_HANDLE interface = OpenInterface();
    GenTL::DEV_HANDLE device = nullptr;
    ASSERT_EQ(gentl.IFOpenDevice(interface, kCamera, GenTL::DEVICE_ACCESS_READONLY, &device), 0)
        << "a known id works before any update";
    peer.SetDiscovery({}); // an older version: for the consumer it does not exist
    GenTL::bool8_t changed = false;
    EXPECT_EQ(gentl.IFUpdateDeviceList(interface, &changed, 1000), 0);
    EXPECT_TRUE(changed);
    EXPECT_THAT(Devices(interface), IsEmpty());
    const Info model = Ask([&](int* type, void* buffer, unsigned long* space) {
        return gentl.IFGetDeviceInfo(interface, kCamera, 2, type, buffer, space);
    });
    EXPECT_EQ(model.text, "Eye") << "through the module";
    GenTL::DEV_HANDLE again = nullptr;
    EXPECT_EQ(gentl.IFOpenDevice(interface, kCamera, GenTL::DEVICE_ACCESS_READONLY, &again), -1004);
    EXPECT_EQ(gentl.DevClose(device), 0);
}

TEST_F(HostModules, AnInterfaceWhoseAdapterVanishesStaysUsable)
{
    const GenTL::IF_HANDLE interface = OpenInterface();
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    GenTL::DEV_HANDLE device = nullptr;
    ASSERT_EQ(gentl.IFOpenDevice(interface, kCamera, GenTL::DEVICE_ACCESS_READONLY, &device), 0);
    Shell("ip link del cam0");
    GenTL::bool8_t changed = false;
    EXPECT_EQ(gentl.TLUpdateInterfaceList(system, &changed, 100), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(Interfaces(), 0u);
    char id[256];
    std::size_t size = sizeof id;
    EXPECT_EQ(gentl.TLGetInterfaceID(system, 0, id, &size), -1017) << "the list no longer reaches it";
    const auto info = [&](int command) {
        return Ask([&](int* type, void* buffer, unsigned long* space) {
            return gentl.TLGetInterfaceInfo(system, kAdapter, command, type, buffer, space);
        });
    };
    EXPECT_EQ(info(1).text, "cam0:10.9.0.1") << "through the module";
    EXPECT_EQ(info(0xA001).text, "");
    GenTL::IF_HANDLE again = nullptr;
    EXPECT_EQ(gentl.TLOpenInterface(system, kAdapter, &again), -1004);
    changed = false;
    EXPECT_EQ(gentl.IFUpdateDeviceList(interface, &changed, 1000), 0) << "a scan that cannot be made";
    EXPECT_TRUE(changed);
    EXPECT_THAT(Devices(interface), IsEmpty());
    const Info model = Ask([&](int* type, void* buffer, unsigned long* space) {
        return gentl.IFGetDeviceInfo(interface, kCamera, 2, type, buffer, space);
    });
    EXPECT_EQ(model.text, "Eye") << "the open device answers";
    EXPECT_EQ(gentl.IFClose(interface), 0);
    EXPECT_EQ(gentl.TLOpenInterface(system, kAdapter, &again), -1007);
}

TEST_F(HostModules, ClosingAnInterfaceEndsItsHandle)
{
    const GenTL::IF_HANDLE interface = OpenInterface();
    EXPECT_EQ(gentl.IFClose(interface), 0);
    std::uint32_t count = 0;
    EXPECT_EQ(gentl.IFGetNumDevices(interface, &count), -1006);
    EXPECT_EQ(gentl.IFClose(interface), -1006);
}

TEST_F(HostModules, ClosingTheSystemClosesTheInterfaceAndItsDevice)
{
    const GenTL::IF_HANDLE interface = OpenInterface();
    GenTL::DEV_HANDLE device = nullptr;
    ASSERT_EQ(gentl.IFOpenDevice(interface, kCamera, GenTL::DEVICE_ACCESS_READONLY, &device), 0);
    EXPECT_EQ(gentl.TLClose(system), 0);
    std::uint32_t count = 0;
    EXPECT_EQ(gentl.IFGetNumDevices(interface, &count), -1006);
    EXPECT_EQ(gentl.DevGetNumDataStreams(device, &count), -1006);
}
