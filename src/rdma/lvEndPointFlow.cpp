// SPDX-License-Identifier: Apache-2.0
// The data flow of the endpoint: registered memory, work requests, the worker and the completion thread.
#include "rdma/lvEndPoint.h"

#include "GenTL/GenTL.h"
#include "base/nq_trace.h"
#include "rdma/ready_message.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace
{

constexpr int kReceiveAccess = IBV_ACCESS_LOCAL_WRITE;

/// For how long the completion thread waits for the work requests that a disconnect flushes.
constexpr std::chrono::milliseconds kFlushLimit{800};

ibv_sge ScatterEntry(const msg_buffer_mem& message)
{
    ibv_sge entry{};
    entry.addr = reinterpret_cast<std::uintptr_t>(message.addr);
    entry.length = static_cast<std::uint32_t>(message.mr->length);
    entry.lkey = message.mr->lkey;
    return entry;
}

} // namespace

std::uint32_t LvEndpoint::LongestFrame()
{
    const NQLock setup(m_teardown);
    ibv_port_attr port{};
    if (m_cancelled || ibv_query_port(m_cm_id_connection->verbs, m_cm_id_connection->port_num, &port) != 0 ||
        port.max_msg_sz == 0)
    {
        return kLongestReceive;
    }
    return std::min(port.max_msg_sz, kLongestReceive);
}

void LvEndpoint::SetBufferSettings(gevrdmaBufferSettings& settings)
{
    m_settings = settings;
}

void LvEndpoint::AllocateAndRegisterMemory()
{
    const NQLock setup(m_teardown);
    RequireStanding();
    const std::uint32_t count = m_settings.bufferCount;
    if (count != 0)
    {
        m_blocks.Make(count, m_settings.payloadSize);
        // Each queue can then hold every descriptor without allocating: nothing is allocated per frame.
        m_free_sends.Reserve(count);
        m_frames.Reserve(count);
        m_requeued.Reserve(count);
    }
    m_recv_msgs = std::make_unique<msg_buffer_mem[]>(count);
    m_send_msgs = std::make_unique<msg_buffer_mem[]>(count);
    while (m_receiveCount < count && RegisterBlock(m_receiveCount))
    {
        ++m_receiveCount;
        if (!RegisterReadyMessage(m_sendCount))
        {
            break;
        }
        ++m_sendCount;
    }
}

bool LvEndpoint::RegisterBlock(std::uint32_t index)
{
    msg_buffer_mem& receive = m_recv_msgs[index];
    receive.addr = m_blocks.Memory(index).GetBuffer();
    receive.length = m_blocks.Memory(index).GetBufferSize();
    if (receive.length > kLongestReceive)
    {
        return false;
    }
    receive.mr = ibv_reg_mr(m_pd, receive.addr, receive.length, kReceiveAccess);
    if (receive.mr == nullptr)
    {
        return false;
    }
    m_blocks.Register(index, &receive);
    return true;
}

bool LvEndpoint::RegisterReadyMessage(std::uint32_t index)
{
    msg_buffer_mem& send = m_send_msgs[index];
    send.addr = MakeReadyMessage().release();
    send.mr = ibv_reg_mr(m_pd, send.addr, gendc_wire::kReadySize, 0);
    return send.mr != nullptr;
}

/// Nothing may be made for a connection that a DeInit on another thread has taken down: nobody would undo it.
void LvEndpoint::RequireStanding() const
{
    if (m_cancelled)
    {
        throw std::runtime_error("connection torn down during the start");
    }
}

void LvEndpoint::StartWorkerThread()
{
    const NQLock setup(m_teardown);
    RequireStanding();
    pthread_t started = 0;
    const int result = pthread_create(&started, nullptr, Worker_thread_helper, this);
    if (result != 0)
    {
        throw std::runtime_error("Failed to create worker thread: [" + std::to_string(result) + "]");
    }
    m_worker_thread = started;
}

