// SPDX-License-Identifier: Apache-2.0
// Rules: exports and versions, init and close, the last error.
#include "families.h"
#include "tree.h"
#include "trial.h"

#include <array>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <thread>

namespace nq::check
{

namespace
{

using namespace GenTL;

InfoCall SystemInfo(Context& c, TL_HANDLE system, TL_INFO_CMD command)
{
    return [&c, system, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return system == nullptr ? c.gentl.GCGetInfo(command, type, buffer, size)
                                 : c.gentl.TLGetInfo(system, command, type, buffer, size);
    };
}

/// The minor version of GenTL 1 that a function came with.
uint32_t MinorVersionOf(const std::string& function)
{
    static const std::map<std::string, uint32_t> kLater = {
        {"GCGetNumPortURLs", 1},     {"GCGetPortURLInfo", 1},   {"GCReadPortStacked", 1}, {"GCWritePortStacked", 1},
        {"DSGetBufferChunkData", 3}, {"IFGetParentTL", 4},      {"DevGetParentIF", 4},    {"DSGetParentDev", 4},
        {"DSGetNumBufferParts", 5},  {"DSGetBufferPartInfo", 5}};
    const auto found = kLater.find(function);
    return found == kLater.end() ? 0 : found->second;
}

/// A producer that does not tell its version is older than 1.5, where the info came.
void AllFunctions(Context& c)
{
    Tree tree(c, Depth::Library);
    const uint32_t claimed = Info<uint32_t>(SystemInfo(c, nullptr, TL_INFO_GENTL_VER_MINOR)).value_or(4);
    for (const std::string& name : MissingFunctions())
    {
        c.Expect(MinorVersionOf(name) > claimed, name + " is not exported");
    }
}

void Extension(Context& c)
{
    c.Expect(c.target.path.ends_with(".cti"), "the file is called " + c.target.path);
}

void BeforeInit(Context& c)
{
    INFO_DATATYPE type = 0;
    char text[1024];
    size_t size = sizeof text;
    TL_HANDLE system = nullptr;
    c.Code(c.gentl.GCGetInfo(TL_INFO_ID, &type, text, &size), {GC_ERR_NOT_INITIALIZED}, "GCGetInfo before GCInitLib");
    GC_ERROR code = 0;
    size = sizeof text;
    c.Code(c.gentl.GCGetLastError(&code, text, &size), {GC_ERR_NOT_INITIALIZED}, "GCGetLastError before GCInitLib");
    c.Code(c.gentl.TLOpen(&system), {GC_ERR_NOT_INITIALIZED}, "TLOpen before GCInitLib");
}

void SecondInit(Context& c)
{
    Tree tree(c, Depth::Library);
    c.Code(c.gentl.GCInitLib(), {GC_ERR_RESOURCE_IN_USE}, "a second GCInitLib");
    TL_HANDLE system = nullptr;
    c.Code(c.gentl.TLOpen(&system), {GC_ERR_SUCCESS}, "TLOpen after a second GCInitLib");
}

void CloseTwice(Context& c)
{
    c.Code(c.gentl.GCCloseLib(), {GC_ERR_NOT_INITIALIZED}, "GCCloseLib before GCInitLib");
    Context::Needs(c.gentl.GCInitLib(), "GCInitLib");
    c.Code(c.gentl.GCCloseLib(), {GC_ERR_SUCCESS}, "GCCloseLib");
    c.Code(c.gentl.GCCloseLib(), {GC_ERR_NOT_INITIALIZED}, "a second GCCloseLib");
    c.Code(c.gentl.GCInitLib(), {GC_ERR_SUCCESS}, "GCInitLib after GCCloseLib");
    c.Code(c.gentl.GCCloseLib(), {GC_ERR_SUCCESS}, "GCCloseLib of the second session");
}

void CloseWithModulesOpen(Context& c)
{
    for (int round = 0; round < 3; ++round)
    {
        Context::Needs(c.gentl.GCInitLib(), "GCInitLib");
        TL_HANDLE system = nullptr;
        c.Code(c.gentl.TLOpen(&system), {GC_ERR_SUCCESS}, "TLOpen in a session after one that left its system open");
        c.Code(c.gentl.GCCloseLib(), {GC_ERR_SUCCESS}, "GCCloseLib with an open system");
    }
}

struct LastError
{
    GC_ERROR result;
    GC_ERROR code;
    std::string text;
};

LastError AskLastError(Context& c)
{
    LastError last{0, -1, {}};
    char text[1024] = {};
    size_t size = sizeof text - 1;
    last.result = c.gentl.GCGetLastError(&last.code, text, &size);
    last.text = text;
    return last;
}

void NoErrorYet(Context& c)
{
    Tree tree(c, Depth::Library);
    std::thread([&] {
        const LastError last = AskLastError(c);
        c.Code(last.result, {GC_ERR_SUCCESS}, "GCGetLastError in a thread without an error");
        c.Expect(last.code == GC_ERR_SUCCESS, fmt::format("its code is {} instead of 0", last.code));
        c.Expect(last.text == "No Error", fmt::format("its text is \"{}\" instead of \"No Error\"", last.text));
    }).join();
}

void LastErrorStays(Context& c)
{
    Tree tree(c, Depth::System);
    uint32_t count = 0;
    const GC_ERROR code = c.gentl.TLGetNumInterfaces(nullptr, &count);
    if (code == GC_ERR_SUCCESS)
    {
        Context::NotTried("TLGetNumInterfaces of no handle succeeds");
    }
    c.gentl.TLGetNumInterfaces(tree.system, &count);
    const LastError last = AskLastError(c);
    c.Expect(last.code == code, fmt::format("after {} and a success the last error is {}", code, last.code));
    std::thread([&] {
        const LastError other = AskLastError(c);
        c.Expect(other.code == GC_ERR_SUCCESS, fmt::format("another thread sees the error {}", other.code));
    }).join();
}

void LastErrorParameters(Context& c)
{
    Tree tree(c, Depth::System);
    uint32_t count = 0;
    const GC_ERROR stored = c.gentl.TLGetNumInterfaces(nullptr, &count);
    GC_ERROR code = 0;
    char text[1024] = {};
    size_t size = sizeof text;
    c.Code(c.gentl.GCGetLastError(nullptr, text, &size), {GC_ERR_INVALID_PARAMETER}, "GCGetLastError without code");
    c.Code(c.gentl.GCGetLastError(&code, text, nullptr), {GC_ERR_INVALID_PARAMETER}, "GCGetLastError without size");
    size = 0;
    c.Code(c.gentl.GCGetLastError(&code, nullptr, &size), {GC_ERR_SUCCESS}, "GCGetLastError for the size");
    c.Expect(size > 0, "the size of the text is 0");
    size = 1;
    c.Code(c.gentl.GCGetLastError(&code, text, &size), {GC_ERR_BUFFER_TOO_SMALL}, "GCGetLastError into one byte");
    c.Expect(AskLastError(c).code == stored, "a failure of GCGetLastError itself is stored");
}

void InfoAgrees(Context& c)
{
    Tree tree(c, Depth::System);
    for (TL_INFO_CMD command = TL_INFO_ID; command <= TL_INFO_GENTL_VER_MINOR; ++command)
    {
        const auto library = Info<std::array<char, 64>>(SystemInfo(c, nullptr, command));
        const auto system = Info<std::array<char, 64>>(SystemInfo(c, tree.system, command));
        const auto libraryText = TextInfo(SystemInfo(c, nullptr, command));
        const auto systemText = TextInfo(SystemInfo(c, tree.system, command));
        c.Expect(library == system && libraryText == systemText,
                 fmt::format("GCGetInfo and TLGetInfo differ in command {}", command));
    }
}

void NamesTheFile(Context& c)
{
    Tree tree(c, Depth::Library);
    const std::string path = TextInfo(SystemInfo(c, nullptr, TL_INFO_PATHNAME)).value_or("");
    const std::string name = TextInfo(SystemInfo(c, nullptr, TL_INFO_NAME)).value_or("");
    std::error_code error;
    c.Expect(std::filesystem::equivalent(path, c.target.path, error), "TL_INFO_PATHNAME is \"" + path + "\"");
    c.Expect(!name.empty() && std::filesystem::path(path).filename() == name,
             "TL_INFO_NAME is \"" + name + "\", the path \"" + path + "\"");
}

bool IsTransportLayer(const std::string& text)
{
    for (const char* known :
         {TLTypeMixedName, TLTypeCustomName, TLTypeGEVName, TLTypeCLName, TLTypeIIDCName, TLTypeUVCName, TLTypeCXPName,
          TLTypeCLHSName, TLTypeU3VName, TLTypeETHERNETName, TLTypePCIName})
    {
        if (text == known)
        {
            return true;
        }
    }
    return false;
}

void TransportLayer(Context& c)
{
    Tree tree(c, Depth::Interface);
    const std::string system = TextInfo(SystemInfo(c, tree.system, TL_INFO_TLTYPE)).value_or("");
    const std::string interface =
        TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.IFGetInfo(tree.interface, INTERFACE_INFO_TLTYPE, type, buffer, size);
        }).value_or("");
    c.Expect(IsTransportLayer(system), "TL_INFO_TLTYPE is \"" + system + "\"");
    c.Expect(IsTransportLayer(interface) && interface != TLTypeMixedName,
             "INTERFACE_INFO_TLTYPE is \"" + interface + "\"");
}

