// SPDX-License-Identifier: Apache-2.0
// The virtual camera's register description: where it lies, its form, and that it fits the camera.
#include "camera/feature_host.h"
#include "support/capture.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <set>
#include <zip.h>

using namespace nq::test;
using testing::Contains;

namespace
{

/// The elements that every node may have, in the order of GenApi 1.1.
const std::vector<std::string> kCommon = {"ToolTip",      "Description", "DisplayName",
                                          "Visibility",   "EventID",     "pIsImplemented",
                                          "pIsAvailable", "pIsLocked",   "ImposedAccessMode"};

/// What follows them in a node of each kind.
const std::map<std::string, std::vector<std::string>> kOrder = {
    {"Category", {"pFeature"}},
    {"Integer",
     {"Value", "pValue", "Min", "pMin", "Max", "pMax", "Inc", "pInc", "Unit", "Representation", "pSelected"}},
    {"Float", {"Value", "pValue", "Min", "pMin", "Max", "pMax", "Inc", "Unit", "Representation"}},
    {"Enumeration", {"EnumEntry", "Value", "pValue", "pSelected"}},
    {"EnumEntry", {"Value"}},
    {"Boolean", {"Value", "pValue", "OnValue", "OffValue", "pSelected"}},
    {"Command", {"pValue", "CommandValue"}},
    {"StringReg", {"Address", "Length", "AccessMode", "pPort", "Cachable", "PollingTime", "pInvalidator"}},
    {"IntReg",
     {"Address", "pIndex", "Length", "AccessMode", "pPort", "Cachable", "PollingTime", "pInvalidator", "Sign",
      "Endianess", "Unit", "Representation"}},
    {"MaskedIntReg",
     {"Address", "pIndex", "Length", "AccessMode", "pPort", "Cachable", "PollingTime", "pInvalidator", "LSB", "MSB",
      "Sign", "Endianess"}},
    {"FloatReg",
     {"Address", "pIndex", "Length", "AccessMode", "pPort", "Cachable", "PollingTime", "pInvalidator", "Endianess"}},
    {"IntSwissKnife", {"pVariable", "Formula"}},
    {"Port", {}},
};

void ExpectOrder(const XmlNode& node)
{
    const auto rule = kOrder.find(node.name);
    ASSERT_NE(rule, kOrder.end()) << node.name;
    std::size_t place = 0;
    for (const XmlNode* child : node.Elements())
    {
        std::vector<std::string> order = kCommon;
        order.insert(order.end(), rule->second.begin(), rule->second.end());
        const auto found = std::find(order.begin(), order.end(), child->name);
        ASSERT_NE(found, order.end()) << node.Attribute("Name") << ": " << child->name;
        const auto at = static_cast<std::size_t>(found - order.begin());
        EXPECT_GE(at, place) << node.Attribute("Name") << ": " << child->name;
        place = at;
        if (child->name == "EnumEntry")
        {
            ExpectOrder(*child);
        }
    }
}

/// The names of other nodes that a node holds, in its entries too.
std::vector<std::string> References(const XmlNode& node)
{
    std::vector<std::string> names;
    for (const XmlNode* child : node.Elements())
    {
        if (child->name[0] == 'p')
        {
            names.push_back(child->Content());
        }
        const auto nested = References(*child);
        names.insert(names.end(), nested.begin(), nested.end());
    }
    return names;
}

/// The bits that a register takes, counted from address 0 and there from the most significant one; none for a node
/// that is no register. A register with an index is as often there as its selector has entries.
std::vector<std::uint32_t> BitsOf(const FeatureHost& host, const XmlNode& node)
{
    const std::string address = ChildText(node, "Address");
    std::uint32_t count = 1;
    std::uint32_t stride = 0;
    for (const XmlNode* child : node.Elements())
    {
        if (child->name == "pIndex")
        {
            std::string selector = child->Content();
            selector.resize(selector.size() - std::string("Reg").size());
            const std::size_t entries = host.Entries(selector).size();
            count = static_cast<std::uint32_t>(entries > 0 ? static_cast<double>(entries)
                                                           : host.Limit(selector, "Max") + 1);
            stride = static_cast<std::uint32_t>(std::stoul(child->Attribute("Offset")));
        }
    }
    std::vector<std::uint32_t> bits;
    for (std::uint32_t i = 0; i < count && !address.empty(); ++i)
    {
        const auto first = static_cast<std::uint32_t>(8 * (std::stoul(address, nullptr, 16) + stride * i));
        const bool field = node.name == "MaskedIntReg";
        const auto begin = static_cast<std::uint32_t>(field ? std::stoul(ChildText(node, "MSB")) : 0);
        const auto end = static_cast<std::uint32_t>(field ? std::stoul(ChildText(node, "LSB")) + 1
                                                          : 8 * std::stoul(ChildText(node, "Length")));
        for (std::uint32_t bit = begin; bit < end; ++bit)
        {
            bits.push_back(first + bit);
        }
    }
    return bits;
}

} // namespace