void LvEndpoint::Post_receive(msg_buffer_mem* message)
{
    ibv_sge entries[2];
    ibv_recv_wr work{};
    work.wr_id = reinterpret_cast<std::uintptr_t>(message);
    work.sg_list = entries;
    const bool ofBuffer = m_memory == FrameMemory::Buffers;
    if (const msg_buffer_mem* const headers = ofBuffer ? m_receives.HeadersOf(message) : nullptr)
    {
        entries[work.num_sge++] = ScatterEntry(*headers);
    }
    entries[work.num_sge++] = ScatterEntry(*message);
    ibv_recv_wr* refused = nullptr;
    ibv_post_recv(m_qp, &work, &refused);
}

void LvEndpoint::Post_send(msg_buffer_mem* message)
{
    ibv_sge entry = ScatterEntry(*message);
    ibv_send_wr work{};
    work.wr_id = reinterpret_cast<std::uintptr_t>(message);
    work.sg_list = &entry;
    work.num_sge = 1;
    work.opcode = IBV_WR_SEND;
    work.send_flags = IBV_SEND_SIGNALED;
    ibv_send_wr* refused = nullptr;
    ibv_post_send(m_qp, &work, &refused);
}

void LvEndpoint::Worker_thread()
{
    // All receives first: a camera that hears of one block may fill every block.
    for (std::uint32_t index = 0; index < m_receiveCount; ++index)
    {
        Post_receive(&m_recv_msgs[index]);
    }
    for (std::uint32_t index = 0; index < m_sendCount; ++index)
    {
        Post_send(&m_send_msgs[index]);
    }
    const auto stopping = [this] { return Stopping(); };
    while (!Stopping())
    {
        msg_buffer_mem* const receive = m_requeued.Pop(stopping);
        if (receive == nullptr)
        {
            return;
        }
        // A stop in this wait drops the descriptor just taken: its block is not posted again.
        msg_buffer_mem* const send = m_free_sends.Pop(stopping);
        if (send == nullptr)
        {
            return;
        }
        Post_receive(receive);
        Post_send(send);
    }
}

void* LvEndpoint::Worker_thread_helper(void* endpoint)
{
    static_cast<LvEndpoint*>(endpoint)->Worker_thread();
    return nullptr;
}

void LvEndpoint::Cq_polling_loop()
{
    while (m_stop == 0 && WaitForCompletionEvent())
    {
        ibv_cq* queue = nullptr;
        void* context = nullptr;
        if (ibv_get_cq_event(m_comp_channel, &queue, &context) != 0)
        {
            return;
        }
        ibv_ack_cq_events(queue, 1);
        // Armed before the drain, so that a completion that lands during it raises a new event.
        if (ibv_req_notify_cq(queue, 0) != 0 || !DrainCompletions(queue))
        {
            return;
        }
    }
}

