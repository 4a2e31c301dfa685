// SPDX-License-Identifier: Apache-2.0
// A producer with one interface, one camera and one stream, of which frames come at once: 64 x 48 pixels of Mono8, the
// moving ramp of nq-gev-camera, numbered from 1. Its every answer can be chosen.
//
// NQ_FAKE_PRODUCER in the environment holds lines FUNCTION[.COMMAND][@CALL].FIELD=VALUE. COMMAND is the number of an
// info command, CALL the one call that is meant, counted from 1, FIELD one of code, type, size (numbers), value (a
// number of the answer's type), text, signal (the number of one that the call raises), and sleep (milliseconds that the
// call takes). A size need not fit what is copied; nothing is ever written past the caller's space. A fuzzer chooses by
// NQFakeProducerFuzz().
//
// NQ_FAKE_PRODUCER_PICTURE names a file: its bytes are the frames then.
#include "GenTL/GenTL.h"
#include "support/fake_producer/answers.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

using namespace GenTL;
using namespace nq::fake;

namespace
{

constexpr std::size_t kWidth = 64;
constexpr std::size_t kHeight = 48;
constexpr std::size_t kMostAllocated = 16U << 20;

struct Buffer
{
    std::unique_ptr<unsigned char[]> own; ///< null for one that the consumer announced
    unsigned char* data;
    std::size_t size;
    std::size_t filled = 0;
    std::uint64_t frame = 0;
};

struct Stream
{
    std::vector<Buffer> buffers;
    std::deque<std::size_t> queued;
    std::uint64_t frames = 0;
};

Stream g_stream;
char g_handles[5]; // system, interface, device, stream, event: their addresses are the handles

void* HandleOf(std::size_t index)
{
    return reinterpret_cast<void*>(index + 1);
}

GC_ERROR Code(const char* function)
{
    return Chosen(function, {}).code;
}

/// A handle or number of `size` bytes that the function gives by pointer.
GC_ERROR Give(const char* function, std::uint64_t truth, void* where, std::size_t size)
{
    const Answer answer = Chosen(function, Value(INFO_DATATYPE_UINT64, truth));
    if (answer.code == GC_ERR_SUCCESS && where != nullptr)
    {
        const std::uint64_t value = ValueOf(answer);
        std::memcpy(where, &value, size);
    }
    return answer.code;
}

GC_ERROR GiveHandle(const char* function, char& handle, void** where)
{
    // Always the true one, as handles are for the producer alone to look at.
    *where = &handle;
    return Code(function);
}

GC_ERROR GiveInfo(const Answer& answer, INFO_DATATYPE* type, void* buffer, std::size_t* size)
{
    if (answer.code != GC_ERR_SUCCESS || size == nullptr)
    {
        return answer.code != GC_ERR_SUCCESS ? answer.code : GC_ERR_INVALID_PARAMETER;
    }
    if (type != nullptr)
    {
        *type = answer.type;
    }
    if (buffer != nullptr)
    {
        std::memcpy(buffer, answer.bytes.data(), std::min(*size, answer.bytes.size()));
    }
    *size = answer.size;
    return GC_ERR_SUCCESS;
}

std::string Name(const char* function, std::int32_t command)
{
    return std::string(function) + "." + std::to_string(command);
}

Answer Refused(GC_ERROR code)
{
    Answer answer;
    answer.code = code;
    return answer;
}

Answer TruthOfDevice(DEVICE_INFO_CMD command)
{
    switch (command)
    {
    case DEVICE_INFO_ID:
        return Text("Camera");
    case DEVICE_INFO_VENDOR:
        return Text("Vendor");
    case DEVICE_INFO_MODEL:
        return Text("Model");
    case DEVICE_INFO_SERIAL_NUMBER:
        return Text("Serial");
    case DEVICE_INFO_USER_DEFINED_NAME:
        return Text("Name");
    case DEVICE_INFO_ACCESS_STATUS:
        return Value(INFO_DATATYPE_INT32, DEVICE_ACCESS_STATUS_READWRITE);
    default:
        return Refused(GC_ERR_NOT_IMPLEMENTED);
    }
}

Answer TruthOfStream(STREAM_INFO_CMD command)
{
    switch (command)
    {
    case STREAM_INFO_PAYLOAD_SIZE:
        return Value(INFO_DATATYPE_SIZET, kWidth * kHeight);
    case STREAM_INFO_NUM_UNDERRUN:
        return Value(INFO_DATATYPE_UINT64, 0);
    default:
        return Refused(GC_ERR_NOT_IMPLEMENTED);
    }
}

Answer TruthOfBuffer(const Buffer& buffer, BUFFER_INFO_CMD command)
{
    switch (command)
    {
    case BUFFER_INFO_BASE:
        return Value(INFO_DATATYPE_PTR, reinterpret_cast<std::uintptr_t>(buffer.data));
    case BUFFER_INFO_SIZE_FILLED:
        return Value(INFO_DATATYPE_SIZET, buffer.filled);
    case BUFFER_INFO_WIDTH:
        return Value(INFO_DATATYPE_SIZET, kWidth);
    case BUFFER_INFO_HEIGHT:
        return Value(INFO_DATATYPE_SIZET, kHeight);
    case BUFFER_INFO_PIXELFORMAT:
        return Value(INFO_DATATYPE_UINT64, 0x01080001);
    case BUFFER_INFO_FRAMEID:
        return Value(INFO_DATATYPE_UINT64, buffer.frame);
    case BUFFER_INFO_IS_INCOMPLETE:
        return Value(INFO_DATATYPE_BOOL8, buffer.filled < std::min(buffer.size, kWidth * kHeight) ? 1 : 0);
    default:
        return Refused(GC_ERR_NOT_IMPLEMENTED);
    }
}

GC_ERROR Announce(const char* function, Buffer buffer, BUFFER_HANDLE* handle)
{
    if (const GC_ERROR code = Code(function); code != GC_ERR_SUCCESS)
    {
        return code;
    }
    g_stream.buffers.push_back(std::move(buffer));
    *handle = HandleOf(g_stream.buffers.size() - 1);
    return GC_ERR_SUCCESS;
}

/// The index of an announced buffer; the number of them for a wrong handle.
std::size_t IndexOf(BUFFER_HANDLE handle)
{
    return std::min(reinterpret_cast<std::uintptr_t>(handle) - 1, g_stream.buffers.size());
}

std::string ReadPicture()
{
    const char* path = std::getenv("NQ_FAKE_PRODUCER_PICTURE");
    std::ifstream file(path == nullptr ? "" : path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The ramp or the chosen picture, as far as the buffer has room.
void Fill(Buffer& buffer)
{
    static const std::string kPicture = ReadPicture();
    buffer.frame = ++g_stream.frames;
    if (!kPicture.empty())
    {
        buffer.filled = kPicture.copy(reinterpret_cast<char*>(buffer.data), buffer.size);
        return;
    }
    buffer.filled = std::min(buffer.size, kWidth * kHeight);
    for (std::size_t at = 0; at < buffer.filled; ++at)
    {
        buffer.data[at] = static_cast<unsigned char>(at % kWidth + at / kWidth + 7 * buffer.frame);
    }
}

} // namespace

extern "C"
{
GC_ERROR GCInitLib()
{
    g_stream = {};
    return Code("GCInitLib");
}
GC_ERROR GCCloseLib()
{
    g_stream = {};
    return Code("GCCloseLib");
}
GC_ERROR GCReadPort(PORT_HANDLE, uint64_t address, void* buffer, size_t* size)
{
    // Big endian, as the registers of a camera; 1 in each.
    return GiveInfo(
        Chosen(Name("GCReadPort", static_cast<std::int32_t>(address)), Value(INFO_DATATYPE_UINT32, 1U << 24)), nullptr,
        buffer, size);
}
GC_ERROR TLOpen(TL_HANDLE* system)
{
    return GiveHandle("TLOpen", g_handles[0], system);
}
GC_ERROR TLClose(TL_HANDLE)
{
    return Code("TLClose");
}
GC_ERROR TLGetInfo(TL_HANDLE, TL_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    return GiveInfo(Chosen(Name("TLGetInfo", command), Text("Fake")), type, buffer, size);
}
GC_ERROR TLUpdateInterfaceList(TL_HANDLE, bool8_t*, uint64_t)
{
    return Code("TLUpdateInterfaceList");
}
GC_ERROR TLGetNumInterfaces(TL_HANDLE, uint32_t* count)
{
    return Give("TLGetNumInterfaces", 1, count, sizeof *count);
}
GC_ERROR TLGetInterfaceID(TL_HANDLE, uint32_t, char* id, size_t* size)
{
    return GiveInfo(Chosen("TLGetInterfaceID", Text("Interface")), nullptr, id, size);
}
GC_ERROR TLOpenInterface(TL_HANDLE, const char*, IF_HANDLE* interface)
{
    return GiveHandle("TLOpenInterface", g_handles[1], interface);
}
GC_ERROR IFClose(IF_HANDLE)
{
    return Code("IFClose");
}
GC_ERROR IFGetInfo(IF_HANDLE, INTERFACE_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    return GiveInfo(Chosen(Name("IFGetInfo", command), Text("Interface")), type, buffer, size);
}
GC_ERROR IFUpdateDeviceList(IF_HANDLE, bool8_t*, uint64_t)
{
    return Code("IFUpdateDeviceList");
}
GC_ERROR IFGetNumDevices(IF_HANDLE, uint32_t* count)
{
    return Give("IFGetNumDevices", 1, count, sizeof *count);
}
GC_ERROR IFGetDeviceID(IF_HANDLE, uint32_t, char* id, size_t* size)
{
    return GiveInfo(Chosen("IFGetDeviceID", Text("Camera")), nullptr, id, size);
}
GC_ERROR IFGetDeviceInfo(IF_HANDLE, const char*, DEVICE_INFO_CMD command, INFO_DATATYPE* type, void* buffer,
                         size_t* size)
{
    return GiveInfo(Chosen(Name("IFGetDeviceInfo", command), TruthOfDevice(command)), type, buffer, size);
}
GC_ERROR IFOpenDevice(IF_HANDLE, const char*, DEVICE_ACCESS_FLAGS, DEV_HANDLE* device)
{
    return GiveHandle("IFOpenDevice", g_handles[2], device);
}
GC_ERROR DevClose(DEV_HANDLE)
{
    return Code("DevClose");
}
GC_ERROR DevGetPort(DEV_HANDLE, PORT_HANDLE* port)
{
    return GiveHandle("DevGetPort", g_handles[2], port);
}
GC_ERROR DevGetDataStreamID(DEV_HANDLE, uint32_t, char* id, size_t* size)
{
    return GiveInfo(Chosen("DevGetDataStreamID", Text("Stream")), nullptr, id, size);
}
GC_ERROR DevOpenDataStream(DEV_HANDLE, const char*, DS_HANDLE* stream)
{
    return GiveHandle("DevOpenDataStream", g_handles[3], stream);
}
GC_ERROR DSClose(DS_HANDLE)
{
    g_stream = {};
    return Code("DSClose");
}
GC_ERROR DSGetInfo(DS_HANDLE, STREAM_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    return GiveInfo(Chosen(Name("DSGetInfo", command), TruthOfStream(command)), type, buffer, size);
}
GC_ERROR DSAnnounceBuffer(DS_HANDLE, void* memory, size_t size, void*, BUFFER_HANDLE* handle)
{
    return Announce("DSAnnounceBuffer", {nullptr, static_cast<unsigned char*>(memory), size}, handle);
}
GC_ERROR DSAllocAndAnnounceBuffer(DS_HANDLE, size_t size, void*, BUFFER_HANDLE* handle)
{
    if (size > kMostAllocated)
    {
        return GC_ERR_OUT_OF_MEMORY;
    }
    auto own = std::make_unique<unsigned char[]>(size);
    unsigned char* data = own.get();
    return Announce("DSAllocAndAnnounceBuffer", {std::move(own), data, size}, handle);
}
GC_ERROR DSQueueBuffer(DS_HANDLE, BUFFER_HANDLE handle)
{
    const std::size_t index = IndexOf(handle);
    if (index == g_stream.buffers.size())
    {
        return GC_ERR_INVALID_HANDLE;
    }
    g_stream.queued.push_back(index);
    return Code("DSQueueBuffer");
}
GC_ERROR DSFlushQueue(DS_HANDLE, ACQ_QUEUE_TYPE)
{
    g_stream.queued.clear();
    return Code("DSFlushQueue");
}
GC_ERROR DSRevokeBuffer(DS_HANDLE, BUFFER_HANDLE, void**, void**)
{
    return Code("DSRevokeBuffer");
}
GC_ERROR DSStartAcquisition(DS_HANDLE, ACQ_START_FLAGS, uint64_t)
{
    return Code("DSStartAcquisition");
}
GC_ERROR DSStopAcquisition(DS_HANDLE, ACQ_STOP_FLAGS)
{
    return Code("DSStopAcquisition");
}
GC_ERROR GCRegisterEvent(EVENTSRC_HANDLE, EVENT_TYPE, EVENT_HANDLE* event)
{
    return GiveHandle("GCRegisterEvent", g_handles[4], event);
}
GC_ERROR GCUnregisterEvent(EVENTSRC_HANDLE, EVENT_TYPE)
{
    return Code("GCUnregisterEvent");
}
GC_ERROR EventGetData(EVENT_HANDLE, void* buffer, size_t* size, uint64_t)
{
    if (g_stream.queued.empty())
    {
        return GC_ERR_TIMEOUT;
    }
    const std::size_t index = g_stream.queued.front();
    g_stream.queued.pop_front();
    Fill(g_stream.buffers[index]);
    const EVENT_NEW_BUFFER_DATA truth{HandleOf(index), nullptr};
    Answer answer;
    answer.bytes.assign(reinterpret_cast<const char*>(&truth), sizeof truth);
    answer.size = sizeof truth;
    return GiveInfo(Chosen("EventGetData", answer), nullptr, buffer, size);
}
GC_ERROR DSGetBufferInfo(DS_HANDLE, BUFFER_HANDLE handle, BUFFER_INFO_CMD command, INFO_DATATYPE* type, void* buffer,
                         size_t* size)
{
    const std::size_t index = IndexOf(handle);
    if (index == g_stream.buffers.size())
    {
        return GC_ERR_INVALID_HANDLE;
    }
    const Buffer& asked = g_stream.buffers[index];
    const Answer truth = TruthOfBuffer(asked, command);
    Answer answer = Chosen(Name("DSGetBufferInfo", command), truth);
    // Where memory of the library lies nobody else can know; a wrong address but null is nothing a consumer could
    // notice.
    if (command == BUFFER_INFO_BASE && asked.own && ValueOf(answer) != 0)
    {
        answer.bytes = truth.bytes;
    }
    return GiveInfo(answer, type, buffer, size);
}

#define NQ_NOT_IMPLEMENTED(Name, ...)                                                                                  \
    GC_ERROR Name(__VA_ARGS__)                                                                                         \
    {                                                                                                                  \
        return GC_ERR_NOT_IMPLEMENTED;                                                                                 \
    }
NQ_NOT_IMPLEMENTED(GCGetInfo, TL_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
NQ_NOT_IMPLEMENTED(GCGetLastError, GC_ERROR*, char*, size_t*)
NQ_NOT_IMPLEMENTED(GCWritePort, PORT_HANDLE, uint64_t, const void*, size_t*)
NQ_NOT_IMPLEMENTED(GCGetPortURL, PORT_HANDLE, char*, size_t*)
NQ_NOT_IMPLEMENTED(GCGetPortInfo, PORT_HANDLE, PORT_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
NQ_NOT_IMPLEMENTED(EventGetDataInfo, EVENT_HANDLE, const void*, size_t, EVENT_DATA_INFO_CMD, INFO_DATATYPE*, void*,
                   size_t*)
NQ_NOT_IMPLEMENTED(EventGetInfo, EVENT_HANDLE, EVENT_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
NQ_NOT_IMPLEMENTED(EventFlush, EVENT_HANDLE)
NQ_NOT_IMPLEMENTED(EventKill, EVENT_HANDLE)
NQ_NOT_IMPLEMENTED(TLGetInterfaceInfo, TL_HANDLE, const char*, INTERFACE_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
NQ_NOT_IMPLEMENTED(DevGetNumDataStreams, DEV_HANDLE, uint32_t*)
NQ_NOT_IMPLEMENTED(DevGetInfo, DEV_HANDLE, DEVICE_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
NQ_NOT_IMPLEMENTED(DSGetBufferID, DS_HANDLE, uint32_t, BUFFER_HANDLE*)
NQ_NOT_IMPLEMENTED(GCGetNumPortURLs, PORT_HANDLE, uint32_t*)
NQ_NOT_IMPLEMENTED(GCGetPortURLInfo, PORT_HANDLE, uint32_t, URL_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
NQ_NOT_IMPLEMENTED(GCReadPortStacked, PORT_HANDLE, PORT_REGISTER_STACK_ENTRY*, size_t*)
NQ_NOT_IMPLEMENTED(GCWritePortStacked, PORT_HANDLE, PORT_REGISTER_STACK_ENTRY*, size_t*)
NQ_NOT_IMPLEMENTED(DSGetBufferChunkData, DS_HANDLE, BUFFER_HANDLE, SINGLE_CHUNK_DATA*, size_t*)
NQ_NOT_IMPLEMENTED(IFGetParentTL, IF_HANDLE, TL_HANDLE*)
NQ_NOT_IMPLEMENTED(DevGetParentIF, DEV_HANDLE, IF_HANDLE*)
NQ_NOT_IMPLEMENTED(DSGetParentDev, DS_HANDLE, DEV_HANDLE*)
NQ_NOT_IMPLEMENTED(DSGetNumBufferParts, DS_HANDLE, BUFFER_HANDLE, uint32_t*)
NQ_NOT_IMPLEMENTED(DSGetBufferPartInfo, DS_HANDLE, BUFFER_HANDLE, uint32_t, BUFFER_PART_INFO_CMD, INFO_DATATYPE*, void*,
                   size_t*)
#undef NQ_NOT_IMPLEMENTED
}