TEST(CameraDescription, FirstUrlNamesAWellFormedDescription)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_THAT(ReadUrl(host, 0x0200).file, testing::MatchesRegex("NQVirtualCamera_[0-9A-F]{8}\\.xml"));
    const XmlNode root = ParseXml(ReadDescription(host));
    EXPECT_EQ(root.name, "RegisterDescription");
    EXPECT_EQ(root.Attribute("SchemaMajorVersion"), "1");
    EXPECT_EQ(root.Attribute("SchemaMinorVersion"), "1");
    EXPECT_EQ(root.Attribute("xmlns"), "http://www.genicam.org/GenApi/Version_1_1");
    for (const char* name : {"ModelName", "VendorName", "StandardNameSpace", "SchemaSubMinorVersion", "MajorVersion",
                             "MinorVersion", "SubMinorVersion", "ProductGuid", "VersionGuid"})
    {
        EXPECT_NE(root.Attribute(name), "") << name;
    }
}

TEST(CameraDescription, SecondUrlNamesTheSameDescriptionZipped)
{
    const VirtualCamera camera;
    const RawHost host;
    const DescriptionUrl url = ReadUrl(host, 0x0400);
    const std::string name = ReadUrl(host, 0x0200).file.substr(0, 24);
    EXPECT_EQ(url.file, name + ".zip");
    const Octets bytes = host.ReadMemory(url.address, url.size);
    ASSERT_EQ(bytes.size(), url.size);
    zip_error_t error;
    zip_error_init(&error);
    zip_t* archive = zip_open_from_source(zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error), 0, &error);
    ASSERT_NE(archive, nullptr);
    EXPECT_EQ(zip_get_num_entries(archive, 0), 1);
    EXPECT_EQ(zip_get_name(archive, 0, 0), name + ".xml");
    zip_file_t* file = zip_fopen_index(archive, 0, 0);
    ASSERT_NE(file, nullptr);
    std::string content(1000000, '\0');
    content.resize(static_cast<std::size_t>(zip_fread(file, content.data(), content.size())));
    zip_fclose(file);
    zip_discard(archive);
    EXPECT_EQ(content, ReadDescription(host));
}

TEST(CameraDescription, ElementsOfANodeStandInTheSchemasOrder)
{
    const VirtualCamera camera;
    const XmlNode root = ParseXml(ReadDescription(RawHost()));
    for (const XmlNode* node : root.Elements())
    {
        ExpectOrder(*node);
    }
}

TEST(CameraDescription, NamesAreUniqueAndReferencesExist)
{
    const VirtualCamera camera;
    const XmlNode root = ParseXml(ReadDescription(RawHost()));
    std::set<std::string> names;
    for (const XmlNode* node : root.Elements())
    {
        EXPECT_TRUE(names.insert(node->Attribute("Name")).second) << node->Attribute("Name");
    }
    for (const XmlNode* node : root.Elements())
    {
        for (const std::string& other : References(*node))
        {
            EXPECT_THAT(names, Contains(other)) << node->Attribute("Name");
        }
    }
}

