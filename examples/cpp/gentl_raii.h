// SPDX-License-Identifier: Apache-2.0
// GenTL for C++17 in one header to copy: a producer, its cameras, their frames. What is opened is closed by scope, what
// fails is a gentl::Error. Objects are used by one thread at a time; each camera with its stream may have a thread of
// its own. What was made from an object goes before it.
#pragma once

#include "GenTL/GenTL.h"

#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace gentl
{

/// A call that failed: Code() is one of GenTL::GC_ERROR_LIST, the text has the producer's reason.
class Error : public std::runtime_error
{
  public:
    Error(GenTL::GC_ERROR code, const std::string& text) : std::runtime_error(text), m_code(code) {}
    GenTL::GC_ERROR Code() const { return m_code; }

  private:
    GenTL::GC_ERROR m_code;
};

// clang-format off
#define GENTL_RAII_FUNCTIONS(X) \
    X(GCInitLib) X(GCCloseLib) X(GCGetLastError) X(GCRegisterEvent) X(GCUnregisterEvent) X(EventGetData) \
    X(TLOpen) X(TLClose) X(TLUpdateInterfaceList) X(TLGetNumInterfaces) X(TLGetInterfaceID) X(TLOpenInterface) \
    X(IFClose) X(IFUpdateDeviceList) X(IFGetNumDevices) X(IFGetDeviceID) X(IFOpenDevice) \
    X(DevClose) X(DevGetDataStreamID) X(DevOpenDataStream) \
    X(DSClose) X(DSGetInfo) X(DSAllocAndAnnounceBuffer) X(DSQueueBuffer) X(DSGetBufferInfo) X(DSStartAcquisition) \
    X(DSStopAcquisition) X(DSFlushQueue) X(DSRevokeBuffer)
// clang-format on

/// A loaded and initialised producer: the functions of the C interface under their own names. One at a time of each
/// file.
class Producer
{
  public:
    explicit Producer(const std::string& path) : m_library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), Unload)
    {
        if (!m_library)
        {
            throw Error(GenTL::GC_ERR_ERROR, dlerror());
        }
#define GENTL_RAII_LOOK_UP(name) name = Find<GenTL::P##name>(#name);
        GENTL_RAII_FUNCTIONS(GENTL_RAII_LOOK_UP)
#undef GENTL_RAII_LOOK_UP
        Check(GCInitLib(), "GCInitLib");
    }
    ~Producer() { GCCloseLib(); }
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    /// Throws the last error of this thread unless `code` is that of success.
    void Check(GenTL::GC_ERROR code, const char* call) const
    {
        if (code != GenTL::GC_ERR_SUCCESS)
        {
            char text[1024] = "";
            std::size_t size = sizeof text;
            GenTL::GC_ERROR last = code;
            GCGetLastError(&last, text, &size);
            throw Error(code, std::string(call) + ": error " + std::to_string(code) + " " + text);
        }
    }

#define GENTL_RAII_MEMBER(name) GenTL::P##name name = nullptr;
    GENTL_RAII_FUNCTIONS(GENTL_RAII_MEMBER)
#undef GENTL_RAII_MEMBER

  private:
    static void Unload(void* library) { dlclose(library); }

    template <typename Function>
    Function Find(const char* name) const
    {
        void* const symbol = dlsym(m_library.get(), name);
        if (symbol == nullptr)
        {
            throw Error(GenTL::GC_ERR_ERROR, dlerror());
        }
        return reinterpret_cast<Function>(symbol);
    }

    std::unique_ptr<void, void (*)(void*)> m_library;
};

/// A handle, closed by the function that came with it.
using Handle = std::unique_ptr<void, std::function<void(void*)>>;

/// The text of a call of the kind that tells the size first.
template <typename Call>
std::string Text(const Producer& gentl, const char* name, const Call& call)
{
    std::size_t size = 0;
    gentl.Check(call(nullptr, &size), name);
    std::string text(size, '\0');
    gentl.Check(call(text.data(), &size), name);
    return text.c_str();
}

/// An event of any module, registered as long as this lives.
class Event
{
  public:
    Event(const Producer& gentl, void* module, GenTL::EVENT_TYPE type) : m_gentl(gentl)
    {
        GenTL::EVENT_HANDLE event = nullptr;
        gentl.Check(gentl.GCRegisterEvent(module, type, &event), "GCRegisterEvent");
        m_event = Handle(event, [&gentl, module, type](void*) { gentl.GCUnregisterEvent(module, type); });
    }