bool LvEndpoint::WaitForCompletionEvent()
{
    pollfd waiting[] = {{m_comp_channel->fd, POLLIN, 0}, {m_wake, POLLIN, 0}};
    int ready = 0;
    do
    {
        ready = poll(waiting, 2, -1);
    } while (ready < 0 && errno == EINTR);
    if (waiting[0].revents != 0)
    {
        // A broken channel counts as an event: reading it fails and ends the loop.
        return true;
    }
    if (!m_flushExpected)
    {
        return false;
    }
    // Teardown has begun. The flushed completions end this thread; if they stay away, the limit does.
    const auto deadline = std::chrono::steady_clock::now() + kFlushLimit;
    do
    {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        ready = poll(waiting, 1, static_cast<int>(std::max<std::int64_t>(0, left.count())));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

bool LvEndpoint::DrainCompletions(ibv_cq* queue)
{
    while (true)
    {
        // A failed poll counts as an entry too; it leaves this status and so ends the flow.
        ibv_wc completion{};
        completion.status = IBV_WC_GENERAL_ERR;
        if (ibv_poll_cq(queue, 1, &completion) == 0)
        {
            return true;
        }
        if (m_stop != 0)
        {
            return false;
        }
        if (On_completion(&completion) != 0)
        {
            m_stop = 1;
            return false;
        }
    }
}

void* LvEndpoint::Cq_polling_thread(void* endpoint)
{
    static_cast<LvEndpoint*>(endpoint)->Cq_polling_loop();
    return nullptr;
}

int LvEndpoint::On_completion(ibv_wc* completion)
{
    if (completion->status != IBV_WC_SUCCESS)
    {
        return 1;
    }
    auto* const message = reinterpret_cast<msg_buffer_mem*>(static_cast<std::uintptr_t>(completion->wr_id));
    if (completion->opcode == IBV_WC_RECV)
    {
        message->received = completion->byte_len;
        m_frames.Push(message);
    }
    else if (completion->opcode == IBV_WC_SEND)
    {
        m_free_sends.Push(message);
    }
    return 0;
}

int LvEndpoint::GetBuffer(gevrdmaBuffer* out)
{
    if (!m_connected)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    msg_buffer_mem* const message = m_frames.Pop([this] { return Stopping(); });
    if (message == nullptr)
    {
        return GenTL::GC_ERR_RESOURCE_IN_USE;
    }
    if (m_memory == FrameMemory::Buffers)
    {
        m_receives.Completed(message);
    }
    else
    {
        m_blocks.Taken(message);
    }
    out->id = message;
    out->data = message->addr;
    out->size = message->length;
    out->received = message->received;
    return GenTL::GC_ERR_SUCCESS;
}

bool LvEndpoint::ReadFrame(const gevrdmaBuffer& frame, std::uint64_t offset, void* out, std::size_t length)
{
    if (m_memory == FrameMemory::Buffers)
    {
        return m_receives.Read(frame.id, offset, out, length);
    }
    if (offset > frame.size || length > frame.size - offset)
    {
        return false;
    }
    std::memcpy(out, frame.data + offset, length);
    return true;
}

FramePixels LvEndpoint::PixelsOf(const gevrdmaBuffer& frame, std::uint64_t offset, std::uint64_t size)
{
    return m_memory == FrameMemory::Buffers ? m_receives.PixelsOf(frame.id, offset, size)
                                            : FramePixels{nullptr, 0, frame.data + offset};
}

std::shared_ptr<const void> LvEndpoint::HandOver(void* id, const void* shownBy)
{
    return m_blocks.HandOver(id, shownBy);
}

void LvEndpoint::EndShow(void* id, const void* shownBy)
{
    m_blocks.EndShow(id, shownBy);
}

int LvEndpoint::RequeueBuffer(gevrdmaBuffer* buffer)
{
    if (!m_connected)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    HandOver(buffer->id);
    Return(buffer->id);
    return GenTL::GC_ERR_SUCCESS;
}

int LvEndpoint::RequeueBufferByID(void* id)
{
    if (!m_connected)
    {
        // Deliberate(RequeueNamesAnotherFailure): the text names another failure than the code, which callers only test
        // for zero.
        NQTrace(NQTraceLevel::Expected, "%s GC_ERR_ERROR connection not established ", "RequeueBufferByID");
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    Return(id);
    return GenTL::GC_ERR_SUCCESS;
}

bool LvEndpoint::BeginReceives()
{
    const NQLock setup(m_teardown);
    if (m_cancelled)
    {
        return false;
    }
    m_frames.Reserve(kWorkRequestsPerDirection);
    m_requeued.Reserve(kWorkRequestsPerDirection);
    return m_receives.Begin(m_pd, m_free_sends);
}

void* LvEndpoint::AddReceive(unsigned char* memory, std::uint32_t length, std::shared_ptr<const void> share)
{
    return m_origin.IsInherited() ? nullptr : m_receives.Add(memory, length, std::move(share));
}

void* LvEndpoint::AddReceiveBehindHeaders(unsigned char* memory, std::uint32_t length, std::size_t room)
{
    return m_origin.IsInherited() ? nullptr : m_receives.AddBehindHeaders(memory, length, room);
}

void LvEndpoint::RemoveReceive(void* id)
{
    if (!m_origin.IsInherited())
    {
        m_receives.Remove(id);
    }
}

bool LvEndpoint::PostReceive(void* id)
{
    msg_buffer_mem* const receive = m_receives.TakeForPost(id);
    if (receive == nullptr)
    {
        return false;
    }
    m_requeued.Push(receive);
    return true;
}

void LvEndpoint::Return(void* id)
{
    if (m_blocks.Return(id))
    {
        m_requeued.Push(static_cast<msg_buffer_mem*>(id));
    }
}
