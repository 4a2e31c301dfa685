// SPDX-License-Identifier: Apache-2.0
// The facade through which the data stream reaches the RDMA transport.
#pragma once

#include "rdma/lvEndPoint.h"
#include "rdma/rdma_records.h"

#include <cstdint>
#include <memory>

#include <netdb.h>

/// Owns one LvEndpoint, resolves the camera's address, and decodes received frames (GenDC: one component, one part).
///
/// Connect and Start are thread-bound to the thread of the start call, GetBuffer and GetNextFrame to the acquisition
/// thread. Disconnect is thread-safe, and so is the rest once Start has returned. The endpoint's queues synchronise.
class GevRdmaEndpoint
{
  public:
    explicit GevRdmaEndpoint(FrameMemory memory = FrameMemory::Blocks);
    ~GevRdmaEndpoint();
    GevRdmaEndpoint(const GevRdmaEndpoint&) = delete;
    GevRdmaEndpoint& operator=(const GevRdmaEndpoint&) = delete;

    /// Resolves `host` and the UDP port `service`, takes the first address, and connects. One facade connects once.
    /// Returns false when a connection was tried before, the address is none, the camera could not be reached, or
    /// Disconnect was called, be it before or meanwhile.
    bool Connect(const char* host, const char* service);

    /// Whether the port of the connection can receive a frame of that many bytes of payload. Between Connect and Start.
    bool CanReceive(std::uint64_t payloadSize) const;

    /// Makes and registers the frame blocks and starts the flow. Returns false, disconnected, when that fails.
    /// The second argument is not read.
    bool Start(gevrdmaBufferSettings& settings, unsigned int);

    /// Waits for the next frame. All zero when the endpoint stopped or was never connected.
    gevrdmaBuffer GetBuffer();

    /// Waits for the next frame and decodes it. The pixels are not copied: `info->data` lies in the frame block and is
    /// good until the handle is requeued, and `info->dataSize` bytes from there lie in the block too.
    /// Returns false when the endpoint stopped, for an empty frame, and for a frame whose descriptor does not describe
    /// data inside its block, or did not come whole into a buffer's memory. The block of such a frame stays out of the
    /// flow until somebody gives it back. `dropped`, when not null, receives the id of that block, else null. `region`,
    /// when not null, receives where the pixels of the frame belong and are, and how many of them came.
    bool GetNextFrame(FrameInfo* info, gevrdmaBuffer* buffer, void** dropped = nullptr, FrameRegion* region = nullptr);

    /// For buffers that bring their own memory (FrameMemory::Buffers), after a Start without blocks: as those of
    /// LvEndpoint. BeginReceives returns false, disconnected, when it fails.
    bool BeginReceives();
    void* AddReceive(unsigned char* memory, std::uint32_t length, std::shared_ptr<const void> share);
    void* AddReceiveBehindHeaders(unsigned char* memory, std::uint32_t length, std::size_t room);
    void RemoveReceive(void* id);
    bool PostReceive(void* id);

    /// False when GetBuffer and GetNextFrame return at once, without a frame.
    bool IsFlowing() const;

    /// The frame of the block has been delivered or dropped. Once nobody shows it (`shownBy`, until EndShow), the block
    /// can be given back by its id. The share in the block's memory; null when there is no connection or no such frame.
    std::shared_ptr<const void> HandOver(void* id, const void* shownBy = nullptr);
    void EndShow(void* id, const void* shownBy);

    /// Gives a block, whose frame GetBuffer brought, back to the camera. False when there is no connection.
    bool RequeueBuffer(gevrdmaBuffer& buffer);

    /// Gives a block that was handed over and is not on show back to the camera. False when there is no connection.
    bool RequeueBufferByID(void* id);

    /// Takes the connection down for good and returns when it is down. Ends a Connect that waits for the camera.
    void Disconnect();

  private:
    friend struct GevRdmaEndpointAccess;

    bool Decode(const gevrdmaBuffer& frame, FrameInfo* info, FrameRegion* region);

    struct FreeAddresses
    {
        void operator()(addrinfo* list) const { freeaddrinfo(list); }
    };

    std::unique_ptr<addrinfo, FreeAddresses> m_addresses;
    std::unique_ptr<LvEndpoint> m_endpoint; // Set once, by Connect.
    const FrameMemory m_memory;

    NQMutex m_disconnectLock; // So that Disconnect either finds the endpoint or keeps it from being made.
    bool m_disconnected NQ_GUARDED_BY(m_disconnectLock) = false;
};
