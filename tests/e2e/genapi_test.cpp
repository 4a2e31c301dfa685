// SPDX-License-Identifier: Apache-2.0
// The four register descriptions in the hands of a foreign GenApi engine, that of aravis: every feature is read, and
// some are written, through the live ports of the library.
#include <gmock/gmock.h>

#if __has_include(<arv.h>)

#include "support/genapi_engine.h"

#include <filesystem>

using nq::test::Engine;
using nq::test::ExpectFeatures;
using nq::test::ExpectRegisters;
using nq::test::GenApi;
using nq::test::Shell;
using nq::test::Values;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr const char* kInterfaceId = nq::test::kGenApiInterfaceId;
constexpr const char* kDeviceId = nq::test::kGenApiDeviceId;

Values SystemFeatures()
{
    return {{"TLID", "NQGenTLGevRDMA"},
            {"TLVendorName", "Nerquil Optic"},
            {"TLModelName", "GEVRDMATL"},
            {"TLVersion", "2.5.5"},
            {"TLPath", std::filesystem::canonical(NQ_CTI_PATH)},
            {"TLType", "GigEVision"},
            {"GenTLVersionMajor", "1"},
            {"GenTLVersionMinor", "5"},
            {"GenTLSFNCVersionMajor", "1"},
            {"GenTLSFNCVersionMinor", "1"},
            {"InterfaceSelector", "0"},
            {"InterfaceID", kInterfaceId},
            {"GevInterfaceMACAddress", std::to_string(0x020000000001)},
            {"GevInterfaceDefaultIPAddress", std::to_string(0x0A4D0001)},
            {"GevInterfaceDefaultSubnetMask", std::to_string(0xFFFFFF00)},
            {"GevInterfaceDefaultGateway", std::to_string(0xFFFFFF00)}};
}

} // namespace

TEST_F(GenApi, EveryFeatureOfTheSystemReads)
{
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    Engine engine(gentl, system);
    ExpectFeatures(engine, SystemFeatures());
}

TEST_F(GenApi, EveryRegisterOfTheSystemAnswersAtItsLength)
{
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    Engine engine(gentl, system);
    Values registers;
    for (const auto& [name, value] : SystemFeatures())
    {
        if (name != "TLType" && name.rfind("GenTLSFNC", 0) != 0)
        {
            registers[name + "_Reg"] = value;
        }
    }
    registers["InterfaceUpdateList_Reg"] = "0";
    registers["NrInterfaces_Reg"] = "1";
    ExpectRegisters(engine, registers);
}

TEST_F(GenApi, TheInterfaceSelectionIsAvailableOnlyWithInterfaces)
{
    Engine engine(gentl, system);
    const std::string names[] = {"InterfaceSelector",
                                 "InterfaceID",
                                 "GevInterfaceMACAddress",
                                 "GevInterfaceDefaultIPAddress",
                                 "GevInterfaceDefaultSubnetMask",
                                 "GevInterfaceDefaultGateway"};
    for (const std::string& name : names)
    {
        EXPECT_FALSE(engine.Available(name)) << name;
    }
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    for (const std::string& name : names)
    {
        EXPECT_TRUE(engine.Available(name)) << name;
    }
}

TEST_F(GenApi, TheSelectorOfTheSystemSelectsAnInterface)
{
    Shell("ip link add cam1 address 02:00:00:00:00:02 type veth peer name pcam1");
    Shell("ip addr add 10.9.1.1/16 dev cam1");
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    Engine engine(gentl, system);
    EXPECT_EQ(engine.Maximum("InterfaceSelector"), 1);
    EXPECT_TRUE(engine.Set("InterfaceSelector", std::int64_t{1}));
    EXPECT_THAT(engine.port.writes, ElementsAre(0x50510));
    EXPECT_EQ(engine.Value("InterfaceID"), "Linux Socket:02-00-00-00-00-02");
    EXPECT_EQ(engine.Number("GevInterfaceMACAddress"), 0x020000000002);
    EXPECT_EQ(engine.Number("GevInterfaceDefaultIPAddress"), 0x0A090101);
    EXPECT_EQ(engine.Number("GevInterfaceDefaultSubnetMask"), 0xFFFF0000);
}

// Deliberate(UpdateCommandReachesNoRegister)
TEST_F(GenApi, DeliberateTheUpdateCommandOfTheSystemReachesNoRegister)
{
    Engine engine(gentl, system);
    EXPECT_TRUE(engine.Execute("InterfaceUpdateList"));
    EXPECT_THAT(engine.port.writes, IsEmpty());
    EXPECT_EQ(engine.Value("NrInterfaces_Reg"), "0");
    EXPECT_TRUE(engine.Set("InterfaceUpdateList_Reg", std::int64_t{1})) << "the register itself scans";
    EXPECT_EQ(engine.Value("NrInterfaces_Reg"), "1");
}

