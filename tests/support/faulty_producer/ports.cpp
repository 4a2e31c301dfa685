// SPDX-License-Identifier: Apache-2.0
// The ports of the modules: registers, their description in XML, and its URL.
#include "state.h"

#include <cstdio>

using namespace GenTL;

namespace nq::faulty
{

namespace
{

constexpr uint64_t kRegistersEnd = 0x400;
constexpr uint64_t kWritableBegin = 0x200;
constexpr uint64_t kWritableEnd = 0x310;
constexpr uint64_t kXml = 0x10000;
constexpr uint64_t kStart = 0x304;
constexpr uint64_t kStop = 0x308;
constexpr uint64_t kPayloadRegister = 0x310;

void AddText(std::string& xml, const std::string& name, uint64_t address)
{
    char place[16];
    std::snprintf(place, sizeof place, "0x%llx", static_cast<unsigned long long>(address));
    xml += "<StringReg Name=\"" + name + "\"><Address>" + place +
           "</Address><Length>64</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>\n";
}

void AddNumber(std::string& xml, const std::string& name, uint64_t address, const char* mode)
{
    char place[16];
    std::snprintf(place, sizeof place, "0x%llx", static_cast<unsigned long long>(address));
    xml += "<Integer Name=\"" + name + "\"><pValue>" + name + "Reg</pValue></Integer>\n<IntReg Name=\"" + name +
           "Reg\"><Address>" + place + "</Address><Length>4</Length><AccessMode>" + mode +
           "</AccessMode><pPort>Device</pPort><Endianess>LittleEndian</Endianess></IntReg>\n";
}

void AddCommand(std::string& xml, const std::string& name, uint64_t address)
{
    AddNumber(xml, name + "Value", address, "RW");
    xml +=
        "<Command Name=\"" + name + "\"><pValue>" + name + "Value</pValue><CommandValue>1</CommandValue></Command>\n";
}

std::vector<std::string> TextFeatures(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return {"TLID", "TLVendorName", "TLModelName", "TLVersion", "TLPath", "TLType", "InterfaceID"};
    case Kind::Interface:
        return {"InterfaceID",      "InterfaceType",   "DeviceID",
                "DeviceVendorName", "DeviceModelName", "DeviceAccessStatus"};
    case Kind::Device:
        return {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceType", "StreamID"};
    case Kind::Stream:
        return {"StreamID", "StreamType", "StreamBufferHandlingMode"};
    default:
        return {"DeviceModelName"};
    }
}

std::vector<std::string> NumberFeatures(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return {"GenTLVersionMajor", "GenTLVersionMinor", "InterfaceSelector"};
    case Kind::Interface:
        return {"DeviceSelector"};
    case Kind::Device:
        return {"StreamSelector"};
    case Kind::Stream:
        return {"StreamAnnouncedBufferCount", "StreamAnnounceBufferMinimum"};
    default:
        return {};
    }
}

std::string Xml(Kind kind)
{
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<RegisterDescription>\n<Category Name=\"Root\">"
                      "<pFeature>Changeable</pFeature></Category>\n";
    for (const std::string& name : TextFeatures(kind))
    {
        if (!(Fault("feature_missing") && name == "StreamBufferHandlingMode"))
        {
            AddText(xml, name, 0);
        }
    }
    for (const std::string& name : NumberFeatures(kind))
    {
        AddNumber(xml, name, 0x100, "RO");
    }
    AddNumber(xml, "Changeable", 0x200, "RW");
    if (kind == Kind::System)
    {
        AddCommand(xml, "InterfaceUpdateList", 0x300);
    }
    if (kind == Kind::Interface)
    {
        AddCommand(xml, "DeviceUpdateList", 0x300);
    }
    if (kind == Kind::Remote)
    {
        AddCommand(xml, "AcquisitionStart", kStart);
        AddCommand(xml, "AcquisitionStop", kStop);
        AddNumber(xml, "PayloadSize", kPayloadRegister, "RO");
    }
    if (Fault("xml_reference_dangles") && kind == Kind::Device)
    {
        xml += "<Integer Name=\"Lost\"><pValue>Nowhere</pValue></Integer>\n";
    }
    if (Fault("xml_register_outside") && kind == Kind::Device)
    {
        AddNumber(xml, "Outside", 0x9000, "RO");
    }
    xml += "<Port Name=\"Device\"/>\n";
    return xml + (Fault("xml_broken") && kind == Kind::Stream ? "</Register>" : "</RegisterDescription>\n");
}

bool InRange(const std::vector<char>& memory, uint64_t address, size_t size)
{
    const auto in = [&](uint64_t begin, uint64_t end) {
        return address >= begin && address <= end && size <= end - address;
    };
    return in(0, kRegistersEnd) || in(kXml, memory.size());
}

GC_ERROR Read(void* port, uint64_t address, void* buffer, size_t* size)
{
    const std::vector<char>& memory = The().memory[port];
    if (!InRange(memory, address, *size))
    {
        if (Fault("read_beyond_is_partial") && InRange(memory, address, 1))
        {
            *size = 1;
            return GC_ERR_SUCCESS;
        }
        return Fault("bad_address_is_io") ? GC_ERR_IO : GC_ERR_INVALID_ADDRESS;
    }
    if ((address % 4 != 0 || *size % 4 != 0) && Fault("unaligned_read_refused"))
    {
        return GC_ERR_INVALID_ADDRESS;
    }
    std::memcpy(buffer, memory.data() + address, *size);
    return GC_ERR_SUCCESS;
}

void Obey(void* port, uint64_t address)
{
    State& s = The();
    if (port == s.remote && (address == kStart || address == kStop))
    {
        s.cameraSends = address == kStart;
        s.frameId = address == kStart ? 0 : s.frameId;
        s.changed.notify_all();
    }
}

GC_ERROR Write(void* port, uint64_t address, const void* buffer, const size_t* size)
{
    State& s = The();
    std::vector<char>& memory = s.memory[port];
    if (!InRange(memory, address, *size))
    {
        return GC_ERR_INVALID_ADDRESS;
    }
    const bool local = port == s.device || port == s.remote || port == s.stream;
    if (local && s.access == DEVICE_ACCESS_READONLY && !Fault("readonly_device_writes"))
    {
        return GC_ERR_ACCESS_DENIED;
    }
    if (address < kWritableBegin || address + *size > kWritableEnd)
    {
        return Fault("readonly_write_is_success") ? GC_ERR_SUCCESS : GC_ERR_ACCESS_DENIED;
    }
    std::memcpy(memory.data() + address, buffer, *size);
    Obey(port, address);
    return GC_ERR_SUCCESS;
}

bool IsPort(void* handle)
{
    const Kind kind = KindOf(handle);
    return kind != Kind::None && kind != Kind::Event && kind != Kind::Buffer;
}

GC_ERROR CheckPort(void* handle)
{
    if (!IsPort(handle) || !The().open)
    {
        // The answers of handles that are none, with the faults of these.
        return CheckHandle(handle, handle == nullptr ? Kind::System : Kind::Remote);
    }
    return GC_ERR_SUCCESS;
}

std::string Url(void* port)
{
    char place[64];
    std::snprintf(place, sizeof place, "%llx;%zx", static_cast<unsigned long long>(kXml),
                  The().memory[port].size() - static_cast<size_t>(kXml) + (Fault("url_length_wrong") ? 100 : 0));
    return (Fault("url_malformed") ? "local:made up;" : "local:made_up.xml;") + std::string(place);
}

GC_ERROR PortText(void* port, PORT_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    const Kind kind = KindOf(port);
    switch (command)
    {
    case PORT_INFO_ID:
        return AnswerText(kind == Kind::Remote && Fault("remote_port_id_differs") ? "remote"
                                                                                  : The().memory[port].data(),
                          type, buffer, size);
    case PORT_INFO_TLTYPE:
        return AnswerText(TLTypeCustomName, type, buffer, size);
    case PORT_INFO_MODULE:
        return AnswerText(Fault("module_name_wrong") ? "Module" : PortModule(kind), type, buffer, size);
    case PORT_INFO_PORTNAME:
        return AnswerText(Fault("port_name_wrong") ? "Elsewhere" : "Device", type, buffer, size);
    default:
        return AnswerText("1", type, buffer, size);
    }
}

GC_ERROR PortInfo(void* port, PORT_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    if (command < PORT_INFO_ID || command > PORT_INFO_PORTNAME)
    {
        return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
    }
    if (command < PORT_INFO_LITTLE_ENDIAN || command > PORT_INFO_ACCESS_NI)
    {
        return PortText(port, command, type, buffer, size);
    }
    const bool yes = command == PORT_INFO_LITTLE_ENDIAN || command == PORT_INFO_ACCESS_READ ||
                     command == PORT_INFO_ACCESS_WRITE ||
                     (command == PORT_INFO_BIG_ENDIAN && Fault("both_endiannesses"));
    return AnswerValue<uint8_t>(INFO_DATATYPE_BOOL8, yes ? 1 : 0, type, buffer, size);
}

GC_ERROR UrlInfo(void* port, URL_INFO_CMD command, INFO_DATATYPE* type, void* buffer, size_t* size)
{
    const uint64_t length = The().memory[port].size() - kXml;
    switch (command)
    {
    case URL_INFO_URL:
        return AnswerText(Url(port), type, buffer, size);
    case URL_INFO_SCHEMA_VER_MAJOR:
    case URL_INFO_SCHEMA_VER_MINOR:
    case URL_INFO_FILE_VER_MAJOR:
    case URL_INFO_FILE_VER_MINOR:
    case URL_INFO_FILE_VER_SUBMINOR:
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, 1, type, buffer, size);
    case URL_INFO_FILE_SHA1_HASH:
        return GC_ERR_NOT_AVAILABLE;
    case URL_INFO_FILE_REGISTER_ADDRESS:
        return AnswerValue<uint64_t>(INFO_DATATYPE_UINT64, Fault("url_address_wrong") ? 0 : kXml, type, buffer, size);
    case URL_INFO_FILE_SIZE:
        return AnswerValue<uint64_t>(INFO_DATATYPE_UINT64, length, type, buffer, size);
    case URL_INFO_SCHEME:
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, URL_SCHEME_LOCAL, type, buffer, size);
    case URL_INFO_FILENAME:
        return AnswerText("made_up.xml", type, buffer, size);
    default:
        return Fault("unknown_command_is_parameter") ? GC_ERR_INVALID_PARAMETER : GC_ERR_NOT_IMPLEMENTED;
    }
}

