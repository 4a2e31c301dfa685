// SPDX-License-Identifier: Apache-2.0
// Address resolution, and the decoding of received frames.
#include "rdma/tld_RdmaTL.h"

#include "rdma/gendc_wire.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <utility>

namespace
{

/// True when [offset, offset + length) lies in a block of `size` bytes.
bool Fits(std::uint64_t offset, std::uint64_t length, std::uint64_t size)
{
    return offset <= size && length <= size - offset;
}

/// Container and component header, up to the offset of the part header, which is read as 32 bits.
struct FrontHeaders
{
    std::array<unsigned char, gendc_wire::kPartOffset + sizeof(std::uint32_t)> bytes;

    template <typename Value>
    Value Number(std::size_t offset) const
    {
        Value value{};
        std::memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    }
};

} // namespace

GevRdmaEndpoint::GevRdmaEndpoint(FrameMemory memory) : m_memory(memory) {}
GevRdmaEndpoint::~GevRdmaEndpoint() = default;

bool GevRdmaEndpoint::Connect(const char* host, const char* service)
{
    if (m_endpoint != nullptr)
    {
        return false;
    }
    addrinfo* list = nullptr;
    if (getaddrinfo(host, service, nullptr, &list) != 0)
    {
        return false;
    }
    m_addresses.reset(list);
    sockaddr_in address{};
    if (list->ai_family == AF_INET)
    {
        std::memcpy(&address, list->ai_addr, sizeof address);
    }
    if (address.sin_addr.s_addr == 0)
    {
        return false;
    }
    {
        const NQLock lock(m_disconnectLock);
        if (m_disconnected)
        {
            return false;
        }
        m_endpoint = std::make_unique<LvEndpoint>(m_memory);
    }
    const bool connected = m_endpoint->Init(&address);
    m_addresses.reset();
    return connected;
}

bool GevRdmaEndpoint::CanReceive(std::uint64_t payloadSize) const
{
    return m_endpoint != nullptr && Fits(payloadSize, gendc_wire::kDescriptorSize, m_endpoint->LongestFrame());
}

bool GevRdmaEndpoint::Start(gevrdmaBufferSettings& settings, unsigned int)
{
    if (m_endpoint == nullptr)
    {
        return false;
    }
    try
    {
        m_endpoint->SetBufferSettings(settings);
        m_endpoint->AllocateAndRegisterMemory();
        m_endpoint->StartWorkerThread();
        return true;
    }
    catch (const std::exception&)
    {
        m_endpoint->DeInit();
        return false;
    }
}

gevrdmaBuffer GevRdmaEndpoint::GetBuffer()
{
    gevrdmaBuffer buffer{};
    if (m_endpoint != nullptr)
    {
        m_endpoint->GetBuffer(&buffer);
    }
    return buffer;
}

bool GevRdmaEndpoint::BeginReceives()
{
    if (m_endpoint == nullptr)
    {
        return false;
    }
    try
    {
        if (m_endpoint->BeginReceives())
        {
            return true;
        }
    }
    catch (const std::exception&) // no memory
    {
    }
    m_endpoint->DeInit();
    return false;
}

void* GevRdmaEndpoint::AddReceive(unsigned char* memory, std::uint32_t length, std::shared_ptr<const void> share)
{
    return m_endpoint != nullptr ? m_endpoint->AddReceive(memory, length, std::move(share)) : nullptr;
}

void* GevRdmaEndpoint::AddReceiveBehindHeaders(unsigned char* memory, std::uint32_t length, std::size_t room)
{
    return m_endpoint != nullptr ? m_endpoint->AddReceiveBehindHeaders(memory, length, room) : nullptr;
}

void GevRdmaEndpoint::RemoveReceive(void* id)
{
    if (m_endpoint != nullptr)
    {
        m_endpoint->RemoveReceive(id);
    }
}

bool GevRdmaEndpoint::PostReceive(void* id)
{
    return m_endpoint != nullptr && m_endpoint->PostReceive(id);
}

