// SPDX-License-Identifier: Apache-2.0
// Names of pictures by a pattern with {camera}, {id} and {time}, or {file} and {id}.
#include "name_pattern.h"

#include <cctype>
#include <ctime>
#include <fmt/format.h>
#include <functional>

namespace nq::tool
{

namespace
{

/// The pattern with what `replace` makes of each {word}.
std::string Replaced(const std::string& pattern, const std::function<std::string(const std::string&)>& replace)
{
    std::string name;
    size_t at = 0;
    for (size_t open = pattern.find('{'); open != std::string::npos; open = pattern.find('{', at))
    {
        const size_t close = std::min(pattern.find('}', open), pattern.size());
        name += pattern.substr(at, open - at) + replace(pattern.substr(open + 1, close - open - 1));
        at = std::min(close + 1, pattern.size());
    }
    return name + pattern.substr(at);
}

/// The words that a pattern may have; each name is another one by `first` and by `second`.
struct Words
{
    const char* first;
    const char* second;
    const char* further; ///< null for none
    const char* known;
};

constexpr Words kOfGrab{"id", "time", "camera", "knows {camera}, {id} and {time}"};
constexpr Words kOfFiles{"file", "id", nullptr, "knows {file} and {id}"};

std::string WhyNot(const std::string& pattern, const Words& words)
{
    std::string complaint;
    bool changes = false;
    Replaced(pattern, [&](const std::string& word) {
        const bool telling = word == words.first || word == words.second;
        changes = changes || telling;
        if (!telling && (words.further == nullptr || word != words.further))
        {
            complaint = fmt::format("{}, not \"{{{}}}\"", words.known, word);
        }
        return std::string();
    });
    if (complaint.empty() && !changes)
    {
        complaint = fmt::format("needs {{{}}} or {{{}}}: all pictures would have one name", words.first, words.second);
    }
    if (const size_t open = pattern.rfind('{');
        open != std::string::npos && pattern.find('}', open) == std::string::npos)
    {
        return "has a \"{\" without a \"}\"";
    }
    return pattern.find('/') == std::string::npos ? complaint : "takes a name without \"/\"; the folder is --out";
}

} // namespace

std::string SafeName(const std::string& text)
{
    std::string safe;
    for (const char letter : text)
    {
        const bool harmless = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
                              (letter >= 'a' && letter <= 'z') || letter == '-' || letter == '_' ||
                              (letter == '.' && !safe.empty());
        safe += harmless ? letter : '_';
    }
    return safe.empty() ? "camera" : safe;
}

std::string WhyNoPattern(const std::string& pattern)
{
    return WhyNot(pattern, kOfGrab);
}

std::string WhyNoPatternOfFiles(const std::string& pattern)
{
    return WhyNot(pattern, kOfFiles);
}

std::string TimeText(std::chrono::system_clock::time_point time)
{
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = microseconds / 1'000'000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}{:02}{:02}T{:02}{:02}{:02}.{:06}Z", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                       parts.tm_hour, parts.tm_min, parts.tm_sec, microseconds % 1'000'000);
}

std::string NameBy(const std::string& pattern, const NameFields& fields)
{
    return Replaced(pattern, [&](const std::string& word) {
        return word == "camera" ? SafeName(fields.camera)
               : word == "file" ? fields.file
               : word == "id"   ? fmt::format("{:08}", fields.id)
                                : TimeText(fields.time);
    });
}

} // namespace nq::tool
