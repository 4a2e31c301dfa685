// SPDX-License-Identifier: Apache-2.0
// Calls of the system, the interfaces and the devices.
#include "fuzz/calls/caller.h"

namespace nq::fuzz
{
namespace
{

constexpr const char* kAdapterId = "Linux Socket:02-00-00-00-00-0a";
constexpr const char* kCameraId = "Model:02-00-00-00-00-01";
constexpr const char* kStreamId = "Stream:0";

bool Is(const char* id, const char* right)
{
    return id != nullptr && std::string(id) == right;
}

/// An info command that adapters answer.
bool IsAdapterCommand(int command)
{
    return (command >= 0 && command <= 2) || (command >= 0xA000 && command <= 0xA003);
}

/// Checks a text query by index: `count` entries, of which each is `id`.
int IdResult(std::uint32_t index, std::size_t count, bool noSize, const char* buffer, std::size_t space,
             std::size_t needed)
{
    if (noSize || index >= count)
    {
        return noSize ? -1009 : -1017;
    }
    return buffer == nullptr || space >= needed ? 0 : -1016;
}

/// The arguments of a query for an id by index.
struct IdArguments
{
    explicit IdArguments(FuzzInput& input)
        : index(static_cast<std::uint32_t>(input.Below(3))), space(input.Below(4) == 1 ? input.Below(40) : 64),
          memory(std::make_unique<char[]>(space)), size(space), noSize(input.Below(16) == 1),
          buffer(input.Below(4) == 1 ? nullptr : memory.get())
    {
    }

    std::uint32_t index;
    std::size_t space;
    std::unique_ptr<char[]> memory;
    std::size_t size;
    bool noSize;
    char* buffer;
};

} // namespace

void Caller::TLOpen()
{
    const bool noOutput = m_input.Below(16) == 1;
    void* handle = nullptr;
    const int result = GenTL::TLOpen(noOutput ? nullptr : &handle);
    const bool open = m_model.Find(m_model.systemHandle) != nullptr;
    Expect("TLOpen", result, !m_model.initialised ? -1002 : noOutput ? -1009 : open ? -1004 : 0);
    if (result == 0)
    {
        Require(m_model.systemHandle == nullptr || m_model.systemHandle == handle, "the system keeps its handle");
        m_model.systemHandle = handle;
        m_model.Add(handle, Kind::System, nullptr);
    }
}

void Caller::TLClose()
{
    // Rarely, or no sequence gets anywhere.
    void* const handle = m_input.Below(4) == 0 ? m_model.Pick(m_input, Kind::System) : nullptr;
    const int result = GenTL::TLClose(handle);
    if (!m_model.initialised)
    {
        Expect("TLClose", result, -1002);
        return;
    }
    Module* const system = m_model.Find(handle, Kind::System);
    const bool ours = handle != nullptr && handle == m_model.systemHandle;
    Expect("TLClose", result, !ours ? -1006 : system == nullptr ? -1001 : 0);
    if (system != nullptr)
    {
        m_model.Remove(system);
    }
}

void Caller::TLGetInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::System);
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    const int result = GenTL::TLGetInfo(handle, info.command, info.typePointer, info.buffer, info.sizePointer);
    if (Reaches("TLGetInfo", result, m_model.Find(handle, Kind::System) != nullptr))
    {
        const bool known = info.command >= 0 && info.command <= 10;
        ExpectInfo("TLGetInfo", result, info, info.Incomplete() ? -1009 : known ? 0 : -1003);
    }
}

void Caller::TLGetNumInterfaces()
{
    void* const handle = m_model.Pick(m_input, Kind::System);
    const bool noCount = m_input.Below(16) == 1;
    std::uint32_t count = 99;
    const int result = GenTL::TLGetNumInterfaces(handle, noCount ? nullptr : &count);
    if (Reaches("TLGetNumInterfaces", result, m_model.Find(handle, Kind::System) != nullptr))
    {
        Expect("TLGetNumInterfaces", result, noCount ? -1009 : 0);
        Require(noCount || count == (m_model.adapterListed ? 1U : 0U), "the number of interfaces", count);
    }
}

void Caller::TLGetInterfaceID()
{
    void* const handle = m_model.Pick(m_input, Kind::System);
    IdArguments id(m_input);
    const int result = GenTL::TLGetInterfaceID(handle, id.index, id.buffer, id.noSize ? nullptr : &id.size);
    if (Reaches("TLGetInterfaceID", result, m_model.Find(handle, Kind::System) != nullptr))
    {
        const std::size_t count = m_model.adapterListed ? 1 : 0;
        Expect("TLGetInterfaceID", result,
               IdResult(id.index, count, id.noSize, id.buffer, id.space, std::strlen(kAdapterId) + 1));
        Require(result != 0 || id.buffer == nullptr || Is(id.buffer, kAdapterId), "the adapter's id");
    }
}

