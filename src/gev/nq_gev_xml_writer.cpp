// SPDX-License-Identifier: Apache-2.0
// Writes register descriptions; the element order of each kind of node is that of the GenApi 1.1 schema.
#include "gev/nq_gev_xml_writer.h"

#include <cstdio>
#include <utility>

namespace
{

constexpr std::string_view kIndent = "  ";
constexpr std::string_view kAsterisks = "*************************************************************";
constexpr std::string_view kEqualSigns = "=============================================================";

std::string Escape(std::string_view text)
{
    std::string escaped;
    for (const char letter : text)
    {
        switch (letter)
        {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        default:
            escaped += letter;
        }
    }
    return escaped;
}

std::string Attribute(std::string_view name, std::string_view value)
{
    return std::string(name).append("=\"").append(value).append("\"");
}

std::string AddressText(unsigned long address)
{
    char text[2 + 2 * sizeof address + 1];
    std::snprintf(text, sizeof text, "0x%02lX", address);
    return text;
}

} // namespace

NQGevXmlWriter::NQGevXmlWriter(std::string_view modelName, std::string_view toolTip, const NQGevXmlEdition& edition)
    : m_standard(edition.text == NQGevText::Standard)
{
    const std::pair<std::string_view, std::string_view> attributes[] = {
        {"ModelName", modelName},
        {"VendorName", m_standard ? "NerquilOptic" : "Nerquil Optic"}, // the schema takes no blank
        {"ToolTip", toolTip},
        {"StandardNameSpace", "GEV"},
        {"SchemaMajorVersion", "1"},
        {"SchemaMinorVersion", "1"},
        {"SchemaSubMinorVersion", "0"},
        {"MajorVersion", "1"},
        {"MinorVersion", "0"},
        {"SubMinorVersion", "0"},
        {"ProductGuid", edition.productGuid},
        {"VersionGuid", edition.versionGuid},
        {"xmlns", "http://www.genicam.org/GenApi/Version_1_1"},
        {"xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance"},
        {"xsi:schemaLocation", "http://www.genicam.org/GenApi/Version_1_1 "
                               "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd"},
    };
    Line("<?xml version=\"1.0\" encoding=\"utf-8\"?>");
    std::string root = "<RegisterDescription";
    for (const auto& [name, value] : attributes)
    {
        root += "\n  " + Attribute(name, value);
    }
    Line(root + ">");
    m_indent = kIndent;
}

void NQGevXmlWriter::BeginGroup(std::string_view comment, bool banner)
{
    if (banner)
    {
        Comment(kAsterisks);
        Comment(comment);
        Comment(kAsterisks);
    }
    Line("<Group " + Attribute("Comment", comment) + ">");
    m_indent += kIndent;
}

void NQGevXmlWriter::EndGroup()
{
    Close("Group");
}

void NQGevXmlWriter::Add(const NQGevXmlCategory& category)
{
    Open("Category", category.name, category.nameSpace);
    if (!category.openingComment.empty())
    {
        Comment(category.openingComment);
    }
    Element("ToolTip", category.toolTip);
    Element("Description", category.description.empty() ? category.toolTip : category.description);
    Element("DisplayName", category.displayName);
    Element("Visibility", category.visibility);
    Element("ImposedAccessMode", "RO");
    for (const NQGevXmlMember& member : category.members)
    {
        if (member.kind == (m_standard ? NQGevXmlMember::StatedOnly : NQGevXmlMember::StandardOnly))
        {
            continue;
        }
        if (member.kind == NQGevXmlMember::Disabled ||
            (member.kind == NQGevXmlMember::DisabledUnlessStandard && !m_standard))
        {
            Comment("<pFeature>" + std::string(member.name) + "</pFeature>");
        }
        else
        {
            Element("pFeature", member.name);
        }
    }
    Close("Category");
}

void NQGevXmlWriter::Add(const NQGevXmlFeature& feature)
{
    Open(feature.type, feature.name, feature.nameSpace);
    if (!feature.openingComment.empty())
    {
        Comment(feature.openingComment);
    }
    Element("ToolTip", feature.toolTip);
    Element("Description", feature.description.empty() ? feature.toolTip : feature.description);
    Element("DisplayName", feature.displayName);
    Element("Visibility", feature.visibility);
    Element("pIsAvailable", feature.available);
    Element("ImposedAccessMode", feature.imposedAccessMode);
    for (const NQGevXmlEnumEntry& entry : feature.entries)
    {
        Entry(entry);
    }
    Element("pValue", feature.reg);
    Element("Value", feature.fixed);
    Element("Min", feature.min);
    Element("pMax", feature.maxNode);
    Element("Unit", feature.unit);
    Element("Representation", feature.representation);
    Element("CommandValue", feature.commandValue);
    for (const std::string_view selected : feature.selected)
    {
        Element("pSelected", selected);
    }
    Close(feature.type);
}

void NQGevXmlWriter::Entry(const NQGevXmlEnumEntry& entry)
{
    Open("EnumEntry", entry.name);
    Element("ToolTip", entry.displayName.empty() ? std::string_view() : entry.description);
    Element("Description", entry.description);
    Element("DisplayName", entry.displayName);
    Element("Value", entry.value);
    Close("EnumEntry");
}

