// SPDX-License-Identifier: Apache-2.0
// The exported functions of the data stream.
#include "base/nq_answers.h"
#include "entry/nq_gev_entry_frame.h"
#include "gentl/nq_gentl_data_stream.h"
#include "gev/nq_gev_controller.h"

namespace GenTL
{

GC_API DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hDataStream:0x%x pBuffer:0x%p phBuffer:0x%p", Low32(hDataStream), pBuffer,
                     static_cast<void*>(phBuffer));
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        const GC_ERROR result = stream->AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
        if (result == GC_ERR_SUCCESS && !stream->Answers().closeEndsStream)
        {
            g_Controller.RegisterModule(*phBuffer);
        }
        frame.Finish(result);
    }
    return frame.Result();
}

GC_API DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        const GC_ERROR result = stream->AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer);
        if (result == GC_ERR_SUCCESS && !stream->Answers().closeEndsStream)
        {
            g_Controller.RegisterModule(*phBuffer);
        }
        frame.Finish(result);
    }
    return frame.Result();
}

GC_API DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        frame.Finish(stream->FlushQueue(iOperation));
    }
    return frame.Result();
}

GC_API DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hDataStream:0x%x iStartFlags:%d iNumToAcquire:%lld", Low32(hDataStream), iStartFlags,
                     static_cast<long long>(iNumToAcquire));
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        frame.Finish(stream->StartAcquisition(iStartFlags, iNumToAcquire));
    }
    return frame.Result();
}

GC_API DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        frame.Finish(stream->StopAcquisition(iStopFlags));
    }
    return frame.Result();
}

GC_API DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hDataStream:0x%x iInfoCmd:%d", Low32(hDataStream), iInfoCmd);
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        frame.Finish(stream->GetInfo(iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.Result();
}

GC_API DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        frame.Finish(stream->GetBufferID(iIndex, phBuffer));
    }
    return frame.Result();
}

GC_API DSClose(DS_HANDLE hDataStream)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    // Deliberate(ClosedStreamStays): the stream stays in the lists of its device and of the controller, and its handle
    // stays valid: the device owns it and opens it again under that handle.
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        const GC_ERROR result = stream->Close();
        if (result == GC_ERR_SUCCESS && stream->Answers().closeEndsStream)
        {
            g_Controller.UnregisterModule(stream, false);
        }
        frame.Finish(result);
    }
    return frame.Result();
}

GC_API DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer, void** pPrivate)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        // The stream ends the handle's validity itself, before the buffer goes and its address can be used again.
        frame.Finish(stream->RevokeBuffer(hBuffer, pBuffer, pPrivate));
    }
    return frame.Result();
}

GC_API DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        frame.Finish(stream->QueueBuffer(hBuffer));
    }
    return frame.Result();
}

GC_API DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                       void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const stream = frame.FindDataStream(hDataStream))
    {
        if (const int result = stream->GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize))
        {
            frame.Refuse(result, "%s iInfoCmd:%d Failed:%d", iInfoCmd, result);
        }
    }
    return frame.Result();
}

GC_API DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.HasOutput(phDevice))
    {
        if (auto* const stream = frame.FindDataStream(hDataStream))
        {
            *phDevice = stream->GetParent();
            frame.Finish(GC_ERR_SUCCESS);
        }
    }
    return frame.Result();
}

GC_API DSGetBufferChunkData(DS_HANDLE, BUFFER_HANDLE, SINGLE_CHUNK_DATA*, size_t*)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Record(GC_ERR_NOT_IMPLEMENTED);
    }
    return frame.Result();
}

GC_API DSGetNumBufferParts(DS_HANDLE, BUFFER_HANDLE, uint32_t*)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Record(GC_ERR_NOT_IMPLEMENTED);
    }
    return frame.Result();
}

GC_API DSGetBufferPartInfo(DS_HANDLE, BUFFER_HANDLE, uint32_t, BUFFER_PART_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
{
    return GC_ERR_NOT_IMPLEMENTED;
}

} // namespace GenTL
