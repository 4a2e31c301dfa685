// SPDX-License-Identifier: Apache-2.0
// The module event, id 5. It can be registered and waited on; nothing in this library signals it.
#pragma once

#include "gentl/nq_gentl_event.h"

namespace GigERDMA
{

#pragma pack(push, 1)
/// An event of a module. The consumer receives it byte for byte.
struct NQGenTLEventModuleRecord
{
    unsigned long id;
    unsigned char data[540];
};
#pragma pack(pop)
static_assert(sizeof(NQGenTLEventModuleRecord) == 548);

/// Entries are records on the heap, made by the producer with `new NQGenTLEventModuleRecord`; the event deletes them on
/// delivery.
class NQGenTLEventModule : public NQGenTLEvent
{
  public:
    explicit NQGenTLEventModule(unsigned long mostPendingBytes = kMostPendingBytes);

    void DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize) override;
    int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                           unsigned long* piOutSize) override;
};

} // namespace GigERDMA
