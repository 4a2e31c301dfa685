// SPDX-License-Identifier: Apache-2.0
// A small strict XML reader for tests. Knows what a register description uses: no document type, no own entities.
#include "support/xml_tree.h"

#include <stdexcept>
#include <string_view>

namespace nq::test
{

namespace
{

std::string Trim(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

class Reader
{
  public:
    explicit Reader(const std::string& text) : m_text(text) {}

    XmlNode Document()
    {
        Expect("<?xml version=\"1.0\" encoding=\"utf-8\"?>");
        SkipSpace();
        XmlNode root = Element();
        SkipSpace();
        if (m_at != m_text.size())
        {
            Fail("something behind the root");
        }
        return root;
    }

  private:
    [[noreturn]] void Fail(const std::string& what) const
    {
        throw std::runtime_error(what + " at byte " + std::to_string(m_at) + ": " + m_text.substr(m_at, 40));
    }

    bool Starts(std::string_view with) const { return m_text.compare(m_at, with.size(), with) == 0; }

    void Expect(std::string_view what)
    {
        if (!Starts(what))
        {
            Fail("expected " + std::string(what));
        }
        m_at += what.size();
    }

    void SkipSpace() { m_at = std::min(m_text.find_first_not_of(" \t\r\n", m_at), m_text.size()); }

    std::string UpTo(std::string_view end)
    {
        const std::size_t stop = m_text.find(end, m_at);
        if (stop == std::string::npos)
        {
            Fail("no " + std::string(end));
        }
        std::string text = m_text.substr(m_at, stop - m_at);
        m_at = stop + end.size();
        return text;
    }

    std::string Name()
    {
        const std::size_t stop =
            m_text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_:.-", m_at);
        if (stop == m_at || stop == std::string::npos)
        {
            Fail("no name");
        }
        std::string name = m_text.substr(m_at, stop - m_at);
        m_at = stop;
        return name;
    }

    std::string Resolve(const std::string& raw) const
    {
        static const std::pair<std::string_view, char> kEntities[] = {
            {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
        std::string text;
        for (std::size_t at = 0; at < raw.size();)
        {
            if (raw[at] == '<')
            {
                Fail("a bare <");
            }
            if (raw[at] != '&')
            {
                text += raw[at++];
                continue;
            }
            const std::size_t before = at;
            for (const auto& [entity, letter] : kEntities)
            {
                if (raw.compare(at, entity.size(), entity) == 0)
                {
                    text += letter;
                    at += entity.size();
                    break;
                }
            }
            if (at == before)
            {
                Fail("an unknown entity");
            }
        }
        return text;
    }

    /// True for an element that has no content.
    bool Attributes(XmlNode& node)
    {
        for (;;)
        {
            const bool spaced = std::string_view(" \t\r\n").find(m_text[m_at]) != std::string_view::npos;
            SkipSpace();
            if (Starts("/>") || Starts(">"))
            {
                const bool empty = Starts("/>");
                m_at += empty ? 2 : 1;
                return empty;
            }
            if (!spaced)
            {
                Fail("no space before an attribute");
            }
            const std::string name = Name();
            Expect("=\"");
            if (!node.Attribute(name).empty())
            {
                Fail("an attribute twice");
            }
            node.attributes.emplace_back(name, Resolve(UpTo("\"")));
        }
    }

    XmlNode Element()
    {
        XmlNode node;
        Expect("<");
        node.name = Name();
        if (Attributes(node))
        {
            return node;
        }
        while (!Starts("</"))
        {
            if (m_at >= m_text.size())
            {
                Fail("no end of " + node.name);
            }
            Child(node);
        }
        Expect("</" + node.name + ">");
        return node;
    }

    void Child(XmlNode& parent)
    {
        XmlNode child;
        if (Starts("<!--"))
        {
            m_at += 4;
            child.kind = XmlNode::Kind::Comment;
            child.text = UpTo("-->");
            if (child.text.find("--") != std::string::npos)
            {
                Fail("-- inside a comment");
            }
        }
        else if (Starts("<![CDATA["))
        {
            m_at += 9;
            child.kind = XmlNode::Kind::CData;
            child.text = UpTo("]]>");
        }
        else if (Starts("<"))
        {
            child = Element();
        }
        else
        {
            const std::size_t stop = m_text.find('<', m_at);
            if (stop == std::string::npos)
            {
                Fail("text without an end");
            }
            child.kind = XmlNode::Kind::Text;
            child.raw = m_text.substr(m_at, stop - m_at);
            child.text = Resolve(child.raw);
            m_at = stop;
            if (Trim(child.text).empty())
            {
                return;
            }
        }
        parent.children.push_back(std::move(child));
    }

    const std::string& m_text;
    std::size_t m_at = 0;
};

} // namespace

std::string XmlNode::Attribute(const std::string& attribute) const
{
    for (const auto& [key, value] : attributes)
    {
        if (key == attribute)
        {
            return value;
        }
    }
    return {};
}

std::string XmlNode::Content() const
{
    std::string content;
    for (const XmlNode& child : children)
    {
        content += child.kind == Kind::Text || child.kind == Kind::CData ? child.text : "";
    }
    return content;
}

std::vector<const XmlNode*> XmlNode::Elements() const
{
    std::vector<const XmlNode*> elements;
    for (const XmlNode& child : children)
    {
        if (child.kind == Kind::Element)
        {
            elements.push_back(&child);
        }
    }
    return elements;
}

std::vector<std::string> XmlNode::Comments() const
{
    std::vector<std::string> comments;
    for (const XmlNode& child : children)
    {
        if (child.kind == Kind::Comment)
        {
            comments.push_back(Trim(child.text));
        }
    }
    return comments;
}

XmlNode ParseXml(const std::string& text)
{
    return Reader(text).Document();
}

} // namespace nq::test
