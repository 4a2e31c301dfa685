// SPDX-License-Identifier: Apache-2.0
// The host end of one reliable RDMA connection to a camera's stream port, and the flow of frames over it.
#pragma once

#include "base/nq_mutex.h"
#include "rdma/buffer_receives.h"
#include "rdma/frame_blocks.h"
#include "rdma/message_queue.h"
#include "rdma/rdma_records.h"

#include <atomic>
#include <cstdint>
#include <memory>

#include <netinet/in.h>
#include <pthread.h>
#include <rdma/rdma_cma.h>

/// Whose memory frames are received into.
enum class FrameMemory
{
    Blocks, ///< the endpoint's own, made at the start
    Buffers ///< that of the buffers, which come and go
};

/// One connection, for one acquisition. It is built, connected, started once, torn down and deleted; nothing is reused.
///
///     constructed --Init--> connected --StartWorkerThread--> streaming --m_stop--> stopping --DeInit--> torn down
///                   \-- failure: everything it made is taken down again, false
///
/// Every state goes to "torn down" through DeInit, also from another thread while Init waits for the camera; what is
/// torn down stays so: a step of the start that comes later fails. A camera that disconnects, or a work request that
/// fails, leads to "stopping": the flow ends, and the object waits for DeInit.
///
/// The camera is reached at its address on UDP port 4791 (RoCE v2) through librdmacm, port space RDMA_PS_TCP; the host
/// is the active side. A frame is one SEND of the camera into a posted receive. For each block the host makes available
/// it sends the ready message; that message waits until an earlier one has completed.
///
/// Three threads live here, each until DeInit: the completion thread (from address resolution on), the connection event
/// thread (from the end of Init) and the worker (from StartWorkerThread). A receive descriptor goes round:
///
///     posted --completion thread--> m_frames --GetBuffer--> with the consumer --Requeue*--> m_requeued --worker-->
///     posted
///
/// and a send descriptor alternates between posted and `m_free_sends`. Init, SetBufferSettings,
/// LongestFrame, AllocateAndRegisterMemory and StartWorkerThread are thread-bound to the starting thread and come in
/// this order, the bodies of the three threads and what they call to their threads. DeInit is thread-safe, and so are
/// GetBuffer, IsFlowing, HandOver, EndShow and the requeue calls once the memory is registered. The object must not be
/// deleted while another thread is inside it.
class LvEndpoint
{
  public:
    explicit LvEndpoint(FrameMemory memory = FrameMemory::Blocks);

    /// Tears down when still connected. Gives back the frame blocks and, last, the protection domain.
    ~LvEndpoint();
    LvEndpoint(const LvEndpoint&) = delete;
    LvEndpoint& operator=(const LvEndpoint&) = delete;

    /// Connects to `address`, blocking until the camera accepted or refused, or until a DeInit on another thread, which
    /// ends the wait within 800 ms. Returns false after one line in the log, with everything taken down again. Never
    /// throws.
    bool Init(const sockaddr_in* address);

    /// Disconnects, ends the threads and gives back what Init and AllocateAndRegisterMemory made, except the frame
    /// blocks. Does nothing where there is nothing to undo, so it may be called at any time, again, and from several
    /// threads at once: all return when the connection is down. Takes at most the 800 ms waits of the threads; during a
    /// step of the start on another thread, until that step has ended too. In a forked child, for a connection of the
    /// parent, only closes the copies of its descriptors.
    void DeInit();

    /// @name Steps of the connection
    /// Each throws std::runtime_error on failure; only Init calls them.
    /// @{
    void Build_context(ibv_context* context);
    void Build_qp_attr(ibv_qp_init_attr* attributes);
    void Build_connection(rdma_cm_id* id);
    void On_addr_resolved(rdma_cm_id* id);
    void On_route_resolved(rdma_cm_id* id);
    /// @}

    /// Stops the flow when the event tells of a disconnect; every other event is dropped. On the event thread.
    void On_cm_event(rdma_cm_event* event);

    /// The body of the event thread: takes events until the stop.
    void Cm_event_loop();
    static void* Cm_event_thread(void* endpoint);

    /// Bytes of the longest frame that a receive can take on the port of this connection; on any port once torn down.
    std::uint32_t LongestFrame();

    /// Keeps the payload size and the number of blocks for AllocateAndRegisterMemory.
    void SetBufferSettings(gevrdmaBufferSettings& settings);

    /// Makes `bufferCount` frame blocks and as many ready messages, and registers them. A registration that the system
    /// refuses, or a block of 2^31 bytes or more, ends the function silently: the blocks registered until then make up
    /// the flow, the others stay out.
    /// Throws std::bad_alloc, std::length_error, and std::runtime_error once torn down.
    void AllocateAndRegisterMemory();

    /// Starts the worker, which posts every registered receive and then every ready message.
    /// Throws std::runtime_error, also once torn down.
    void StartWorkerThread();

    /// Posts work for a registered descriptor. A refusal by the queue pair is not reported: that buffer is lost.
    void Post_receive(msg_buffer_mem* message);
    void Post_send(msg_buffer_mem* message);

    /// The body of the worker: posts everything, then what is requeued, until the stop.
    void Worker_thread();
    static void* Worker_thread_helper(void* endpoint);

    /// The body of the completion thread: hands completions on until one has failed, or the end.
    void Cq_polling_loop();
    static void* Cq_polling_thread(void* endpoint);

    /// Hands a completed descriptor to its queue. Returns non-zero when the completion failed and the flow must end.
    int On_completion(ibv_wc* completion);

