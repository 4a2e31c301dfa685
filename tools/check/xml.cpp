// SPDX-License-Identifier: Apache-2.0
// A small strict XML reader for the descriptions of registers.
#include "xml.h"

#include <cctype>
#include <fmt/format.h>
#include <stdexcept>

namespace nq::check
{

namespace
{

constexpr int kDeepest = 100;

std::string Trimmed(const std::string& text)
{
    const size_t begin = text.find_first_not_of(" \t\r\n");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

class Reader
{
  public:
    explicit Reader(std::string_view text) : m_text(text) { Skip("\xEF\xBB\xBF"); }

    Element Document()
    {
        SkipMisc();
        Element root = ReadElement(0);
        SkipMisc();
        if (m_at != m_text.size())
        {
            Fail("something stands behind the root");
        }
        return root;
    }

  private:
    [[noreturn]] void Fail(std::string_view what) const
    {
        throw std::runtime_error(fmt::format("byte {}: {}", m_at, what));
    }

    bool Skip(std::string_view text)
    {
        const bool found = m_text.substr(m_at).starts_with(text);
        m_at += found ? text.size() : 0;
        return found;
    }

    void SkipSpace()
    {
        while (m_at < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_at])) != 0)
        {
            ++m_at;
        }
    }

    std::string Until(std::string_view end)
    {
        const size_t found = m_text.find(end, m_at);
        if (found == std::string_view::npos)
        {
            Fail(fmt::format("{} is missing", end));
        }
        std::string text(m_text.substr(m_at, found - m_at));
        m_at = found + end.size();
        return text;
    }

    /// Comments, instructions and the document type, between elements.
    void SkipMisc()
    {
        for (;;)
        {
            SkipSpace();
            if (Skip("<?"))
            {
                Until("?>");
            }
            else if (Skip("<!--"))
            {
                Until("-->");
            }
            else if (Skip("<!DOCTYPE"))
            {
                Until(">");
            }
            else
            {
                return;
            }
        }
    }

    std::string Name()
    {
        const size_t begin = m_at;
        while (m_at < m_text.size() && std::string_view(" \t\r\n=/><\"'&").find(m_text[m_at]) == std::string_view::npos)
        {
            ++m_at;
        }
        if (m_at == begin)
        {
            Fail("a name is missing");
        }
        return std::string(m_text.substr(begin, m_at - begin));
    }

    std::string Resolved(const std::string& raw) const
    {
        static const std::map<std::string, std::string, std::less<>> kEntities = {
            {"lt", "<"}, {"gt", ">"}, {"amp", "&"}, {"quot", "\""}, {"apos", "'"}};
        std::string text;
        for (size_t at = 0; at < raw.size(); ++at)
        {
            const size_t end = raw.find(';', at);
            if (raw[at] != '&')
            {
                text += raw[at];
                continue;
            }
            const std::string name = end == std::string::npos ? "" : raw.substr(at + 1, end - at - 1);
            const auto known = kEntities.find(name);
            if (known == kEntities.end() && !name.starts_with('#'))
            {
                Fail("an unknown entity");
            }
            text += known == kEntities.end() ? "?" : known->second;
            at = end;
        }
        return text;
    }

    void ReadAttributes(Element& element)
    {
        for (SkipSpace(); m_at < m_text.size() && m_text[m_at] != '>' && m_text[m_at] != '/'; SkipSpace())
        {
            const std::string name = Name();
            SkipSpace();
            if (!Skip("="))
            {
                Fail("= is missing");
            }
            SkipSpace();
            const char quote = m_at < m_text.size() ? m_text[m_at] : ' ';
            if (quote != '"' && quote != '\'')
            {
                Fail("a quote is missing");
            }
            ++m_at;
            if (!element.attributes.emplace(name, Resolved(Until({&quote, 1}))).second)
            {
                Fail("an attribute comes twice");
            }
        }
    }

    Element ReadElement(int depth)
    {
        if (depth > kDeepest || !Skip("<"))
        {
            Fail("an element is missing");
        }
        Element element;
        element.name = Name();
        ReadAttributes(element);
        if (Skip("/>"))
        {
            return element;
        }
        if (!Skip(">"))
        {
            Fail("> is missing");
        }
        ReadContent(element, depth);
        return element;
    }

    void ReadContent(Element& element, int depth)
    {
        while (!Skip("</"))
        {
            if (Skip("<!--"))
            {
                Until("-->");
            }
            else if (Skip("<![CDATA["))
            {
                element.text += Until("]]>");
            }
            else if (m_at < m_text.size() && m_text[m_at] == '<')
            {
                element.children.push_back(ReadElement(depth + 1));
            }
            else
            {
                const std::string raw = Until("<");
                --m_at;
                element.text += Resolved(raw);
            }
        }
        if (Name() != element.name)
        {
            Fail(fmt::format("{} does not end", element.name));
        }
        SkipSpace();
        if (!Skip(">"))
        {
            Fail("> is missing");
        }
        element.text = Trimmed(element.text);
    }

    std::string_view m_text;
    size_t m_at = 0;
};

} // namespace

std::string Element::TextOf(std::string_view child) const
{
    for (const Element& one : children)
    {
        if (one.name == child)
        {
            return one.text;
        }
    }
    return {};
}

Element ParseXml(std::string_view text)
{
    return Reader(text).Document();
}

} // namespace nq::check