TEST(CameraDescription, EveryNodeIsReachedFromRoot)
{
    const VirtualCamera camera;
    const FeatureHost host;
    std::set<std::string> reached;
    std::vector<std::string> waiting{"Root"};
    while (!waiting.empty())
    {
        const std::string name = waiting.back();
        waiting.pop_back();
        if (reached.insert(name).second)
        {
            const auto others = References(host.Node(name));
            waiting.insert(waiting.end(), others.begin(), others.end());
        }
    }
    for (const auto& [name, node] : host.Nodes())
    {
        EXPECT_THAT(reached, Contains(name));
    }
    EXPECT_GT(host.Nodes().size(), 200U);
}

TEST(CameraDescription, EachFeatureStandsInOneCategory)
{
    const VirtualCamera camera;
    const FeatureHost host;
    std::set<std::string> listed;
    for (const std::string& name : host.Features())
    {
        EXPECT_TRUE(listed.insert(name).second) << name;
    }
    for (const auto& [name, node] : host.Nodes())
    {
        const bool isFeature = node->Attribute("NameSpace") == "Standard" && node->name != "Category" &&
                               node->name != "Port" && node->name != "IntSwissKnife";
        EXPECT_EQ(listed.contains(name), isFeature) << name;
    }
}

TEST(CameraDescription, RegistersOverlapOnlyWhereFieldsShareOne)
{
    const VirtualCamera camera;
    const FeatureHost host;
    // Of each bit of each port, who has it.
    std::map<std::pair<std::string, std::uint32_t>, std::string> owners;
    for (const auto& [name, node] : host.Nodes())
    {
        for (const std::uint32_t bit : BitsOf(host, *node))
        {
            const auto [place, free] = owners.emplace(std::pair(ChildText(*node, "pPort"), bit), name);
            // Commands that differ by what they write have one register.
            const bool commands =
                ChildText(*node, "AccessMode") == "WO" && ChildText(host.Node(place->second), "AccessMode") == "WO";
            ASSERT_TRUE(free || commands) << name << " and " << place->second << " at bit " << bit;
        }
    }
    EXPECT_GT(owners.size(), 4000U);
}

TEST(CameraDescription, StandardFeaturesAreThere)
{
    const VirtualCamera camera;
    const XmlNode root = ParseXml(ReadDescription(RawHost()));
    std::set<std::string> names;
    for (const XmlNode* node : root.Elements())
    {
        names.insert(node->Attribute("Name"));
    }
    for (const char* name : {"Root",
                             "DeviceVendorName",
                             "DeviceModelName",
                             "DeviceVersion",
                             "DeviceSerialNumber",
                             "DeviceUserID",
                             "DeviceTemperature",
                             "Width",
                             "Height",
                             "OffsetX",
                             "OffsetY",
                             "PixelFormat",
                             "PayloadSize",
                             "TestPattern",
                             "AcquisitionMode",
                             "AcquisitionStart",
                             "AcquisitionStop",
                             "AcquisitionAbort",
                             "AcquisitionFrameRate",
                             "ExposureTime",
                             "Gain",
                             "TriggerMode",
                             "TriggerSource",
                             "TriggerSoftware",
                             "EventSelector",
                             "EventNotification",
                             "UserSetSelector",
                             "TimestampLatch",
                             "GevSCPSPacketSize",
                             "TLParamsLocked",
                             "Device"})
    {
        EXPECT_THAT(names, Contains(name));
    }
}

