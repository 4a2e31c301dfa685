// SPDX-License-Identifier: Apache-2.0
// The data stream and its buffers.
#include "state.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>

using namespace GenTL;

namespace nq::faulty
{

namespace
{

bool Answers(BUFFER_INFO_CMD command, const Buffer& buffer)
{
    const bool always = command <= BUFFER_INFO_USER_PTR || command == BUFFER_INFO_NEW_DATA ||
                        command == BUFFER_INFO_IS_QUEUED || command == BUFFER_INFO_SIZE_FILLED ||
                        command == BUFFER_INFO_DATA_SIZE || command == BUFFER_INFO_TLTYPE ||
                        command == BUFFER_INFO_IS_ACQUIRING;
    return always || buffer.frame.fresh || buffer.frame.incomplete || buffer.frame.timestamp != 0;
}

uint64_t NumberOf(BUFFER_INFO_CMD command, const Buffer& buffer)
{
    const Frame& frame = buffer.frame;
    switch (command)
    {
    case BUFFER_INFO_SIZE:
        return buffer.size + (Fault("size_one_more") ? 1 : 0);
    case BUFFER_INFO_TIMESTAMP:
        return frame.timestamp;
    case BUFFER_INFO_TIMESTAMP_NS:
        return frame.timestamp * (Fault("nanoseconds_wrong") ? 1000 : 1);
    case BUFFER_INFO_SIZE_FILLED:
        return frame.filled;
    case BUFFER_INFO_DATA_SIZE:
        return frame.fresh ? Fault("data_size_short") ? 1 : kPayload : 0;
    case BUFFER_INFO_WIDTH:
        return 64;
    case BUFFER_INFO_HEIGHT:
        return 48;
    case BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
        return Fault("lines_above_height") ? 49 : 48;
    case BUFFER_INFO_FRAMEID:
        return frame.id;
    case BUFFER_INFO_PAYLOADTYPE:
        return Fault("payload_type_wrong") ? 42 : PAYLOAD_TYPE_IMAGE;
    case BUFFER_INFO_PIXELFORMAT:
        return 0x01080001;
    case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
        return PIXELFORMAT_NAMESPACE_PFNC_32BIT;
    default:
        return 0; // offsets, paddings, chunks
    }
}

bool FlagOf(BUFFER_INFO_CMD command, const Buffer& buffer)
{
    switch (command)
    {
    case BUFFER_INFO_NEW_DATA:
        return buffer.frame.fresh;
    case BUFFER_INFO_IS_QUEUED:
        return buffer.place != Place::Unqueued && !Fault("never_queued");
    case BUFFER_INFO_IS_INCOMPLETE:
        return buffer.frame.incomplete;
    case BUFFER_INFO_IMAGEPRESENT:
        return !Fault("image_absent");
    case BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
        return buffer.frame.larger;
    case BUFFER_INFO_CONTAINS_CHUNKDATA:
        return Fault("chunks_promised");
    default:
        return false;
    }
}

GC_ERROR BufferInfo(const Buffer& b, BUFFER_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    if (command == BUFFER_INFO_CONTAINS_CHUNKDATA + 1 && Fault("code_of_16"))
    {
        return GC_ERR_BUSY - 1;
    }
    if (command < BUFFER_INFO_BASE || command > BUFFER_INFO_CONTAINS_CHUNKDATA)
    {
        return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
    }
    if (command == BUFFER_INFO_IMAGEPRESENT && Fault("image_flag_missing"))
    {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    if (!Answers(command, b) || command == BUFFER_INFO_FILENAME)
    {
        return GC_ERR_NOT_AVAILABLE;
    }
    switch (command)
    {
    case BUFFER_INFO_BASE:
        return AnswerValue<void*>(INFO_DATATYPE_PTR, b.base + (Fault("base_moves") && b.frame.fresh ? 1 : 0), type,
                                  buffer, size);
    case BUFFER_INFO_USER_PTR:
        return AnswerValue<void*>(INFO_DATATYPE_PTR, b.user, type, buffer, size);
    case BUFFER_INFO_TLTYPE:
        return AnswerText(TLTypeCustomName, type, buffer, size);
    case BUFFER_INFO_PIXEL_ENDIANNESS:
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, Fault("endianness_wrong") ? 7 : PIXELENDIANNESS_LITTLE, type,
                                    buffer, size);
    case BUFFER_INFO_NEW_DATA:
    case BUFFER_INFO_IS_QUEUED:
    case BUFFER_INFO_IS_ACQUIRING:
    case BUFFER_INFO_IS_INCOMPLETE:
    case BUFFER_INFO_IMAGEPRESENT:
    case BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
    case BUFFER_INFO_CONTAINS_CHUNKDATA:
        return AnswerValue<uint8_t>(INFO_DATATYPE_BOOL8, FlagOf(command, b) ? 1 : 0, type, buffer, size);
    case BUFFER_INFO_TIMESTAMP:
    case BUFFER_INFO_TIMESTAMP_NS:
    case BUFFER_INFO_FRAMEID:
    case BUFFER_INFO_PIXELFORMAT:
    case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
    case BUFFER_INFO_CHUNKLAYOUTID:
        return AnswerValue<uint64_t>(INFO_DATATYPE_UINT64, NumberOf(command, b), type, buffer, size);
    default:
        return AnswerValue<uint64_t>(INFO_DATATYPE_SIZET, NumberOf(command, b), type, buffer, size);
    }
}

uint64_t StreamNumber(STREAM_INFO_CMD command)
{
    const State& s = The();
    switch (command)
    {
    case STREAM_INFO_NUM_DELIVERED:
        return s.delivered;
    case STREAM_INFO_NUM_UNDERRUN:
        return s.underruns;
    case STREAM_INFO_NUM_ANNOUNCED:
        return s.buffers.size() + (Fault("announced_one_more") ? 1 : 0);
    case STREAM_INFO_NUM_QUEUED:
        return s.input.size();
    case STREAM_INFO_NUM_AWAIT_DELIVERY:
        return s.output.size();
    case STREAM_INFO_NUM_STARTED:
        return s.started;
    case STREAM_INFO_PAYLOAD_SIZE:
        return Fault("payload_size_short") ? kPayload / 2 : kPayload;
    case STREAM_INFO_NUM_CHUNKS_MAX:
        return 0;
    default:
        return 1; // the least number of buffers, the alignment
    }
}

GC_ERROR StreamInfo(STREAM_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    switch (command)
    {
    case STREAM_INFO_ID:
        return AnswerText(kStreamId, type, buffer, size);
    case STREAM_INFO_TLTYPE:
        return AnswerText(TLTypeCustomName, type, buffer, size);
    case STREAM_INFO_IS_GRABBING:
        return AnswerValue<uint8_t>(INFO_DATATYPE_BOOL8, The().running || Fault("always_grabbing") ? 1 : 0, type,
                                    buffer, size);
    case STREAM_INFO_DEFINES_PAYLOADSIZE:
        return AnswerValue<uint8_t>(INFO_DATATYPE_BOOL8, 1, type, buffer, size);
    case STREAM_INFO_NUM_DELIVERED:
    case STREAM_INFO_NUM_UNDERRUN:
    case STREAM_INFO_NUM_STARTED:
        return AnswerValue<uint64_t>(INFO_DATATYPE_UINT64, StreamNumber(command), type, buffer, size);
    default:
        if (command < STREAM_INFO_ID || command > STREAM_INFO_BUF_ALIGNMENT)
        {
            return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
        }
        return AnswerValue<uint64_t>(INFO_DATATYPE_SIZET, StreamNumber(command), type, buffer, size);
    }
}

/// With the lock held: the code for a stream and one of its buffers.
GC_ERROR CheckBuffer(void* stream, void* buffer)
{
    const GC_ERROR code = CheckHandle(stream, Kind::Stream);
    if (code == 0 && buffer == nullptr && Fault("no_buffer_is_parameter"))
    {
        return GC_ERR_INVALID_PARAMETER;
    }
    return code != 0 ? code : CheckHandle(buffer, Kind::Buffer);
}

GC_ERROR Announce(std::unique_ptr<Buffer> buffer, void* user, void** handle)
{
    buffer->handle = *handle = NewHandle();
    buffer->user = user;
    The().buffers.push_back(std::move(buffer));
    if (Fault("announce_queues"))
    {
        Requeue(The().buffers.back().get());
    }
    return GC_ERR_SUCCESS;
}

void WriteLater(char* base)
{
    std::thread([base] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        *base = 'L';
    }).detach();
}

} // namespace

} // namespace nq::faulty

