// SPDX-License-Identifier: Apache-2.0
// System, interface and device: open and close, lists, ids and infos.
#include "state.h"

#include <atomic>
#include <chrono>
#include <cstdlib>

using namespace GenTL;

namespace nq::faulty
{

uint32_t Interfaces()
{
    return Fault("ids_change_by_session") ? 2 : 1;
}

std::string OtherInterfaceId()
{
    return "made-up-in-session-" + std::to_string(The().sessions);
}

uint32_t Devices()
{
    return Fault("device_listed_twice") ? 2 : 1;
}

namespace
{

/// No fault: a machine may stand still anywhere. NQ_STALL_AT_FREQUENCY=5 does so for a second at the fifth question.
void StallAtQuestion()
{
    static std::atomic<int> asked = 0;
    const char* const at = std::getenv("NQ_STALL_AT_FREQUENCY");
    if (++asked == (at == nullptr ? 0 : std::atoi(at)))
    {
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

GC_ERROR Unknown()
{
    return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
}

GC_ERROR InterfaceInfo(INTERFACE_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    switch (command)
    {
    case INTERFACE_INFO_ID:
        return AnswerText(kInterfaceId, type, buffer, size);
    case INTERFACE_INFO_DISPLAYNAME:
        return Fault("mandatory_info_missing")
                   ? GC_ERR_NOT_IMPLEMENTED
                   : AnswerText(Fault("text_not_ascii") ? "Made-\xFCp" : "Made-up interface", type, buffer, size);
    case INTERFACE_INFO_TLTYPE:
        return AnswerText(TLTypeCustomName, type, buffer, size);
    default:
        return Unknown();
    }
}

uint32_t Streams()
{
    return Fault("streams_change") && The().stream != nullptr ? 2 : 1;
}

int32_t AccessStatus()
{
    const State& s = The();
    if (s.device == nullptr && CameraIsTaken())
    {
        return Fault("busy_is_no_access") ? DEVICE_ACCESS_STATUS_NOACCESS : DEVICE_ACCESS_STATUS_BUSY;
    }
    if (s.device == nullptr || Fault("status_never_open"))
    {
        return DEVICE_ACCESS_STATUS_READWRITE;
    }
    return s.access == DEVICE_ACCESS_READONLY ? DEVICE_ACCESS_STATUS_OPEN_READONLY
                                              : DEVICE_ACCESS_STATUS_OPEN_READWRITE;
}

GC_ERROR DeviceInfo(DEVICE_INFO_CMD command, bool byHandle, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    switch (command)
    {
    case DEVICE_INFO_ID:
        return AnswerText(kDeviceId, type, buffer, size);
    case DEVICE_INFO_VENDOR:
        return AnswerText(byHandle && Fault("device_info_differs") ? "Other" : "Made up", type, buffer, size);
    case DEVICE_INFO_MODEL:
        return AnswerText("Camera", type, buffer, size);
    case DEVICE_INFO_TLTYPE:
        return AnswerText(Fault("device_is_mixed") ? TLTypeMixedName : TLTypeCustomName, type, buffer, size);
    case DEVICE_INFO_DISPLAYNAME:
        return AnswerText("Made up Camera (made-up-camera)", type, buffer, size);
    case DEVICE_INFO_ACCESS_STATUS:
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, AccessStatus(), type, buffer, size);
    case DEVICE_INFO_USER_DEFINED_NAME:
        return GC_ERR_NOT_AVAILABLE;
    case DEVICE_INFO_SERIAL_NUMBER:
        return Fault("no_serial_number") ? GC_ERR_NOT_AVAILABLE : AnswerText("0001", type, buffer, size);
    case DEVICE_INFO_VERSION:
        return AnswerText("1", type, buffer, size);
    case DEVICE_INFO_TIMESTAMP_FREQUENCY:
        return AnswerValue<uint64_t>(INFO_DATATYPE_UINT64,
                                     Fault("frequency_turned") ? __builtin_bswap64(kFrequency) : kFrequency, type,
                                     buffer, size);
    default:
        return Unknown();
    }
}

} // namespace

void CloseDevice(std::unique_lock<std::mutex>& lock)
{
    State& s = The();
    if (s.device == nullptr)
    {
        return;
    }
    CloseStream(lock);
    EndEvents(s.device);
    EndEvents(s.remote);
    s.device = nullptr;
    ReleaseCamera();
    if (!Fault("remote_port_outlives_device"))
    {
        s.remote = nullptr;
    }
    s.cameraSends = false;
}

void CloseInterface(std::unique_lock<std::mutex>& lock)
{
    State& s = The();
    if (!Fault("device_outlives_interface"))
    {
        CloseDevice(lock);
    }
    EndEvents(s.interface);
    s.interface = nullptr;
    s.devicesListed = false;
}

void CloseSystem(std::unique_lock<std::mutex>& lock)
{
    State& s = The();
    CloseInterface(lock);
    EndEvents(s.system);
    s.system = nullptr;
    s.interfacesListed = false;
    if (!s.open)
    {
        return;
    }
    s.memory.clear();
}

} // namespace nq::faulty

using namespace nq::faulty;

extern "C" GC_API TLOpen(TL_HANDLE* phTL)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (!s.open)
    {
        return GC_ERR_NOT_INITIALIZED;
    }
    if (phTL == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (s.closedOnce && Fault("system_opens_once"))
    {
        return Result(GC_ERR_RESOURCE_IN_USE);
    }
    if (s.system != nullptr)
    {
        if (Fault("open_twice_gives_handle"))
        {
            *phTL = s.system;
            return GC_ERR_SUCCESS;
        }
        return Result(GC_ERR_RESOURCE_IN_USE);
    }
    *phTL = s.system = NewHandle();
    FillPort(s.system, Kind::System);
    return GC_ERR_SUCCESS;
}

extern "C" GC_API TLClose(TL_HANDLE hTL)
{
    std::unique_lock lock(The().mutex);
    const GC_ERROR code = CheckHandle(hTL, Kind::System);
    if (code == GC_ERR_SUCCESS)
    {
        CloseSystem(lock);
        The().closedOnce = true;
    }
    return Result(code);
}

extern "C" GC_API TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hTL, Kind::System); code != 0)
    {
        return Result(code);
    }
    if (piNumIfaces == nullptr)
    {
        return Result(Fault("null_count_is_success") ? GC_ERR_SUCCESS : GC_ERR_INVALID_PARAMETER);
    }
    *piNumIfaces = The().interfacesListed ? Interfaces() : 0;
    return Result(GC_ERR_SUCCESS);
}

