// SPDX-License-Identifier: Apache-2.0
// What unit tests see of the inside of an endpoint, and of the process around it.
#pragma once

#include "rdma/lvEndPoint.h"
#include "support/process_counts.h"

#include <arpa/inet.h>
#include <pthread.h>
#include <string>

/// The endpoint's friend.
struct LvEndpointAccess
{
    static void Connect(LvEndpoint& endpoint, const sockaddr_in& address) { endpoint.ThrowingConnect(&address); }
    static bool Stopped(const LvEndpoint& endpoint) { return endpoint.m_stop == 1; }
    static void Stop(LvEndpoint& endpoint) { endpoint.m_stop = 1; }
    static bool Connected(const LvEndpoint& endpoint) { return endpoint.m_connected; }
    static void SetConnected(LvEndpoint& endpoint) { endpoint.m_connected = true; }
    static void SetListener(LvEndpoint& endpoint, rdma_cm_id* id) { endpoint.m_cm_id_listener = id; }
    static msg_buffer_mem* Receive(const LvEndpoint& endpoint, std::size_t index)
    {
        return &endpoint.m_recv_msgs[index];
    }
    static msg_buffer_mem* Send(const LvEndpoint& endpoint, std::size_t index) { return &endpoint.m_send_msgs[index]; }

    /// Lets the worker end, or whoever waits in GetBuffer look for a stop, without the rest of their 800 ms.
    static void EndWorker(LvEndpoint& endpoint) { endpoint.m_requeued.Push(nullptr); }
    static void WakeGetBuffer(LvEndpoint& endpoint) { endpoint.m_frames.Push(nullptr); }

    static std::size_t Blocks(const LvEndpoint& endpoint) { return endpoint.m_blocks.Count(); }
};

namespace nq::test
{

inline sockaddr_in CameraAddress()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(4791);
    address.sin_addr.s_addr = htonl(0x0A090002);
    return address;
}

/// Stack size, in bytes, of threads made with default attributes from now on.
inline void SetDefaultStack(std::size_t size)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

/// Lets every thread creation with default attributes fail with EAGAIN, by asking for more stack than there is memory.
inline void RefuseThreads()
{
    SetDefaultStack(std::size_t{1} << 46);
}

inline void AllowThreads()
{
    SetDefaultStack(std::size_t{8} << 20);
}

} // namespace nq::test
