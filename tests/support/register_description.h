// SPDX-License-Identifier: Apache-2.0
// Walks through a register description for the tests that compare it with its rows.
#pragma once

#include "gev/nq_gev_common.h"
#include "support/register_map_rows.h"
#include "support/xml_tree.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nq::test
{

using Texts = std::vector<std::string>;
using Children = std::vector<std::pair<std::string, std::string>>;

struct Map
{
    std::string name;
    std::function<std::string()> create;
    RegisterMapRows rows;
    std::string port;
};

inline Texts Split(const std::string& text, const std::string& separator)
{
    Texts parts;
    std::size_t at = 0;
    for (std::size_t stop; (stop = text.find(separator, at)) != std::string::npos; at = stop + separator.size())
    {
        parts.push_back(text.substr(at, stop - at));
    }
    parts.push_back(text.substr(at));
    return parts;
}

inline Texts List(const std::string& cell, const std::string& separator)
{
    return cell.empty() ? Texts() : Split(cell, separator);
}

/// "Name value" pairs of a cell, in the cell's order; a list of values gives a pair for each.
inline Children Elements(const std::string& cell)
{
    Children elements;
    for (const std::string& element : List(cell, "; "))
    {
        const std::size_t space = element.find(' ');
        for (const std::string& value : Split(element.substr(space + 1), ", "))
        {
            elements.emplace_back(element.substr(0, space), value);
        }
    }
    return elements;
}

inline void TakeAll(Children& from, const std::string& name, Children& to)
{
    for (const auto& element : from)
    {
        if (element.first == name)
        {
            to.push_back(element);
        }
    }
    std::erase_if(from, [&name](const auto& element) { return element.first == name; });
}

inline void Put(Children& to, const std::string& name, const std::string& text)
{
    if (!text.empty())
    {
        to.emplace_back(name, text);
    }
}

/// Child elements without their own children's texts. Wording that is free is reduced to a mark when it is there.
inline Children Actual(const XmlNode& node)
{
    Children children;
    for (const XmlNode* child : node.Elements())
    {
        const bool wording = child->name == "ToolTip" || child->name == "Description";
        const std::string content = child->name == "EnumEntry" ? child->Attribute("Name") : child->Content();
        children.emplace_back(child->name, wording && !content.empty() ? "(wording)" : content);
    }
    return children;
}

/// All nodes of the tree with a Name, in the order of the text, with the Comment of the group around each.
struct Placed
{
    const XmlNode* node;
    std::string group;
};

inline std::vector<Placed> NamedNodes(const XmlNode& root)
{
    std::vector<Placed> nodes;
    for (const XmlNode* child : root.Elements())
    {
        if (child->name != "Group")
        {
            nodes.push_back({child, ""});
            continue;
        }
        for (const XmlNode* member : child->Elements())
        {
            nodes.push_back({member, child->Attribute("Comment")});
        }
    }
    return nodes;
}

inline std::vector<Placed> OfKind(const XmlNode& root, const Texts& kinds)
{
    std::vector<Placed> nodes = NamedNodes(root);
    std::erase_if(nodes, [&kinds](const Placed& placed) {
        return std::find(kinds.begin(), kinds.end(), placed.node->name) == kinds.end();
    });
    return nodes;
}

inline const XmlNode& Node(const XmlNode& root, std::string_view name)
{
    for (const Placed& placed : NamedNodes(root))
    {
        if (placed.node->Attribute("Name") == name)
        {
            return *placed.node;
        }
    }
    throw std::runtime_error("no node " + std::string(name));
}

inline const XmlNode& Group(const XmlNode& root, std::string_view comment)
{
    for (const XmlNode* child : root.Elements())
    {
        if (child->name == "Group" && child->Attribute("Comment") == comment)
        {
            return *child;
        }
    }
    throw std::runtime_error("no group " + std::string(comment));
}

inline std::vector<std::pair<std::string, std::string>> NameAttributes(const std::string& name,
                                                                       const std::string& nameSpace)
{
    std::vector<std::pair<std::string, std::string>> attributes = {{"Name", name}};
    if (!nameSpace.empty())
    {
        attributes.emplace_back("NameSpace", nameSpace);
    }
    return attributes;
}

inline std::vector<Map> Maps()
{
    return {{"system", CreateXmlFileSystem, kSystemRows, "TLPort"},
            {"interface", CreateXmlFileInterface, kInterfaceRows, "InterfacePort"},
            {"device", CreateXmlFileDevice, kDeviceRows, "DevicePort"},
            {"data stream", CreateXmlFileDataStream, kDataStreamRows, "StreamPort"}};
}

inline void ForEachMap(const std::function<void(const Map&, const XmlNode&)>& check)
{
    for (const Map& map : Maps())
    {
        SCOPED_TRACE(map.name + " map");
        const XmlNode root = ParseXml(map.create());
        check(map, root);
    }
}

} // namespace nq::test
