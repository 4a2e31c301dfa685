// SPDX-License-Identifier: Apache-2.0
// Flushing a data stream's queues, its counters, and the answers to its info commands.
#include "base/nq_trace.h"
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_data_stream.h"
#include "gentl/nq_gentl_event.h"
#include "gentl/nq_gentl_util.h"

namespace GigERDMA
{

int NQGenTLDataStream::FlushQueue(int operation)
{
    // No frame goes into a buffer while the lists change, and no buffer is revoked.
    NQGenTLLock transfer(m_transferLock);
    NQGenTLLock queueing(m_queueingLock);
    switch (operation)
    {
    case GenTL::ACQ_QUEUE_INPUT_TO_OUTPUT:
        SignalInput();
        return GenTL::GC_ERR_SUCCESS;
    case GenTL::ACQ_QUEUE_OUTPUT_DISCARD:
        FlushNewBufferEvent();
        return GenTL::GC_ERR_SUCCESS;
    case GenTL::ACQ_QUEUE_ALL_TO_INPUT:
        FlushNewBufferEvent();
        AddUnqueuedToInput();
        return GenTL::GC_ERR_SUCCESS;
    case GenTL::ACQ_QUEUE_UNQUEUED_TO_INPUT:
        AddUnqueuedToInput();
        return GenTL::GC_ERR_SUCCESS;
    case GenTL::ACQ_QUEUE_ALL_DISCARD:
        FlushNewBufferEvent();
        DiscardInput();
        return GenTL::GC_ERR_SUCCESS;
    default:
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", "FlushQueue", operation);
    }
}

void NQGenTLDataStream::SignalInput()
{
    while (NQGenTLBuffer* const buffer = m_buffers.GetFront(NQ_BUFFER_TYPE_QUEUED, true))
    {
        if (!SignalEvent(GenTL::EVENT_NEW_BUFFER, buffer) && Answers().queueingPosts)
        {
            buffer->SetQueueFlag(false); // Nobody takes it from an event: it is the consumer's.
        }
    }
}

void NQGenTLDataStream::FlushNewBufferEvent()
{
    NQGenTLLock lock(m_moduleLock);
    if (NQGenTLEvent* const event = FindEventById(GenTL::EVENT_NEW_BUFFER, false))
    {
        event->Flush();
    }
}

void NQGenTLDataStream::AddUnqueuedToInput()
{
    // Deliberate(FlushDoesNotFlag): the flag says that the consumer queued a buffer, which it did not do with these. A
    // QueueBuffer that follows puts the buffer on the list once more.
    for (unsigned int i = 0; NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, i, false);
         ++i)
    {
        if (Answers().flushQueuesOnce)
        {
            static_cast<void>(Enqueue(buffer));
        }
        else if (!buffer->IsQueued())
        {
            m_buffers.Add(NQ_BUFFER_TYPE_QUEUED, buffer);
        }
    }
}

void NQGenTLDataStream::DiscardInput()
{
    while (NQGenTLBuffer* const buffer = m_buffers.GetFront(NQ_BUFFER_TYPE_QUEUED, true))
    {
        buffer->SetNewDataFlag(false);
        buffer->SetQueueFlag(false);
    }
}

void NQGenTLDataStream::CountUnderruns(unsigned long count)
{
    NQGenTLLock lock(m_moduleLock);
    m_numUnderrun += count;
}

/// For a frame that has just taken its buffer, found none, or leaves its buffer waiting. A camera that waits for
/// buffers shows what it lost meanwhile by the ids that it skips.
void NQGenTLDataStream::CountSkipped(unsigned long frameId)
{
    if (!Answers().underrunsOfGaps)
    {
        return;
    }
    if (m_nextAfterEmpty != 0 && frameId > m_nextAfterEmpty)
    {
        CountUnderruns(frameId - m_nextAfterEmpty);
    }
    m_nextAfterEmpty = m_buffers.GetCount(NQ_BUFFER_TYPE_QUEUED) == 0 ? frameId + 1 : 0;
}

