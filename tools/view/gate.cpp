// SPDX-License-Identifier: Apache-2.0
// Who may ask: whoever knows the token, from a page that this program served.
#include "view/gate.h"

#include "exit_codes.h"
#include "feature_text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <sys/random.h>

namespace nq::tool::view
{

namespace
{

/// Takes as long for a text that differs in its first letter as for one that differs in its last.
bool Same(std::string_view one, std::string_view other)
{
    unsigned difference = one.size() == other.size() ? 0 : 1;
    for (size_t at = 0; at < other.size(); ++at)
    {
        difference |=
            static_cast<unsigned char>(one.empty() ? 0 : one[at % one.size()]) ^ static_cast<unsigned char>(other[at]);
    }
    return difference == 0;
}

/// An address or "localhost", with or without a port.
bool IsSafeHost(const std::string& host)
{
    const std::string name = host.substr(0, host.rfind(':'));
    in_addr address{};
    return name == "localhost" || inet_pton(AF_INET, name.c_str(), &address) == 1;
}

bool IsOwnOrigin(const httplib::Request& request)
{
    const std::string origin = request.get_header_value("Origin");
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    const bool followed =
        request.method == "GET" && request.get_header_value("Sec-Fetch-Mode") == "navigate"; // a link to here
    return (origin.empty() || origin == "http://" + request.get_header_value("Host")) &&
           (site.empty() || site == "same-origin" || site == "none" || followed);
}

} // namespace

std::string NewToken()
{
    char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
    {
        throw ToolFailure(ExitCode::Failure, "the kernel gives no random numbers for the token");
    }
    return HexBytes({bytes, sizeof bytes});
}

Admission Admit(const httplib::Request& request, const std::string& token)
{
    const std::string path = request.target.substr(0, request.target.find('?')); // as it was sent, nothing decoded
    const size_t end = path.find('/', 1);
    const std::string given = path.substr(std::min<size_t>(1, path.size()), end == std::string::npos ? end : end - 1);
    if (request.get_header_value_count("Host") != 1 || !IsSafeHost(request.get_header_value("Host")))
    {
        return {403, {}};
    }
    if (!path.starts_with('/') || !Same(given, token) || end == std::string::npos)
    {
        return {404, {}};
    }
    if (!IsOwnOrigin(request))
    {
        return {403, {}};
    }
    return {0, path.substr(end + 1)};
}

} // namespace nq::tool::view
