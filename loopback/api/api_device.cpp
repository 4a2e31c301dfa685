// SPDX-License-Identifier: Apache-2.0
// The exported device calls: what devices there are and what they can do.
#include "base/error.h"
#include "base/settings.h"
#include "verbs/device.h"

#include <cstdlib>
#include <cstring>
#include <endian.h>
#include <memory>
#include <rdma/rdma_cma.h>

// The header turns these calls into inline functions that end in the functions of the same name defined here.
#undef ibv_get_device_list
#undef ibv_query_port

using namespace nq::loopback;

namespace
{

constexpr uint64_t kDeviceGuid = 0x026E71FFFE6C6F6FULL; // locally administered
constexpr uint64_t kLongestMessage = 1ULL << 31;

template <typename Pointer>
Pointer* NullTerminated(Pointer first)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the list is one of pointers.
    auto* list = static_cast<Pointer*>(std::calloc(2, sizeof(Pointer)));
    if (list == nullptr)
    {
        throw std::bad_alloc();
    }
    list[0] = first;
    return list;
}

void CheckPort(uint32_t port)
{
    if (port != 1)
    {
        Throw(EINVAL);
    }
}

} // namespace

extern "C"
{

ibv_device** ibv_get_device_list(int* count)
{
    return Invoke<ibv_device**>("ibv_get_device_list", nullptr, [&] {
        const bool none = Settings::Get().noDevice;
        ibv_device** list = NullTerminated<ibv_device*>(none ? nullptr : LoopbackDevice());
        if (count != nullptr)
        {
            *count = none ? 0 : 1;
        }
        return list;
    });
}

void ibv_free_device_list(ibv_device** list)
{
    std::free(list);
}

const char* ibv_get_device_name(ibv_device* device)
{
    return device->name;
}

int ibv_get_device_index(ibv_device*)
{
    return 0;
}

__be64 ibv_get_device_guid(ibv_device*)
{
    return htobe64(kDeviceGuid);
}

ibv_context* ibv_open_device(ibv_device*)
{
    return Invoke<ibv_context*>("ibv_open_device", nullptr, [] { return new Context; });
}

int ibv_close_device(ibv_context* context)
{
    return Invoke("ibv_close_device", -1, [&] {
        if (context != &Context::Shared())
        {
            delete &Context::From(context);
        }
        return 0;
    });
}

int ibv_query_device(ibv_context*, ibv_device_attr* attributes)
{
    return InvokeCode("ibv_query_device", [&] {
        *attributes = {};
        std::strcpy(attributes->fw_ver, "1.0");
        attributes->node_guid = htobe64(kDeviceGuid);
        attributes->sys_image_guid = htobe64(kDeviceGuid);
        attributes->max_mr_size = UINT64_MAX;
        attributes->page_size_cap = 4096;
        attributes->max_qp = 65536;
        attributes->max_qp_wr = 16384;
        attributes->max_sge = 32;
        attributes->max_cq = 65536;
        attributes->max_cqe = 1 << 20;
        attributes->max_mr = 1 << 24;
        attributes->max_pd = 65536;
        attributes->max_qp_rd_atom = 16;
        attributes->max_qp_init_rd_atom = 16;
        attributes->max_pkeys = 1;
        attributes->phys_port_cnt = 1;
    });
}

int ibv_query_port(ibv_context*, uint8_t port, _compat_ibv_port_attr* compatible)
{
    return InvokeCode("ibv_query_port", [&] {
        CheckPort(port);
        // Callers of this age give a record that ends before the fields of later versions.
        auto* attributes = reinterpret_cast<ibv_port_attr*>(compatible);
        attributes->state = IBV_PORT_ACTIVE;
        attributes->max_mtu = IBV_MTU_4096;
        attributes->active_mtu = IBV_MTU_4096;
        attributes->gid_tbl_len = 1;
        attributes->max_msg_sz = static_cast<uint32_t>(kLongestMessage);
        attributes->pkey_tbl_len = 1;
        attributes->active_width = 2;
        attributes->active_speed = 32;
        attributes->phys_state = 5;
        attributes->link_layer = IBV_LINK_LAYER_ETHERNET;
    });
}

int ibv_query_gid(ibv_context*, uint8_t port, int index, ibv_gid* gid)
{
    return Invoke("ibv_query_gid", -1, [&] {
        CheckPort(port);
        if (index != 0)
        {
            Throw(EINVAL);
        }
        *gid = {};
        gid->raw[10] = 0xFF;
        gid->raw[11] = 0xFF;
        gid->raw[12] = 127;
        gid->raw[15] = 1;
        return 0;
    });
}

int ibv_query_pkey(ibv_context*, uint8_t port, int index, __be16* key)
{
    return Invoke("ibv_query_pkey", -1, [&] {
        CheckPort(port);
        if (index != 0)
        {
            Throw(EINVAL);
        }
        *key = htobe16(0xFFFF);
        return 0;
    });
}

int ibv_get_pkey_index(ibv_context*, uint8_t port, __be16 key)
{
    return port == 1 && key == htobe16(0xFFFF) ? 0 : -1;
}

// A forked child shares no memory that is written by a device here: nothing has to be kept from it.
int ibv_fork_init(void)
{
    return 0;
}

ibv_fork_status ibv_is_fork_initialized(void)
{
    return IBV_FORK_UNNEEDED;
}

ibv_context** rdma_get_devices(int* count)
{
    return Invoke<ibv_context**>("rdma_get_devices", nullptr, [&] {
        ibv_context** list = NullTerminated<ibv_context*>(&Context::Shared());
        if (count != nullptr)
        {
            *count = 1;
        }
        return list;
    });
}

void rdma_free_devices(ibv_context** list)
{
    std::free(list);
}

} // extern "C"
