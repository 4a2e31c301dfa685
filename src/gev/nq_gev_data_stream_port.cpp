// SPDX-License-Identifier: Apache-2.0
// The register port of the data stream.
#include "gev/nq_gev_data_stream.h"

#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_data_stream_registers.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_port_range.h"

namespace
{

constexpr std::uint32_t kOldestFirst = 0;

} // namespace

int NQGevDataStream::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr)
    {
        return NQGevPortRefused("ReadPort");
    }
    return Answers().portRanges ? NQGevReadRange(Port(), address, buffer, *size) : ReadRegister(address, buffer, size);
}

NQGevPort NQGevDataStream::Port()
{
    return NQGevPortOf(*this, kDataStreamRegisters, &NQGevDataStream::ReadRegister, &NQGevDataStream::WriteRegister);
}

int NQGevDataStream::ReadRegister(unsigned long address, void* buffer, unsigned long* size)
{
    switch (address)
    {
    case kXmlAddress:
        return NQGevPortReader(buffer, size).Description(GetXMLInfo());
    case kDataStreamRegisters.At("StreamID_Reg"): {
        int type = 0;
        return GetInfo(GenTL::STREAM_INFO_ID, &type, buffer, size);
    }
    case kDataStreamRegisters.At("StreamAnnouncedBufferCount_Reg"):
        return ReadInfo32(GenTL::STREAM_INFO_NUM_ANNOUNCED, buffer, size);
    case kDataStreamRegisters.At("StreamBufferHandlingMode_Reg"):
        return NQGevPortReader(buffer, size).Number(kOldestFirst);
    case kDataStreamRegisters.At("StreamAnnounceBufferMinimum_Reg"):
        return ReadInfo32(GenTL::STREAM_INFO_BUF_ANNOUNCE_MIN, buffer, size);
    case kDataStreamRegisters.At("StreamDeliveredFrameCount_Reg"):
        return ReadLockedInfo(GenTL::STREAM_INFO_NUM_DELIVERED, buffer, size);
    case kDataStreamRegisters.At("FrameLoss_Reg"):
        // Deliberate(CountersHaveEightBytes): this register and the next are 4 bytes long in the register map and 8
        // bytes here, as the counters behind them are; a read of 4 is refused rather than cut.
        return ReadCounter(m_frameLoss, buffer, size);
    case kDataStreamRegisters.At("FramesReceived_Reg"):
        return ReadCounter(m_framesReceived, buffer, size);
    case kDataStreamRegisters.At("UnderrunCount"):
        return ReadLockedInfo(GenTL::STREAM_INFO_NUM_UNDERRUN, buffer, size);
    case kDataStreamRegisters.At("ReservedCount"):
        return ReadCounter(m_reservedCount, buffer, size);
    case kDataStreamRegisters.At("PlainValue"): {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        return NQGevPortReader(buffer, size).Number(m_registerValue);
    }
    default:
        // Deliberate(EventRegistersAreNotServed): the event registers of the map, 0x10100 and 0x10104, are not served
        // either: the stream has no event that they could select.
        return Answers().portRanges ? ReadStandardRegister(address, buffer, size)
                                    : static_cast<int>(GenTL::GC_ERR_INVALID_ADDRESS);
    }
}

/// What only the standard's description has, each as the info of its name says; of the copied frames there is none.
int NQGevDataStream::ReadStandardRegister(unsigned long address, void* buffer, unsigned long* size)
{
    int type = 0;
    switch (address)
    {
    case kDataStreamRegisters.At("StreamLostFrameCount_Reg"):
        return GetInfo(GenTL::STREAM_INFO_NUM_UNDERRUN, &type, buffer, size);
    case kDataStreamRegisters.At("StreamInputBufferCount_Reg"):
        return GetInfo(GenTL::STREAM_INFO_NUM_QUEUED, &type, buffer, size);
    case kDataStreamRegisters.At("StreamOutputBufferCount_Reg"):
        return GetInfo(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY, &type, buffer, size);
    case kDataStreamRegisters.At("StreamStartedFrameCount_Reg"):
        return GetInfo(GenTL::STREAM_INFO_NUM_STARTED, &type, buffer, size);
    case kDataStreamRegisters.At("PayloadSize_Reg"):
        return GetInfo(GenTL::STREAM_INFO_PAYLOAD_SIZE, &type, buffer, size);
    case kDataStreamRegisters.At("StreamIsGrabbing_Reg"):
        return GetInfo(GenTL::STREAM_INFO_IS_GRABBING, &type, buffer, size);
    case kDataStreamRegisters.At("StreamChunkCountMaximum_Reg"):
        return GetInfo(GenTL::STREAM_INFO_NUM_CHUNKS_MAX, &type, buffer, size);
    case kDataStreamRegisters.At("CopiedFrames_Reg"):
        return NQGevPortReader(buffer, size).LongNumber(NumCopied());
    default:
        return GetInfo(GenTL::STREAM_INFO_BUF_ALIGNMENT, &type, buffer, size);
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
    return Answers().portRanges ? NQGevWriteRange(Port(), address, buffer, *size)
                                : WriteRegister(address, buffer, size);
}

int NQGevDataStream::WriteRegister(unsigned long address, const void* buffer, unsigned long* size)
{
    if (address == kDataStreamRegisters.At("StreamBufferHandlingMode_Reg"))
    {
        // Deliberate(HandlingModeIsDropped): accepted and dropped, so that a consumer which sets a mode at its start
        // goes on; the stream always works oldest first.
        return GenTL::GC_ERR_SUCCESS;
    }
    if (address == kDataStreamRegisters.At("PlainValue"))
    {
        const GigERDMA::NQGenTLLock lock(m_moduleLock);
        m_registerValue = NQGevRegisterValue(buffer, *size);
        return GenTL::GC_ERR_SUCCESS;
    }
    return NQGevWriteRefused(kDataStreamRegisters, address);
}
