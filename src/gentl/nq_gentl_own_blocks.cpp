// SPDX-License-Identifier: Apache-2.0
// Posting of buffers, and the choice of the buffer for a frame.
#include "gentl/nq_gentl_own_blocks.h"

#include "base/nq_answers.h"
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_buffer_queue.h"
#include "gentl/nq_gentl_data_stream.h"

#include <algorithm>
#include <utility>
#include <vector>

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
        Register(buffer);
    }
    return true;
}

void NQGenTLOwnBlocks::Register(NQGenTLBuffer& buffer)
{
    void* const rdmaId = m_stream.DoRegisterBuffer(buffer);
    buffer.SetRdmaId(rdmaId);
    if (rdmaId != nullptr)
    {
        m_blocks.emplace(rdmaId, &buffer);
    }
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
        m_blocks.erase(rdmaId);
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
        Register(*buffer);
    }
    Post();
}

void NQGenTLOwnBlocks::End()
{
    m_running = false;
    m_posted = 0;
    m_blocks.clear();
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
NQGenTLBuffer* NQGenTLOwnBlocks::PostedBuffer(void* rdmaId) const
{
    const auto own = m_blocks.find(rdmaId);
    return own != m_blocks.end() && own->second->IsPosted() ? own->second : nullptr;
}

/// The first buffer that waits unposted, has a block, and stands behind as many as flushed blocks bring a frame for:
/// blocks that are posted while their buffers do not wait.
NQGenTLBuffer* NQGenTLOwnBlocks::NextToPost()
{
    return m_buffers.LookAtQueued([this](const std::vector<NQGenTLBuffer*>& waiting) -> NQGenTLBuffer* {
        const auto isPosted = [](NQGenTLBuffer* buffer) { return buffer->IsPosted(); };
        auto flushed = m_posted - static_cast<unsigned int>(std::count_if(waiting.begin(), waiting.end(), isPosted));
        for (NQGenTLBuffer* const buffer : waiting)
        {
            if (buffer->IsPosted())
            {
                continue;
            }
            if (flushed != 0)
            {
                --flushed;
            }
            else if (buffer->GetRdmaId() != nullptr)
            {
                return buffer;
            }
        }
        return nullptr;
    });
}

/// Posts what waits, but for as many as flushed blocks bring a frame for.
void NQGenTLOwnBlocks::Post()
{
    NQGenTLBuffer* next = nullptr;
    while (m_running && (next = NextToPost()) != nullptr)
    {
        if (m_stream.DoRequeueBuffer(next->GetRdmaId()) != GenTL::GC_ERR_SUCCESS)
        {
            return; // The transport is full; the next frame makes room.
        }
        next->SetPosted(true);
        ++m_posted;
    }
}

} // namespace GigERDMA
