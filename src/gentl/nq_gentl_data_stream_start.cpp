// SPDX-License-Identifier: Apache-2.0
// What a start of a data stream is refused for before the transport is asked.
#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_data_stream.h"

namespace GigERDMA
{

int NQGenTLDataStream::CheckStart(int flags, unsigned long numToAcquire)
{
    if (numToAcquire == 0)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", "StartAcquisition");
    }
    if (Answers().startFlagsChecked && flags != GenTL::ACQ_START_FLAGS_DEFAULT)
    {
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED Flags:%d", "StartAcquisition", flags);
    }
    if (Answers().startNeedsBuffers && !IsStarted() && m_buffers.GetCount(NQ_BUFFER_TYPE_ANNOUNCED) < kLeastAnnounced)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_BUFFER, "%s GC_ERR_INVALID_BUFFER", "StartAcquisition");
    }
    return GenTL::GC_ERR_SUCCESS;
}

} // namespace GigERDMA