void Caller::TLGetInterfaceInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::System);
    const char* const id = Id(kAdapterId);
    InfoArguments info(m_input, {0, 1, 2, 0xA000, 0xA001, 0xA002, 0xA003, 0xA004});
    const int result =
        GenTL::TLGetInterfaceInfo(handle, id, info.command, info.typePointer, info.buffer, info.sizePointer);
    const Module* const system = m_model.Find(handle, Kind::System);
    if (!Reaches("TLGetInterfaceInfo", result, system != nullptr))
    {
        return;
    }
    const bool open = Is(id, kAdapterId) && m_model.Child(system, Kind::Interface) != nullptr;
    const bool listed = Is(id, kAdapterId) && m_model.adapterListed;
    const int refused = info.sizePointer == nullptr       ? -1009
                        : !open && !listed                ? -1007
                        : info.typePointer == nullptr     ? -1009
                        : !IsAdapterCommand(info.command) ? (open ? -1003 : -1014)
                                                          : 0;
    ExpectInfo("TLGetInterfaceInfo", result, info, refused);
}

void Caller::TLOpenInterface()
{
    void* const handle = m_model.Pick(m_input, Kind::System);
    const char* const id = Id(kAdapterId);
    const bool noOutput = m_input.Below(16) == 1;
    void* interface = nullptr;
    const int result = GenTL::TLOpenInterface(handle, id, noOutput ? nullptr : &interface);
    Module* const system = m_model.Find(handle, Kind::System);
    if (!Reaches("TLOpenInterface", result, system != nullptr))
    {
        return;
    }
    const bool right = Is(id, kAdapterId);
    const bool open = right && m_model.Child(system, Kind::Interface) != nullptr;
    Expect("TLOpenInterface", result, id == nullptr || noOutput ? -1009 : open ? -1004 : right ? 0 : -1007);
    if (result == 0 || result == -1007)
    {
        m_model.adapterListed = true; // an id that is not known leads to a scan
    }
    if (result == 0)
    {
        m_model.Add(interface, Kind::Interface, system);
    }
}

void Caller::TLUpdateInterfaceList()
{
    void* const handle = m_model.Pick(m_input, Kind::System);
    GenTL::bool8_t changed = false;
    const bool noOutput = m_input.Below(4) == 1;
    const int result = GenTL::TLUpdateInterfaceList(handle, noOutput ? nullptr : &changed, m_input.Byte());
    if (Reaches("TLUpdateInterfaceList", result, m_model.Find(handle, Kind::System) != nullptr))
    {
        Expect("TLUpdateInterfaceList", result, 0);
        Require(noOutput || (changed != 0) != m_model.adapterListed, "the first scan changes the list");
        m_model.adapterListed = true;
    }
}

void Caller::IFClose()
{
    void* const handle = m_model.Pick(m_input, m_input.Below(4) == 0 ? Kind::Interface : Kind::Buffer);
    const int result = GenTL::IFClose(handle);
    Module* const interface = m_model.Find(handle, Kind::Interface);
    if (Reaches("IFClose", result, interface != nullptr))
    {
        Expect("IFClose", result, 0);
        m_model.Remove(interface);
    }
}

void Caller::IFGetInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    InfoArguments info(m_input, {0, 1, 2, 0xA000, 0xA001, 0xA002, 0xA003, 0xA004});
    const int result = GenTL::IFGetInfo(handle, info.command, info.typePointer, info.buffer, info.sizePointer);
    if (Reaches("IFGetInfo", result, m_model.Find(handle, Kind::Interface) != nullptr))
    {
        ExpectInfo("IFGetInfo", result, info, info.Incomplete() ? -1009 : IsAdapterCommand(info.command) ? 0 : -1003);
    }
}

void Caller::IFGetNumDevices()
{
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    const bool noCount = m_input.Below(16) == 1;
    std::uint32_t count = 99;
    const int result = GenTL::IFGetNumDevices(handle, noCount ? nullptr : &count);
    const Module* const interface = m_model.Find(handle, Kind::Interface);
    if (Reaches("IFGetNumDevices", result, interface != nullptr))
    {
        Expect("IFGetNumDevices", result, noCount ? -1009 : 0);
        Require(noCount || count == (interface->cameraListed ? 1U : 0U), "the number of cameras", count);
    }
}

void Caller::IFGetDeviceID()
{
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    IdArguments id(m_input);
    const int result = GenTL::IFGetDeviceID(handle, id.index, id.buffer, id.noSize ? nullptr : &id.size);
    const Module* const interface = m_model.Find(handle, Kind::Interface);
    if (Reaches("IFGetDeviceID", result, interface != nullptr))
    {
        const std::size_t count = interface->cameraListed ? 1 : 0;
        Expect("IFGetDeviceID", result,
               IdResult(id.index, count, id.noSize, id.buffer, id.space, std::strlen(kCameraId) + 1));
    }
}

