// SPDX-License-Identifier: Apache-2.0
// A small strict XML reader for tests: it keeps order, comments and CDATA marks, which the usual readers drop.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace nq::test
{

/// One element, comment, or text.
struct XmlNode
{
    enum class Kind
    {
        Element,
        Comment,
        Text,
        CData
    };

    Kind kind = Kind::Element;
    std::string name; ///< Of an element.
    std::string text; ///< Of a comment, a text or CDATA, entities resolved; texts of white space only are left out.
    std::string raw;  ///< Of a text: as written.
    std::vector<std::pair<std::string, std::string>> attributes; ///< In the order of the text.
    std::vector<XmlNode> children;

    /// Value of an attribute, empty when it is absent.
    std::string Attribute(const std::string& attribute) const;

    /// The element's text or CDATA.
    std::string Content() const;

    /// The child elements, without comments and texts.
    std::vector<const XmlNode*> Elements() const;

    /// The child comments, outer white space removed.
    std::vector<std::string> Comments() const;
};

/// Reads a document with its declaration. Throws std::runtime_error, with the place, when it is not well formed.
XmlNode ParseXml(const std::string& text);

} // namespace nq::test
