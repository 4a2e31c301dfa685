// SPDX-License-Identifier: Apache-2.0
// The standard's register descriptions in the hands of a foreign GenApi engine, that of aravis, with its cache on:
// every feature is read and compared with the C interface, every command executed.
#include <gmock/gmock.h>

#if __has_include(<arv.h>)

#include "support/genapi_engine.h"
#include "support/standard_answers.h"

#include <filesystem>

using nq::test::AskUntil;
using nq::test::Engine;
using nq::test::ExpectFeatures;
using nq::test::ExpectRegisters;
using nq::test::GenApi;
using nq::test::kGenApiDeviceId;
using nq::test::kGenApiInterfaceId;
using nq::test::Shell;
using nq::test::Values;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// An engine that keeps what it may, on a port that shows what a read leaves alone.
class CachingEngine : public Engine
{
  public:
    CachingEngine(const nq::test::Producer& gentl, void* handle)
        : Engine(gentl, handle, ARV_REGISTER_CACHE_POLICY_ENABLE)
    {
        port.fill = 0xA5;
    }
};

class StandardGenApi : public GenApi
{
  protected:
    template <typename Value>
    Value SystemInfo(int command)
    {
        return Number<Value>([&](int* type, void* buffer, std::size_t* size) {
            return gentl.TLGetInfo(system, command, type, buffer, size);
        });
    }

    std::string StreamInfo(int command)
    {
        return std::to_string(Number<std::uint64_t>([&](int* type, void* buffer, std::size_t* size) {
            return gentl.DSGetInfo(stream, command, type, buffer, size);
        }));
    }

    int DeviceStatus()
    {
        return Number<int>([&](int* type, void* buffer, std::size_t* size) {
            return gentl.IFGetDeviceInfo(interface, kGenApiDeviceId, GenTL::DEVICE_INFO_ACCESS_STATUS, type, buffer,
                                         size);
        });
    }

    void OpenDeviceFor(int access)
    {
        OpenInterface();
        ASSERT_EQ(AskUntil(0, [&] { return gentl.IFOpenDevice(interface, kGenApiDeviceId, access, &device); }), 0);
    }

    void AddInterface() const
    {
        Shell("ip link add cam1 address 02:00:00:00:00:02 type veth peer name pcam1");
        Shell("ip addr add 10.9.1.1/16 dev cam1 && ip link set cam1 up && ip link set pcam1 up");
    }

    const nq::test::StandardAnswers asked;

  private:
    template <typename Value, typename Query>
    Value Number(Query query)
    {
        Value value{};
        int type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(query(&type, &value, &size), 0);
        return value;
    }
};

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
            {"InterfaceID", kGenApiInterfaceId},
            {"GevInterfaceMACAddress", std::to_string(0x020000000001)},
            {"GevInterfaceDefaultIPAddress", std::to_string(0x0A4D0001)},
            {"GevInterfaceDefaultSubnetMask", std::to_string(0xFFFFFF00)},
            {"GevInterfaceDefaultGateway", std::to_string(0x0A4D00FE)}};
}

} // namespace

TEST_F(StandardGenApi, EveryFeatureOfTheSystemReads)
{
    Shell("ip route add default via 10.77.0.254 dev host0");
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    CachingEngine engine(gentl, system);
    ExpectFeatures(engine, SystemFeatures());
    const std::size_t reads = engine.port.reads.size();
    EXPECT_EQ(engine.Value("TLID"), "NQGenTLGevRDMA");
    EXPECT_EQ(engine.port.reads.size(), reads) << "the cache is on";
    EXPECT_EQ(engine.Value("GenTLVersionMinor"),
              std::to_string(SystemInfo<std::uint32_t>(GenTL::TL_INFO_GENTL_VER_MINOR)));
}

