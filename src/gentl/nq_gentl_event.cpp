// SPDX-License-Identifier: Apache-2.0
// Signalling, waiting for and describing the occurrences of an event.
#include "gentl/nq_gentl_event.h"

#include "GenTL/GenTL.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_util.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace GigERDMA
{

NQGenTLEvent::NQGenTLEvent(int id, unsigned long mostPendingBytes)
    : m_answers(&kStatedAnswers), m_bEnabled(true), m_id(id), m_mostPendingBytes(mostPendingBytes), m_signal(kDataBit)
{
}

NQGenTLEvent::~NQGenTLEvent()
{
    // Deliberate(RecordsAreNotFreed): records still pending are not freed here, as little as by Flush: an entry may be
    // a buffer of the stream, and this class cannot tell.
    m_signal.Kill();
}

void NQGenTLEvent::EndWaits()
{
    if (!m_answers->waitersEnd)
    {
        return;
    }
    m_signal.End();
    // In a forked child those of the parent's threads that were inside never leave.
    for (int inside = m_inside; inside != 0 && !m_origin.IsInherited(); inside = m_inside)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void NQGenTLEvent::Leave()
{
    --m_inside; // The event may go from here on.
}

void NQGenTLEvent::DoFlushEntry(void*) {}

unsigned long NQGenTLEvent::GetNumInQueue()
{
    return m_queue.GetSize();
}

bool NQGenTLEvent::Signal(void* entry)
{
    NQTrace(NQTraceLevel::EventQueue, "%s Entry! Queue:%d", "Signal", static_cast<int>(m_queue.GetSize()));
    NQGenTLLock pending(m_pendingLock);
    if ((m_queue.GetSize() + 1) * m_eventSizeMax > m_mostPendingBytes)
    {
        DoFlushEntry(entry);
        return false;
    }
    m_queue.Add(entry);
    ++m_fired;
    m_signal.SetEvent(kDataBit);
    return true;
}

void NQGenTLEvent::Withdraw(void* entry)
{
    NQGenTLLock pending(m_pendingLock);
    m_queue.Remove(entry);
    ResetIfEmpty();
}

int NQGenTLEvent::Kill()
{
    NQTrace(NQTraceLevel::EventQueue, "%s Entry! Queue:%d", "Kill", static_cast<int>(m_queue.GetSize()));
    m_answers->killEndsOneWait ? m_signal.KillOnce() : m_signal.Kill();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLEvent::Flush()
{
    // Deliberate(RecordsAreNotFreed): an entry may be a buffer of the stream, and this class cannot tell. So a flushed
    // record is not freed, and only an event whose entries are not its own gets them back.
    for (bool empty = false; !empty;)
    {
        while (m_queue.GetSize() > 0)
        {
            FlushFront();
        }
        NQGenTLLock pending(m_pendingLock);
        empty = ResetIfEmpty();
    }
    m_signal.ResetEvent(NQEventHandler::kKillBits);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLEvent::GetData(void* pBuffer, unsigned long* piSize, unsigned long iTimeout)
{
    if (const int error = _validateEventGetDataParam(pBuffer, piSize))
    {
        return error;
    }

    const auto timeout = static_cast<int>(iTimeout);
    const unsigned long start = NQGenTLUtil::QueryCounterMS();
    std::optional<int> result = Fetch(pBuffer, piSize, timeout);
    while (!result)
    {
        const auto past = static_cast<long>(NQGenTLUtil::QueryCounterMS() - start);
        result = Fetch(pBuffer, piSize, timeout < 0 ? timeout : static_cast<int>(std::max(timeout - past, 0L)));
    }
    return *result;
}

/// Nothing when another thread took the entry that was waited for.
std::optional<int> NQGenTLEvent::Fetch(void* pBuffer, unsigned long* piSize, int timeout)
{
    const unsigned int bits = WaitForData(timeout);
    if (bits > ~NQEventHandler::kKillBits)
    {
        return GenTL::GC_ERR_ABORT;
    }
    if ((bits & kDataBit) != 0)
    {
        // Deliberate(NullBufferConsumes): a null buffer asks for no size, since each event has a fixed one; the entry
        // is taken, which drops an event that nobody wants to read.
        if (!DeliverFront(pBuffer, piSize) && m_answers->waitersEnd)
        {
            return std::nullopt;
        }
        return GenTL::GC_ERR_SUCCESS;
    }
    if (bits == 0)
    {
        return GenTL::GC_ERR_TIMEOUT;
    }
    NQTrace(NQTraceLevel::EventQueue, "%s GC_ERR_ERROR Queue:%d", "GetData", static_cast<int>(m_queue.GetSize()));
    return GenTL::GC_ERR_ERROR;
}

unsigned int NQGenTLEvent::WaitForData(int timeout)
{
    return m_answers->killEndsOneWait ? m_signal.WaitOnce(timeout) : m_signal.WaitForEvent(timeout);
}

int NQGenTLEvent::GetDataInfo(const void* pInBuffer, unsigned long iInSize, int iInfoCmd, int* piType, void* pOutBuffer,
                              unsigned long* piOutSize)
{
    if (piOutSize == nullptr || iInSize == 0 || piType == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    if (pInBuffer == nullptr)
    {
        return m_answers->noDataIsParameter ? GenTL::GC_ERR_INVALID_PARAMETER : GenTL::GC_ERR_INVALID_HANDLE;
    }
    ClearForInfo(*m_answers, pOutBuffer, piOutSize);
    return DoEventGetDataInfo(pInBuffer, iInfoCmd, piType, pOutBuffer, piOutSize);
}

int NQGenTLEvent::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (piType == nullptr || piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    ClearForInfo(*m_answers, pBuffer, piSize);
    switch (iInfoCmd)
    {
    case GenTL::EVENT_EVENT_TYPE:
        return NQGenTLUtil::CopyInfoInt32(m_id, piType, pBuffer, piSize);
    case GenTL::EVENT_NUM_FIRED:
        return GetNumFired(piType, pBuffer, piSize);
    case GenTL::EVENT_NUM_IN_QUEUE:
        return NQGenTLUtil::CopyInfoSizeT(m_queue.GetSize(), piType, pBuffer, piSize);
    case GenTL::EVENT_SIZE_MAX:
        return NQGenTLUtil::CopyInfoSizeT(m_eventSizeMax, piType, pBuffer, piSize);
    case GenTL::EVENT_INFO_DATA_SIZE_MAX:
        return NQGenTLUtil::CopyInfoSizeT(m_infoDataSizeMax, piType, pBuffer, piSize);
    default:
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
}

int NQGenTLEvent::GetNumFired(int* piType, void* pBuffer, unsigned long* piSize)
{
    if (!m_answers->firedCounted)
    {
        return GenTL::GC_ERR_NOT_IMPLEMENTED;
    }
    NQGenTLLock pending(m_pendingLock);
    return NQGenTLUtil::CopyInfoUint64(m_fired, piType, pBuffer, piSize);
}

int NQGenTLEvent::_validateEventGetDataParam(void* pBuffer, unsigned long* piSize)
{
    if (piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    if (pBuffer == nullptr || *piSize >= m_eventSizeMax)
    {
        return GenTL::GC_ERR_SUCCESS;
    }
    *piSize = m_eventSizeMax;
    return GenTL::GC_ERR_BUFFER_TOO_SMALL;
}

void NQGenTLEvent::FlushFront()
{
    NQGenTLLock pending(m_pendingLock);
    DoFlushEntry(m_queue.GetFront(true));
}

/// False when another thread took the last entry meanwhile; nothing is delivered then.
bool NQGenTLEvent::DeliverFront(void* pBuffer, unsigned long* piSize)
{
    NQGenTLLock pending(m_pendingLock);
    void* const entry = m_queue.GetFront(true);
    if (entry != nullptr)
    {
        DoEventGetData(entry, pBuffer, piSize);
        if (m_answers->eventBytesWritten && pBuffer != nullptr)
        {
            *piSize = m_eventSizeMax; // a record is as large as it says
        }
    }
    ResetIfEmpty();
    return entry != nullptr;
}

bool NQGenTLEvent::ResetIfEmpty()
{
    if (m_queue.GetSize() != 0)
    {
        return false;
    }
    m_signal.ResetEvent(kDataBit);
    return true;
}

} // namespace GigERDMA
