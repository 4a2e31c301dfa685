// SPDX-License-Identifier: Apache-2.0
// The GigE Vision data stream module: frames come over RDMA, stream registers from the camera.
#pragma once

#include "gentl/nq_gentl_data_stream.h"
#include "rdma/rdma_records.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class GevRdmaEndpoint;
class NQGevRemoteDevice;
class NQRMAXThreadAcquisition;
struct NQGevPort;

/// One stream of one camera.
///
/// A start makes everything anew: endpoint, connection, frame blocks, thread. A stop disconnects and leaves the
/// endpoint object, and with it the frame blocks, until the next start or the destructor; those that a buffer
/// still points into outlive it (FrameBlocks says for how long). The acquisition thread is not joined at a stop, which
/// may run on that very thread; the next start and the destructor wait for it before anything goes that it could touch.
///
/// A close ends a start that waits for the camera on another thread, and waits until that start has left, and with it
/// any that waits for its turn.
///
/// Thread-safe, but for AcquireImage and IsFlowing, which are thread-bound to the acquisition thread.
class NQGevDataStream : public GigERDMA::NQGenTLDataStream
{
  public:
    /// `device` may be null and is not owned; it outlives the stream, as does `parent`. `index` is the stream channel.
    NQGevDataStream(NQGevRemoteDevice* device, unsigned int index, GigERDMA::NQGenTLModuleBase* parent);
    ~NQGevDataStream() override;
    NQGevDataStream(const NQGevDataStream&) = delete;
    NQGevDataStream& operator=(const NQGevDataStream&) = delete;

    using GigERDMA::NQGenTLModuleBase::GetPortInfo;

    bool IsPortImplemented() override;
    bool IsEventImplemented(int type) override;
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override;
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override;
    std::vector<std::string> GetURLList() override;

    /// The virtual register map. Every register is matched at its exact address, with the standard's answers any range
    /// inside it; values are in the order of the host.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;

    std::string GetId() override;

    /// GC_ERR_NOT_AVAILABLE when the camera has no RDMA stream, GC_ERR_ERROR when it cannot be asked.
    int DoOpen() override;

    /// Always GC_ERR_SUCCESS.
    int DoClose() override;

    /// Both arguments are ignored: the camera says how large its frames are, and the buffers are counted anew.
    /// GC_ERR_RESOURCE_IN_USE when connected, GC_ERR_ERROR when there is no camera, no connection or no flow; with
    /// the standard's answers also GC_ERR_RESOURCE_EXHAUSTED when the camera's frames are too long for the port of the
    /// connection, and what NQGevRemoteDevice::CheckControl says.
    int DoStartAcquisition(unsigned int biggestSize, unsigned int count) override;

    /// GC_ERR_ERROR without a camera or an endpoint; else GC_ERR_SUCCESS.
    int DoStopAcquisition(int flags) override;

    /// GC_ERR_ERROR for a null id or without a connection; with the standard's answers also when the queue pair takes
    /// no more for now.
    int DoRequeueBuffer(void* rdmaId) override;

    std::shared_ptr<const void> DoHandOver(void* rdmaId, const GigERDMA::NQGenTLBuffer* shownBy) override;
    void DoEndShow(void* rdmaId, const GigERDMA::NQGenTLBuffer* shownBy) override;

    GigERDMA::NQBlockMemory DoMakeMemory(unsigned long size) override;
    void* DoRegisterBuffer(GigERDMA::NQGenTLBuffer& buffer) override;
    void DoForgetBuffer(void* rdmaId) override;

    /// Asks the camera at every call; 0 bytes when it does not answer.
    int DoGetPayloadsize(int* piType, void* pBuffer, unsigned long* piSize) override;

    /// One pass of the acquisition loop: waits for a frame and delivers it. GC_ERR_ERROR when there was none.
    int AcquireImage();

    /// Whether AcquireImage still waits for frames: false once the endpoint is down or has stopped by itself.
    bool IsFlowing();

  private:
    friend struct NQGevDataStreamAccess;

    std::shared_ptr<GevRdmaEndpoint> Rdma();
    void SetRdma(std::shared_ptr<GevRdmaEndpoint> endpoint);
    void EndStarts();
    void EndLastRun();
    bool Connect();
    int StartFlow();
    void StartThread();
    void CountFrame(std::uint64_t frameId);
    void DescribeFrame(const FrameRegion& region);
    void* RegisterMemory(GevRdmaEndpoint& endpoint, GigERDMA::NQGenTLBuffer& buffer);
    NQGevPort Port();
    int ReadRegister(unsigned long address, void* buffer, unsigned long* size);
    int ReadStandardRegister(unsigned long address, void* buffer, unsigned long* size);
    int WriteRegister(unsigned long address, const void* buffer, unsigned long* size);
    int ReadInfo32(int command, void* buffer, unsigned long* size);
    int ReadLockedInfo(int command, void* buffer, unsigned long* size);
    int ReadCounter(const std::atomic<std::uint64_t>& counter, void* buffer, unsigned long* size);

    NQGevRemoteDevice* m_device;
    std::uint32_t m_mtu = 0;
    std::atomic<std::uint64_t> m_reservedCount{0};
    std::uint32_t m_registerValue NQ_GUARDED_BY(m_moduleLock) = 1000;
    std::uint32_t m_index;
    std::atomic<std::uint64_t> m_frameLoss{0};
    std::atomic<std::uint64_t> m_framesReceived{0};
    std::atomic<std::uint64_t> m_nextFrameId{0};
    std::atomic<bool> m_connected{false};
    std::atomic<int> m_closing{0}; // While not zero, the starts under way are to end.
    std::shared_ptr<GevRdmaEndpoint> m_pRdma NQ_GUARDED_BY(m_rdmaLock);
    /// The same, for the way of a frame, which takes no lock and no share. Whoever goes it keeps the endpoint in place:
    /// the acquisition thread, which is waited for, or the queueing lock with a block of this run, which ForgetLastRun
    /// takes away, before another endpoint comes.
    std::atomic<GevRdmaEndpoint*> m_flow{nullptr};
    std::unique_ptr<NQRMAXThreadAcquisition> m_thread;
    FrameInfo m_frame{};
    std::uint64_t m_payload = 0;       ///< Of a frame of this run; written while no buffer is registered.
    unsigned long m_tickFrequency = 0; ///< Of the camera at the last start; written while no acquisition thread runs.

    NQMutex m_rdmaLock;
};