void NQGevXmlWriter::AddInteger(const NQGevXmlRegister& reg)
{
    Open("IntReg", reg.row.name, reg.nameSpace);
    RegisterHead(reg);
    Element("Sign", "Unsigned");
    Element("Endianess", reg.endianess);
    Close("IntReg");
}

void NQGevXmlWriter::AddString(const NQGevXmlRegister& reg)
{
    Open("StringReg", reg.row.name, reg.nameSpace);
    RegisterHead(reg);
    Close("StringReg");
}

void NQGevXmlWriter::RegisterHead(const NQGevXmlRegister& reg)
{
    Element("Visibility", reg.visibility);
    const NQGevPlace place = reg.row.In(m_standard ? NQGevText::Standard : NQGevText::Stated);
    Element("Address", AddressText(place.address));
    Element("Length", std::to_string(place.length));
    Element("AccessMode", place.access == NQGevAccess::ReadOnly ? "RO" : "RW");
    Element("pPort", reg.port);
    Element("Cachable", m_standard && !reg.constant ? "NoCache" : reg.cachable);
    Element("PollingTime", reg.pollingTime);
    Element("pInvalidator", reg.invalidator);
}

void NQGevXmlWriter::Add(const NQGevXmlFormula& formula)
{
    Open("IntSwissKnife", formula.name, formula.nameSpace);
    Line("<pVariable " + Attribute("Name", formula.variable) + ">" + std::string(formula.node) + "</pVariable>");
    if (formula.nameSpace.empty())
    {
        Line("<Formula><![CDATA[ " + std::string(formula.formula) + " ]]></Formula>");
    }
    else
    {
        Element("Formula", formula.formula);
    }
    Close("IntSwissKnife");
}

void NQGevXmlWriter::Disable(const NQGevXmlCategory& category, std::string_view mark)
{
    BeginDisabled(mark);
    Add(category);
    EndDisabled();
}

void NQGevXmlWriter::Disable(const NQGevXmlFeature& feature)
{
    BeginDisabled({});
    Add(feature);
    EndDisabled();
}

void NQGevXmlWriter::DisableUnlessStandard(const NQGevXmlFeature& feature)
{
    if (m_standard)
    {
        Add(feature);
    }
    else
    {
        Disable(feature);
    }
}

void NQGevXmlWriter::DisableString(const NQGevXmlRegister& reg)
{
    BeginDisabled({});
    AddString(reg);
    EndDisabled();
}

std::string NQGevXmlWriter::Finish(std::initializer_list<NQGevXmlPort> ports)
{
    Comment("Register Port");
    Comment(kEqualSigns);
    for (const NQGevXmlPort& port : ports)
    {
        Open("Port", port.name, "Standard");
        Element("DisplayName", port.displayName);
        Element("Visibility", "Invisible");
        Element("EventID", port.eventId);
        Element("ImposedAccessMode", port.imposedAccessMode);
        Close("Port");
    }
    Close("RegisterDescription");
    return std::move(m_text);
}

void NQGevXmlWriter::Line(std::string_view text)
{
    m_text.append(m_indent).append(text).append("\n");
}

void NQGevXmlWriter::Comment(std::string_view text)
{
    Line("<!-- " + std::string(text) + " -->");
}

void NQGevXmlWriter::Open(std::string_view element, std::string_view name, std::string_view nameSpace)
{
    std::string line = "<" + std::string(element) + " " + Attribute("Name", name);
    if (!nameSpace.empty())
    {
        line += " " + Attribute("NameSpace", nameSpace);
    }
    Line(line + ">");
    m_indent += kIndent;
}

void NQGevXmlWriter::Close(std::string_view element)
{
    m_indent.resize(m_indent.size() - kIndent.size());
    Line("</" + std::string(element) + ">");
}

void NQGevXmlWriter::Element(std::string_view element, std::string_view text)
{
    if (!text.empty())
    {
        const std::string name(element);
        Line("<" + name + ">" + Escape(text) + "</" + name + ">");
    }
}

void NQGevXmlWriter::BeginDisabled(std::string_view mark)
{
    Line("<!-- " + std::string(mark));
}

void NQGevXmlWriter::EndDisabled()
{
    Line("-->");
}

std::vector<NQGevXmlEnumEntry> NQGevXmlTransportEntries()
{
    return {
        {"GigEVision", "GigE Vision.", "GigE Vision", "0"},
        {"CameraLink", "Camera Link.", "Camera Link", "1"},
        {"CameraLinkHS", "Camera Link HS.", "Camera Link HS", "2"},
        {"CoaXPress", "CoaXPress.", "CoaXPress", "3"},
        {"USB3Vision", "USB3 Vision.", "USB3 Vision", "4"},
        {"Custom", "Custom transport layer.", "Custom", "5"},
    };
}

std::vector<NQGevXmlEnumEntry> NQGevXmlAccessStatusEntries()
{
    return {
        {"Unknown", "The availability of the device is not known.", "Unknown", "0"},
        {"ReadWrite", "The device is available for read and write access.", "Read Write", "1"},
        {"ReadOnly", "The device is available for read access only.", "Read Only", "2"},
        {"NoAccess", "The device is not available for access.", "No Access", "3"},
        {"Busy", "The device is busy.", "Busy", "4"},
        {"OpenReadWrite", "The device is open for read and write access.", "Open Read Write", "5"},
        {"OpenReadOnly", "The device is open for read access only.", "Open Read Only", "6"},
    };
}
