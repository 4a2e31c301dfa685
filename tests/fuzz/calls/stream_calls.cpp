// SPDX-License-Identifier: Apache-2.0
// Calls of the data streams and their buffers.
#include "fuzz/calls/caller.h"

#include <algorithm>

namespace nq::fuzz
{
namespace
{

void Stop(Module& stream, bool stopped)
{
    stream.started = stream.started && !stopped;
    stream.connected = stream.connected && !stopped;
}

} // namespace

void Caller::DSAnnounceBuffer()
{
    static unsigned char memory[4][64];
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    void* const block = m_input.Below(16) == 1 ? nullptr : memory[m_input.Below(4)];
    const bool noOutput = m_input.Below(16) == 1;
    void* const user = memory[m_input.Below(4)];
    void* buffer = nullptr;
    const int result = GenTL::DSAnnounceBuffer(handle, block, sizeof memory[0], user, noOutput ? nullptr : &buffer);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSAnnounceBuffer", result, stream != nullptr))
    {
        return;
    }
    const bool known =
        block != nullptr && std::any_of(stream->announced.begin(), stream->announced.end(),
                                        [&](void* other) { return m_model.Find(other)->memory == block; });
    Expect("DSAnnounceBuffer", result, block == nullptr || noOutput ? -1009 : known ? -1004 : 0);
    if (result == 0)
    {
        Module& added = m_model.Add(buffer, Kind::Buffer, stream);
        added.memory = block;
        added.user = user;
        stream->announced.push_back(buffer);
    }
}

void Caller::DSAllocAndAnnounceBuffer()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const bool noOutput = m_input.Below(16) == 1;
    void* buffer = nullptr;
    // The size of such a buffer is only kept, never allocated.
    const std::size_t size = m_input.Quad();
    const int result = GenTL::DSAllocAndAnnounceBuffer(handle, size, this, noOutput ? nullptr : &buffer);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSAllocAndAnnounceBuffer", result, stream != nullptr))
    {
        return;
    }
    Expect("DSAllocAndAnnounceBuffer", result, noOutput ? -1009 : 0);
    if (result == 0)
    {
        m_model.Add(buffer, Kind::Buffer, stream).user = this;
        stream->announced.push_back(buffer);
    }
}

void Caller::FlushEvent(Module& stream)
{
    const auto event = stream.events.find(1);
    if (event == stream.events.end())
    {
        return;
    }
    for (void* const buffer : event->second->waiting)
    {
        m_model.Find(buffer)->queued = false;
    }
    event->second->waiting.clear();
    event->second->killed = false;
}

void Caller::AddUnqueued(Module& stream)
{
    for (void* const buffer : stream.announced)
    {
        if (!m_model.Find(buffer)->queued)
        {
            stream.input.push_back(buffer);
        }
    }
}

void Caller::DSFlushQueue()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const int operation = static_cast<int>(m_input.Below(7)) - 1;
    const int result = GenTL::DSFlushQueue(handle, operation);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSFlushQueue", result, stream != nullptr))
    {
        return;
    }
    Expect("DSFlushQueue", result, operation < 0 || operation > 4 ? -1003 : 0);
    if (operation == 0)
    {
        const auto event = stream->events.find(1);
        if (event != stream->events.end())
        {
            std::copy(stream->input.begin(), stream->input.end(), std::back_inserter(event->second->waiting));
        }
        stream->input.clear();
    }
    if (operation == 1 || operation == 2 || operation == 4)
    {
        FlushEvent(*stream);
    }
    if (operation == 2 || operation == 3)
    {
        AddUnqueued(*stream);
    }
    if (operation == 4)
    {
        for (void* const buffer : stream->input)
        {
            m_model.Find(buffer)->queued = false;
        }
        stream->input.clear();
    }
}

void Caller::DSStartAcquisition()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const std::uint64_t frames = m_input.Below(8) == 1 ? m_input.Byte() : GENTL_INFINITE;
    const int result = GenTL::DSStartAcquisition(handle, 0, frames);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSStartAcquisition", result, stream != nullptr))
    {
        return;
    }
    Expect("DSStartAcquisition", result, frames == 0 ? -1009 : stream->started || stream->connected ? -1004 : 0);
    stream->started = stream->started || result == 0;
    stream->connected = stream->connected || result == 0;
}

void Caller::DSStopAcquisition()
{
    static constexpr int kKinds[] = {0, 1, 2, 1000};
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const int flags = kKinds[m_input.Below(std::size(kKinds))];
    const int result = GenTL::DSStopAcquisition(handle, flags);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (Reaches("DSStopAcquisition", result, stream != nullptr))
    {
        Expect("DSStopAcquisition", result, flags > 1 ? -1003 : stream->started ? 0 : -1004);
        Stop(*stream, result == 0);
    }
}

void Caller::DSGetInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13});
    const int result = GenTL::DSGetInfo(handle, info.command, info.typePointer, info.buffer, info.sizePointer);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSGetInfo", result, stream != nullptr))
    {
        return;
    }
    const bool known = info.command >= 0 && info.command <= 13;
    const bool served = info.command != 6 && info.command != 11 && info.command != 13;
    ExpectInfo("DSGetInfo", result, info, info.Incomplete() ? -1009 : !known ? -1001 : served ? 0 : -1003);
    if (result != 0 || info.buffer == nullptr || info.command < 3 || info.command > 5)
    {
        return;
    }
    std::size_t value = 0;
    std::memcpy(&value, info.buffer, sizeof value);
    const auto event = stream->events.find(1);
    const std::size_t waiting = event == stream->events.end() ? 0 : event->second->waiting.size();
    const std::size_t expected = info.command == 3   ? stream->announced.size()
                                 : info.command == 4 ? stream->input.size()
                                                     : waiting;
    Require(value == expected, "the number of buffers in a list", info.command);
}

