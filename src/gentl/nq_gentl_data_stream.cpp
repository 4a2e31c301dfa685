// SPDX-License-Identifier: Apache-2.0
// Announcing, queueing and revoking buffers, and the delivery of frames into them.
#include "gentl/nq_gentl_data_stream.h"

#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_controller.h"
#include "gentl/nq_gentl_event.h"

#include <utility>

namespace GigERDMA
{

namespace
{

constexpr int kStopWaitMs = 3000;
constexpr unsigned int kCompletedBit = 1;
constexpr int kStatusIncomplete = 1;

/// An event this class offers, for which there is no event class.
constexpr int kUnsupportedEvent = 5000;

} // namespace

NQGenTLDataStream::NQGenTLDataStream(unsigned int index, NQGenTLModuleBase* parent)
    : NQGenTLModuleBase(parent), m_id(std::to_string(index)), m_transferCompleted(kCompletedBit),
      m_road(MakeFrameRoad(*this, m_buffers))
{
}

NQGenTLDataStream::~NQGenTLDataStream()
{
    // No handle may outlive its buffer in the list of valid ones.
    for (unsigned int i = 0; NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, i, false);
         ++i)
    {
        TheController().UnregisterModule(buffer->GetModule(), false);
    }
}

bool NQGenTLDataStream::IsEventImplemented(int id)
{
    return id == GenTL::EVENT_NEW_BUFFER || id == kUnsupportedEvent;
}

std::string NQGenTLDataStream::GetName()
{
    return "TLDataStream";
}

int NQGenTLDataStream::DoOpen()
{
    NQGenTLLock queueing(m_queueingLock);
    m_buffersEnded = false;
    NQGenTLLock lock(m_moduleLock);
    m_started = false;
    m_numStarted = 0;
    m_numUnderrun = Answers().streamInfos ? 0 : m_numUnderrun;
    m_stopDue = false;
    m_transferCompleted.ResetEvent(kCompletedBit);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLDataStream::DoClose()
{
    {
        NQGenTLLock queueing(m_queueingLock);
        m_buffersEnded = Answers().closeEndsStream; // From here on no start begins a run.
    }
    if (IsStarted())
    {
        StopAcquisition(GenTL::ACQ_STOP_FLAGS_DEFAULT);
    }
    if (Answers().closeEndsStream)
    {
        EndBuffers();
    }
    return GenTL::GC_ERR_SUCCESS;
}

/// Revokes all buffers. A frame under way is waited for.
void NQGenTLDataStream::EndBuffers()
{
    std::vector<std::unique_ptr<NQGenTLBuffer>> revoked; // Go last, without a lock.
    NQGenTLLock transfer(m_transferLock);
    NQGenTLLock queueing(m_queueingLock);
    DiscardInput();
    while (NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, 0, true))
    {
        revoked.emplace_back(buffer);
        m_road->Revoke(*buffer, false);
        TheController().UnregisterModule(buffer->GetModule(), false);
        Withdraw(buffer); // An event may have been registered since the close began.
    }
}

int NQGenTLDataStream::AnnounceBuffer(void* buffer, unsigned long size, void* userPtr, void** handle)
{
    if (buffer == nullptr || handle == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", "AnnounceBuffer");
    }
    if (m_buffers.FindByBuffer(NQ_BUFFER_TYPE_ANNOUNCED, buffer, false) != nullptr)
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "AnnounceBuffer");
    }
    return Announce(buffer, size, userPtr, handle);
}

int NQGenTLDataStream::AllocAndAnnounceBuffer(unsigned long size, void* userPtr, void** handle)
{
    if (handle == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", "AllocAndAnnounceBuffer");
    }
    return Announce(nullptr, size, userPtr, handle);
}

