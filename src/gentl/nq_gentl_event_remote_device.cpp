// SPDX-License-Identifier: Apache-2.0
// Delivery and description of a camera's events.
#include "gentl/nq_gentl_event_remote_device.h"

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_util.h"

namespace GigERDMA
{

NQGenTLEventRemoteDevice::NQGenTLEventRemoteDevice(unsigned long mostPendingBytes)
    : NQGenTLEvent(GenTL::EVENT_REMOTE_DEVICE, mostPendingBytes)
{
    SetEventSizeMax(sizeof(NQGenTLEventRemoteDeviceRecord));
    SetEventInfoDataSizeMax(sizeof(NQGenTLEventRemoteDeviceRecord::data));
}

void NQGenTLEventRemoteDevice::DoEventGetData(void* entry, void* pBuffer, unsigned long*)
{
    DeliverRecord<NQGenTLEventRemoteDeviceRecord>(entry, pBuffer);
}

int NQGenTLEventRemoteDevice::DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                                                 unsigned long* piOutSize)
{
    const auto* record = static_cast<const NQGenTLEventRemoteDeviceRecord*>(pInBuffer);
    switch (iInfoCmd)
    {
    case GenTL::EVENT_DATA_ID:
        return NQGenTLUtil::CopyInfoString(NQGenTLUtil::Printf("%08x", record->id), piType, pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_VALUE:
        // Deliberate(WholeEventField): all of the field, whatever the record's length says, so that one size of buffer
        // takes the value of every event.
        return NQGenTLUtil::CopyInfoBuffer(const_cast<unsigned char*>(record->data), sizeof(record->data), piType,
                                           pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_NUMID:
        return NQGenTLUtil::CopyInfoUint32(record->id, piType, pOutBuffer, piOutSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

} // namespace GigERDMA
