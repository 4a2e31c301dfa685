// SPDX-License-Identifier: Apache-2.0
// The verbs and connection manager calls, defined in the one translation unit that includes this: they go to its
// FakeVerbs.
#pragma once

#include "support/fake_verbs.h"

#undef ibv_reg_mr
#undef ibv_query_port

extern "C"
{
rdma_event_channel* rdma_create_event_channel()
{
    return nq::test::FakeVerbs::Current()->CreateEventChannel();
}
void rdma_destroy_event_channel(rdma_event_channel*)
{
    nq::test::FakeVerbs::Current()->DestroyEventChannel();
}
int rdma_create_id(rdma_event_channel*, rdma_cm_id** id, void*, rdma_port_space space)
{
    return nq::test::FakeVerbs::Current()->CreateId(id, space);
}
int rdma_destroy_id(rdma_cm_id*)
{
    return nq::test::FakeVerbs::Current()->DestroyId();
}
int rdma_resolve_addr(rdma_cm_id*, sockaddr* source, sockaddr* destination, int timeout)
{
    return nq::test::FakeVerbs::Current()->ResolveAddr(source, destination, timeout);
}
int rdma_resolve_route(rdma_cm_id*, int timeout)
{
    return nq::test::FakeVerbs::Current()->ResolveRoute(timeout);
}
int rdma_create_qp(rdma_cm_id* id, ibv_pd*, ibv_qp_init_attr* attributes)
{
    return nq::test::FakeVerbs::Current()->CreateQp(id, attributes);
}
int rdma_connect(rdma_cm_id*, rdma_conn_param* parameters)
{
    return nq::test::FakeVerbs::Current()->Connect(parameters);
}
int rdma_disconnect(rdma_cm_id*)
{
    return nq::test::FakeVerbs::Current()->Disconnect();
}
int rdma_get_cm_event(rdma_event_channel*, rdma_cm_event** event)
{
    return nq::test::FakeVerbs::Current()->GetCmEvent(event);
}
int rdma_ack_cm_event(rdma_cm_event* event)
{
    return nq::test::FakeVerbs::Current()->AckCmEvent(event);
}
const char* rdma_event_str(rdma_cm_event_type event)
{
    switch (event)
    {
    case RDMA_CM_EVENT_ADDR_ERROR:
        return "RDMA_CM_EVENT_ADDR_ERROR";
    case RDMA_CM_EVENT_ROUTE_ERROR:
        return "RDMA_CM_EVENT_ROUTE_ERROR";
    case RDMA_CM_EVENT_REJECTED:
        return "RDMA_CM_EVENT_REJECTED";
    case RDMA_CM_EVENT_UNREACHABLE:
        return "RDMA_CM_EVENT_UNREACHABLE";
    default:
        return "another event";
    }
}
ibv_pd* ibv_alloc_pd(ibv_context*)
{
    return nq::test::FakeVerbs::Current()->AllocPd();
}
int ibv_dealloc_pd(ibv_pd*)
{
    return nq::test::FakeVerbs::Current()->DeallocPd();
}
ibv_comp_channel* ibv_create_comp_channel(ibv_context*)
{
    return nq::test::FakeVerbs::Current()->CreateCompChannel();
}
int ibv_destroy_comp_channel(ibv_comp_channel*)
{
    return nq::test::FakeVerbs::Current()->DestroyCompChannel();
}
ibv_cq* ibv_create_cq(ibv_context*, int entries, void* context, ibv_comp_channel* channel, int vector)
{
    return nq::test::FakeVerbs::Current()->CreateCq(entries, context, channel, vector);
}
int ibv_destroy_cq(ibv_cq*)
{
    return nq::test::FakeVerbs::Current()->DestroyCq();
}
int ibv_get_cq_event(ibv_comp_channel*, ibv_cq** queue, void** context)
{
    return nq::test::FakeVerbs::Current()->GetCqEvent(queue, context);
}
void ibv_ack_cq_events(ibv_cq*, unsigned int count)
{
    nq::test::FakeVerbs::Current()->AckCqEvents(count);
}
int ibv_destroy_qp(ibv_qp*)
{
    return nq::test::FakeVerbs::Current()->DestroyQp();
}
ibv_mr* ibv_reg_mr(ibv_pd*, void* address, size_t length, int access)
{
    return nq::test::FakeVerbs::Current()->RegMr(address, length, access);
}
int ibv_query_port(ibv_context*, uint8_t, _compat_ibv_port_attr* compatible)
{
    return nq::test::FakeVerbs::Current()->QueryPort(reinterpret_cast<ibv_port_attr*>(compatible));
}
int ibv_dereg_mr(ibv_mr* region)
{
    return nq::test::FakeVerbs::Current()->DeregMr(region);
}
}