int NQGenTLDataStream::Announce(void* buffer, unsigned long size, void* userPtr, void** handle)
{
    auto announced = std::make_unique<NQGenTLBuffer>(buffer, size, false, userPtr, nullptr, Answers());
    NQGenTLLock queueing(m_queueingLock);
    if (m_buffersEnded)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "Announce");
    }
    if (!m_road->Announce(*announced))
    {
        return NQFailed(GenTL::GC_ERR_OUT_OF_MEMORY, "%s GC_ERR_OUT_OF_MEMORY", "Announce");
    }
    *handle = announced->GetModule();
    if (Answers().closeEndsStream)
    {
        // Before a close on another thread finds the buffer, which would end its handle and delete it.
        TheController().RegisterModule(*handle);
    }
    m_buffers.Add(NQ_BUFFER_TYPE_ANNOUNCED, announced.release());
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLDataStream::RevokeBuffer(void* handle, void** buffer, void** userPtr)
{
    // Goes last, without a lock: it may have the only share in a block of an earlier run.
    std::unique_ptr<NQGenTLBuffer> revoked;
    // The acquisition thread may be filling the buffer, and other threads look at it: they end first.
    NQGenTLLock transfer(m_transferLock);
    NQGenTLLock queueing(m_queueingLock);
    NQGenTLBuffer* const announced = m_buffers.FindByHandle(NQ_BUFFER_TYPE_ANNOUNCED, handle, false);
    if (announced == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "RevokeBuffer");
    }
    const bool awaits =
        Answers().awaitingIsBusy && announced->IsQueued(); // Off the input list, so in the output queue.
    if (awaits || m_buffers.FindByHandle(NQ_BUFFER_TYPE_QUEUED, handle, false) != nullptr ||
        m_road->IsWithCamera(*announced))
    {
        return NQFailed(GenTL::GC_ERR_BUSY, "%s GC_ERR_BUSY", "RevokeBuffer");
    }
    revoked.reset(m_buffers.FindByHandle(NQ_BUFFER_TYPE_ANNOUNCED, handle, true));
    if (!revoked)
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s GC_ERR_ERROR", "RevokeBuffer");
    }
    void* const memory = m_road->Revoke(*revoked, buffer != nullptr);
    if (buffer != nullptr)
    {
        *buffer = memory;
    }
    if (userPtr != nullptr)
    {
        *userPtr = revoked->GetUserPointer();
    }

    // Nothing that is still looked at may point to the deleted buffer.
    TheController().UnregisterModule(handle, false);
    Withdraw(revoked.get());
    return GenTL::GC_ERR_SUCCESS;
}

void NQGenTLDataStream::Withdraw(NQGenTLBuffer* buffer)
{
    NQGenTLLock lock(m_moduleLock);
    if (NQGenTLEvent* const event = FindEventById(GenTL::EVENT_NEW_BUFFER, false))
    {
        event->Withdraw(buffer);
    }
}

int NQGenTLDataStream::QueueBuffer(void* handle)
{
    // The camera may fill the block again before the buffer is on the list; the lock lets such a frame wait for it.
    NQGenTLLock queueing(m_queueingLock);
    NQGenTLBuffer* const buffer = m_buffers.FindByHandle(NQ_BUFFER_TYPE_ANNOUNCED, handle, false);
    if (buffer == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "QueueBuffer");
    }
    if (!Enqueue(buffer))
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "QueueBuffer");
    }
    return GenTL::GC_ERR_SUCCESS;
}

/// False for a buffer that is queued already.
bool NQGenTLDataStream::Enqueue(NQGenTLBuffer* buffer)
{
    // Set before the buffer is on the list, from where another thread may deliver it and clear the flag at any time.
    if (!buffer->TrySetQueueFlag())
    {
        return false;
    }
    if (Answers().newDataOfFrame)
    {
        buffer->SetNewDataFlag(false);
    }
    m_road->Queue(*buffer);
    return true;
}

int NQGenTLDataStream::GetBufferID(unsigned int index, void** handle)
{
    if (handle == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", "GetBufferID");
    }
    NQGenTLBuffer* const buffer = m_buffers.FindByIndex(NQ_BUFFER_TYPE_ANNOUNCED, index, false);
    if (buffer == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", "GetBufferID");
    }
    *handle = buffer->GetModule();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLDataStream::GetBufferInfo(void* handle, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    int result = GenTL::GC_ERR_SUCCESS;
    if (!m_buffers.GetInfoOf(handle, iInfoCmd, piType, pBuffer, piSize, &result))
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", "GetBufferInfo");
    }
    return result;
}

