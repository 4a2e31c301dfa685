// SPDX-License-Identifier: Apache-2.0
// Calls that this device does not have. They are here because the real libraries must never see an object made here.
#include <cerrno>
#include <infiniband/verbs.h>
#include <rdma/rdma_cma.h>

namespace
{

// Verbs that return an errno value.
int Unsupported()
{
    errno = EOPNOTSUPP;
    return EOPNOTSUPP;
}

// Calls that return -1 and set errno.
int Failed()
{
    errno = EOPNOTSUPP;
    return -1;
}

// Calls that return a pointer.
decltype(nullptr) None()
{
    errno = EOPNOTSUPP;
    return nullptr;
}

} // namespace

extern "C"
{

ibv_srq* ibv_create_srq(ibv_pd*, ibv_srq_init_attr*)
{
    return None();
}

int ibv_modify_srq(ibv_srq*, ibv_srq_attr*, int)
{
    return Unsupported();
}

int ibv_query_srq(ibv_srq*, ibv_srq_attr*)
{
    return Unsupported();
}

int ibv_destroy_srq(ibv_srq*)
{
    return Unsupported();
}

ibv_ah* ibv_create_ah(ibv_pd*, ibv_ah_attr*)
{
    return None();
}

ibv_ah* ibv_create_ah_from_wc(ibv_pd*, ibv_wc*, ibv_grh*, uint8_t)
{
    return None();
}

int ibv_init_ah_from_wc(ibv_context*, uint8_t, ibv_wc*, ibv_grh*, ibv_ah_attr*)
{
    return Failed();
}

int ibv_destroy_ah(ibv_ah*)
{
    return Unsupported();
}

int ibv_attach_mcast(ibv_qp*, const ibv_gid*, uint16_t)
{
    return Unsupported();
}

int ibv_detach_mcast(ibv_qp*, const ibv_gid*, uint16_t)
{
    return Unsupported();
}

int ibv_rereg_mr(ibv_mr*, int, ibv_pd*, void*, size_t, int)
{
    return Failed();
}

ibv_mr* ibv_reg_dmabuf_mr(ibv_pd*, uint64_t, size_t, uint64_t, int, int)
{
    return None();
}

ibv_context* ibv_import_device(int)
{
    return None();
}

ibv_pd* ibv_import_pd(ibv_context*, uint32_t)
{
    return None();
}

ibv_mr* ibv_import_mr(ibv_pd*, uint32_t)
{
    return None();
}

ibv_dm* ibv_import_dm(ibv_context*, uint32_t)
{
    return None();
}

ibv_qp_ex* ibv_qp_to_qp_ex(ibv_qp*)
{
    return None();
}

int ibv_query_qp_data_in_order(ibv_qp*, ibv_wr_opcode, uint32_t)
{
    return 0;
}

int ibv_set_ece(ibv_qp*, ibv_ece*)
{
    return Unsupported();
}

int ibv_query_ece(ibv_qp*, ibv_ece*)
{
    return Unsupported();
}

int ibv_resolve_eth_l2_from_gid(ibv_context*, ibv_ah_attr*, uint8_t*, uint16_t*)
{
    return Unsupported();
}

int _ibv_query_gid_ex(ibv_context*, uint32_t, uint32_t, ibv_gid_entry*, uint32_t, size_t)
{
    return Unsupported();
}

ssize_t _ibv_query_gid_table(ibv_context*, ibv_gid_entry*, size_t, uint32_t, size_t)
{
    return -EOPNOTSUPP;
}

int rdma_create_ep(rdma_cm_id**, rdma_addrinfo*, ibv_pd*, ibv_qp_init_attr*)
{
    return Failed();
}

void rdma_destroy_ep(rdma_cm_id*) {}

int rdma_create_qp_ex(rdma_cm_id*, ibv_qp_init_attr_ex*)
{
    return Failed();
}

int rdma_create_srq(rdma_cm_id*, ibv_pd*, ibv_srq_init_attr*)
{
    return Failed();
}

int rdma_create_srq_ex(rdma_cm_id*, ibv_srq_init_attr_ex*)
{
    return Failed();
}

void rdma_destroy_srq(rdma_cm_id*) {}

int rdma_get_request(rdma_cm_id*, rdma_cm_id**)
{
    return Failed();
}

int rdma_notify(rdma_cm_id*, ibv_event_type)
{
    return Failed();
}

int rdma_reject_ece(rdma_cm_id*, const void*, uint8_t)
{
    return Failed();
}

int rdma_join_multicast(rdma_cm_id*, sockaddr*, void*)
{
    return Failed();
}

int rdma_join_multicast_ex(rdma_cm_id*, rdma_cm_join_mc_attr_ex*, void*)
{
    return Failed();
}

int rdma_leave_multicast(rdma_cm_id*, sockaddr*)
{
    return Failed();
}

int rdma_init_qp_attr(rdma_cm_id*, ibv_qp_attr*, int*)
{
    return Failed();
}

int rdma_set_local_ece(rdma_cm_id*, ibv_ece*)
{
    return Failed();
}

int rdma_get_remote_ece(rdma_cm_id*, ibv_ece*)
{
    return Failed();
}

} // extern "C"
