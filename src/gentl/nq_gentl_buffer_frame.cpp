// SPDX-License-Identifier: Apache-2.0
// What the standard wants to know of the frame in a buffer beyond the library's own answers.
#include "gentl/nq_gentl_buffer.h"

#include "gentl/nq_gentl_util.h"

#include <algorithm>
#include <cstring>

namespace GigERDMA
{

namespace
{

constexpr unsigned long kNanosecondsPerSecond = 1000000000;

/// `ticks` of a clock that has `frequency` of them in a second, which is not 0.
unsigned long NanosecondsOf(unsigned long ticks, unsigned long frequency)
{
    // Beyond 17 GHz the last bits go, so that no product overflows.
    while ((frequency >> 34) != 0)
    {
        frequency >>= 1;
        ticks >>= 1;
    }
    return ticks / frequency * kNanosecondsPerSecond + ticks % frequency * kNanosecondsPerSecond / frequency;
}

} // namespace

bool NQGenTLBuffer::IsTooSmall()
{
    NQGenTLLock lock(m_lock);
    return m_frameSize > m_size;
}

bool NQGenTLBuffer::IsCopied()
{
    return m_copied;
}

/// Brings pixels to where they belong. Those that came in the buffer's own memory are there, unless the camera has put
/// them elsewhere than they usually begin.
void NQGenTLBuffer::_place(unsigned long size, const unsigned char* data)
{
    const unsigned long length = std::min(m_size, size);
    const unsigned long front = std::min(m_details.frontSize, length);
    const bool copied = front != 0 || (data != m_data && length != 0);
    m_copied = copied;
    if (copied)
    {
        std::memmove(m_data + front, data, length - front); // first: they may lie where the front ones go
        std::copy_n(m_details.front, front, m_data);
    }
}

/// Takes the size of a frame that is about to be copied or shown. What counts as filled is what reached the buffer.
void NQGenTLBuffer::_takeSize(unsigned long size)
{
    m_frameSize = size;
    m_sizeFilled = Answers().sizeFilledIsWritten ? std::min({size, m_size, m_details.received}) : size;
}

int NQGenTLBuffer::_getFrameInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (iInfoCmd == GenTL::BUFFER_INFO_TIMESTAMP_NS && Answers().timestampInHertz)
    {
        return _getTimestampNs(piType, pBuffer, piSize);
    }
    if (!Answers().frameInfos)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    switch (iInfoCmd)
    {
    case GenTL::BUFFER_INFO_XOFFSET:
        return _getOfFrame(m_details.xOffset, piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_YOFFSET:
        return _getOfFrame(m_details.yOffset, piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_XPADDING:
        return _getOfFrame(m_details.xPadding, piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_YPADDING:
        return _getOfFrame(m_details.yPadding, piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_IMAGEOFFSET: // the pixels alone are in the buffer
        return _getOfFrame(0, piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
        return _getOfFrame(_deliveredLines(), piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_DATA_SIZE:
        // No more than the buffer takes: consumers copy as much from its base.
        return _getOfFrame(m_queued ? 0 : std::min(m_frameSize, m_size), piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_PIXELFORMAT_NAMESPACE:
    case GenTL::BUFFER_INFO_PIXEL_ENDIANNESS:
    case GenTL::BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
        return _getFormatInfo(iInfoCmd, piType, pBuffer, piSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

int NQGenTLBuffer::_getFormatInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    switch (iInfoCmd)
    {
    case GenTL::BUFFER_INFO_PIXELFORMAT_NAMESPACE:
        return NQGenTLUtil::CopyInfoUint64(GenTL::PIXELFORMAT_NAMESPACE_PFNC_32BIT, piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_PIXEL_ENDIANNESS: // GenDC
        return NQGenTLUtil::CopyInfoInt32(GenTL::PIXELENDIANNESS_LITTLE, piType, pBuffer, piSize);
    default:
        return NQGenTLUtil::CopyInfoBool(m_frameSize > m_size, piType, pBuffer, piSize);
    }
}

int NQGenTLBuffer::_getOfFrame(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    return NQGenTLUtil::CopyInfoSizeT(value, piType, pBuffer, piSize);
}

/// The lines that are in the buffer to their last byte.
unsigned long NQGenTLBuffer::_deliveredLines() const
{
    const unsigned long there = std::min({m_frameSize, m_size, m_details.received});
    if (there == m_frameSize)
    {
        return m_height;
    }
    return there * m_height / m_frameSize; // no product overflows: a frame's size has 32 bits, as its height has
}

int NQGenTLBuffer::_getTimestampNs(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent || m_details.tickFrequency == 0)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    return NQGenTLUtil::CopyInfoUint64(NanosecondsOf(m_timestamp, m_details.tickFrequency), piType, pBuffer, piSize);
}

} // namespace GigERDMA
