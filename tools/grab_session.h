// SPDX-License-Identifier: Apache-2.0
// One camera opened for control with its first stream, its buffers and its new-buffer event.
#pragma once

#include "camera_tree.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool
{

/// Who owns the memory of the buffers.
enum class BufferOrigin
{
    Library,  ///< DSAllocAndAnnounceBuffer
    Consumer, ///< DSAnnounceBuffer with memory of this program
};

/// One delivered frame. The data is valid until the buffer is queued again.
struct Frame
{
    GenTL::BUFFER_HANDLE buffer = nullptr;
    const uint8_t* data = nullptr;
    size_t size = 0; ///< bytes of picture data
    size_t width = 0;
    size_t height = 0;
    uint64_t pixelFormat = 0;
    uint64_t frameId = 0;
    bool incomplete = false;
};

/// A running acquisition: everything is opened by the constructor and Start(), and closed by the destructor.
class GrabSession
{
  public:
    /// Opens the camera for control and its first stream, announces and queues `bufferCount` buffers. Throws
    /// GenTLError.
    GrabSession(const System& system, const CameraEntry& camera, BufferOrigin origin, size_t bufferCount);
    ~GrabSession();
    GrabSession(const GrabSession&) = delete;
    GrabSession& operator=(const GrabSession&) = delete;

    /// Starts the acquisition. Throws ToolFailure(NoStream or CameraLost) with the reason it could find out.
    void Start();
    void Stop();

    /// The next frame; nothing when none came in `timeoutMs` milliseconds.
    std::optional<Frame> Next(uint64_t timeoutMs);

    /// Gives the frame's buffer back to the stream.
    void Requeue(const Frame& frame);

    /// Frames that found no buffer since the start.
    uint64_t Underruns() const;

    /// Why no frame comes, in words: asks the camera over its control channel.
    std::string WhyNoFrames() const;

  private:
    /// What has to be undone, in this order, whether construction failed half way or the session ends.
    void Close();
    void OpenStream();
    void AnnounceBuffers(BufferOrigin origin, size_t count);
    std::optional<uint32_t> ReadRegister(uint64_t address) const;
    uint64_t BufferNumber(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const;
    bool SeesNewIncomplete(GenTL::BUFFER_HANDLE buffer);

    GenTLLibrary& m_library;
    bool m_ours;
    Interface m_interface;
    std::string m_address;
    GenTL::DEV_HANDLE m_device = nullptr;
    GenTL::PORT_HANDLE m_port = nullptr;
    GenTL::DS_HANDLE m_stream = nullptr;
    GenTL::EVENT_HANDLE m_newBuffer = nullptr;
    std::vector<GenTL::BUFFER_HANDLE> m_buffers;
    std::vector<GenTL::BUFFER_HANDLE> m_seenIncomplete;
    std::vector<std::vector<uint8_t>> m_memory;
    uint64_t m_lockedBytes = 0; ///< What a running stream has to lock, at least.
    bool m_anyFrame = false;
    bool m_started = false;
};

} // namespace nq::tool
