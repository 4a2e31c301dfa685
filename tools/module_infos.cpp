// SPDX-License-Identifier: Apache-2.0
// Every info command of every module of a producer, in every state that disturbs nobody.
#include "module_infos.h"

#include "info_commands.h"
#include "info_value.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <utility>

namespace nq::tool
{

using nlohmann::ordered_json;

namespace
{

constexpr uint32_t kMostOfAKind = 16; ///< URLs, parts or streams of a module
constexpr size_t kBufferBytes = 4096;

/// An info function with a command still to come.
using CommandCall = std::function<GenTL::GC_ERROR(int32_t, GenTL::INFO_DATATYPE*, void*, size_t*)>;

/// `function` with all bound that comes before the command.
template <typename Function, typename... First>
CommandCall Of(Function function, First... first)
{
    return [=](int32_t command, GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return function(first..., command, type, buffer, size);
    };
}

/// Undoes something at the end of its scope.
class AtEnd
{
  public:
    explicit AtEnd(std::function<void()> work) : m_work(std::move(work)) {}
    ~AtEnd() { m_work(); }
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;

  private:
    const std::function<void()> m_work;
};

/// Walks down the modules of one producer.
class InfoWalk
{
  public:
    InfoWalk(const System& system, const std::function<void()>& afterEach)
        : m_system(system), m_library(system.Library()), m_afterEach(afterEach)
    {
    }

    ordered_json Run(uint64_t timeoutMs);

  private:
    void Begin(const char* module, const std::string& id, const char* state);
    void Refused(const char* function, GenTL::GC_ERROR code);
    void Ask(const char* function, InfoCommands commands, const CommandCall& call, std::optional<uint32_t> index = {});
    void AskPort(GenTL::PORT_HANDLE port);
    void AskEvents(GenTL::EVENTSRC_HANDLE source);
    void AskInterface(const std::string& id, uint64_t timeoutMs);
    void AskClosed(const Interface& interface, const CameraEntry& camera);
    void AskDevice(const Interface& interface, const CameraEntry& camera);
    void AskStreams(GenTL::DEV_HANDLE device);
    void AskBuffer(GenTL::DS_HANDLE stream, GenTL::BUFFER_HANDLE buffer, const char* state);
    void AskBuffers(GenTL::DS_HANDLE stream);

