// SPDX-License-Identifier: Apache-2.0
// The receives of a run in which every buffer brings its own memory.
#pragma once

#include "base/nq_mutex.h"
#include "rdma/message_queue.h"
#include "rdma/pinned_pages.h"
#include "rdma/rdma_records.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct ibv_pd;

/// Pixels of a received frame: `frontSize` bytes at `front`, then the others at `data`.
struct FramePixels
{
    const unsigned char* front;
    std::uint64_t frontSize;
    unsigned char* data;
};

/// Registers the memory of buffers as they come, with a receive descriptor each, whose address is the id of the memory
/// and does not move; and has as many ready messages as there is room for in the queue pair, all alike and in one piece
/// of registered memory. It holds no more receives posted than there are ready messages. What a frame is received into:
///
///                         0                  176
///     a block of ours     | headers, then pixels ------------------------>|   one piece, one receive entry
///     the consumer's      | a piece of ours  | the memory announced ----->|   two pieces, two receive entries
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

    /// As Add, for `length` bytes of the consumer's memory, to which `room` bytes belong in all. A frame is received
    /// into a piece of ours, as long as its headers usually are, and then there. Nothing touches the memory any more
    /// after Remove or End. Null also where a fork would tear the memory's pages. Throws std::bad_alloc.
    void* AddBehindHeaders(unsigned char* memory, std::uint32_t length, std::size_t room);

    /// Ends the registration of a memory that is not posted.
    void Remove(const void* id);

    /// The descriptor to post, which counts as posted from now on; null for an unknown id, or when as many are posted
    /// as there may be.
    msg_buffer_mem* TakeForPost(const void* id);

    /// A posted receive has brought its frame.
    void Completed(const void* id);

    /// The first piece of a receive in two; null of any other. Stays as it is while the receive is posted.
    const msg_buffer_mem* HeadersOf(const void* id);

    /// Copies bytes of the frame received last. False, with nothing written, for an unknown id, after End, and when not
    /// all of them came with this very frame: behind them may lie what is left of another one.
    bool Read(const void* id, std::uint64_t offset, void* out, std::size_t length);

    /// Where `size` bytes from `offset` on of a received frame lie. Of a receive whose id is known.
    FramePixels PixelsOf(const void* id, std::uint64_t offset, std::uint64_t size);

    /// Ends all registrations, once the queue pair is gone. The memory that is ours stays until the object goes.
    void End();

  private:
    struct Receive
    {
        msg_buffer_mem descriptor; ///< Its length is that of all pieces, its memory the last one.
        std::shared_ptr<const void> memory;
        msg_buffer_mem headers{};
        std::optional<PagesKeptFromForks> pages;
    };

    std::vector<std::unique_ptr<Receive>>::iterator Find(const void* id) NQ_REQUIRES(m_lock);
    void* Keep(std::unique_ptr<Receive> receive, std::uint32_t length) NQ_REQUIRES(m_lock);
    static void EndRegions(Receive& receive);

    const std::uint32_t m_most;
    NQMutex m_lock;
    ibv_pd* m_domain NQ_GUARDED_BY(m_lock) = nullptr; ///< Null before Begin and after End.
    std::uint32_t m_posted NQ_GUARDED_BY(m_lock) = 0;
    std::vector<std::unique_ptr<Receive>> m_receives NQ_GUARDED_BY(m_lock);
    std::unique_ptr<unsigned char[]> m_readyMessage NQ_GUARDED_BY(m_lock);
    ibv_mr* m_readyRegion NQ_GUARDED_BY(m_lock) = nullptr;
    std::vector<msg_buffer_mem> m_sends NQ_GUARDED_BY(m_lock);
};
