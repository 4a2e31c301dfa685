// SPDX-License-Identifier: Apache-2.0
// Delivery, flushing and description of buffers with a frame.
#include "gentl/nq_gentl_event_new_buffer.h"

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_util.h"

namespace GigERDMA
{

NQGenTLEventNewBuffer::NQGenTLEventNewBuffer(unsigned long mostPendingBytes)
    : NQGenTLEvent(GenTL::EVENT_NEW_BUFFER, mostPendingBytes)
{
    SetEventSizeMax(sizeof(GenTL::S_EVENT_NEW_BUFFER));
    SetEventInfoDataSizeMax(sizeof(GenTL::BUFFER_HANDLE));
}

void NQGenTLEventNewBuffer::DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize)
{
    auto* const buffer = static_cast<NQGenTLBuffer*>(entry);
    if (buffer == nullptr)
    {
        return;
    }
    if (pBuffer != nullptr)
    {
        const GenTL::S_EVENT_NEW_BUFFER data{buffer->GetModule(), buffer->GetUserPointer()};
        std::memcpy(pBuffer, &data, sizeof(data));
        *piSize = sizeof(data);
    }
    buffer->SetQueueFlag(false);
}

int NQGenTLEventNewBuffer::DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                                              unsigned long* piOutSize)
{
    const auto* const data = static_cast<const GenTL::S_EVENT_NEW_BUFFER*>(pInBuffer);
    switch (iInfoCmd)
    {
    case GenTL::EVENT_DATA_ID:
        return NQGenTLUtil::CopyInfoPtr(data->BufferHandle, piType, pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_VALUE:
        return NQGenTLUtil::CopyInfoPtr(data->pUserPointer, piType, pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_NUMID:
        // Deliberate(BufferNumberIsItsAddress): a delivered buffer has no number of its own, and the address of the
        // consumer's record is one that no other record shares.
        return NQGenTLUtil::CopyInfoSizeT(reinterpret_cast<unsigned long>(pInBuffer), piType, pOutBuffer, piOutSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

void NQGenTLEventNewBuffer::DoFlushEntry(void* entry)
{
    if (entry != nullptr)
    {
        static_cast<NQGenTLBuffer*>(entry)->SetQueueFlag(false);
    }
}

static_assert(sizeof(GenTL::S_EVENT_NEW_BUFFER) == 16);

} // namespace GigERDMA
