// SPDX-License-Identifier: Apache-2.0
// The standard's road of a frame: each buffer is its own block, and queueing it lets the camera fill it.
#pragma once

#include "gentl/nq_gentl_frame_road.h"

#include <memory>
#include <unordered_map>

namespace GigERDMA
{

/// Every announced buffer has a block for as long as a run lasts: its own memory, whoever it is from, or, where that
/// will not do, one of the transport's, out of which its frames are copied. What the camera may do with it:
///
///                      QueueBuffer                    a frame is in the block
///     not posted --------------------> posted -------------------------------> not posted
///
/// A posted block cannot be withdrawn. So after a flush blocks are posted whose buffers do not wait: flushed ones.
///
///     posted      waits    its next frame goes to
///     yes         yes      the buffer itself
///     yes         no       the first buffer that waits unposted, by a copy; without one it is an underrun
///     no          yes      a flushed block's frame, or its own once it is posted
///
/// As many buffers that wait are left unposted as there are flushed blocks, first the ones that wait longest, so that
/// the camera sends one frame for each buffer that waits. Those that find the transport full are posted as frames come.
/// A buffer whose block is posted is not revoked before the run ends; one that is queued again simply waits again.
class NQGenTLOwnBlocks : public NQGenTLFrameRoad
{
  public:
    NQGenTLOwnBlocks(NQGenTLDataStream& stream, NQGenTLBufferQueue& buffers);

    bool Announce(NQGenTLBuffer& buffer) override;
    void Queue(NQGenTLBuffer& buffer) override;
    bool Expects(void* rdmaId) override;
    NQGenTLBuffer* TakeFor(void* rdmaId) override;
    std::shared_ptr<const void> HandOver(NQGenTLBuffer* buffer, void* rdmaId) override;
    bool IsWithCamera(NQGenTLBuffer& buffer) override;
    void* Revoke(NQGenTLBuffer& buffer, bool handOut) override;
    void Begin() override;
    void End() override;
    std::shared_ptr<const void> Forget() override;

  private:
    void Register(NQGenTLBuffer& buffer);
    NQGenTLBuffer* PostedBuffer(void* rdmaId) const;
    NQGenTLBuffer* NextToPost();
    void Post();

    NQGenTLDataStream& m_stream;
    NQGenTLBufferQueue& m_buffers;
    bool m_running = false;
    std::unordered_map<void*, NQGenTLBuffer*> m_blocks; ///< The buffers that the running transport knows, by block.
    unsigned int m_posted = 0;
};

} // namespace GigERDMA
