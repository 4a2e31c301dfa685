// SPDX-License-Identifier: Apache-2.0
// Writes the nodes of a GenICam register description.
#include "genicam_writer.h"

#include "feature_registers.h"

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace nq::camera
{

namespace
{

std::string Hex(std::uint32_t value)
{
    std::array<char, 11> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", value);
    return text.data();
}

std::string Decimal(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), value == std::floor(value) ? "%.0f" : "%.9g", value);
    return text.data();
}

std::string Escape(std::string_view text)
{
    std::string escaped;
    for (const char c : text)
    {
        switch (c)
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
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string Element(std::string_view name, std::string_view value)
{
    return "    <" + std::string(name) + ">" + Escape(value) + "</" + std::string(name) + ">\n";
}

std::string OptionalElement(std::string_view name, std::string_view value)
{
    return value.empty() ? std::string() : Element(name, value);
}

std::string Open(std::string_view kind, std::string_view name, std::string_view nameSpace = "Standard")
{
    return "  <" + std::string(kind) + " Name=\"" + std::string(name) + "\" NameSpace=\"" + std::string(nameSpace) +
           "\">\n";
}

std::string Close(std::string_view kind)
{
    return "  </" + std::string(kind) + ">\n";
}

/// "ExposureTime" becomes "Exposure Time", "GevSCPSPacketSize" "Gev SCPS Packet Size".
std::string DisplayName(std::string_view name)
{
    const auto upper = [&](std::size_t i) { return std::isupper(static_cast<unsigned char>(name[i])) != 0; };
    std::string display;
    for (std::size_t i = 0; i < name.size(); ++i)
    {
        const bool begins = i > 0 && upper(i) && (!upper(i - 1) || (i + 1 < name.size() && !upper(i + 1)));
        display += begins ? std::string(" ") + name[i] : std::string(1, name[i]);
    }
    return display;
}

std::string RegisterName(std::string_view feature)
{
    return std::string(feature) + "Reg";
}

std::string EventPort(std::uint32_t id)
{
    return "Event" + Hex(id).substr(6) + "Port";
}

/// The node that tells whether an entry is there.
std::string EntryName(const Feature& feature, const FeatureEntry& entry)
{
    return std::string(feature.name) + entry.name + "AvailableReg";
}

std::string Texts(std::string_view name, std::string_view tip, std::string_view about)
{
    const std::string more = about.empty() ? "" : ". " + std::string(about);
    return Element("ToolTip", tip) + Element("Description", std::string(tip) + more + ".") +
           Element("DisplayName", DisplayName(name));
}

// The schema fixes the order of a node's elements: texts, visibility, availability, lock, access restriction, then what
// is the node's own.
std::string Common(const Feature& feature)
{
    const auto lock = feature.lock == Lock::Streaming   ? "StreamingLock"
                      : feature.lock == Lock::Acquiring ? "AcquiringReg"
                                                        : "";
    const bool readOnly = feature.access == Access::ReadOnly && feature.kind != FeatureKind::Text;
    return Texts(feature.name, feature.tip, feature.about) + Element("Visibility", feature.visibility) +
           (feature.conditional ? Element("pIsAvailable", std::string(feature.name) + "AvailableReg") : "") +
           OptionalElement("pIsLocked", lock) + (readOnly ? Element("ImposedAccessMode", "RO") : "");
}

std::string Selected(const Feature& selector)
{
    std::string elements;
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            elements += selector.name == std::string_view(feature.selector) ? Element("pSelected", feature.name) : "";
        }
    }
    return elements;
}

const char* NodeKind(FeatureKind kind)
{
    constexpr std::array kNames{"Integer", "Float", "Enumeration", "Boolean", "Command", "StringReg"};
    return kNames[static_cast<std::size_t>(kind)];
}

/// An identifier as the schema wants it: a letter, then letters, digits and underscores.
std::string Identifier(std::string_view text)
{
    const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    std::string name = text.empty() || !isLetter(text[0]) ? "Camera_" : "";
    for (const char c : text)
    {
        name += isLetter(c) || (c >= '0' && c <= '9') ? c : '_';
    }
    return name;
}

