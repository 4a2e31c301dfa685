// SPDX-License-Identifier: Apache-2.0
// Delivery and description of a module's events.
#include "gentl/nq_gentl_event_module.h"

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_util.h"

namespace GigERDMA
{

NQGenTLEventModule::NQGenTLEventModule(unsigned long mostPendingBytes)
    : NQGenTLEvent(GenTL::EVENT_MODULE, mostPendingBytes)
{
    SetEventSizeMax(sizeof(NQGenTLEventModuleRecord));
    SetEventInfoDataSizeMax(sizeof(NQGenTLEventModuleRecord::data));
}

void NQGenTLEventModule::DoEventGetData(void* entry, void* pBuffer, unsigned long*)
{
    DeliverRecord<NQGenTLEventModuleRecord>(entry, pBuffer);
}

int NQGenTLEventModule::DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                                           unsigned long* piOutSize)
{
    const auto* record = static_cast<const NQGenTLEventModuleRecord*>(pInBuffer);
    switch (iInfoCmd)
    {
    case GenTL::EVENT_DATA_ID:
    case GenTL::EVENT_DATA_NUMID:
        return NQGenTLUtil::CopyInfoUint64(record->id, piType, pOutBuffer, piOutSize);
    case GenTL::EVENT_DATA_VALUE:
        // The data are not copied: the value is where they lie in the consumer's own record.
        return NQGenTLUtil::CopyInfoPtr(const_cast<unsigned char*>(record->data), piType, pOutBuffer, piOutSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

} // namespace GigERDMA