void Caller::IFUpdateDeviceList()
{
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    static constexpr std::uint64_t kTimeouts[] = {1, 50, 150, 1000};
    const std::uint64_t timeout = CameraIsSilent() && m_input.Flag() ? 0 : kTimeouts[m_input.Below(4)];
    GenTL::bool8_t changed = false;
    const int result = GenTL::IFUpdateDeviceList(handle, &changed, timeout);
    Module* const interface = m_model.Find(handle, Kind::Interface);
    if (Reaches("IFUpdateDeviceList", result, interface != nullptr))
    {
        Expect("IFUpdateDeviceList", result, 0);
        Require((changed != 0) == (interface->cameraListed != !CameraIsSilent()), "whether the list has changed");
        interface->cameraListed = !CameraIsSilent();
    }
}

void Caller::IFGetDeviceInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    const char* const id = Id(kCameraId);
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0xB000, 0xB005, 0xB006, 0xB008, 0xB009});
    const int result =
        GenTL::IFGetDeviceInfo(handle, id, info.command, info.typePointer, info.buffer, info.sizePointer);
    const Module* const interface = m_model.Find(handle, Kind::Interface);
    if (!Reaches("IFGetDeviceInfo", result, interface != nullptr))
    {
        return;
    }
    const bool open = Is(id, kCameraId) && m_model.Child(interface, Kind::Device) != nullptr;
    const bool listed = Is(id, kCameraId) && interface->cameraListed;
    const bool ofBoth = (info.command >= 0 && info.command <= 8) || (info.command >= 0xB000 && info.command <= 0xB005);
    const bool ofOpen = info.command == 9 || (info.command >= 0xB006 && info.command <= 0xB008);
    const bool asksCamera = open && (info.command == 6 || ofOpen);
    const int refused = id == nullptr || info.sizePointer == nullptr ? -1009
                        : !open && !listed                           ? -1007
                        : info.typePointer == nullptr                ? -1009
                        : !ofBoth && !(open && ofOpen)               ? -1003
                        : asksCamera && !CameraHelps()               ? -1010
                                                                     : 0;
    ExpectInfo("IFGetDeviceInfo", result, info, refused);
}

void Caller::IFOpenDevice()
{
    static constexpr int kModes[] = {2, 3, 4, 0, 1, 5, 999, 1000, 3, 3, 3, 3, 2, 2, 4, 4};
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    const char* const id = Id(kCameraId);
    const int flags = kModes[m_input.Below(std::size(kModes))];
    const bool noOutput = m_input.Below(16) == 1;
    const std::uint32_t privilege = m_camera.Get(0x0A00);
    void* device = nullptr;
    const int result = GenTL::IFOpenDevice(handle, id, flags, noOutput ? nullptr : &device);
    Module* const interface = m_model.Find(handle, Kind::Interface);
    if (!Reaches("IFOpenDevice", result, interface != nullptr))
    {
        return;
    }
    const bool open = Is(id, kCameraId) && m_model.Child(interface, Kind::Device) != nullptr;
    if (id == nullptr || noOutput || (flags >= 5 && flags <= 999) || open)
    {
        Expect("IFOpenDevice", result, open && !noOutput && (flags < 5 || flags > 999) ? -1004 : -1009);
        return;
    }
    if (!Is(id, kCameraId) || !interface->cameraListed)
    {
        interface->cameraListed = !CameraIsSilent(); // it scans
    }
    const bool known = Is(id, kCameraId) && interface->cameraListed;
    // A refusing camera's answer to the probe holds a 0.
    const bool silent = CameraIsSilent();
    const std::uint32_t seen = CameraHelps() ? privilege : 0;
    const bool denied = (!silent && seen == 1) || (flags != 2 && (silent || seen != 0));
    const bool mode = flags == 2 || flags == 3 || flags == 4;
    Expect("IFOpenDevice", result, !known ? -1007 : !mode ? -1003 : denied ? -1005 : 0);
    if (result == 0)
    {
        AfterOpening(*interface, device);
    }
}

void Caller::AfterOpening(Module& interface, void* handle)
{
    Module& device = m_model.Add(handle, Kind::Device, &interface);
    device.hasStream = CameraHelps();
    void* port = nullptr;
    Expect("DevGetPort", GenTL::DevGetPort(handle, &port), 0);
    m_model.Add(port, Kind::Remote, &device);
}

void Caller::DevGetPort()
{
    void* const handle = m_model.Pick(m_input, Kind::Device);
    const bool noOutput = m_input.Below(16) == 1;
    void* port = nullptr;
    const int result = GenTL::DevGetPort(handle, noOutput ? nullptr : &port);
    const Module* const device = m_model.Find(handle, Kind::Device);
    if (Reaches("DevGetPort", result, device != nullptr))
    {
        Expect("DevGetPort", result, noOutput ? -1009 : 0);
        Require(noOutput || m_model.Find(port, Kind::Remote) == m_model.Child(device, Kind::Remote), "the port");
    }
}