    /// Waits up to so many milliseconds. False when the time is over; throws GC_ERR_ABORT when the wait was ended.
    bool Wait(void* record, std::size_t size, std::uint64_t timeoutMs)
    {
        const GenTL::GC_ERROR code = m_gentl.EventGetData(m_event.get(), record, &size, timeoutMs);
        if (code != GenTL::GC_ERR_TIMEOUT)
        {
            m_gentl.Check(code, "EventGetData");
        }
        return code == GenTL::GC_ERR_SUCCESS;
    }

  private:
    const Producer& m_gentl;
    Handle m_event;
};

/// Where a camera is.
struct CameraId
{
    std::string interface;
    std::string device;
};

/// The root of the tree. Interfaces stay open once they were looked at.
class System
{
  public:
    explicit System(const Producer& gentl) : m_gentl(gentl)
    {
        GenTL::TL_HANDLE system = nullptr;
        gentl.Check(gentl.TLOpen(&system), "TLOpen");
        m_system = Handle(system, gentl.TLClose);
    }

    /// All cameras that answer in so many milliseconds at each interface. Those of an interface that fails, as one
    /// whose adapter is gone, are left out.
    std::vector<CameraId> Find(std::uint64_t timeoutMs)
    {
        std::vector<CameraId> cameras;
        GenTL::bool8_t changed = false;
        std::uint32_t count = 0;
        m_gentl.Check(m_gentl.TLUpdateInterfaceList(m_system.get(), &changed, timeoutMs), "TLUpdateInterfaceList");
        m_gentl.Check(m_gentl.TLGetNumInterfaces(m_system.get(), &count), "TLGetNumInterfaces");
        for (std::uint32_t index = 0; index < count; ++index)
        {
            try
            {
                FindAt(index, timeoutMs, cameras);
            }
            catch (const Error&)
            {
                continue;
            }
        }
        return cameras;
    }

    const Producer& Library() const { return m_gentl; }
    GenTL::IF_HANDLE Interface(const std::string& id) const { return m_interfaces.at(id).get(); }

  private:
    void FindAt(std::uint32_t index, std::uint64_t timeoutMs, std::vector<CameraId>& cameras)
    {
        const std::string id = Text(m_gentl, "TLGetInterfaceID", [&](char* text, std::size_t* size) {
            return m_gentl.TLGetInterfaceID(m_system.get(), index, text, size);
        });
        if (m_interfaces.count(id) == 0)
        {
            GenTL::IF_HANDLE opened = nullptr;
            m_gentl.Check(m_gentl.TLOpenInterface(m_system.get(), id.c_str(), &opened), "TLOpenInterface");
            m_interfaces.emplace(id, Handle(opened, m_gentl.IFClose));
        }
        const GenTL::IF_HANDLE interface = Interface(id);
        GenTL::bool8_t changed = false;
        std::uint32_t count = 0;
        m_gentl.Check(m_gentl.IFUpdateDeviceList(interface, &changed, timeoutMs), "IFUpdateDeviceList");
        m_gentl.Check(m_gentl.IFGetNumDevices(interface, &count), "IFGetNumDevices");
        for (std::uint32_t camera = 0; camera < count; ++camera)
        {
            cameras.push_back({id, Text(m_gentl, "IFGetDeviceID", [&](char* text, std::size_t* size) {
                                   return m_gentl.IFGetDeviceID(interface, camera, text, size);
                               })});
        }
    }

    const Producer& m_gentl;
    Handle m_system;
    std::map<std::string, Handle> m_interfaces;
};

/// A camera, opened for control.
class Camera
{
  public:
    /// Throws GC_ERR_ACCESS_DENIED when another program controls it.
    Camera(const System& system, const CameraId& id) : m_gentl(system.Library())
    {
        GenTL::DEV_HANDLE device = nullptr;
        m_gentl.Check(m_gentl.IFOpenDevice(system.Interface(id.interface), id.device.c_str(),
                                           GenTL::DEVICE_ACCESS_CONTROL, &device),
                      "IFOpenDevice");
        m_device = Handle(device, m_gentl.DevClose);
    }

    const Producer& Library() const { return m_gentl; }
    GenTL::DEV_HANDLE Module() const { return m_device.get(); }

  private:
    const Producer& m_gentl;
    Handle m_device;
};

/// A frame in the buffer that it came in: nothing is copied. When it goes the buffer waits for another frame.
struct Frame
{
    Handle buffer;
    void* data = nullptr; ///< the pixels
    std::size_t size = 0; ///< bytes that came, from the pixels on
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t padding = 0;       ///< bytes behind each row
    std::uint64_t pixelFormat = 0; ///< 0x01080001 for Mono8
    std::uint64_t id = 0;
    bool incomplete = false;
};

