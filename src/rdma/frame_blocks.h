// SPDX-License-Identifier: Apache-2.0
// The one record of who may touch which frame block.
#pragma once

#include "base/nq_mutex.h"
#include "rdma/GenDCBuffer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// The frame blocks of one run. A block is the memory that one frame is received into; its id is the address of its
/// receive descriptor.
///
///                             Taken                      HandOver to the buffer
///     +-> with the camera ------------> on its way up ---------------------------> shown by the buffer
///     |                                       |                                            |
///     |                                       | HandOver to none                           | EndShow by that buffer
///     |                                       v                                            |
///     +---------- Return ----------------- with nobody <-----------------------------------+
///
/// With the camera: its receive is posted, is about to be, or holds a frame that nobody has taken yet. Every block
/// starts here. On its way up: the acquisition thread decodes and delivers the frame. Shown: the consumer may be
/// reading the frame in the block itself, through the buffer that took it last; the camera must not write. With nobody:
/// the frame was copied, dropped, or given up by its buffer.
///
/// Only from "with nobody" does a block go back to the camera, for any buffer that has its id: more than one can have
/// it, since a buffer keeps its id when it is flushed. A return in any other state is refused and changes nothing, so
/// that it works at a later time.
///
/// The moves are made by
///   Taken     the acquisition thread, LvEndpoint::GetBuffer;
///   HandOver  the acquisition thread: NQGenTLDataStream::EndOfTransfer, and GevRdmaEndpoint::GetNextFrame for a frame
///             that never gets there;
///   EndShow   whoever queues or revokes the buffer, or lets it take a frame in another block: NQGenTLDataStream;
///   Return    whoever queues a buffer: NQGenTLDataStream::QueueBuffer.
///
/// Kept from an earlier run is a block whose memory outlives this object. HandOver gives the buffer a share in it,
/// which the buffer has for as long as it points there: until it takes another frame or is revoked. A revocation that
/// hands the address out leaves the share with the stream until the next start. The last share frees the memory.
///
/// Thread-safe. Make allocates, nothing else does.
class FrameBlocks
{
  public:
    /// Makes `count` blocks for `payloadSize` bytes each, none of them registered. Throws std::bad_alloc,
    /// std::length_error.
    void Make(std::uint32_t count, std::size_t payloadSize);

    /// Number of blocks made.
    std::size_t Count() const;

    /// The memory of a block that was made.
    GenDCBuffer& Memory(std::size_t index) const;

    /// Names a block, from now on with the camera. Ids of blocks that were not registered do not exist.
    void Register(std::size_t index, const void* id);

    // Each of these changes nothing when the id does not exist or the state is not the one named above.

    void Taken(const void* id);

    /// `shownBy` is the buffer that points to the frame, null for none. The share in the block's memory.
    std::shared_ptr<const void> HandOver(const void* id, const void* shownBy);

    /// `buffer` no longer shows the frame in the block, if it did.
    void EndShow(const void* id, const void* buffer);

    /// True when the block may be posted for the camera, by the caller.
    bool Return(const void* id);

    /// Lets go of all memory.
    void Clear();

  private:
    enum class State : std::uint8_t
    {
        Camera,
        OnItsWay,
        Shown,
        Nobody
    };

    struct Block
    {
        std::shared_ptr<GenDCBuffer> memory;
        const void* id = nullptr;
        State state = State::Camera;
        const void* shownBy = nullptr;
    };

    Block* Find(const void* id, State state) NQ_REQUIRES(m_lock);
    std::size_t PlaceInArray(const void* id) const NQ_REQUIRES(m_lock);

    mutable NQMutex m_lock;
    std::vector<Block> m_blocks NQ_GUARDED_BY(m_lock);
};
