// SPDX-License-Identifier: Apache-2.0
// Rules: lists and their updates, ids, opening and access.
#include "families.h"
#include "other_process.h"
#include "tree.h"

#include <chrono>
#include <fmt/format.h>
#include <set>
#include <thread>

namespace nq::check
{

namespace
{

using namespace GenTL;
using Clock = std::chrono::steady_clock;

long MillisecondsSince(Clock::time_point began)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
}

void Indices(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto count = static_cast<uint32_t>(InterfaceIds(c, tree.system).size());
    char text[1024];
    size_t size = sizeof text;
    for (const uint32_t index : {count, count + 1, UINT32_MAX})
    {
        c.Code(c.gentl.TLGetInterfaceID(tree.system, index, text, &size), {GC_ERR_INVALID_INDEX},
               fmt::format("TLGetInterfaceID of index {} of {}", index, count));
    }
    c.Code(c.gentl.TLGetNumInterfaces(tree.system, nullptr), {GC_ERR_INVALID_PARAMETER}, "TLGetNumInterfaces of null");
}

void DeviceIndices(Context& c)
{
    const Tree tree(c, Depth::Device);
    char text[1024];
    size_t size = sizeof text;
    c.Code(c.gentl.IFGetDeviceID(tree.interface, 1000000, text, &size), {GC_ERR_INVALID_INDEX},
           "IFGetDeviceID of index 1000000");
    c.Code(c.gentl.DevGetDataStreamID(tree.device, 1000000, text, &size),
           {GC_ERR_INVALID_INDEX, GC_ERR_NOT_IMPLEMENTED}, "DevGetDataStreamID of index 1000000");
    c.Code(c.gentl.IFGetNumDevices(tree.interface, nullptr), {GC_ERR_INVALID_PARAMETER}, "IFGetNumDevices of null");
    c.Code(c.gentl.DevGetNumDataStreams(tree.device, nullptr), {GC_ERR_INVALID_PARAMETER},
           "DevGetNumDataStreams of null");
}

void SizeOfId(Context& c, const char* name, const IdCall& call)
{
    size_t needed = 0;
    Context::Needs(call(nullptr, &needed), fmt::format("{} without buffer", name));
    std::string text(needed + 8, 'Z');
    size_t size = needed;
    c.Code(call(text.data(), &size), {GC_ERR_SUCCESS}, fmt::format("{} into exactly {} bytes", name, needed));
    const bool ends = needed > 0 && text.find('\0') == needed - 1 && text.substr(needed) == "ZZZZZZZZ";
    c.Expect(ends, fmt::format("{} tells {} bytes, and writes others", name, needed));
    size = needed - 1;
    c.Code(call(text.data(), &size), {GC_ERR_BUFFER_TOO_SMALL}, fmt::format("{} with one byte less", name));
    c.Code(call(text.data(), nullptr), {GC_ERR_INVALID_PARAMETER}, fmt::format("{} without size", name));
}

void SizesOfIds(Context& c)
{
    const Tree tree(c, Depth::Device);
    SizeOfId(c, "TLGetInterfaceID",
             [&](char* text, size_t* size) { return c.gentl.TLGetInterfaceID(tree.system, 0, text, size); });
    SizeOfId(c, "IFGetDeviceID",
             [&](char* text, size_t* size) { return c.gentl.IFGetDeviceID(tree.interface, 0, text, size); });
    SizeOfId(c, "DevGetDataStreamID",
             [&](char* text, size_t* size) { return c.gentl.DevGetDataStreamID(tree.device, 0, text, size); });
}

/// By hand, for a tree needs an update that takes null.
void ChangedIsOptional(Context& c)
{
    Context::Needs(c.gentl.GCInitLib(), "GCInitLib");
    TL_HANDLE system = nullptr;
    c.Require(c.gentl.TLOpen(&system), "TLOpen");
    c.Code(c.gentl.TLUpdateInterfaceList(system, nullptr, 100), {GC_ERR_SUCCESS}, "TLUpdateInterfaceList of null");
    c.gentl.GCCloseLib();
}

void NothingChanged(Context& c)
{
    const Tree tree(c, Depth::Interface);
    bool changed = true;
    c.Require(c.gentl.TLUpdateInterfaceList(tree.system, &changed, 1000), "TLUpdateInterfaceList");
    c.Require(c.gentl.TLUpdateInterfaceList(tree.system, &changed, 1000), "TLUpdateInterfaceList");
    c.Expect(!changed, "a repeated TLUpdateInterfaceList tells of a change");
    for (int round = 0; round < 2; ++round)
    {
        c.Require(c.gentl.IFUpdateDeviceList(tree.interface, &changed, 1000), "IFUpdateDeviceList");
    }
    c.Expect(!changed, "a repeated IFUpdateDeviceList tells of a change");
}

void ListsStay(Context& c)
{
    const Tree tree(c, Depth::Interface);
    c.Require(c.gentl.IFUpdateDeviceList(tree.interface, nullptr, 500), "IFUpdateDeviceList");
    const auto interfaces = InterfaceIds(c, tree.system);
    const auto devices = DeviceIds(c, tree.interface);
    for (int round = 0; round < 20; ++round)
    {
        c.Expect(InterfaceIds(c, tree.system) == interfaces, "the interfaces change without an update");
        c.Expect(DeviceIds(c, tree.interface) == devices, "the devices change without an update");
    }
}

void InfiniteUpdate(Context& c)
{
    const Tree tree(c, Depth::Interface);
    c.Code(c.gentl.TLUpdateInterfaceList(tree.system, nullptr, GENTL_INFINITE), {GC_ERR_SUCCESS},
           "TLUpdateInterfaceList without limit");
    c.Code(c.gentl.IFUpdateDeviceList(tree.interface, nullptr, GENTL_INFINITE), {GC_ERR_SUCCESS},
           "IFUpdateDeviceList without limit");
}

void UpdatesInTime(Context& c)
{
    const Tree tree(c, Depth::Interface);
    for (const uint64_t ms : {uint64_t{0}, uint64_t{300}})
    {
        const auto began = Clock::now();
        c.Code(c.gentl.IFUpdateDeviceList(tree.interface, nullptr, ms), {GC_ERR_SUCCESS, GC_ERR_TIMEOUT},
               fmt::format("IFUpdateDeviceList of {} ms", ms));
        const long took = MillisecondsSince(began);
        c.Expect(took < static_cast<long>(ms) + 1000, fmt::format("IFUpdateDeviceList of {} ms takes {} ms", ms, took));
    }
}

void IdsAreUnique(Context& c)
{
    const Tree tree(c, Depth::Device);
    c.gentl.IFUpdateDeviceList(tree.interface, nullptr, 500);
    for (const auto& ids : {InterfaceIds(c, tree.system), DeviceIds(c, tree.interface), StreamIds(c, tree.device)})
    {
        const std::set<std::string> different(ids.begin(), ids.end());
        c.Expect(different.size() == ids.size(), "an id comes twice in a list");
        c.Expect(!different.contains(""), "an id is empty");
    }
}

void IdsStay(Context& c)
{
    std::vector<std::string> before;
    for (int session = 0; session < 2; ++session)
    {
        const Tree tree(c, Depth::Device);
        std::vector<std::string> ids = InterfaceIds(c, tree.system);
        ids.push_back(c.target.deviceId); // which the tree found again
        const std::vector<std::string> streams = StreamIds(c, tree.device);
        ids.insert(ids.end(), streams.begin(), streams.end());
        c.Expect(session == 0 || ids == before, "the ids of a new session are others");
        before = ids;
    }
}

/// While the device is open, whatever is updated or opened meanwhile.
void StreamsStay(Context& c)
{
    Tree tree(c, Depth::Device);
    const auto before = StreamIds(c, tree.device);
    c.Require(c.gentl.IFUpdateDeviceList(tree.interface, nullptr, 500), "IFUpdateDeviceList");
    c.Expect(StreamIds(c, tree.device) == before, "the streams of a device are others after an update");
    if (!before.empty())
    {
        tree.OpenStream();
        c.Expect(StreamIds(c, tree.device) == before, "the streams of a device are others when one is open");
    }
}

void UpdateHarmsNothing(Context& c)
{
    const Tree tree(c, Depth::Stream);
    c.Require(c.gentl.TLUpdateInterfaceList(tree.system, nullptr, 500), "TLUpdateInterfaceList");
    c.Require(c.gentl.IFUpdateDeviceList(tree.interface, nullptr, 500), "IFUpdateDeviceList");
    uint32_t count = 0;
    c.Code(c.gentl.DevGetNumDataStreams(tree.device, &count), {GC_ERR_SUCCESS}, "DevGetNumDataStreams after an update");
    c.Expect(StreamFlag(c, tree.stream, STREAM_INFO_IS_GRABBING).has_value(), "DSGetInfo fails after an update");
}

void OpenTwice(Context& c)
{
    const Tree tree(c, Depth::System);
    TL_HANDLE other = nullptr;
    c.Code(c.gentl.TLOpen(&other), {GC_ERR_RESOURCE_IN_USE}, "a second TLOpen");
}

void OpenDeviceTwice(Context& c)
{
    const Tree tree(c, Depth::Stream);
    void* other = nullptr;
    c.Code(c.gentl.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &other), {GC_ERR_RESOURCE_IN_USE},
           "a second TLOpenInterface");
    c.Code(c.gentl.IFOpenDevice(tree.interface, c.target.deviceId.c_str(), DEVICE_ACCESS_CONTROL, &other),
           {GC_ERR_RESOURCE_IN_USE}, "a second IFOpenDevice");
    c.Code(c.gentl.DevOpenDataStream(tree.device, tree.streamId.c_str(), &other), {GC_ERR_RESOURCE_IN_USE},
           "a second DevOpenDataStream");
}