std::string Guid(std::uint64_t high, std::uint64_t low)
{
    std::array<char, 40> text{};
    const auto part = [](std::uint64_t number, unsigned shift) {
        return static_cast<unsigned>((number >> shift) & 0xFFFF);
    };
    std::snprintf(text.data(), text.size(), "%04X%04X-%04X-%04X-%04X-%04X%04X%04X", part(high, 48), part(high, 32),
                  part(high, 16), part(high, 0), part(low, 48), part(low, 32), part(low, 16), part(low, 0));
    return text.data();
}

} // namespace

std::uint64_t Digest(std::string_view text, std::uint64_t seed)
{
    std::uint64_t digest = 0xCBF29CE484222325 ^ (seed * 0x9E3779B97F4A7C15);
    for (const char c : text)
    {
        digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    return digest;
}

void GenicamWriter::List(std::string_view name)
{
    m_categories += Element("pFeature", name);
}

void GenicamWriter::Category(std::string_view name, std::string_view tip)
{
    m_categories += m_categories.empty() ? "" : Close("Category");
    m_categories += Open("Category", name) + Texts(name, tip, "");
    m_root += Element("pFeature", name);
}

std::string GenicamWriter::ValueElements(const Feature& feature)
{
    std::string text;
    const std::string limit = std::string(feature.name) + "LimitReg";
    const std::string value = Element("pValue", RegisterName(feature.name));
    switch (feature.kind)
    {
    case FeatureKind::Integer:
    case FeatureKind::Float:
        text = value +
               (feature.steppedWidth && feature.min > 0 ? Element("pMin", "WidthStepReg")
                                                        : Element("Min", Decimal(feature.min))) +
               (feature.movingMax ? Element("pMax", limit) : Element("Max", Decimal(feature.max)));
        text += feature.steppedWidth                   ? Element("pInc", "WidthStepReg")
                : feature.kind == FeatureKind::Integer ? Element("Inc", Decimal(feature.step))
                                                       : "";
        return text + OptionalElement("Unit", feature.unit) +
               Element("Representation", *feature.representation == '\0' ? "PureNumber" : feature.representation) +
               Selected(feature);
    case FeatureKind::Enumeration:
        for (const FeatureEntry& entry : feature.entries)
        {
            text += "  " + Open("EnumEntry", entry.name) + Texts(entry.name, entry.tip, "") +
                    (feature.movingEntries ? Element("pIsAvailable", EntryName(feature, entry)) : "") +
                    Element("Value", std::to_string(entry.value)) + "  " + Close("EnumEntry");
        }
        return text + value + Selected(feature);
    case FeatureKind::Boolean:
        return value + Element("OnValue", "1") + Element("OffValue", "0");
    case FeatureKind::Command:
        return value + Element("CommandValue", std::to_string(feature.commandValue));
    case FeatureKind::Text:
        return Element("Address", Hex(feature.address)) + Element("Length", std::to_string(feature.length)) +
               Element("AccessMode", feature.access == Access::ReadOnly ? "RO" : "RW") + Element("pPort", "Device") +
               Element("Cachable", feature.access == Access::ReadOnly ? "WriteThrough" : "NoCache");
    }
    return text;
}

void GenicamWriter::Register(const Feature& feature)
{
    const bool command = feature.kind == FeatureKind::Command;
    const char* kind = feature.kind == FeatureKind::Float ? "FloatReg" : feature.IsField() ? "MaskedIntReg" : "IntReg";
    // What no write of the host alone decides is read each time.
    const bool alone = feature.polling == 0 && !command && (feature.address >= feature::kFirstFeature);
    m_nodes += Open(kind, RegisterName(feature.name), "Custom") + Element("Visibility", "Invisible") +
               Element("Address", Hex(feature.address));
    if (*feature.selector != '\0')
    {
        m_nodes += "    <pIndex Offset=\"" + std::to_string(feature.stride) + "\">" + RegisterName(feature.selector) +
                   "</pIndex>\n";
    }
    m_nodes += Element("Length", std::to_string(feature.length)) +
               Element("AccessMode", command                              ? "WO"
                                     : feature.access == Access::ReadOnly ? "RO"
                                                                          : "RW") +
               Element("pPort", feature.eventId == 0 ? "Device" : EventPort(feature.eventId)) +
               Element("Cachable", alone ? "WriteThrough" : "NoCache");
    m_nodes += feature.polling == 0 ? "" : Element("PollingTime", std::to_string(feature.polling));
    std::vector<std::string> changers = Words(feature.changedBy);
    if (alone || feature.inUserSet)
    {
        changers.insert(changers.end(), {"UserSetLoad", "DeviceReset"});
    }
    for (const std::string& name : changers)
    {
        m_nodes += Element("pInvalidator", name);
    }
    m_nodes += *feature.selector == '\0' ? "" : Element("pInvalidator", RegisterName(feature.selector));
    if (feature.IsField())
    {
        // The schema counts bits of a register with the most significant byte first from the most significant one.
        m_nodes += Element("LSB", std::to_string(feature.lastBit)) + Element("MSB", std::to_string(feature.firstBit));
    }
    m_nodes += feature.kind == FeatureKind::Float ? "" : Element("Sign", "Unsigned");
    m_nodes += Element("Endianess", "BigEndian") + Close(kind);
}

void GenicamWriter::HelperBit(std::string_view name, std::uint32_t address, std::size_t bit)
{
    const std::string place = std::to_string(31 - bit);
    m_nodes += Open("MaskedIntReg", name, "Custom") + Element("Visibility", "Invisible") +
               Element("Address", Hex(address)) + Element("Length", "4") + Element("AccessMode", "RO") +
               Element("pPort", "Device") + Element("Cachable", "NoCache") + Element("LSB", place) +
               Element("MSB", place) + Element("Sign", "Unsigned") + Element("Endianess", "BigEndian") +
               Close("MaskedIntReg");
}

void GenicamWriter::HelperRegister(std::string_view name, std::uint32_t address, std::string_view kind)
{
    m_nodes += Open(kind, name, "Custom") + Element("Visibility", "Invisible") + Element("Address", Hex(address)) +
               Element("Length", "4") + Element("AccessMode", "RO") + Element("pPort", "Device") +
               Element("Cachable", "NoCache") + (kind == "FloatReg" ? "" : Element("Sign", "Unsigned")) +
               Element("Endianess", "BigEndian") + Close(kind);
}

void GenicamWriter::Add(const Feature& feature)
{
    List(feature.name);
    const char* kind = NodeKind(feature.kind);
    m_nodes += Open(kind, feature.name) + Common(feature) + ValueElements(feature) + Close(kind);
    if (feature.kind != FeatureKind::Text)
    {
        Register(feature);
    }
    const std::string name = feature.name;
    if (feature.movingMax)
    {
        HelperRegister(name + "LimitReg", feature.address + feature::kLimitOffset,
                       feature.kind == FeatureKind::Float ? "FloatReg" : "IntReg");
    }
    for (std::size_t i = 0; feature.movingEntries && i < feature.entries.size(); ++i)
    {
        HelperBit(EntryName(feature, feature.entries[i]), feature.address + feature::kLimitOffset, i);
    }
    if (feature.conditional)
    {
        HelperRegister(name + "AvailableReg", feature.address + feature::kAvailableOffset);
    }
}

void GenicamWriter::EventPortNode(std::uint32_t id)
{
    m_nodes += Open("Port", EventPort(id)) + Element("EventID", Hex(id).substr(6)) + Close("Port");
}

void GenicamWriter::Raw(std::string_view name, std::string_view nodes)
{
    List(name);
    m_nodes += nodes;
}

std::string GenicamWriter::Document(std::string_view vendor, std::string_view model) const
{
    const std::string body = m_root + m_categories + m_nodes;
    const std::string guid = Guid(Digest(body + std::string(vendor) + "/" + std::string(model), 1), Digest(body, 2));
    const std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                             "<RegisterDescription ModelName=\"" +
                             Identifier(model) + "\" VendorName=\"" + Identifier(vendor) +
                             "\" ToolTip=\"Virtual GigE Vision camera\" StandardNameSpace=\"GEV\"\n"
                             "    SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\"\n"
                             "    MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\"\n"
                             "    ProductGuid=\"5F2A7A1C-3C0B-4B0E-9D3A-6B1D6C1F0E01\"\n"
                             "    VersionGuid=\"" +
                             guid +
                             "\"\n"
                             "    xmlns=\"http://www.genicam.org/GenApi/Version_1_1\"\n"
                             "    xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"\n"
                             "    xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1 "
                             "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd\">\n";
    return text + Open("Category", "Root") + Texts("Root", "All features", "") + m_root + Close("Category") +
           m_categories + Close("Category") + m_nodes +
           "  <Port Name=\"Device\" NameSpace=\"Standard\"/>\n</RegisterDescription>\n";
}

} // namespace nq::camera
