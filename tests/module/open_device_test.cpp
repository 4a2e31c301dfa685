// SPDX-License-Identifier: Apache-2.0
// Opening and closing devices through the exported interface, against a camera behind a virtual cable.
#include "nq_gev_gentl.h"
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/producer.h"

#include <chrono>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using nq::test::GvcpCamera;
using nq::test::GvcpDiscovery;
using nq::test::Host;
using nq::test::Producer;
using testing::ElementsAre;

namespace
{

constexpr int kReadOnly = 2;
constexpr int kControl = 3;
constexpr int kExclusive = 4;
const std::string kId = "Model:02-0a-0b-01-02-03";

/// A camera of version 3.0.0 at 10.9.0.2/24.
GvcpDiscovery Discovery()
{
    return {.specMinor = 0,
            .macHigh = 0x020A,
            .macLow = 0x0B010203,
            .ipConfigOptions = 0,
            .ipConfigCurrent = 0,
            .ipAddress = 0x0A090002,
            .subnetMask = 0xFFFFFF00,
            .manufacturer = "Vendor",
            .deviceVersion = "3.0.0",
            .manufacturerInfo = "",
            .serialNumber = "SN-7",
            .userDefinedName = ""};
}

class OpenDevice : public testing::Test
{
  protected:
    OpenDevice()
    {
        far.Connect("here", "10.9.0.1/24", "there", "10.9.0.2/24");
        nq::test::Shell("ip route add 255.255.255.255/32 dev here");
        camera = std::make_unique<GvcpCamera>(&far);
        camera->SetDiscovery(Discovery());
        camera->SetRegister(0x0938, 60000);
        camera->SetRegister(0x0904, 1);
        camera->SetRegister(0x0900, 1);
        EXPECT_EQ(producer.GCInitLib(), 0);
        EXPECT_EQ(producer.TLOpen(&system), 0);
        EXPECT_EQ(producer.TLUpdateInterfaceList(system, nullptr, 0), 0);
        char name[64] = {};
        std::size_t size = sizeof name;
        EXPECT_EQ(producer.TLGetInterfaceID(system, 0, name, &size), 0);
        EXPECT_EQ(producer.TLOpenInterface(system, name, &interface), 0);
    }
    ~OpenDevice() override
    {
        camera->SetSilent(false);
        producer.GCCloseLib();
    }

    void Scan() { EXPECT_EQ(producer.IFUpdateDeviceList(interface, nullptr, 200), 0); }

    int Open(int flags) { return producer.IFOpenDevice(interface, kId.c_str(), flags, &device); }

    Host far;
    std::unique_ptr<GvcpCamera> camera;
    Producer producer;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
};

TEST_F(OpenDevice, AnIdNotYetInTheListIsScannedForOnce)
{
    EXPECT_EQ(Open(kControl), 0);
    EXPECT_NE(device, nullptr);
    EXPECT_EQ(camera->Count("discovery"), 1U);
}

TEST_F(OpenDevice, TheProbeComesBeforeTheOpen)
{
    Scan();
    camera->Forget();
    ASSERT_EQ(Open(kControl), 0);
    EXPECT_THAT(camera->Accesses(),
                ElementsAre("read 0x0A00", "write 0x0A00 = 0x00000002", "read 0x0938", "read 0x0934", "read 0x0D3C",
                            "read 0x0904", "read 0x0900", "write 0x0B10 = 0x0A090001", "write 0x0B00 = 0x00000D80",
                            "read 0x0B1C"));
    camera->Forget();
    ASSERT_EQ(producer.DevClose(device), 0);
    EXPECT_THAT(camera->Accesses(),
                ElementsAre("write 0x0B00 = 0x00000000", "write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
    EXPECT_EQ(producer.DevClose(device), -1006);
}

TEST_F(OpenDevice, FlagsOneOrAThousandOnAKnownDeviceAreNotImplemented)
{
    Scan();
    EXPECT_EQ(Open(1), -1003);
    EXPECT_EQ(Open(1000), -1003);
    EXPECT_EQ(Open(0), -1003);
    EXPECT_EQ(Open(-1), -1003);
    EXPECT_EQ(device, nullptr);
}

TEST_F(OpenDevice, FlagsFiveToNineHundredNinetyNineAreInvalidParameters)
{
    EXPECT_EQ(Open(5), -1009);
    EXPECT_EQ(Open(999), -1009);
    EXPECT_EQ(camera->Count("discovery"), 0U);
}

TEST_F(OpenDevice, AnUnknownIdWithFlagsOneIsFirstScannedForTwoSecondsAndThenInvalid)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(producer.IFOpenDevice(interface, "no such camera", 1, &device), -1007);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1990));
    EXPECT_EQ(camera->Count("discovery"), 1U);
}

TEST_F(OpenDevice, NullArgumentsAreInvalidParameters)
{
    EXPECT_EQ(producer.IFOpenDevice(interface, nullptr, kControl, &device), -1009);
    EXPECT_EQ(producer.IFOpenDevice(interface, kId.c_str(), kControl, nullptr), -1009);
}

