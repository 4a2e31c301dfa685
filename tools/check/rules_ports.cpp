// SPDX-License-Identifier: Apache-2.0
// Rules: ports, what they tell of themselves, and the descriptions behind them.
#include "acquisition.h"
#include "description.h"
#include "families.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <set>
#include <stdexcept>

namespace nq::check
{

namespace
{

using namespace GenTL;

struct Port
{
    const char* name;
    PORT_HANDLE handle;
    const char* module;
};

std::array<Port, 5> Ports(const Tree& tree)
{
    return {{{"system", tree.system, TLSystemModuleName},
             {"interface", tree.interface, TLInterfaceModuleName},
             {"device", tree.device, TLDeviceModuleName},
             {"remote device", tree.remote, TLRemoteDeviceModuleName},
             {"stream", tree.stream, TLDataStreamModuleName}}};
}

InfoCall PortInfo(Context& c, PORT_HANDLE port, PORT_INFO_CMD command)
{
    return [&c, port, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return c.gentl.GCGetPortInfo(port, command, type, buffer, size);
    };
}

InfoCall UrlInfo(Context& c, PORT_HANDLE port, URL_INFO_CMD command)
{
    return [&c, port, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return c.gentl.GCGetPortURLInfo(port, 0, command, type, buffer, size);
    };
}

void PortsAnswer(Context& c)
{
    const Tree tree(c, Depth::Stream);
    for (const Port& port : Ports(tree))
    {
        const std::string module = TextInfo(PortInfo(c, port.handle, PORT_INFO_MODULE)).value_or("");
        c.Expect(module == port.module, fmt::format("PORT_INFO_MODULE of the {} is \"{}\"", port.name, module));
        const uint8_t absent = Info<uint8_t>(PortInfo(c, port.handle, PORT_INFO_ACCESS_NI)).value_or(2);
        c.Expect(absent == 0, fmt::format("PORT_INFO_ACCESS_NI of the {} is {}", port.name, absent));
        const uint8_t little = Info<uint8_t>(PortInfo(c, port.handle, PORT_INFO_LITTLE_ENDIAN)).value_or(0);
        const uint8_t big = Info<uint8_t>(PortInfo(c, port.handle, PORT_INFO_BIG_ENDIAN)).value_or(0);
        c.Expect((little != 0) != (big != 0),
                 fmt::format("the {} is little endian ({}) and big endian ({})", port.name, little, big));
    }
}

void PortIds(Context& c)
{
    const Tree tree(c, Depth::Stream);
    const std::string system = TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                                   return c.gentl.TLGetInfo(tree.system, TL_INFO_ID, type, buffer, size);
                               }).value_or("");
    const std::string ids[] = {system, tree.interfaceId, c.target.deviceId, c.target.deviceId, tree.streamId};
    size_t index = 0;
    for (const Port& port : Ports(tree))
    {
        const std::string& expected = ids[index++];
        const std::string id = TextInfo(PortInfo(c, port.handle, PORT_INFO_ID)).value_or("");
        c.Expect(id == expected,
                 fmt::format("PORT_INFO_ID of the {} is \"{}\" instead of \"{}\"", port.name, id, expected));
    }
}

void BufferPort(Context& c)
{
    const Acquisition tree(c, 1);
    INFO_DATATYPE type = 0;
    char text[1024];
    size_t size = sizeof text;
    c.Code(c.gentl.GCGetPortInfo(tree.buffers[0].handle, PORT_INFO_ID, &type, text, &size),
           {GC_ERR_SUCCESS, GC_ERR_NOT_IMPLEMENTED}, "GCGetPortInfo of a buffer");
}

void NumberOfUrls(Context& c)
{
    const Tree tree(c, Depth::Stream);
    for (const Port& port : Ports(tree))
    {
        uint32_t count = 0;
        c.Code(c.gentl.GCGetNumPortURLs(port.handle, &count), {GC_ERR_SUCCESS}, "GCGetNumPortURLs");
        c.Expect(count > 0, fmt::format("the {} has no URL", port.name));
        INFO_DATATYPE type = 0;
        char text[4096];
        size_t size = sizeof text;
        c.Code(c.gentl.GCGetPortURLInfo(port.handle, count, URL_INFO_URL, &type, text, &size), {GC_ERR_INVALID_INDEX},
               fmt::format("GCGetPortURLInfo of index {} of {}", count, count));
    }
}

