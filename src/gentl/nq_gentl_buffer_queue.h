// SPDX-License-Identifier: Apache-2.0
// The two lists of buffers of a data stream behind one lock.
#pragma once

#include "gentl/nq_gentl_address_index.h"
#include "gentl/nq_gentl_mutex.h"

#include <vector>

namespace GigERDMA
{

class NQGenTLBuffer;

/// Selects a list. Every operation on any other value does nothing and returns 0, false or null.
enum NQ_BUFFER_TYPE_LIST : unsigned int
{
    NQ_BUFFER_TYPE_QUEUED = 0,   ///< Buffers waiting for a frame, in the order of queueing. Refers to them only.
    NQ_BUFFER_TYPE_ANNOUNCED = 1 ///< All buffers of the stream, in the order of announcing. Owns them.
};

/// A buffer that was handed to the consumer is in neither list but the announced one: the output queue is the new
/// buffer event. Thread-safe, since the acquisition thread and the consumer's threads meet here: each operation holds
/// the recursive lock for its whole run. Searches walk from the front and take the first match; a miss is null. With
/// `remove` the entry found also leaves the list, the others keep their order. Only an announced buffer is found by its
/// handle without a walk.
class NQGenTLBufferQueue
{
  public:
    NQGenTLBufferQueue() = default;

    /// Deletes the announced buffers.
    ~NQGenTLBufferQueue();
    NQGenTLBufferQueue(const NQGenTLBufferQueue&) = delete;
    NQGenTLBufferQueue& operator=(const NQGenTLBufferQueue&) = delete;

    unsigned int GetCount(NQ_BUFFER_TYPE_LIST list);

    /// The greatest announced size in bytes, each taken modulo 2 to the 32; 0 for an empty list.
    unsigned int GetBiggestSize(NQ_BUFFER_TYPE_LIST list);

    /// Appends; false for null. The same buffer can be added twice.
    bool Add(NQ_BUFFER_TYPE_LIST list, NQGenTLBuffer* buffer);

    void Clear(NQ_BUFFER_TYPE_LIST list, bool deleteBuffers);
    NQGenTLBuffer* GetFront(NQ_BUFFER_TYPE_LIST list, bool remove);

    /// Appends the first entry of `source` to `dest`.
    void MoveTo(NQ_BUFFER_TYPE_LIST dest, NQ_BUFFER_TYPE_LIST source, bool remove);

    /// Appends all entries of `source` to `dest`, then empties `source` if `clear`.
    void FlushTo(NQ_BUFFER_TYPE_LIST dest, NQ_BUFFER_TYPE_LIST source, bool clear);

    NQGenTLBuffer* FindByRdmaID(NQ_BUFFER_TYPE_LIST list, void* id, bool remove);
    NQGenTLBuffer* FindByIndex(NQ_BUFFER_TYPE_LIST list, unsigned int index, bool remove);
    NQGenTLBuffer* FindByHandle(NQ_BUFFER_TYPE_LIST list, void* handle, bool remove);

    /// Asks an announced buffer, which no other thread can take off the list meanwhile, for one BUFFER_INFO command;
    /// what NQGenTLBuffer::GetInfo gives goes to `result`. False for a handle that is not on the list.
    bool GetInfoOf(void* handle, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize, int* result);

    /// What `look` gives for the waiting buffers in their order, which stay as they are meanwhile.
    template <typename Look>
    auto LookAtQueued(Look look)
    {
        NQGenTLLock lock(m_lock);
        return look(static_cast<const Buffers&>(m_queued));
    }

    /// Searches for the buffer whose data pointer is `data`.
    NQGenTLBuffer* FindByBuffer(NQ_BUFFER_TYPE_LIST list, void* data, bool remove);

  private:
    /// Short lists: moving the rest up at a removal is cheap, and once grown they allocate nothing per frame.
    using Buffers = std::vector<NQGenTLBuffer*>;

    /// Null for a value that selects nothing.
    Buffers* _getBufferQueue(NQ_BUFFER_TYPE_LIST list) NQ_REQUIRES(m_lock);

    void Append(Buffers& buffers, NQGenTLBuffer* buffer) NQ_REQUIRES(m_lock);
    Buffers::iterator Erase(Buffers& buffers, Buffers::iterator entry) NQ_REQUIRES(m_lock);

    template <typename Match>
    NQGenTLBuffer* Find(NQ_BUFFER_TYPE_LIST list, Match match, bool remove);

    NQGenTLMutex m_lock;
    Buffers m_queued NQ_GUARDED_BY(m_lock);
    Buffers m_announced NQ_GUARDED_BY(m_lock);
    NQGenTLAddressIndex<NQGenTLBuffer> m_index NQ_GUARDED_BY(m_lock); ///< Of the announced buffers.
};

} // namespace GigERDMA