TEST_F(OpenDevice, ACameraControlledByAnotherIsOpenedForReadingAndRefusedForControl)
{
    Scan();
    camera->SetRegister(0x0A00, 2);
    EXPECT_EQ(Open(kControl), -1005);
    EXPECT_EQ(Open(kExclusive), -1005);
    ASSERT_EQ(Open(kReadOnly), 0);
}

TEST_F(OpenDevice, ACameraThatDidNotAnswerTheProbeIsOpenedForReadingAndRefusedForExclusiveAccess)
{
    Scan();
    camera->SetSilent(true);
    EXPECT_EQ(Open(kExclusive), -1005);
    EXPECT_EQ(Open(kControl), -1005);
    EXPECT_EQ(Open(kReadOnly), 0) << "what the camera does not answer is not looked at";
    EXPECT_NE(device, nullptr);
}

TEST_F(OpenDevice, ACameraUnderExclusiveAccessIsRefusedInEveryMode)
{
    Scan();
    camera->SetRegister(0x0A00, 1);
    EXPECT_EQ(Open(kReadOnly), -1005);
    EXPECT_EQ(Open(kControl), -1005);
    EXPECT_EQ(Open(kExclusive), -1005);
}

TEST_F(OpenDevice, OpeningTwiceIsInUse)
{
    ASSERT_EQ(Open(kControl), 0);
    void* second = nullptr;
    EXPECT_EQ(producer.IFOpenDevice(interface, kId.c_str(), kReadOnly, &second), -1004);
    EXPECT_EQ(second, nullptr);
    ASSERT_EQ(producer.DevClose(device), 0);
    camera->SetRegister(0x0A00, 0);
    EXPECT_EQ(Open(kControl), 0) << "and free again after a close";
}

TEST_F(OpenDevice, TheHandlesOfAClosedDeviceAreGone)
{
    ASSERT_EQ(Open(kControl), 0);
    void* port = nullptr;
    ASSERT_EQ(producer.DevGetPort(device, &port), 0);
    unsigned int value = 0;
    std::size_t size = sizeof value;
    EXPECT_EQ(producer.GCReadPort(port, 0x0938, &value, &size), 0);
    EXPECT_EQ(value, 0x60EA0000U) << "the port delivers network order";
    void* parent = nullptr;
    ASSERT_EQ(producer.DevGetParentIF(device, &parent), 0);
    EXPECT_EQ(parent, interface);
    ASSERT_EQ(producer.DevClose(device), 0);
    EXPECT_EQ(producer.GCReadPort(port, 0x0938, &value, &size), -1006);
    EXPECT_EQ(producer.DevGetPort(device, &port), -1006);
}

TEST_F(OpenDevice, ClosingTheInterfaceClosesItsDevices)
{
    ASSERT_EQ(Open(kControl), 0);
    camera->Forget();
    ASSERT_EQ(producer.IFClose(interface), 0);
    EXPECT_THAT(camera->Accesses(),
                ElementsAre("write 0x0B00 = 0x00000000", "write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
    unsigned int count = 0;
    EXPECT_EQ(producer.DevGetNumDataStreams(device, &count), -1006);
}

TEST_F(OpenDevice, ClosingTheLibraryClosesItsDevices)
{
    ASSERT_EQ(Open(kControl), 0);
    camera->Forget();
    ASSERT_EQ(producer.GCCloseLib(), 0);
    EXPECT_THAT(camera->Accesses(),
                ElementsAre("write 0x0B00 = 0x00000000", "write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(OpenDevice, TheCamerasOwnUrlsComeThroughItsPort)
{
    camera->SetMemory(0x0200, "Local:camera.zip;C0000;1234");
    ASSERT_EQ(Open(kControl), 0);
    void* port = nullptr;
    ASSERT_EQ(producer.DevGetPort(device, &port), 0);
    std::uint32_t count = 0;
    ASSERT_EQ(producer.GCGetNumPortURLs(port, &count), 0);
    EXPECT_EQ(count, 2U);
    char text[100];
    std::size_t size = sizeof text;
    ASSERT_EQ(producer.GCGetPortURL(port, text, &size), 0);
    EXPECT_EQ(std::string(text, size), std::string("Local:camera.zip;C0000;1234\0\0\0", 30));
}

TEST_F(OpenDevice, AnEventOfTheCameraReachesTheConsumer)
{
    ASSERT_EQ(Open(kControl), 0);
    void* event = nullptr;
    ASSERT_EQ(producer.GCRegisterEvent(device, 4, &event), 0);
    EXPECT_EQ(producer.GCRegisterEvent(device, 1, &event), -1003);
    camera->Send({0x42, 0x01, 0x00, 0xC0, 0x00, 0x10, 0x00, 0x07, 0x00, 0x00, 0x90, 0x01,
                  0xFF, 0xFF, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88},
                 "10.9.0.1", 3456);
    std::vector<unsigned char> record(546);
    std::size_t size = record.size();
    ASSERT_EQ(producer.EventGetData(event, record.data(), &size, 5000), 0);
    EXPECT_EQ(record[0], 0x01);
    EXPECT_EQ(record[1], 0x90);
    EXPECT_EQ(record[4], 16);
}

} // namespace