TEST_F(StandardGenApi, EveryRegisterOfTheSystemAnswersAtItsLength)
{
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    CachingEngine engine(gentl, system);
    Values registers;
    for (const auto& [name, value] : SystemFeatures())
    {
        if (name != "TLType" && !name.starts_with("GenTLSFNC"))
        {
            registers[name + "_Reg"] = value;
        }
    }
    registers["GevInterfaceDefaultGateway_Reg"] = "0"; // no default route here
    registers["InterfaceUpdateList_Reg"] = "0";
    registers["NrInterfaces_Reg"] = "1";
    ExpectRegisters(engine, registers);
}

TEST_F(StandardGenApi, TheUpdateCommandOfTheSystemScansAndTheSelectionFollows)
{
    CachingEngine engine(gentl, system);
    EXPECT_THAT(engine.Names("Command"), ElementsAre("InterfaceUpdateList"));
    EXPECT_FALSE(engine.Available("InterfaceSelector"));
    ASSERT_TRUE(engine.Execute("InterfaceUpdateList"));
    EXPECT_THAT(engine.port.writes, ElementsAre(0x5050C));
    EXPECT_TRUE(engine.Available("InterfaceSelector"));
    EXPECT_EQ(engine.Maximum("InterfaceSelector"), 0);
    EXPECT_EQ(engine.Value("InterfaceID"), kGenApiInterfaceId);

    AddInterface();
    ASSERT_TRUE(engine.Execute("InterfaceUpdateList"));
    EXPECT_EQ(engine.Maximum("InterfaceSelector"), 1);
    ASSERT_TRUE(engine.Set("InterfaceSelector", std::int64_t{1}));
    EXPECT_EQ(engine.Value("InterfaceID"), "Linux Socket:02-00-00-00-00-02");
    EXPECT_EQ(engine.Number("GevInterfaceMACAddress"), 0x020000000002);
    EXPECT_EQ(engine.Number("GevInterfaceDefaultIPAddress"), 0x0A090101);
    EXPECT_EQ(engine.Number("GevInterfaceDefaultSubnetMask"), 0xFFFF0000);

    Shell("ip link del cam1");
    ASSERT_TRUE(engine.Execute("InterfaceUpdateList"));
    EXPECT_EQ(engine.Maximum("InterfaceSelector"), 0);
    EXPECT_EQ(engine.Value("InterfaceSelector"), "0");
    EXPECT_EQ(engine.Value("InterfaceID"), kGenApiInterfaceId);
}

TEST_F(StandardGenApi, AnEngineWithACacheSeesWhatTheCInterfaceAndAnotherEngineChange)
{
    AddInterface();
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    CachingEngine engine(gentl, system);
    CachingEngine other(gentl, system);
    EXPECT_EQ(engine.Value("InterfaceID"), kGenApiInterfaceId);
    ASSERT_TRUE(other.Set("InterfaceSelector", std::int64_t{1}));
    EXPECT_EQ(engine.Value("InterfaceID"), "Linux Socket:02-00-00-00-00-02");
    EXPECT_EQ(engine.Number("GevInterfaceDefaultIPAddress"), 0x0A090101);
    Shell("ip link del cam1");
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    EXPECT_EQ(engine.Value("InterfaceSelector"), "0");
    EXPECT_EQ(engine.Value("InterfaceID"), kGenApiInterfaceId);
}

TEST_F(StandardGenApi, ASelectionThatIsNotThereIsNotAvailable)
{
    CachingEngine engine(gentl, system);
    EXPECT_EQ(engine.Value("InterfaceID_Reg"), "(failed: -1014)");
    EXPECT_EQ(engine.Value("GevInterfaceMACAddress_Reg"), "(failed: -1014)");
    ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
    EXPECT_FALSE(engine.Set("InterfaceSelector_Reg", std::int64_t{1}));
    EXPECT_EQ(engine.port.lastResult, -1019);
    ASSERT_EQ(gentl.TLOpenInterface(system, kGenApiInterfaceId, &interface), 0);
    CachingEngine devices(gentl, interface);
    EXPECT_EQ(devices.Value("DeviceID_Reg"), "(failed: -1014)");
    EXPECT_EQ(devices.Value("DeviceAccessStatus_Reg"), "(failed: -1014)");
    for (const char* selector :
         {"DeviceSelector_Reg", "GevInterfaceGatewaySelector_Reg", "GevInterfaceSubnetSelector_Reg"})
    {
        EXPECT_FALSE(devices.Set(selector, std::int64_t{1})) << selector;
        EXPECT_EQ(devices.port.lastResult, -1019) << selector;
    }
    EXPECT_TRUE(devices.Set("GevInterfaceSubnetSelector_Reg", std::int64_t{0}));
}