void OpenParameters(Context& c)
{
    const Tree tree(c, Depth::System);
    void* handle = nullptr;
    c.Code(c.gentl.TLOpenInterface(tree.system, nullptr, &handle), {GC_ERR_INVALID_PARAMETER},
           "TLOpenInterface of null");
    c.Code(c.gentl.TLOpenInterface(tree.system, "no such interface", nullptr), {GC_ERR_INVALID_PARAMETER},
           "TLOpenInterface without output");
    c.Code(c.gentl.TLOpenInterface(tree.system, "no such interface", &handle), {GC_ERR_INVALID_ID},
           "TLOpenInterface of an unknown id");
    c.Code(c.gentl.TLOpen(nullptr), {GC_ERR_INVALID_PARAMETER, GC_ERR_RESOURCE_IN_USE}, "TLOpen without output");
}

void OpenDeviceParameters(Context& c)
{
    const Tree tree(c, Depth::Device);
    void* handle = nullptr;
    c.Code(c.gentl.IFOpenDevice(tree.interface, nullptr, DEVICE_ACCESS_CONTROL, &handle), {GC_ERR_INVALID_PARAMETER},
           "IFOpenDevice of null");
    c.Code(c.gentl.DevOpenDataStream(tree.device, nullptr, &handle), {GC_ERR_INVALID_PARAMETER},
           "DevOpenDataStream of null");
    c.Code(c.gentl.DevOpenDataStream(tree.device, "no such stream", &handle),
           {GC_ERR_INVALID_ID, GC_ERR_NOT_IMPLEMENTED}, "DevOpenDataStream of an unknown id");
    c.Code(c.gentl.IFOpenDevice(tree.interface, "no such camera", DEVICE_ACCESS_CONTROL, nullptr),
           {GC_ERR_INVALID_PARAMETER}, "IFOpenDevice without output");
    c.Code(c.gentl.DevOpenDataStream(tree.device, "no such stream", nullptr),
           {GC_ERR_INVALID_PARAMETER, GC_ERR_NOT_IMPLEMENTED}, "DevOpenDataStream without output");
}

