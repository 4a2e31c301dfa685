// SPDX-License-Identifier: Apache-2.0
// The device connection event, id 4000: a change of a camera's access status.
#pragma once

#include "gentl/nq_gentl_event.h"

namespace GigERDMA
{

#pragma pack(push, 1)
/// A change of access status. The consumer receives it byte for byte.
struct NQGenTLEventDeviceConnectionRecord
{
    int status;     ///< The new DEVICE_ACCESS_STATUS value.
    char text[256]; ///< The device's id, NUL-terminated, at most 255 characters.
};
#pragma pack(pop)
static_assert(sizeof(NQGenTLEventDeviceConnectionRecord) == 260);

/// Entries are records on the heap, made by the producer with `new NQGenTLEventDeviceConnectionRecord`; the event
/// deletes them on delivery.
class NQGenTLEventDeviceConnection : public NQGenTLEvent
{
  public:
    explicit NQGenTLEventDeviceConnection(unsigned long mostPendingBytes = kMostPendingBytes);

    void DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize) override;
    int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                           unsigned long* piOutSize) override;
};

} // namespace GigERDMA
