// SPDX-License-Identifier: Apache-2.0
// Delivery and description of error records.
#include "gentl/nq_gentl_event_error.h"

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_util.h"

namespace GigERDMA
{

NQGenTLEventError::NQGenTLEventError(unsigned long mostPendingBytes)
    : NQGenTLEvent(GenTL::EVENT_ERROR, mostPendingBytes)
{
    SetEventSizeMax(sizeof(NQGenTLEventErrorRecord));
    SetEventInfoDataSizeMax(sizeof(NQGenTLEventErrorRecord::text));
}

void NQGenTLEventError::DoEventGetData(void* entry, void* pBuffer, unsigned long*)
{
    DeliverRecord<NQGenTLEventErrorRecord>(entry, pBuffer);
}

int NQGenTLEventError::DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                                          unsigned long* piOutSize)
{
    const auto* record = static_cast<const NQGenTLEventErrorRecord*>(pInBuffer);
    switch (iInfoCmd)
    {
    case GenTL::EVENT_DATA_ID:
    case GenTL::EVENT_DATA_NUMID:
        return NQGenTLUtil::CopyInfoInt32(record->code, piType, pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_VALUE:
        return NQGenTLUtil::CopyInfoString(FieldText(record->text), piType, pOutBuffer, piOutSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

} // namespace GigERDMA
