// SPDX-License-Identifier: Apache-2.0
// Moving and finding the buffers of a data stream.
#include "gentl/nq_gentl_buffer_queue.h"

#include "gentl/nq_gentl_buffer.h"

#include <algorithm>
#include <memory>

namespace GigERDMA
{

NQGenTLBufferQueue::~NQGenTLBufferQueue()
{
    Clear(NQ_BUFFER_TYPE_QUEUED, false);
    Clear(NQ_BUFFER_TYPE_ANNOUNCED, true);
}

NQGenTLBufferQueue::Buffers* NQGenTLBufferQueue::_getBufferQueue(NQ_BUFFER_TYPE_LIST list)
{
    switch (list)
    {
    case NQ_BUFFER_TYPE_QUEUED:
        return &m_queued;
    case NQ_BUFFER_TYPE_ANNOUNCED:
        return &m_announced;
    }
    return nullptr;
}

void NQGenTLBufferQueue::Append(Buffers& buffers, NQGenTLBuffer* buffer)
{
    if (&buffers == &m_announced)
    {
        m_index.MakeRoom();
        buffers.push_back(buffer);
        m_index.Add(buffer);
        return;
    }
    buffers.push_back(buffer);
}

NQGenTLBufferQueue::Buffers::iterator NQGenTLBufferQueue::Erase(Buffers& buffers, Buffers::iterator entry)
{
    if (&buffers == &m_announced)
    {
        m_index.Remove(*entry);
    }
    return buffers.erase(entry);
}

template <typename Match>
NQGenTLBuffer* NQGenTLBufferQueue::Find(NQ_BUFFER_TYPE_LIST list, Match match, bool remove)
{
    NQGenTLLock lock(m_lock);
    Buffers* const buffers = _getBufferQueue(list);
    if (buffers == nullptr)
    {
        return nullptr;
    }
    const auto found = std::find_if(buffers->begin(), buffers->end(), match);
    if (found == buffers->end())
    {
        return nullptr;
    }
    NQGenTLBuffer* const buffer = *found;
    if (remove)
    {
        Erase(*buffers, found);
    }
    return buffer;
}

unsigned int NQGenTLBufferQueue::GetCount(NQ_BUFFER_TYPE_LIST list)
{
    NQGenTLLock lock(m_lock);
    const Buffers* const buffers = _getBufferQueue(list);
    return buffers == nullptr ? 0 : static_cast<unsigned int>(buffers->size());
}

unsigned int NQGenTLBufferQueue::GetBiggestSize(NQ_BUFFER_TYPE_LIST list)
{
    NQGenTLLock lock(m_lock);
    unsigned int biggest = 0;
    if (const Buffers* const buffers = _getBufferQueue(list))
    {
        // Deliberate(BiggestSizeHas32Bits): of a size of 4 GiB and more only the low 32 bits count: a start takes the
        // size as 32 bits, and the transport goes by the camera's size instead.
        for (NQGenTLBuffer* const buffer : *buffers)
        {
            biggest = std::max(biggest, static_cast<unsigned int>(buffer->GetSize()));
        }
    }
    return biggest;
}

bool NQGenTLBufferQueue::Add(NQ_BUFFER_TYPE_LIST list, NQGenTLBuffer* buffer)
{
    NQGenTLLock lock(m_lock);
    Buffers* const buffers = _getBufferQueue(list);
    if (buffers == nullptr || buffer == nullptr)
    {
        return false;
    }
    Append(*buffers, buffer);
    return true;
}

void NQGenTLBufferQueue::Clear(NQ_BUFFER_TYPE_LIST list, bool deleteBuffers)
{
    NQGenTLLock lock(m_lock);
    Buffers* const buffers = _getBufferQueue(list);
    if (buffers == nullptr)
    {
        return;
    }
    if (deleteBuffers)
    {
        // A buffer that was added twice is deleted once.
        while (!buffers->empty())
        {
            const std::unique_ptr<NQGenTLBuffer> buffer(buffers->front());
            for (auto found = buffers->begin(); found != buffers->end();
                 found = std::find(found, buffers->end(), buffer.get()))
            {
                found = Erase(*buffers, found);
            }
        }
    }
    buffers->clear();
    if (buffers == &m_announced)
    {
        m_index.Clear();
    }
}

NQGenTLBuffer* NQGenTLBufferQueue::GetFront(NQ_BUFFER_TYPE_LIST list, bool remove)
{
    return Find(
        list, [](NQGenTLBuffer*) { return true; }, remove);
}

void NQGenTLBufferQueue::MoveTo(NQ_BUFFER_TYPE_LIST dest, NQ_BUFFER_TYPE_LIST source, bool remove)
{
    NQGenTLLock lock(m_lock);
    Buffers* const from = _getBufferQueue(source);
    Buffers* const to = _getBufferQueue(dest);
    if (from == nullptr || to == nullptr || from->empty())
    {
        return;
    }
    NQGenTLBuffer* const moved = from->front();
    Append(*to, moved);
    if (remove)
    {
        Erase(*from, from->begin());
    }
}

void NQGenTLBufferQueue::FlushTo(NQ_BUFFER_TYPE_LIST dest, NQ_BUFFER_TYPE_LIST source, bool clear)
{
    NQGenTLLock lock(m_lock);
    Buffers* const from = _getBufferQueue(source);
    Buffers* const to = _getBufferQueue(dest);
    if (from == nullptr || to == nullptr)
    {
        return;
    }
    const Buffers moved = *from;
    for (NQGenTLBuffer* const buffer : moved)
    {
        Append(*to, buffer);
    }
    if (clear)
    {
        Clear(source, false);
    }
}

NQGenTLBuffer* NQGenTLBufferQueue::FindByRdmaID(NQ_BUFFER_TYPE_LIST list, void* id, bool remove)
{
    if (id == nullptr)
    {
        return nullptr;
    }
    return Find(
        list, [&](NQGenTLBuffer* buffer) { return buffer->GetRdmaId() == id; }, remove);
}

NQGenTLBuffer* NQGenTLBufferQueue::FindByIndex(NQ_BUFFER_TYPE_LIST list, unsigned int index, bool remove)
{
    NQGenTLLock lock(m_lock);
    Buffers* const buffers = _getBufferQueue(list);
    if (buffers == nullptr || index >= buffers->size())
    {
        return nullptr;
    }
    const auto found = buffers->begin() + index;
    NQGenTLBuffer* const buffer = *found;
    if (remove)
    {
        Erase(*buffers, found);
    }
    return buffer;
}

bool NQGenTLBufferQueue::GetInfoOf(void* handle, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize,
                                   int* result)
{
    NQGenTLLock lock(m_lock);
    NQGenTLBuffer* const buffer = m_index.Find(handle);
    if (buffer == nullptr)
    {
        return false;
    }
    *result = buffer->GetInfo(iInfoCmd, piType, pBuffer, piSize);
    return true;
}

NQGenTLBuffer* NQGenTLBufferQueue::FindByHandle(NQ_BUFFER_TYPE_LIST list, void* handle, bool remove)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    if (list == NQ_BUFFER_TYPE_ANNOUNCED && !remove)
    {
        NQGenTLLock lock(m_lock);
        return m_index.Find(handle);
    }
    return Find(
        list, [&](NQGenTLBuffer* buffer) { return buffer->GetModule() == handle; }, remove);
}

NQGenTLBuffer* NQGenTLBufferQueue::FindByBuffer(NQ_BUFFER_TYPE_LIST list, void* data, bool remove)
{
    if (data == nullptr)
    {
        return nullptr;
    }
    return Find(
        list, [&](NQGenTLBuffer* buffer) { return buffer->GetData() == data; }, remove);
}

} // namespace GigERDMA