void Caller::DevGetNumDataStreams()
{
    void* const handle = m_model.Pick(m_input, Kind::Device);
    const bool noCount = m_input.Below(16) == 1;
    std::uint32_t count = 99;
    const int result = GenTL::DevGetNumDataStreams(handle, noCount ? nullptr : &count);
    const Module* const device = m_model.Find(handle, Kind::Device);
    if (Reaches("DevGetNumDataStreams", result, device != nullptr))
    {
        Expect("DevGetNumDataStreams", result, noCount ? -1009 : 0);
        Require(noCount || count == (device->hasStream ? 1U : 0U), "the number of streams", count);
    }
}

void Caller::DevGetDataStreamID()
{
    void* const handle = m_model.Pick(m_input, Kind::Device);
    IdArguments id(m_input);
    const int result = GenTL::DevGetDataStreamID(handle, id.index, id.buffer, id.noSize ? nullptr : &id.size);
    const Module* const device = m_model.Find(handle, Kind::Device);
    if (Reaches("DevGetDataStreamID", result, device != nullptr))
    {
        const std::size_t count = device->hasStream ? 1 : 0;
        Expect("DevGetDataStreamID", result,
               IdResult(id.index, count, id.noSize, id.buffer, id.space, std::strlen(kStreamId) + 1));
    }
}

void Caller::DevOpenDataStream()
{
    void* const handle = m_model.Pick(m_input, Kind::Device);
    const char* const id = Id(kStreamId);
    const bool noOutput = m_input.Below(16) == 1;
    void* output = nullptr;
    const int result = GenTL::DevOpenDataStream(handle, id, noOutput ? nullptr : &output);
    Module* const device = m_model.Find(handle, Kind::Device);
    if (!Reaches("DevOpenDataStream", result, device != nullptr))
    {
        return;
    }
    Module* stream = m_model.Child(device, Kind::Stream);
    const bool open = stream != nullptr && stream->open;
    const bool known = Is(id, kStreamId) && device->hasStream;
    Expect("DevOpenDataStream", result,
           id == nullptr || noOutput ? -1009
           : !known                  ? -1007
           : open                    ? -1004
           : CameraHelps()           ? 0
                                     : -1001);
    if (result == 0)
    {
        Require(stream == nullptr || stream->handle == output, "a stream keeps its handle");
        stream = stream == nullptr ? &m_model.Add(output, Kind::Stream, device) : stream;
        stream->open = true;
        stream->started = false;
    }
}

void Caller::DevGetInfo()
{
    void* const handle = m_model.Pick(m_input, Kind::Device);
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0xB000, 0xB003, 0xB005, 0xB006, 0xB008, 0xB009});
    const int result = GenTL::DevGetInfo(handle, info.command, info.typePointer, info.buffer, info.sizePointer);
    if (!Reaches("DevGetInfo", result, m_model.Find(handle, Kind::Device) != nullptr))
    {
        return;
    }
    const bool known = (info.command >= 0 && info.command <= 9) || (info.command >= 0xB000 && info.command <= 0xB008);
    const bool asksCamera = info.command == 6 || info.command == 9 || (info.command >= 0xB006 && known);
    const int refused = info.Incomplete() ? -1009 : !known ? -1003 : asksCamera && !CameraHelps() ? -1010 : 0;
    ExpectInfo("DevGetInfo", result, info, refused);
}

void Caller::DevClose()
{
    void* const handle = m_model.Pick(m_input, m_input.Below(4) == 0 ? Kind::Device : Kind::Buffer);
    const int result = GenTL::DevClose(handle);
    Module* const device = m_model.Find(handle, Kind::Device);
    if (Reaches("DevClose", result, device != nullptr))
    {
        Expect("DevClose", result, 0);
        m_model.Remove(device);
    }
}

void Caller::IFGetParentTL()
{
    void* const handle = m_model.Pick(m_input, Kind::Interface);
    void* parent = nullptr;
    void** const output = m_input.Below(16) == 1 ? nullptr : &parent;
    ExpectParent("IFGetParentTL", GenTL::IFGetParentTL(handle, output), handle, Kind::Interface, output);
}

void Caller::DevGetParentIF()
{
    void* const handle = m_model.Pick(m_input, Kind::Device);
    void* parent = nullptr;
    void** const output = m_input.Below(16) == 1 ? nullptr : &parent;
    ExpectParent("DevGetParentIF", GenTL::DevGetParentIF(handle, output), handle, Kind::Device, output);
}

} // namespace nq::fuzz