TEST(CameraDescription, EveryReadableRegisterCanBeRead)
{
    const VirtualCamera camera;
    const RawHost host;
    const XmlNode root = ParseXml(ReadDescription(host));
    int count = 0;
    for (const XmlNode* node : root.Elements())
    {
        const std::string address = ChildText(*node, "Address");
        if (!address.empty() && ChildText(*node, "pPort") == "Device")
        {
            const auto length = static_cast<std::uint32_t>(std::stoul(ChildText(*node, "Length")));
            const auto place = static_cast<std::uint32_t>(std::stoul(address, nullptr, 16));
            EXPECT_EQ(host.ReadMemory(place, length).size(), length) << node->Attribute("Name");
            ++count;
        }
    }
    EXPECT_GT(count, 30);
}

namespace
{

/// What aravis' tool prints. It waits for an answer to its discovery for a second, which is short on a machine under
/// load; whoever asks again gets it.
std::string RunForeignTool(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "/usr/bin/arv-tool-0.8");
    for (int tries = 1;; ++tries)
    {
        ChildProcess tool(arguments);
        EXPECT_EQ(tool.WaitForExit(std::chrono::seconds(60)), 0) << tool.Output();
        if (tries == 10 ||
            (!tool.Output().starts_with("No device found") && !tool.Output().starts_with("Can't connect")))
        {
            return tool.Output();
        }
    }
}

} // namespace

TEST(CameraDescription, ForeignControlProgramFindsTheCameraAndUsesItsFeatures)
{
    if (access("/usr/bin/arv-tool-0.8", X_OK) != 0)
    {
        GTEST_SKIP() << "arv-tool-0.8 (package aravis-tools-cli) is not installed";
    }
    const VirtualCamera camera({"--vendor", "Acme", "--model", "Eye", "--serial", "X42"});
    EXPECT_THAT(RunForeignTool({}), testing::HasSubstr("Acme-Eye-X42 (10.77.0.2)"));
    const std::string output =
        RunForeignTool({"-a", "10.77.0.2", "control", "Width", "Width=320", "PixelFormat=Mono16", "PayloadSize",
                        "Gain=3.5", "Gain", "EventSelector=FrameEnd", "EventNotification=On", "EventNotification",
                        "EventSelector=Test", "EventNotification", "TimestampLatch"});
    EXPECT_THAT(output, testing::HasSubstr("Width = 640 min:1 max:640"));
    EXPECT_THAT(output, testing::HasSubstr("PayloadSize = 307200 B"));
    EXPECT_THAT(output, testing::HasSubstr("Gain = 3.5 dB"));
    EXPECT_THAT(output, testing::HasSubstr("TimestampLatch executed"));
    EXPECT_THAT(output, testing::Not(testing::HasSubstr("rror")));
}

TEST(CameraDescription, ForeignControlProgramSeesLimitsThatTheCameraAccepts)
{
    if (access("/usr/bin/arv-tool-0.8", X_OK) != 0)
    {
        GTEST_SKIP() << "arv-tool-0.8 (package aravis-tools-cli) is not installed";
    }
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    const std::string output =
        RunForeignTool({"-a", "10.77.0.2", "control", "OffsetX", "OffsetY", "Width=600", "Height=470", "OffsetX",
                        "OffsetY", "OffsetX=40", "OffsetY=10", "OffsetX", "OffsetY", "Width", "Height",
                        "AcquisitionMode=SingleFrame", "AcquisitionMode"});
    EXPECT_EQ(output, "OffsetX = 0 min:0 max:0\n"
                      "OffsetY = 0 min:0 max:0\n"
                      "Width = 600 min:1 max:640\n"
                      "Height = 470 min:1 max:480\n"
                      "OffsetX = 0 min:0 max:40\n"
                      "OffsetY = 0 min:0 max:10\n"
                      "OffsetX = 40 min:0 max:40\n"
                      "OffsetY = 10 min:0 max:10\n"
                      "OffsetX = 40 min:0 max:40\n"
                      "OffsetY = 10 min:0 max:10\n"
                      "Width = 600 min:1 max:600\n"
                      "Height = 470 min:1 max:470\n"
                      "AcquisitionMode = SingleFrame\n"
                      "AcquisitionMode = SingleFrame\n");
}