void Caller::DSGetBufferID()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const auto index = static_cast<std::uint32_t>(m_input.Below(8));
    const bool noOutput = m_input.Below(16) == 1;
    void* buffer = nullptr;
    const int result = GenTL::DSGetBufferID(handle, index, noOutput ? nullptr : &buffer);
    const Module* const stream = m_model.Find(handle, Kind::Stream);
    if (Reaches("DSGetBufferID", result, stream != nullptr))
    {
        Expect("DSGetBufferID", result, noOutput ? -1009 : index >= stream->announced.size() ? -1017 : 0);
        Require(result != 0 || buffer == stream->announced[index], "buffers are listed as they were announced");
    }
}

void Caller::DSClose()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const int result = GenTL::DSClose(handle);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (Reaches("DSClose", result, stream != nullptr))
    {
        Expect("DSClose", result, stream->open ? 0 : -1001);
        Stop(*stream, stream->open && stream->started);
        stream->open = false;
    }
}

void Caller::DSRevokeBuffer()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    void* const buffer = m_model.Pick(m_input, Kind::Buffer);
    void* memory = nullptr;
    void* user = nullptr;
    const bool noOutput = m_input.Below(4) == 1;
    const int result = GenTL::DSRevokeBuffer(handle, buffer, noOutput ? nullptr : &memory, noOutput ? nullptr : &user);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSRevokeBuffer", result, stream != nullptr))
    {
        return;
    }
    const bool ours = std::count(stream->announced.begin(), stream->announced.end(), buffer) != 0;
    const bool input = std::count(stream->input.begin(), stream->input.end(), buffer) != 0;
    Expect("DSRevokeBuffer", result, !ours ? -1006 : input ? -1022 : 0);
    if (result != 0)
    {
        return;
    }
    Module* const revoked = m_model.Find(buffer);
    Require(noOutput || (memory == revoked->memory && user == revoked->user), "what was announced comes back");
    std::erase(stream->announced, buffer);
    if (const auto event = stream->events.find(1); event != stream->events.end())
    {
        std::erase(event->second->waiting, buffer);
    }
    m_model.Remove(revoked);
}

void Caller::DSQueueBuffer()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    void* const buffer = m_model.Pick(m_input, Kind::Buffer);
    const int result = GenTL::DSQueueBuffer(handle, buffer);
    Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSQueueBuffer", result, stream != nullptr))
    {
        return;
    }
    const bool ours = std::count(stream->announced.begin(), stream->announced.end(), buffer) != 0;
    Expect("DSQueueBuffer", result, !ours ? -1006 : m_model.Find(buffer)->queued ? -1004 : 0);
    if (result == 0)
    {
        m_model.Find(buffer)->queued = true;
        stream->input.push_back(buffer);
    }
}

void Caller::DSGetBufferInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    void* const buffer = m_model.Pick(m_input, Kind::Buffer);
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 16, 17, 18, 19, 20, 30, 31});
    const int result =
        GenTL::DSGetBufferInfo(handle, buffer, info.command, info.typePointer, info.buffer, info.sizePointer);
    const Module* const stream = m_model.Find(handle, Kind::Stream);
    if (!Reaches("DSGetBufferInfo", result, stream != nullptr))
    {
        return;
    }
    const bool ours = std::count(stream->announced.begin(), stream->announced.end(), buffer) != 0;
    static constexpr int kAlways[] = {0, 1, 2, 4, 5, 6, 7, 8, 17, 19, 30};
    static constexpr int kOfAFrame[] = {3, 9, 10, 11, 16, 20};
    const bool needsFrame = std::count(std::begin(kOfAFrame), std::end(kOfAFrame), info.command) != 0;
    const bool known = std::count(std::begin(kAlways), std::end(kAlways), info.command) != 0;
    const int refused = !ours ? -1006 : info.Incomplete() ? -1009 : needsFrame ? -1014 : known ? 0 : -1003;
    ExpectInfo("DSGetBufferInfo", result, info, refused);
    if (result == 0 && info.command == 5 && info.buffer != nullptr)
    {
        Require((info.memory[0] != 0) == m_model.Find(buffer)->queued, "whether a buffer is queued");
    }
}

void Caller::DSGetBufferChunkData()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const int result = GenTL::DSGetBufferChunkData(handle, m_model.Pick(m_input, Kind::Buffer), nullptr, nullptr);
    Expect("DSGetBufferChunkData", result, m_model.initialised ? -1003 : -1002);
}

void Caller::DSGetNumBufferParts()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const int result = GenTL::DSGetNumBufferParts(handle, m_model.Pick(m_input, Kind::Buffer), nullptr);
    Expect("DSGetNumBufferParts", result, m_model.initialised ? -1003 : -1002);
}

void Caller::DSGetBufferPartInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    const int result = GenTL::DSGetBufferPartInfo(handle, nullptr, 0, 0, nullptr, nullptr, nullptr);
    // Answered before anything else, and no last error.
    Require(result == -1003, "DSGetBufferPartInfo is not implemented", result);
}

void Caller::DSGetParentDev()
{
    void* const handle = m_model.Pick(m_input, Kind::Stream);
    void* parent = nullptr;
    void** const output = m_input.Below(16) == 1 ? nullptr : &parent;
    ExpectParent("DSGetParentDev", GenTL::DSGetParentDev(handle, output), handle, Kind::Stream, output);
}

} // namespace nq::fuzz
