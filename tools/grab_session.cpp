// SPDX-License-Identifier: Apache-2.0
// One camera opened for control with its first stream, its buffers and its new-buffer event.
#include "grab_session.h"

#include "exit_codes.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

constexpr uint64_t controlPrivilegeRegister = 0x0A00; // GigE Vision bootstrap register
constexpr uint64_t streamEnableRegister = 0xE030;     // RDMA block: bit 31 is set while the camera's stream runs

bool MachineHasRdmaDevice()
{
    std::error_code ignored;
    const std::filesystem::directory_iterator devices("/sys/class/infiniband", ignored);
    return !ignored && devices != std::filesystem::directory_iterator();
}

bool MayLockAnyAmount()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capget, &header, sets) == 0 &&
           (sets[CAP_TO_INDEX(CAP_IPC_LOCK)].effective & CAP_TO_MASK(CAP_IPC_LOCK)) != 0;
}

/// What stands in the way of frames when the system lets this user lock less than the `needed` bytes; else empty.
std::string LockedMemoryComplaint(uint64_t needed)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0 || limit.rlim_cur >= needed || MayLockAnyAmount())
    {
        return {};
    }
    return fmt::format("this user may lock {} KiB of memory (RLIMIT_MEMLOCK, see `ulimit -l`), and the frame buffers "
                       "need {} KiB",
                       limit.rlim_cur / 1024, (needed + 1023) / 1024);
}

} // namespace

GrabSession::GrabSession(const System& system, const CameraEntry& camera, BufferOrigin origin, size_t bufferCount)
    : m_library(system.Library()), m_ours(system.IsOurs()), m_interface(system, camera.interfaceId),
      m_address(camera.address)
{
    try
    {
        m_interface.Scan(500);
        GenTLLibrary::Check(
            m_library.IFOpenDevice(m_interface.Handle(), camera.id.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &m_device),
            "IFOpenDevice");
        GenTLLibrary::Check(m_library.DevGetPort(m_device, &m_port), "DevGetPort");
        OpenStream();
        AnnounceBuffers(origin, bufferCount);
    }
    catch (...)
    {
        Close();
        throw;
    }
}

GrabSession::~GrabSession()
{
    Close();
}

void GrabSession::Close()
{
    Stop();
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
    if (m_device != nullptr)
    {
        m_library.DevClose(m_device);
    }
}

void GrabSession::OpenStream()
{
    const std::string id = GenTLLibrary::Id(
        [this](char* text, size_t* size) { return m_library.DevGetDataStreamID(m_device, 0, text, size); },
        "DevGetDataStreamID");
    GenTLLibrary::Check(m_library.DevOpenDataStream(m_device, id.c_str(), &m_stream), "DevOpenDataStream");
    GenTLLibrary::Check(m_library.GCRegisterEvent(m_stream, GenTL::EVENT_NEW_BUFFER, &m_newBuffer), "GCRegisterEvent");
}

