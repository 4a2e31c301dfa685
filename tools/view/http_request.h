// SPDX-License-Identifier: Apache-2.0
// One request of HTTP/1.1 as far as this program understands it, and nothing more of what a stranger may send.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace nq::tool::view
{

/// The largest head (request line and headers) and the largest body, in bytes.
constexpr size_t kMostHead = 16384;
constexpr size_t kMostBody = 65536;

struct HttpRequest
{
    std::string method;
    std::string path;                           ///< from the first slash to the question mark, as it was sent
    std::map<std::string, std::string> query;   ///< decoded
    std::map<std::string, std::string> headers; ///< by names in small letters
    std::string body;

    /// The header of that name in small letters; an empty text when there is none.
    std::string Header(const std::string& name) const;

    /// A whole number of the query within the limits; nothing for another text or none.
    std::optional<size_t> Number(const std::string& name, size_t most) const;
};

/// The request of a head that ends before its empty line; nothing for what is none, has a header twice, or has a body
/// of another form than a length in digits.
std::optional<HttpRequest> ParseHead(std::string_view head);

/// The length of the body that the head announces; 0 for none.
size_t BodyLength(const HttpRequest& request);

} // namespace nq::tool::view
