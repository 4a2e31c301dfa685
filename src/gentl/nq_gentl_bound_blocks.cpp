// SPDX-License-Identifier: Apache-2.0
// Binding of buffers to blocks, and the return of blocks.
#include "gentl/nq_gentl_bound_blocks.h"

#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_buffer_queue.h"
#include "gentl/nq_gentl_data_stream.h"

#include <algorithm>
#include <utility>

namespace GigERDMA
{

NQGenTLBoundBlocks::NQGenTLBoundBlocks(NQGenTLDataStream& stream, NQGenTLBufferQueue& buffers)
    : m_stream(stream), m_buffers(buffers)
{
}

bool NQGenTLBoundBlocks::Announce(NQGenTLBuffer&)
{
    return true;
}

void NQGenTLBoundBlocks::Queue(NQGenTLBuffer& buffer)
{
    EndShow(buffer);
    if (void* const rdmaId = buffer.GetRdmaId())
    {
        m_stream.DoRequeueBuffer(rdmaId);
    }
    m_buffers.Add(NQ_BUFFER_TYPE_QUEUED, &buffer);
}

bool NQGenTLBoundBlocks::Expects(void*)
{
    return true;
}

NQGenTLBuffer* NQGenTLBoundBlocks::TakeFor(void* rdmaId)
{
    if (NQGenTLBuffer* const bound = m_buffers.FindByRdmaID(NQ_BUFFER_TYPE_QUEUED, rdmaId, true))
    {
        return bound;
    }
    NQGenTLBuffer* const front = m_buffers.GetFront(NQ_BUFFER_TYPE_QUEUED, true);
    if (front != nullptr)
    {
        EndShow(*front);
        front->SetRdmaId(rdmaId);
    }
    return front;
}

std::shared_ptr<const void> NQGenTLBoundBlocks::HandOver(NQGenTLBuffer* buffer, void* rdmaId)
{
    const bool shows = buffer != nullptr && buffer->ShowsFrameBlocks();
    std::shared_ptr<const void> memory = m_stream.DoHandOver(rdmaId, shows ? buffer : nullptr);
    return shows ? buffer->HoldMemory(std::move(memory)) : nullptr;
}

/// Tells that the buffer's frame is not looked at any more: the buffer waits for another one, has got it, or goes.
void NQGenTLBoundBlocks::EndShow(NQGenTLBuffer& buffer)
{
    if (void* const rdmaId = buffer.GetRdmaId())
    {
        m_stream.DoEndShow(rdmaId, &buffer);
    }
}

bool NQGenTLBoundBlocks::IsWithCamera(NQGenTLBuffer&)
{
    return false;
}

void* NQGenTLBoundBlocks::Revoke(NQGenTLBuffer& buffer, bool handOut)
{
    EndShow(buffer);
    std::shared_ptr<const void> memory = buffer.GetMemory();
    // Once for each block, however many buffers that showed it are revoked.
    if (handOut && memory != nullptr && std::find(m_handedOut.begin(), m_handedOut.end(), memory) == m_handedOut.end())
    {
        m_handedOut.push_back(std::move(memory));
    }
    return buffer.GetData();
}

void NQGenTLBoundBlocks::Begin() {}

void NQGenTLBoundBlocks::End() {}

std::shared_ptr<const void> NQGenTLBoundBlocks::Forget()
{
    for (unsigned int i = 0; NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, i, false);
         ++i)
    {
        buffer->SetRdmaId(nullptr);
    }
    return std::make_shared<Shares>(std::exchange(m_handedOut, {}));
}

} // namespace GigERDMA