/// The first stream of a camera, acquiring as long as this lives.
class Stream
{
  public:
    /// A camera that sends only after AcquisitionStart has to get that from whoever has its features.
    explicit Stream(const Camera& camera, std::size_t buffers = 4) : m_gentl(camera.Library())
    {
        const std::string id = Text(m_gentl, "DevGetDataStreamID", [&](char* text, std::size_t* size) {
            return m_gentl.DevGetDataStreamID(camera.Module(), 0, text, size);
        });
        GenTL::DS_HANDLE stream = nullptr;
        m_gentl.Check(m_gentl.DevOpenDataStream(camera.Module(), id.c_str(), &stream), "DevOpenDataStream");
        m_stream = Handle(stream, m_gentl.DSClose);
        m_newBuffer.emplace(m_gentl, stream, GenTL::EVENT_NEW_BUFFER);
        // A stop is refused where nothing was started; a queued buffer that is not flushed cannot be revoked.
        m_running = Handle(stream, [this](void* running) {
            m_gentl.DSStopAcquisition(running, GenTL::ACQ_STOP_FLAGS_DEFAULT);
            m_gentl.DSFlushQueue(running, GenTL::ACQ_QUEUE_ALL_DISCARD);
        });
        Announce(buffers);
        m_gentl.Check(m_gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
                      "DSStartAcquisition");
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// The next frame; nothing when none comes in so many milliseconds. Throws GC_ERR_ABORT when the camera is lost, by
    /// a producer that tells.
    std::optional<Frame> Next(std::uint64_t timeoutMs)
    {
        GenTL::S_EVENT_NEW_BUFFER event{};
        if (!m_newBuffer->Wait(&event, sizeof event, timeoutMs))
        {
            return std::nullopt;
        }
        GenTL::BUFFER_HANDLE const buffer = event.BufferHandle;
        Frame frame;
        frame.buffer = Handle(buffer, [this](void* done) { m_gentl.DSQueueBuffer(m_stream.get(), done); });
        // Before the pixels some producers have something else.
        const auto offset = Info<std::size_t>(buffer, GenTL::BUFFER_INFO_IMAGEOFFSET);
        const auto filled = Info<std::size_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED);
        frame.data = static_cast<char*>(Info<void*>(buffer, GenTL::BUFFER_INFO_BASE)) + offset;
        frame.size = filled > offset ? filled - offset : 0;
        frame.padding = Info<std::size_t>(buffer, GenTL::BUFFER_INFO_XPADDING);
        frame.width = Info<std::size_t>(buffer, GenTL::BUFFER_INFO_WIDTH);
        frame.height = Info<std::size_t>(buffer, GenTL::BUFFER_INFO_HEIGHT);
        frame.pixelFormat = Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_PIXELFORMAT);
        frame.id = Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID);
        frame.incomplete = Info<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE);
        return frame;
    }

  private:
    void Announce(std::size_t count)
    {
        // A producer that does not define the size of a frame leaves it to PayloadSize of the camera's description.
        std::uint64_t payload = 0;
        GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
        std::size_t size = sizeof payload;
        m_gentl.Check(m_gentl.DSGetInfo(m_stream.get(), GenTL::STREAM_INFO_PAYLOAD_SIZE, &type, &payload, &size),
                      "DSGetInfo(STREAM_INFO_PAYLOAD_SIZE)");
        for (std::size_t index = 0; index < count; ++index)
        {
            GenTL::BUFFER_HANDLE buffer = nullptr;
            m_gentl.Check(m_gentl.DSAllocAndAnnounceBuffer(m_stream.get(), payload, nullptr, &buffer),
                          "DSAllocAndAnnounceBuffer");
            m_buffers.emplace_back(buffer, [this](void* announced) {
                m_gentl.DSRevokeBuffer(m_stream.get(), announced, nullptr, nullptr);
            });
            m_gentl.Check(m_gentl.DSQueueBuffer(m_stream.get(), buffer), "DSQueueBuffer");
        }
    }

    /// What the producer tells of a buffer, 0 when it does not.
    template <typename Value>
    Value Info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const
    {
        Value value{};
        GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
        std::size_t size = sizeof value;
        const GenTL::GC_ERROR code = m_gentl.DSGetBufferInfo(m_stream.get(), buffer, command, &type, &value, &size);
        return code == GenTL::GC_ERR_SUCCESS ? value : Value{};
    }

    const Producer& m_gentl;
    // Ended from the last to the first: stop and flush, revoke, unregister, close.
    Handle m_stream;
    std::optional<Event> m_newBuffer;
    std::vector<Handle> m_buffers;
    Handle m_running;
};

} // namespace gentl
