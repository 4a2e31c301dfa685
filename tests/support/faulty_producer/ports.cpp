// SPDX-License-Identifier: Apache-2.0
// The ports of the modules: registers, their description in XML, and its URL.
#include "state.h"

#include <cstdio>
#include <unistd.h>

using namespace GenTL;

namespace nq::faulty
{

namespace
{

constexpr uint64_t kRegistersEnd = 0x2000;
constexpr uint64_t kNumbers = 0x100; // of 4 bytes each
constexpr uint64_t kTexts = 0x1000;  // of kTextSize bytes each
constexpr uint64_t kTextSize = 0x100;
constexpr uint64_t kSelector = 0x204;
constexpr uint64_t kUpdate = 0x300;
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
           "</Address><Length>256</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>\n";
}

void AddChoice(std::string& xml, const std::string& name)
{
    xml += "<Enumeration Name=\"" + name + "\"><EnumEntry Name=\"Custom\"><Value>0</Value></EnumEntry>" +
           "<Value>0</Value></Enumeration>\n";
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

std::string NameOfPort(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return "TLPort";
    case Kind::Interface:
        return "InterfacePort";
    case Kind::Device:
        return "DevicePort";
    case Kind::Stream:
        return "StreamPort";
    default:
        return "Device";
    }
}

using Texts = std::vector<std::pair<std::string, std::string>>;

/// The features that are texts, with their values.
Texts TextFeatures(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return {{"TLID", "made-up"},        {"TLVendorName", "Made up"},
                {"TLModelName", "Made up"}, {"TLVersion", Fault("feature_value_differs") ? "0.9" : "1.0"},
                {"TLPath", OwnPath()},      {"InterfaceID", kInterfaceId}};
    case Kind::Interface:
        return {{"InterfaceID", kInterfaceId},
                {"DeviceID", kDeviceId},
                {"DeviceVendorName", "Made up"},
                {"DeviceModelName", "Camera"}};
    case Kind::Device:
        return {{"DeviceID", kDeviceId},
                {"DeviceVendorName", "Made up"},
                {"DeviceModelName", "Camera"},
                {"StreamID", kStreamId}};
    case Kind::Stream:
        return {{"StreamID", kStreamId}};
    default:
        return {{"DeviceModelName", "Camera"}};
    }
}

std::vector<std::string> ChoiceFeatures(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return {"TLType"};
    case Kind::Interface:
        return {"InterfaceType", "DeviceAccessStatus"};
    case Kind::Device:
        return {"DeviceType", "DeviceAccessStatus"};
    case Kind::Stream:
        return {"StreamType", "StreamBufferHandlingMode"};
    default:
        return {};
    }
}

/// The features that are numbers and read only, with their values.
std::vector<std::pair<std::string, uint32_t>> NumberFeatures(Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        return {{"GenTLVersionMajor", Fault("wrong_version") ? 5 : 1}, {"GenTLVersionMinor", 5}};
    case Kind::Interface:
        return {{"InterfaceTLVersionMajor", 1},
                {"InterfaceTLVersionMinor", 0},
                {"DeviceTLVersionMajor", 1},
                {"DeviceTLVersionMinor", 0}};
    case Kind::Stream:
        return {{"StreamAnnouncedBufferCount", static_cast<uint32_t>(The().buffers.size())},
                {"StreamAnnounceBufferMinimum", 1}};
    default:
        return {};
    }
}

void AddSelector(std::string& xml, const std::string& name)
{
    if (Fault("selector_is_text"))
    {
        AddText(xml, name, kTexts);
        return;
    }
    AddNumber(xml, name, kSelector, "RW");
}

void AddOfKind(std::string& xml, Kind kind)
{
    switch (kind)
    {
    case Kind::System:
        AddCommand(xml, "InterfaceUpdateList", kUpdate);
        AddSelector(xml, "InterfaceSelector");
        break;
    case Kind::Interface:
        AddCommand(xml, "DeviceUpdateList", kUpdate);
        AddSelector(xml, "DeviceSelector");
        break;
    case Kind::Device:
        AddSelector(xml, "StreamSelector");
        break;
    case Kind::Stream:
        xml += Fault("sfnc_feature_missing") ? "" : "<Category Name=\"StreamInformation\"/>\n";
        break;
    default:
        AddCommand(xml, "AcquisitionStart", kStart);
        AddCommand(xml, "AcquisitionStop", kStop);
        AddNumber(xml, "PayloadSize", kPayloadRegister, "RO");
        break;
    }
}