/// Of all that says which technology it is of.
void TransportLayerOfCamera(Context& c)
{
    const Tree tree(c, Depth::Stream);
    const std::pair<const char*, std::string> told[] = {
        {"DEVICE_INFO_TLTYPE", TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                                   return c.gentl.DevGetInfo(tree.device, DEVICE_INFO_TLTYPE, type, buffer, size);
                               }).value_or("")},
        {"STREAM_INFO_TLTYPE", TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                                   return c.gentl.DSGetInfo(tree.stream, STREAM_INFO_TLTYPE, type, buffer, size);
                               }).value_or("")},
        {"PORT_INFO_TLTYPE of the remote device", TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                                                      return c.gentl.GCGetPortInfo(tree.remote, PORT_INFO_TLTYPE, type,
                                                                                   buffer, size);
                                                  }).value_or("")}};
    for (const auto& [what, text] : told)
    {
        c.Expect(IsTransportLayer(text) && text != TLTypeMixedName, fmt::format("{} is \"{}\"", what, text));
    }
}

void Version(Context& c)
{
    Tree tree(c, Depth::Library);
    const auto major = Info<uint32_t>(SystemInfo(c, nullptr, TL_INFO_GENTL_VER_MAJOR));
    const auto minor = Info<uint32_t>(SystemInfo(c, nullptr, TL_INFO_GENTL_VER_MINOR));
    if (!major || !minor)
    {
        Context::NotTried("the producer tells no version, so it is older than 1.5");
    }
    c.Expect(*major == 1, fmt::format("the producer claims GenTL {}.{}", *major, *minor));
}

