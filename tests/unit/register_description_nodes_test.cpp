// SPDX-License-Identifier: Apache-2.0
// How the nodes of the four register descriptions refer to each other, and what in them is kept on purpose.
#include "support/register_description.h"

#include <gmock/gmock.h>
#include <map>
#include <set>

using namespace nq::test;
using testing::ElementsAre;

TEST(RegisterDescriptionNodes, RootCategoriesReferToCategoriesThatExist)
{
    ForEachMap([](const Map&, const XmlNode& root) {
        for (const XmlNode* member : Node(root, "Root").Elements())
        {
            if (member->name == "pFeature")
            {
                EXPECT_EQ(Node(root, member->Content()).name, "Category");
            }
        }
    });
}

TEST(RegisterDescriptionNodes, EveryReferenceNamesANodeOfItsText)
{
    ForEachMap([](const Map&, const XmlNode& root) {
        std::set<std::string> names;
        for (const Placed& placed : NamedNodes(root))
        {
            EXPECT_TRUE(names.insert(placed.node->Attribute("Name")).second) << placed.node->Attribute("Name");
        }
        const std::set<std::string> references = {"pValue",       "pInvalidator", "pVariable", "pSelected",
                                                  "pIsAvailable", "pMax",         "pPort",     "pFeature"};
        for (const Placed& placed : NamedNodes(root))
        {
            for (const XmlNode* child : placed.node->Elements())
            {
                if (references.count(child->name) != 0)
                {
                    EXPECT_EQ(names.count(child->Content()), 1u)
                        << placed.node->Attribute("Name") << " refers to " << child->Content();
                }
            }
        }
    });
}

TEST(RegisterDescriptionNodes, ApartFromTheXmlAddressTheRangesOfTheMapsDoNotOverlap)
{
    struct Register
    {
        std::string map;
        std::string name;
        unsigned long begin;
        unsigned long end;
    };
    const std::map<std::string, std::pair<unsigned long, unsigned long>> ranges = {{"system", {0x50000, 0x5062B}},
                                                                                   {"interface", {0x60000, 0x6044B}},
                                                                                   {"device", {0x70000, 0x70533}},
                                                                                   {"data stream", {0x80000, 0x80117}}};
    std::vector<Register> registers;
    ForEachMap([&](const Map& map, const XmlNode& root) {
        for (const Placed& placed : OfKind(root, {"IntReg", "StringReg"}))
        {
            const std::string name = placed.node->Attribute("Name");
            std::map<std::string, std::string> elements;
            for (const XmlNode* child : placed.node->Elements())
            {
                elements[child->name] = child->Content();
            }
            if (elements["pPort"] != map.port)
            {
                continue; // the event port has addresses of its own
            }
            const unsigned long begin = std::stoul(elements["Address"], nullptr, 16);
            const bool event = name == "EventSelector_reg" || name == "EventNotification_reg";
            EXPECT_GE(begin, event ? 0x10100 : ranges.at(map.name).first) << name;
            EXPECT_LE(begin, event ? 0x10107 : ranges.at(map.name).second) << name;
            registers.push_back({map.name, name, begin, begin + std::stoul(elements["Length"])});
        }
    });
    for (const Register& one : registers)
    {
        for (const Register& other : registers)
        {
            EXPECT_TRUE(one.map == other.map || one.end <= other.begin || other.end <= one.begin)
                << one.name << " and " << other.name;
        }
    }
}

TEST(RegisterDescriptionNodes, AddressesAreHexadecimalWithUpperCaseDigits)
{
    ForEachMap([](const Map&, const XmlNode& root) {
        for (const Placed& placed : OfKind(root, {"IntReg", "StringReg"}))
        {
            for (const XmlNode* child : placed.node->Elements())
            {
                if (child->name == "Address")
                {
                    EXPECT_THAT(child->Content(), testing::MatchesRegex("0x[0-9A-F]+"));
                }
            }
        }
    });
}