    const System& m_system;
    GenTLLibrary& m_library;
    const std::function<void()>& m_afterEach;
    ordered_json m_modules = ordered_json::array();
};

void InfoWalk::Begin(const char* module, const std::string& id, const char* state)
{
    m_modules.push_back({{"module", module},
                         {"id", id},
                         {"state", state},
                         {"producer", m_library.Path()},
                         {"problem", ""},
                         {"infos", ordered_json::array()}});
}

void InfoWalk::Refused(const char* function, GenTL::GC_ERROR code)
{
    m_modules.back()["problem"] = fmt::format("{} failed: {} ({})", function, ErrorName(code), code);
}

void InfoWalk::Ask(const char* function, InfoCommands commands, const CommandCall& call, std::optional<uint32_t> index)
{
    for (const InfoCommand& row : commands)
    {
        const InfoAnswer answer = AskInfo([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
            return call(row.command, type, buffer, size);
        });
        const bool told = answer.code == GenTL::GC_ERR_SUCCESS;
        m_modules.back()["infos"].push_back(
            {{"function", function},
             {"index", index ? ordered_json(*index) : ordered_json(nullptr)},
             {"command", row.command},
             {"name", row.name},
             {"type", told ? ordered_json(InfoTypeText(answer.type)) : ordered_json(nullptr)},
             {"value", told ? InfoValueJson(answer) : ordered_json(nullptr)},
             {"error", told ? ordered_json(nullptr) : ordered_json(ErrorName(answer.code))}});
    }
}

void InfoWalk::AskPort(GenTL::PORT_HANDLE port)
{
    Ask("GCGetPortInfo", kPortCommands, Of(m_library.GCGetPortInfo, port));
    uint32_t count = 0;
    if (m_library.GCGetNumPortURLs(port, &count) != GenTL::GC_ERR_SUCCESS)
    {
        return;
    }
    for (uint32_t index = 0; index < std::min(count, kMostOfAKind); ++index)
    {
        Ask("GCGetPortURLInfo", kUrlCommands, Of(m_library.GCGetPortURLInfo, port, index), index);
    }
}

void InfoWalk::AskEvents(GenTL::EVENTSRC_HANDLE source)
{
    constexpr int32_t kLast = GenTL::EVENT_MODULE;
    for (int32_t type = 0; type <= kLast; ++type)
    {
        GenTL::EVENT_HANDLE event = nullptr;
        if (m_library.GCRegisterEvent(source, type, &event) == GenTL::GC_ERR_SUCCESS)
        {
            const AtEnd unregister([&] { m_library.GCUnregisterEvent(source, type); });
            Ask("EventGetInfo", kEventCommands, Of(m_library.EventGetInfo, event), static_cast<uint32_t>(type));
        }
    }
}

ordered_json InfoWalk::Run(uint64_t timeoutMs)
{
    Begin("library", m_library.Path(), "loaded");
    Ask("GCGetInfo", kSystemCommands, Of(m_library.GCGetInfo));
    Begin("system", m_system.Text(GenTL::TL_INFO_ID), "open");
    Ask("TLGetInfo", kSystemCommands, Of(m_library.TLGetInfo, m_system.Handle()));
    AskPort(m_system.Handle());
    AskEvents(m_system.Handle());
    for (const std::string& id : m_system.InterfaceIds())
    {
        try
        {
            AskInterface(id, timeoutMs);
        }
        catch (const std::runtime_error& failure)
        {
            m_modules.back()["problem"] = failure.what();
        }
    }
    return std::move(m_modules);
}

void InfoWalk::AskInterface(const std::string& id, uint64_t timeoutMs)
{
    const InfoCommands ours = m_system.IsOurs() ? kOurInterfaceCommands : InfoCommands();
    const CommandCall closed = Of(m_library.TLGetInterfaceInfo, m_system.Handle(), id.c_str());
    Begin("interface", id, "closed");
    Ask("TLGetInterfaceInfo", kInterfaceCommands, closed);
    Ask("TLGetInterfaceInfo", ours, closed);
    const Interface interface(m_system, id);
    const CommandCall open = Of(m_library.IFGetInfo, interface.Handle());
    Begin("interface", id, "open");
    Ask("IFGetInfo", kInterfaceCommands, open);
    Ask("IFGetInfo", ours, open);
    AskPort(interface.Handle());
    AskEvents(interface.Handle());
    const InterfaceEntry scanned = interface.Scan(timeoutMs);
    m_afterEach();
    for (const CameraEntry& camera : scanned.cameras)
    {
        AskClosed(interface, camera);
        AskDevice(interface, camera);
        m_afterEach();
    }
}

void InfoWalk::AskClosed(const Interface& interface, const CameraEntry& camera)
{
    const CommandCall call = Of(m_library.IFGetDeviceInfo, interface.Handle(), camera.id.c_str());
    const size_t ours = m_system.IsOurs() ? kOurClosedDeviceCommands : 0;
    Begin("device", camera.id, "closed");
    Ask("IFGetDeviceInfo", kDeviceCommands, call);
    Ask("IFGetDeviceInfo", kOurDeviceCommands.first(ours), call);
}

void InfoWalk::AskDevice(const Interface& interface, const CameraEntry& camera)
{
    GenTL::DEV_HANDLE device = nullptr;
    const GenTL::GC_ERROR opened =
        m_library.IFOpenDevice(interface.Handle(), camera.id.c_str(), GenTL::DEVICE_ACCESS_READONLY, &device);
    if (opened != GenTL::GC_ERR_SUCCESS)
    {
        Begin("device", camera.id, "open");
        Refused("IFOpenDevice for reading", opened);
        return;
    }
    const AtEnd close([&] { m_library.DevClose(device); });
    Begin("device", camera.id, "open");
    const CommandCall call = Of(m_library.DevGetInfo, device);
    Ask("DevGetInfo", kDeviceCommands, call);
    Ask("DevGetInfo", m_system.IsOurs() ? kOurDeviceCommands : InfoCommands(), call);
    AskPort(device);
    AskEvents(device);
    GenTL::PORT_HANDLE remote = nullptr;
    Begin("remote-device", camera.id, "open");
    const GenTL::GC_ERROR got = m_library.DevGetPort(device, &remote);
    got == GenTL::GC_ERR_SUCCESS ? AskPort(remote) : Refused("DevGetPort", got);
    AskStreams(device);
}

void InfoWalk::AskStreams(GenTL::DEV_HANDLE device)
{
    uint32_t count = 0;
    m_library.DevGetNumDataStreams(device, &count);
    for (uint32_t index = 0; index < std::min(count, kMostOfAKind); ++index)
    {
        const std::string id = GenTLLibrary::Id(
            [&](char* text, size_t* size) { return m_library.DevGetDataStreamID(device, index, text, size); },
            "DevGetDataStreamID");
        GenTL::DS_HANDLE stream = nullptr;
        const GenTL::GC_ERROR opened = m_library.DevOpenDataStream(device, id.c_str(), &stream);
        Begin("stream", id, "open");
        if (opened != GenTL::GC_ERR_SUCCESS)
        {
            Refused("DevOpenDataStream", opened);
            continue;
        }
        const AtEnd close([&] { m_library.DSClose(stream); });
        Ask("DSGetInfo", kStreamCommands, Of(m_library.DSGetInfo, stream));
        AskPort(stream);
        AskEvents(stream);
        AskBuffers(stream);
    }
}

void InfoWalk::AskBuffers(GenTL::DS_HANDLE stream)
{
    GenTL::BUFFER_HANDLE buffer = nullptr;
    const GenTL::GC_ERROR announced = m_library.DSAllocAndAnnounceBuffer(stream, kBufferBytes, nullptr, &buffer);
    if (announced != GenTL::GC_ERR_SUCCESS)
    {
        Begin("buffer", "", "announced");
        Refused("DSAllocAndAnnounceBuffer", announced);
        return;
    }
    const AtEnd revoke([&] {
        m_library.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_DISCARD);
        m_library.DSRevokeBuffer(stream, buffer, nullptr, nullptr);
    });
    AskBuffer(stream, buffer, "announced");
    const GenTL::GC_ERROR queued = m_library.DSQueueBuffer(stream, buffer);
    if (queued == GenTL::GC_ERR_SUCCESS)
    {
        AskBuffer(stream, buffer, "queued");
        return;
    }
    Begin("buffer", "", "queued");
    Refused("DSQueueBuffer", queued);
}

void InfoWalk::AskBuffer(GenTL::DS_HANDLE stream, GenTL::BUFFER_HANDLE buffer, const char* state)
{
    Begin("buffer", "", state);
    Ask("DSGetBufferInfo", kBufferCommands, Of(m_library.DSGetBufferInfo, stream, buffer));
    uint32_t parts = 0;
    if (m_library.DSGetNumBufferParts(stream, buffer, &parts) == GenTL::GC_ERR_SUCCESS)
    {
        for (uint32_t part = 0; part < std::min(parts, kMostOfAKind); ++part)
        {
            Ask("DSGetBufferPartInfo", kPartCommands, Of(m_library.DSGetBufferPartInfo, stream, buffer, part), part);
        }
    }
    AskPort(buffer);
}

} // namespace

ordered_json ModuleInfos(const System& system, uint64_t timeoutMs, const std::function<void()>& afterEach)
{
    return InfoWalk(system, afterEach).Run(timeoutMs);
}

} // namespace nq::tool
