// SPDX-License-Identifier: Apache-2.0
// The four register descriptions, node by node against the rows they have to contain.
#include "support/register_description.h"

#include <gmock/gmock.h>
#include <map>
#include <set>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

TEST(RegisterDescription, AllFourTextsAreWellFormed)
{
    for (const Map& map : Maps())
    {
        EXPECT_NO_THROW(ParseXml(map.create())) << map.name;
    }
}

TEST(RegisterDescription, FileNamesAreFixed)
{
    EXPECT_EQ(std::string(g_XmlFileNameSystem), "NQGenTLGev_TL_1_0_0.xml");
    EXPECT_EQ(std::string(g_XmlFileNameInterface), "NQGenTLGev_IF_1_0_0.xml");
    EXPECT_EQ(std::string(g_XmlFileNameDevice), "NQGenTLGev_DEV_1_0_0.xml");
    EXPECT_EQ(std::string(g_XmlFileNameDataStream), "NQGenTLGev_DS_1_0_0.xml");
}

TEST(RegisterDescription, EachCallGivesTheSameText)
{
    for (const Map& map : Maps())
    {
        EXPECT_EQ(map.create(), map.create()) << map.name;
    }
}

TEST(RegisterDescription, RootCarriesItsAttributesInOrder)
{
    std::set<std::string> guids;
    ForEachMap([&guids](const Map& map, const XmlNode& root) {
        EXPECT_EQ(root.name, "RegisterDescription");
        ASSERT_EQ(root.attributes.size(), 15u);
        const std::vector<std::pair<std::string, std::string>> first(root.attributes.begin(),
                                                                     root.attributes.begin() + 10);
        EXPECT_THAT(first, ElementsAre(std::pair<std::string, std::string>{"ModelName", map.rows.modelName},
                                       std::pair<std::string, std::string>{"VendorName", "Nerquil Optic"},
                                       std::pair<std::string, std::string>{"ToolTip", map.rows.toolTip},
                                       std::pair<std::string, std::string>{"StandardNameSpace", "GEV"},
                                       std::pair<std::string, std::string>{"SchemaMajorVersion", "1"},
                                       std::pair<std::string, std::string>{"SchemaMinorVersion", "1"},
                                       std::pair<std::string, std::string>{"SchemaSubMinorVersion", "0"},
                                       std::pair<std::string, std::string>{"MajorVersion", "1"},
                                       std::pair<std::string, std::string>{"MinorVersion", "0"},
                                       std::pair<std::string, std::string>{"SubMinorVersion", "0"}));
        EXPECT_EQ(root.attributes[10].first, "ProductGuid");
        EXPECT_EQ(root.attributes[11].first, "VersionGuid");
        for (const std::size_t guid : {10u, 11u})
        {
            EXPECT_THAT(root.attributes[guid].second,
                        testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
        }
        guids.insert(root.attributes[10].second + " " + root.attributes[11].second);
        EXPECT_EQ(root.attributes[12].first, "xmlns");
        EXPECT_EQ(root.attributes[12].second, "http://www.genicam.org/GenApi/Version_1_1");
        EXPECT_EQ(root.attributes[13].first, "xmlns:xsi");
        EXPECT_EQ(root.attributes[13].second, "http://www.w3.org/2001/XMLSchema-instance");
        EXPECT_EQ(root.attributes[14].first, "xsi:schemaLocation");
        EXPECT_EQ(root.attributes[14].second, "http://www.genicam.org/GenApi/Version_1_1 "
                                              "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd");
    });
    EXPECT_EQ(guids.size(), 1u) << "one pair for all four texts";
}

// Deliberate(OneCommentForThreeGroups)
TEST(RegisterDescription, GroupsStandInOrder)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        Texts groups;
        for (const XmlNode* child : root.Elements())
        {
            if (child->name == "Group")
            {
                groups.push_back(child->Attribute("Comment"));
            }
        }
        EXPECT_EQ(groups, map.rows.groups);
    });
}

