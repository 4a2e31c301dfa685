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

bool IsOwnOrigin(const HttpRequest& request)
{
    const std::string origin = request.Header("origin");
    const std::string site = request.Header("sec-fetch-site");
    const bool followed = request.method == "GET" && request.Header("sec-fetch-mode") == "navigate"; // a link to here
    return (origin.empty() || origin == "http://" + request.Header("host")) &&
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

Admission Admit(const HttpRequest& request, const std::string& token)
{
    const size_t end = request.path.find('/', 1);
    const std::string_view given = std::string_view(request.path).substr(1, end == std::string::npos ? end : end - 1);
    if (!IsSafeHost(request.Header("host")))
    {
        return {403, {}};
    }
    if (!Same(given, token) || end == std::string::npos)
    {
        return {404, {}};
    }
    if (!IsOwnOrigin(request))
    {
        return {403, {}};
    }
    return {0, request.path.substr(end + 1)};
}

} // namespace nq::tool::view
