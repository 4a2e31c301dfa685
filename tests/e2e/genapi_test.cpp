// SPDX-License-Identifier: Apache-2.0
// The four register descriptions in the hands of a foreign GenApi engine, that of aravis: every feature is read, and
// some are written, through the live ports of the library.
#include "support/preload_loopback.h"
#include "support/producer.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>

#if __has_include(<arv.h>)

#include <arv.h>
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>

namespace
{

using nq::test::Producer;
using nq::test::Shell;
using nq::test::VirtualCamera;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char interfaceId[] = "Linux Socket:02-00-00-00-00-01";
constexpr char deviceId[] = "NQ-GEV-Camera:02-00-0a-4d-00-02";

/// A port of the library and what became of the accesses to it.
struct Port
{
    const Producer& gentl;
    void* handle;
    int lastResult = 0;
    std::vector<std::uint64_t> reads = {};
    std::vector<std::uint64_t> writes = {};

    bool Read(std::uint64_t address, void* buffer, std::size_t size)
    {
        std::memset(buffer, 0, size);
        reads.push_back(address);
        lastResult = gentl.GCReadPort(handle, address, buffer, &size);
        return lastResult == 0;
    }

    bool Write(std::uint64_t address, const void* buffer, std::size_t size)
    {
        writes.push_back(address);
        lastResult = gentl.GCWritePort(handle, address, buffer, &size);
        return lastResult == 0;
    }
};

/// The engine's idea of a device, made of a port.
struct PortDevice
{
    ArvDevice parent;
    Port* port;
};

gboolean Outcome(const ArvDevice* device, bool success, GError** error)
{
    if (!success)
    {
        g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR, "the port answers %d",
                    reinterpret_cast<const PortDevice*>(device)->port->lastResult);
    }
    return success ? TRUE : FALSE;
}

gboolean ReadMemory(ArvDevice* device, guint64 address, guint32 size, void* buffer, GError** error)
{
    return Outcome(device, reinterpret_cast<PortDevice*>(device)->port->Read(address, buffer, size), error);
}

/// What is written is `void` for older engines and `const void` for newer ones.
template <typename Data>
gboolean WriteMemory(ArvDevice* device, guint64 address, guint32 size, Data* buffer, GError** error)
{
    return Outcome(device, reinterpret_cast<PortDevice*>(device)->port->Write(address, buffer, size), error);
}

gboolean ReadRegister(ArvDevice* device, guint64 address, guint32* value, GError** error)
{
    return ReadMemory(device, address, sizeof *value, value, error);
}

gboolean WriteRegister(ArvDevice* device, guint64 address, guint32 value, GError** error)
{
    return WriteMemory(device, address, sizeof value, &value, error);
}

GType PortDeviceType()
{
    static const GType type = g_type_register_static_simple(
        ARV_TYPE_DEVICE, "NqTestPortDevice", sizeof(ArvDeviceClass),
        [](void* made, void*) {
            auto* const device = static_cast<ArvDeviceClass*>(made);
            device->read_memory = ReadMemory;
            device->write_memory = WriteMemory;
            device->read_register = ReadRegister;
            device->write_register = WriteRegister;
        },
        sizeof(PortDevice), nullptr, GTypeFlags{});
    return type;
}

/// The description that a port's URL names, read through the port.
std::string Description(const Producer& gentl, void* port)
{
    char url[256] = {};
    std::size_t size = sizeof url;
    EXPECT_EQ(gentl.GCGetPortURL(port, url, &size), 0);
    unsigned long address = 0;
    unsigned long length = 0;
    EXPECT_EQ(std::sscanf(url, "local:%*[^;];%lx;%lx", &address, &length), 2) << url;
    std::string text(length, '\0');
    EXPECT_EQ(gentl.GCReadPort(port, address, text.data(), &length), 0);
    return text;
}

/// One description loaded by the engine. Failures of the engine come out as the texts "(failed: CODE)", CODE being the
/// last result of the port.
class Engine
{
  public:
    Engine(const Producer& gentl, void* handle) : text(Description(gentl, handle)), port{gentl, handle}
    {
        m_device = static_cast<GObject*>(g_object_new(PortDeviceType(), nullptr));
        reinterpret_cast<PortDevice*>(m_device)->port = &port;
        m_gc = arv_gc_new(reinterpret_cast<ArvDevice*>(m_device), text.data(), text.size());
        EXPECT_NE(m_gc, nullptr);
    }

