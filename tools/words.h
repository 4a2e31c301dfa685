// SPDX-License-Identifier: Apache-2.0
// The words on the command line: what is refused is told in our own words.
#pragma once

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <map>
#include <set>
#include <string>

namespace nq::tool
{

/// Accepts one of the names, and puts the number of its value in its place. `names` lists them for people.
template <typename Value>
CLI::Validator OneOf(const std::map<std::string, Value>& values, const std::string& names)
{
    const auto replace = [=](std::string& text) {
        const auto found = values.find(text);
        if (found == values.end())
        {
            return fmt::format("takes {}, not \"{}\"", names, text);
        }
        text = std::to_string(static_cast<int>(found->second));
        return std::string();
    };
    return {replace, names};
}

/// Accepts one of the words, as it is. `names` lists them for people.
inline CLI::Validator OneOf(const std::set<std::string>& words, const std::string& names)
{
    const auto check = [=](const std::string& text) {
        return words.contains(text) ? std::string() : fmt::format("takes {}, not \"{}\"", names, text);
    };
    return {check, names};
}

/// Refuses an empty word, as an unset variable of a script leaves it. `what` says what it should be.
inline auto NeverEmpty(const std::string& what)
{
    return [what](const std::string& text) {
        return text.empty() ? fmt::format("takes {}, not \"\"", what) : std::string();
    };
}

} // namespace nq::tool