void UrlsAreWellFormed(Context& c)
{
    const Tree tree(c, Depth::Stream);
    for (const Port& port : Ports(tree))
    {
        const std::string url = FirstUrl(c, port.handle).value_or("");
        const bool elsewhere = url.starts_with("http://") || url.starts_with("file:");
        c.Expect(elsewhere || ParseLocalUrl(url).has_value(), fmt::format("the {} has the URL \"{}\"", port.name, url));
        c.Expect(url.find("SchemaVersion") == std::string::npos, "URL_INFO_URL tells a schema version");
    }
}

/// The descriptions in registers of all modules, with the ports; a broken one is a finding.
void ForEachDescription(Context& c, const std::function<void(const Port&, const Description&)>& rule)
{
    const Tree tree(c, Depth::Stream);
    size_t found = 0;
    for (const Port& port : Ports(tree))
    {
        const auto url = ParseLocalUrl(FirstUrl(c, port.handle).value_or(""));
        const auto file = url ? ReadBytes(c, port.handle, url->address, url->length) : std::nullopt;
        if (!file)
        {
            continue;
        }
        try
        {
            rule(port, Description(Unzipped(*file)));
            ++found;
        }
        catch (const std::runtime_error&)
        {
            continue; // another rule tells of it
        }
    }
    if (found == 0)
    {
        Context::NotTried("no module has a description in its registers");
    }
}

void DescriptionsAreWellFormed(Context& c)
{
    const Tree tree(c, Depth::Stream);
    for (const Port& port : Ports(tree))
    {
        const auto url = ParseLocalUrl(FirstUrl(c, port.handle).value_or(""));
        if (!url)
        {
            continue;
        }
        const auto file = ReadBytes(c, port.handle, url->address, url->length);
        c.Expect(file.has_value(),
                 fmt::format("the {} bytes of the {}'s file cannot be read in one call", url->length, port.name));
        try
        {
            Description(Unzipped(file.value_or("<Unread/>")));
        }
        catch (const std::runtime_error& failure)
        {
            c.Expect(false, fmt::format("the description of the {}: {}", port.name, failure.what()));
        }
    }
}

void ReferencesResolve(Context& c)
{
    ForEachDescription(c, [&](const Port& port, const Description& description) {
        for (const Element* node : description.Nodes())
        {
            for (const Element& child : node->children)
            {
                const bool reference =
                    child.name.size() > 1 && child.name[0] == 'p' && std::isupper(child.name[1]) != 0;
                c.Expect(!reference || description.Find(child.text) != nullptr,
                         fmt::format("{} of {} in the {} names {}, which is not there", child.name,
                                     node->attributes.at("Name"), port.name, child.text));
            }
        }
    });
}

/// A register of a local module that may be read has to answer, if only with an error of its value.
void RegistersAnswer(Context& c)
{
    ForEachDescription(c, [&](const Port& port, const Description& description) {
        for (const Element* node : description.Nodes())
        {
            const auto address = ToNumber(node->TextOf("Address"));
            const auto length = ToNumber(node->TextOf("Length"));
            const bool fixed = address && length && *length > 0 && *length <= 4096 &&
                               node->TextOf("pAddress").empty() && node->TextOf("pIndex").empty();
            if (!fixed || node->TextOf("AccessMode") == "WO" || port.module == std::string(TLRemoteDeviceModuleName))
            {
                continue;
            }
            std::string bytes(*length, '\0');
            size_t size = bytes.size();
            const GC_ERROR code = c.gentl.GCReadPort(port.handle, *address, bytes.data(), &size);
            c.Expect(code != GC_ERR_INVALID_ADDRESS, fmt::format("register {} of the {} ({:#x}) has no valid address",
                                                                 node->attributes.at("Name"), port.name, *address));
        }
    });
}

void PortNames(Context& c)
{
    ForEachDescription(c, [&](const Port& port, const Description& description) {
        const std::string name = TextInfo(PortInfo(c, port.handle, PORT_INFO_PORTNAME)).value_or("");
        const Element* node = description.Find(name);
        c.Expect(node != nullptr && node->name == "Port",
                 fmt::format("PORT_INFO_PORTNAME of the {} is \"{}\", which is no port of its description", port.name,
                             name));
    });
}

