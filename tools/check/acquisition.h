// SPDX-License-Identifier: Apache-2.0
// A stream with buffers and a new-buffer event, and the camera that sends to it.
#pragma once

#include "description.h"
#include "tree.h"

#include <optional>
#include <string>
#include <vector>

namespace nq::check
{

using NewBuffer = GenTL::EVENT_NEW_BUFFER_DATA;

/// Memory of this program for one buffer. It is never given back: a producer may still write to it.
struct Memory
{
    char* begin = nullptr;
    size_t size = 0;
    explicit Memory(size_t bytes);
};

/// One announced buffer.
struct Announced
{
    GenTL::BUFFER_HANDLE handle = nullptr;
    char* memory = nullptr; ///< null for the producer's
    void* user = nullptr;
};

/// An open stream with its event registered. The rule ends as not tried where that fails.
class Acquisition : public Tree
{
  public:
    /// Announces `count` buffers of the payload's size, of this program's memory.
    Acquisition(Context& context, size_t count);

    void Announce(size_t count, size_t size);
    GenTL::GC_ERROR Queue(const Announced& buffer) const;
    void QueueAll();

    /// Starts the stream and then the camera.
    void Start(uint64_t frames = GENTL_INFINITE);
    GenTL::GC_ERROR StartStream(uint64_t frames = GENTL_INFINITE) const;
    void StartCamera();

    /// Stops the camera and then the stream.
    GenTL::GC_ERROR Stop(GenTL::ACQ_STOP_FLAGS flags = GenTL::ACQ_STOP_FLAGS_DEFAULT);
    void StopCamera();

    /// The next buffer of the event; nothing when none came.
    std::optional<NewBuffer> Next(uint64_t ms = 3000) const;

    /// The same; the rule ends as not tried when none came.
    NewBuffer Frame() const;

    /// Takes `count` frames and queues each again.
    void Run(size_t count) const;

    /// Waits until so many buffers wait in the output queue; false after some seconds.
    bool WaitForOutput(size_t count);

    GenTL::GC_ERROR Flush(GenTL::ACQ_QUEUE_TYPE operation) const;
    std::optional<bool> Flag(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const;
    std::optional<uint64_t> Number(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const;
    uint64_t Stream(GenTL::STREAM_INFO_CMD command) const;
    std::optional<uint64_t> InQueue() const;
    size_t CountQueued() const;

    GenTL::EVENT_HANDLE event = nullptr;
    std::vector<Announced> buffers;
    size_t payload = 0;

  private:
    void FindPayload();
    const Description& Remote();

    std::optional<Description> m_remote;
};

} // namespace nq::check