TEST_F(GenApi, EveryFeatureOfTheInterfaceReadsOnceItsUpdateCommandFoundTheCamera)
{
    OpenInterface();
    Engine engine(gentl, interface);
    EXPECT_FALSE(engine.Available("DeviceSelector"));
    EXPECT_TRUE(engine.Execute("DeviceUpdateList"));
    EXPECT_THAT(engine.port.writes, ElementsAre(0x60104));
    EXPECT_TRUE(engine.Available("DeviceSelector"));
    EXPECT_TRUE(engine.Available("GevInterfaceGateway"));
    EXPECT_EQ(engine.Maximum("DeviceSelector"), 0);
    EXPECT_EQ(engine.Maximum("GevInterfaceGatewaySelector"), 0);
    EXPECT_EQ(engine.Maximum("GevInterfaceSubnetSelector"), 0);
    ExpectFeatures(engine, {{"InterfaceID", kInterfaceId},
                            {"InterfaceType", "GigEVision"},
                            {"InterfaceTLVersionMajor", "1"},
                            {"InterfaceTLVersionMinor", "3"},
                            {"GevInterfaceGatewaySelector", "0"},
                            {"GevInterfaceGateway", "0"},
                            {"GevInterfaceMACAddress", std::to_string(0x020000000001)},
                            {"GevInterfaceSubnetSelector", "0"},
                            {"GevInterfaceSubnetIPAddress", "0"},
                            {"GevInterfaceSubnetMask", "0"},
                            {"DeviceSelector", "0"},
                            {"DeviceID", kDeviceId},
                            {"DeviceVendorName", "NQ Virtual"},
                            {"DeviceModelName", "NQ-GEV-Camera"},
                            {"DeviceAccessStatus", "Unknown"},
                            {"DeviceTLVersionMajor", "1"},
                            {"DeviceTLVersionMinor", "3"},
                            {"GevDeviceIPAddress", std::to_string(0x0A4D0002)},
                            {"GevDeviceSubnetMask", std::to_string(0xFFFFFF00)},
                            {"GevDeviceMACAddress", std::to_string(0x02000A4D0002)}});
}

TEST_F(GenApi, EveryRegisterOfTheInterfaceAnswersAtItsLength)
{
    OpenInterface();
    ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
    Engine engine(gentl, interface);
    ExpectRegisters(engine, {{"InterfaceID_Reg", kInterfaceId},
                             {"GevInterfaceGatewaySelector_Reg", "0"},
                             {"NrGateways_Reg", "1"},
                             {"GevInterfaceGateway_Reg", "0"},
                             {"GevInterfaceMACAddress_Reg", std::to_string(0x020000000001)},
                             {"GevInterfaceSubnetSelector_Reg", "0"},
                             {"NrSubnets_Reg", "1"},
                             {"GevInterfaceSubnetIPAddress_Reg", "0"},
                             {"GevInterfaceSubnetMask_Reg", "0"},
                             {"DeviceID_Reg", kDeviceId},
                             {"DeviceVendorName_Reg", "NQ Virtual"},
                             {"DeviceModelName_Reg", "NQ-GEV-Camera"},
                             {"DeviceUpdateList_Reg", "0"},
                             {"DeviceSelector_Reg", "0"},
                             {"DeviceAccessStatus_Reg", "0"},
                             {"NrDevices_Reg", "1"},
                             {"GevDeviceIPAddress_Reg", std::to_string(0x0A4D0002)},
                             {"GevDeviceSubnetMask_Reg", std::to_string(0xFFFFFF00)},
                             {"GevDeviceMACAddress_Reg", std::to_string(0x02000A4D0002)}});
}

TEST_F(GenApi, EveryFeatureOfTheDeviceReads)
{
    OpenDevice();
    Engine engine(gentl, device);
    EXPECT_TRUE(engine.Available("StreamSelector"));
    EXPECT_TRUE(engine.Available("StreamID"));
    EXPECT_EQ(engine.Maximum("StreamSelector"), 0);
    ExpectFeatures(engine, {{"DeviceID", kDeviceId},
                            {"DeviceVendorName", "NQ Virtual"},
                            {"DeviceModelName", "NQ-GEV-Camera"},
                            {"DeviceType", "GigEVision"},
                            {"DeviceAccessStatus", "OpenReadWrite"},
                            {"GevDeviceMACAddress", std::to_string(0x02000A4D0002)},
                            {"GevDeviceIPAddress", std::to_string(0x0A4D0002)},
                            {"GevDeviceSubnetMask", std::to_string(0xFFFFFF00)},
                            {"GevDeviceGateway", "0"},
                            {"StreamSelector", "0"},
                            {"StreamID", "Stream:0"},
                            {"XMLFile", ""},
                            {"EventSelector", "RemoteDeviceConnectionState"},
                            {"EventNotification", "On"},
                            // Served by the engine from an event's data, never by the port.
                            {"EventRemoteDeviceConnectionStateID", "(failed: 0)"},
                            {"EventRemoteDeviceConnectionStateState", "(failed: 0)"}});
}