TEST_F(StandardGenApi, EveryFeatureOfTheInterfaceReadsOnceItsUpdateCommandFoundTheCamera)
{
    Shell("ip route add default via 10.77.0.254 dev host0");
    OpenInterface();
    CachingEngine engine(gentl, interface);
    EXPECT_FALSE(engine.Available("DeviceSelector"));
    EXPECT_THAT(engine.Names("Command"), ElementsAre("DeviceUpdateList"));
    EXPECT_TRUE(engine.Execute("DeviceUpdateList"));
    EXPECT_THAT(engine.port.writes, ElementsAre(0x60104));
    EXPECT_EQ(engine.Value("DeviceUpdateList_Reg"), "0");
    EXPECT_TRUE(engine.Available("DeviceSelector"));
    EXPECT_TRUE(engine.Available("GevInterfaceGateway"));
    EXPECT_EQ(engine.Maximum("DeviceSelector"), 0);
    EXPECT_EQ(engine.Maximum("GevInterfaceGatewaySelector"), 0);
    EXPECT_EQ(engine.Maximum("GevInterfaceSubnetSelector"), 0);
    ExpectFeatures(engine, {{"InterfaceID", kGenApiInterfaceId},
                            {"InterfaceType", "GigEVision"},
                            {"InterfaceTLVersionMajor", "2"},
                            {"InterfaceTLVersionMinor", "0"},
                            {"GevInterfaceGatewaySelector", "0"},
                            {"GevInterfaceGateway", std::to_string(0x0A4D00FE)},
                            {"GevInterfaceMACAddress", std::to_string(0x020000000001)},
                            {"GevInterfaceSubnetSelector", "0"},
                            {"GevInterfaceSubnetIPAddress", std::to_string(0x0A4D0001)},
                            {"GevInterfaceSubnetMask", std::to_string(0xFFFFFF00)},
                            {"DeviceSelector", "0"},
                            {"DeviceID", kGenApiDeviceId},
                            {"DeviceVendorName", "NQ Virtual"},
                            {"DeviceModelName", "NQ-GEV-Camera"},
                            {"DeviceAccessStatus", "ReadWrite"},
                            {"DeviceTLVersionMajor", "2"},
                            {"DeviceTLVersionMinor", "0"},
                            {"GevDeviceIPAddress", std::to_string(0x0A4D0002)},
                            {"GevDeviceSubnetMask", std::to_string(0xFFFFFF00)},
                            {"GevDeviceMACAddress", std::to_string(0x02000A4D0002)}});
}

TEST_F(StandardGenApi, AnInterfaceWithoutARouteHasNoGateway)
{
    OpenInterface();
    CachingEngine engine(gentl, interface);
    EXPECT_EQ(engine.Value("NrGateways_Reg"), "0");
    EXPECT_FALSE(engine.Available("GevInterfaceGateway"));
    EXPECT_FALSE(engine.Available("GevInterfaceGatewaySelector"));
    EXPECT_EQ(engine.Value("GevInterfaceGateway_Reg"), "0");
    Shell("ip route add default via 10.77.0.254 dev host0 metric 5");
    Shell("ip route add default via 10.77.0.253 dev host0 metric 4");
    EXPECT_TRUE(engine.Available("GevInterfaceGateway"));
    EXPECT_EQ(engine.Number("GevInterfaceGateway"), 0x0A4D00FD) << "the one that the kernel takes";
}

