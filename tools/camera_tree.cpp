// SPDX-License-Identifier: Apache-2.0
// The module tree of a producer, opened downward and closed by scope.
#include "camera_tree.h"

#include "exit_codes.h"
#include "nq_gev_gentl.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

constexpr uint64_t kInterfaceScanMs = 1000;

/// Throws ToolFailure for a list that is longer than any network has.
void CheckLength(uint32_t count, const char* function)
{
    constexpr uint32_t kMost = 4096;
    if (count > kMost)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{} claims {} entries", function, count));
    }
}

} // namespace

System::System(GenTLLibrary& library) : m_library(library)
{
    GenTLLibrary::Check(library.TLOpen(&m_handle), "TLOpen");
    const GenTL::GC_ERROR code = library.TLUpdateInterfaceList(m_handle, nullptr, kInterfaceScanMs);
    if (code != GenTL::GC_ERR_SUCCESS)
    {
        library.TLClose(m_handle);
        GenTLLibrary::Check(code, "TLUpdateInterfaceList");
    }
}

System::~System()
{
    m_library.TLClose(m_handle);
}

std::string System::Text(GenTL::TL_INFO_CMD command) const
{
    return GenTLLibrary::Text([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return m_library.TLGetInfo(m_handle, command, type, buffer, size);
    });
}

bool System::IsOurs() const
{
    return Text(GenTL::TL_INFO_ID) == "NQGenTLGevRDMA";
}

bool System::GivesStatedAnswers() const
{
    if (!IsOurs())
    {
        return false;
    }
    // It shows in any info call: its own answers clear all that they may write, the standard's write the value alone.
    std::string text(64, 'x');
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    size_t size = text.size();
    GenTLLibrary::Check(m_library.TLGetInfo(m_handle, GenTL::TL_INFO_TLTYPE, &type, text.data(), &size), "TLGetInfo");
    return text.back() != 'x';
}

void System::Update() const
{
    const GenTL::GC_ERROR code = m_library.TLUpdateInterfaceList(m_handle, nullptr, kInterfaceScanMs);
    GenTLLibrary::Check(code == GenTL::GC_ERR_TIMEOUT ? GenTL::GC_ERR_SUCCESS : code, "TLUpdateInterfaceList");
}

std::vector<std::string> System::InterfaceIds() const
{
    uint32_t count = 0;
    GenTLLibrary::Check(m_library.TLGetNumInterfaces(m_handle, &count), "TLGetNumInterfaces");
    CheckLength(count, "TLGetNumInterfaces");
    std::vector<std::string> ids;
    for (uint32_t index = 0; index < count; ++index)
    {
        ids.push_back(GenTLLibrary::Id(
            [&](char* text, size_t* size) { return m_library.TLGetInterfaceID(m_handle, index, text, size); },
            "TLGetInterfaceID"));
    }
    return ids;
}

Interface::Interface(const System& system, const std::string& id) : m_system(system), m_id(id)
{
    GenTLLibrary::Check(system.Library().TLOpenInterface(system.Handle(), id.c_str(), &m_handle), "TLOpenInterface");
}

Interface::~Interface()
{
    m_system.Library().IFClose(m_handle);
}

CameraEntry Interface::Describe(const std::string& cameraId) const
{
    GenTLLibrary& library = m_system.Library();
    const auto call = [&](GenTL::DEVICE_INFO_CMD command) {
        return [&library, command, this, &cameraId](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
            return library.IFGetDeviceInfo(m_handle, cameraId.c_str(), command, type, buffer, size);
        };
    };
    CameraEntry entry;
    entry.interfaceId = m_id;
    entry.id = cameraId;
    entry.vendor = GenTLLibrary::Text(call(GenTL::DEVICE_INFO_VENDOR));
    entry.model = GenTLLibrary::Text(call(GenTL::DEVICE_INFO_MODEL));
    entry.serial = GenTLLibrary::Text(call(GenTL::DEVICE_INFO_SERIAL_NUMBER));
    entry.userName = GenTLLibrary::Text(call(GenTL::DEVICE_INFO_USER_DEFINED_NAME));
    entry.accessStatus = GenTLLibrary::Number(call(GenTL::DEVICE_INFO_ACCESS_STATUS)).value_or(0);
    if (m_system.IsOurs())
    {
        entry.macAddress = GenTLLibrary::Number(call(GenTL::NQ_DEVICE_INFO_MAC)).value_or(0);
        entry.address = DottedAddress(GenTLLibrary::Number(call(GenTL::NQ_DEVICE_INFO_IP)).value_or(0));
    }
    return entry;
}

