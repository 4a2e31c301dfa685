// SPDX-License-Identifier: Apache-2.0
// The remote device event, id 4: an event packet of the camera.
#pragma once

#include "gentl/nq_gentl_event.h"

namespace GigERDMA
{

#pragma pack(push, 1)
/// An event of the camera. The consumer receives it byte for byte.
struct NQGenTLEventRemoteDeviceRecord
{
    unsigned int id;
    unsigned short length; ///< Bytes of `data` that came from the camera.
    unsigned char data[540];
};
#pragma pack(pop)
static_assert(sizeof(NQGenTLEventRemoteDeviceRecord) == 546);

/// Entries are records on the heap, made by the producer with `new NQGenTLEventRemoteDeviceRecord`; the event deletes
/// them on delivery.
class NQGenTLEventRemoteDevice : public NQGenTLEvent
{
  public:
    explicit NQGenTLEventRemoteDevice(unsigned long mostPendingBytes = kMostPendingBytes);

    void DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize) override;
    int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                           unsigned long* piOutSize) override;
};

} // namespace GigERDMA