constexpr Rule kRules[] = {
    {"LB-001", "every function of the claimed version is exported, undecorated", "6.1, 6.1.3", Severity::Must,
     Needs::Nothing, AllFunctions},
    {"LB-002", "the file has the extension cti", "6.1", Severity::Must, Needs::Nothing, Extension},
    {"LB-004", "before GCInitLib GCGetInfo, GCGetLastError and TLOpen are not initialized", "6.3.1", Severity::Must,
     Needs::Nothing, BeforeInit},
    {"LB-005", "a second GCInitLib is refused and harms nothing", "3.1", Severity::Must, Needs::Nothing, SecondInit},
    {"LB-006", "GCCloseLib without a session is refused; a new session may follow", "6.3.1.1", Severity::Must,
     Needs::Nothing, CloseTwice},
    {"LB-007", "GCCloseLib frees what is open, so that the next session finds it free", "3.1", Severity::Should,
     Needs::Nothing, CloseWithModulesOpen, "whether closing with an open system is tidy is left open"},
    {"LB-008", "a thread without an error has the last error 0, \"No Error\"", "6.3.1.3", Severity::Must,
     Needs::Nothing, NoErrorYet},
    {"LB-009", "the last error outlives successes, and is each thread's own", "6.3.1.3", Severity::Must, Needs::Nothing,
     LastErrorStays},
    {"LB-010", "GCGetLastError checks its arguments, and keeps the stored error", "6.3.1.3", Severity::Must,
     Needs::Nothing, LastErrorParameters},
    {"LB-011", "GCGetInfo and TLGetInfo agree", "6.4.1.3", Severity::Must, Needs::Nothing, InfoAgrees},
    {"LB-012", "TL_INFO_PATHNAME is the loaded file, and ends in TL_INFO_NAME", "6.4.1.3", Severity::Must,
     Needs::Nothing, NamesTheFile},
    {"LB-013", "the transport layers are names of the standard; only a system is Mixed", "6.6.1", Severity::Must,
     Needs::Nothing, TransportLayer},
    {"LB-014", "the claimed version is one of GenTL 1", "6.4.1.3", Severity::Must, Needs::Nothing, Version},
    {"LB-015", "the transport layer of device, stream and remote port is a name of the standard, and not Mixed",
     "6.6.1", Severity::Must, Needs::Camera, TransportLayerOfCamera},
};

} // namespace

std::span<const Rule> LibraryRules()
{
    return kRules;
}

} // namespace nq::check
