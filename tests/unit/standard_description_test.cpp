// SPDX-License-Identifier: Apache-2.0
// The structure of the standard's four register descriptions: what each consumer's engine relies on, and what they have
// to hold that the library's own texts do not.
#include "support/register_description.h"

#include <gmock/gmock.h>
#include <regex>
#include <set>

using namespace nq::test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::Not;
using testing::UnorderedElementsAre;

namespace
{

struct StandardMap
{
    std::string name;
    std::string text;
    std::string fileName;
    std::string port;
    unsigned long begin; ///< Of its registers' addresses,
    unsigned long end;   ///< and behind the last.
};

std::vector<StandardMap> StandardMaps()
{
    return {{"system", CreateStandardXmlFileSystem(), kStandardXmlFileNameSystem, "TLPort", 0x50000, 0x52000},
            {"interface", CreateStandardXmlFileInterface(), kStandardXmlFileNameInterface, "InterfacePort", 0x60000,
             0x60454},
            {"device", CreateStandardXmlFileDevice(), kStandardXmlFileNameDevice, "DevicePort", 0x70000, 0x70540},
            {"data stream", CreateStandardXmlFileDataStream(), kStandardXmlFileNameDataStream, "StreamPort", 0x80000,
             0x80170}};
}

void ForEachStandardMap(const std::function<void(const StandardMap&, const XmlNode&)>& check)
{
    for (const StandardMap& map : StandardMaps())
    {
        SCOPED_TRACE(map.name + " map");
        check(map, ParseXml(map.text));
    }
}

std::set<std::string> Names(const XmlNode& root)
{
    std::set<std::string> names;
    for (const Placed& placed : NamedNodes(root))
    {
        EXPECT_TRUE(names.insert(placed.node->Attribute("Name")).second) << placed.node->Attribute("Name");
    }
    return names;
}

/// The names that the nodes of a text refer to, those that a node's own register refers to aside.
std::set<std::string> References(const XmlNode& root)
{
    std::set<std::string> names;
    for (const Placed& placed : NamedNodes(root))
    {
        for (const XmlNode* child : placed.node->Elements())
        {
            if (child->name.size() > 1 && child->name[0] == 'p' && std::isupper(child->name[1]) != 0)
            {
                names.insert(child->Content());
            }
        }
    }
    return names;
}

std::string Content(const XmlNode& node, const std::string& element)
{
    for (const XmlNode* child : node.Elements())
    {
        if (child->name == element)
        {
            return child->Content();
        }
    }
    return "";
}

std::vector<const XmlNode*> Registers(const XmlNode& root)
{
    std::vector<const XmlNode*> registers;
    for (const Placed& placed : OfKind(root, {"IntReg", "StringReg"}))
    {
        registers.push_back(placed.node);
    }
    return registers;
}

} // namespace

TEST(StandardDescription, AttributesOfTheRootFitTheSchema)
{
    const std::regex name("[A-Za-z_][A-Za-z0-9_]*");
    const std::regex guid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
    std::set<std::string> guids;
    std::set<std::string> files;
    ForEachStandardMap([&](const StandardMap& map, const XmlNode& root) {
        EXPECT_EQ(root.Attribute("VendorName"), "NerquilOptic");
        EXPECT_TRUE(std::regex_match(root.Attribute("ModelName"), name));
        EXPECT_EQ(root.Attribute("StandardNameSpace"), "GEV");
        EXPECT_EQ(root.Attribute("SchemaMajorVersion"), "1");
        EXPECT_EQ(root.Attribute("SchemaMinorVersion"), "1");
        for (const char* attribute : {"ProductGuid", "VersionGuid"})
        {
            EXPECT_TRUE(std::regex_match(root.Attribute(attribute), guid)) << attribute;
            guids.insert(root.Attribute(attribute));
        }
        files.insert(map.fileName);
    });
    ForEachMap([&](const Map&, const XmlNode& root) { guids.insert(root.Attribute("ProductGuid")); });
    EXPECT_EQ(guids.size(), 9U) << "a pair for each text, and the pair of the library's own";
    EXPECT_THAT(files, UnorderedElementsAre("NQGenTLGevStandard_TL_1_0_0.xml", "NQGenTLGevStandard_IF_1_0_0.xml",
                                            "NQGenTLGevStandard_DEV_1_0_0.xml", "NQGenTLGevStandard_DS_1_0_0.xml"));
}