int NQGenTLDataStream::StartAcquisition(int flags, unsigned long numToAcquire)
{
    if (const int refused = CheckStart(flags, numToAcquire))
    {
        return refused;
    }
    // Two starts at once would both find the stream stopped: the second waits for the outcome of the first.
    const StartUnderWay underWay(*this);
    NQGenTLLock start(m_startLock);
    bool started = false;
    {
        // Deliberate(RefusedStartSetsTheLimit): limit and count change in the same locked step that looks whether
        // acquisition runs, so a frame never meets half of them; a start that is then refused has set a new limit.
        NQGenTLLock lock(m_moduleLock);
        m_numToAcquire = numToAcquire;
        m_numAcquired = 0;
        started = m_started;
    }
    if (started)
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "StartAcquisition");
    }
    m_starting = true;
    BeginRun();
    int error = DoStartAcquisition(m_buffers.GetBiggestSize(NQ_BUFFER_TYPE_ANNOUNCED),
                                   m_buffers.GetCount(NQ_BUFFER_TYPE_ANNOUNCED));
    if (error == GenTL::GC_ERR_SUCCESS && !BeginFrames())
    {
        DoStopAcquisition(GenTL::ACQ_STOP_FLAGS_KILL);
        error = GenTL::GC_ERR_INVALID_HANDLE;
    }
    if (error != GenTL::GC_ERR_SUCCESS)
    {
        m_starting = false;
        NQGenTLLock lock(m_moduleLock);
        m_mayBeLost = false;
        return NQFailed(error, "%s DoStartAcquisition Failed! ret:%d", "StartAcquisition", error);
    }
    return GenTL::GC_ERR_SUCCESS;
}

/// Once the transport runs. False when a close on another thread has come first: nobody would stop the run.
bool NQGenTLDataStream::BeginFrames()
{
    NQGenTLLock queueing(m_queueingLock);
    if (m_buffersEnded)
    {
        return false;
    }
    if (Answers().idleStopAtOnce)
    {
        SetTransferCompleted();
    }
    m_nextAfterEmpty = 0;
    m_road->Begin();
    NQGenTLLock lock(m_moduleLock);
    m_started = true;
    // Deliberate(CountingStartsLate): counting starts once the transport has started, whatever it has brought until
    // then, so that a start which fails leaves the counters of the run before.
    m_numDelivered = 0;
    m_numCopied = 0;
    m_numUnderrun = Answers().streamInfos ? m_numUnderrun : 0;
    m_stopDue = false;
    m_starting = false;
    return true;
}

void NQGenTLDataStream::BeginRun()
{
    NQGenTLLock lock(m_moduleLock);
    m_mayBeLost = Answers().lostEndsWaits;
    if (NQGenTLEvent* const event = FindEventById(GenTL::EVENT_NEW_BUFFER, false))
    {
        event->ForgetAbort(); // of the run before
    }
}

void NQGenTLDataStream::CameraLost()
{
    NQGenTLLock lock(m_moduleLock);
    if (!std::exchange(m_mayBeLost, false))
    {
        return;
    }
    if (NQGenTLEvent* const event = FindEventById(GenTL::EVENT_NEW_BUFFER, false))
    {
        event->Abort();
    }
}

NQGenTLDataStream::StartUnderWay::StartUnderWay(NQGenTLDataStream& stream) : m_stream(stream)
{
    NQGenTLLock lock(m_stream.m_moduleLock);
    ++m_stream.m_startsUnderWay;
}

NQGenTLDataStream::StartUnderWay::~StartUnderWay()
{
    NQGenTLLock lock(m_stream.m_moduleLock);
    if (--m_stream.m_startsUnderWay == 0)
    {
        ++m_stream.m_timesWithoutStart;
        m_stream.m_noStart.Signal();
    }
}

void NQGenTLDataStream::WaitForStarts()
{
    // Starts that threads of the parent had under way at a fork never leave.
    if (m_origin.IsInherited())
    {
        return;
    }
    NQGenTLLock lock(m_moduleLock);
    const unsigned long before = m_timesWithoutStart;
    while (m_startsUnderWay != 0 && m_timesWithoutStart == before)
    {
        m_noStart.Wait(m_moduleLock);
    }
    m_noStart.Signal(); // to the next that waits
}