GC_ERROR Stacked(void* port, PORT_REGISTER_STACK_ENTRY* entries, size_t* count, bool write)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckPort(port); code != 0)
    {
        return Result(code);
    }
    if (entries == nullptr || count == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    for (size_t done = 0; done < *count; ++done)
    {
        const PORT_REGISTER_STACK_ENTRY& entry = entries[done];
        size_t size = entry.Size;
        const GC_ERROR code =
            write ? Write(port, entry.Address, entry.pBuffer, &size) : Read(port, entry.Address, entry.pBuffer, &size);
        if (code != GC_ERR_SUCCESS)
        {
            *count = Fault("stacked_count_wrong") ? 0 : done;
            return Result(code);
        }
    }
    return GC_ERR_SUCCESS;
}

} // namespace

std::string PortModule(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return TLSystemModuleName;
    case Kind::Interface:
        return TLInterfaceModuleName;
    case Kind::Device:
        return TLDeviceModuleName;
    case Kind::Stream:
        return TLDataStreamModuleName;
    default:
        return TLRemoteDeviceModuleName;
    }
}

void FillPort(void* module, Kind kind)
{
    std::vector<char>& memory = The().memory[module];
    const std::string xml = Xml(kind);
    memory.assign(kXml + xml.size(), 0);
    const char* id = kind == Kind::System      ? "made-up"
                     : kind == Kind::Interface ? kInterfaceId
                     : kind == Kind::Stream    ? kStreamId
                                               : kDeviceId;
    std::strcpy(memory.data(), id);
    xml.copy(memory.data() + kXml, xml.size());
    const auto payload = static_cast<uint32_t>(kPayload);
    std::memcpy(memory.data() + kPayloadRegister, &payload, sizeof payload);
}

} // namespace nq::faulty