TEST_F(GenApi, EveryRegisterOfTheDeviceAnswersAtItsLength)
{
    OpenDevice();
    Engine engine(gentl, device);
    ExpectRegisters(engine, {{"DeviceID_Reg", kDeviceId},
                             {"DeviceVendorName_Reg", "NQ Virtual"},
                             {"DeviceModelName_Reg", "NQ-GEV-Camera"},
                             {"DeviceAccessStatus_Reg", "5"},
                             {"GevDeviceMACAddress_Reg", std::to_string(0x02000A4D0002)},
                             {"GevDeviceIPAddress_Reg", std::to_string(0x0A4D0002)},
                             {"GevDeviceSubnetMask_Reg", std::to_string(0xFFFFFF00)},
                             {"GevDeviceGateway_Reg", "0"},
                             {"StreamSelector_Reg", "0"},
                             {"StreamID_Reg", "Stream:0"},
                             {"NrStreams_Reg", "1"},
                             {"UpdateXMLFile_Reg", ""},
                             {"UpdateXML_Reg", "0"},
                             {"EventNotification_Reg", "1"},
                             {"EventRemoteDeviceConnectionStateID_Reg", "(failed: 0)"},
                             {"EventRemoteDeviceConnectionStateState_Reg", "(failed: 0)"}});
    EXPECT_EQ(engine.port.reads.size(), 14U) << "the two of the event port never reach the device port";
}

TEST_F(GenApi, TheWritableFeaturesOfTheDeviceKeepWhatIsWritten)
{
    OpenDevice();
    Engine engine(gentl, device);
    EXPECT_TRUE(engine.Set("XMLFile", "/folder/description.xml"));
    EXPECT_EQ(engine.Value("XMLFile"), "/folder/description.xml");
    EXPECT_TRUE(engine.Set("EventNotification", "Off"));
    EXPECT_EQ(engine.Value("EventNotification"), "Off");
    EXPECT_TRUE(engine.Execute("UpdateXML"));
    EXPECT_THAT(engine.port.writes, ElementsAre(0x7041C, 0x70530, 0x7052C));
    EXPECT_EQ(engine.Value("UpdateXML_Reg"), "0");
    EXPECT_EQ(engine.Value("NrStreams_Reg"), "1");
}

TEST_F(GenApi, EveryFeatureOfTheDataStreamReadsOrFailsAsItsPortDoes)
{
    OpenStream();
    Acquire(5);
    Engine engine(gentl, stream);
    ExpectFeatures(engine, {{"StreamID", "0"},
                            {"StreamType", "GigEVision"},
                            {"StreamAnnouncedBufferCount", "3"},
                            {"StreamBufferHandlingMode", "OldestFirst"},
                            {"StreamAnnounceBufferMinimum", "1"},
                            // The counters are 8 bytes wide where the description says 4, and nothing serves the
                            // event registers.
                            {"FrameLoss", "(failed: -1016)"},
                            {"FramesReceived", "(failed: -1016)"},
                            {"EventSelector", "(failed: -1015)"},
                            {"EventNotification", "(failed: -1015)"}});
    EXPECT_GE(engine.Number("StreamDeliveredFrameCount_Reg"), 5);
}

TEST_F(GenApi, EveryRegisterOfTheDataStreamAnswersOrFailsAsItsPortDoes)
{
    OpenStream();
    Engine engine(gentl, stream);
    ExpectRegisters(engine, {{"EventSelector_reg", "(failed: -1015)"},
                             {"EventNotification_reg", "(failed: -1015)"},
                             {"StreamID_Reg", "0"},
                             {"StreamAnnouncedBufferCount_Reg", "3"},
                             {"StreamBufferHandlingMode_Reg", "0"},
                             {"StreamAnnounceBufferMinimum_Reg", "1"},
                             {"StreamDeliveredFrameCount_Reg", "0"},
                             {"FrameLoss_Reg", "(failed: -1016)"},
                             {"FramesReceived_Reg", "(failed: -1016)"}});
    EXPECT_TRUE(engine.Set("StreamBufferHandlingMode_Reg", std::int64_t{2}));
    EXPECT_EQ(engine.Value("StreamBufferHandlingMode"), "OldestFirst");
    EXPECT_FALSE(engine.Set("StreamAnnounceBufferMinimum_Reg", std::int64_t{2}));
}

#else

TEST(GenApi, EveryFeatureReads)
{
    GTEST_SKIP() << "the headers of aravis are not installed";
}

#endif