extern "C" GC_API TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hTL, Kind::System); code != 0)
    {
        return Result(code);
    }
    if (!The().interfacesListed || iIndex >= Interfaces())
    {
        return Result(Fault("wrong_index_is_id") ? GC_ERR_INVALID_ID : GC_ERR_INVALID_INDEX);
    }
    return Result(AnswerId(iIndex == 0 ? kInterfaceId : OtherInterfaceId().c_str(), sID, piSize));
}

extern "C" GC_API TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd,
                                     INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hTL, Kind::System); code != 0)
    {
        return Result(code);
    }
    if (sIfaceID == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    return Result(std::string_view(sIfaceID) != kInterfaceId ? GC_ERR_INVALID_ID
                                                             : InterfaceInfo(iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hTL, Kind::System); code != 0)
    {
        return Result(code);
    }
    if (sIfaceID == nullptr || phIface == nullptr)
    {
        return Result(Fault("null_id_is_id") ? GC_ERR_INVALID_ID : GC_ERR_INVALID_PARAMETER);
    }
    if (std::string_view(sIfaceID) != kInterfaceId)
    {
        return Result(Fault("unknown_id_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_INVALID_ID);
    }
    if (s.interface != nullptr)
    {
        return Result(GC_ERR_RESOURCE_IN_USE);
    }
    *phIface = s.interface = NewHandle();
    FillPort(s.interface, Kind::Interface);
    s.interfacesListed = s.interfacesListed || Fault("open_fills_list");
    return GC_ERR_SUCCESS;
}

extern "C" GC_API TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hTL, Kind::System); code != 0)
    {
        return Result(code);
    }
    if (pbChanged == nullptr && Fault("changed_must_be_given"))
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (pbChanged != nullptr)
    {
        *pbChanged = !s.interfacesListed || Fault("always_changed");
    }
    s.interfacesListed = true;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API IFClose(IF_HANDLE hIface)
{
    std::unique_lock lock(The().mutex);
    const GC_ERROR code = CheckHandle(hIface, Kind::Interface);
    if (code == GC_ERR_SUCCESS)
    {
        CloseInterface(lock);
    }
    return Result(code);
}

extern "C" GC_API IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                            size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    const GC_ERROR code = CheckHandle(hIface, Kind::Interface);
    return Result(code != 0 ? code : InterfaceInfo(iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hIface, Kind::Interface); code != 0)
    {
        return Result(code);
    }
    if (piNumDevices == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    ++The().counted;
    const bool forgotten = Fault("list_forgets") && The().counted % 10 == 0;
    *piNumDevices = The().devicesListed && !forgotten ? Devices() : 0;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hIface, Kind::Interface); code != 0)
    {
        return Result(code);
    }
    if (!The().devicesListed || iIndex >= Devices())
    {
        return Result(Fault("wrong_device_index_is_id") ? GC_ERR_INVALID_ID : GC_ERR_INVALID_INDEX);
    }
    return Result(AnswerId(kDeviceId, sIDeviceID, piSize));
}