TEST(RegisterDescription, CategoriesFeaturesRegistersFormulasAndPortsFollowEachOther)
{
    const std::map<std::string, int> rank = {{"Category", 0},    {"String", 1},        {"Integer", 1},
                                             {"Enumeration", 1}, {"Command", 1},       {"IntReg", 2},
                                             {"StringReg", 2},   {"IntSwissKnife", 3}, {"Port", 4}};
    ForEachMap([&rank](const Map&, const XmlNode& root) {
        int before = 0;
        for (const Placed& placed : NamedNodes(root))
        {
            const int now = rank.at(placed.node->name);
            EXPECT_LE(before, now) << placed.node->Attribute("Name");
            before = now;
        }
    });
}

TEST(RegisterDescription, ABannerWithItsTitleStandsInFrontOfMostGroups)
{
    ForEachMap([](const Map&, const XmlNode& root) {
        for (std::size_t i = 0; i < root.children.size(); ++i)
        {
            const std::string title = root.children[i].Attribute("Comment");
            if (title.empty() || title == "SubCategories")
            {
                continue;
            }
            ASSERT_GE(i, 3u) << title;
            EXPECT_THAT(root.children[i - 3].text, testing::MatchesRegex(" [*]+ ")) << title;
            EXPECT_EQ(root.children[i - 2].text, " " + title + " ");
            EXPECT_THAT(root.children[i - 1].text, testing::MatchesRegex(" [*]+ ")) << title;
        }
    });
}

TEST(RegisterDescription, PortsComeLastBehindTheirHeading)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        std::size_t port = 0;
        while (port < root.children.size() && root.children[port].name != "Port")
        {
            ++port;
        }
        ASSERT_GE(port, 2u);
        EXPECT_EQ(root.children[port - 2].text, " Register Port ");
        EXPECT_THAT(root.children[port - 1].text, testing::MatchesRegex(" =+ "));
        EXPECT_EQ(root.children.size() - port, map.rows.ports.size()) << "nothing but ports from here on";
    });
}

TEST(RegisterDescription, CategoriesMatchTheirRows)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        const std::vector<Placed> nodes = OfKind(root, {"Category"});
        ASSERT_EQ(nodes.size(), map.rows.categories.size());
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            const Texts row = Split(map.rows.categories[i], "|");
            SCOPED_TRACE(row[0]);
            EXPECT_EQ(nodes[i].group, row[0] == "Root" ? "RootCategory" : "SubCategories");
            EXPECT_EQ(nodes[i].node->attributes, NameAttributes(row[0], row[1]));
            Children expected;
            Put(expected, "ToolTip", row[0] == "Root" ? "" : "(wording)");
            Put(expected, "Description", row[0] == "Root" ? "" : "(wording)");
            Put(expected, "DisplayName", row[2]);
            Put(expected, "Visibility", row[3]);
            Put(expected, "ImposedAccessMode", "RO");
            for (const std::string& member : Split(row[4], ", "))
            {
                Put(expected, "pFeature", member);
            }
            EXPECT_EQ(Actual(*nodes[i].node), expected);
        }
    });
}

// Deliberate(TransportIsADeviceType)
TEST(RegisterDescription, FeaturesMatchTheirRows)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        std::map<std::string, Texts> entries;
        for (const std::string& row : map.rows.entries)
        {
            const Texts parts = Split(row, ": ");
            entries[parts[0]] = Split(parts[1], ", ");
        }
        const std::vector<Placed> nodes = OfKind(root, {"String", "Integer", "Enumeration", "Command", "Float"});
        ASSERT_EQ(nodes.size(), map.rows.features.size());
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            const Texts row = Split(map.rows.features[i], "|");
            SCOPED_TRACE(row[0]);
            EXPECT_EQ(nodes[i].node->name, row[1]);
            EXPECT_EQ(nodes[i].node->attributes, NameAttributes(row[0], row[2]));
            Children further = Elements(row[6]);
            Children expected = {{"ToolTip", "(wording)"}, {"Description", "(wording)"}};
            Put(expected, "DisplayName", row[3]);
            Put(expected, "Visibility", row[4]);
            TakeAll(further, "ImposedAccessMode", expected);
            TakeAll(further, "pIsAvailable", expected);
            for (const std::string& entry : entries[row[0]])
            {
                Put(expected, "EnumEntry", Split(entry, " = ")[0]);
            }
            const bool fixed = row[5].rfind("fixed ", 0) == 0;
            Put(expected, fixed ? "Value" : "pValue", fixed ? row[5].substr(6) : row[5]);
            for (const char* name : {"Min", "pMax", "Representation", "CommandValue", "pSelected"})
            {
                TakeAll(further, name, expected);
            }
            EXPECT_THAT(further, IsEmpty());
            EXPECT_EQ(Actual(*nodes[i].node), expected);
        }
    });
}

