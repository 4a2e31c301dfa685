// SPDX-License-Identifier: Apache-2.0
// Connections made without an event channel, call by call, and the translation of addresses, on any RDMA device.
#include "loopback/rdma_side.h"

#include <future>

namespace nq::test
{

TEST(Synchronous, IdWithoutChannelWaitsForItsEvents)
{
    Side listener;
    listener.Listen(TestAddress(0));
    sockaddr_in address = TestAddress(ntohs(rdma_get_src_port(listener.id)));
    auto accepted = std::async(std::launch::async, [&] {
        const Event request = Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST);
        ibv_qp_init_attr attributes{};
        attributes.qp_type = IBV_QPT_RC;
        attributes.cap = {1, 1, 1, 1, 0};
        Require(rdma_create_qp(request.id, nullptr, &attributes) == 0, "rdma_create_qp");
        Require(rdma_accept(request.id, nullptr) == 0, "rdma_accept");
        Expect(listener.channel, RDMA_CM_EVENT_ESTABLISHED);
        return request.id;
    });
    rdma_cm_id* id = nullptr;
    ASSERT_EQ(rdma_create_id(nullptr, &id, nullptr, RDMA_PS_TCP), 0);
    ASSERT_EQ(rdma_resolve_addr(id, nullptr, Raw(address), 500), 0);
    ASSERT_EQ(rdma_resolve_route(id, 500), 0);
    ibv_qp_init_attr attributes{};
    attributes.qp_type = IBV_QPT_RC;
    attributes.cap = {1, 1, 1, 1, 0};
    ASSERT_EQ(rdma_create_qp(id, nullptr, &attributes), 0);
    EXPECT_NE(id->send_cq, nullptr);
    EXPECT_NE(id->recv_cq_channel, nullptr);
    ASSERT_EQ(rdma_connect(id, nullptr), 0);
    EXPECT_EQ(id->event->event, RDMA_CM_EVENT_ESTABLISHED);
    rdma_cm_id* peer = accepted.get();
    for (rdma_cm_id* side : {id, peer})
    {
        rdma_destroy_qp(side);
        EXPECT_EQ(rdma_destroy_id(side), 0);
    }
}

TEST(Synchronous, RefusedConnectFailsWithConnectionRefused)
{
    rdma_cm_id* id = nullptr;
    sockaddr_in address = TestAddress(1);
    ASSERT_EQ(rdma_create_id(nullptr, &id, nullptr, RDMA_PS_TCP), 0);
    ASSERT_EQ(rdma_resolve_addr(id, nullptr, Raw(address), 500), 0);
    ASSERT_EQ(rdma_resolve_route(id, 500), 0);
    EXPECT_EQ(rdma_connect(id, nullptr), -1);
    EXPECT_EQ(errno, EINVAL) << "there are neither a queue pair nor parameters";
    ibv_qp_init_attr attributes{};
    attributes.qp_type = IBV_QPT_RC;
    attributes.cap = {1, 1, 1, 1, 0};
    ASSERT_EQ(rdma_create_qp(id, nullptr, &attributes), 0);
    EXPECT_EQ(rdma_connect(id, nullptr), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    rdma_destroy_qp(id);
    EXPECT_EQ(rdma_destroy_id(id), 0);
}

TEST(AddressInfo, NumericAddressAndPortAreTranslated)
{
    rdma_addrinfo hints{};
    hints.ai_flags = RAI_NUMERICHOST;
    hints.ai_port_space = RDMA_PS_TCP;
    rdma_addrinfo* list = nullptr;
    char host[] = "127.0.0.1";
    char port[] = "4791";
    ASSERT_EQ(rdma_getaddrinfo(host, port, &hints, &list), 0);
    const auto& address = *reinterpret_cast<sockaddr_in*>(list->ai_dst_addr);
    EXPECT_EQ(ntohs(address.sin_port), 4791);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), 0x7F000001U);
    rdma_freeaddrinfo(list);
}

} // namespace nq::test
