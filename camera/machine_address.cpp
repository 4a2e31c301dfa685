// SPDX-License-Identifier: Apache-2.0
// An address of this machine that a camera brings along.
#include "machine_address.h"

#include "udp_socket.h"

#include <arpa/inet.h>
#include <bit>
#include <cerrno>
#include <exception>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <system_error>
#include <vector>

namespace nq::camera
{

namespace
{

/// One attribute of a request, as it lies in memory.
struct AddressAttribute
{
    rtattr head{.rta_len = sizeof(rtattr) + sizeof(in_addr), .rta_type = 0};
    in_addr address{};
};

struct AddressRequest
{
    nlmsghdr head{};
    ifaddrmsg body{};
    AddressAttribute local;
    AddressAttribute peer;
};

/// What the kernel says to a request; 0 when it was executed.
int Ask(std::uint16_t kind, std::uint16_t flags, const LocalInterface& network)
{
    AddressRequest request;
    request.head.nlmsg_len = sizeof(request);
    request.head.nlmsg_type = kind;
    request.head.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    request.body.ifa_family = AF_INET;
    request.body.ifa_prefixlen = static_cast<unsigned char>(std::popcount(network.netmask));
    request.body.ifa_index = static_cast<unsigned>(network.index);
    request.local.head.rta_type = IFA_LOCAL;
    request.local.address.s_addr = htonl(network.address);
    request.peer.head.rta_type = IFA_ADDRESS;
    request.peer.address = request.local.address;
    const UniqueFd channel(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    struct
    {
        nlmsghdr head;
        nlmsgerr error;
        AddressRequest request;
    } answer{};
    if (channel.Get() < 0 || send(channel.Get(), &request, sizeof(request), 0) != sizeof(request) ||
        recv(channel.Get(), &answer, sizeof(answer), 0) < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(nlmsgerr))))
    {
        return errno == 0 ? EIO : errno;
    }
    return answer.head.nlmsg_type == NLMSG_ERROR ? -answer.error.error : EIO;
}

/// Takes the address away, and it alone: with the first address of a subnet the kernel takes away the later ones too,
/// which may be the one that the camera moves to, or another camera's.
void Remove(const LocalInterface& network)
{
    const std::vector<LocalInterface> all = LocalInterfaces();
    Ask(RTM_DELADDR, 0, network);
    for (const LocalInterface& one : all)
    {
        const bool beside = one.index == network.index && one.netmask == network.netmask &&
                            one.address != network.address && ((one.address ^ network.address) & network.netmask) == 0;
        if (beside)
        {
            Ask(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, one);
        }
    }
}

} // namespace

MachineAddress::MachineAddress(const LocalInterface& network) : m_network(network)
{
    const int error = Ask(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, network);
    m_added = error == 0;
    if (error != 0 && error != EEXIST)
    {
        throw std::system_error(error, std::generic_category(),
                                "cannot give " + network.name + " the address " + AddressText(network.address));
    }
}

MachineAddress::~MachineAddress()
{
    if (!m_added)
    {
        return;
    }
    try
    {
        Remove(m_network);
    }
    catch (const std::exception&) // the interfaces cannot be listed: the address stays
    {
    }
}

} // namespace nq::camera