InterfaceEntry Interface::Scan(uint64_t timeoutMs) const
{
    GenTLLibrary& library = m_system.Library();
    GenTLLibrary::Check(library.IFUpdateDeviceList(m_handle, nullptr, timeoutMs), "IFUpdateDeviceList");
    InterfaceEntry entry;
    entry.id = m_id;
    entry.displayName = GenTLLibrary::Text([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return library.IFGetInfo(m_handle, GenTL::INTERFACE_INFO_DISPLAYNAME, type, buffer, size);
    });
    uint32_t count = 0;
    GenTLLibrary::Check(library.IFGetNumDevices(m_handle, &count), "IFGetNumDevices");
    CheckLength(count, "IFGetNumDevices");
    for (uint32_t index = 0; index < count; ++index)
    {
        entry.cameras.push_back(Describe(GenTLLibrary::Id(
            [&](char* text, size_t* size) { return library.IFGetDeviceID(m_handle, index, text, size); },
            "IFGetDeviceID")));
    }
    return entry;
}

GenTL::GC_ERROR Interface::OpenCamera(const std::string& cameraId, GenTL::DEV_HANDLE* device,
                                      GenTL::DEVICE_ACCESS_FLAGS access)
{
    constexpr uint64_t kLongestMs = 500;
    const std::lock_guard lock(m_opening);
    LookFor(cameraId, kLongestMs);
    return m_system.Library().IFOpenDevice(m_handle, cameraId.c_str(), access, device);
}

void Interface::LookFor(const std::string& cameraId, uint64_t timeoutMs) const
{
    for (const uint64_t ms : ShortScansFirst(timeoutMs))
    {
        const std::vector<CameraEntry> cameras = Scan(ms).cameras;
        if (std::any_of(cameras.begin(), cameras.end(),
                        [&](const CameraEntry& camera) { return camera.id == cameraId; }))
        {
            return;
        }
    }
}

std::vector<uint64_t> ShortScansFirst(uint64_t longestMs)
{
    std::vector<uint64_t> scansMs = {50, 100, 300};
    std::erase_if(scansMs, [longestMs](uint64_t ms) { return ms >= longestMs; });
    scansMs.push_back(longestMs);
    return scansMs;
}

std::vector<InterfaceEntry> ScanAll(const System& system, uint64_t timeoutMs, const std::function<void()>& afterEach)
{
    std::vector<InterfaceEntry> interfaces;
    for (const std::string& id : system.InterfaceIds())
    {
        interfaces.push_back(Interface(system, id).Scan(timeoutMs));
        afterEach();
    }
    return interfaces;
}

std::vector<InterfaceEntry> ScanAnew(const System& system, uint64_t timeoutMs, const std::function<void()>& afterEach)
{
    system.Update();
    std::vector<InterfaceEntry> interfaces;
    for (const std::string& id : system.InterfaceIds())
    {
        try
        {
            interfaces.push_back(Interface(system, id).Scan(timeoutMs));
        }
        catch (const GenTLError&)
        {
            interfaces.push_back({id, "", {}}); // it may have gone a moment ago
        }
        afterEach();
    }
    return interfaces;
}

std::string DottedAddress(uint64_t address)
{
    return fmt::format("{}.{}.{}.{}", (address >> 24) & 0xFF, (address >> 16) & 0xFF, (address >> 8) & 0xFF,
                       address & 0xFF);
}

std::string AccessStatusText(uint64_t status)
{
    switch (status)
    {
    case GenTL::DEVICE_ACCESS_STATUS_READWRITE:
        return "read/write";
    case GenTL::DEVICE_ACCESS_STATUS_READONLY:
        return "read only";
    case GenTL::DEVICE_ACCESS_STATUS_NOACCESS:
        return "no access";
    case GenTL::DEVICE_ACCESS_STATUS_BUSY:
        return "busy";
    case GenTL::DEVICE_ACCESS_STATUS_OPEN_READWRITE:
        return "open read/write";
    case GenTL::DEVICE_ACCESS_STATUS_OPEN_READONLY:
        return "open read only";
    default:
        return "unknown";
    }
}

} // namespace nq::tool
