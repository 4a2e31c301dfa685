// SPDX-License-Identifier: Apache-2.0
// One camera opened for control with its first stream, its buffers and its new-buffer event.
#include "grab_session.h"

#include "camera_owner.h"
#include "exit_codes.h"
#include "software_rdma.h"

#include <algorithm>
#include <fmt/format.h>
#include <linux/capability.h>
#include <new>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

constexpr uint64_t kControlPrivilegeRegister = 0x0A00; // GigE Vision bootstrap register
constexpr uint64_t kStreamEnableRegister = 0xE030;     // RDMA block: bit 31 is set while the camera's stream runs

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

BufferMemory::BufferMemory(size_t size) : m_memory(nullptr, Unmap{size})
{
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
    {
        throw std::bad_alloc();
    }
    m_memory.reset(memory);
}

bool BufferMemory::Holds(const void* data, size_t size) const
{
    const auto begin = reinterpret_cast<uintptr_t>(Begin());
    const auto at = reinterpret_cast<uintptr_t>(data);
    const size_t all = m_memory.get_deleter().size;
    return at >= begin && at - begin <= all && size <= all - (at - begin);
}

void BufferMemory::Unmap::operator()(void* memory) const
{
    munmap(memory, size);
}

GrabSession::GrabSession(Interface& interface, const CameraEntry& camera, BufferOrigin origin, size_t bufferCount,
                         MemoryBudget& memory, const std::vector<std::string>& settings)
    : m_library(interface.Parent().Library()), m_ours(interface.Parent().IsOurs()),
      m_flagStays(interface.Parent().GivesStatedAnswers()), m_memoryBudget(memory), m_cameraId(camera.id),
      m_address(camera.address)
{
    try
    {
        const GenTL::GC_ERROR opened = interface.OpenCamera(camera.id, &m_device);
        if (opened != GenTL::GC_ERR_SUCCESS)
        {
            m_device = nullptr;
            ThrowRefusedOpen(camera, opened);
        }
        GenTLLibrary::Check(m_library.DevGetPort(m_device, &m_port), "DevGetPort");
        if (m_ours)
        {
            ConfirmControl(m_library, m_port, camera);
        }
        m_acquisition = std::make_unique<RemoteAcquisition>(PortAccess(m_library, m_port, camera), settings);
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
    m_events.reset();
    if (m_device != nullptr)
    {
        m_library.DevClose(m_device);
    }
    m_memoryBudget.GiveBack(m_takenBytes);
}

void GrabSession::OpenStream()
{
    size_t size = 0;
    if (m_library.DevGetDataStreamID(m_device, 0, nullptr, &size) == GenTL::GC_ERR_INVALID_INDEX)
    {
        throw ToolFailure(
            ExitCode::NoStream,
            fmt::format("the stream did not start: the camera {} has none{}", m_cameraId,
                        m_ours ? " that comes by RDMA (RoCE v2), which is all that this producer takes" : ""));
    }
    const std::string id = GenTLLibrary::Id(
        [this](char* text, size_t* length) { return m_library.DevGetDataStreamID(m_device, 0, text, length); },
        "DevGetDataStreamID");
    GenTLLibrary::Check(m_library.DevOpenDataStream(m_device, id.c_str(), &m_stream), "DevOpenDataStream");
    GenTLLibrary::Check(m_library.GCRegisterEvent(m_stream, GenTL::EVENT_NEW_BUFFER, &m_newBuffer), "GCRegisterEvent");
}

uint64_t GrabSession::PayloadSize() const
{
    const std::optional<uint64_t> size =
        GenTLLibrary::Number([this](GenTL::INFO_DATATYPE* type, void* buffer, size_t* space) {
            return m_library.DSGetInfo(m_stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, type, buffer, space);
        });
    if (!size || *size == 0)
    {
        throw ToolFailure(ExitCode::NoStream, "the stream did not start: the producer tells no payload size");
    }
    return *size;
}

void GrabSession::TakeMemory(size_t count)
{
    const uint64_t memory = m_memoryBudget.Take(m_bufferBytes, count);
    const uint64_t fitting = memory / m_bufferBytes;
    if (fitting < count)
    {
        throw ToolFailure(
            ExitCode::NoStream,
            fmt::format("the stream did not start: {} buffers for the payload of {} bytes do not fit this "
                        "machine's memory, of which {} bytes are available; {}",
                        count, m_bufferBytes, memory,
                        fitting == 0 ? "not one would" : fmt::format("at most --buffers {} would", fitting)));
    }
    m_takenBytes = count * m_bufferBytes;
    m_lockedBytes = m_memoryBudget.Taken();
    const std::string complaint = m_ours && MachineHasRdmaDevice() ? LockedMemoryComplaint(m_lockedBytes) : "";
    if (!complaint.empty())
    {
        throw ToolFailure(ExitCode::NoStream, "the stream did not start: " + complaint);
    }
}

void GrabSession::AnnounceBuffers(BufferOrigin origin, size_t count)
{
    m_bufferBytes = PayloadSize();
    TakeMemory(count);
    for (size_t index = 0; index < count; ++index)
    {
        GenTL::BUFFER_HANDLE buffer = nullptr;
        if (origin == BufferOrigin::Library)
        {
            GenTLLibrary::Check(m_library.DSAllocAndAnnounceBuffer(m_stream, m_bufferBytes, nullptr, &buffer),
                                "DSAllocAndAnnounceBuffer");
        }
        else
        {
            m_memory.emplace_back(m_bufferBytes);
            GenTLLibrary::Check(
                m_library.DSAnnounceBuffer(m_stream, m_memory.back().Begin(), m_bufferBytes, nullptr, &buffer),
                "DSAnnounceBuffer");
        }
        m_buffers.push_back(buffer);
        GenTLLibrary::Check(m_library.DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
}

void GrabSession::ListenTo(const std::string& event)
{
    m_events = std::make_unique<CameraEvents>(m_library, m_device, *m_acquisition, event);
}

void GrabSession::Start()
{
    m_acquisition->LockPayload(true);
    const GenTL::GC_ERROR code = m_library.DSStartAcquisition(m_stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    m_started = code == GenTL::GC_ERR_SUCCESS;
    if (m_started)
    {
        m_acquisition->Start();
        return;
    }
    m_acquisition->LockPayload(false);
    if (!ReadRegister(kControlPrivilegeRegister))
    {
        throw ToolFailure(ExitCode::CameraLost, WhyNoFrames());
    }
    const ExitCode exitCode = code == GenTL::GC_ERR_ACCESS_DENIED ? ExitCode::CameraInUse : ExitCode::NoStream;
    throw ToolFailure(exitCode,
                      fmt::format("the stream did not start: {} ({}). {}", ErrorName(code), code, WhyNoStart(code)));
}

std::string GrabSession::WhyNoStart(GenTL::GC_ERROR code) const
{
    if (code == GenTL::GC_ERR_ACCESS_DENIED)
    {
        return fmt::format("This program does not control the camera {} any more: another one took it, or the camera "
                           "gave it up; `nq-gev list` tells who controls it.",
                           m_cameraId);
    }
    const std::optional<FolderProblem> folder = RunsOnSoftwareRdma() ? SoftwareRdmaFolderProblem() : std::nullopt;
    if (folder)
    {
        return fmt::format("The software RDMA refuses its folder {}: {}; `nq-gev --software-rdma doctor` has the line "
                           "that mends it.",
                           folder->folder, folder->why);
    }
    if (const std::string complaint = LockedMemoryComplaint(m_lockedBytes); !complaint.empty())
    {
        return fmt::format("It wants more memory than it may have: {}. Raise that limit, or take fewer --buffers.",
                           complaint);
    }
    if (code == GenTL::GC_ERR_OUT_OF_MEMORY)
    {
        return "This machine has too little memory for it: take fewer --buffers.";
    }
    if (code == GenTL::GC_ERR_RESOURCE_EXHAUSTED)
    {
        return "This machine has too little memory for it: take fewer --buffers. Or a frame is longer than the longest "
               "message that the port of its RDMA device tells of: take a smaller picture, or --answers stated, which "
               "does not ask the port.";
    }
    if (RunsOnSoftwareRdma())
    {
        return fmt::format("The camera {} answers on its control channel but refused or did not answer the RDMA "
                           "connection: it has to run on software RDMA too (nq-gev-camera --software-rdma), on this "
                           "machine and as the same user.",
                           m_address);
    }
    const std::string advice = SoftwareRdmaAdvice();
    return fmt::format("The camera {} answers on its control channel{}", m_address,
                       advice.empty()
                           ? " but refused or did not answer the RDMA connection, or the RDMA device of this "
                             "machine had no room for it."
                           : "." + advice);
}

void GrabSession::Stop()
{
    if (m_started)
    {
        if (!m_silent) // which would be waited for in vain
        {
            m_acquisition->Stop();
        }
        m_library.DSStopAcquisition(m_stream, GenTL::ACQ_STOP_FLAGS_KILL);
        m_started = false;
        if (!m_silent)
        {
            m_acquisition->LockPayload(false);
        }
    }
}

std::optional<Frame> GrabSession::Next(uint64_t timeoutMs)
{
    GenTL::EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    const GenTL::GC_ERROR code = m_library.EventGetData(m_newBuffer, &data, &size, timeoutMs);
    const auto now = std::chrono::steady_clock::now();
    if (code == GenTL::GC_ERR_TIMEOUT || (code == GenTL::GC_ERR_SUCCESS && data.BufferHandle == nullptr))
    {
        return std::nullopt;
    }
    if (code == GenTL::GC_ERR_ABORT)
    {
        throw StreamGivenUp();
    }
    GenTLLibrary::Check(code, "EventGetData");
    m_anyFrame = true;
    Frame frame;
    frame.buffer = data.BufferHandle;
    frame.arrived = now;
    frame.refusal = Describe(frame);
    return frame;
}

std::string GrabSession::Describe(Frame& frame)
{
    const auto known = std::find(m_buffers.begin(), m_buffers.end(), frame.buffer);
    if (known == m_buffers.end())
    {
        frame.buffer = nullptr;
        return "it comes in a buffer that nobody announced";
    }
    frame.data =
        static_cast<const uint8_t*>(GenTLLibrary::Pointer([&](GenTL::INFO_DATATYPE* type, void* value, size_t* size) {
            return m_library.DSGetBufferInfo(m_stream, frame.buffer, GenTL::BUFFER_INFO_BASE, type, value, size);
        }));
    frame.size = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_SIZE_FILLED, Frame::kUntold);
    frame.width = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_WIDTH);
    frame.height = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_HEIGHT);
    frame.pixelFormat = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_PIXELFORMAT);
    frame.frameId = BufferNumber(frame.buffer, GenTL::BUFFER_INFO_FRAMEID);
    frame.cameraTime = MaybeNumber(frame.buffer, GenTL::BUFFER_INFO_TIMESTAMP);
    frame.cameraTimeNs = MaybeNumber(frame.buffer, GenTL::BUFFER_INFO_TIMESTAMP_NS);
    frame.offsetX = static_cast<uint32_t>(BufferNumber(frame.buffer, GenTL::BUFFER_INFO_XOFFSET));
    frame.offsetY = static_cast<uint32_t>(BufferNumber(frame.buffer, GenTL::BUFFER_INFO_YOFFSET));
    frame.incomplete = SeesNewIncomplete(frame.buffer);
    const auto index = static_cast<size_t>(known - m_buffers.begin());
    std::string refusal = WhyRefused(frame, m_bufferBytes);
    if (refusal.empty() && !m_memory.empty() && !m_memory[index].Holds(frame.data, frame.size))
    {
        refusal = "it is said to lie outside its buffer";
    }
    return refusal;
}