void UrlInfosAgree(Context& c)
{
    const Tree tree(c, Depth::Stream);
    for (const Port& port : Ports(tree))
    {
        const auto url = ParseLocalUrl(FirstUrl(c, port.handle).value_or(""));
        if (!url)
        {
            continue;
        }
        const auto agree = [&](const char* what, URL_INFO_CMD command, uint64_t value) {
            const uint64_t told = Info<uint64_t>(UrlInfo(c, port.handle, command)).value_or(value);
            c.Expect(told == value,
                     fmt::format("{} of the {} is {:#x}, the URL says {:#x}", what, port.name, told, value));
        };
        agree("URL_INFO_FILE_REGISTER_ADDRESS", URL_INFO_FILE_REGISTER_ADDRESS, url->address);
        agree("URL_INFO_FILE_SIZE", URL_INFO_FILE_SIZE, url->length);
        const int32_t scheme = Info<int32_t>(UrlInfo(c, port.handle, URL_INFO_SCHEME)).value_or(URL_SCHEME_LOCAL);
        c.Expect(scheme == URL_SCHEME_LOCAL, fmt::format("URL_INFO_SCHEME of the {} is {}", port.name, scheme));
    }
}

/// Each URL of the old list is one of the new call's, apart from the schema's version.
void ListIsOfTheUrls(Context& c, const Port& port, std::string_view list)
{
    uint32_t count = 0;
    Context::Needs(c.gentl.GCGetNumPortURLs(port.handle, &count), "GCGetNumPortURLs");
    std::set<std::string> urls;
    for (uint32_t index = 0; index < count; ++index)
    {
        urls.insert(TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                        return c.gentl.GCGetPortURLInfo(port.handle, index, URL_INFO_URL, type, buffer, size);
                    }).value_or(""));
    }
    for (size_t at = 0; at < list.size() && list[at] != '\0'; at = list.find('\0', at) + 1)
    {
        const std::string url(list.data() + at);
        c.Expect(urls.contains(url.substr(0, url.find("?SchemaVersion"))),
                 fmt::format("the list of the {} has \"{}\", which is no URL of its own", port.name, url));
    }
}

void ListOfUrls(Context& c)
{
    const Tree tree(c, Depth::Stream);
    for (const Port& port : Ports(tree))
    {
        char text[4096];
        std::fill_n(text, sizeof text, 'Z');
        size_t size = sizeof text;
        const GC_ERROR code = c.gentl.GCGetPortURL(port.handle, text, &size);
        c.Code(code, {GC_ERR_SUCCESS}, "GCGetPortURL");
        const bool ends = size >= 2 && size <= sizeof text && text[size - 1] == '\0' && text[size - 2] == '\0';
        c.Expect(code != GC_ERR_SUCCESS || ends, fmt::format("the list of the {} does not end in two 0", port.name));
        if (code == GC_ERR_SUCCESS && ends)
        {
            ListIsOfTheUrls(c, port, {text, size - 1});
        }
    }
}

void ReadParameters(Context& c)
{
    const Tree tree(c, Depth::System);
    char byte = 0;
    size_t size = 1;
    c.Code(c.gentl.GCReadPort(tree.system, 0, nullptr, &size), {GC_ERR_INVALID_PARAMETER}, "GCReadPort without buffer");
    c.Code(c.gentl.GCReadPort(tree.system, 0, &byte, nullptr), {GC_ERR_INVALID_PARAMETER}, "GCReadPort without size");
    c.Code(c.gentl.GCWritePort(tree.system, 0, nullptr, &size), {GC_ERR_INVALID_PARAMETER},
           "GCWritePort without buffer");
    c.Code(c.gentl.GCWritePort(tree.system, 0, &byte, nullptr), {GC_ERR_INVALID_PARAMETER}, "GCWritePort without size");
}

void BadAddress(Context& c)
{
    const Tree tree(c, Depth::System);
    char bytes[4] = {};
    size_t size = sizeof bytes;
    c.Code(c.gentl.GCReadPort(tree.system, 0x7FFFFFFFFFFFFFF0, bytes, &size), {GC_ERR_INVALID_ADDRESS},
           "GCReadPort of address 0x7ffffffffffffff0");
}