int NQGenTLDataStream::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (piType == nullptr || piSize == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", "GetInfo");
    }
    ClearForInfo(Answers(), pBuffer, piSize);
    switch (iInfoCmd)
    {
    case GenTL::STREAM_INFO_ID:
        return NQGenTLUtil::CopyInfoString(Answers().oneStreamId ? GetId() : m_id, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_NUM_DELIVERED:
    case GenTL::STREAM_INFO_NUM_UNDERRUN:
    case GenTL::STREAM_INFO_NUM_ANNOUNCED:
    case GenTL::STREAM_INFO_NUM_QUEUED:
    case GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY:
        return GetCounterInfo(iInfoCmd, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_PAYLOAD_SIZE:
        return DoGetPayloadsize(piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_IS_GRABBING:
        // Deliberate(IsGrabbingIsFalse): false even while acquisition runs, in the library's own answer: nothing sets
        // the member. A consumer knows from its own start and stop.
        return NQGenTLUtil::CopyInfoBool(Answers().streamInfos ? IsStarted() : m_isGrabbing, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_DEFINES_PAYLOADSIZE:
        return NQGenTLUtil::CopyInfoBool(m_definesPayloadSize, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_TLTYPE:
        return NQGenTLUtil::CopyInfoString(m_tlType, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_BUF_ANNOUNCE_MIN:
        return NQGenTLUtil::CopyInfoSizeT(kLeastAnnounced, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_NUM_STARTED:
    case GenTL::STREAM_INFO_NUM_CHUNKS_MAX:
    case GenTL::STREAM_INFO_BUF_ALIGNMENT:
        if (Answers().streamInfos)
        {
            return GetFixedInfo(iInfoCmd, piType, pBuffer, piSize);
        }
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s iInfoCmd:%d GC_ERR_NOT_IMPLEMENTED", "GetInfo", iInfoCmd);
    // Deliberate(UnknownStreamCommandIsAnError): a plain error, which tells a command that nobody knows from one of the
    // standard that is not implemented here.
    default:
        NQTrace(NQTraceLevel::Failure, "%s GC_ERR_ERROR :%d", "GetInfo", iInfoCmd);
        return Answers().streamInfos ? GenTL::GC_ERR_NOT_IMPLEMENTED : GenTL::GC_ERR_ERROR;
    }
}

/// What does not depend on the frames, and the one counter of the standard's that the library's own answers leave out.
int NQGenTLDataStream::GetFixedInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    switch (iInfoCmd)
    {
    case GenTL::STREAM_INFO_NUM_STARTED:
        return NQGenTLUtil::CopyInfoUint64(m_numStarted, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_NUM_CHUNKS_MAX:
        return NQGenTLUtil::CopyInfoSizeT(0, piType, pBuffer, piSize);
    default: // any address will do
        return NQGenTLUtil::CopyInfoSizeT(1, piType, pBuffer, piSize);
    }
}

int NQGenTLDataStream::GetCounterInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    NQGenTLLock lock(m_moduleLock);
    switch (iInfoCmd)
    {
    case GenTL::STREAM_INFO_NUM_DELIVERED:
        return NQGenTLUtil::CopyInfoUint64(m_numDelivered, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_NUM_UNDERRUN:
        return NQGenTLUtil::CopyInfoUint64(m_numUnderrun, piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_NUM_ANNOUNCED:
        return NQGenTLUtil::CopyInfoSizeT(m_buffers.GetCount(NQ_BUFFER_TYPE_ANNOUNCED), piType, pBuffer, piSize);
    case GenTL::STREAM_INFO_NUM_QUEUED:
        return NQGenTLUtil::CopyInfoSizeT(m_buffers.GetCount(NQ_BUFFER_TYPE_QUEUED), piType, pBuffer, piSize);
    default:
        break;
    }
    NQGenTLEvent* const event = FindEventById(GenTL::EVENT_NEW_BUFFER, false);
    return NQGenTLUtil::CopyInfoSizeT(event == nullptr ? 0 : event->GetNumInQueue(), piType, pBuffer, piSize);
}

} // namespace GigERDMA
