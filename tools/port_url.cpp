// SPDX-License-Identifier: Apache-2.0
// Where a port says that its description is.
#include "port_url.h"

#include <regex>

namespace nq::tool
{

std::optional<LocalUrl> ParseLocalUrl(const std::string& url)
{
    static const std::regex kForm(
        "local:(?:///)?([^;?]+\\.(?:xml|zip));([0-9A-F]+);([0-9A-F]+)(\\?SchemaVersion=[0-9.]+)?", std::regex::icase);
    std::smatch parts;
    if (!std::regex_match(url, parts, kForm) || parts[2].length() > 16 || parts[3].length() > 16)
    {
        return std::nullopt;
    }
    return LocalUrl{parts[1], std::stoull(parts[2], nullptr, 16), std::stoull(parts[3], nullptr, 16)};
}

} // namespace nq::tool