// Deliberate(ToolTipOfTheBuffers)
TEST(RegisterDescriptionNodes, QuotedToolTipsStandAsTheyAre)
{
    const XmlNode device = ParseXml(CreateXmlFileDevice());
    const auto first = [](const XmlNode& root, const std::string& name) {
        return Node(root, name).Elements().at(0)->Content();
    };
    EXPECT_EQ(first(device, "XMLFile"), "XML File to upload.");
    EXPECT_EQ(first(device, "UpdateXML"), "Update XML");
    EXPECT_EQ(first(device, "EventRemoteDeviceConnectionStateID"),
              "Returns the unique identifier of the Remote Device Connection State event type.");
    EXPECT_EQ(first(device, "EventRemoteDeviceConnectionStateState"), "Returns the current state of Connected Device.");
    const XmlNode stream = ParseXml(CreateXmlFileDataStream());
    EXPECT_EQ(first(stream, "FramesReceived"), "Number of announced (known) buffers on this stream.");
    EXPECT_EQ(Node(stream, "FramesReceived").Elements().at(1)->Content(),
              "the number of frames that have been received since last acquisition start.");
}

TEST(RegisterDescriptionNodes, TheGatewayOfTheSystemMapAndItsNeighboursHaveRegistersOfTheirOwn)
{
    const std::string text = CreateXmlFileSystem();
    EXPECT_THAT(text, testing::HasSubstr("<Address>0x50624</Address>"));
    EXPECT_THAT(text, testing::HasSubstr("<Address>0x50628</Address>"));
}

// Deliberate(UpdateCommandReachesNoRegister)
TEST(RegisterDescriptionNodes, TheUpdateCommandOfTheSystemMapReachesNoRegister)
{
    const XmlNode root = ParseXml(CreateXmlFileSystem());
    for (const XmlNode* child : Node(root, "InterfaceUpdateList").Elements())
    {
        EXPECT_NE(child->name, "pValue");
    }
}

// Deliberate(MaskInvalidatesItself)
TEST(RegisterDescriptionNodes, TheSubnetMaskRegisterNamesItselfAsItsInvalidator)
{
    const XmlNode root = ParseXml(CreateXmlFileInterface());
    for (const XmlNode* child : Node(root, "GevInterfaceSubnetMask_Reg").Elements())
    {
        if (child->name == "pInvalidator")
        {
            EXPECT_EQ(child->Content(), "GevInterfaceSubnetMask_Reg");
        }
    }
}

TEST(RegisterDescriptionNodes, TheEventPortOfTheDeviceComesBeforeItsOwnPort)
{
    const XmlNode root = ParseXml(CreateXmlFileDevice());
    const std::vector<Placed> ports = OfKind(root, {"Port"});
    ASSERT_EQ(ports.size(), 2u);
    EXPECT_EQ(ports[0].node->Attribute("Name"), "RemoteDeviceConnectionStatePort");
    EXPECT_EQ(ports[1].node->Attribute("Name"), "DevicePort");
}

TEST(RegisterDescriptionNodes, DisabledElementsOfTheSystemMapStayAsComments)
{
    const XmlNode root = ParseXml(CreateXmlFileSystem());
    EXPECT_EQ(Node(root, "Root").children.front().text, " Mandatory element ");
    EXPECT_THAT(Node(root, "Root").Comments(), ElementsAre("Mandatory element", "<pFeature>EventControl</pFeature>"));
    EXPECT_THAT(Node(root, "InterfaceEnumeration").Comments(),
                ElementsAre("<pFeature>InterfaceUpdateTimeout</pFeature>"));
    const Texts behind = Group(root, "SubCategories").Comments();
    ASSERT_EQ(behind.size(), 1u);
    EXPECT_EQ(behind[0].substr(0, 3), "TBD");
    const XmlNode category = ParseXml("<?xml version=\"1.0\" encoding=\"utf-8\"?>" + behind[0].substr(4));
    EXPECT_EQ(category.name, "Category");
    EXPECT_EQ(category.attributes, NameAttributes("EventControl", "Standard"));
    EXPECT_EQ(Actual(category), (Children{{"ToolTip", "(wording)"},
                                          {"Description", "(wording)"},
                                          {"DisplayName", "Event Control"},
                                          {"Visibility", "Expert"},
                                          {"ImposedAccessMode", "RO"},
                                          {"pFeature", "EventSelector"},
                                          {"pFeature", "EventNotification"},
                                          {"pFeature", "EventInterfaceListChangedData"}}));
    const Texts enumeration = Group(root, "InterfaceEnumeration").Comments();
    ASSERT_EQ(enumeration.size(), 1u);
    const XmlNode timeout = ParseXml("<?xml version=\"1.0\" encoding=\"utf-8\"?>" + enumeration[0]);
    EXPECT_EQ(timeout.name, "Integer");
    EXPECT_EQ(timeout.attributes, NameAttributes("InterfaceUpdateTimeout", "Standard"));
    EXPECT_EQ(Actual(timeout), (Children{{"ToolTip", "(wording)"},
                                         {"Description", "(wording)"},
                                         {"DisplayName", "Interface Update Timeout"},
                                         {"Visibility", "Expert"},
                                         {"ImposedAccessMode", "RW"},
                                         {"Value", "0"},
                                         {"Unit", "ms"}}));
}

