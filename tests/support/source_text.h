// SPDX-License-Identifier: Apache-2.0
// The source text of the library, for tests that compare it with what is written about it.
#pragma once

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace nq::test
{

using Names = std::set<std::string>;

inline std::string TextOf(const std::filesystem::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A file of the tree.
inline std::string TextOfFile(const std::string& name)
{
    return TextOf(std::filesystem::path(NQ_SOURCE_DIR) / name);
}

/// What the group of the expression catches, wherever it fits.
inline Names All(const std::string& text, const std::string& expression)
{
    const std::regex regex(expression);
    Names names;
    for (std::sregex_iterator match(text.begin(), text.end(), regex); match != std::sregex_iterator(); ++match)
    {
        names.insert((*match)[1]);
    }
    return names;
}

inline Names Without(const Names& all, const Names& without)
{
    Names rest;
    std::set_difference(all.begin(), all.end(), without.begin(), without.end(), std::inserter(rest, rest.end()));
    return rest;
}

/// The headers and sources of a folder of the tree.
inline std::vector<std::filesystem::path> Sources(const std::string& folder = "src")
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(std::filesystem::path(NQ_SOURCE_DIR) / folder))
    {
        if (entry.path().extension() == ".h" || entry.path().extension() == ".cpp")
        {
            files.push_back(entry.path());
        }
    }
    return files;
}

struct Statement
{
    std::string code;                  ///< up to the character that ends it, literals empty, without comments
    std::vector<std::string> literals; ///< the texts in it, as they are written
};

/// The statements of `text`.
inline std::vector<Statement> StatementsOf(const std::string& text)
{
    std::vector<Statement> statements(1);
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        const char one = text[at];
        if (text.compare(at, 2, "//") == 0)
        {
            at = std::min(text.find('\n', at), text.size());
            statements.back().code += ' ';
            continue;
        }
        statements.back().code += one == '\n' ? ' ' : one;
        if (one == '"' || (one == '\'' && (at == 0 || std::isalnum(static_cast<unsigned char>(text[at - 1])) == 0)))
        {
            const std::size_t start = ++at;
            while (at < text.size() && text[at] != one)
            {
                at += text[at] == '\\' ? 2 : 1;
            }
            statements.back().code += one;
            if (one == '"')
            {
                statements.back().literals.push_back(text.substr(start, at - start));
            }
        }
        else if (one == ';' || one == '{' || one == '}')
        {
            statements.emplace_back();
        }
    }
    return statements;
}

} // namespace nq::test
