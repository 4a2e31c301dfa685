// SPDX-License-Identifier: Apache-2.0
// The error event, id 0. It can be registered and waited on; nothing in this library signals it.
#pragma once

#include "gentl/nq_gentl_event.h"

namespace GigERDMA
{

#pragma pack(push, 1)
/// An error. The consumer receives it byte for byte.
struct NQGenTLEventErrorRecord
{
    int code;
    char text[1024]; ///< NUL-terminated.
};
#pragma pack(pop)
static_assert(sizeof(NQGenTLEventErrorRecord) == 1028);

/// Entries are records on the heap, made by the producer with `new NQGenTLEventErrorRecord`; the event deletes them on
/// delivery.
class NQGenTLEventError : public NQGenTLEvent
{
  public:
    explicit NQGenTLEventError(unsigned long mostPendingBytes = kMostPendingBytes);

    void DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize) override;
    int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                           unsigned long* piOutSize) override;
};

} // namespace GigERDMA
