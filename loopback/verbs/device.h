// SPDX-License-Identifier: Apache-2.0
// The one software RDMA device and its contexts.
#pragma once

#include "base/event_queue.h"
#include "base/tally.h"

#include <atomic>
#include <infiniband/verbs.h>

namespace nq::loopback
{

/// The device "nq_loop0". It exists unless NQ_RDMA_LOOPBACK_NO_DEVICE is set, and lives as long as the process.
ibv_device* LoopbackDevice();

/// An opened device. Counts what was made on it. All threads.
class Context : public ibv_context, private Counted<Kind::Context>
{
  public:
    Context();
    ~Context();

    static Context& From(ibv_context* context) { return *static_cast<Context*>(context); }

    /// The context that the connection manager gives to its ids; never closed. Throws ENODEV without a device.
    static Context& Shared();

    /// Reports an asynchronous event; read by ibv_get_async_event.
    void PostAsync(const ibv_async_event& event) { m_async.Push(event); }
    EventQueue<ibv_async_event>& Async() { return m_async; }

  private:
    EventQueue<ibv_async_event> m_async;
};

/// A protection domain. `users` counts the regions and queue pairs in it.
class ProtectionDomain : public ibv_pd, private Counted<Kind::ProtectionDomain>
{
  public:
    explicit ProtectionDomain(ibv_context* owner);
    std::atomic<int> users{0};
};

/// A number that no other object of this process has; also part of the keys and queue pair numbers.
uint32_t NextHandle();

} // namespace nq::loopback
