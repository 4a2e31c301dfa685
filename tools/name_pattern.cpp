// SPDX-License-Identifier: Apache-2.0
// Names of pictures by a pattern with {camera}, {id} and {time}.
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
    std::string complaint;
    bool changes = false;
    Replaced(pattern, [&](const std::string& word) {
        changes = changes || word == "id" || word == "time";
        if (word != "camera" && word != "id" && word != "time")
        {
            complaint = fmt::format("knows {{camera}}, {{id}} and {{time}}, not \"{{{}}}\"", word);
        }
        return std::string();
    });
    if (complaint.empty() && !changes)
    {
        complaint = "needs {id} or {time}: all pictures would have one name";
    }
    if (const size_t open = pattern.rfind('{');
        open != std::string::npos && pattern.find('}', open) == std::string::npos)
    {
        return "has a \"{\" without a \"}\"";
    }
    return pattern.find('/') == std::string::npos ? complaint : "takes a name without \"/\"; the folder is --out";
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
               : word == "id"   ? fmt::format("{:08}", fields.id)
                                : TimeText(fields.time);
    });
}

} // namespace nq::tool
