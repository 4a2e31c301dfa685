// SPDX-License-Identifier: Apache-2.0
// The library's own road of a frame: buffers are bound to the transport's blocks as the frames come.
#pragma once

#include "gentl/nq_gentl_frame_road.h"

#include <memory>
#include <vector>

namespace GigERDMA
{

/// A frame goes to the buffer that is bound to its block, else to the one that waits longest, which is bound to it from
/// then on. A buffer with memory of its own is filled by a copy, any other points into the block and has a share in it.
class NQGenTLBoundBlocks : public NQGenTLFrameRoad
{
  public:
    NQGenTLBoundBlocks(NQGenTLDataStream& stream, NQGenTLBufferQueue& buffers);

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
    using Shares = std::vector<std::shared_ptr<const void>>;

    void EndShow(NQGenTLBuffer& buffer);

    NQGenTLDataStream& m_stream;
    NQGenTLBufferQueue& m_buffers;

    /// In the blocks whose addresses revocations have handed out, until the next start.
    Shares m_handedOut;
};

} // namespace GigERDMA