int NQGenTLDataStream::StopAcquisition(int flags)
{
    // Deliberate(StopLineIsNoFailure): the line stands at every stop and means no failure; at this level it is in every
    // log, where it tells one run from the next.
    NQTrace(NQTraceLevel::Failure, "%s GC_ERR_NOT_IMPLEMENTED Enter:%d", "StopAcquisition", flags);
    // Deliberate(StopFlagsAreSigned): compared as signed, so a negative value is none of the flags and yet not refused:
    // a stream that cannot be stopped is worse than a flag without a meaning.
    if (flags > GenTL::ACQ_STOP_FLAGS_KILL)
    {
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED Flags:%d", "StopAcquisition", flags);
    }
    bool started = false;
    bool due = false;
    {
        // One step, or a run that ends in between would be found stopped without its stop.
        NQGenTLLock lock(m_moduleLock);
        started = m_started;
        due = std::exchange(m_stopDue, false);
    }
    if (!started)
    {
        if (due)
        {
            return GenTL::GC_ERR_SUCCESS;
        }
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "StopAcquisition");
    }
    // In a forked child nothing is transferred into a stream of the parent.
    if (flags == GenTL::ACQ_STOP_FLAGS_DEFAULT && !m_origin.IsInherited() &&
        m_transferCompleted.WaitForEvent(kStopWaitMs) == 0)
    {
        NQTrace(NQTraceLevel::Failure, "%s failed! WAIT_EVENT_TRANSFER_COMPLETED", "StopAcquisition");
    }
    const int result = EndRun(flags);
    NQGenTLLock lock(m_moduleLock);
    m_stopDue = false; // The last frame may have come meanwhile: its stop is this one.
    return result;
}

int NQGenTLDataStream::EndRun(int flags)
{
    // A stop by the consumer and one by the acquisition thread can meet here: the transport is stopped once.
    NQGenTLLock stop(m_stopLock);
    if (!IsStarted())
    {
        return GenTL::GC_ERR_SUCCESS;
    }
    {
        // A camera that is told to stop may disconnect by itself.
        NQGenTLLock lock(m_moduleLock);
        m_mayBeLost = false;
    }
    if (const int error = DoStopAcquisition(flags))
    {
        NQTrace(NQTraceLevel::Failure, "%s failed! DoStopAcquisition:%d", "StopAcquisition", error);
    }
    if (Answers().queueingPosts)
    {
        NQGenTLLock transfer(m_transferLock); // The acquisition thread may still copy a frame.
        NQGenTLLock queueing(m_queueingLock);
        m_road->End();
    }
    NQGenTLLock lock(m_moduleLock);
    m_started = false;
    return GenTL::GC_ERR_SUCCESS;
}

void NQGenTLDataStream::StartOfTransfer()
{
    m_transferCompleted.ResetEvent(kCompletedBit);
}

void NQGenTLDataStream::SetTransferCompleted()
{
    m_transferCompleted.SetEvent(kCompletedBit);
}

void NQGenTLDataStream::EndOfTransfer(void* rdmaId, unsigned long size, unsigned long frameId, unsigned long timestamp,
                                      unsigned long width, unsigned long height, unsigned long pixelFormat,
                                      unsigned char* data, int status)
{
    // Goes last, without a lock: it may be the only share in a block of an earlier run.
    std::shared_ptr<const void> formerMemory;
    if (PassesLimit())
    {
        HandOver(nullptr, rdmaId);
        Answers().limitEndsWithLast ? EndRun(GenTL::ACQ_STOP_FLAGS_KILL) : StopAcquisition(GenTL::ACQ_STOP_FLAGS_KILL);
    }
    else if (status <= kStatusIncomplete)
    {
        NQGenTLLock transfer(m_transferLock);
        if (NQGenTLBuffer* const buffer = TakeBufferFor(rdmaId, frameId))
        {
            ++m_numStarted;
            buffer->SetAcquiringFlag(true);
            buffer->UpdateData(size, frameId, timestamp, width, height, pixelFormat, data, m_details);
            m_numCopied += buffer->IsCopied() ? 1 : 0;
            buffer->SetAcquiringFlag(false);
            formerMemory = HandOver(buffer, rdmaId);
            buffer->SetNewDataFlag(true);
            Deliver(buffer, status);
        }
    }
    if (Answers().limitEndsWithLast && PassesLimit())
    {
        EndWithLastFrame();
    }
    SetTransferCompleted();
}