void OddReads(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto url = ParseLocalUrl(FirstUrl(c, tree.system).value_or(""));
    if (!url || url->length < 64)
    {
        Context::NotTried("the system has no description in its registers");
    }
    const auto whole = ReadBytes(c, tree.system, url->address, 64);
    if (!whole)
    {
        Context::NotTried("the description of the system cannot be read");
    }
    for (size_t at = 1; at < 8; ++at)
    {
        for (size_t size = 1; size < 12; size += 3)
        {
            const auto part = ReadBytes(c, tree.system, url->address + at, size);
            c.Expect(part == whole->substr(at, size),
                     fmt::format("{} bytes from {} of a file are others, or fail", size, at));
        }
    }
}

void WholeReads(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto url = ParseLocalUrl(FirstUrl(c, tree.system).value_or(""));
    if (!url)
    {
        Context::NotTried("the system has no description in its registers");
    }
    std::string bytes(url->length + 4096, '\0');
    size_t size = bytes.size();
    const GC_ERROR code = c.gentl.GCReadPort(tree.system, url->address, bytes.data(), &size);
    c.Expect(code != GC_ERR_SUCCESS || size == bytes.size(),
             fmt::format("GCReadPort of {} bytes succeeds with {}", bytes.size(), size));
}

void ReadOnlyRegisters(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto url = ParseLocalUrl(FirstUrl(c, tree.system).value_or(""));
    if (!url)
    {
        Context::NotTried("the system has no description in its registers");
    }
    char byte = 'X';
    size_t size = 1;
    c.Code(c.gentl.GCWritePort(tree.system, url->address, &byte, &size), {GC_ERR_ACCESS_DENIED},
           "GCWritePort into the description");
}

void ReadOnlyDevice(Context& c)
{
    Tree tree(c, Depth::Interface);
    tree.LookForCamera();
    const GC_ERROR code =
        c.gentl.IFOpenDevice(tree.interface, c.target.deviceId.c_str(), DEVICE_ACCESS_READONLY, &tree.device);
    if (code == GC_ERR_NOT_IMPLEMENTED)
    {
        return;
    }
    c.Require(code, "IFOpenDevice for reading");
    Context::Needs(c.gentl.DevGetPort(tree.device, &tree.remote), "DevGetPort");
    const Description description = DescriptionOf(c, tree.remote);
    const auto place = description.RegisterOf("AcquisitionStop");
    if (!place)
    {
        Context::NotTried("the camera has no AcquisitionStop to write to");
    }
    const uint64_t value = 0;
    size_t size = place->length;
    c.Code(c.gentl.GCWritePort(tree.remote, place->address, &value, &size), {GC_ERR_ACCESS_DENIED},
           "GCWritePort of a device opened for reading");
}

void StackedReads(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto url = ParseLocalUrl(FirstUrl(c, tree.system).value_or(""));
    if (!url || url->length < 64)
    {
        Context::NotTried("the system has no description in its registers");
    }
    char stacked[3][16] = {};
    PORT_REGISTER_STACK_ENTRY entries[3] = {
        {url->address, stacked[0], 16}, {url->address + 16, stacked[1], 16}, {url->address + 32, stacked[2], 16}};
    size_t count = 3;
    c.Code(c.gentl.GCReadPortStacked(tree.system, entries, &count), {GC_ERR_SUCCESS}, "GCReadPortStacked");
    const std::string single = ReadBytes(c, tree.system, url->address, 48).value_or("");
    c.Expect(single == std::string(stacked[0], sizeof stacked), "GCReadPortStacked reads other bytes than GCReadPort");
    entries[1].Address = 0x7FFFFFFFFFFFFFF0;
    count = 3;
    c.Expect(c.gentl.GCReadPortStacked(tree.system, entries, &count) != GC_ERR_SUCCESS,
             "GCReadPortStacked of a bad address succeeds");
    c.Expect(count == 1, fmt::format("GCReadPortStacked that fails at entry 1 tells {} done", count));
    c.Code(c.gentl.GCReadPortStacked(tree.system, nullptr, &count), {GC_ERR_INVALID_PARAMETER},
           "GCReadPortStacked without entries");
    c.Code(c.gentl.GCReadPortStacked(tree.system, entries, nullptr), {GC_ERR_INVALID_PARAMETER},
           "GCReadPortStacked without count");
    count = 3;
    c.Code(c.gentl.GCWritePortStacked(tree.system, nullptr, &count), {GC_ERR_INVALID_PARAMETER},
           "GCWritePortStacked without entries");
    c.Code(c.gentl.GCWritePortStacked(tree.system, entries, nullptr), {GC_ERR_INVALID_PARAMETER},
           "GCWritePortStacked without count");
}