TEST_F(StandardGenApi, TheAccessStatusOfTheInterfaceIsThatOfTheCInterface)
{
    OpenInterface();
    ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
    CachingEngine engine(gentl, interface);
    EXPECT_EQ(engine.Value("DeviceAccessStatus"), "ReadWrite");
    EXPECT_EQ(DeviceStatus(), 1);
    const auto open = [this] {
        return gentl.IFOpenDevice(interface, kGenApiDeviceId, GenTL::DEVICE_ACCESS_CONTROL, &device);
    };
    ASSERT_EQ(AskUntil(0, open), 0);
    EXPECT_EQ(engine.Value("DeviceAccessStatus"), "OpenReadWrite");
    EXPECT_EQ(DeviceStatus(), 5);
    ASSERT_EQ(gentl.DevClose(device), 0);
    EXPECT_EQ(engine.Value("DeviceAccessStatus"), "ReadWrite");
}

TEST_F(StandardGenApi, ACameraThatIsGoneIsSeenAfterAnUpdateByTheCInterface)
{
    OpenInterface();
    ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
    CachingEngine engine(gentl, interface);
    EXPECT_EQ(engine.Value("DeviceID"), kGenApiDeviceId);
    EXPECT_EQ(engine.Value("GevDeviceIPAddress"), std::to_string(0x0A4D0002));
    Shell("ip link set dev host0 down");
    ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 200), 0);
    EXPECT_FALSE(engine.Available("DeviceID"));
    EXPECT_EQ(engine.Value("DeviceID_Reg"), "(failed: -1014)");
    EXPECT_EQ(engine.Value("GevDeviceIPAddress_Reg"), "(failed: -1014)");
}

TEST_F(StandardGenApi, EveryRegisterOfTheInterfaceAnswersAtItsLength)
{
    OpenInterface();
    ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
    CachingEngine engine(gentl, interface);
    ExpectRegisters(engine, {{"InterfaceID_Reg", kGenApiInterfaceId},
                             {"GevInterfaceGatewaySelector_Reg", "0"},
                             {"NrGateways_Reg", "0"},
                             {"GevInterfaceGateway_Reg", "0"},
                             {"GevInterfaceMACAddress_Reg", std::to_string(0x020000000001)},
                             {"GevInterfaceSubnetSelector_Reg", "0"},
                             {"NrSubnets_Reg", "1"},
                             {"GevInterfaceSubnetIPAddress_Reg", std::to_string(0x0A4D0001)},
                             {"GevInterfaceSubnetMask_Reg", std::to_string(0xFFFFFF00)},
                             {"DeviceID_Reg", kGenApiDeviceId},
                             {"DeviceVendorName_Reg", "NQ Virtual"},
                             {"DeviceModelName_Reg", "NQ-GEV-Camera"},
                             {"DeviceUpdateList_Reg", "0"},
                             {"DeviceSelector_Reg", "0"},
                             {"DeviceAccessStatus_Reg", "1"},
                             {"DeviceTLVersionMajor_Reg", "2"},
                             {"DeviceTLVersionMinor_Reg", "0"},
                             {"NrDevices_Reg", "1"},
                             {"GevDeviceIPAddress_Reg", std::to_string(0x0A4D0002)},
                             {"GevDeviceSubnetMask_Reg", std::to_string(0xFFFFFF00)},
                             {"GevDeviceMACAddress_Reg", std::to_string(0x02000A4D0002)}});
}

