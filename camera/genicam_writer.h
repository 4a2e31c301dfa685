// SPDX-License-Identifier: Apache-2.0
// Writes the nodes of a GenICam register description.
#pragma once

#include "feature_table.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace nq::camera
{

/// A number that follows from a text (FNV-1a), another for each seed.
std::uint64_t Digest(std::string_view text, std::uint64_t seed);

/// Collects nodes in the order of the calls. Each feature comes with the register node that it stands on. All registers
/// lie with the most significant byte first behind the node "Device".
class GenicamWriter
{
  public:
    /// Begins a category; the features that follow are listed in it.
    void Category(std::string_view name, std::string_view tip);
    /// A row of the table, with its register and the registers of its limits.
    void Add(const Feature& feature);
    /// A feature of the current category whose nodes are given as they are.
    void Raw(std::string_view name, std::string_view nodes);
    /// Nodes in no category, given as they are.
    void Helpers(std::string_view nodes) { m_nodes += nodes; }
    /// The port through which the data of an event's packet are read.
    void EventPortNode(std::uint32_t id);
    /// A read-only number of the camera that may change at any time, in no category.
    void HelperRegister(std::string_view name, std::uint32_t address, std::string_view kind = "IntReg");

    /// The whole document. `vendor` and `model` become identifiers; its GUID follows from the text.
    std::string Document(std::string_view vendor, std::string_view model) const;

  private:
    /// One bit of such a register, counted from the lowest.
    void HelperBit(std::string_view name, std::uint32_t address, std::size_t bit);
    void List(std::string_view name);
    void Register(const Feature& feature);
    std::string ValueElements(const Feature& feature);

    std::string m_nodes;
    /// Root and the categories.
    std::string m_root;
    std::string m_categories;
};

} // namespace nq::camera
