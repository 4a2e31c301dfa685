// SPDX-License-Identifier: Apache-2.0
// A stream with buffers and a new-buffer event, and the camera that sends to it.
#include "acquisition.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <thread>

namespace nq::check
{

using namespace GenTL;

namespace
{

constexpr size_t kPage = 4096;
constexpr size_t kLargestPayload = size_t{1} << 30;

} // namespace

Memory::Memory(size_t bytes) : size(bytes)
{
    // Of whole pages, so that any alignment will do and a guard stays behind the end.
    const size_t whole = (bytes + kPage) / kPage * kPage + kPage;
    begin = static_cast<char*>(std::aligned_alloc(kPage, whole));
    if (begin == nullptr)
    {
        throw std::bad_alloc();
    }
    std::memset(begin, 0x5A, whole);
}

Acquisition::Acquisition(Context& context, size_t count) : Tree(context, Depth::Stream)
{
    FindPayload();
    Context::Needs(context.gentl.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event),
                   "GCRegisterEvent of the new buffer");
    Announce(std::max<size_t>(count, Stream(STREAM_INFO_BUF_ANNOUNCE_MIN)), payload);
}

const Description& Acquisition::Remote()
{
    if (!m_remote)
    {
        m_remote.emplace(DescriptionOf(m_context, remote));
    }
    return *m_remote;
}

void Acquisition::FindPayload()
{
    const bool defines = StreamFlag(m_context, stream, STREAM_INFO_DEFINES_PAYLOADSIZE).value_or(false);
    payload = defines ? Stream(STREAM_INFO_PAYLOAD_SIZE)
                      : ReadFeature(m_context, remote, Remote(), "PayloadSize").value_or(0);
    if (payload == 0 || payload > kLargestPayload)
    {
        Context::NotTried("neither the stream nor the camera tells the size of the payload");
    }
}

void Acquisition::Announce(size_t count, size_t size)
{
    for (size_t index = 0; index < count; ++index)
    {
        Announced buffer;
        buffer.memory = Memory(size).begin;
        buffer.user = buffer.memory + 1;
        Context::Needs(m_context.gentl.DSAnnounceBuffer(stream, buffer.memory, size, buffer.user, &buffer.handle),
                       "DSAnnounceBuffer");
        buffers.push_back(buffer);
    }
}

GC_ERROR Acquisition::Queue(const Announced& buffer) const
{
    return m_context.gentl.DSQueueBuffer(stream, buffer.handle);
}

void Acquisition::QueueAll()
{
    for (const Announced& buffer : buffers)
    {
        Context::Needs(Queue(buffer), "DSQueueBuffer");
    }
}

GC_ERROR Acquisition::StartStream(uint64_t frames) const
{
    return m_context.gentl.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, frames);
}

/// A camera without the command sends by itself.
void Acquisition::StartCamera()
{
    ExecuteCommand(m_context, remote, Remote(), "AcquisitionStart");
}

void Acquisition::StopCamera()
{
    ExecuteCommand(m_context, remote, Remote(), "AcquisitionStop");
}

void Acquisition::Start(uint64_t frames)
{
    Context::Needs(StartStream(frames), "DSStartAcquisition");
    StartCamera();
}

GC_ERROR Acquisition::Stop(ACQ_STOP_FLAGS flags)
{
    StopCamera();
    return m_context.gentl.DSStopAcquisition(stream, flags);
}

std::optional<NewBuffer> Acquisition::Next(uint64_t ms) const
{
    NewBuffer data{};
    size_t size = sizeof data;
    const GC_ERROR code = m_context.gentl.EventGetData(event, &data, &size, ms);
    return code == GC_ERR_SUCCESS ? std::optional(data) : std::nullopt;
}

NewBuffer Acquisition::Frame() const
{
    const auto frame = Next();
    if (!frame)
    {
        Context::NotTried("no frame came in 3 s");
    }
    return *frame;
}

void Acquisition::Run(size_t count) const
{
    for (size_t index = 0; index < count; ++index)
    {
        const NewBuffer frame = Frame();
        Context::Needs(m_context.gentl.DSQueueBuffer(stream, frame.BufferHandle),
                       "DSQueueBuffer of a delivered buffer");
    }
}

bool Acquisition::WaitForOutput(size_t count)
{
    for (int tries = 0; tries < 300; ++tries)
    {
        if (InQueue().value_or(0) >= count)
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

GC_ERROR Acquisition::Flush(ACQ_QUEUE_TYPE operation) const
{
    return m_context.gentl.DSFlushQueue(stream, operation);
}

std::optional<bool> Acquisition::Flag(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    const auto value = Info<uint8_t>([&](INFO_DATATYPE* type, void* bytes, size_t* size) {
        return m_context.gentl.DSGetBufferInfo(stream, buffer, command, type, bytes, size);
    });
    return value ? std::optional<bool>(*value != 0) : std::nullopt;
}

std::optional<uint64_t> Acquisition::Number(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    return Info<uint64_t>([&](INFO_DATATYPE* type, void* bytes, size_t* size) {
        return m_context.gentl.DSGetBufferInfo(stream, buffer, command, type, bytes, size);
    });
}

uint64_t Acquisition::Stream(STREAM_INFO_CMD command) const
{
    return StreamNumber(m_context, stream, command).value_or(0);
}

std::optional<uint64_t> Acquisition::InQueue() const
{
    return Info<uint64_t>([&](INFO_DATATYPE* type, void* bytes, size_t* size) {
        return m_context.gentl.EventGetInfo(event, EVENT_NUM_IN_QUEUE, type, bytes, size);
    });
}

size_t Acquisition::CountQueued() const
{
    return static_cast<size_t>(std::count_if(buffers.begin(), buffers.end(), [this](const Announced& buffer) {
        return Flag(buffer.handle, BUFFER_INFO_IS_QUEUED).value_or(false);
    }));
}

} // namespace nq::check
