// SPDX-License-Identifier: Apache-2.0
// The two ways in which frames of the transport get into the buffers of a data stream.
#pragma once

#include <memory>

namespace GigERDMA
{

class NQGenTLBuffer;
class NQGenTLBufferQueue;
class NQGenTLDataStream;

/// Memory for a buffer; a null `data` for none.
struct NQBlockMemory
{
    unsigned char* data = nullptr;     ///< Where the pixels go.
    std::shared_ptr<const void> share; ///< Keeps the memory in place.
};

/// Which buffer takes which frame, and when the camera may write to which memory. One object serves a stream for its
/// life; which of the two kinds it is, its answers decide:
///
///     NQGenTLBoundBlocks   the transport has blocks of its own; a buffer is bound to the block whose frame it takes
///     NQGenTLOwnBlocks     each buffer is its own block, and queueing it lets the camera fill it
///
/// A block is known by its RDMA id. Thread-bound to whoever holds the queueing lock of the stream, TakeFor and HandOver
/// besides to the acquisition thread.
class NQGenTLFrameRoad
{
  public:
    NQGenTLFrameRoad() = default;
    virtual ~NQGenTLFrameRoad() = default;
    NQGenTLFrameRoad(const NQGenTLFrameRoad&) = delete;
    NQGenTLFrameRoad& operator=(const NQGenTLFrameRoad&) = delete;

    /// Prepares a buffer that is about to be announced. False when there is no memory for it.
    virtual bool Announce(NQGenTLBuffer& buffer) = 0;

    /// Puts a buffer, whose queued flag has just been set, on the input list.
    virtual void Queue(NQGenTLBuffer& buffer) = 0;

    /// Whether frames of the block are wanted at all: those of a run that is over are not.
    virtual bool Expects(void* rdmaId) = 0;

    /// Takes the buffer for the frame in the block off the input list; null when none waits for it.
    virtual NQGenTLBuffer* TakeFor(void* rdmaId) = 0;

    /// The frame in the block is in `buffer`, or dropped when that is null; the camera may have the block again. The
    /// share in the memory that the buffer showed before, which goes without a lock.
    virtual std::shared_ptr<const void> HandOver(NQGenTLBuffer* buffer, void* rdmaId) = 0;

    /// Whether the camera may write to the buffer at any time.
    virtual bool IsWithCamera(NQGenTLBuffer& buffer) = 0;

    /// The buffer goes. The memory that its revocation hands out, which stays until the next start if `handOut`.
    virtual void* Revoke(NQGenTLBuffer& buffer, bool handOut) = 0;

    /// A run begins or has ended, the transport runs or does so no more.
    virtual void Begin() = 0;
    virtual void End() = 0;

    /// The blocks of the last run are about to go. What was kept of them, which goes without a lock.
    virtual std::shared_ptr<const void> Forget() = 0;
};

/// The road for the answers of the stream, which owns its buffers and outlives the road.
std::unique_ptr<NQGenTLFrameRoad> MakeFrameRoad(NQGenTLDataStream& stream, NQGenTLBufferQueue& buffers);

} // namespace GigERDMA
