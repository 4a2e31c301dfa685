// SPDX-License-Identifier: Apache-2.0
// Posting of buffers, and the choice of the buffer for a frame.
#include "gentl/nq_gentl_own_blocks.h"

#include "base/nq_answers.h"
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_buffer_queue.h"
#include "gentl/nq_gentl_data_stream.h"

#include <utility>

namespace GigERDMA
{

NQGenTLOwnBlocks::NQGenTLOwnBlocks(NQGenTLDataStream& stream, NQGenTLBufferQueue& buffers)
    : m_stream(stream), m_buffers(buffers)
{
}

bool NQGenTLOwnBlocks::Announce(NQGenTLBuffer& buffer)
{
    if (buffer.ShowsFrameBlocks() && m_stream.Answers().ownMemory)
    {
        NQBlockMemory memory = m_stream.DoMakeMemory(buffer.GetSize());
        if (memory.data == nullptr)
        {
            return false;
        }
        buffer.GiveMemory(memory.data, std::move(memory.share));
    }
    if (m_running)
    {
        buffer.SetRdmaId(m_stream.DoRegisterBuffer(buffer));
    }
    return true;
}

void NQGenTLOwnBlocks::Queue(NQGenTLBuffer& buffer)
{
    m_buffers.Add(NQ_BUFFER_TYPE_QUEUED, &buffer);
    Post();
}

bool NQGenTLOwnBlocks::Expects(void* rdmaId)
{
    return PostedBuffer(rdmaId) != nullptr;
}

NQGenTLBuffer* NQGenTLOwnBlocks::TakeFor(void* rdmaId)
{
    NQGenTLBuffer* const own = PostedBuffer(rdmaId);
    if (own != nullptr && m_buffers.FindByHandle(NQ_BUFFER_TYPE_QUEUED, own->GetModule(), true) != nullptr)
    {
        return own;
    }
    for (unsigned int i = 0; NQGenTLBuffer* const waiting = m_buffers.FindByIndex(NQ_BUFFER_TYPE_QUEUED, i, false); ++i)
    {
        if (!waiting->IsPosted())
        {
            return m_buffers.FindByIndex(NQ_BUFFER_TYPE_QUEUED, i, true);
        }
    }
    return nullptr;
}

std::shared_ptr<const void> NQGenTLOwnBlocks::HandOver(NQGenTLBuffer*, void* rdmaId)
{
    if (NQGenTLBuffer* const own = PostedBuffer(rdmaId))
    {
        own->SetPosted(false);
        --m_posted;
        Post();
    }
    return nullptr;
}

bool NQGenTLOwnBlocks::IsWithCamera(NQGenTLBuffer& buffer)
{
    return buffer.IsPosted();
}

void* NQGenTLOwnBlocks::Revoke(NQGenTLBuffer& buffer, bool)
{
    if (void* const rdmaId = buffer.GetRdmaId())
    {
        m_stream.DoForgetBuffer(rdmaId);
    }
    return buffer.HasOwnBlock() ? nullptr : buffer.GetData();
}

void NQGenTLOwnBlocks::Begin()
{
    m_running = true;
    for (unsigned int i = 0; NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, i, false);
         ++i)
    {
        buffer->SetRdmaId(m_stream.DoRegisterBuffer(*buffer));
    }
    Post();
}

void NQGenTLOwnBlocks::End()
{
    m_running = false;
    m_posted = 0;
    for (unsigned int i = 0; NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, i, false);
         ++i)
    {
        buffer->SetRdmaId(nullptr);
        buffer->SetPosted(false);
    }
}

std::shared_ptr<const void> NQGenTLOwnBlocks::Forget()
{
    End();
    return nullptr;
}

/// The buffer whose posted block that is; null for any other id.
NQGenTLBuffer* NQGenTLOwnBlocks::PostedBuffer(void* rdmaId)
{
    NQGenTLBuffer* const own = m_buffers.FindByRdmaID(NQ_BUFFER_TYPE_ANNOUNCED, rdmaId, false);
    return own != nullptr && own->IsPosted() ? own : nullptr;
}

/// How many blocks are posted whose buffers do not wait.
unsigned int NQGenTLOwnBlocks::CountFlushed()
{
    unsigned int flushed = m_posted;
    for (unsigned int i = 0; NQGenTLBuffer* const waiting = m_buffers.FindByIndex(NQ_BUFFER_TYPE_QUEUED, i, false); ++i)
    {
        flushed -= waiting->IsPosted() ? 1 : 0;
    }
    return flushed;
}

/// Posts what waits, but for as many as flushed blocks bring a frame for.
void NQGenTLOwnBlocks::Post()
{
    if (!m_running)
    {
        return;
    }
    unsigned int flushed = CountFlushed();
    for (unsigned int i = 0; NQGenTLBuffer* const waiting = m_buffers.FindByIndex(NQ_BUFFER_TYPE_QUEUED, i, false); ++i)
    {
        if (waiting->IsPosted())
        {
            continue;
        }
        if (flushed != 0)
        {
            --flushed;
            continue;
        }
        if (void* const rdmaId = waiting->GetRdmaId())
        {
            if (m_stream.DoRequeueBuffer(rdmaId) != GenTL::GC_ERR_SUCCESS)
            {
                return; // The transport is full; the next frame makes room.
            }
            waiting->SetPosted(true);
            ++m_posted;
        }
    }
}

} // namespace GigERDMA