TEST(RegisterDescription, FeaturesStandInTheGroupOfTheirCategory)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        std::map<std::string, std::string> home;
        for (const std::string& row : map.rows.categories)
        {
            const Texts cells = Split(row, "|");
            for (const std::string& member : Split(cells[4], ", "))
            {
                home[member] = cells[0] == "EventRemoteDeviceConnectionStateData" ? "EventControl" : cells[0];
            }
        }
        for (const Placed& placed : OfKind(root, {"String", "Integer", "Enumeration", "Command"}))
        {
            EXPECT_EQ(placed.group, home[placed.node->Attribute("Name")]) << placed.node->Attribute("Name");
        }
    });
}

// Deliberate(FrameAbondoned)
TEST(RegisterDescription, EnumerationEntriesMatchTheirRows)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        for (const std::string& row : map.rows.entries)
        {
            const Texts parts = Split(row, ": ");
            SCOPED_TRACE(parts[0]);
            std::vector<const XmlNode*> entries = Node(root, parts[0]).Elements();
            std::erase_if(entries, [](const XmlNode* node) { return node->name != "EnumEntry"; });
            const Texts expected = Split(parts[1], ", ");
            ASSERT_EQ(entries.size(), expected.size());
            for (std::size_t i = 0; i < entries.size(); ++i)
            {
                const Texts entry = Split(expected[i], " = ");
                EXPECT_EQ(entries[i]->Attribute("Name"), entry[0]);
                Children children = Actual(*entries[i]);
                if (entry[0] == "Off" || entry[0] == "On")
                {
                    EXPECT_EQ(children, (Children{{"Description", "(wording)"}, {"Value", entry[1]}}));
                    continue;
                }
                ASSERT_EQ(children.size(), 4u);
                EXPECT_THAT(children[2].second, Not(IsEmpty()));
                children[2].second = "(any)";
                EXPECT_EQ(children, (Children{{"ToolTip", "(wording)"},
                                              {"Description", "(wording)"},
                                              {"DisplayName", "(any)"},
                                              {"Value", entry[1]}}));
            }
        }
    });
}

// Deliberate(EventRegistersAboveTheText)
TEST(RegisterDescription, RegistersMatchTheirRows)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        const std::vector<Placed> nodes = OfKind(root, {"IntReg", "StringReg"});
        std::vector<RegisterRow> rows = map.rows.registers;
        std::erase_if(rows, [](const RegisterRow& row) { return row.node.empty(); });
        ASSERT_EQ(nodes.size(), rows.size());
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            const Texts row = Split(rows[i].node, "|");
            SCOPED_TRACE(row[0]);
            char address[20];
            std::snprintf(address, sizeof address, "0x%02lX", rows[i].address);
            std::map<std::string, std::string> other;
            for (const auto& [name, value] : Elements(row[7]))
            {
                other[name] = value;
            }
            EXPECT_EQ(nodes[i].node->name, row[1]);
            EXPECT_EQ(nodes[i].node->attributes, NameAttributes(row[0], other["NameSpace"]));
            Children expected;
            Put(expected, "Visibility", other["Visibility"]);
            Put(expected, "Address", address);
            Put(expected, "Length", row[2]);
            Put(expected, "AccessMode", row[3]);
            Put(expected, "pPort", other["pPort"].empty() ? map.port : other["pPort"]);
            Put(expected, "Cachable", row[4]);
            Put(expected, "PollingTime", row[5]);
            Put(expected, "pInvalidator", row[6]);
            if (row[1] == "IntReg")
            {
                Put(expected, "Sign", "Unsigned");
                Put(expected, "Endianess", other["Endianess"].empty() ? "LittleEndian" : other["Endianess"]);
            }
            EXPECT_EQ(Actual(*nodes[i].node), expected);
            EXPECT_THAT(nodes[i].group, testing::ContainsRegex("Registers?$"));
        }
    });
}