using namespace nq::faulty;

extern "C" GC_API DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hDevice, Kind::Device); code != 0)
    {
        return Result(code);
    }
    if (sDataStreamID == nullptr || phDataStream == nullptr)
    {
        return Result(sDataStreamID != nullptr && Fault("stream_without_output_is_id") ? GC_ERR_INVALID_ID
                                                                                       : GC_ERR_INVALID_PARAMETER);
    }
    if (std::string_view(sDataStreamID) != kStreamId)
    {
        return Result(Fault("unknown_stream_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_INVALID_ID);
    }
    if (s.stream != nullptr)
    {
        return Result(GC_ERR_RESOURCE_IN_USE);
    }
    *phDataStream = s.stream = NewHandle();
    FillPort(s.stream, Kind::Stream);
    StartEngine();
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSClose(DS_HANDLE hDataStream)
{
    std::unique_lock lock(The().mutex);
    const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream);
    if (code == GC_ERR_SUCCESS)
    {
        if (Fault("stream_leaves_descriptor") && open("/dev/null", O_RDONLY | O_CLOEXEC) < 0)
        {
            std::abort();
        }
        char* base = The().buffers.empty() || The().buffers[0]->own ? nullptr : The().buffers[0]->base;
        CloseStream(lock);
        if (Fault("late_write_after_close") && base != nullptr)
        {
            WriteLater(base);
        }
    }
    return Result(code);
}

extern "C" GC_API DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                            size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    const bool closed = hDataStream != nullptr && hDataStream == The().lastStream && Fault("closed_stream_answers");
    const GC_ERROR code = closed ? GC_ERR_SUCCESS : CheckHandle(hDataStream, Kind::Stream);
    return Result(code != 0 ? code : StreamInfo(iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void* pPrivate,
                                   BUFFER_HANDLE* phBuffer)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream); code != 0)
    {
        return Result(code);
    }
    if (pBuffer == nullptr || phBuffer == nullptr || iSize == 0 ||
        (The().running && Fault("announce_while_running_is_parameter")))
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (Fault("odd_address_is_parameter") && reinterpret_cast<uintptr_t>(pBuffer) % 2 != 0)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    for (const auto& buffer : The().buffers)
    {
        if (buffer->base == pBuffer && !Fault("same_memory_twice"))
        {
            return Result(GC_ERR_RESOURCE_IN_USE);
        }
    }
    auto buffer = std::make_unique<Buffer>();
    buffer->base = static_cast<char*>(pBuffer);
    buffer->size = iSize;
    return Result(Announce(std::move(buffer), pPrivate, phBuffer));
}