    /// Waits without limit for a frame and fills `out`. GC_ERR_NOT_IMPLEMENTED when not connected,
    /// GC_ERR_RESOURCE_IN_USE when stopped (at the latest 800 ms after the stop; a frame that arrived meanwhile is then
    /// not delivered).
    int GetBuffer(gevrdmaBuffer* out);

    /// Whether GetBuffer waits for frames: false when not connected and when stopped.
    bool IsFlowing() const { return m_connected && !Stopping(); }

    /// The frame that GetBuffer brought in this block has been delivered or dropped. A block that `shownBy` shows can
    /// be given back once EndShow tells that it does so no more, any other at once. The share in the block's memory,
    /// null for any other id.
    std::shared_ptr<const void> HandOver(void* id, const void* shownBy = nullptr);
    void EndShow(void* id, const void* shownBy);

    /// Gives a frame block back: the first one that GetBuffer brought, the second one that was handed over and is not
    /// on show. GC_ERR_NOT_IMPLEMENTED when not connected. Ids that name no registered receive descriptor of this
    /// endpoint are dropped, and so is any other block: the camera would write into a frame that is being read.
    int RequeueBuffer(gevrdmaBuffer* buffer);
    int RequeueBufferByID(void* id);

    /// Copies `length` bytes from `offset` on of a frame that GetBuffer brought and nobody has given back: the one way
    /// to its headers. False when they do not lie in its block; of buffers' memory also when they did not come with
    /// this frame, and once torn down.
    bool ReadFrame(const gevrdmaBuffer& frame, std::uint64_t offset, void* out, std::size_t length);

    /// Where its pixels are, `size` bytes from `offset` on, which lie in the block.
    FramePixels PixelsOf(const gevrdmaBuffer& frame, std::uint64_t offset, std::uint64_t size);

    /// @name Buffers that bring their own memory
    /// For an endpoint of FrameMemory::Buffers without blocks (`bufferCount` 0) whose worker runs.
    /// @{

    /// Makes the ready messages. False when the system refuses, or once torn down. Throws std::bad_alloc.
    bool BeginReceives();

    /// As those of BufferReceives. Null once torn down, and in a forked child for a connection of the parent.
    void* AddReceive(unsigned char* memory, std::uint32_t length, std::shared_ptr<const void> share);
    void* AddReceiveBehindHeaders(unsigned char* memory, std::uint32_t length, std::size_t room);
    void RemoveReceive(void* id);

    /// Lets the worker post the receive and then a ready message. False, for now, when as many are posted as there is
    /// room for.
    bool PostReceive(void* id);
    /// @}

  private:
    friend struct LvEndpointAccess;

    static constexpr std::uint32_t kWorkRequestsPerDirection = 100;

    void ThrowingConnect(const sockaddr_in* address);
    void ExpectEvent(rdma_cm_event_type expected, const char* name, bool ackMismatch);
    void AckEvent();
    bool AwaitEvent();
    bool ReadCmEvent();

    bool Stopping() const;
    void TearDown() NQ_REQUIRES(m_teardown);
    void LeaveConnection() NQ_REQUIRES(m_teardown);
    void JoinThreads() NQ_REQUIRES(m_teardown);
    void DestroyQueues() NQ_REQUIRES(m_teardown);
    void ReleaseRegions() NQ_REQUIRES(m_teardown);
    void DestroyIds() NQ_REQUIRES(m_teardown);
    void Abandon() NQ_REQUIRES(m_teardown);

    void RequireStanding() const;
    bool RegisterBlock(std::uint32_t index);
    bool RegisterReadyMessage(std::uint32_t index);
    bool WaitForCompletionEvent();
    bool DrainCompletions(ibv_cq* queue);
    void Return(void* id);

    std::atomic<std::uint8_t> m_stop;
    rdma_event_channel* m_event_channel;
    rdma_cm_id* m_cm_id_listener;
    rdma_cm_id* m_cm_id_connection;
    ibv_qp* m_qp;
    ibv_pd* m_pd;
    ibv_cq* m_cq;
    ibv_comp_channel* m_comp_channel;
    pthread_t m_cq_thread;
    pthread_t m_cm_thread;
    pthread_t m_worker_thread;
    gevrdmaBufferSettings m_settings;
    std::atomic<bool> m_connected;
    std::unique_ptr<msg_buffer_mem[]> m_recv_msgs;
    std::unique_ptr<msg_buffer_mem[]> m_send_msgs;
    MessageQueue m_free_sends;
    MessageQueue m_frames;
    MessageQueue m_requeued;
    rdma_cm_event* m_event; // Not yet acknowledged while set.
    FrameBlocks m_blocks;
    BufferReceives m_receives{kWorkRequestsPerDirection};
    const FrameMemory m_memory;

    // Registration goes in array order and stops at the first refusal, so the descriptors in use are the first ones.
    std::atomic<std::uint32_t> m_receiveCount;
    std::uint32_t m_sendCount;

    // Set first of all by DeInit, before it waits for its turn: ends the start that another thread has under way.
    std::atomic<bool> m_cancelled;

    // What ends the threads when no completion does: DeInit sets the flag and writes to the descriptor. `m_stop` alone
    // would leave them asleep for ever after a connection that never came to flow.
    std::atomic<bool> m_ending;
    std::atomic<bool> m_flushExpected;
    int m_wake;
    const NQOrigin m_origin;
    NQMutex m_teardown{NQHeld::Long}; // Held by each step of the start, and by the teardown, to its end.
};

/// Fills connection parameters that no connection uses: rdma_connect is called without any. Reentrant.
void build_params(rdma_conn_param* params);
