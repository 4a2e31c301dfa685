// SPDX-License-Identifier: Apache-2.0
// One request of HTTP/1.1, taken apart.
#include "view/http_request.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace nq::tool::view
{

namespace
{

constexpr size_t kMostDigits = 9;

std::optional<size_t> NumberFrom(std::string_view text)
{
    size_t number = 0;
    const bool digits = !text.empty() && text.size() <= kMostDigits &&
                        std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    if (!digits)
    {
        return std::nullopt;
    }
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::string_view Trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// "%41+b" is "A b".
std::string Decoded(std::string_view text)
{
    std::string decoded;
    for (size_t at = 0; at < text.size(); ++at)
    {
        unsigned byte = 0;
        const char* const digits = text.data() + at + 1;
        if (text[at] == '%' && at + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2)
        {
            decoded += static_cast<char>(byte);
            at += 2;
        }
        else
        {
            decoded += text[at] == '+' ? ' ' : text[at];
        }
    }
    return decoded;
}

std::map<std::string, std::string> QueryOf(std::string_view text)
{
    std::map<std::string, std::string> query;
    while (!text.empty())
    {
        const std::string_view one = text.substr(0, text.find('&'));
        const size_t equals = std::min(one.find('='), one.size());
        query[Decoded(one.substr(0, equals))] = Decoded(one.substr(std::min(equals + 1, one.size())));
        text.remove_prefix(std::min(one.size() + 1, text.size()));
    }
    return query;
}

/// Takes the line up to the next end of a line.
std::string_view NextLine(std::string_view& text)
{
    const size_t end = text.find("\r\n");
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
    return line;
}

bool TakeRequestLine(std::string_view line, HttpRequest& request)
{
    const size_t first = line.find(' ');
    const size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last || line.substr(last + 1, 7) != "HTTP/1.")
    {
        return false;
    }
    const std::string_view target = line.substr(first + 1, last - first - 1);
    const size_t question = target.find('?');
    request.method = line.substr(0, first);
    request.path = target.substr(0, question);
    request.query = QueryOf(question == std::string_view::npos ? "" : target.substr(question + 1));
    return request.path.starts_with("/");
}

bool TakeHeader(std::string_view line, HttpRequest& request)
{
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0 || line.find_first_of(" \t") < colon)
    {
        return false;
    }
    std::string name(line.substr(0, colon));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return request.headers.emplace(name, Trimmed(line.substr(colon + 1))).second || name == "cookie";
}

} // namespace

std::string HttpRequest::Header(const std::string& name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::optional<size_t> HttpRequest::Number(const std::string& name, size_t most) const
{
    const auto found = query.find(name);
    const std::optional<size_t> number = found == query.end() ? std::nullopt : NumberFrom(found->second);
    return number && *number <= most ? number : std::nullopt;
}

std::optional<HttpRequest> ParseHead(std::string_view head)
{
    HttpRequest request;
    if (head.find('\0') != std::string_view::npos || !TakeRequestLine(NextLine(head), request))
    {
        return std::nullopt;
    }
    while (!head.empty())
    {
        if (!TakeHeader(NextLine(head), request))
        {
            return std::nullopt;
        }
    }
    const std::string length = request.Header("content-length");
    const bool understood =
        request.headers.count("transfer-encoding") == 0 && (length.empty() || NumberFrom(length).has_value());
    return understood ? std::optional(request) : std::nullopt;
}

size_t BodyLength(const HttpRequest& request)
{
    return NumberFrom(request.Header("content-length")).value_or(0);
}

} // namespace nq::tool::view
