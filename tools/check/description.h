// SPDX-License-Identifier: Apache-2.0
// The description behind a port: its URL, its bytes, its nodes, and the registers that features lie in.
#pragma once

#include "port_url.h"
#include "tree.h"
#include "xml.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nq::check
{

using tool::ParseLocalUrl;

/// The first URL of a port, as GCGetPortURLInfo tells it; nothing when the call fails.
std::optional<std::string> FirstUrl(Context& context, GenTL::PORT_HANDLE port);

/// Bytes of a port, in one call. Nothing when it fails or moves fewer.
std::optional<std::string> ReadBytes(Context& context, GenTL::PORT_HANDLE port, uint64_t address, size_t size);

/// The XML of a file, which may be in a zip. Throws std::runtime_error when the zip is broken.
std::string Unzipped(const std::string& file);

/// Where a number lies.
struct Register
{
    uint64_t address = 0;
    size_t length = 0;
    bool bigEndian = false;
};

/// The nodes of a description by name.
class Description
{
  public:
    /// Throws std::runtime_error when the text is not well formed.
    explicit Description(std::string_view xml);

    const std::vector<const Element*>& Nodes() const { return m_nodes; }
    const Element* Find(const std::string& name) const;

    /// The register that a feature's value lies in, through the nodes that it points at; nothing when there is none
    /// with a fixed address.
    std::optional<Register> RegisterOf(const std::string& feature) const;

    /// The same for a feature that is a text.
    std::optional<Register> TextRegisterOf(const std::string& feature) const;

  private:
    const Element* EndOf(const std::string& feature, std::initializer_list<std::string_view> kinds) const;
    void Collect(const Element& element);

    Element m_root;
    std::vector<const Element*> m_nodes; ///< with a name, in order
    std::map<std::string, const Element*> m_byName;
};

/// The first description of a port. Throws RuleEnded (not tried) where there is no local one, or it cannot be read.
Description DescriptionOf(Context& context, GenTL::PORT_HANDLE port);

/// Executes a command of the remote device. False when it has none of the name.
bool ExecuteCommand(Context& context, GenTL::PORT_HANDLE port, const Description& description, const std::string& name);

/// Writes a number to a feature's register. False when there is none, or the write fails.
bool WriteFeature(Context& context, GenTL::PORT_HANDLE port, const Description& description, const std::string& name,
                  uint64_t value);

/// The text in a feature's register; nothing when there is none.
std::optional<std::string> ReadText(Context& context, GenTL::PORT_HANDLE port, const Description& description,
                                    const std::string& name);

/// The number in a feature's register; nothing when there is none.
std::optional<uint64_t> ReadFeature(Context& context, GenTL::PORT_HANDLE port, const Description& description,
                                    const std::string& name);

/// A whole number of a description, decimal or hex.
std::optional<uint64_t> ToNumber(const std::string& text);

} // namespace nq::check
