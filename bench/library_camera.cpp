// SPDX-License-Identifier: Apache-2.0
// The library through its C interface, and as a source of frames beside its references.
#include "library_camera.h"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace nq::bench
{

using tool::GenTLLibrary;

LibraryHost::LibraryHost(const std::string& producer) : m_library(producer), m_system(m_library)
{
    for (const std::string& id : m_system.InterfaceIds())
    {
        m_interfaces.push_back(std::make_unique<tool::Interface>(m_system, id));
    }
}

std::pair<tool::Interface*, std::string> LibraryHost::Find(const std::string& address)
{
    constexpr std::uint64_t kLongestScanMs = 500;
    for (const std::uint64_t ms : tool::ShortScansFirst(kLongestScanMs))
    {
        for (const auto& interface : m_interfaces)
        {
            for (const tool::CameraEntry& camera : interface->Scan(ms).cameras)
            {
                if (camera.address == address)
                {
                    return {interface.get(), camera.id};
                }
            }
        }
    }
    throw std::runtime_error("no camera at " + address);
}

LibraryCamera::LibraryCamera(LibraryHost& host, const std::string& address) : m_library(host.Library())
{
    const auto [interface, id] = host.Find(address);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    GenTL::GC_ERROR code = GenTL::GC_ERR_SUCCESS;
    // Whoever was measured before may still be about to leave the camera.
    while ((code = m_library.IFOpenDevice(interface->Handle(), id.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &m_device)) !=
               GenTL::GC_ERR_SUCCESS &&
           std::chrono::steady_clock::now() < end)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    GenTLLibrary::Check(code, "IFOpenDevice");
    GenTLLibrary::Check(m_library.DevGetPort(m_device, &m_port), "DevGetPort");
}

LibraryCamera::~LibraryCamera()
{
    if (m_started)
    {
        m_library.DSStopAcquisition(m_stream, GenTL::ACQ_STOP_FLAGS_DEFAULT);
    }
    if (m_stream != nullptr)
    {
        m_library.DSFlushQueue(m_stream, GenTL::ACQ_QUEUE_ALL_DISCARD);
        for (GenTL::BUFFER_HANDLE buffer : m_buffers)
        {
            m_library.DSRevokeBuffer(m_stream, buffer, nullptr, nullptr);
        }
        m_library.GCUnregisterEvent(m_stream, GenTL::EVENT_NEW_BUFFER);
        m_library.DSClose(m_stream);
    }
    m_library.DevClose(m_device);
}

void LibraryCamera::OpenStream()
{
    const std::string id = GenTLLibrary::Id(
        [this](char* text, std::size_t* size) { return m_library.DevGetDataStreamID(m_device, 0, text, size); },
        "DevGetDataStreamID");
    GenTLLibrary::Check(m_library.DevOpenDataStream(m_device, id.c_str(), &m_stream), "DevOpenDataStream");
    GenTLLibrary::Check(m_library.GCRegisterEvent(m_stream, GenTL::EVENT_NEW_BUFFER, &m_newBuffer), "GCRegisterEvent");
}

std::uint64_t LibraryCamera::PayloadSize() const
{
    const auto size = GenTLLibrary::Number([this](GenTL::INFO_DATATYPE* type, void* value, std::size_t* room) {
        return m_library.DSGetInfo(m_stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, type, value, room);
    });
    if (!size)
    {
        throw std::runtime_error("the stream tells no payload size");
    }
    return *size;
}

void LibraryCamera::Announce(std::size_t count, bool ofThisProgram)
{
    const std::uint64_t size = PayloadSize();
    for (std::size_t index = 0; index < count; ++index)
    {
        GenTL::BUFFER_HANDLE buffer = nullptr;
        if (ofThisProgram)
        {
            void* const memory = m_memory.emplace_back(size).Begin();
            GenTLLibrary::Check(m_library.DSAnnounceBuffer(m_stream, memory, size, nullptr, &buffer),
                                "DSAnnounceBuffer");
        }
        else
        {
            GenTLLibrary::Check(m_library.DSAllocAndAnnounceBuffer(m_stream, size, nullptr, &buffer),
                                "DSAllocAndAnnounceBuffer");
        }
        m_buffers.push_back(buffer);
        GenTLLibrary::Check(m_library.DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
}

void LibraryCamera::Start()
{
    GenTLLibrary::Check(m_library.DSStartAcquisition(m_stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
                        "DSStartAcquisition");
    m_started = true;
}

void LibraryCamera::Stop()
{
    m_started = false;
    GenTLLibrary::Check(m_library.DSStopAcquisition(m_stream, GenTL::ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
}

template <typename Value>
Value LibraryCamera::Info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const
{
    Value value{};
    std::size_t size = sizeof value;
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    GenTLLibrary::Check(m_library.DSGetBufferInfo(m_stream, buffer, command, &type, &value, &size), "DSGetBufferInfo");
    return value;
}

bool LibraryCamera::Next(SourceFrame& frame)
{
    constexpr std::uint64_t kLongestWaitMs = 5000;
    GenTL::EVENT_NEW_BUFFER_DATA data{};
    std::size_t size = sizeof data;
    if (m_library.EventGetData(m_newBuffer, &data, &size, kLongestWaitMs) != GenTL::GC_ERR_SUCCESS)
    {
        return false;
    }
    frame.token = data.BufferHandle;
    frame.id = Info<std::uint64_t>(data.BufferHandle, GenTL::BUFFER_INFO_FRAMEID);
    frame.pixels = Info<const std::uint8_t*>(data.BufferHandle, GenTL::BUFFER_INFO_BASE);
    frame.size = Info<std::size_t>(data.BufferHandle, GenTL::BUFFER_INFO_SIZE_FILLED);
    return true;
}

void LibraryCamera::Return(const SourceFrame& frame)
{
    GenTLLibrary::Check(m_library.DSQueueBuffer(m_stream, frame.token), "DSQueueBuffer");
}

namespace
{

/// One for all sources of the process: the library is initialised once.
std::shared_ptr<LibraryHost> SharedHost(const std::string& producer)
{
    static std::mutex mutex;
    static std::weak_ptr<LibraryHost> host;
    const std::lock_guard lock(mutex);
    std::shared_ptr<LibraryHost> shared = host.lock();
    if (!shared)
    {
        shared = std::make_shared<LibraryHost>(producer);
        host = shared;
    }
    return shared;
}

class LibrarySource : public FrameSource
{
  public:
    explicit LibrarySource(const SourcePlan& plan) : m_host(SharedHost(plan.producer)), m_camera(*m_host, plan.camera)
    {
        m_camera.OpenStream();
        m_camera.Announce(plan.buffers, plan.announced);
    }

    void Start() override { m_camera.Start(); }
    bool Next(SourceFrame& frame) override { return m_camera.Next(frame); }
    void Return(const SourceFrame& frame) override { m_camera.Return(frame); }
    void Stop() override { m_camera.Stop(); }

  private:
    std::shared_ptr<LibraryHost> m_host;
    LibraryCamera m_camera;
};

} // namespace

std::unique_ptr<FrameSource> MakeLibrarySource(const SourcePlan& plan)
{
    return std::make_unique<LibrarySource>(plan);
}

} // namespace nq::bench
