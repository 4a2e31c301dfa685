// SPDX-License-Identifier: Apache-2.0
// The exported verbs: objects and their work.
#include "base/error.h"
#include "base/settings.h"
#include "verbs/completion.h"
#include "verbs/device.h"
#include "verbs/memory.h"
#include "verbs/queue_pair.h"

// The header turns these calls into inline functions that end in the functions of the same name defined here.
#undef ibv_reg_mr
#undef ibv_reg_mr_iova

using namespace nq::loopback;

namespace
{

// An object that others still use stays, as in the kernel.
void RefuseWhileUsed(int users)
{
    if (users != 0)
    {
        Throw(EBUSY);
    }
}

ibv_mr* RegisterMemory(const char* name, ibv_pd* domain, void* start, size_t bytes, unsigned access)
{
    return Invoke<ibv_mr*>(name, nullptr, [&] {
        return MemoryTable::Instance().Register(*static_cast<ProtectionDomain*>(domain), start, bytes,
                                                static_cast<int>(access));
    });
}

} // namespace

extern "C"
{

ibv_pd* ibv_alloc_pd(ibv_context* context)
{
    return Invoke<ibv_pd*>("ibv_alloc_pd", nullptr, [&] { return new ProtectionDomain(context); });
}

int ibv_dealloc_pd(ibv_pd* domain)
{
    return InvokeCode("ibv_dealloc_pd", [&] {
        auto* self = static_cast<ProtectionDomain*>(domain);
        RefuseWhileUsed(self->users);
        delete self;
    });
}

ibv_mr* ibv_reg_mr(ibv_pd* domain, void* start, size_t bytes, int access)
{
    return RegisterMemory("ibv_reg_mr", domain, start, bytes, static_cast<unsigned>(access));
}

ibv_mr* ibv_reg_mr_iova(ibv_pd* domain, void* start, size_t bytes, uint64_t, int access)
{
    return RegisterMemory("ibv_reg_mr", domain, start, bytes, static_cast<unsigned>(access));
}

ibv_mr* ibv_reg_mr_iova2(ibv_pd* domain, void* start, size_t bytes, uint64_t, unsigned access)
{
    return RegisterMemory("ibv_reg_mr", domain, start, bytes, access);
}

int ibv_dereg_mr(ibv_mr* region)
{
    return InvokeCode("ibv_dereg_mr", [&] { MemoryTable::Instance().Deregister(static_cast<MemoryRegion*>(region)); });
}

ibv_comp_channel* ibv_create_comp_channel(ibv_context* context)
{
    return Invoke<ibv_comp_channel*>("ibv_create_comp_channel", nullptr,
                                     [&] { return new CompletionChannel(context); });
}

int ibv_destroy_comp_channel(ibv_comp_channel* channel)
{
    return InvokeCode("ibv_destroy_comp_channel", [&] {
        auto* self = static_cast<CompletionChannel*>(channel);
        RefuseWhileUsed(self->Users());
        delete self;
    });
}

ibv_cq* ibv_create_cq(ibv_context* context, int entries, void* userContext, ibv_comp_channel* channel, int vector)
{
    return Invoke<ibv_cq*>("ibv_create_cq", nullptr, [&] {
        if (vector < 0 || vector >= context->num_comp_vectors || (channel != nullptr && channel->context != context))
        {
            Throw(EINVAL);
        }
        return new CompletionQueue(context, entries, userContext, static_cast<CompletionChannel*>(channel));
    });
}

int ibv_resize_cq(ibv_cq* queue, int entries)
{
    return InvokeCode("ibv_resize_cq", [&] { CompletionQueue::From(queue).Resize(entries); });
}

int ibv_destroy_cq(ibv_cq* queue)
{
    return InvokeCode("ibv_destroy_cq", [&] {
        CompletionQueue& self = CompletionQueue::From(queue);
        RefuseWhileUsed(self.users);
        self.WaitForAcknowledgements();
        delete &self;
    });
}

int ibv_get_cq_event(ibv_comp_channel* channel, ibv_cq** queue, void** userContext)
{
    return Invoke("ibv_get_cq_event", -1, [&] {
        auto& events = static_cast<CompletionChannel*>(channel)->Events();
        CompletionQueue* told = nullptr;
        for (;;)
        {
            const uint32_t pushes = events.Pushes();
            if (events.TryPop(told, [](CompletionQueue* taken) { taken->CountRead(); }))
            {
                *queue = told;
                *userContext = told->cq_context;
                return 0;
            }
            if (const int error = events.Wait(pushes); error != 0)
            {
                Throw(error);
            }
        }
    });
}

void ibv_ack_cq_events(ibv_cq* queue, unsigned count)
{
    pthread_mutex_lock(&queue->mutex);
    queue->comp_events_completed += count;
    pthread_cond_signal(&queue->cond);
    pthread_mutex_unlock(&queue->mutex);
}

ibv_qp* ibv_create_qp(ibv_pd* domain, ibv_qp_init_attr* attributes)
{
    return Invoke<ibv_qp*>("ibv_create_qp", nullptr,
                           [&] { return new QueuePair(*static_cast<ProtectionDomain*>(domain), *attributes); });
}

int ibv_modify_qp(ibv_qp* pair, ibv_qp_attr* attributes, int mask)
{
    return InvokeCode("ibv_modify_qp", [&] { QueuePair::From(pair).Modify(*attributes, mask); });
}

int ibv_query_qp(ibv_qp* pair, ibv_qp_attr* attributes, int, ibv_qp_init_attr* initial)
{
    return InvokeCode("ibv_query_qp", [&] { QueuePair::From(pair).Query(*attributes, *initial); });
}

int ibv_destroy_qp(ibv_qp* pair)
{
    return InvokeCode("ibv_destroy_qp", [&] { delete &QueuePair::From(pair); });
}

int ibv_get_async_event(ibv_context* context, ibv_async_event* event)
{
    return Invoke("ibv_get_async_event", -1, [&] {
        auto& events = Context::From(context).Async();
        for (;;)
        {
            const uint32_t pushes = events.Pushes();
            if (events.TryPop(*event, [](const ibv_async_event&) {}))
            {
                return 0;
            }
            if (const int error = events.Wait(pushes); error != 0)
            {
                Throw(error);
            }
        }
    });
}

void ibv_ack_async_event(ibv_async_event*) {}

} // extern "C"