TEST(StandardDescription, EveryNameIsWellFormedAndEveryReferenceNamesANode)
{
    const std::regex wellFormed("[A-Za-z][A-Za-z0-9_]*");
    ForEachStandardMap([&](const StandardMap& map, const XmlNode& root) {
        const std::set<std::string> names = Names(root);
        for (const std::string& name : names)
        {
            EXPECT_TRUE(std::regex_match(name, wellFormed)) << name;
        }
        const std::set<std::string> references = References(root);
        EXPECT_THAT(references, IsSubsetOf(names));
        EXPECT_THAT(references, Contains(map.port));
        for (const std::string& name : names)
        {
            EXPECT_TRUE(name == "Root" || references.contains(name)) << name << " is an orphan";
        }
    });
}

TEST(StandardDescription, ElementsStandInTheOrderOfTheSchema)
{
    const std::vector<std::string> order = {
        "ToolTip",     "Description",    "DisplayName", "Visibility",   "pIsAvailable", "ImposedAccessMode",
        "pFeature",    "Address",        "Length",      "AccessMode",   "pPort",        "Cachable",
        "PollingTime", "pInvalidator",   "Sign",        "Endianess",    "pVariable",    "Formula",
        "EnumEntry",   "Value",          "pValue",      "CommandValue", "Min",          "pMax",
        "Unit",        "Representation", "pSelected"};
    ForEachStandardMap([&](const StandardMap&, const XmlNode& root) {
        for (const Placed& placed : NamedNodes(root))
        {
            auto from = order.begin();
            for (const XmlNode* child : placed.node->Elements())
            {
                from = std::find(from, order.end(), child->name);
                EXPECT_NE(from, order.end()) << child->name << " of " << placed.node->Attribute("Name");
            }
        }
    });
}

TEST(StandardDescription, NoTwoRegistersOverlapAndAllLieInTheirMapsRange)
{
    ForEachStandardMap([](const StandardMap& map, const XmlNode& root) {
        std::vector<std::pair<unsigned long, unsigned long>> ranges;
        for (const XmlNode* reg : Registers(root))
        {
            const unsigned long address = std::stoul(Content(*reg, "Address"), nullptr, 16);
            ranges.emplace_back(address, address + std::stoul(Content(*reg, "Length")));
        }
        std::ranges::sort(ranges);
        EXPECT_EQ(ranges.front().first, map.begin);
        EXPECT_EQ(ranges.back().second, map.end);
        for (std::size_t next = 1; next < ranges.size(); ++next)
        {
            EXPECT_LE(ranges[next - 1].second, ranges[next].first) << std::hex << ranges[next].first;
        }
    });
}

TEST(StandardDescription, OnlyWhatNeverChangesIsCached)
{
    std::vector<std::string> cached;
    ForEachStandardMap([&](const StandardMap&, const XmlNode& root) {
        for (const XmlNode* reg : Registers(root))
        {
            const std::string cachable = Content(*reg, "Cachable");
            if (cachable != "NoCache")
            {
                EXPECT_EQ(cachable, "");
                cached.push_back(reg->Attribute("Name"));
            }
        }
    });
    EXPECT_THAT(cached, ElementsAre("TLVendorName_Reg", "TLModelName_Reg", "TLID_Reg", "TLVersion_Reg", "TLPath_Reg",
                                    "GenTLVersionMajor_Reg", "GenTLVersionMinor_Reg"));
}

TEST(StandardDescription, NoRegisterInvalidatesItself)
{
    ForEachStandardMap([](const StandardMap&, const XmlNode& root) {
        for (const XmlNode* reg : Registers(root))
        {
            EXPECT_NE(Content(*reg, "pInvalidator"), reg->Attribute("Name"));
        }
    });
}

TEST(StandardDescription, EveryCommandHasARegisterThatCanBeWritten)
{
    std::vector<std::string> commands;
    ForEachStandardMap([&](const StandardMap&, const XmlNode& root) {
        for (const Placed& placed : OfKind(root, {"Command"}))
        {
            commands.push_back(placed.node->Attribute("Name"));
            EXPECT_EQ(Content(*placed.node, "ImposedAccessMode"), "");
            EXPECT_EQ(Content(Node(root, Content(*placed.node, "pValue")), "AccessMode"), "RW");
        }
    });
    EXPECT_THAT(commands, ElementsAre("InterfaceUpdateList", "DeviceUpdateList"));
}

