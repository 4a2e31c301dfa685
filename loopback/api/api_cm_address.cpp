// SPDX-License-Identifier: Apache-2.0
// The exported connection-manager calls about addresses and options.
#include "base/error.h"
#include "base/net_scope.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <rdma/rdma_cma.h>

using namespace nq::loopback;

namespace
{

struct FreeAddressInfo
{
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

__be16 PortOf(const sockaddr& address)
{
    return address.sa_family == AF_INET || address.sa_family == AF_INET6 ? htons(Endpoint(&address).Port()) : __be16{0};
}

sockaddr* CopyOf(const sockaddr* address, socklen_t length)
{
    auto* copy = static_cast<sockaddr*>(std::malloc(length));
    if (copy == nullptr)
    {
        throw std::bad_alloc();
    }
    std::memcpy(copy, address, length);
    return copy;
}

} // namespace

extern "C"
{

__be16 rdma_get_src_port(rdma_cm_id* id)
{
    return PortOf(id->route.addr.src_addr);
}

__be16 rdma_get_dst_port(rdma_cm_id* id)
{
    return PortOf(id->route.addr.dst_addr);
}

int rdma_getaddrinfo(const char* node, const char* service, const rdma_addrinfo* hints, rdma_addrinfo** result)
{
    return Invoke("rdma_getaddrinfo", -1, [&] {
        const int flags = hints == nullptr ? 0 : hints->ai_flags;
        addrinfo wanted{};
        wanted.ai_socktype = SOCK_STREAM;
        wanted.ai_family = (flags & RAI_FAMILY) != 0 ? hints->ai_family : AF_UNSPEC;
        wanted.ai_flags =
            ((flags & RAI_PASSIVE) != 0 ? AI_PASSIVE : 0) | ((flags & RAI_NUMERICHOST) != 0 ? AI_NUMERICHOST : 0);
        addrinfo* list = nullptr;
        if (const int error = getaddrinfo(node, service, &wanted, &list); error != 0)
        {
            return error;
        }
        const std::unique_ptr<addrinfo, FreeAddressInfo> owned(list);
        std::unique_ptr<rdma_addrinfo, void (*)(rdma_addrinfo*)> made(new rdma_addrinfo{}, rdma_freeaddrinfo);
        made->ai_flags = flags;
        made->ai_family = list->ai_family;
        made->ai_qp_type = IBV_QPT_RC;
        made->ai_port_space = RDMA_PS_TCP;
        const bool passive = (flags & RAI_PASSIVE) != 0;
        (passive ? made->ai_src_addr : made->ai_dst_addr) = CopyOf(list->ai_addr, list->ai_addrlen);
        (passive ? made->ai_src_len : made->ai_dst_len) = list->ai_addrlen;
        *result = made.release();
        return 0;
    });
}

void rdma_freeaddrinfo(rdma_addrinfo* list)
{
    if (list != nullptr)
    {
        std::free(list->ai_src_addr);
        std::free(list->ai_dst_addr);
        delete list;
    }
}

// The options steer the network, reuse of addresses and time-outs; none of these matter here.
int rdma_set_option(rdma_cm_id*, int, int, void*, size_t)
{
    return Invoke("rdma_set_option", -1, [] { return 0; });
}

} // extern "C"
