// SPDX-License-Identifier: Apache-2.0
// Delivery and description of changes of access status.
#include "gentl/nq_gentl_event_device_connection.h"

#include "gentl/nq_gentl_util.h"
#include "nq_gev_gentl.h"

namespace GigERDMA
{

NQGenTLEventDeviceConnection::NQGenTLEventDeviceConnection(unsigned long mostPendingBytes)
    : NQGenTLEvent(GenTL::NQ_EVENT_DEVICE_CONNECTION, mostPendingBytes)
{
    SetEventSizeMax(sizeof(NQGenTLEventDeviceConnectionRecord));
    SetEventInfoDataSizeMax(sizeof(NQGenTLEventDeviceConnectionRecord::text));
}

void NQGenTLEventDeviceConnection::DoEventGetData(void* entry, void* pBuffer, unsigned long*)
{
    DeliverRecord<NQGenTLEventDeviceConnectionRecord>(entry, pBuffer);
}

int NQGenTLEventDeviceConnection::DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                                                     unsigned long* piOutSize)
{
    const auto* record = static_cast<const NQGenTLEventDeviceConnectionRecord*>(pInBuffer);
    switch (iInfoCmd)
    {
    case GenTL::EVENT_DATA_ID:
    case GenTL::EVENT_DATA_NUMID:
        return NQGenTLUtil::CopyInfoInt32(record->status, piType, pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_VALUE:
        return NQGenTLUtil::CopyInfoString(FieldText(record->text), piType, pOutBuffer, piOutSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

} // namespace GigERDMA