void OpenWithoutUpdate(Context& c)
{
    Context::Needs(c.gentl.GCInitLib(), "GCInitLib");
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    c.Require(c.gentl.TLOpen(&system), "TLOpen");
    uint32_t before = 0;
    uint32_t after = 0;
    c.Require(c.gentl.TLGetNumInterfaces(system, &before), "TLGetNumInterfaces");
    c.Require(c.gentl.TLOpenInterface(system, c.target.interfaceId.c_str(), &interface),
              "TLOpenInterface before an update");
    c.Require(c.gentl.TLGetNumInterfaces(system, &after), "TLGetNumInterfaces");
    c.Expect(before == after, "TLOpenInterface changes the list of interfaces");
    c.Require(c.gentl.IFGetNumDevices(interface, &before), "IFGetNumDevices");
    DEV_HANDLE device = nullptr;
    c.Require(c.gentl.IFOpenDevice(interface, c.target.deviceId.c_str(), DEVICE_ACCESS_CONTROL, &device),
              "IFOpenDevice before an update");
    c.Require(c.gentl.IFGetNumDevices(interface, &after), "IFGetNumDevices");
    c.Expect(before == after, "IFOpenDevice changes the list of devices");
    c.gentl.GCCloseLib();
}

void OpenFlags(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    for (const DEVICE_ACCESS_FLAGS flags : {int32_t{DEVICE_ACCESS_UNKNOWN}, 77})
    {
        DEV_HANDLE device = nullptr;
        c.Code(c.gentl.IFOpenDevice(tree.interface, c.target.deviceId.c_str(), flags, &device),
               {GC_ERR_INVALID_PARAMETER, GC_ERR_NOT_IMPLEMENTED}, fmt::format("IFOpenDevice with access {}", flags));
    }
}