void GrabSession::Requeue(const Frame& frame)
{
    if (frame.buffer == nullptr)
    {
        return;
    }
    GenTLLibrary::Check(m_library.DSQueueBuffer(m_stream, frame.buffer), "DSQueueBuffer");
}

bool GrabSession::SeesNewIncomplete(GenTL::BUFFER_HANDLE buffer)
{
    if (BufferNumber(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE) == 0)
    {
        return false;
    }
    if (!m_flagStays)
    {
        return true;
    }
    // Only the first sight of the flag tells of a new short frame.
    const bool seen = std::find(m_seenIncomplete.begin(), m_seenIncomplete.end(), buffer) != m_seenIncomplete.end();
    if (!seen)
    {
        m_seenIncomplete.push_back(buffer);
    }
    return !seen;
}

std::optional<uint64_t> GrabSession::MaybeNumber(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const
{
    return GenTLLibrary::Number([&](GenTL::INFO_DATATYPE* type, void* value, size_t* size) {
        return m_library.DSGetBufferInfo(m_stream, buffer, command, type, value, size);
    });
}

uint64_t GrabSession::Underruns() const
{
    return GenTLLibrary::Number([this](GenTL::INFO_DATATYPE* type, void* value, size_t* size) {
               return m_library.DSGetInfo(m_stream, GenTL::STREAM_INFO_NUM_UNDERRUN, type, value, size);
           })
        .value_or(0);
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

bool GrabSession::IsStreaming() const
{
    constexpr uint32_t kRunning = 0x80000000;
    return m_ours ? (ReadRegister(kStreamEnableRegister).value_or(0) & kRunning) != 0
                  : ReadRegister(kControlPrivilegeRegister).has_value();
}

std::string GrabSession::WhyNoFrames()
{
    m_silent = !ReadRegister(kControlPrivilegeRegister);
    if (m_silent)
    {
        return fmt::format(
            "the camera {0} went silent: its control channel does not answer (`nq-gev doctor --camera {0}` "
            "tells more)",
            m_address);
    }
    if (m_ours && ReadRegister(kStreamEnableRegister) == 0U)
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
        "RDMA connection is broken{}",
        m_address, m_acquisition->Remark(m_anyFrame));
}

} // namespace nq::tool