TEST(RegisterDescription, RegistersStandInTheirGroups)
{
    const auto names = [](const XmlNode& group) {
        Texts texts;
        for (const XmlNode* node : group.Elements())
        {
            texts.push_back(node->Attribute("Name"));
        }
        return texts;
    };
    const XmlNode device = ParseXml(CreateXmlFileDevice());
    EXPECT_EQ(names(Group(device, "UpdateXML Registers")), (Texts{"UpdateXMLFile_Reg", "UpdateXML_Reg"}));
    EXPECT_EQ(names(Group(device, "StreamEnumeration Registers")),
              (Texts{"StreamSelector_Reg", "StreamID_Reg", "NrStreams_Reg"}));
    EXPECT_EQ(names(Group(device, "Event Control Registers")),
              (Texts{"EventNotification_Reg", "EventRemoteDeviceConnectionStateID_Reg",
                     "EventRemoteDeviceConnectionStateState_Reg"}));
    const XmlNode stream = ParseXml(CreateXmlFileDataStream());
    EXPECT_EQ(names(Group(stream, "EventControl Register")), (Texts{"EventSelector_reg", "EventNotification_reg"}));
    const XmlNode interface = ParseXml(CreateXmlFileInterface());
    EXPECT_EQ(names(Group(interface, "InterfaceInformation Registers")).front(), "InterfaceID_Reg");
    EXPECT_EQ(names(Group(interface, "DeviceEnumeration Registers")).front(), "DeviceID_Reg");
    const XmlNode system = ParseXml(CreateXmlFileSystem());
    EXPECT_EQ(names(Group(system, "InterfaceEnumeration Registers")).front(), "InterfaceID_Reg");
    EXPECT_EQ(names(Group(system, "SystemInformation Registers")).size(), 7u);
}

// Deliberate(FormulasOutsideGroups)
TEST(RegisterDescription, FormulasMatchTheirRows)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        const std::vector<Placed> nodes = OfKind(root, {"IntSwissKnife"});
        ASSERT_EQ(nodes.size(), map.rows.formulas.size());
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            const Texts row = Split(map.rows.formulas[i], "|");
            SCOPED_TRACE(row[0]);
            EXPECT_EQ(nodes[i].node->attributes, NameAttributes(row[0], row[1]));
            const std::vector<const XmlNode*> children = nodes[i].node->Elements();
            ASSERT_EQ(children.size(), 2u);
            const Texts variable = Split(row[2], " is ");
            EXPECT_EQ(children[0]->name, "pVariable");
            EXPECT_EQ(children[0]->attributes, NameAttributes(variable[0], ""));
            EXPECT_EQ(children[0]->Content(), variable[1]);
            EXPECT_EQ(children[1]->name, "Formula");
            ASSERT_EQ(children[1]->children.size(), 1u);
            const XmlNode& formula = children[1]->children[0];
            if (row[1] == "Custom")
            {
                EXPECT_EQ(formula.kind, XmlNode::Kind::Text);
                EXPECT_EQ(formula.text, row[3]);
                EXPECT_EQ(nodes[i].group, "") << "directly under the root";
            }
            else
            {
                EXPECT_EQ(formula.kind, XmlNode::Kind::CData);
                EXPECT_EQ(formula.text, " " + row[3] + " ");
                EXPECT_THAT(nodes[i].group, testing::EndsWith(" Formulas"));
            }
        }
    });
}

TEST(RegisterDescription, TheCustomFormulaIsWrittenWithAnEscapedGreaterThanSign)
{
    EXPECT_THAT(CreateXmlFileInterface(), testing::HasSubstr("<Formula>NRGWYS &gt; 0</Formula>"));
}

TEST(RegisterDescription, PortsMatchTheirRows)
{
    ForEachMap([](const Map& map, const XmlNode& root) {
        const std::vector<Placed> nodes = OfKind(root, {"Port"});
        ASSERT_EQ(nodes.size(), map.rows.ports.size());
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            const Texts row = Split(map.rows.ports[i], "|");
            SCOPED_TRACE(row[0]);
            EXPECT_EQ(nodes[i].node->attributes, NameAttributes(row[0], row[1]));
            Children expected;
            Put(expected, "DisplayName", row[2]);
            Put(expected, "Visibility", row[3]);
            for (const auto& [name, value] : Elements(row[4]))
            {
                Put(expected, name, value);
            }
            EXPECT_EQ(Actual(*nodes[i].node), expected);
        }
    });
}
