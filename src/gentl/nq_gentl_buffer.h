// SPDX-License-Identifier: Apache-2.0
// One GenTL buffer: what the consumer announced or asked for, and what is known of the last frame in it.
#pragma once

#include "base/nq_answers.h"
#include "gentl/nq_gentl_frame_details.h"
#include "gentl/nq_gentl_module_base.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace GigERDMA
{

/// A module in form only, without port and events: its handle must be found in the controller's list like any other,
/// but nobody is to treat a buffer as a module, hence the private base. The base comes first, so that the address of
/// the buffer, its handle, and the address of its module part are one.
///
/// The buffer is linked to a frame block of the transport by its RDMA id and knows nothing else of it. The states that
/// its stream, NQGenTLDataStream, takes it through:
///
///                        QueueBuffer             EndOfTransfer              with a new buffer event
///     with the consumer -------------> waiting ------------------> filling -------------------------> delivered
///       ^    ^                            |                           |                                 |    |
///       |    +------- ALL_DISCARD --------+                           | with none       UnregisterEvent |    |
///       |                                 | INPUT_TO_OUTPUT, with     v                                 |    |
///       |                                 +-------------------> out of reach <--------------------------+    |
///       |                                   no event                                                         |
///       +------- GetData or Flush of the event, OUTPUT_DISCARD, ALL_DISCARD --------------------------------+
///
///     state               input list   event   queued flag
///     with the consumer   no           no      no
///     waiting             yes          no      yes
///     filling             no           no      yes
///     delivered           no           yes     yes
///     out of reach        no           no      yes, so that it cannot be queued any more
///
/// It starts with the consumer, and is on the announced list until a revocation deletes it, from any state but waiting;
/// one that is being filled is waited for. The flags new data, image present and incomplete are set by frames; of these
/// only new data is cleared again, by ALL_DISCARD of a waiting buffer, and with the standard's answers incomplete, by a
/// whole frame. The capitals are values of FlushQueue:
/// INPUT_TO_OUTPUT with a registered event delivers waiting buffers without a frame. UNQUEUED_TO_INPUT lets every
/// buffer without the queued flag wait, once more if it does already, and it goes on its way without that flag; so does
/// ALL_TO_INPUT, after it has taken back what is delivered.
///
/// Thread-safe: the acquisition thread writes while the consumer's threads read. Each operation is atomic for itself, a
/// group of them is not. The flags and the RDMA id are each a state of their own and need no lock.
class NQGenTLBuffer : private NQGenTLModuleBase
{
  public:
    /// Where the memory comes from.
    enum Origin : int
    {
        ORIGIN_ALLOCATED = 0, ///< Owned here.
        ORIGIN_CONSUMER = 1,  ///< Given and kept by the consumer.
        ORIGIN_TRANSPORT = 2, ///< None of its own: points into the frame block last bound.
        ORIGIN_OWN_BLOCK = 3  ///< A block of the transport's, from the announcement on.
    };

    /// `size` is in bytes. A null `buffer` with `allocate` makes the memory here. A null `tlType` stands for "GEV".
    /// Gives `answers`, which outlive the buffer.
    NQGenTLBuffer(void* buffer, unsigned long size, bool allocate, void* userPtr, const char* tlType,
                  const NQAnswers& answers = kStatedAnswers);
    ~NQGenTLBuffer() override;

    bool IsPortImplemented() override;
    bool IsEventImplemented(int id) override;
    _NQ_GENTL_PORT_INFO GetPortInfo() override;
    _NQ_GENTL_XML_INFO GetXMLInfo() override;
    std::vector<std::string> GetURLList() override;

    /// Always GC_ERR_NOT_IMPLEMENTED.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    std::string GetName() override;
    std::string GetId() override;
    int DoOpen() override;
    int DoClose() override;

    /// Takes over a frame of `size` bytes at `data`: copies it into memory of the buffer's own, unless it is there
    /// already, or points to it. A null `data` changes only the frame's values. `details` is what else is known of it.
    void UpdateData(unsigned long size, unsigned long frameId, unsigned long timestamp, unsigned long width,
                    unsigned long height, unsigned long pixelFormat, unsigned char* data,
                    const NQFrameDetails& details = {});

    /// Whether the last frame has more bytes than the buffer.
    bool IsTooSmall();

    /// Whether the last frame was copied, of a buffer that need not be.
    bool IsCopied();

    bool IsQueued();
    bool IsImagePresent();

    void SetQueueFlag(bool value);
    void SetNewDataFlag(bool value);
    void SetIncompleteFlag(bool value);
    void SetImagePresentFlag(bool value);
    void SetAcquiringFlag(bool value);

    /// Sets the queued flag; false if it was set already. With the standard's answers the buffer is incomplete no more.
    bool TrySetQueueFlag();

    /// Answers one BUFFER_INFO command; `*piSize` bytes of `pBuffer` are cleared first. GC_ERR_INVALID_PARAMETER for a
    /// null `piType` or `piSize`, GC_ERR_NOT_AVAILABLE for a value of the frame before the first one,
    /// GC_ERR_NOT_IMPLEMENTED for any other command and for a width, height or pixel format of 0,
    /// GC_ERR_BUFFER_TOO_SMALL.
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// The module part, whose address is the buffer's handle.
    NQGenTLModuleBase* GetModule() { return this; }

    /// Whether the buffer points into frame blocks, rather than having memory that frames are copied to.
    bool ShowsFrameBlocks() const { return m_origin == ORIGIN_TRANSPORT; }

    /// Gives a buffer without memory a block for its life.
    void GiveMemory(unsigned char* data, std::shared_ptr<const void> share);
    bool HasOwnBlock() const { return m_origin == ORIGIN_OWN_BLOCK; }

    /// Whether the camera may fill the buffer's block, for NQGenTLOwnBlocks to say.
    bool IsPosted();
    void SetPosted(bool posted);

    // The share in memory is its stream's to look after: thread-bound to whoever holds the queueing lock there.

    /// Takes a share in the memory that the data pointer now points into, which keeps it in place. The share it had.
    std::shared_ptr<const void> HoldMemory(std::shared_ptr<const void> share);
    std::shared_ptr<const void> GetMemory() const;

    void* GetRdmaId();
    void SetRdmaId(void* id);
    void* GetData();
    unsigned long GetSize() const;
    void* GetUserPointer() const;

  private:
    // One for each buffer info command, called with the lock held.

    int _getBase(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getSize(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getUserPtr(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getTimestamp(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getNewData(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getIsQueued(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getIsAcquiring(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getIsIncomplete(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getTLType(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getSizeFilled(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getWidth(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getHeight(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getFrameId(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getImagePresent(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getPayloadType(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getPixelFormat(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getContainsChunkData(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);

    void _takeSize(unsigned long size) NQ_REQUIRES(m_lock);
    void _place(unsigned long size, const unsigned char* data) NQ_REQUIRES(m_lock);
    int _getFrameInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getFormatInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getOfFrame(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    int _getTimestampNs(int* piType, void* pBuffer, unsigned long* piSize) NQ_REQUIRES(m_lock);
    unsigned long _deliveredLines() const NQ_REQUIRES(m_lock);

    std::atomic<void*> m_rdmaId{nullptr}; ///< Null until the first frame binds a frame block.
    Origin m_origin;
    unsigned char* m_data NQ_GUARDED_BY(m_lock);
    std::shared_ptr<const void> m_memory; ///< Share in the frame block that m_data points into.
    std::atomic<bool> m_posted{false};
    const unsigned long m_size;
    void* const m_userPtr;
    unsigned long m_timestamp NQ_GUARDED_BY(m_lock) = 0;
    std::atomic<bool> m_newData{false};
    std::atomic<bool> m_queued{false};
    std::atomic<bool> m_acquiring{false};
    std::atomic<bool> m_incomplete{false};
    const std::string m_tlType;
    unsigned long m_frameSize NQ_GUARDED_BY(m_lock) = 0;  ///< Bytes of pixels that the last frame has.
    unsigned long m_sizeFilled NQ_GUARDED_BY(m_lock) = 0; ///< Bytes that count as filled.
    NQFrameDetails m_details NQ_GUARDED_BY(m_lock);
    std::atomic<bool> m_copied{false};
    unsigned long m_width NQ_GUARDED_BY(m_lock) = 0;
    unsigned long m_height NQ_GUARDED_BY(m_lock) = 0;
    unsigned long m_frameId NQ_GUARDED_BY(m_lock) = 0;
    std::atomic<bool> m_imagePresent{false};
    unsigned long m_pixelFormat NQ_GUARDED_BY(m_lock) = 0;
    const std::string m_fileName = "TBD-FileName"; ///< Read by nothing.
    NQGenTLMutex m_lock;
};

} // namespace GigERDMA