/// After the last frame asked for. The consumer's own stop is due all the same, and succeeds.
void NQGenTLDataStream::EndWithLastFrame()
{
    {
        NQGenTLLock lock(m_moduleLock);
        if (!m_started)
        {
            return;
        }
        m_stopDue = true;
    }
    EndRun(GenTL::ACQ_STOP_FLAGS_KILL);
}

/// For a frame that has come: whether it is the one past the last one asked for.
bool NQGenTLDataStream::PassesLimit()
{
    if (m_numToAcquire == GENTL_INFINITE)
    {
        return false;
    }
    NQGenTLLock lock(m_moduleLock); // A start changes both in one step.
    return m_numToAcquire != GENTL_INFINITE && m_numAcquired >= m_numToAcquire;
}

bool NQGenTLDataStream::IsStarting()
{
    return m_starting;
}

bool NQGenTLDataStream::IsStarted()
{
    NQGenTLLock lock(m_moduleLock);
    return m_started;
}

/// The buffer that takes the frame in the block; null for none, the frame is dropped then.
NQGenTLBuffer* NQGenTLDataStream::TakeBufferFor(void* rdmaId, unsigned long frameId)
{
    NQGenTLLock queueing(m_queueingLock);
    if (!m_road->Expects(rdmaId))
    {
        return nullptr;
    }
    if (Answers().queueingPosts && FindEventById(GenTL::EVENT_NEW_BUFFER, false) == nullptr)
    {
        CountSkipped(frameId);
        m_road->HandOver(nullptr, rdmaId); // With nobody registered the buffer goes on waiting.
        return nullptr;
    }
    NQGenTLBuffer* const taker = m_road->TakeFor(rdmaId);
    CountSkipped(frameId);
    if (taker == nullptr)
    {
        CountUnderruns(1);
        m_road->HandOver(nullptr, rdmaId);
    }
    return taker;
}

std::shared_ptr<const void> NQGenTLDataStream::HandOver(NQGenTLBuffer* buffer, void* rdmaId)
{
    NQGenTLLock queueing(m_queueingLock);
    return m_road->HandOver(buffer, rdmaId);
}

void NQGenTLDataStream::DropFrame(void* rdmaId)
{
    {
        NQGenTLLock queueing(m_queueingLock);
        m_nextAfterEmpty = 0; // Its id is missing, too, though it had a buffer.
    }
    HandOver(nullptr, rdmaId);
}

void NQGenTLDataStream::Deliver(NQGenTLBuffer* buffer, int status)
{
    // Deliberate(NobodyRegistered): with nobody registered for new buffers nothing is counted and the buffer stays out
    // of the lists: nobody could take it, and a count would claim that somebody did.
    NQGenTLLock lock(m_moduleLock);
    NQGenTLEvent* const event = RegisteredEvent(GenTL::EVENT_NEW_BUFFER);
    if (event == nullptr)
    {
        if (Answers().queueingPosts)
        {
            buffer->SetQueueFlag(false); // Unregistered just now: the buffer is the consumer's.
        }
        return;
    }
    ++m_numDelivered;
    ++m_numAcquired;
    MarkIncomplete(buffer, status == kStatusIncomplete);
    event->Signal(buffer);
}

void NQGenTLDataStream::MarkIncomplete(NQGenTLBuffer* buffer, bool shortFrame)
{
    const bool incomplete = shortFrame || (Answers().sizeFilledIsWritten && buffer->IsTooSmall());
    // Deliberate(IncompleteStays): in the library's own answer nothing clears the flag, so that a consumer which looks
    // late still learns that the buffer has held a broken frame.
    if (incomplete || Answers().incompleteOfFrame)
    {
        buffer->SetIncompleteFlag(incomplete);
    }
}

void NQGenTLDataStream::ForgetLastRun()
{
    std::shared_ptr<const void> kept; // Goes last, without a lock.
    NQGenTLLock transfer(m_transferLock);
    NQGenTLLock queueing(m_queueingLock);
    kept = m_road->Forget();
    NQGenTLLock lock(m_moduleLock);
    m_numAcquired = 0;
}

} // namespace GigERDMA