TEST_F(StandardGenApi, EveryFeatureOfTheDeviceReads)
{
    OpenDevice();
    CachingEngine engine(gentl, device);
    EXPECT_TRUE(engine.Available("StreamSelector"));
    EXPECT_TRUE(engine.Available("StreamID"));
    EXPECT_EQ(engine.Maximum("StreamSelector"), 0);
    EXPECT_THAT(engine.Names("Command"), IsEmpty());
    ExpectFeatures(engine, {{"DeviceID", kGenApiDeviceId},
                            {"DeviceVendorName", "NQ Virtual"},
                            {"DeviceModelName", "NQ-GEV-Camera"},
                            {"DeviceType", "GigEVision"},
                            {"DeviceAccessStatus", "OpenReadWrite"},
                            {"DeviceEndianessMechanism", "Legacy"},
                            {"GevDeviceMACAddress", std::to_string(0x02000A4D0002)},
                            {"GevDeviceIPAddress", std::to_string(0x0A4D0002)},
                            {"GevDeviceSubnetMask", std::to_string(0xFFFFFF00)},
                            {"GevDeviceGateway", "0"},
                            {"StreamSelector", "0"},
                            {"StreamID", "Stream:0"}});
    ExpectRegisters(engine, {{"DeviceID_Reg", kGenApiDeviceId},
                             {"DeviceVendorName_Reg", "NQ Virtual"},
                             {"DeviceModelName_Reg", "NQ-GEV-Camera"},
                             {"DeviceAccessStatus_Reg", "5"},
                             {"DeviceEndianessMechanism_Reg", "0"},
                             {"GevDeviceMACAddress_Reg", std::to_string(0x02000A4D0002)},
                             {"GevDeviceIPAddress_Reg", std::to_string(0x0A4D0002)},
                             {"GevDeviceSubnetMask_Reg", std::to_string(0xFFFFFF00)},
                             {"GevDeviceGateway_Reg", "0"},
                             {"StreamSelector_Reg", "0"},
                             {"StreamID_Reg", "Stream:0"},
                             {"NrStreams_Reg", "1"}});
}

TEST_F(StandardGenApi, TheDeviceKeepsItsEndianessMechanism)
{
    OpenDevice();
    CachingEngine engine(gentl, device);
    ASSERT_TRUE(engine.Set("DeviceEndianessMechanism", "Standard"));
    EXPECT_EQ(engine.Value("DeviceEndianessMechanism"), "Standard");
    EXPECT_EQ(CachingEngine(gentl, device).Value("DeviceEndianessMechanism_Reg"), "1");
    EXPECT_FALSE(engine.Set("DeviceEndianessMechanism_Reg", std::int64_t{2}));
    EXPECT_EQ(engine.port.lastResult, -1019);
    EXPECT_FALSE(engine.Set("StreamSelector_Reg", std::int64_t{1})) << "there is one stream";
    EXPECT_EQ(engine.port.lastResult, -1019);
}

TEST_F(StandardGenApi, TheAccessStatusOfADeviceOpenedReadOnlySaysSo)
{
    OpenDeviceFor(GenTL::DEVICE_ACCESS_READONLY);
    EXPECT_EQ(CachingEngine(gentl, device).Value("DeviceAccessStatus"), "OpenReadOnly");
    EXPECT_EQ(DeviceStatus(), 6);
}

TEST_F(StandardGenApi, TheAccessStatusOfADeviceOpenedExclusivelySaysSo)
{
    OpenDeviceFor(GenTL::DEVICE_ACCESS_EXCLUSIVE);
    EXPECT_EQ(CachingEngine(gentl, device).Value("DeviceAccessStatus"), "OpenReadWrite");
    EXPECT_EQ(DeviceStatus(), 5);
}