int32_t AccessStatus(Context& c, const Tree& tree)
{
    return Info<int32_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
               return c.gentl.IFGetDeviceInfo(tree.interface, c.target.deviceId.c_str(), DEVICE_INFO_ACCESS_STATUS,
                                              type, buffer, size);
           })
        .value_or(-1);
}

void StatusFollows(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    const auto free = [&] {
        const int32_t status = AccessStatus(c, tree);
        return status == DEVICE_ACCESS_STATUS_READWRITE || status == DEVICE_ACCESS_STATUS_READONLY;
    };
    c.Expect(free(), fmt::format("the status of a free device is {}", AccessStatus(c, tree)));
    tree.OpenDevice();
    const int32_t open = AccessStatus(c, tree);
    c.Expect(open == DEVICE_ACCESS_STATUS_OPEN_READWRITE || open == DEVICE_ACCESS_STATUS_OPEN_READONLY,
             fmt::format("the status of an open device is {}", open));
    Context::Needs(c.gentl.DevClose(tree.device), "DevClose");
    tree.LookForCamera();
    c.Expect(free(), fmt::format("the status of a closed device is {}", AccessStatus(c, tree)));
}

void FailedOpen(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    DEV_HANDLE device = nullptr;
    const GC_ERROR code = c.gentl.IFOpenDevice(tree.interface, "no such camera", DEVICE_ACCESS_CONTROL, &device);
    c.Expect(code != GC_ERR_SUCCESS, "IFOpenDevice of an unknown id succeeds");
    c.Code(code, {GC_ERR_INVALID_ID}, "IFOpenDevice of an unknown id");
    c.Code(c.gentl.IFOpenDevice(tree.interface, c.target.deviceId.c_str(), DEVICE_ACCESS_CONTROL, &device),
           {GC_ERR_SUCCESS}, "IFOpenDevice after one that failed");
}

void HeldElsewhere(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    const OtherProcess other(c.target);
    if (other.Opened() != GC_ERR_SUCCESS)
    {
        Context::NotTried(fmt::format("another process does not get the camera: {}", other.Opened()));
    }
    tree.LookForCamera();
    const int32_t status = AccessStatus(c, tree);
    c.Expect(status == DEVICE_ACCESS_STATUS_BUSY,
             fmt::format("the status of a device that another process has open is {}", status));
    c.Code(c.gentl.IFOpenDevice(tree.interface, c.target.deviceId.c_str(), DEVICE_ACCESS_CONTROL, &tree.device),
           {GC_ERR_ACCESS_DENIED}, "IFOpenDevice of a device that another process has open");
}

void OpenExclusively(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    const GC_ERROR code =
        c.gentl.IFOpenDevice(tree.interface, c.target.deviceId.c_str(), DEVICE_ACCESS_EXCLUSIVE, &tree.device);
    if (!c.Code(code, {GC_ERR_SUCCESS, GC_ERR_NOT_IMPLEMENTED}, "exclusive IFOpenDevice") || code != GC_ERR_SUCCESS)
    {
        return;
    }
    const int32_t status = AccessStatus(c, tree);
    c.Expect(status == DEVICE_ACCESS_STATUS_OPEN_READWRITE,
             fmt::format("the status of a device open exclusively is {}", status));
}

