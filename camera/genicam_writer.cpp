// SPDX-License-Identifier: Apache-2.0
// Writes the nodes of a GenICam register description.
#include "genicam_writer.h"

#include <array>
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

// The schema fixes the order of a node's elements: visibility, lock, access restriction, then what is the node's own.
std::string Common(const GenicamWriter::Traits& traits)
{
    return Element("Visibility", traits.visibility) + OptionalElement("pIsLocked", traits.lockedBy) +
           (traits.access == "RO" ? Element("ImposedAccessMode", "RO") : std::string());
}

std::string RegisterName(std::string_view feature)
{
    return std::string(feature) + "Reg";
}

} // namespace

void GenicamWriter::List(std::string_view name)
{
    m_categories.back().second.emplace_back(name);
}

void GenicamWriter::Category(std::string_view name)
{
    m_categories.emplace_back(name, std::vector<std::string>());
}

void GenicamWriter::Selects(std::string_view name, std::vector<std::string> features)
{
    m_selections.emplace_back(name, std::move(features));
}

void GenicamWriter::Register(std::string_view kind, std::string_view name, std::uint32_t address, const Traits& traits,
                             std::string_view index, std::string_view tail)
{
    m_nodes += Open(kind, name, "Custom");
    m_nodes += Element("Address", Hex(address));
    m_nodes += index;
    m_nodes += Element("Length", "4");
    m_nodes += Element("AccessMode", traits.access);
    m_nodes += Element("pPort", "Device");
    m_nodes += Element("Cachable", traits.volatileValue || traits.access == "WO" ? "NoCache" : "WriteThrough");
    for (const std::string& invalidator : traits.invalidators)
    {
        m_nodes += Element("pInvalidator", invalidator);
    }
    m_nodes += tail;
    m_nodes += Close(kind);
}

void GenicamWriter::Integer(std::string_view name, std::uint32_t address, const IntegerRange& range,
                            const Traits& traits)
{
    List(name);
    m_nodes += Open("Integer", name) + Common(traits) + Element("pValue", RegisterName(name));
    const auto limit = [](std::string_view element, const std::string& value) {
        const bool isNode = value.find_first_not_of("0123456789-") != std::string::npos;
        return Element((isNode ? "p" : "") + std::string(element), value);
    };
    m_nodes += limit("Min", range.min) + limit("Max", range.max) + OptionalElement("Unit", traits.unit) +
               OptionalElement("Representation", traits.representation) + Close("Integer");
    Register("IntReg", RegisterName(name), address, traits, "",
             Element("Sign", "Unsigned") + Element("Endianess", "BigEndian"));
}

void GenicamWriter::Float(std::string_view name, std::uint32_t address, std::string_view min, std::string_view max,
                          const Traits& traits)
{
    List(name);
    m_nodes += Open("Float", name) + Common(traits) + Element("pValue", RegisterName(name)) + Element("Min", min) +
               Element("Max", max) + OptionalElement("Unit", traits.unit) +
               OptionalElement("Representation", traits.representation) + Close("Float");
    Register("FloatReg", RegisterName(name), address, traits, "", Element("Endianess", "BigEndian"));
}

void GenicamWriter::EnumerationNode(std::string_view name,
                                    const std::vector<std::pair<std::string, std::uint32_t>>& entries,
                                    const Traits& traits)
{
    List(name);
    m_nodes += Open("Enumeration", name) + Common(traits);
    for (const auto& [entry, value] : entries)
    {
        m_nodes += "  " + Open("EnumEntry", entry) + "  " + Element("Value", std::to_string(value)) + "  " +
                   Close("EnumEntry");
    }
    m_nodes += Element("pValue", RegisterName(name));
    for (const auto& [selector, features] : m_selections)
    {
        for (const std::string& feature : features)
        {
            m_nodes += selector == name ? Element("pSelected", feature) : std::string();
        }
    }
    m_nodes += Close("Enumeration");
}

void GenicamWriter::Enumeration(std::string_view name, std::uint32_t address,
                                const std::vector<std::pair<std::string, std::uint32_t>>& entries, const Traits& traits)
{
    EnumerationNode(name, entries, traits);
    Register("IntReg", RegisterName(name), address, traits, "",
             Element("Sign", "Unsigned") + Element("Endianess", "BigEndian"));
}

