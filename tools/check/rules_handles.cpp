// SPDX-License-Identifier: Apache-2.0
// Rules: handles that are null, of another kind, closed, or of a closed module; parents; opening again.
#include "acquisition.h"
#include "families.h"
#include "info_sets.h"

#include <fmt/format.h>

namespace nq::check
{

namespace
{

using namespace GenTL;

/// What a handle function is called with, apart from the handle: room for every output.
struct Room
{
    INFO_DATATYPE type = 0;
    char bytes[4096] = {};
    size_t size = sizeof bytes;
    uint32_t count = 0;
    void* handle = nullptr;
    bool changed = false;
};

struct HandleCall
{
    const char* name;
    std::function<GC_ERROR(void*, Room&)> call;
    bool optional = false; ///< a producer that cannot do it at all may say so first
};

std::vector<HandleCall> SystemCalls(const Producer& g)
{
    return {{"TLGetInfo", [&](void* h, Room& r) { return g.TLGetInfo(h, 0, &r.type, r.bytes, &r.size); }},
            {"TLGetNumInterfaces", [&](void* h, Room& r) { return g.TLGetNumInterfaces(h, &r.count); }},
            {"TLGetInterfaceID", [&](void* h, Room& r) { return g.TLGetInterfaceID(h, 0, r.bytes, &r.size); }},
            {"TLGetInterfaceInfo",
             [&](void* h, Room& r) { return g.TLGetInterfaceInfo(h, "x", 0, &r.type, r.bytes, &r.size); }},
            {"TLOpenInterface", [&](void* h, Room& r) { return g.TLOpenInterface(h, "x", &r.handle); }},
            {"TLUpdateInterfaceList", [&](void* h, Room& r) { return g.TLUpdateInterfaceList(h, &r.changed, 10); }},
            {"TLClose", [&](void* h, Room&) { return g.TLClose(h); }}};
}

std::vector<HandleCall> InterfaceCalls(const Producer& g)
{
    return {
        {"IFGetInfo", [&](void* h, Room& r) { return g.IFGetInfo(h, 0, &r.type, r.bytes, &r.size); }},
        {"IFGetNumDevices", [&](void* h, Room& r) { return g.IFGetNumDevices(h, &r.count); }},
        {"IFGetDeviceID", [&](void* h, Room& r) { return g.IFGetDeviceID(h, 0, r.bytes, &r.size); }},
        {"IFUpdateDeviceList", [&](void* h, Room& r) { return g.IFUpdateDeviceList(h, &r.changed, 10); }},
        {"IFGetDeviceInfo", [&](void* h, Room& r) { return g.IFGetDeviceInfo(h, "x", 0, &r.type, r.bytes, &r.size); }},
        {"IFOpenDevice", [&](void* h, Room& r) { return g.IFOpenDevice(h, "x", 3, &r.handle); }},
        {"IFGetParentTL", [&](void* h, Room& r) { return g.IFGetParentTL(h, &r.handle); }},
        {"IFClose", [&](void* h, Room&) { return g.IFClose(h); }}};
}

std::vector<HandleCall> DeviceCalls(const Producer& g)
{
    return {{"DevGetInfo", [&](void* h, Room& r) { return g.DevGetInfo(h, 0, &r.type, r.bytes, &r.size); }},
            {"DevGetPort", [&](void* h, Room& r) { return g.DevGetPort(h, &r.handle); }},
            {"DevGetNumDataStreams", [&](void* h, Room& r) { return g.DevGetNumDataStreams(h, &r.count); }},
            {"DevGetDataStreamID", [&](void* h, Room& r) { return g.DevGetDataStreamID(h, 0, r.bytes, &r.size); }},
            {"DevOpenDataStream", [&](void* h, Room& r) { return g.DevOpenDataStream(h, "x", &r.handle); }},
            {"DevGetParentIF", [&](void* h, Room& r) { return g.DevGetParentIF(h, &r.handle); }},
            {"DevClose", [&](void* h, Room&) { return g.DevClose(h); }}};
}

std::vector<HandleCall> StreamCalls(const Producer& g)
{
    return {
        {"DSGetInfo", [&](void* h, Room& r) { return g.DSGetInfo(h, 0, &r.type, r.bytes, &r.size); }},
        {"DSAnnounceBuffer", [&](void* h, Room& r) { return g.DSAnnounceBuffer(h, r.bytes, 64, nullptr, &r.handle); }},
        {"DSAllocAndAnnounceBuffer",
         [&](void* h, Room& r) { return g.DSAllocAndAnnounceBuffer(h, 64, nullptr, &r.handle); }},
        {"DSFlushQueue", [&](void* h, Room&) { return g.DSFlushQueue(h, ACQ_QUEUE_ALL_DISCARD); }},
        {"DSStartAcquisition", [&](void* h, Room&) { return g.DSStartAcquisition(h, 0, 1); }},
        {"DSStopAcquisition", [&](void* h, Room&) { return g.DSStopAcquisition(h, 0); }},
        {"DSGetBufferID", [&](void* h, Room& r) { return g.DSGetBufferID(h, 0, &r.handle); }},
        {"DSGetParentDev", [&](void* h, Room& r) { return g.DSGetParentDev(h, &r.handle); }},
        {"DSQueueBuffer", [&](void* h, Room&) { return g.DSQueueBuffer(h, nullptr); }},
        {"DSRevokeBuffer", [&](void* h, Room&) { return g.DSRevokeBuffer(h, nullptr, nullptr, nullptr); }},
        {"DSGetBufferInfo",
         [&](void* h, Room& r) { return g.DSGetBufferInfo(h, nullptr, 0, &r.type, r.bytes, &r.size); }},
        {"DSGetBufferChunkData", [&](void* h, Room& r) { return g.DSGetBufferChunkData(h, nullptr, nullptr, &r.size); },
         true},
        {"DSGetNumBufferParts", [&](void* h, Room& r) { return g.DSGetNumBufferParts(h, nullptr, &r.count); }, true},
        {"DSGetBufferPartInfo",
         [&](void* h, Room& r) { return g.DSGetBufferPartInfo(h, nullptr, 0, 0, &r.type, r.bytes, &r.size); }, true},
        {"DSClose", [&](void* h, Room&) { return g.DSClose(h); }}};
}

std::vector<HandleCall> PortCalls(const Producer& g)
{
    return {
        {"GCReadPort",
         [&](void* h, Room& r) {
             r.size = 4;
             return g.GCReadPort(h, 0, r.bytes, &r.size);
         }},
        {"GCWritePort",
         [&](void* h, Room& r) {
             r.size = 4;
             return g.GCWritePort(h, 0, r.bytes, &r.size);
         }},
        {"GCReadPortStacked",
         [&](void* h, Room& r) {
             PORT_REGISTER_STACK_ENTRY entry{0, r.bytes, 4};
             return g.GCReadPortStacked(h, &entry, &(r.size = 1));
         }},
        {"GCWritePortStacked",
         [&](void* h, Room& r) {
             PORT_REGISTER_STACK_ENTRY entry{0, r.bytes, 4};
             return g.GCWritePortStacked(h, &entry, &(r.size = 1));
         }},
        {"GCGetPortURL", [&](void* h, Room& r) { return g.GCGetPortURL(h, r.bytes, &r.size); }},
        {"GCGetPortInfo", [&](void* h, Room& r) { return g.GCGetPortInfo(h, 0, &r.type, r.bytes, &r.size); }},
        {"GCGetNumPortURLs", [&](void* h, Room& r) { return g.GCGetNumPortURLs(h, &r.count); }},
        {"GCGetPortURLInfo", [&](void* h, Room& r) { return g.GCGetPortURLInfo(h, 0, 0, &r.type, r.bytes, &r.size); }},
        {"GCRegisterEvent", [&](void* h, Room& r) { return g.GCRegisterEvent(h, EVENT_MODULE, &r.handle); }},
        {"GCUnregisterEvent", [&](void* h, Room&) { return g.GCUnregisterEvent(h, EVENT_MODULE); }}};
}

std::vector<HandleCall> EventCalls(const Producer& g)
{
    return {{"EventGetData", [&](void* h, Room& r) { return g.EventGetData(h, r.bytes, &r.size, 0); }},
            {"EventGetDataInfo",
             [&](void* h, Room& r) { return g.EventGetDataInfo(h, r.bytes, 16, 0, &r.type, r.bytes, &r.size); }},
            {"EventGetInfo", [&](void* h, Room& r) { return g.EventGetInfo(h, 0, &r.type, r.bytes, &r.size); }},
            {"EventFlush", [&](void* h, Room&) { return g.EventFlush(h); }},
            {"EventKill", [&](void* h, Room&) { return g.EventKill(h); }}};
}

/// Calls with the handle of a buffer.
std::vector<HandleCall> BufferCalls(const Producer& g, void* stream)
{
    return {{"DSQueueBuffer", [&g, stream](void* h, Room&) { return g.DSQueueBuffer(stream, h); }},
            {"DSRevokeBuffer", [&g, stream](void* h, Room&) { return g.DSRevokeBuffer(stream, h, nullptr, nullptr); }},
            {"DSGetBufferInfo",
             [&g, stream](void* h, Room& r) { return g.DSGetBufferInfo(stream, h, 0, &r.type, r.bytes, &r.size); }},
            {"DSGetBufferChunkData",
             [&g, stream](void* h, Room& r) { return g.DSGetBufferChunkData(stream, h, nullptr, &r.size); }, true},
            {"DSGetNumBufferParts",
             [&g, stream](void* h, Room& r) { return g.DSGetNumBufferParts(stream, h, &r.count); }, true}};
}

std::vector<HandleCall> AllCalls(const Producer& g)
{
    std::vector<HandleCall> all;
    for (const auto& calls :
         {SystemCalls(g), InterfaceCalls(g), DeviceCalls(g), StreamCalls(g), PortCalls(g), EventCalls(g)})
    {
        all.insert(all.end(), calls.begin(), calls.end());
    }
    return all;
}

void Refused(Context& c, const std::vector<HandleCall>& calls, void* handle, std::string_view what)
{
    for (const HandleCall& call : calls)
    {
        Room room;
        const GC_ERROR code = call.call(handle, room);
        if (!call.optional || code != GC_ERR_NOT_IMPLEMENTED)
        {
            c.Code(code, {GC_ERR_INVALID_HANDLE}, fmt::format("{} of {}", call.name, what));
        }
    }
}

void NullHandles(Context& c)
{
    const Tree tree(c, Depth::System);
    Refused(c, AllCalls(c.gentl), nullptr, "no handle");
}

void OtherKinds(Context& c)
{
    const Tree tree(c, Depth::System);
    for (const auto& calls : {InterfaceCalls(c.gentl), DeviceCalls(c.gentl), StreamCalls(c.gentl), EventCalls(c.gentl)})
    {
        Refused(c, calls, tree.system, "the system");
    }
}

void OtherKindsOfDevice(Context& c)
{
    const Acquisition tree(c, 1);
    Refused(c, SystemCalls(c.gentl), tree.interface, "the interface");
    Refused(c, InterfaceCalls(c.gentl), tree.device, "the device");
    Refused(c, DeviceCalls(c.gentl), tree.stream, "the stream");
    Refused(c, StreamCalls(c.gentl), tree.remote, "the remote port");
    Refused(c, EventCalls(c.gentl), tree.stream, "the stream");
    Refused(c, SystemCalls(c.gentl), tree.event, "the event");
}

void ClosedHandles(Context& c)
{
    const Tree tree(c, Depth::System);
    Context::Needs(c.gentl.TLClose(tree.system), "TLClose");
    Refused(c, SystemCalls(c.gentl), tree.system, "the closed system");
    Refused(c, PortCalls(c.gentl), tree.system, "the closed system");
}

void Descendants(Context& c)
{
    const Acquisition tree(c, 1);
    Context::Needs(c.gentl.IFClose(tree.interface), "IFClose");
    Refused(c, InterfaceCalls(c.gentl), tree.interface, "the closed interface");
    Refused(c, DeviceCalls(c.gentl), tree.device, "the device of the closed interface");
    Refused(c, StreamCalls(c.gentl), tree.stream, "the stream of the closed interface");
    Refused(c, EventCalls(c.gentl), tree.event, "the event of the closed interface");
    Room room;
    c.Code(c.gentl.GCGetPortInfo(tree.remote, 0, &room.type, room.bytes, &room.size), {GC_ERR_INVALID_HANDLE},
           "GCGetPortInfo of the remote port of the closed interface");
}

void RemotePortClosesNothing(Context& c)
{
    const Tree tree(c, Depth::Device);
    c.Code(c.gentl.DevClose(tree.remote), {GC_ERR_INVALID_HANDLE}, "DevClose of the remote port");
    uint32_t count = 0;
    c.Code(c.gentl.DevGetNumDataStreams(tree.device, &count), {GC_ERR_SUCCESS}, "DevGetNumDataStreams after it");
}

void Parents(Context& c)
{
    const Tree tree(c, Depth::Stream);
    void* parent = nullptr;
    c.Code(c.gentl.IFGetParentTL(tree.interface, &parent), {GC_ERR_SUCCESS}, "IFGetParentTL");
    c.Expect(parent == tree.system, "IFGetParentTL gives another handle than TLOpen");
    c.Code(c.gentl.DevGetParentIF(tree.device, &parent), {GC_ERR_SUCCESS}, "DevGetParentIF");
    c.Expect(parent == tree.interface, "DevGetParentIF gives another handle than TLOpenInterface");
    c.Code(c.gentl.DSGetParentDev(tree.stream, &parent), {GC_ERR_SUCCESS}, "DSGetParentDev");
    c.Expect(parent == tree.device, "DSGetParentDev gives another handle than IFOpenDevice");
    c.Code(c.gentl.IFGetParentTL(tree.interface, nullptr), {GC_ERR_INVALID_PARAMETER}, "IFGetParentTL without output");
    c.Code(c.gentl.DevGetParentIF(tree.device, nullptr), {GC_ERR_INVALID_PARAMETER}, "DevGetParentIF without output");
    c.Code(c.gentl.DSGetParentDev(tree.stream, nullptr), {GC_ERR_INVALID_PARAMETER}, "DSGetParentDev without output");
}

void Reopen(Context& c)
{
    Tree tree(c, Depth::System);
    c.Code(c.gentl.TLClose(tree.system), {GC_ERR_SUCCESS}, "TLClose");
    c.Code(c.gentl.TLOpen(&tree.system), {GC_ERR_SUCCESS}, "TLOpen after TLClose");
}

void ReopenDevice(Context& c)
{
    Tree tree(c, Depth::Stream);
    const char* id = c.target.deviceId.c_str();
    c.Code(c.gentl.DSClose(tree.stream), {GC_ERR_SUCCESS}, "DSClose");
    c.Code(c.gentl.DevOpenDataStream(tree.device, tree.streamId.c_str(), &tree.stream), {GC_ERR_SUCCESS},
           "DevOpenDataStream after DSClose");
    c.Code(c.gentl.DevClose(tree.device), {GC_ERR_SUCCESS}, "DevClose with an open stream");
    c.Code(c.gentl.IFOpenDevice(tree.interface, id, DEVICE_ACCESS_CONTROL, &tree.device), {GC_ERR_SUCCESS},
           "IFOpenDevice after DevClose");
    c.Code(c.gentl.IFClose(tree.interface), {GC_ERR_SUCCESS}, "IFClose with an open device");
    c.Code(c.gentl.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &tree.interface), {GC_ERR_SUCCESS},
           "TLOpenInterface after IFClose");
}

void BufferHandles(Context& c)
{
    const Acquisition tree(c, 1);
    Refused(c, BufferCalls(c.gentl, tree.stream), nullptr, "no buffer");
    Refused(c, BufferCalls(c.gentl, tree.stream), tree.stream, "the stream as a buffer");
    Refused(c, BufferCalls(c.gentl, tree.stream), tree.event, "the event as a buffer");
}

void ClosedStream(Context& c)
{
    const Acquisition tree(c, 1);
    Context::Needs(c.gentl.GCUnregisterEvent(tree.stream, EVENT_NEW_BUFFER), "GCUnregisterEvent");
    for (const HandleCall& call : EventCalls(c.gentl))
    {
        Room room;
        c.Code(call.call(tree.event, room), {GC_ERR_INVALID_HANDLE, GC_ERR_NOT_INITIALIZED},
               fmt::format("{} of the unregistered event", call.name));
    }
    Context::Needs(c.gentl.DSClose(tree.stream), "DSClose");
    Refused(c, StreamCalls(c.gentl), tree.stream, "the closed stream");
    Context::Needs(c.gentl.DevClose(tree.device), "DevClose");
    Refused(c, DeviceCalls(c.gentl), tree.device, "the closed device");
    Refused(c, PortCalls(c.gentl), tree.remote, "the remote port of the closed device");
}

bool IsCodeOf15(GC_ERROR code)
{
    return code == GC_ERR_SUCCESS || (code <= GC_ERR_ERROR && code >= GC_ERR_BUSY) || code <= GC_ERR_CUSTOM_ID;
}

/// Whatever the calls are answered by. What fails otherwise is the matter of other rules.
void KnownCodes(Context& c)
{
    const InfoSets sets(c);
    TL_HANDLE other = nullptr;
    std::vector<GC_ERROR> codes = {c.gentl.GCInitLib(), c.gentl.TLOpen(&other), c.gentl.TLOpen(nullptr)};
    for (const InfoFunction& function : sets.functions)
    {
        for (int32_t command = -1; command < 40; ++command)
        {
            Room room;
            codes.push_back(function.call(command, &room.type, room.bytes, &room.size));
            codes.push_back(function.call(command, &room.type, room.bytes, &(room.size = 0)));
        }
    }
    int made = 0;
    for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(&made)})
    {
        for (const HandleCall& call : AllCalls(c.gentl))
        {
            Room room;
            codes.push_back(call.call(handle, room));
        }
    }
    for (const GC_ERROR code : codes)
    {
        c.Expect(IsCodeOf15(code), fmt::format("a call gives {}, which is no code of GenTL 1.5", code));
    }
}

