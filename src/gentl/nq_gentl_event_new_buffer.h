// SPDX-License-Identifier: Apache-2.0
// The new buffer event, id 1: a buffer with a frame for the consumer.
#pragma once

#include "gentl/nq_gentl_event.h"

namespace GigERDMA
{

/// Entries are NQGenTLBuffer objects of the data stream; the event never owns them. What the consumer receives is built
/// on delivery: the buffer's handle and its user pointer. Delivery and flushing both end the buffer's time as queued.
class NQGenTLEventNewBuffer : public NQGenTLEvent
{
  public:
    explicit NQGenTLEventNewBuffer(unsigned long mostPendingBytes = kMostPendingBytes);

    void DoEventGetData(void* entry, void* pBuffer, unsigned long* piSize) override;
    int DoEventGetDataInfo(const void* pInBuffer, int iInfoCmd, int* piType, void* pOutBuffer,
                           unsigned long* piOutSize) override;
    void DoFlushEntry(void* entry) override;
};

} // namespace GigERDMA