TEST_F(StandardGenApi, EveryFeatureOfTheDataStreamReads)
{
    OpenStream();
    Acquire(5);
    CachingEngine engine(gentl, stream);
    EXPECT_THAT(engine.Names("Command"), IsEmpty());
    const std::string delivered = StreamInfo(GenTL::STREAM_INFO_NUM_DELIVERED);
    const std::string started = StreamInfo(GenTL::STREAM_INFO_NUM_STARTED);
    const std::string lost = StreamInfo(GenTL::STREAM_INFO_NUM_UNDERRUN);
    const std::string payload = StreamInfo(GenTL::STREAM_INFO_PAYLOAD_SIZE);
    EXPECT_GE(std::stoul(delivered), 5U);
    EXPECT_GE(std::stoul(started), 5U);
    EXPECT_GE(std::stoul(payload), 64U * 16U);
    EXPECT_GE(engine.Number("FramesReceived"), 5);
    const std::string received = engine.Value("FramesReceived");
    const std::string frameLoss = engine.Value("FrameLoss");
    EXPECT_LT(std::stoul(frameLoss), 1000000U);
    ExpectFeatures(engine, {{"StreamID", "Stream:0"},
                            {"StreamType", "GigEVision"},
                            {"StreamAnnouncedBufferCount", "3"},
                            {"StreamBufferHandlingMode", "OldestFirst"},
                            {"StreamAnnounceBufferMinimum", "1"},
                            {"StreamDeliveredFrameCount", delivered},
                            {"StreamLostFrameCount", lost},
                            {"StreamInputBufferCount", StreamInfo(GenTL::STREAM_INFO_NUM_QUEUED)},
                            {"StreamOutputBufferCount", StreamInfo(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY)},
                            {"StreamStartedFrameCount", started},
                            {"PayloadSize", payload},
                            {"StreamIsGrabbing", "false"},
                            {"StreamChunkCountMaximum", "0"},
                            {"StreamBufferAlignment", "1"},
                            {"FrameLoss", frameLoss},
                            {"FramesReceived", received},
                            {"CopiedFrames", started}}); // the buffers are smaller than a frame
}

TEST_F(StandardGenApi, TheDataStreamTellsWhatItDoesNow)
{
    OpenStream();
    CachingEngine engine(gentl, stream);
    EXPECT_EQ(engine.Value("StreamIsGrabbing"), "false");
    EXPECT_EQ(engine.Value("StreamAnnouncedBufferCount"), "3");
    EXPECT_EQ(engine.Value("StreamInputBufferCount"), "3");
    ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
    EXPECT_EQ(engine.Value("StreamIsGrabbing"), "true");
    ASSERT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL), 0);
    EXPECT_EQ(engine.Value("StreamIsGrabbing"), "false");
    GenTL::BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(stream, 64, nullptr, &buffer), 0);
    EXPECT_EQ(engine.Value("StreamAnnouncedBufferCount"), "4");
    EXPECT_FALSE(engine.Set("StreamBufferHandlingMode_Reg", std::int64_t{0})) << "read only";
    EXPECT_EQ(engine.port.lastResult, -1005);
}

TEST_F(StandardGenApi, EveryRegisterOfTheDataStreamAnswersAtItsLength)
{
    OpenStream();
    CachingEngine engine(gentl, stream);
    ExpectRegisters(engine, {{"StreamID_Reg", "Stream:0"},
                             {"StreamAnnouncedBufferCount_Reg", "3"},
                             {"StreamBufferHandlingMode_Reg", "0"},
                             {"StreamAnnounceBufferMinimum_Reg", "1"},
                             {"StreamDeliveredFrameCount_Reg", "0"},
                             {"StreamLostFrameCount_Reg", "0"},
                             {"StreamInputBufferCount_Reg", "3"},
                             {"StreamOutputBufferCount_Reg", "0"},
                             {"StreamStartedFrameCount_Reg", "0"},
                             {"PayloadSize_Reg", StreamInfo(GenTL::STREAM_INFO_PAYLOAD_SIZE)},
                             {"StreamIsGrabbing_Reg", "0"},
                             {"StreamChunkCountMaximum_Reg", "0"},
                             {"StreamBufferAlignment_Reg", "1"},
                             {"FrameLoss_Reg", "0"},
                             {"FramesReceived_Reg", "0"},
                             {"CopiedFrames_Reg", "0"}});
}

#else

TEST(StandardGenApi, EveryFeatureReads)
{
    GTEST_SKIP() << "the headers of aravis are not installed";
}

#endif