constexpr Rule kRules[] = {
    {"HD-001", "no handle is an invalid handle, for every function", "6.3", Severity::Must, Needs::Nothing,
     NullHandles},
    {"HD-002", "the handle of a system is invalid for the functions of other modules", "6.1.5", Severity::Must,
     Needs::Nothing, OtherKinds},
    {"HD-003", "the handle of a device, a stream or an event is invalid for those of other modules", "6.1.5",
     Severity::Must, Needs::Camera, OtherKindsOfDevice},
    {"HD-004", "a closed handle is invalid", "6.3", Severity::Must, Needs::Nothing, ClosedHandles},
    {"HD-005", "the handles below a closed module are invalid", "3.7, 6.1.3", Severity::Must, Needs::Camera,
     Descendants},
    {"HD-006", "DevClose of the remote port is refused, and the device stays open", "6.3.4.1", Severity::Must,
     Needs::Camera, RemotePortClosesNothing},
    {"HD-007", "parents are told by the handles they were opened with", "6.3.3.8", Severity::Must, Needs::Camera,
     Parents},
    {"HD-008", "a closed system opens again", "3.2", Severity::Must, Needs::Nothing, Reopen},
    {"HD-009", "a closed stream, device and interface open again", "3.3, 3.4, 3.5", Severity::Must, Needs::Camera,
     ReopenDevice},
    {"HD-010", "codes are those of GenTL 1.5, or the producer's own (-10000 and below)", "6.1.5", Severity::Must,
     Needs::Nothing, KnownCodes},
    {"HD-011", "what is no buffer is an invalid handle for the functions of buffers", "6.3", Severity::Must,
     Needs::Camera, BufferHandles},
    {"HD-012", "the handles of a closed stream, a closed device and an unregistered event are invalid", "6.3",
     Severity::Must, Needs::Camera, ClosedStream},
};

} // namespace

std::span<const Rule> HandleRules()
{
    return kRules;
}

} // namespace nq::check