bool GevRdmaEndpoint::GetNextFrame(FrameInfo* info, gevrdmaBuffer* buffer, void** dropped, FrameRegion* region)
{
    const gevrdmaBuffer frame = GetBuffer();
    // Deliberate(EmptyFrameIsAStop): an empty frame looks exactly like a stop: either way there is nothing to deliver,
    // and the caller asks the stream itself whether to go on.
    if (frame.received == 0 || !Decode(frame, info, region))
    {
        // Deliberate(UndecodedBlockStays): the block is not requeued here. A camera that sends such frames is out of
        // step and gets one credit fewer.
        HandOver(frame.id);
        if (dropped != nullptr)
        {
            *dropped = frame.id;
        }
        return false;
    }
    *buffer = frame;
    return true;
}

bool GevRdmaEndpoint::IsFlowing() const
{
    return m_endpoint != nullptr && m_endpoint->IsFlowing();
}

bool GevRdmaEndpoint::Decode(const gevrdmaBuffer& frame, FrameInfo* info, FrameRegion* region)
{
    // Each header is read once: what is delivered is what was checked, even if somebody writes to the block meanwhile.
    // A look at a buffer's memory takes a lock, so the first two headers are one.
    FrontHeaders front{};
    if (!m_endpoint->ReadFrame(frame, 0, front.bytes.data(), front.bytes.size()))
    {
        m_endpoint->ReadFrame(frame, gendc_wire::kContainerId, &info->frameId, sizeof info->frameId);
        return false;
    }
    info->frameId = front.Number<std::uint64_t>(gendc_wire::kContainerId);
    FrameInfo decoded{};
    if (front.Number<std::uint32_t>(gendc_wire::kComponentOffset) != gendc_wire::kContainerHeaderSize ||
        !m_endpoint->ReadFrame(frame, front.Number<std::uint32_t>(gendc_wire::kPartOffset), &decoded,
                               gendc_wire::kPartHeaderSize))
    {
        return false;
    }
    const std::uint64_t dataOffset = static_cast<std::uint32_t>(decoded.dataOffset);
    if (!Fits(dataOffset, decoded.dataSize, frame.size))
    {
        return false;
    }
    const FramePixels pixels = m_endpoint->PixelsOf(frame, dataOffset, decoded.dataSize);
    decoded.data = pixels.data;
    decoded.timestamp = front.Number<std::uint64_t>(gendc_wire::kTimestamp);
    decoded.frameId = info->frameId;
    *info = decoded;
    if (region != nullptr)
    {
        region->x = front.Number<std::uint32_t>(gendc_wire::kRegionX);
        region->y = front.Number<std::uint32_t>(gendc_wire::kRegionY);
        // The last 8 bytes of the part header: two paddings of 16 bits, then 4 bytes that mean nothing.
        region->xPadding = static_cast<std::uint16_t>(decoded.padding);
        region->yPadding = static_cast<std::uint16_t>(decoded.padding >> 16);
        region->received = frame.received > dataOffset ? frame.received - dataOffset : 0;
        region->front = pixels.front;
        region->frontSize = pixels.frontSize;
    }
    return true;
}

std::shared_ptr<const void> GevRdmaEndpoint::HandOver(void* id, const void* shownBy)
{
    return m_endpoint != nullptr ? m_endpoint->HandOver(id, shownBy) : nullptr;
}

void GevRdmaEndpoint::EndShow(void* id, const void* shownBy)
{
    if (m_endpoint != nullptr)
    {
        m_endpoint->EndShow(id, shownBy);
    }
}

bool GevRdmaEndpoint::RequeueBuffer(gevrdmaBuffer& buffer)
{
    return m_endpoint != nullptr && m_endpoint->RequeueBuffer(&buffer) == 0;
}

bool GevRdmaEndpoint::RequeueBufferByID(void* id)
{
    return m_endpoint != nullptr && m_endpoint->RequeueBufferByID(id) == 0;
}

void GevRdmaEndpoint::Disconnect()
{
    {
        // From here on Connect leaves the endpoint as it is.
        const NQLock lock(m_disconnectLock);
        m_disconnected = true;
    }
    if (m_endpoint != nullptr)
    {
        m_endpoint->DeInit();
    }
}
