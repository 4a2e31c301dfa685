// SPDX-License-Identifier: Apache-2.0
// Where a port says that its description is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nq::tool
{

/// A URL of a file in the port's own registers: "local:name.ext;address;length", both numbers in hex.
struct LocalUrl
{
    std::string name;
    uint64_t address = 0;
    uint64_t length = 0;
};

/// Nothing for a URL of another form.
std::optional<LocalUrl> ParseLocalUrl(const std::string& url);

} // namespace nq::tool