void GrabSession::AnnounceBuffers(BufferOrigin origin, size_t count)
{
    const uint64_t size = GenTLLibrary::Number([this](GenTL::INFO_DATATYPE* type, void* buffer, size_t* space) {
        return m_library.DSGetInfo(m_stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, type, buffer, space);
    });
    m_lockedBytes = count * size;
    for (size_t index = 0; index < count; ++index)
    {
        GenTL::BUFFER_HANDLE buffer = nullptr;
        if (origin == BufferOrigin::Library)
        {
            GenTLLibrary::Check(m_library.DSAllocAndAnnounceBuffer(m_stream, size, nullptr, &buffer),
                                "DSAllocAndAnnounceBuffer");
        }
        else
        {
            m_memory.emplace_back(size);
            GenTLLibrary::Check(m_library.DSAnnounceBuffer(m_stream, m_memory.back().data(), size, nullptr, &buffer),
                                "DSAnnounceBuffer");
        }
        m_buffers.push_back(buffer);
        GenTLLibrary::Check(m_library.DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
}

void GrabSession::Start()
{
    const GenTL::GC_ERROR code = m_library.DSStartAcquisition(m_stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    m_started = code == GenTL::GC_ERR_SUCCESS;
    if (m_started)
    {
        return;
    }
    if (!ReadRegister(controlPrivilegeRegister))
    {
        throw ToolFailure(ExitCode::CameraLost, WhyNoFrames());
    }
    std::string hint = MachineHasRdmaDevice() ? "" : " This machine shows no RDMA device (`rdma link`).";
    if (const std::string complaint = LockedMemoryComplaint(m_lockedBytes); !complaint.empty())
    {
        hint += fmt::format(" Note that {}.", complaint);
    }
    throw ToolFailure(ExitCode::NoStream,
                      fmt::format("the stream did not start: {} ({}). The camera {} answers on its control channel but "
                                  "refused or did not answer the RDMA connection.{}",
                                  ErrorName(code), code, m_address, hint));
}

void GrabSession::Stop()
{
    if (m_started)
    {
        m_library.DSStopAcquisition(m_stream, GenTL::ACQ_STOP_FLAGS_KILL);
        m_started = false;
    }
}

std::optional<Frame> GrabSession::Next(uint64_t timeoutMs)
{
    GenTL::EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    const GenTL::GC_ERROR code = m_library.EventGetData(m_newBuffer, &data, &size, timeoutMs);
    if (code == GenTL::GC_ERR_TIMEOUT || (code == GenTL::GC_ERR_SUCCESS && data.BufferHandle == nullptr))
    {
        return std::nullopt;
    }
    GenTLLibrary::Check(code, "EventGetData");
    m_anyFrame = true;
    Frame frame;
    frame.buffer = data.BufferHandle;
    frame.data = reinterpret_cast<const uint8_t*>(BufferNumber(frame.buffer, GenTL::BUFFER_INFO_BASE));
    frame.size = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_SIZE_FILLED);
    frame.width = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_WIDTH);
    frame.height = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_HEIGHT);
    frame.pixelFormat = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_PIXELFORMAT);
    frame.frameId = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_FRAMEID);
    frame.incomplete = SeesNewIncomplete(frame.buffer);
    return frame;
}

void GrabSession::Requeue(const Frame& frame)
{
    GenTLLibrary::Check(m_library.DSQueueBuffer(m_stream, frame.buffer), "DSQueueBuffer");
}

bool GrabSession::SeesNewIncomplete(GenTL::BUFFER_HANDLE buffer)
{
    if (BufferNumber(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE) == 0)
    {
        return false;
    }
    // Our producer never clears a buffer's flag, so only its first sight tells of a new short frame.
    const bool seen = std::find(m_seenIncomplete.begin(), m_seenIncomplete.end(), buffer) != m_seenIncomplete.end();
    if (!seen)
    {
        m_seenIncomplete.push_back(buffer);
    }
    return !seen || !m_ours;
}

uint64_t GrabSession::BufferNumber(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const
{
    return GenTLLibrary::Number([&](GenTL::INFO_DATATYPE* type, void* value, size_t* size) {
        return m_library.DSGetBufferInfo(m_stream, buffer, command, type, value, size);
    });
}

uint64_t GrabSession::Underruns() const
{
    return GenTLLibrary::Number([this](GenTL::INFO_DATATYPE* type, void* value, size_t* size) {
        return m_library.DSGetInfo(m_stream, GenTL::STREAM_INFO_NUM_UNDERRUN, type, value, size);
    });
}

std::optional<uint32_t> GrabSession::ReadRegister(uint64_t address) const
{
    uint8_t bytes[4] = {};
    size_t size = sizeof bytes;
    if (m_library.GCReadPort(m_port, address, bytes, &size) != GenTL::GC_ERR_SUCCESS)
    {
        return std::nullopt;
    }
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

std::string GrabSession::WhyNoFrames() const
{
    if (!ReadRegister(controlPrivilegeRegister))
    {
        return fmt::format("the camera {} went silent: its control channel does not answer", m_address);
    }
    if (m_ours && ReadRegister(streamEnableRegister) == 0U)
    {
        return fmt::format(
            "the camera {} disconnected: it answers on its control channel but has ended its RDMA stream", m_address);
    }
    // A start succeeds even if no buffer could be registered; the camera then hears of none.
    if (const std::string complaint = LockedMemoryComplaint(m_lockedBytes); !m_anyFrame && !complaint.empty())
    {
        return fmt::format("the camera {} answers on its control channel but sends no frames: {}", m_address,
                           complaint);
    }
    return fmt::format(
        "the camera {} answers on its control channel but sends no frames: it waits for a trigger, or the "
        "RDMA connection is broken",
        m_address);
}

} // namespace nq::tool
