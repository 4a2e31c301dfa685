// SPDX-License-Identifier: Apache-2.0
// The abstract data stream module: announced buffers, the delivery of frames into them, and its counters.
#pragma once

#include "gentl/nq_event_handler.h"
#include "gentl/nq_gentl_buffer_queue.h"
#include "gentl/nq_gentl_frame_details.h"
#include "gentl/nq_gentl_frame_road.h"
#include "gentl/nq_gentl_module_base.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace GigERDMA
{

/// What the exported data stream functions call. It owns the buffers and decides which of them takes a frame; the
/// transport below fills in the four pure operations and delivers frames with EndOfTransfer. The way of a buffer:
///
///     AnnounceBuffer, AllocAndAnnounceBuffer    announced
///     QueueBuffer                               + on the input list, queued flag set
///     EndOfTransfer                             + in the new buffer event, new data set
///     EventGetData                              with the consumer, queued flag cleared; then QueueBuffer again
///
/// Thread-safe, but for StartOfTransfer, SetTransferCompleted, EndOfTransfer and DoHandOver, which are thread-bound to
/// the acquisition thread. StopAcquisition also runs there, when the last frame asked for has come: DoStopAcquisition
/// therefore must not wait for that thread. The acquisition thread may go on for a while after a stop; a subclass's
/// destructor makes sure that it has ended. Results are GenTL codes, sizes are in bytes.
///
/// Order of locking: start lock, stop lock, transfer lock, queueing lock, module lock, then the locks of list, buffer
/// and event. The module lock is never held over a call of DoStartAcquisition, DoStopAcquisition or over a wait.
class NQGenTLDataStream : public NQGenTLModuleBase
{
  public:
    NQGenTLDataStream(unsigned int index, NQGenTLModuleBase* parent);

    /// Takes the buffers still announced out of the controller's list of valid handles and deletes them.
    ~NQGenTLDataStream() override;

    bool IsEventImplemented(int id) override;
    std::string GetName() override;
    int DoOpen() override;
    int DoClose() override;

    /// Starts the transport for `count` announced buffers, of which the biggest has `biggestSize` bytes. Calls
    /// ForgetLastRun once no frame of an earlier run can come any more.
    virtual int DoStartAcquisition(unsigned int biggestSize, unsigned int count) = 0;

    /// Stops the transport without waiting for the acquisition thread. What it gives is traced and goes no further.
    virtual int DoStopAcquisition(int flags) = 0;

    /// Gives a frame block back to the camera. The result is not looked at.
    virtual int DoRequeueBuffer(void* rdmaId) = 0;

    /// STREAM_INFO_PAYLOAD_SIZE, as a number of bytes.
    virtual int DoGetPayloadsize(int* piType, void* pBuffer, unsigned long* piSize) = 0;

    /// Between these two a stop with flags 0 waits.
    virtual void StartOfTransfer();
    virtual void SetTransferCompleted();

    /// Delivers a frame: `rdmaId` is its block, `data` its `size` bytes of pixels, `status` 0 for a whole frame and 1
    /// for a short one. A frame that finds no buffer counts as an underrun. Ends with SetTransferCompleted.
    virtual void EndOfTransfer(void* rdmaId, unsigned long size, unsigned long frameId, unsigned long timestamp,
                               unsigned long width, unsigned long height, unsigned long pixelFormat,
                               unsigned char* data, int status);

    /// The frame of the block is in a buffer, or was dropped. Only from now on may the block be given back: a buffer
    /// bound to it may be queued at any time, also while the frame is on its way. `shownBy`, when not null, points into
    /// the block: until DoEndShow the block is not given back at all. Returns the share in the block's memory that
    /// keeps it in place. Do nothing here.
    virtual std::shared_ptr<const void> DoHandOver(void* rdmaId, const NQGenTLBuffer* shownBy);
    virtual void DoEndShow(void* rdmaId, const NQGenTLBuffer* shownBy);

    // For buffers that are their own blocks (NQGenTLOwnBlocks). DoRequeueBuffer then lets the camera fill a registered
    // buffer, and gives another result than GC_ERR_SUCCESS when the transport takes no more for now.

    /// Memory for a buffer of `size` bytes; none when there is none. Here from the heap.
    virtual NQBlockMemory DoMakeMemory(unsigned long size);

    /// Makes a buffer known to the running transport; the id of its block, null when that cannot be.
    virtual void* DoRegisterBuffer(NQGenTLBuffer& buffer);

    /// Takes back what DoRegisterBuffer did; the camera does not have the block.
    virtual void DoForgetBuffer(void* rdmaId);

    /// Announces `size` bytes of the consumer's memory. GC_ERR_INVALID_PARAMETER for a null `buffer` or `handle`, or
    /// GC_ERR_RESOURCE_IN_USE when that memory is announced already. The caller registers the handle at the controller;
    /// with the standard's answers the stream has done so itself, and gives GC_ERR_INVALID_HANDLE once it is closed.
    int AnnounceBuffer(void* buffer, unsigned long size, void* userPtr, void** handle);

    /// Announces a buffer that will point into the frame blocks; no memory is allocated. With the standard's answers it
    /// has memory, or GC_ERR_OUT_OF_MEMORY tells that there is none. GC_ERR_INVALID_PARAMETER for a
    /// null `handle`. The handle is as with AnnounceBuffer.
    int AllocAndAnnounceBuffer(unsigned long size, void* userPtr, void** handle);

    /// Deletes a buffer and hands its memory and user pointer back, each if asked for. Waits for a delivery under way.
    /// GC_ERR_INVALID_HANDLE for a buffer that is not announced here, or GC_ERR_BUSY while it is on the input list, the
    /// camera may write to it or, with the standard's answers, it waits for its delivery.
    int RevokeBuffer(void* handle, void** buffer, void** userPtr);

    /// Gives the buffer's frame block, if it has one, back to the camera and puts the buffer on the input list.
    /// GC_ERR_INVALID_HANDLE for a buffer that is not announced here, or GC_ERR_RESOURCE_IN_USE when it is queued
    /// already.
    int QueueBuffer(void* handle);

    /// The handle of the buffer at `index`, in the order of announcing; it stays owned here. GC_ERR_INVALID_PARAMETER
    /// for a null `handle`, GC_ERR_INVALID_INDEX.
    int GetBufferID(unsigned int index, void** handle);

    /// One BUFFER_INFO command. GC_ERR_INVALID_HANDLE for a buffer that is not announced here; else as
    /// NQGenTLBuffer::GetInfo.
    int GetBufferInfo(void* handle, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// Moves or drops buffers, by one of the ACQ_QUEUE_TYPE values; GC_ERR_NOT_IMPLEMENTED for any other. Never reaches
    /// the transport.
    int FlushQueue(int operation);

    /// Starts for `numToAcquire` frames; GENTL_INFINITE means no limit. GC_ERR_INVALID_PARAMETER for 0 frames,
    /// GC_ERR_RESOURCE_IN_USE when running, or what the transport returns; with the standard's answers
    /// GC_ERR_INVALID_HANDLE when the stream is closed, also meanwhile, GC_ERR_NOT_IMPLEMENTED for flags other than the
    /// default, and GC_ERR_INVALID_BUFFER with no buffer announced; without them `flags` is not read.
    int StartAcquisition(int flags, unsigned long numToAcquire);

    /// Stops; with `flags` 0 waits up to 3000 ms for a frame under way, with 1 or less than 0 at once.
    /// GC_ERR_NOT_IMPLEMENTED for flags above 1, GC_ERR_RESOURCE_IN_USE when not running; 0 even when the transport
    /// fails. In a forked child, for a stream of the parent, never waits.
    int StopAcquisition(int flags);

    /// One STREAM_INFO command; `*piSize` bytes of `pBuffer` are cleared first, and a null `pBuffer` asks for the size.
    /// GC_ERR_INVALID_PARAMETER for a null `piType` or `piSize`, GC_ERR_NOT_IMPLEMENTED for the commands that this
    /// library does not answer, GC_ERR_ERROR for any other, GC_ERR_BUFFER_TOO_SMALL.
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// The run has no camera any more. With the standard's answers ends every wait for a buffer once, unless the run is
    /// being stopped; each run tells of its loss once.
    void CameraLost();

    /// True while a start is under way: frames that come so early are better held back, since they would not count.
    bool IsStarting();

  protected:
    /// Returns when every start that had begun before has left, one that waited for another included. Not to be called
    /// within a start, nor on the acquisition thread.
    void WaitForStarts();

    /// For a transport whose last run is over, its blocks about to go: unbinds all announced buffers from them, and
    /// lets no late frame of that run count towards the limit of the next. Waits for a delivery and for a return of
    /// a block under way: from now on no thread reaches the transport with an id of that run.
    void ForgetLastRun();

    /// The frame in the block is none that a buffer could take. Thread-bound to the acquisition thread.
    void DropFrame(void* rdmaId);

    /// How many frames of this run were copied, of those that need not be.
    unsigned long NumCopied() const { return m_numCopied; }

    /// What is known of the frame that the next EndOfTransfer delivers. Thread-bound to the acquisition thread.
    void SetFrameDetails(const NQFrameDetails& details) { m_details = details; }

  private:
    /// Counts a thread among those within a start, for as long as it lives.
    class StartUnderWay
    {
      public:
        explicit StartUnderWay(NQGenTLDataStream& stream);
        ~StartUnderWay();
        StartUnderWay(const StartUnderWay&) = delete;
        StartUnderWay& operator=(const StartUnderWay&) = delete;

      private:
        NQGenTLDataStream& m_stream;
    };

    static constexpr unsigned int kLeastAnnounced = 1; ///< Buffers that a start needs.

    int Announce(void* buffer, unsigned long size, void* userPtr, void** handle);
    int GetFixedInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);
    int GetCounterInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);
    NQGenTLBuffer* TakeBufferFor(void* rdmaId, unsigned long frameId) NQ_REQUIRES(m_transferLock);
    std::shared_ptr<const void> HandOver(NQGenTLBuffer* buffer, void* rdmaId);
    void CountUnderruns(unsigned long count);
    void CountSkipped(unsigned long frameId) NQ_REQUIRES(m_queueingLock);
    void Deliver(NQGenTLBuffer* buffer, int status) NQ_REQUIRES(m_transferLock);
    void MarkIncomplete(NQGenTLBuffer* buffer, bool shortFrame);
    bool PassesLimit();
    void EndWithLastFrame();
    int CheckStart(int flags, unsigned long numToAcquire);
    void BeginRun();
    bool BeginFrames();
    int EndRun(int flags);
    bool Enqueue(NQGenTLBuffer* buffer) NQ_REQUIRES(m_queueingLock);
    void EndBuffers();
    void Withdraw(NQGenTLBuffer* buffer);
    bool IsStarted();
    void AddUnqueuedToInput() NQ_REQUIRES(m_queueingLock);
    void SignalInput() NQ_REQUIRES(m_queueingLock);
    void DiscardInput() NQ_REQUIRES(m_queueingLock);
    void FlushNewBufferEvent();

    NQGenTLBufferQueue m_buffers;
    NQFrameDetails m_details;
    bool m_started NQ_GUARDED_BY(m_moduleLock) = false;
    std::atomic<bool> m_starting = false;
    unsigned int m_startsUnderWay NQ_GUARDED_BY(m_moduleLock) = 0;
    unsigned long m_timesWithoutStart NQ_GUARDED_BY(m_moduleLock) = 0; ///< How often the last start under way has left.
    NQGenTLCondition m_noStart;
    std::atomic<unsigned long> m_numToAcquire{0}; ///< Changed under the module lock, with the count below.
    unsigned long m_numAcquired NQ_GUARDED_BY(m_moduleLock) = 0;
    const std::string m_id;
    unsigned long m_numDelivered NQ_GUARDED_BY(m_moduleLock) = 0;
    unsigned long m_numUnderrun NQ_GUARDED_BY(m_moduleLock) = 0;
    std::atomic<unsigned long> m_numStarted{0}; ///< Frames that began to go into a buffer.
    std::atomic<unsigned long> m_numCopied{0};
    bool m_stopDue NQ_GUARDED_BY(m_moduleLock) =
        false; ///< Ended with the last frame; the consumer has not stopped yet.
    bool m_mayBeLost NQ_GUARDED_BY(m_moduleLock) = false; ///< In a run that nobody stops and that was not lost yet.
    const bool m_isGrabbing = false;
    const bool m_definesPayloadSize = true;
    const std::string m_tlType = "GEV";
    NQEventHandler m_transferCompleted;
    const NQOrigin m_origin;

    /// The id behind the frame that took the last queued buffer; 0 while one is queued.
    unsigned long m_nextAfterEmpty NQ_GUARDED_BY(m_queueingLock) = 0;
    bool m_buffersEnded NQ_GUARDED_BY(m_queueingLock) = false; ///< By a close; no buffer may come before it is opened.

    NQGenTLMutex m_transferLock{
        NQHeld::Long};           ///< Held while a frame goes into a buffer, so that no buffer is deleted meanwhile.
    NQGenTLMutex m_queueingLock; ///< Makes the return of a buffer to the transport and to the input list one step, and
                                 ///< keeps the consumer's threads from a buffer that is being deleted.
    NQGenTLMutex m_startLock{
        NQHeld::Long}; ///< Makes simultaneous starts follow each other. Never taken on the acquisition thread.
    const std::unique_ptr<NQGenTLFrameRoad> m_road NQ_POINTEE_GUARDED_BY(m_queueingLock);
    NQGenTLMutex m_stopLock{NQHeld::Long}; ///< Makes one of several simultaneous stops stop the transport.
};

} // namespace GigERDMA
