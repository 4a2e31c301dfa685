// SPDX-License-Identifier: Apache-2.0
// One camera opened for control with its first stream, its buffers and its new-buffer event.
#pragma once

#include "available_memory.h"
#include "camera_events.h"
#include "camera_tree.h"
#include "frame.h"
#include "remote_acquisition.h"

#include <cstdint>
#include <exception>
#include <memory>
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

/// Zeroed memory for one buffer of this program; it takes room only where it is written. Throws std::bad_alloc.
class BufferMemory
{
  public:
    explicit BufferMemory(size_t size);
    void* Begin() const { return m_memory.get(); }

    /// Whether the `size` bytes from `data` lie in this memory.
    bool Holds(const void* data, size_t size) const;

  private:
    struct Unmap
    {
        size_t size;
        void operator()(void* memory) const;
    };
    std::unique_ptr<void, Unmap> m_memory;
};

/// The producer says that no frame will come any more.
class StreamGivenUp : public std::exception
{
};

/// A running acquisition: everything is opened by the constructor and Start(), and closed by the destructor. Used from
/// one thread; those of several cameras may be used at once.
class GrabSession
{
  public:
    /// Opens the camera for control, sets its features as `settings` ("NAME=VALUE") say, opens its first stream,
    /// announces and queues `bufferCount` buffers. Throws GenTLError, and ToolFailure when `memory` has no room for
    /// them.
    GrabSession(Interface& interface, const CameraEntry& camera, BufferOrigin origin, size_t bufferCount,
                MemoryBudget& memory, const std::vector<std::string>& settings = {});
    ~GrabSession();
    GrabSession(const GrabSession&) = delete;
    GrabSession& operator=(const GrabSession&) = delete;

    /// Starts the stream, then the camera's acquisition where it has to be told. Throws ToolFailure(NoStream or
    /// CameraLost) with the reason it could find out.
    void Start();
    void Stop();

    /// The next frame, or why it is refused; nothing when none came in `timeoutMs` milliseconds. Throws
    /// StreamGivenUp and GenTLError.
    std::optional<Frame> Next(uint64_t timeoutMs);

    /// Gives the frame's buffer back to the stream.
    void Requeue(const Frame& frame);

    /// Frames that found no buffer since the start.
    uint64_t Underruns() const;

    /// Why no frame comes, in words: asks the camera over its control channel.
    std::string WhyNoFrames();

    /// Whether the camera, asked over its control channel, answers and has its stream on. Of a producer that is not
    /// ours only the answer counts.
    bool IsStreaming() const;

    /// The camera's part of the acquisition, with its features.
    RemoteAcquisition& Acquisition() { return *m_acquisition; }

    /// Listens to the event of the camera with that name. Throws ToolFailure when that is impossible.
    void ListenTo(const std::string& event);

    /// Whether that event came since the last call.
    bool EventCame() { return m_events && m_events->Came(); }

    /// Bytes of a frame at most.
    uint64_t FrameBytes() const { return m_bufferBytes; }

  private:
    /// What has to be undone, in this order, whether construction failed half way or the session ends.
    void Close();
    void OpenStream();
    void AnnounceBuffers(BufferOrigin origin, size_t count);
    uint64_t PayloadSize() const;
    void TakeMemory(size_t count);
    std::string WhyNoStart(GenTL::GC_ERROR code) const;
    std::optional<uint32_t> ReadRegister(uint64_t address) const;
    std::string Describe(Frame& frame);
    std::optional<uint64_t> MaybeNumber(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const;
    uint64_t BufferNumber(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command, uint64_t fallback = 0) const
    {
        return MaybeNumber(buffer, command).value_or(fallback);
    }
    bool SeesNewIncomplete(GenTL::BUFFER_HANDLE buffer);

    GenTLLibrary& m_library;
    bool m_ours;
    bool m_flagStays; ///< An incomplete frame leaves its buffer so for good, as our producer's own answers have it.
    MemoryBudget& m_memoryBudget;
    std::string m_cameraId;
    std::string m_address;
    GenTL::DEV_HANDLE m_device = nullptr;
    GenTL::PORT_HANDLE m_port = nullptr;
    GenTL::DS_HANDLE m_stream = nullptr;
    GenTL::EVENT_HANDLE m_newBuffer = nullptr;
    std::unique_ptr<RemoteAcquisition> m_acquisition; ///< there once the camera is open
    std::unique_ptr<CameraEvents> m_events;           ///< null when nobody listens
    std::vector<GenTL::BUFFER_HANDLE> m_buffers;
    std::vector<GenTL::BUFFER_HANDLE> m_seenIncomplete;
    std::vector<BufferMemory> m_memory; ///< of the buffer of the same index; empty for those of the library
    uint64_t m_bufferBytes = 0;
    uint64_t m_takenBytes = 0;
    uint64_t m_lockedBytes = 0; ///< What the running streams of this program have to lock, at least.
    bool m_anyFrame = false;
    bool m_started = false;
    bool m_silent = false; ///< The camera answered nothing when it was last asked.
};

} // namespace nq::tool
