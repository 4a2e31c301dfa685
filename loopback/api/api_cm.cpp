// SPDX-License-Identifier: Apache-2.0
// The exported connection manager.
#include "base/error.h"
#include "base/event_names.h"
#include "cm/cm_id.h"

#include <memory>

using namespace nq::loopback;

namespace
{

// A synchronous id waits for the event of its call and keeps it until the next.
int Finish(CmId& id)
{
    if (!id.IsSynchronous())
    {
        return 0;
    }
    if (id.event != nullptr)
    {
        rdma_ack_cm_event(id.event);
        id.event = nullptr;
    }
    id.event = EventChannel::From(id.channel).Next();
    if (id.event->status != 0)
    {
        const bool rejected = id.event->event == RDMA_CM_EVENT_REJECTED;
        Throw(rejected ? ECONNREFUSED : id.event->status < 0 ? -id.event->status : ECONNABORTED);
    }
    return 0;
}

template <typename Operation>
int OnId(const char* name, rdma_cm_id* id, Operation&& operation)
{
    return Invoke(name, -1, [&] {
        operation(CmId::From(id));
        return 0;
    });
}

template <typename Operation>
int OnIdToCompletion(const char* name, rdma_cm_id* id, Operation&& operation)
{
    return Invoke(name, -1, [&] {
        CmId& self = CmId::From(id);
        operation(self);
        return Finish(self);
    });
}

} // namespace

extern "C"
{

rdma_event_channel* rdma_create_event_channel(void)
{
    return Invoke<rdma_event_channel*>("rdma_create_event_channel", nullptr, [] {
        Context::Shared();
        return new EventChannel;
    });
}

void rdma_destroy_event_channel(rdma_event_channel* channel)
{
    const std::lock_guard lock(CmMutex());
    delete &EventChannel::From(channel);
}

int rdma_create_id(rdma_event_channel* channel, rdma_cm_id** id, void* context, rdma_port_space space)
{
    return Invoke("rdma_create_id", -1, [&] {
        Context::Shared();
        if (space != RDMA_PS_TCP && space != RDMA_PS_IB)
        {
            Throw(EOPNOTSUPP);
        }
        auto scope = std::make_shared<NetScope>();
        const std::lock_guard lock(CmMutex());
        *id = new CmId(channel == nullptr ? nullptr : &EventChannel::From(channel), context, space, std::move(scope));
        return 0;
    });
}

int rdma_destroy_id(rdma_cm_id* id)
{
    return Invoke("rdma_destroy_id", -1, [&] {
        CmId& self = CmId::From(id);
        if (self.IsSynchronous() && self.event != nullptr)
        {
            rdma_ack_cm_event(self.event);
        }
        self.Retire();
        const std::lock_guard lock(CmMutex());
        delete &self;
        return 0;
    });
}

int rdma_bind_addr(rdma_cm_id* id, sockaddr* address)
{
    return OnId("rdma_bind_addr", id, [&](CmId& self) { self.Bind(address); });
}

int rdma_resolve_addr(rdma_cm_id* id, sockaddr* source, sockaddr* destination, int)
{
    return OnIdToCompletion("rdma_resolve_addr", id, [&](CmId& self) { self.ResolveAddress(source, destination); });
}

int rdma_resolve_route(rdma_cm_id* id, int)
{
    return OnIdToCompletion("rdma_resolve_route", id, [](CmId& self) { self.ResolveRoute(); });
}

int rdma_connect(rdma_cm_id* id, rdma_conn_param* parameters)
{
    return OnIdToCompletion("rdma_connect", id, [&](CmId& self) { self.Connect(parameters); });
}

int rdma_establish(rdma_cm_id* id)
{
    return OnId("rdma_establish", id, [](CmId& self) { self.Establish(); });
}

int rdma_listen(rdma_cm_id* id, int backlog)
{
    return OnId("rdma_listen", id, [&](CmId& self) { self.Listen(backlog); });
}

int rdma_accept(rdma_cm_id* id, rdma_conn_param* parameters)
{
    return OnIdToCompletion("rdma_accept", id, [&](CmId& self) { self.Accept(parameters); });
}

int rdma_reject(rdma_cm_id* id, const void* privateData, uint8_t length)
{
    return OnId("rdma_reject", id, [&](CmId& self) { self.Reject(privateData, length); });
}

int rdma_disconnect(rdma_cm_id* id)
{
    return OnIdToCompletion("rdma_disconnect", id, [](CmId& self) { self.Disconnect(); });
}

int rdma_migrate_id(rdma_cm_id* id, rdma_event_channel* channel)
{
    return OnId("rdma_migrate_id", id,
                [&](CmId& self) { self.Migrate(channel == nullptr ? nullptr : &EventChannel::From(channel)); });
}

int rdma_get_cm_event(rdma_event_channel* channel, rdma_cm_event** event)
{
    return Invoke("rdma_get_cm_event", -1, [&] {
        *event = EventChannel::From(channel).Next();
        return 0;
    });
}

int rdma_ack_cm_event(rdma_cm_event* event)
{
    return Invoke("rdma_ack_cm_event", -1, [&] {
        if (event == nullptr)
        {
            Throw(EINVAL);
        }
        const std::unique_ptr<CmEvent> owned(static_cast<CmEvent*>(event));
        const std::lock_guard lock(CmMutex());
        owned->owner->OnAcknowledged();
        return 0;
    });
}

const char* rdma_event_str(rdma_cm_event_type event)
{
    return CmEventName(event);
}

} // extern "C"