extern "C" GC_API IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hIface, Kind::Interface); code != 0)
    {
        return Result(code);
    }
    if (pbChanged != nullptr)
    {
        *pbChanged = !s.devicesListed || Fault("always_changed");
    }
    if (Fault("update_of_0_waits") && iTimeout == 0)
    {
        std::this_thread::sleep_for(std::chrono::seconds(2));
    }
    if (Fault("update_never_ends") && iTimeout == GENTL_INFINITE)
    {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
    s.devicesListed = true;
    if (Fault("update_closes_device") && s.device != nullptr)
    {
        s.device = nullptr;
        ReleaseCamera();
    }
    return GC_ERR_SUCCESS;
}

extern "C" GC_API IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd,
                                  INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hIface, Kind::Interface); code != 0)
    {
        return Result(code);
    }
    if (sDeviceID == nullptr)
    {
        return Result(Fault("info_of_no_id_is_id") ? GC_ERR_INVALID_ID : GC_ERR_INVALID_PARAMETER);
    }
    return Result(std::string_view(sDeviceID) != kDeviceId ? GC_ERR_INVALID_ID
                                                           : DeviceInfo(iInfoCmd, false, piType, pBuffer, piSize));
}

extern "C" GC_API IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags,
                               DEV_HANDLE* phDevice)
{
    const std::lock_guard lock(The().mutex);
    State& s = The();
    if (const GC_ERROR code = CheckHandle(hIface, Kind::Interface); code != 0)
    {
        return Result(code);
    }
    if (sDeviceID == nullptr || phDevice == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (std::string_view(sDeviceID) != kDeviceId)
    {
        if (Fault("failed_open_leaves_open"))
        {
            s.device = NewHandle();
        }
        return Result(GC_ERR_INVALID_ID);
    }
    if ((iOpenFlags < DEVICE_ACCESS_READONLY || iOpenFlags > DEVICE_ACCESS_EXCLUSIVE) && !Fault("any_flag_opens"))
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (s.device != nullptr)
    {
        return Result(Fault("device_in_use_is_denied") ? GC_ERR_ACCESS_DENIED : GC_ERR_RESOURCE_IN_USE);
    }
    if (iOpenFlags == DEVICE_ACCESS_EXCLUSIVE && Fault("exclusive_is_parameter"))
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    if (!ClaimCamera() && !Fault("device_shared_by_processes"))
    {
        DisturbOwner();
        return Result(GC_ERR_ACCESS_DENIED);
    }
    *phDevice = s.device = NewHandle();
    s.remote = NewHandle();
    s.access = iOpenFlags;
    FillPort(s.device, Kind::Device);
    FillPort(s.remote, Kind::Remote);
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                             size_t* piSize)
{
    if (iInfoCmd == DEVICE_INFO_TIMESTAMP_FREQUENCY)
    {
        StallAtQuestion();
    }
    const std::lock_guard lock(The().mutex);
    const GC_ERROR code = CheckHandle(hDevice, Kind::Device);
    return Result(code != 0 ? code : DeviceInfo(iInfoCmd, true, piType, pBuffer, piSize));
}

extern "C" GC_API DevClose(DEV_HANDLE hDevice)
{
    std::unique_lock lock(The().mutex);
    const bool byPort = Fault("remote_port_closes_device") && KindOf(hDevice) == Kind::Remote;
    const GC_ERROR code = byPort ? GC_ERR_SUCCESS : CheckHandle(hDevice, Kind::Device);
    if (code == GC_ERR_SUCCESS && !Fault("device_never_closes"))
    {
        CloseDevice(lock);
    }
    return Result(code);
}

extern "C" GC_API DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hDevice, Kind::Device); code != 0)
    {
        return Result(code);
    }
    if (phRemoteDevice == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    *phRemoteDevice = The().remote;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hDevice, Kind::Device); code != 0)
    {
        return Result(code);
    }
    if (piNumDataStreams == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    *piNumDataStreams = Streams();
    return GC_ERR_SUCCESS;
}

extern "C" GC_API DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(hDevice, Kind::Device); code != 0)
    {
        return Result(code);
    }
    return Result(iIndex >= Streams() ? GC_ERR_INVALID_INDEX : AnswerId(kStreamId, sDataStreamID, piSize));
}

namespace
{

GC_ERROR Parent(void* handle, Kind kind, void* parent, void** out)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckHandle(handle, kind); code != 0)
    {
        return Result(code);
    }
    if (out == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    *out = Fault("parent_is_another") ? handle : parent;
    return GC_ERR_SUCCESS;
}

} // namespace

extern "C" GC_API IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem)
{
    return Parent(hIface, Kind::Interface, The().system, phSystem);
}

extern "C" GC_API DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface)
{
    return Parent(hDevice, Kind::Device, The().interface, phIface);
}

#ifndef NQ_WITHOUT_A_FUNCTION
extern "C" GC_API DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice)
{
    return Parent(hDataStream, Kind::Stream, The().device, phDevice);
}
#endif