std::vector<std::string> MandatoryFeatures(std::string_view module)
{
    if (module == TLSystemModuleName)
    {
        return {"TLID",       "TLVendorName",      "TLModelName",       "TLVersion",           "TLPath",
                "TLType",     "GenTLVersionMajor", "GenTLVersionMinor", "InterfaceUpdateList", "InterfaceSelector",
                "InterfaceID"};
    }
    if (module == TLInterfaceModuleName)
    {
        return {"InterfaceID", "InterfaceType",    "DeviceUpdateList", "DeviceSelector",
                "DeviceID",    "DeviceVendorName", "DeviceModelName",  "DeviceAccessStatus"};
    }
    if (module == TLDeviceModuleName)
    {
        return {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceType", "StreamSelector", "StreamID"};
    }
    if (module == TLDataStreamModuleName)
    {
        return {"StreamID", "StreamType", "StreamAnnouncedBufferCount", "StreamBufferHandlingMode",
                "StreamAnnounceBufferMinimum"};
    }
    return {};
}

void Features(Context& c)
{
    ForEachDescription(c, [&](const Port& port, const Description& description) {
        for (const std::string& feature : MandatoryFeatures(port.module))
        {
            c.Expect(description.Find(feature) != nullptr, fmt::format("the {} lacks {}", port.name, feature));
        }
    });
}

constexpr Rule kRules[] = {
    {"PT-001", "every module's port tells its kind, is there, and has one endianness", "4.1.1, 6.4.5.1", Severity::Must,
     Needs::Camera, PortsAnswer},
    {"PT-002", "a port has the id of its module, the remote one that of the device", "6.4.5.1", Severity::Must,
     Needs::Camera, PortIds},
    {"PT-003", "a buffer's port works, or is not implemented", "4.1.1.2", Severity::Must, Needs::Camera, BufferPort},
    {"PT-004", "every module has a URL, and an index beyond them is invalid", "4.1.1, 6.3.6.4", Severity::Must,
     Needs::Camera, NumberOfUrls},
    {"PT-005", "URLs are well formed, without a schema version", "4.1.2", Severity::Must, Needs::Camera,
     UrlsAreWellFormed},
    {"PT-006", "a description in registers is read in one call, and well formed", "4.1.2.1", Severity::Must,
     Needs::Camera, DescriptionsAreWellFormed},
    {"PT-007", "every reference of a description resolves", "4.1.2.1", Severity::Must, Needs::Camera,
     ReferencesResolve},
    {"PT-008", "every register of a description lies in a port that answers", "6.3.6.5", Severity::Must, Needs::Camera,
     RegistersAnswer},
    {"PT-009", "PORT_INFO_PORTNAME is a port of the description", "6.4.5.1", Severity::Must, Needs::Camera, PortNames},
    {"PT-010", "address, size and scheme agree with the URL", "6.4.5.2", Severity::Must, Needs::Camera, UrlInfosAgree},
    {"PT-011", "the list of URLs ends in two 0, and has no other ones", "6.3.6.2", Severity::Must, Needs::Camera,
     ListOfUrls},
    {"PT-012", "reads and writes check their arguments", "6.3.6.5, 6.3.6.6", Severity::Must, Needs::Nothing,
     ReadParameters},
    {"PT-013", "an address without a register is invalid", "6.3.6.5", Severity::Must, Needs::Nothing, BadAddress},
    {"PT-014", "odd addresses and lengths read the same bytes", "4.1", Severity::Must, Needs::Nothing, OddReads},
    {"PT-015", "a read that succeeds has read all bytes", "6.3.6.5", Severity::Must, Needs::Nothing, WholeReads,
     kClarifiedIn16},
    {"PT-016", "a register that is read only is not written", "6.3.6.6", Severity::Must, Needs::Nothing,
     ReadOnlyRegisters},
    {"PT-017", "a device opened for reading is not written to", "6.4.3.1", Severity::Must, Needs::Camera,
     ReadOnlyDevice},
    {"PT-018", "stacked reads are those of single calls, and tell how many were done", "6.3.6.7, 6.3.6.8",
     Severity::Must, Needs::Nothing, StackedReads},
    {"PT-019", "the modules have the mandatory features", "7.1", Severity::Must, Needs::Camera, Features},
};

} // namespace

std::span<const Rule> PortRules()
{
    return kRules;
}

} // namespace nq::check