TEST(CameraDescription, ForeignControlProgramWithACacheSeesWhatOtherFeaturesChange)
{
    if (access("/usr/bin/arv-tool-0.8", X_OK) != 0)
    {
        GTEST_SKIP() << "arv-tool-0.8 (package aravis-tools-cli) is not installed";
    }
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    const std::string output =
        RunForeignTool({"--register-cache=enable", "--range-check=enable", "-a", "10.77.0.2", "control", "Width=320",
                        "UserSetSelector=UserSet1", "UserSetSave", "Width=100", "PayloadSize", "UserSetLoad", "Width",
                        "PayloadSize", "BinningHorizontal=2", "Width", "WidthMax", "AcquisitionFrameRate=1000",
                        "ExposureTime=20000", "AcquisitionFrameRate"});
    EXPECT_EQ(output, "Width = 320 min:1 max:640\n"
                      "UserSetSelector = UserSet1\n"
                      "UserSetSave executed\n"
                      "Width = 100 min:1 max:640\n"
                      "PayloadSize = 48000 B min:0 max:4294967295\n"
                      "UserSetLoad executed\n"
                      "Width = 320 min:1 max:640\n"
                      "PayloadSize = 153600 B min:0 max:4294967295\n"
                      "BinningHorizontal = 2 min:1 max:4\n"
                      "Width = 160 min:1 max:320\n"
                      "WidthMax = 320 min:0 max:4294967295\n"
                      "AcquisitionFrameRate = 1000 Hz min:0.001 max:100000\n"
                      "ExposureTime = 20000 us min:1 max:1e+07\n"
                      "AcquisitionFrameRate = 50 Hz min:0.001 max:50\n");
}

TEST(CameraDescription, ForeignDissectorReadsThePackets)
{
    if (!Capture::Available())
    {
        GTEST_SKIP() << "tshark or tcpdump is not installed";
    }
    const VirtualCamera camera;
    Capture recorder("host0", VirtualCamera::kAddress);
    const RawHost host;
    const RawHost events;
    host.Ask("42 11 00 02 00 00 00 01");
    host.KeepControl();
    host.ReadMemory(0x00E8, 16);
    EXPECT_EQ(host.Write(1, 0x0B10, 0x0A4D0001), 0U);
    EXPECT_EQ(host.Write(2, 0x0B00, events.Port()), 0U);
    camera.Fault("pending-ack:20");
    host.Read(0x0938);
    host.Receive();
    ChildProcess reader({"/usr/bin/tshark",
                         "-r",
                         recorder.Finish(),
                         "-Y",
                         "gvcp",
                         "-T",
                         "fields",
                         "-E",
                         "separator=|",
                         "-e",
                         "gvcp.cmd.status",
                         "-e",
                         "gvcp.ack",
                         "-e",
                         "gvcp.cmd.req_id",
                         "-e",
                         "gvcp.bootstrap.deviceversion",
                         "-e",
                         "gvcp.ack.pendingack.timetocompletion",
                         "-e",
                         "_ws.malformed"});
    ASSERT_EQ(reader.WaitForExit(std::chrono::seconds(60)), 0) << reader.Output();
    EXPECT_THAT(reader.Output(), testing::HasSubstr("0x0000|0x0003|0x0001|3.0.0||\n"));
    EXPECT_THAT(reader.Output(), testing::HasSubstr("0x0000|0x0083|0x7001|||\n"));
    EXPECT_THAT(reader.Output(), testing::HasSubstr("0x0000|0x0085|0x7b00|||\n"));
    EXPECT_THAT(reader.Output(), testing::HasSubstr("0x0000|0x0089|0x7a00||0x0014|\n"));
    EXPECT_THAT(reader.Output(), testing::Not(testing::HasSubstr("alformed")));
}
