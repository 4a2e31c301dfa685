// SPDX-License-Identifier: Apache-2.0
// Writes the nodes of a GenICam register description.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nq::camera
{

/// Collects nodes in the order of the calls. Each feature comes with the register node that it stands on, and is listed
/// in the category that was begun last. All registers lie with the most significant byte first behind the node
/// "Device".
class GenicamWriter
{
  public:
    struct IntegerRange
    {
        std::string min = "0";
        std::string max = "4294967295";
    };

    /// Properties that a feature may have besides its value.
    struct Traits
    {
        std::string visibility = "Beginner";
        std::string access = "RW";
        /// Node that locks the feature while it is not 0; empty for none.
        std::string lockedBy;
        std::string unit;
        std::string representation;
        /// The value may change by itself.
        bool volatileValue = false;
        std::vector<std::string> invalidators;
    };

    void Category(std::string_view name);
    void Integer(std::string_view name, std::uint32_t address, const IntegerRange& range, const Traits& traits);
    void Float(std::string_view name, std::uint32_t address, std::string_view min, std::string_view max,
               const Traits& traits);
    void Enumeration(std::string_view name, std::uint32_t address,
                     const std::vector<std::pair<std::string, std::uint32_t>>& entries, const Traits& traits);
    /// An enumeration with one register per entry of the enumeration `selector`, 4 bytes apart.
    void SelectedEnumeration(std::string_view name, std::uint32_t address, std::string_view selector,
                             const std::vector<std::pair<std::string, std::uint32_t>>& entries);
    void Command(std::string_view name, std::uint32_t address, std::uint32_t value, const Traits& traits);
    void Text(std::string_view name, std::uint32_t address, std::uint32_t length, const Traits& traits);
    /// An integer for limits of others, in no category: the node `minuend` less the node `subtrahend`.
    void Difference(std::string_view name, std::string_view minuend, std::string_view subtrahend);
    /// A text that is fixed in the description.
    void Constant(std::string_view name, std::string_view value);
    /// A feature whose nodes are given as they are.
    void Raw(std::string_view name, std::string_view nodes);
    /// Names the features that the enumeration `name` selects; call before it is written.
    void Selects(std::string_view name, std::vector<std::string> features);

    /// The whole document.
    std::string Document(std::string_view vendor, std::string_view model) const;

  private:
    void List(std::string_view name);
    void Register(std::string_view kind, std::string_view name, std::uint32_t address, const Traits& traits,
                  std::string_view index, std::string_view tail);
    void EnumerationNode(std::string_view name, const std::vector<std::pair<std::string, std::uint32_t>>& entries,
                         const Traits& traits);

    std::string m_nodes;
    std::vector<std::pair<std::string, std::vector<std::string>>> m_categories;
    std::vector<std::pair<std::string, std::vector<std::string>>> m_selections;
};

} // namespace nq::camera
