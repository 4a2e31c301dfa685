// SPDX-License-Identifier: Apache-2.0
// The library as a lean consumer uses it: no more calls than frames need.
#pragma once

#include "camera_tree.h"
#include "frame_source.h"
#include "grab_session.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nq::bench
{

/// The loaded library with its system and all interfaces open.
class LibraryHost
{
  public:
    /// By the path of the .cti. Throws GenTLError and ToolFailure, as everything here.
    explicit LibraryHost(const std::string& producer);

    tool::GenTLLibrary& Library() { return m_library; }

    /// Looks for the camera at a dotted IPv4 address: the interface that has it, and its id there.
    std::pair<tool::Interface*, std::string> Find(const std::string& address);

  private:
    tool::GenTLLibrary m_library;
    tool::System m_system;
    std::vector<std::unique_ptr<tool::Interface>> m_interfaces;
};

/// One camera opened for control, with its first stream. Everything is undone by the destructor. Used from one thread.
class LibraryCamera
{
  public:
    LibraryCamera(LibraryHost& host, const std::string& address);
    ~LibraryCamera();
    LibraryCamera(const LibraryCamera&) = delete;
    LibraryCamera& operator=(const LibraryCamera&) = delete;

    void OpenStream();
    /// Announces and queues buffers for the payload, of this program's memory or of the library's. Adds to those there.
    void Announce(std::size_t count, bool ofThisProgram);
    void Start();
    void Stop();
    bool Next(SourceFrame& frame);
    void Return(const SourceFrame& frame);

    /// Bytes of a buffer, as the stream tells.
    std::uint64_t PayloadSize() const;

    tool::GenTLLibrary& Library() const { return m_library; }
    GenTL::PORT_HANDLE Port() const { return m_port; }
    GenTL::DS_HANDLE Stream() const { return m_stream; }
    const std::vector<GenTL::BUFFER_HANDLE>& Buffers() const { return m_buffers; }

  private:
    template <typename Value>
    Value Info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const;

    tool::GenTLLibrary& m_library;
    GenTL::DEV_HANDLE m_device = nullptr;
    GenTL::PORT_HANDLE m_port = nullptr;
    GenTL::DS_HANDLE m_stream = nullptr;
    GenTL::EVENT_HANDLE m_newBuffer = nullptr;
    std::vector<GenTL::BUFFER_HANDLE> m_buffers;
    std::vector<tool::BufferMemory> m_memory;
    bool m_started = false;
};

} // namespace nq::bench