void GenicamWriter::SelectedEnumeration(std::string_view name, std::uint32_t address, std::string_view selector,
                                        const std::vector<std::pair<std::string, std::uint32_t>>& entries)
{
    EnumerationNode(name, entries, {});
    Traits traits;
    traits.invalidators = {RegisterName(selector)};
    Register("IntReg", RegisterName(name), address, traits,
             "    <pIndex Offset=\"4\">" + RegisterName(selector) + "</pIndex>\n",
             Element("Sign", "Unsigned") + Element("Endianess", "BigEndian"));
}

void GenicamWriter::Command(std::string_view name, std::uint32_t address, std::uint32_t value, const Traits& traits)
{
    List(name);
    m_nodes += Open("Command", name) + Element("Visibility", traits.visibility) +
               Element("pValue", RegisterName(name)) + Element("CommandValue", std::to_string(value)) +
               Close("Command");
    Traits writeOnly;
    writeOnly.access = "WO";
    Register("IntReg", RegisterName(name), address, writeOnly, "",
             Element("Sign", "Unsigned") + Element("Endianess", "BigEndian"));
}

void GenicamWriter::Text(std::string_view name, std::uint32_t address, std::uint32_t length, const Traits& traits)
{
    List(name);
    m_nodes += Open("StringReg", name) + Element("Visibility", traits.visibility) + Element("Address", Hex(address)) +
               Element("Length", std::to_string(length)) + Element("AccessMode", traits.access) +
               Element("pPort", "Device") + Element("Cachable", "NoCache") + Close("StringReg");
}

void GenicamWriter::Difference(std::string_view name, std::string_view minuend, std::string_view subtrahend)
{
    const auto variable = [](std::string_view symbol, std::string_view node) {
        return "    <pVariable Name=\"" + std::string(symbol) + "\">" + std::string(node) + "</pVariable>\n";
    };
    m_nodes += Open("IntSwissKnife", name, "Custom") + Element("Visibility", "Invisible") + variable("ALL", minuend) +
               variable("USED", subtrahend) + Element("Formula", "ALL - USED") + Close("IntSwissKnife");
}

void GenicamWriter::Constant(std::string_view name, std::string_view value)
{
    List(name);
    m_nodes += Open("String", name) + Element("Visibility", "Beginner") + Element("ImposedAccessMode", "RO") +
               Element("Value", value) + Close("String");
}

void GenicamWriter::Raw(std::string_view name, std::string_view nodes)
{
    List(name);
    m_nodes += nodes;
}

std::string GenicamWriter::Document(std::string_view vendor, std::string_view model) const
{
    const auto nameLike = [](std::string_view text) {
        std::string name;
        for (const char c : text)
        {
            const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
            name += plain ? c : '_';
        }
        return name.empty() ? std::string("Camera") : name;
    };
    std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                       "<RegisterDescription ModelName=\"" +
                       nameLike(model) + "\" VendorName=\"" + nameLike(vendor) +
                       "\" ToolTip=\"Virtual GigE Vision camera\" StandardNameSpace=\"GEV\"\n"
                       "    SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\"\n"
                       "    MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\"\n"
                       "    ProductGuid=\"5F2A7A1C-3C0B-4B0E-9D3A-6B1D6C1F0E01\"\n"
                       "    VersionGuid=\"5F2A7A1C-3C0B-4B0E-9D3A-6B1D6C1F0E02\"\n"
                       "    xmlns=\"http://www.genicam.org/GenApi/Version_1_1\"\n"
                       "    xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"\n"
                       "    xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1 "
                       "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd\">\n";
    text += Open("Category", "Root");
    for (const auto& [category, features] : m_categories)
    {
        text += Element("pFeature", category);
    }
    text += Close("Category");
    for (const auto& [category, features] : m_categories)
    {
        text += Open("Category", category);
        for (const std::string& feature : features)
        {
            text += Element("pFeature", feature);
        }
        text += Close("Category");
    }
    return text + m_nodes + "  <Port Name=\"Device\" NameSpace=\"Standard\"/>\n</RegisterDescription>\n";
}

} // namespace nq::camera
