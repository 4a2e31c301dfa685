// SPDX-License-Identifier: Apache-2.0
// Writes register descriptions of GenApi schema 1.1 from tables, so that the element order stands in one place.
#pragma once

#include "gev/nq_gev_register_map.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// A category member; a disabled one stays in the text as a comment. Some differ between
/// the library's own text and the standard's.
struct NQGevXmlMember
{
    enum Kind
    {
        Enabled,
        Disabled,
        DisabledUnlessStandard,
        StatedOnly,
        StandardOnly,
    };

    // Not explicit: a list of members reads as a list of names.
    NQGevXmlMember(const char* memberName, Kind memberKind = Enabled) : name(memberName), kind(memberKind) {}

    std::string_view name;
    Kind kind;
};

// In all records an empty text means that the element or attribute is absent, but for an empty description, which
// stands for the tool tip.

struct NQGevXmlCategory
{
    std::string_view name;
    std::string_view nameSpace = {};
    std::string_view toolTip = {};
    std::string_view description = {};
    std::string_view displayName = {};
    std::string_view visibility = {};
    std::vector<NQGevXmlMember> members = {};
    std::string_view openingComment = {};
};

struct NQGevXmlEnumEntry
{
    std::string_view name;
    std::string_view description;
    std::string_view displayName; ///< Written with a ToolTip that equals the description, or not at all when empty.
    std::string_view value;
};

struct NQGevXmlFeature
{
    std::string_view type; ///< The element: String, Integer, Enumeration or Command.
    std::string_view name;
    std::string_view nameSpace = {};
    std::string_view toolTip = {};
    std::string_view description = {};
    std::string_view displayName = {};
    std::string_view visibility = {};
    std::string_view imposedAccessMode = {};
    std::string_view available = {}; ///< Node that tells whether the feature is available.
    std::vector<NQGevXmlEnumEntry> entries = {};
    std::string_view reg = {};   ///< Node that holds the value,
    std::string_view fixed = {}; ///< or the value itself.
    std::string_view min = {};
    std::string_view maxNode = {};
    std::string_view unit = {};
    std::string_view representation = {};
    std::string_view commandValue = {};
    std::vector<std::string_view> selected = {};
    std::string_view openingComment = {};
};

/// A register is not cached in the standard's text unless its value never changes; the library's own follows
/// `cachable`.
struct NQGevXmlRegister
{
    const NQGevRegister& row; ///< Its name, address, length and access.
    std::string_view port;
    std::string_view nameSpace = {};
    std::string_view visibility = {};
    std::string_view cachable = {};
    std::string_view pollingTime = {};
    std::string_view invalidator = {};
    std::string_view endianess = "LittleEndian"; ///< Integers only.
    bool constant = false;                       ///< Never changes while the library is loaded.
};

struct NQGevXmlFormula
{
    std::string_view name;
    std::string_view nameSpace; ///< A formula with a name space is written escaped, one without as CDATA.
    std::string_view variable;
    std::string_view node; ///< The node that the variable stands for.
    std::string_view formula;
};

struct NQGevXmlPort
{
    std::string_view name;
    std::string_view displayName = {};
    std::string_view eventId = {};
    std::string_view imposedAccessMode = {};
};

/// Which of a module's texts is made, and what tells it from the others of the library.
struct NQGevXmlEdition
{
    NQGevText text = NQGevText::Stated;
    std::string_view productGuid = "5D0E3B0C-7C5A-4B0E-9A53-2F6D41C8B7E1"; // One pair for the library's own four texts:
    std::string_view versionGuid = "A8F1C2D4-63B7-4E29-8D10-7B95E0F3246C"; // they are versioned together.
};

/// One register description in the making. Call the operations in the order of the text, then Finish() once. Reentrant.
class NQGevXmlWriter
{
  public:
    /// Begins the text with the declaration and the root element.
    NQGevXmlWriter(std::string_view modelName, std::string_view toolTip, const NQGevXmlEdition& edition = {});

    bool IsStandard() const { return m_standard; }

    /// Opens a group; every element until EndGroup() belongs to it. A banner with the comment as its title goes first,
    /// unless `banner` is false.
    void BeginGroup(std::string_view comment, bool banner = true);
    void EndGroup();

    void Add(const NQGevXmlCategory& category);
    void Add(const NQGevXmlFeature& feature);
    void Add(const NQGevXmlFormula& formula);
    void AddInteger(const NQGevXmlRegister& reg);
    void AddString(const NQGevXmlRegister& reg);

    /// The element is kept as a comment that begins with `mark`.
    void Disable(const NQGevXmlCategory& category, std::string_view mark);
    void Disable(const NQGevXmlFeature& feature);
    void DisableUnlessStandard(const NQGevXmlFeature& feature);
    void DisableString(const NQGevXmlRegister& reg);

    /// Writes the ports behind their heading, closes the root and gives the text away.
    std::string Finish(std::initializer_list<NQGevXmlPort> ports);

  private:
    void Line(std::string_view text);
    void Comment(std::string_view text);
    void Open(std::string_view element, std::string_view name, std::string_view nameSpace = {});
    void Close(std::string_view element);
    void Element(std::string_view element, std::string_view text);
    void Entry(const NQGevXmlEnumEntry& entry);
    void RegisterHead(const NQGevXmlRegister& reg);
    void BeginDisabled(std::string_view mark);
    void EndDisabled();

    bool m_standard;
    std::string m_text;
    std::string m_indent;
};

/// The entries of TLType, InterfaceType, DeviceType and StreamType.
std::vector<NQGevXmlEnumEntry> NQGevXmlTransportEntries();

/// The entries of DeviceAccessStatus.
std::vector<NQGevXmlEnumEntry> NQGevXmlAccessStatusEntries();