    ~Engine()
    {
        g_object_unref(m_gc);
        g_object_unref(m_device);
    }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    /// The value of a feature or register as text: texts as they are, the names of entries, numbers in decimal.
    std::string Value(const std::string& name)
    {
        ArvGcNode* const node = Node(name);
        GError* error = nullptr;
        std::string value;
        if (ARV_IS_GC_ENUMERATION(node))
        {
            const char* const entry = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), &error);
            value = entry == nullptr ? "(none)" : entry;
        }
        else if (ARV_IS_GC_INTEGER(node))
        {
            value = std::to_string(arv_gc_integer_get_value(ARV_GC_INTEGER(node), &error));
        }
        else
        {
            const char* const characters = arv_gc_string_get_value(ARV_GC_STRING(node), &error);
            value = characters == nullptr ? "(null)" : characters;
        }
        return Failed(error) ? "(failed: " + std::to_string(port.lastResult) + ")" : value;
    }

    std::int64_t Number(const std::string& name) { return std::stoll(Value(name)); }

    std::int64_t Maximum(const std::string& name)
    {
        GError* error = nullptr;
        const std::int64_t maximum = arv_gc_integer_get_max(ARV_GC_INTEGER(Node(name)), &error);
        EXPECT_FALSE(Failed(error)) << name;
        return maximum;
    }

    bool Available(const std::string& name)
    {
        GError* error = nullptr;
        const bool available = arv_gc_feature_node_is_available(ARV_GC_FEATURE_NODE(Node(name)), &error) != FALSE;
        EXPECT_FALSE(Failed(error)) << name;
        return available;
    }

    bool Set(const std::string& name, std::int64_t value)
    {
        GError* error = nullptr;
        arv_gc_integer_set_value(ARV_GC_INTEGER(Node(name)), value, &error);
        return !Failed(error);
    }

    bool Set(const std::string& name, const char* value)
    {
        GError* error = nullptr;
        if (ARV_IS_GC_ENUMERATION(Node(name)))
        {
            arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(Node(name)), value, &error);
        }
        else
        {
            arv_gc_string_set_value(ARV_GC_STRING(Node(name)), value, &error);
        }
        return !Failed(error);
    }

    bool Execute(const std::string& name)
    {
        GError* error = nullptr;
        arv_gc_command_execute(ARV_GC_COMMAND(Node(name)), &error);
        return !Failed(error);
    }

    /// The names of all nodes of these kinds, in the order of the text, comments left out.
    std::vector<std::string> Names(const std::string& kinds) const
    {
        const std::string live = std::regex_replace(text, std::regex("<!--[^]*?-->"), "");
        const std::regex node("<(?:" + kinds + ") Name=\"([^\"]*)\"");
        std::vector<std::string> names;
        for (std::sregex_iterator at(live.begin(), live.end(), node), end; at != end; ++at)
        {
            names.push_back((*at)[1]);
        }
        return names;
    }

    const std::string text;
    Port port;

  private:
    ArvGcNode* Node(const std::string& name)
    {
        ArvGcNode* const node = arv_gc_get_node(m_gc, name.c_str());
        EXPECT_NE(node, nullptr) << name;
        return node;
    }

    static bool Failed(GError* error)
    {
        const bool failed = error != nullptr;
        g_clear_error(&error);
        return failed;
    }

    GObject* m_device;
    ArvGc* m_gc;
};

using Values = std::map<std::string, std::string>;

/// Every feature of the engine's text that has a value, which must be those of `expected` and no others.
void ExpectFeatures(Engine& engine, const Values& expected)
{
    Values actual;
    for (const std::string& name : engine.Names("String|Integer|Enumeration"))
    {
        actual[name] = engine.Value(name);
    }
    EXPECT_EQ(actual, expected);
}

/// Every register of the engine's text, each at its own address and length.
void ExpectRegisters(Engine& engine, const Values& expected)
{
    Values actual;
    for (const std::string& name : engine.Names("IntReg|StringReg"))
    {
        actual[name] = engine.Value(name);
    }
    EXPECT_EQ(actual, expected);
}

/// The library with an open system and the virtual camera behind its one adapter.
class GenApi : public testing::Test
{
  protected:
    void SetUp() override
    {
        nq::test::RdmaFolder();
        Shell("ip link set dev host0 address 02:00:00:00:00:01");
        ASSERT_EQ(gentl.GCInitLib(), 0);
        ASSERT_EQ(gentl.TLOpen(&system), 0);
    }

    void TearDown() override { EXPECT_EQ(gentl.GCCloseLib(), 0); }

    void OpenInterface()
    {
        ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
        ASSERT_EQ(gentl.TLOpenInterface(system, interfaceId, &interface), 0);
    }

    void OpenDevice()
    {
        OpenInterface();
        ASSERT_EQ(gentl.IFOpenDevice(interface, deviceId, GenTL::DEVICE_ACCESS_CONTROL, &device), 0);
    }

    void OpenStream()
    {
        OpenDevice();
        ASSERT_EQ(gentl.DevOpenDataStream(device, "Stream:0", &stream), 0);
        for (int index = 0; index < 3; ++index)
        {
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(stream, 64, nullptr, &buffer), 0);
            ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
        }
    }

    /// Runs an acquisition until `frames` frames were taken.
    void Acquire(int frames)
    {
        GenTL::EVENT_HANDLE event = nullptr;
        ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
        ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
        for (int frame = 0; frame < frames; ++frame)
        {
            GenTL::S_EVENT_NEW_BUFFER data{};
            std::size_t size = sizeof data;
            ASSERT_EQ(gentl.EventGetData(event, &data, &size, 20000), 0);
            ASSERT_EQ(gentl.DSQueueBuffer(stream, data.BufferHandle), 0);
        }
        ASSERT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL), 0);
    }

    const VirtualCamera camera{{"--width", "64", "--height", "16", "--fps", "100"}};
    Producer gentl;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
    void* stream = nullptr;
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
            {"InterfaceID", interfaceId},
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
    ExpectFeatures(engine, {{"InterfaceID", interfaceId},
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
                            {"DeviceID", deviceId},
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
    ExpectRegisters(engine, {{"InterfaceID_Reg", interfaceId},
                             {"GevInterfaceGatewaySelector_Reg", "0"},
                             {"NrGateways_Reg", "1"},
                             {"GevInterfaceGateway_Reg", "0"},
                             {"GevInterfaceMACAddress_Reg", std::to_string(0x020000000001)},
                             {"GevInterfaceSubnetSelector_Reg", "0"},
                             {"NrSubnets_Reg", "1"},
                             {"GevInterfaceSubnetIPAddress_Reg", "0"},
                             {"GevInterfaceSubnetMask_Reg", "0"},
                             {"DeviceID_Reg", deviceId},
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
    ExpectFeatures(engine, {{"DeviceID", deviceId},
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
    ExpectRegisters(engine, {{"DeviceID_Reg", deviceId},
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
