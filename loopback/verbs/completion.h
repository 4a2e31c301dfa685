// SPDX-License-Identifier: Apache-2.0
// Completion channels and completion queues.
#pragma once

#include "verbs/device.h"

#include <deque>
#include <mutex>

namespace nq::loopback
{

class CompletionQueue;

/// The completion of a work request that failed. Only wr_id, status, qp_num and vendor_err are valid in it: the rest is
/// what misleads most a user who looks at it, the opcode of the other queue and poisoned bytes.
ibv_wc FailedCompletion(uint64_t work, ibv_wc_status status, uint32_t queuePair, ibv_wc_opcode opcode);

/// A channel that tells of completions. Its public `refcnt` counts its queues.
class CompletionChannel : public ibv_comp_channel, private Counted<Kind::CompletionChannel>
{
  public:
    explicit CompletionChannel(ibv_context* owner);

    EventQueue<CompletionQueue*>& Events() { return m_events; }
    std::atomic<int>& Users() { return m_users; }

  private:
    EventQueue<CompletionQueue*> m_events;
    std::atomic<int> m_users{0};
};

/// A completion queue of fixed capacity. Its lock is taken under a queue pair's lock, never the other way. All threads.
class CompletionQueue : public ibv_cq, private Counted<Kind::CompletionQueue>
{
  public:
    CompletionQueue(ibv_context* owner, int entries, void* userContext, CompletionChannel* tells);
    ~CompletionQueue();

    static CompletionQueue& From(ibv_cq* queue) { return *static_cast<CompletionQueue*>(queue); }

    /// Adds a completion and raises the armed event. False when there was no room: the completion is lost, the queue
    /// says so by an asynchronous event, and the queue pair that it came from has to go to the error state.
    bool Push(const ibv_wc& completion, bool solicited);

    /// Changes the capacity. Throws EINVAL when more than that many completions are waiting.
    void Resize(int entries);

    /// Takes back the events that nobody has read and waits until those read are acknowledged.
    void WaitForAcknowledgements();

    /// Queue pairs that complete here, each direction counted.
    std::atomic<int> users{0};

    /// Counts an event that was read. Runs under the channel's lock.
    void CountRead() { ++m_eventsRead; }

    // The calls that reach a completion queue through its context.
    static int Poll(ibv_cq* queue, int count, ibv_wc* completions);
    static int RequestNotify(ibv_cq* queue, int solicitedOnly);

  private:
    enum class Armed
    {
        No,
        Solicited,
        All
    };

    std::mutex m_mutex;
    std::deque<ibv_wc> m_completions;
    size_t m_capacity;
    Armed m_armed = Armed::No;
    bool m_overflowed = false;
    std::atomic<uint32_t> m_eventsRead{0};
};

} // namespace nq::loopback
