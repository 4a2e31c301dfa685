// SPDX-License-Identifier: Apache-2.0
// The registers and the description of one port.
#include "port_access.h"

#include "camera_owner.h"
#include "port_url.h"
#include "stop_signals.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>

namespace nq::tool
{

namespace
{

constexpr uint64_t kLargestFile = uint64_t{64} << 20;

} // namespace

bool PortAccess::Note(GenTL::GC_ERROR code, bool whole)
{
    const GenTL::GC_ERROR came = code == GenTL::GC_ERR_SUCCESS && !whole ? GenTL::GC_ERR_IO : code;
    m_failure = m_failure == GenTL::GC_ERR_SUCCESS ? came : m_failure;
    return came == GenTL::GC_ERR_SUCCESS;
}

bool PortAccess::Read(uint64_t address, void* data, size_t size)
{
    size_t moved = size;
    const GenTL::GC_ERROR code = m_library.GCReadPort(m_port, address, data, &moved);
    return Note(code, moved == size);
}

bool PortAccess::Write(uint64_t address, const void* data, size_t size)
{
    size_t moved = size;
    const GenTL::GC_ERROR code = m_library.GCWritePort(m_port, address, data, &moved);
    const bool done = Note(code, moved == size);
    m_writeFailed = m_writeFailed || !done;
    return done;
}

std::string PortAccess::Text(GenTL::PORT_INFO_CMD command)
{
    return GenTLLibrary::Text([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return m_library.GCGetPortInfo(m_port, command, type, buffer, size);
    });
}

bool PortAccess::IsGigECamera()
{
    return m_camera && Text(GenTL::PORT_INFO_TLTYPE) == "GEV";
}

PortAccess::Control PortAccess::AskForControl()
{
    constexpr uint64_t kControlPrivilege = 0x0A00; // a register that every GigE Vision camera has
    constexpr unsigned kExclusive = 1;             // in its last byte
    constexpr unsigned kAny = 3;
    if (Text(GenTL::PORT_INFO_MODULE) != "Device" || !m_camera)
    {
        return Control::Kept;
    }
    uint8_t privilege[4] = {};
    size_t size = sizeof privilege;
    const GenTL::GC_ERROR read = m_library.GCReadPort(m_port, kControlPrivilege, privilege, &size);
    if (read != GenTL::GC_ERR_SUCCESS)
    {
        return Control::Silent;
    }
    if (!m_writeFailed)
    {
        const bool denied = m_failure == GenTL::GC_ERR_ACCESS_DENIED;
        return denied && (privilege[3] & kExclusive) != 0 ? Control::Lost : Control::Kept;
    }
    if (!IsGigECamera())
    {
        return Control::Kept;
    }
    if ((privilege[3] & kAny) == 0)
    {
        return Control::Lost;
    }
    // To its holder the camera gives again what he has.
    size = sizeof privilege;
    return m_library.GCWritePort(m_port, kControlPrivilege, privilege, &size) == GenTL::GC_ERR_ACCESS_DENIED
               ? Control::Lost
               : Control::Kept;
}

ToolFailure PortAccess::Explained(const std::string& what)
{
    switch (AskForControl())
    {
    case Control::Silent:
        return WentSilent(*m_camera, what);
    case Control::Lost:
        return {
            ExitCode::CameraInUse,
            fmt::format("{}: another program controls {}, or the control of this one has ended; `nq-gev list` tells "
                        "who controls it",
                        what, m_who)};
    case Control::Kept:
        break;
    }
    return {ExitCode::Failure, fmt::format("{}: {} refuses it: {} ({})", what, m_who, ErrorName(m_failure), m_failure)};
}

std::string PortAccess::Url(uint32_t index)
{
    const std::string url = GenTLLibrary::Text([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return m_library.GCGetPortURLInfo(m_port, index, GenTL::URL_INFO_URL, type, buffer, size);
    });
    const auto old = [this](char* text, size_t* size) { return m_library.GCGetPortURL(m_port, text, size); };
    return url.empty() && index == 0 ? GenTLLibrary::Id(old, "GCGetPortURL") : url;
}

std::string PortAccess::LocalFile(uint64_t address, size_t size)
{
    constexpr size_t kPart = 16384; // takes a slow camera a second
    std::string bytes(size, '\0');
    ForgetFailure();
    for (size_t at = 0; at < size; at += kPart)
    {
        EndIfStopAsked("stopped while its description was read");
        if (!Read(address + at, bytes.data() + at, std::min(kPart, size - at)))
        {
            throw ToolFailure(Explained("its description"));
        }
    }
    return bytes;
}

DescriptionFile PortAccess::Description()
{
    uint32_t count = 1;
    m_library.GCGetNumPortURLs(m_port, &count);
    std::string urls;
    for (uint32_t index = 0; index < std::min(count, 16U); ++index)
    {
        const std::string url = Url(index);
        if (const auto local = ParseLocalUrl(url); local && local->length <= kLargestFile)
        {
            return {local->name, LocalFile(local->address, local->length)};
        }
        const size_t path = url.starts_with("file:///") ? 7 : 5;
        if (std::ifstream stream(url.starts_with("file:") ? url.substr(path) : "", std::ios::binary); stream)
        {
            return {std::filesystem::path(url).filename(), {std::istreambuf_iterator<char>(stream), {}}};
        }
        urls += (urls.empty() ? "" : ", ") + url;
    }
    if (AskForControl() == Control::Silent)
    {
        throw ToolFailure(Explained("its description")); // it could not tell its URL
    }
    throw ToolFailure(ExitCode::Failure, fmt::format("{} has no description that can be read here: {}", m_who,
                                                     urls.empty() ? "no URL" : urls));
}

} // namespace nq::tool
