// SPDX-License-Identifier: Apache-2.0
// The one software RDMA device and its contexts.
#include "verbs/device.h"

#include "base/error.h"
#include "base/settings.h"
#include "verbs/completion.h"
#include "verbs/queue_pair.h"

#include <cstring>

namespace nq::loopback
{

ibv_device* LoopbackDevice()
{
    static ibv_device& device = *[] {
        auto* made = new ibv_device{};
        made->node_type = IBV_NODE_CA;
        made->transport_type = IBV_TRANSPORT_IB;
        std::strcpy(made->name, "nq_loop0");
        std::strcpy(made->dev_name, "nq_loop0");
        return made;
    }();
    return &device;
}

Context::Context() : ibv_context{}
{
    device = LoopbackDevice();
    ops.poll_cq = CompletionQueue::Poll;
    ops.req_notify_cq = CompletionQueue::RequestNotify;
    ops.post_send = QueuePair::PostSend;
    ops.post_recv = QueuePair::PostReceive;
    cmd_fd = -1;
    async_fd = m_async.Fd();
    num_comp_vectors = 1;
    pthread_mutex_init(&mutex, nullptr);
}

Context::~Context()
{
    pthread_mutex_destroy(&mutex);
}

Context& Context::Shared()
{
    if (Settings::Get().noDevice)
    {
        Throw(ENODEV);
    }
    static Context& context = *new Context;
    return context;
}

ProtectionDomain::ProtectionDomain(ibv_context* owner) : ibv_pd{}
{
    context = owner;
    handle = NextHandle();
}

uint32_t NextHandle()
{
    static std::atomic<uint32_t> last{0};
    return ++last & 0xFFFFFF;
}

} // namespace nq::loopback