void AddFeatures(std::string& xml, Kind kind)
{
    uint64_t place = kTexts;
    for (const auto& [name, value] : TextFeatures(kind))
    {
        AddText(xml, name, place);
        place += kTextSize;
    }
    place = kNumbers;
    for (const auto& [name, value] : NumberFeatures(kind))
    {
        AddNumber(xml, name, place, "RO");
        place += 4;
    }
    for (const std::string& name : ChoiceFeatures(kind))
    {
        if (!(Fault("feature_missing") && name == "StreamBufferHandlingMode"))
        {
            AddChoice(xml, name);
        }
    }
    AddNumber(xml, "Changeable", kWritableBegin, "RW");
    AddOfKind(xml, kind);
}

std::string Xml(Kind kind)
{
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<RegisterDescription>\n<Category Name=\"Root\">"
                      "<pFeature>Changeable</pFeature></Category>\n";
    AddFeatures(xml, kind);
    if (Fault("xml_reference_dangles") && kind == Kind::Device)
    {
        xml += "<Integer Name=\"Lost\"><pValue>Nowhere</pValue></Integer>\n";
    }
    if (Fault("xml_register_outside") && kind == Kind::Device)
    {
        AddNumber(xml, "Outside", 0x9000, "RO");
    }
    const std::string port = NameOfPort(kind);
    const std::string reference = "<pPort>Device</pPort>";
    for (size_t at = xml.find(reference); at != std::string::npos; at = xml.find(reference, at + 1))
    {
        xml.replace(at, reference.size(), "<pPort>" + port + "</pPort>");
    }
    xml += "<Port Name=\"" + port + "\"/>\n";
    return xml + (Fault("xml_broken") && kind == Kind::Stream ? "</Register>" : "</RegisterDescription>\n");
}

void PutText(std::vector<char>& memory, size_t index, const std::string& text)
{
    char* const place = memory.data() + kTexts + kTextSize * index;
    std::memset(place, 0, kTextSize);
    text.copy(place, kTextSize - 1);
}

/// Values of the features as they are now.
void FillFeatures(std::vector<char>& memory, Kind kind)
{
    size_t index = 0;
    for (const auto& [name, value] : TextFeatures(kind))
    {
        PutText(memory, index++, value);
    }
    index = 0;
    for (const auto& [name, value] : NumberFeatures(kind))
    {
        std::memcpy(memory.data() + kNumbers + 4 * index++, &value, sizeof value);
    }
    uint32_t selected = 0;
    std::memcpy(&selected, memory.data() + kSelector, sizeof selected);
    if (kind == Kind::System && selected == 1)
    {
        PutText(memory, 5, OtherInterfaceId());
    }
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
    std::vector<char>& memory = The().memory[port];
    FillFeatures(memory, KindOf(port));
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
    if (Fault("other_threads_read_zeros") && gettid() != getpid())
    {
        std::memset(buffer, 0, *size);
    }
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
    if (address == kUpdate && !Fault("update_command_does_nothing"))
    {
        s.interfacesListed = s.interfacesListed || port == s.system;
        s.devicesListed = s.devicesListed || port == s.interface;
    }
}

/// Whether a selection is one of the list.
bool Selects(const void* port, uint64_t address, const void* value)
{
    uint32_t selected = 0;
    std::memcpy(&selected, value, sizeof selected);
    const bool selector =
        address == kSelector && (port == The().system || port == The().interface || port == The().device);
    const uint32_t count = port == The().interface ? Devices() : port == The().system ? Interfaces() : 1;
    return !selector || (Fault("selector_counts_from_1") ? selected >= 1 && selected <= count : selected < count);
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
    if (*size == 4 && !Selects(port, address, buffer))
    {
        return GC_ERR_INVALID_VALUE;
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
        if ((kind == Kind::Remote && Fault("remote_port_id_differs")) ||
            (kind == Kind::Stream && Fault("stream_port_id_differs")))
        {
            return AnswerText("port", type, buffer, size);
        }
        return AnswerText(The().memory[port].data(), type, buffer, size);
    case PORT_INFO_TLTYPE:
        return AnswerText(TLTypeCustomName, type, buffer, size);
    case PORT_INFO_MODULE:
        return AnswerText(Fault("module_name_wrong") ? "Module" : PortModule(kind), type, buffer, size);
    case PORT_INFO_PORTNAME:
        return AnswerText(Fault("port_name_wrong") ? "Elsewhere" : NameOfPort(kind), type, buffer, size);
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
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, 1, type, buffer, size);
    case URL_INFO_FILE_VER_SUBMINOR:
        return AnswerValue<int32_t>(INFO_DATATYPE_INT32, Fault("info_changes") ? ++The().asked : 1, type, buffer, size);
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
        return Result(write && Fault("stacked_write_without_entries") ? GC_ERR_INVALID_BUFFER
                                                                      : GC_ERR_INVALID_PARAMETER);
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
    memory[kSelector] = Fault("selector_counts_from_1") ? 1 : 0;
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
    std::string list = Url(hPort) + (Fault("url_list_has_another") ? "0" : "");
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