extern "C" GC_API DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream); code != 0)
    {
        return Result(code);
    }
    if (phBuffer == nullptr || iSize == 0)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (Fault("no_alloc"))
    {
        return Result(GC_ERR_NOT_IMPLEMENTED);
    }
    auto buffer = std::make_unique<Buffer>();
    buffer->own = std::make_unique<char[]>(iSize);
    buffer->base = buffer->own.get();
    buffer->size = iSize;
    return Result(Announce(std::move(buffer), pPrivate, phBuffer));
}

extern "C" GC_API DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer, void** pPrivate)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckBuffer(hDataStream, hBuffer); code != 0)
    {
        return Result(code);
    }
    Buffer* buffer = BufferOf(hBuffer);
    if (buffer->place != Place::Unqueued && !Fault("revoke_takes_queued"))
    {
        return Result(GC_ERR_BUSY);
    }
    if (pBuffer != nullptr)
    {
        *pBuffer = buffer->own && !Fault("revoke_gives_own_memory") ? nullptr : buffer->base;
    }
    if (pPrivate != nullptr)
    {
        *pPrivate = buffer->user;
    }
    if (Fault("late_write_after_revoke") && !buffer->own)
    {
        WriteLater(buffer->base);
    }
    Remove(s.input, buffer);
    Remove(s.output, buffer);
    std::erase_if(s.buffers, [&](const auto& one) { return one.get() == buffer; });
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckBuffer(hDataStream, hBuffer); code != 0)
    {
        return Result(code);
    }
    Buffer* buffer = BufferOf(hBuffer);
    if (buffer->place == Place::Output && Fault("awaiting_is_queued"))
    {
        Remove(The().output, buffer);
        buffer->place = Place::Unqueued;
    }
    if (buffer->place != Place::Unqueued)
    {
        const bool again = Fault("queue_twice") && buffer->place == Place::Input;
        return Result(again ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE);
    }
    Requeue(buffer);
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream); code != 0)
    {
        return Result(code);
    }
    if (iOperation < ACQ_QUEUE_INPUT_TO_OUTPUT || iOperation > ACQ_QUEUE_ALL_DISCARD)
    {
        return Result(Fault("unknown_flush_is_success") ? GC_ERR_SUCCESS : GC_ERR_NOT_IMPLEMENTED);
    }
    Flush(iOperation);
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream); code != 0)
    {
        return Result(code);
    }
    if (iStartFlags != ACQ_START_FLAGS_DEFAULT)
    {
        return Result(Fault("unknown_start_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED);
    }
    if (iNumToAcquire == 0)
    {
        return Result(Fault("start_of_nothing") ? GC_ERR_SUCCESS : GC_ERR_INVALID_PARAMETER);
    }
    if (s.running || s.stopDue)
    {
        return Result(Fault("start_twice") ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE);
    }
    if (s.buffers.empty() && !Fault("start_without_buffers"))
    {
        return Result(GC_ERR_INVALID_BUFFER);
    }
    if (s.input.empty() && Fault("start_wants_queued"))
    {
        return Result(GC_ERR_INVALID_BUFFER);
    }
    s.running = s.stopDue = true;
    s.creditsLost = 0;
    s.left = iNumToAcquire != GENTL_INFINITE && Fault("limit_one_more") ? iNumToAcquire + 1 : iNumToAcquire;
    if (!Fault("delivered_runs_on"))
    {
        s.delivered = 0;
    }
    if (Fault("underruns_start_anew"))
    {
        s.underruns = 0;
    }
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream); code != 0)
    {
        return Result(code);
    }
    if (!s.stopDue)
    {
        return Result(Fault("stop_twice") ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE);
    }
    if (Fault("idle_stop_is_slow") && s.delivered == 0)
    {
        std::this_thread::sleep_for(std::chrono::seconds(8));
    }
    s.stopDue = false;
    s.running = s.running && iStopFlags == ACQ_STOP_FLAGS_KILL && Fault("kill_stop_goes_on");
    if (Fault("stop_empties_output"))
    {
        Flush(ACQ_QUEUE_OUTPUT_DISCARD);
    }
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer)
{
    const std::lock_guard lock(The().mutex);
    const State& s = The();
    if (const GC_ERROR code = CheckHandle(hDataStream, Kind::Stream); code != 0)
    {
        return Result(code);
    }
    if (phBuffer == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (iIndex >= s.buffers.size())
    {
        return Result(GC_ERR_INVALID_INDEX);
    }
    *phBuffer = s.buffers[Fault("buffer_order_turned") ? s.buffers.size() - 1 - iIndex : iIndex]->handle;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    const GC_ERROR code = CheckBuffer(hDataStream, hBuffer);
    return Result(code != 0 ? code : BufferInfo(*BufferOf(hBuffer), iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API DSGetBufferChunkData(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA*,
                                       size_t* piNumChunks)
{
    const std::lock_guard lock(The().mutex);
    const GC_ERROR code = CheckBuffer(hDataStream, hBuffer);
    return Result(code != 0 ? code : piNumChunks == nullptr ? GC_ERR_INVALID_PARAMETER : GC_ERR_NO_DATA);
}

extern "C" GC_API DSGetNumBufferParts(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t* piNumParts)
{
    const std::lock_guard lock(The().mutex);
    const GC_ERROR code = CheckBuffer(hDataStream, hBuffer);
    if (code != 0 || piNumParts == nullptr)
    {
        return Result(code != 0 ? code : GC_ERR_INVALID_PARAMETER);
    }
    *piNumParts = 1;
    return Result(Fault("single_part_counts") ? GC_ERR_SUCCESS : GC_ERR_NO_DATA);
}

extern "C" GC_API DSGetBufferPartInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t, BUFFER_PART_INFO_CMD,
                                      INFO_DATATYPE* piType, void*, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    const GC_ERROR code = CheckBuffer(hDataStream, hBuffer);
    if (code == 0 && (piType == nullptr || piSize == nullptr))
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    return Result(code != 0 ? code : GC_ERR_NO_DATA);
}
