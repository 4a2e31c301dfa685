// SPDX-License-Identifier: Apache-2.0
// libibverbs, asked without being linked: nq-gev starts where it is absent.
#include "doctor/rdma_ports.h"
#include "software_rdma.h"

#include <algorithm>
#include <dlfcn.h>
#include <infiniband/verbs.h>

namespace nq::tool::doctor
{

namespace
{

/// The functions used. Those of the software RDMA stand in front of all libraries.
class Verbs
{
  public:
    Verbs()
    {
        // Never closed: its drivers are loaded with it, and do not take that well.
        void* library = RunsOnSoftwareRdma() ? RTLD_DEFAULT : dlopen("libibverbs.so.1", RTLD_NOW);
        if (library == nullptr && !RunsOnSoftwareRdma())
        {
            m_problem = "libibverbs.so.1 is not there (sudo apt-get install libibverbs1 ibverbs-providers)";
            return;
        }
        const bool all = Find(library, "ibv_get_device_list", list) && Find(library, "ibv_free_device_list", free) &&
                         Find(library, "ibv_get_device_name", name) && Find(library, "ibv_open_device", open) &&
                         Find(library, "ibv_close_device", shut) && Find(library, "ibv_query_port", query);
        m_problem = all ? "" : "libibverbs.so.1 lacks a function";
    }

    const std::string& Problem() const { return m_problem; }

    ibv_device** (*list)(int*) = nullptr;
    void (*free)(ibv_device**) = nullptr;
    const char* (*name)(ibv_device*) = nullptr;
    ibv_context* (*open)(ibv_device*) = nullptr;
    int (*shut)(ibv_context*) = nullptr;
    int (*query)(ibv_context*, uint8_t, ibv_port_attr*) = nullptr;

  private:
    template <class Function>
    static bool Find(void* library, const char* name, Function& function)
    {
        function = reinterpret_cast<Function>(dlsym(library, name));
        return function != nullptr;
    }

    std::string m_problem;
};

uint32_t Bytes(ibv_mtu mtu)
{
    return mtu >= IBV_MTU_256 && mtu <= IBV_MTU_4096 ? 128U << mtu : 0;
}

VerbsPort AskPort(const Verbs& verbs, ibv_device* device, uint8_t number)
{
    ibv_context* context = verbs.open(device);
    if (context == nullptr)
    {
        return {0, 0, "the device cannot be opened (rdma.files)"};
    }
    ibv_port_attr port{};
    const int failure = verbs.query(context, number, &port);
    verbs.shut(context);
    if (failure != 0)
    {
        return {0, 0, "the device does not tell of its port"};
    }
    return {Bytes(port.active_mtu), port.max_msg_sz, ""};
}

} // namespace

VerbsPort AskVerbs(const std::string& device, uint8_t port)
{
    static const Verbs kVerbs;
    if (!kVerbs.Problem().empty())
    {
        return {0, 0, kVerbs.Problem()};
    }
    int count = 0;
    ibv_device** devices = kVerbs.list(&count);
    ibv_device** const end = devices + (devices == nullptr ? 0 : count);
    ibv_device** const found =
        std::find_if(devices, end, [&](ibv_device* one) { return device.empty() || device == kVerbs.name(one); });
    VerbsPort asked = found == end
                          ? VerbsPort{0, 0, "libibverbs knows no such device (is its driver in ibverbs-providers?)"}
                          : AskPort(kVerbs, *found, port);
    if (devices != nullptr)
    {
        kVerbs.free(devices);
    }
    return asked;
}

} // namespace nq::tool::doctor
