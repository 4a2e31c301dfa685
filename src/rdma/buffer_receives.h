// SPDX-License-Identifier: Apache-2.0
// The receives of a run in which every buffer brings its own memory.
#pragma once

#include "base/nq_mutex.h"
#include "rdma/message_queue.h"
#include "rdma/rdma_records.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

struct ibv_pd;

/// Registers the memory of buffers as they come, with a receive descriptor each, whose address is the id of the memory
/// and does not move; and has as many ready messages as there is room for in the queue pair, all alike and in one piece
/// of registered memory. It holds no more receives posted than there are ready messages.
///
/// Thread-safe, but for Begin, which comes first. Add and Remove allocate, nothing else does.
class BufferReceives
{
  public:
    /// Of at most `most` receives posted at a time.
    explicit BufferReceives(std::uint32_t most) : m_most(most) {}
    BufferReceives(const BufferReceives&) = delete;
    BufferReceives& operator=(const BufferReceives&) = delete;

    /// Registers the ready messages in `domain` and puts them on `sends`. False when the system refuses.
    bool Begin(ibv_pd* domain, MessageQueue& sends);

    /// Registers `length` bytes of memory, and keeps them in place by `share`. The id; null when the system refuses,
    /// for memory that is too long for a receive, before Begin and after End.
    void* Add(unsigned char* memory, std::uint32_t length, std::shared_ptr<const void> share);

    /// Ends the registration of a memory that is not posted.
    void Remove(const void* id);

    /// The descriptor to post, which counts as posted from now on; null for an unknown id, or when as many are posted
    /// as there may be.
    msg_buffer_mem* TakeForPost(const void* id);

    /// A posted receive has brought its frame.
    void Completed(const void* id);

    /// Ends all registrations, once the queue pair is gone. The memory stays until the object goes.
    void End();

  private:
    struct Receive
    {
        msg_buffer_mem descriptor;
        std::shared_ptr<const void> memory;
    };

    std::vector<std::unique_ptr<Receive>>::iterator Find(const void* id) NQ_REQUIRES(m_lock);

    const std::uint32_t m_most;
    NQMutex m_lock;
    ibv_pd* m_domain NQ_GUARDED_BY(m_lock) = nullptr; ///< Null before Begin and after End.
    std::uint32_t m_posted NQ_GUARDED_BY(m_lock) = 0;
    std::vector<std::unique_ptr<Receive>> m_receives NQ_GUARDED_BY(m_lock);
    std::unique_ptr<unsigned char[]> m_readyMessage NQ_GUARDED_BY(m_lock);
    ibv_mr* m_readyRegion NQ_GUARDED_BY(m_lock) = nullptr;
    std::vector<msg_buffer_mem> m_sends NQ_GUARDED_BY(m_lock);
};
