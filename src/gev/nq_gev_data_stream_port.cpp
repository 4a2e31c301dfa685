// SPDX-License-Identifier: Apache-2.0
// The register port of the data stream.
#include "gev/nq_gev_data_stream.h"

#include "gentl/nq_gentl_clear.h"
#include "gev/nq_gev_port.h"

#include <GenTL/GenTL.h>
#include <algorithm>
#include <iterator>

namespace
{

/// The stream register map, see CreateXmlFileDataStream. The last three are not in the map.
enum Register : unsigned long
{
    RegisterMapText = 0x10000,
    StreamID = 0x80000,
    StreamAnnouncedBufferCount = 0x80100,
    StreamBufferHandlingMode = 0x80104,
    StreamAnnounceBufferMinimum = 0x80108,
    StreamDeliveredFrameCount = 0x8010C,
    FrameLoss = 0x80110,
    FramesReceived = 0x80114,
    UnderrunCount = 0x8042C,
    ReservedCount = 0x80430,
    PlainValue = 0x80434
};

/// Registers that exist for reading only. Those that ReadPort does not serve are kept for consumers that probe them.
constexpr unsigned long ReadOnlyRegisters[] = {RegisterMapText,
                                               StreamID,
                                               StreamAnnouncedBufferCount,
                                               StreamAnnounceBufferMinimum,
                                               StreamDeliveredFrameCount,
                                               FrameLoss,
                                               FramesReceived,
                                               0x80118,
                                               0x80218,
                                               0x80418,
                                               0x8041C,
                                               0x80420,
                                               0x80424,
                                               0x80428,
                                               UnderrunCount,
                                               ReservedCount};

constexpr std::uint32_t OldestFirst = 0;

} // namespace

int NQGevDataStream::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("ReadPort");
    }
    GigERDMA::ClearForPort(Answers(), buffer, size);
    switch (address)
    {
    case RegisterMapText:
        return NQGevPortReader(buffer, size).Description(GetXMLInfo());
    case StreamID: {
        int type = 0;
        return GetInfo(GenTL::STREAM_INFO_ID, &type, buffer, size);
    }
    case StreamAnnouncedBufferCount:
        return ReadInfo32(GenTL::STREAM_INFO_NUM_ANNOUNCED, buffer, size);
    case StreamBufferHandlingMode:
        return NQGevPortReader(buffer, size).Number(OldestFirst);
    case StreamAnnounceBufferMinimum:
        return ReadInfo32(GenTL::STREAM_INFO_BUF_ANNOUNCE_MIN, buffer, size);
    case StreamDeliveredFrameCount:
        return ReadLockedInfo(GenTL::STREAM_INFO_NUM_DELIVERED, buffer, size);
    case FrameLoss:
        // Deliberate: this register and the next are 4 bytes long in the register map and 8 bytes here.
        return ReadCounter(m_frameLoss, buffer, size);
    case FramesReceived:
        return ReadCounter(m_framesReceived, buffer, size);
    case UnderrunCount:
        return ReadLockedInfo(GenTL::STREAM_INFO_NUM_UNDERRUN, buffer, size);
    case ReservedCount:
        return ReadCounter(m_reservedCount, buffer, size);
    case PlainValue: {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        return NQGevPortReader(buffer, size).Number(m_registerValue);
    }
    default:
        // Deliberate: the event registers of the map, 0x10100 and 0x10104, are not served either.
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
}

int NQGevDataStream::ReadInfo32(int command, void* buffer, unsigned long* size)
{
    int type = 0;
    unsigned long value = 0;
    unsigned long valueSize = sizeof value;
    const int result = GetInfo(command, &type, &value, &valueSize);
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return result;
    }
    return NQGevPortReader(buffer, size).Number(static_cast<std::uint32_t>(value));
}

int NQGevDataStream::ReadLockedInfo(int command, void* buffer, unsigned long* size)
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    int type = 0;
    return GetInfo(command, &type, buffer, size);
}

int NQGevDataStream::ReadCounter(const std::atomic<std::uint64_t>& counter, void* buffer, unsigned long* size)
{
    std::uint64_t value = 0;
    {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        value = counter;
    }
    return NQGevPortReader(buffer, size).LongNumber(value);
}

int NQGevDataStream::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("WritePort");
    }
    if (address == StreamBufferHandlingMode)
    {
        // Deliberate: accepted and dropped; the stream always works oldest first.
        return GenTL::GC_ERR_SUCCESS;
    }
    if (address == PlainValue)
    {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        m_registerValue = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    if (std::find(std::begin(ReadOnlyRegisters), std::end(ReadOnlyRegisters), address) != std::end(ReadOnlyRegisters))
    {
        return GenTL::GC_ERR_ACCESS_DENIED;
    }
    return GenTL::GC_ERR_INVALID_ADDRESS;
}