TEST(RegisterDescriptionNodes, DisabledElementsOfTheInterfaceMapStayAsComments)
{
    const XmlNode root = ParseXml(CreateXmlFileInterface());
    EXPECT_THAT(Node(root, "InterfaceInformation").Comments(),
                ElementsAre("<pFeature>InterfaceDisplayName</pFeature>"));
    for (const char* name : {"DeviceTLVersionMajor", "DeviceTLVersionMinor"})
    {
        EXPECT_EQ(Node(root, name).children.front().text, " Mandatory element ") << name;
        EXPECT_EQ(Node(root, name).children.at(1).name, "ToolTip") << name;
    }
}

TEST(RegisterDescriptionNodes, DisabledElementsOfTheDeviceMapStayAsComments)
{
    const XmlNode root = ParseXml(CreateXmlFileDevice());
    const XmlNode& group = Group(root, "UpdateXML Registers");
    ASSERT_EQ(group.children.size(), 3u);
    EXPECT_EQ(group.children[0].Attribute("Name"), "UpdateXMLFile_Reg");
    EXPECT_EQ(group.children[2].Attribute("Name"), "UpdateXML_Reg");
    const XmlNode status = ParseXml("<?xml version=\"1.0\" encoding=\"utf-8\"?>" + group.Comments().at(0));
    EXPECT_EQ(status.name, "StringReg");
    EXPECT_EQ(status.Attribute("Name"), "UpdateXMLStatus_Reg");
    EXPECT_EQ(Actual(status), (Children{{"Address", "0x7051C"},
                                        {"Length", "256"},
                                        {"AccessMode", "RO"},
                                        {"pPort", "DevicePort"},
                                        {"pInvalidator", "UpdateXML_Reg"}}));
}

TEST(RegisterDescriptionNodes, DisabledElementsOfTheDataStreamMapStayAsComments)
{
    const XmlNode root = ParseXml(CreateXmlFileDataStream());
    Texts expected;
    for (const char* name : {"StreamDeliveredFrameCount", "StreamLostFrameCount", "StreamInputBufferCount",
                             "StreamOutputBufferCount", "StreamStartedFrameCount", "PayloadSize", "StreamIsGrabbing",
                             "StreamChunkCountMaximum", "StreamBufferAlignment"})
    {
        expected.push_back("<pFeature>" + std::string(name) + "</pFeature>");
    }
    EXPECT_EQ(Node(root, "BufferHandlingControl").Comments(), expected);
    const Texts disabled = Group(root, "BufferHandlingControl").Comments();
    ASSERT_EQ(disabled.size(), 1u);
    const XmlNode count = ParseXml("<?xml version=\"1.0\" encoding=\"utf-8\"?>" + disabled[0]);
    EXPECT_EQ(count.name, "Integer");
    EXPECT_EQ(count.attributes, NameAttributes("StreamDeliveredFrameCount", "Standard"));
    EXPECT_EQ(Actual(count), (Children{{"ToolTip", "(wording)"},
                                       {"Description", "(wording)"},
                                       {"DisplayName", "Stream Delivered Frame Count"},
                                       {"Visibility", "Expert"},
                                       {"pValue", "StreamDeliveredFrameCount_Reg"}}));
}

// Deliberate(RegisterWithoutAFeature)
TEST(RegisterDescriptionNodes, TheDeliveredFrameCountRegisterHasNoFeature)
{
    const XmlNode root = ParseXml(CreateXmlFileDataStream());
    EXPECT_NO_THROW(Node(root, "StreamDeliveredFrameCount_Reg"));
    EXPECT_THROW(Node(root, "StreamDeliveredFrameCount"), std::runtime_error);
}
