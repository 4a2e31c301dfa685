// SPDX-License-Identifier: Apache-2.0
// A host that knows the camera's features by the names of its register description.
#pragma once

#include "camera/raw_host.h"
#include "support/xml_tree.h"

#include <bit>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace nq::test
{

/// Where a description lies, as its URL says.
struct DescriptionUrl
{
    std::string file;
    std::uint32_t address = 0;
    std::uint32_t size = 0;
};

inline DescriptionUrl ReadUrl(const RawHost& host, std::uint32_t address)
{
    const Octets bytes = host.ReadMemory(address, 512);
    const std::string text(reinterpret_cast<const char*>(bytes.data()));
    if (!text.starts_with("Local:"))
    {
        throw std::runtime_error("no local URL: " + text);
    }
    const std::size_t first = text.find(';');
    const std::size_t second = text.find(';', first + 1);
    return {text.substr(6, first - 6),
            static_cast<std::uint32_t>(std::stoul(text.substr(first + 1, second - first - 1), nullptr, 16)),
            static_cast<std::uint32_t>(std::stoul(text.substr(second + 1), nullptr, 16))};
}

inline std::string ReadDescription(const RawHost& host)
{
    const DescriptionUrl url = ReadUrl(host, 0x0200);
    const Octets bytes = host.ReadMemory(url.address, url.size);
    return {bytes.begin(), bytes.end()};
}

/// The text of the first child of that name, empty for none.
inline std::string ChildText(const XmlNode& node, const std::string& name)
{
    for (const XmlNode* child : node.Elements())
    {
        if (child->name == name)
        {
            return child->Content();
        }
    }
    return {};
}

/// Takes control and reads the description. Numbers are those of the registers, with the most significant byte first.
/// Throws std::out_of_range for a name that the description does not have.
class FeatureHost : public RawHost
{
  public:
    FeatureHost() : m_root(ParseXml(ReadDescription(*this)))
    {
        KeepControl();
        for (const XmlNode* node : m_root.Elements())
        {
            m_nodes[node->Attribute("Name")] = node;
        }
    }

    const XmlNode& Root() const { return m_root; }
    const XmlNode& Node(const std::string& name) const { return *m_nodes.at(name); }
    const std::map<std::string, const XmlNode*>& Nodes() const { return m_nodes; }

    /// The names that the categories list.
    std::vector<std::string> Features() const
    {
        std::vector<std::string> names;
        for (const XmlNode* node : m_root.Elements())
        {
            for (const XmlNode* child : node->Elements())
            {
                if (node->name == "Category" && node->Attribute("Name") != "Root" && child->name == "pFeature")
                {
                    names.push_back(child->Content());
                }
            }
        }
        return names;
    }

    /// The value of a feature with a number, whatever its kind.
    double Get(const std::string& name) const
    {
        const XmlNode& node = Node(name);
        const std::string reg = ChildText(node, "pValue");
        if (!reg.empty())
        {
            return Get(reg);
        }
        const std::string address = ChildText(node, "Address");
        if (address.empty())
        {
            return std::stod(ChildText(node, "Value"));
        }
        const std::uint32_t value = ReadField(node);
        return node.name == "FloatReg" ? static_cast<double>(std::bit_cast<float>(value)) : static_cast<double>(value);
    }

    /// The name of the entry that an enumeration stands at.
    std::string Entry(const std::string& name) const
    {
        for (const auto& [entry, value] : Entries(name))
        {
            if (value == Get(name))
            {
                return entry;
            }
        }
        return "none";
    }

    std::map<std::string, std::uint32_t> Entries(const std::string& name) const
    {
        std::map<std::string, std::uint32_t> entries;
        for (const XmlNode* child : Node(name).Elements())
        {
            if (child->name == "EnumEntry")
            {
                entries[child->Attribute("Name")] = static_cast<std::uint32_t>(std::stoul(ChildText(*child, "Value")));
            }
        }
        return entries;
    }

    /// The status of writing a feature: 0 when the camera takes the value.
    unsigned Set(const std::string& name, double value)
    {
        const XmlNode& reg = Node(ChildText(Node(name), "pValue"));
        const std::uint32_t number = reg.name == "FloatReg" ? std::bit_cast<std::uint32_t>(static_cast<float>(value))
                                                            : static_cast<std::uint32_t>(value);
        const std::uint32_t address = Address(reg);
        const auto [shift, mask] = Field(reg);
        const std::uint32_t rest = ~mask == 0 ? 0 : Read(address) & ~mask;
        return Write(++m_id, address, rest | ((number << shift) & mask));
    }
    unsigned Set(const std::string& name, const std::string& entry) { return Set(name, Entries(name).at(entry)); }
    unsigned Execute(const std::string& name) { return Set(name, std::stod(ChildText(Node(name), "CommandValue"))); }

    /// "Min", "Max" or "Inc" of a number.
    double Limit(const std::string& name, const std::string& which) const
    {
        const std::string fixed = ChildText(Node(name), which);
        return fixed.empty() ? Get(ChildText(Node(name), "p" + which)) : std::stod(fixed);
    }

    bool IsAvailable(const std::string& name) const
    {
        const std::string reg = ChildText(Node(name), "pIsAvailable");
        return reg.empty() || Get(reg) != 0;
    }

    bool IsEntryAvailable(const std::string& name, const std::string& entry) const
    {
        for (const XmlNode* child : Node(name).Elements())
        {
            const std::string reg = ChildText(*child, "pIsAvailable");
            if (child->name == "EnumEntry" && child->Attribute("Name") == entry)
            {
                return reg.empty() || Get(reg) != 0;
            }
        }
        throw std::out_of_range("there is no entry " + entry);
    }

    /// Whether the camera locks the feature; what the host adds to it is not looked at.
    bool IsLocked(const std::string& name) const
    {
        const std::string lock = ChildText(Node(name), "pIsLocked");
        return !lock.empty() && Get(lock == "StreamingLock" ? "StreamingReg" : lock) != 0;
    }

    bool IsWritable(const std::string& name) const
    {
        return ChildText(Node(name), "ImposedAccessMode") != "RO" && ChildText(Node(name), "AccessMode") != "RO" &&
               IsAvailable(name) && !IsLocked(name);
    }

  private:
    struct Bits
    {
        unsigned shift;
        std::uint32_t mask;
    };

    static Bits Field(const XmlNode& reg)
    {
        if (reg.name != "MaskedIntReg")
        {
            return {0, 0xFFFFFFFF};
        }
        const auto bit = [&](const char* which) { return static_cast<unsigned>(std::stoul(ChildText(reg, which))); };
        const unsigned low = 31 - bit("LSB");
        const unsigned high = 31 - bit("MSB");
        return {low, static_cast<std::uint32_t>(((std::uint64_t{1} << (high + 1)) - 1) & ~((1ULL << low) - 1))};
    }

    std::uint32_t Address(const XmlNode& reg) const
    {
        const auto address = static_cast<std::uint32_t>(std::stoul(ChildText(reg, "Address"), nullptr, 16));
        const std::string index = ChildText(reg, "pIndex");
        std::uint32_t stride = 0;
        for (const XmlNode* child : reg.Elements())
        {
            stride =
                child->name == "pIndex" ? static_cast<std::uint32_t>(std::stoul(child->Attribute("Offset"))) : stride;
        }
        return address + (index.empty() ? 0 : stride * static_cast<std::uint32_t>(Get(index)));
    }

    std::uint32_t ReadField(const XmlNode& reg) const
    {
        const std::uint32_t last = Address(reg) + static_cast<std::uint32_t>(std::stoul(ChildText(reg, "Length"))) - 4;
        const auto [shift, mask] = Field(reg);
        return (Read(last) & mask) >> shift;
    }

    XmlNode m_root;
    std::map<std::string, const XmlNode*> m_nodes;
    std::uint16_t m_id = 0x1000;
};

} // namespace nq::test