/// Consumers in the field take buffers of 256 bytes for ids, and stop without these infos.
void WhatConsumersAsk(Context& c)
{
    const Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    c.Expect(c.target.interfaceId.size() < 256 && c.target.deviceId.size() < 256, "an id has 256 bytes or more");
    for (const DEVICE_INFO_CMD command :
         {DEVICE_INFO_ID, DEVICE_INFO_VENDOR, DEVICE_INFO_MODEL, DEVICE_INFO_SERIAL_NUMBER})
    {
        const auto text = TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.IFGetDeviceInfo(tree.interface, c.target.deviceId.c_str(), command, type, buffer, size);
        });
        c.Expect(text.has_value(), fmt::format("IFGetDeviceInfo, command {}, fails", command));
    }
}

constexpr Rule kRules[] = {
    {"LS-001", "an index beyond the interfaces is invalid", "6.3.2.3, 6.3.2.4, 6.3.2.5", Severity::Must, Needs::Nothing,
     Indices},
    {"LS-002", "an index beyond the devices or streams is invalid", "6.3.2.5", Severity::Must, Needs::Camera,
     DeviceIndices},
    {"LS-003", "ids are told in two calls, with exact sizes", "6.3.2.3, 6.3.2.4, 6.3.2.5", Severity::Must,
     Needs::Camera, SizesOfIds},
    {"LS-004", "an update need not tell whether the list changed", "6.3.2.8", Severity::Must, Needs::Nothing,
     ChangedIsOptional},
    {"LS-005", "a repeated update tells of no change", "6.3.2.8", Severity::Must, Needs::Camera, NothingChanged},
    {"LS-006", "lists change by updates only", "3.2, 3.7", Severity::Must, Needs::Camera, ListsStay},
    {"LS-007", "an update without limit ends in reasonable time", "6.3.3.7", Severity::Must, Needs::Camera,
     InfiniteUpdate},
    {"LS-008", "an update keeps its limit, with a margin of a second", "6.3.3.7", Severity::Should, Needs::Camera,
     UpdatesInTime, "0 is not mentioned for updates"},
    {"LS-009", "ids are not empty, and unique in their list", "3.3, 3.4", Severity::Must, Needs::Camera, IdsAreUnique},
    {"LS-010", "ids stay the same in a new session", "3.2, 3.3, 3.4", Severity::Must, Needs::Camera, IdsStay},
    {"LS-011", "an update harms no open module", "3.7", Severity::Must, Needs::Camera, UpdateHarmsNothing},
    {"LS-012", "ids are shorter than 256 bytes; a device tells id, vendor, model and serial number", "", Severity::May,
     Needs::Camera, WhatConsumersAsk},
    {"LS-013", "the streams of a device stay the same", "3.4", Severity::Must, Needs::Camera, StreamsStay},
    {"OP-001", "a second TLOpen finds the system in use", "6.3.2.6", Severity::Must, Needs::Nothing, OpenTwice},
    {"OP-002", "a second open of interface, device or stream finds it in use", "6.3.2.6, 6.3.2.7", Severity::Must,
     Needs::Camera, OpenDeviceTwice},
    {"OP-003", "opening an interface checks its arguments", "6.3.2.7", Severity::Must, Needs::Nothing, OpenParameters},
    {"OP-004", "opening a device or stream checks its arguments", "6.3.3.6", Severity::Must, Needs::Camera,
     OpenDeviceParameters},
    {"OP-005", "a known id opens without an update, and no list changes by it", "3.2, 3.7", Severity::Must,
     Needs::Camera, OpenWithoutUpdate},
    {"OP-006", "access flags that do not exist are refused", "6.3.3.6", Severity::Must, Needs::Camera, OpenFlags},
    {"OP-007", "the access status is free, open, and free again", "6.4.3.2", Severity::Should, Needs::Camera,
     StatusFollows},
    {"OP-008", "an open that fails leaves nothing open", "6.1.5", Severity::Must, Needs::Camera, FailedOpen},
    {"OP-009",
     "a device that another process has open is busy, and is not opened",
     "6.1.4, 6.4.3.2",
     Severity::Must,
     Needs::Camera,
     HeldElsewhere,
     {},
     40},
    {"OP-010", "exclusive access works, or is not implemented", "6.4.3.1, 6.3.3.6", Severity::Must, Needs::Camera,
     OpenExclusively},
};

} // namespace

std::span<const Rule> ListRules()
{
    return kRules;
}

} // namespace nq::check
