// SPDX-License-Identifier: Apache-2.0
// From which of its addresses this machine sends to another.
#include "doctor/route.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool::doctor
{

Route RouteTo(const std::string& address)
{
    Route route;
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(3956); // of whatever service: a UDP socket that is connected sends nothing by that
    socklen_t size = sizeof place;
    const int file = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (file >= 0 && inet_pton(AF_INET, address.c_str(), &place.sin_addr) == 1 &&
        connect(file, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0 &&
        getsockname(file, reinterpret_cast<sockaddr*>(&place), &size) == 0)
    {
        route.source = ntohl(place.sin_addr.s_addr);
    }
    else
    {
        route.problem = std::generic_category().message(errno);
    }
    if (file >= 0)
    {
        close(file);
    }
    return route;
}

} // namespace nq::tool::doctor
