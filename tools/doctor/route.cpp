// SPDX-License-Identifier: Apache-2.0
// By which adapter, and from which of its addresses, this machine sends to another.
#include "doctor/route.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

/// A question about the route to one address.
struct Question
{
    nlmsghdr header{};
    rtmsg route{};
    rtattr attribute{};
    in_addr address{};
};
static_assert(sizeof(Question) == NLMSG_LENGTH(sizeof(rtmsg)) + RTA_LENGTH(sizeof(in_addr)));

template <class Piece>
std::optional<Piece> PieceAt(std::string_view bytes, size_t at)
{
    Piece piece;
    if (at > bytes.size() || bytes.size() - at < sizeof piece)
    {
        return std::nullopt;
    }
    std::memcpy(&piece, bytes.data() + at, sizeof piece);
    return piece;
}

/// The adapter of the answer, which is that of a route to another host.
std::string AdapterIn(std::string_view answer)
{
    constexpr size_t kRoute = NLMSG_LENGTH(0);
    const auto header = PieceAt<nlmsghdr>(answer, 0);
    const auto route = PieceAt<rtmsg>(answer, kRoute);
    if (!header || header->nlmsg_type != RTM_NEWROUTE || !route || route->rtm_type == RTN_LOCAL)
    {
        return {};
    }
    size_t at = kRoute + NLMSG_ALIGN(sizeof(rtmsg));
    for (auto one = PieceAt<rtattr>(answer, at); one && one->rta_len >= sizeof *one; one = PieceAt<rtattr>(answer, at))
    {
        const auto index = PieceAt<uint32_t>(answer, at + RTA_LENGTH(0));
        if (one->rta_type == RTA_OIF && index)
        {
            char name[IF_NAMESIZE] = {};
            return if_indextoname(*index, name) == nullptr ? "" : name;
        }
        at += RTA_ALIGN(one->rta_len);
    }
    return {};
}

/// An address alone does not tell it: a tunnel may have none, and lends that of another adapter.
std::string AdapterTo(in_addr address)
{
    Question question;
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = RTM_GETROUTE;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.route.rtm_family = AF_INET;
    question.route.rtm_dst_len = 32;
    question.attribute.rta_len = RTA_LENGTH(sizeof address);
    question.attribute.rta_type = RTA_DST;
    question.address = address;
    const int file = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    char answer[4096];
    ssize_t size = -1;
    if (file >= 0 && send(file, &question, sizeof question, 0) == static_cast<ssize_t>(sizeof question))
    {
        size = recv(file, answer, sizeof answer, MSG_DONTWAIT); // the kernel has answered before send() returns
    }
    if (file >= 0)
    {
        close(file);
    }
    return size >= 0 ? AdapterIn({answer, static_cast<size_t>(size)}) : "";
}

} // namespace

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
        in_addr to{};
        inet_pton(AF_INET, address.c_str(), &to);
        route.adapter = AdapterTo(to);
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