using namespace nq::faulty;

extern "C" GC_API GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckPort(hPort); code != 0)
    {
        return Result(code);
    }
    if (pBuffer == nullptr || piSize == nullptr)
    {
        return Result(Fault("null_port_buffer_crashes") ? *static_cast<volatile GC_ERROR*>(pBuffer)
                                                        : GC_ERR_INVALID_PARAMETER);
    }
    return Result(Read(hPort, iAddress, pBuffer, piSize));
}

extern "C" GC_API GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckPort(hPort); code != 0)
    {
        return Result(code);
    }
    if (pBuffer == nullptr || piSize == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    return Result(Write(hPort, iAddress, pBuffer, piSize));
}

extern "C" GC_API GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries)
{
    return Stacked(hPort, pEntries, piNumEntries, false);
}

extern "C" GC_API GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries)
{
    return Stacked(hPort, pEntries, piNumEntries, true);
}

extern "C" GC_API GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckPort(hPort); code != 0)
    {
        return Result(code);
    }
    std::string list = Url(hPort);
    list.push_back('\0');
    list.push_back(Fault("url_list_ends_once") ? 'x' : '\0');
    INFO_DATATYPE type = 0;
    return Result(Answer(INFO_DATATYPE_STRINGLIST, list, &type, sURL, piSize));
}

extern "C" GC_API GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                                size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (KindOf(hPort) == Kind::Buffer)
    {
        return Result(Fault("buffer_port_is_handle") ? GC_ERR_INVALID_HANDLE : GC_ERR_NOT_IMPLEMENTED);
    }
    const GC_ERROR code = CheckPort(hPort);
    return Result(code != 0 ? code : PortInfo(hPort, iInfoCmd, piType, pBuffer, piSize));
}

extern "C" GC_API GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckPort(hPort); code != 0)
    {
        return Result(code);
    }
    if (piNumURLs == nullptr)
    {
        return Result(GC_ERR_INVALID_PARAMETER);
    }
    *piNumURLs = Fault("no_url") && hPort == The().interface ? 0 : 1;
    return GC_ERR_SUCCESS;
}

extern "C" GC_API GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                                   void* pBuffer, size_t* piSize)
{
    const std::lock_guard lock(The().mutex);
    if (const GC_ERROR code = CheckPort(hPort); code != 0)
    {
        return Result(code);
    }
    if (iURLIndex >= 1)
    {
        return Result(Fault("url_index_ignored") ? UrlInfo(hPort, iInfoCmd, piType, pBuffer, piSize)
                                                 : GC_ERR_INVALID_INDEX);
    }
    return Result(UrlInfo(hPort, iInfoCmd, piType, pBuffer, piSize));
}
