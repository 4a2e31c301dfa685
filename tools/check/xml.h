// SPDX-License-Identifier: Apache-2.0
// A small strict XML reader for the descriptions of registers.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace nq::check
{

/// One element.
struct Element
{
    std::string name;
    std::string text; ///< outer white space removed
    std::map<std::string, std::string> attributes;
    std::vector<Element> children;

    /// The text of the first child of that name, empty when there is none.
    std::string TextOf(std::string_view child) const;
};

/// The root of a document. Throws std::runtime_error with the place when it is not well formed.
Element ParseXml(std::string_view text);

} // namespace nq::check