TEST(StandardDescription, HasTheFeaturesThatTheStandardAsksFor)
{
    const std::map<std::string, std::vector<std::string>> mandatory = {
        {"system",
         {"Root", "TLPort", "TLID", "TLVendorName", "TLModelName", "TLVersion", "TLPath", "TLType", "GenTLVersionMajor",
          "GenTLVersionMinor", "InterfaceUpdateList", "InterfaceSelector", "InterfaceID", "GevInterfaceMACAddress",
          "GevInterfaceDefaultIPAddress", "GevInterfaceDefaultSubnetMask"}},
        {"interface",
         {"Root",
          "InterfacePort",
          "InterfaceID",
          "InterfaceType",
          "InterfaceTLVersionMajor",
          "InterfaceTLVersionMinor",
          "DeviceUpdateList",
          "DeviceSelector",
          "DeviceID",
          "DeviceVendorName",
          "DeviceModelName",
          "DeviceAccessStatus",
          "DeviceTLVersionMajor",
          "DeviceTLVersionMinor",
          "GevInterfaceMACAddress",
          "GevInterfaceSubnetSelector",
          "GevInterfaceSubnetIPAddress",
          "GevInterfaceSubnetMask",
          "GevInterfaceGatewaySelector",
          "GevInterfaceGateway",
          "GevDeviceIPAddress",
          "GevDeviceSubnetMask",
          "GevDeviceMACAddress"}},
        {"device",
         {"Root", "DevicePort", "DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceType", "DeviceAccessStatus",
          "StreamSelector", "StreamID", "GevDeviceMACAddress", "GevDeviceIPAddress", "GevDeviceSubnetMask",
          "GevDeviceGateway", "DeviceEndianessMechanism"}},
        {"data stream",
         {"Root", "StreamPort", "StreamInformation", "StreamID", "StreamType", "StreamAnnouncedBufferCount",
          "StreamBufferHandlingMode", "StreamAnnounceBufferMinimum"}}};
    ForEachStandardMap([&](const StandardMap& map, const XmlNode& root) {
        EXPECT_THAT(mandatory.at(map.name), IsSubsetOf(Names(root)));
    });
}

TEST(StandardDescription, LeavesOutWhatDoesNotWork)
{
    ForEachStandardMap([](const StandardMap& map, const XmlNode& root) {
        for (const std::string& name : Names(root))
        {
            EXPECT_FALSE(name.starts_with("Event") || name.starts_with("UpdateXML") || name.starts_with("XMLFile"))
                << name;
        }
        EXPECT_EQ(map.text.find("EventFrameAbondoned"), std::string::npos);
    });
    const XmlNode stream = ParseXml(CreateStandardXmlFileDataStream());
    const XmlNode& mode = Node(stream, "StreamBufferHandlingMode");
    EXPECT_EQ(Content(mode, "ImposedAccessMode"), "RO");
    EXPECT_THAT(Actual(mode), Contains(std::pair<std::string, std::string>{"EnumEntry", "OldestFirst"}));
    EXPECT_THAT(Actual(mode), Not(Contains(std::pair<std::string, std::string>{"EnumEntry", "NewestOnly"})));
    EXPECT_EQ(Content(Node(stream, "StreamBufferHandlingMode_Reg"), "AccessMode"), "RO");
}

TEST(StandardDescription, SaysOfTheReceivedFramesWhatTheyAre)
{
    const XmlNode stream = ParseXml(CreateStandardXmlFileDataStream());
    EXPECT_EQ(Content(Node(stream, "FramesReceived"), "ToolTip"),
              "Number of frames that have been received since last acquisition start.");
    EXPECT_EQ(Content(Node(stream, "FrameLoss_Reg"), "Length"), "8");
    EXPECT_EQ(Content(Node(stream, "FramesReceived_Reg"), "Length"), "8");
    EXPECT_EQ(Content(Node(stream, "CopiedFrames_Reg"), "Length"), "8");
    EXPECT_EQ(Content(Node(stream, "CopiedFrames_Reg"), "Address"), "0x80168");
}

TEST(StandardDescription, CountsOfTheStreamArePolled)
{
    const XmlNode stream = ParseXml(CreateStandardXmlFileDataStream());
    for (const char* name : {"StreamDeliveredFrameCount", "StreamLostFrameCount", "StreamInputBufferCount",
                             "StreamOutputBufferCount", "StreamStartedFrameCount", "PayloadSize", "StreamIsGrabbing",
                             "StreamChunkCountMaximum", "StreamBufferAlignment", "CopiedFrames"})
    {
        const std::string reg = Content(Node(stream, name), "pValue");
        EXPECT_EQ(reg, std::string(name) + "_Reg");
        EXPECT_EQ(Content(Node(stream, reg), "PollingTime"), "1000") << name;
    }
}
