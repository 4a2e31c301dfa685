// SPDX-License-Identifier: Apache-2.0
// A buffer's memory, the values of its last frame, and the answers to buffer info commands.
#include "gentl/nq_gentl_buffer.h"

#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_util.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace GigERDMA
{

NQGenTLBuffer::NQGenTLBuffer(void* buffer, unsigned long size, bool allocate, void* userPtr, const char* tlType,
                             const NQAnswers& answers)
    : NQGenTLModuleBase(nullptr, answers), m_origin(ORIGIN_CONSUMER), m_data(static_cast<unsigned char*>(buffer)),
      m_size(size), m_userPtr(userPtr), m_tlType(tlType != nullptr ? tlType : TLTypeGEVName)
{
    if (buffer != nullptr)
    {
        return;
    }
    m_origin = allocate ? ORIGIN_ALLOCATED : ORIGIN_TRANSPORT;
    if (allocate)
    {
        m_data = new unsigned char[size];
    }
}

NQGenTLBuffer::~NQGenTLBuffer()
{
    if (m_origin == ORIGIN_ALLOCATED)
    {
        delete[] m_data;
    }
}

bool NQGenTLBuffer::IsPortImplemented()
{
    return false;
}

bool NQGenTLBuffer::IsEventImplemented(int)
{
    return false;
}

_NQ_GENTL_PORT_INFO NQGenTLBuffer::GetPortInfo()
{
    return {};
}

_NQ_GENTL_XML_INFO NQGenTLBuffer::GetXMLInfo()
{
    return {};
}

std::vector<std::string> NQGenTLBuffer::GetURLList()
{
    return {};
}

int NQGenTLBuffer::ReadPort(unsigned long, void*, unsigned long*)
{
    return GenTL::GC_ERR_NOT_IMPLEMENTED;
}

int NQGenTLBuffer::WritePort(unsigned long, const void*, unsigned long*)
{
    return GenTL::GC_ERR_NOT_IMPLEMENTED;
}

std::string NQGenTLBuffer::GetName()
{
    return "TLBuffer";
}

std::string NQGenTLBuffer::GetId()
{
    return {};
}

int NQGenTLBuffer::DoOpen()
{
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLBuffer::DoClose()
{
    return GenTL::GC_ERR_SUCCESS;
}

void NQGenTLBuffer::UpdateData(unsigned long size, unsigned long frameId, unsigned long timestamp, unsigned long width,
                               unsigned long height, unsigned long pixelFormat, unsigned char* data,
                               const NQFrameDetails& details)
{
    NQGenTLLock lock(m_lock);
    m_details = details;
    _takeSize(size);
    m_frameId = frameId;
    m_timestamp = timestamp;
    m_width = width;
    m_height = height;
    m_pixelFormat = pixelFormat;
    if (data == nullptr)
    {
        return;
    }

    if (m_origin == ORIGIN_TRANSPORT)
    {
        m_data = data;
    }
    else if (m_origin == ORIGIN_OWN_BLOCK || Answers().announcedInPlace)
    {
        _place(size, data);
    }
    else
    {
        // Deliberate(CopySizesAreSigned): both sizes count as signed 32 bits. One that is negative then is no size that
        // anybody meant, and nothing is copied.
        const int length = std::min(static_cast<int>(m_size), static_cast<int>(size));
        if (length > 0)
        {
            std::memcpy(m_data, data, static_cast<std::size_t>(length));
        }
    }
    m_imagePresent = true;
}

bool NQGenTLBuffer::TrySetQueueFlag()
{
    if (m_queued.exchange(true))
    {
        return false;
    }
    if (Answers().queuedIsComplete)
    {
        m_incomplete = false;
    }
    return true;
}

bool NQGenTLBuffer::IsQueued()
{
    return m_queued;
}

bool NQGenTLBuffer::IsImagePresent()
{
    return m_imagePresent;
}

void NQGenTLBuffer::SetQueueFlag(bool value)
{
    m_queued = value;
}

void NQGenTLBuffer::SetNewDataFlag(bool value)
{
    m_newData = value;
}

void NQGenTLBuffer::SetIncompleteFlag(bool value)
{
    m_incomplete = value;
}

void NQGenTLBuffer::SetImagePresentFlag(bool value)
{
    m_imagePresent = value;
}

void NQGenTLBuffer::SetAcquiringFlag(bool value)
{
    m_acquiring = value;
}

void NQGenTLBuffer::GiveMemory(unsigned char* data, std::shared_ptr<const void> share)
{
    NQGenTLLock lock(m_lock);
    m_origin = ORIGIN_OWN_BLOCK;
    m_data = data;
    m_memory = std::move(share);
}

bool NQGenTLBuffer::IsPosted()
{
    return m_posted;
}

void NQGenTLBuffer::SetPosted(bool posted)
{
    m_posted = posted;
}

std::shared_ptr<const void> NQGenTLBuffer::HoldMemory(std::shared_ptr<const void> share)
{
    m_memory.swap(share);
    return share;
}

std::shared_ptr<const void> NQGenTLBuffer::GetMemory() const
{
    return m_memory;
}

void* NQGenTLBuffer::GetRdmaId()
{
    return m_rdmaId;
}

void NQGenTLBuffer::SetRdmaId(void* id)
{
    m_rdmaId = id;
}

void* NQGenTLBuffer::GetData()
{
    NQGenTLLock lock(m_lock);
    return m_data;
}

unsigned long NQGenTLBuffer::GetSize() const
{
    return m_size;
}

void* NQGenTLBuffer::GetUserPointer() const
{
    return m_userPtr;
}

int NQGenTLBuffer::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (piType == nullptr || piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    ClearForInfo(Answers(), pBuffer, piSize);

    NQGenTLLock lock(m_lock);
    switch (iInfoCmd)
    {
    case GenTL::BUFFER_INFO_BASE:
        return _getBase(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_SIZE:
        return _getSize(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_USER_PTR:
        return _getUserPtr(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_TIMESTAMP:
        return _getTimestamp(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_NEW_DATA:
        return _getNewData(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_IS_QUEUED:
        return _getIsQueued(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_IS_ACQUIRING:
        return _getIsAcquiring(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_IS_INCOMPLETE:
        return _getIsIncomplete(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_TLTYPE:
        return _getTLType(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_SIZE_FILLED:
        return _getSizeFilled(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_WIDTH:
        return _getWidth(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_HEIGHT:
        return _getHeight(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_FRAMEID:
        return _getFrameId(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_IMAGEPRESENT:
        return _getImagePresent(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_PAYLOADTYPE:
        return _getPayloadType(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_PIXELFORMAT:
        return _getPixelFormat(piType, pBuffer, piSize);
    case GenTL::BUFFER_INFO_CONTAINS_CHUNKDATA:
        return _getContainsChunkData(piType, pBuffer, piSize);
    default:
        return _getFrameInfo(iInfoCmd, piType, pBuffer, piSize);
    }
}

int NQGenTLBuffer::_getBase(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoPtr(m_data, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getSize(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoSizeT(m_size, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getUserPtr(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoPtr(m_userPtr, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getTimestamp(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    return NQGenTLUtil::CopyInfoUint64(m_timestamp, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getNewData(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(m_newData, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getIsQueued(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(m_queued, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getIsAcquiring(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(m_acquiring, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getIsIncomplete(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(m_incomplete, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getTLType(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoString(m_tlType, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getSizeFilled(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    return NQGenTLUtil::CopyInfoSizeT(Answers().sizeFilledIsWritten && m_queued ? 0 : m_sizeFilled, piType, pBuffer,
                                      piSize);
}

int NQGenTLBuffer::_getWidth(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    if (m_width == 0)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    return NQGenTLUtil::CopyInfoSizeT(m_width, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getHeight(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    if (m_height == 0)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    return NQGenTLUtil::CopyInfoSizeT(m_height, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getFrameId(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    return NQGenTLUtil::CopyInfoUint64(m_frameId, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getImagePresent(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(m_imagePresent, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getPayloadType(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoSizeT(GenTL::PAYLOAD_TYPE_IMAGE, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getPixelFormat(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_imagePresent)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    if (m_pixelFormat == 0)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    return NQGenTLUtil::CopyInfoUint64(m_pixelFormat, piType, pBuffer, piSize);
}

int NQGenTLBuffer::_getContainsChunkData(int* piType, void* pBuffer, unsigned long* piSize)
{
    return NQGenTLUtil::CopyInfoBool(false, piType, pBuffer, piSize);
}

} // namespace GigERDMA
