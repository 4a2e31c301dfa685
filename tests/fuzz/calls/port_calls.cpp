// SPDX-License-Identifier: Apache-2.0
// Calls of the ports.
#include "fuzz/calls/caller.h"
#include "fuzz/port_registers.h"

namespace nq::fuzz
{
namespace
{

/// The register map of a module, null for one that has none.
const PortMap* MapOf(const Module& module)
{
    switch (module.kind)
    {
    case Kind::System:
        return &kPortMaps[0];
    case Kind::Interface:
        return &kPortMaps[1];
    case Kind::Device:
        return &kPortMaps[2];
    case Kind::Stream:
        return &kPortMaps[3];
    default:
        return nullptr;
    }
}

/// A handle with a port, mostly.
void* PickPort(const Model& model, FuzzInput& input)
{
    static constexpr Kind kKinds[] = {Kind::System, Kind::Interface, Kind::Device,
                                      Kind::Stream, Kind::Remote,    Kind::None};
    return model.Pick(input, kKinds[input.Below(std::size(kKinds))]);
}

/// An address of the module's map, mostly. The camera's own registers stay as the model knows them.
std::uint64_t PickAddress(const Module* module, FuzzInput& input)
{
    const PortMap* const map = module == nullptr ? nullptr : MapOf(*module);
    if (map != nullptr && input.Below(8) != 0)
    {
        return map->rows[input.Byte() % map->rows.size()].address;
    }
    return 0x20000 + input.Word();
}

} // namespace

/// Registers whose writing is a scan.
void Caller::NotePortWrite(const Module& module, std::uint64_t address)
{
    if (module.kind == Kind::System && address == 0x5050C)
    {
        m_model.adapterListed = true;
    }
    if (module.kind == Kind::Interface && address == 0x60104)
    {
        m_model.Find(module.handle)->cameraListed = !CameraIsSilent();
    }
}

void Caller::GCReadPort()
{
    void* const port = PickPort(m_model, m_input);
    const Module* const module = m_model.Find(port);
    const std::uint64_t address = PickAddress(module, m_input);
    const std::size_t space = m_input.Byte() * 2U;
    const auto memory = std::make_unique<unsigned char[]>(space);
    std::size_t size = space;
    const unsigned char nulls = m_input.Byte();
    const bool incomplete = (nulls & 0x0F) == 1;
    const int result =
        GenTL::GCReadPort(port, address, (nulls & 0x1F) == 1 ? nullptr : memory.get(), incomplete ? nullptr : &size);
    if (!Reaches("GCReadPort", result, module != nullptr))
    {
        return;
    }
    const PortMap* const map = MapOf(*module);
    if (map == nullptr || incomplete)
    {
        const int remote = incomplete ? -1009 : CameraHelps() ? 0 : -1010;
        Expect("GCReadPort", result, module->kind == Kind::Buffer ? -1003 : map == nullptr ? remote : -1009);
        return;
    }
    Require(map->ReadMayGive(address, space, result, size), "a port read", result);
    Expect("GCReadPort", result, result);
}

void Caller::GCWritePort()
{
    void* const port = PickPort(m_model, m_input);
    const Module* const module = m_model.Find(port);
    const std::uint64_t address = PickAddress(module, m_input);
    Bytes bytes = m_input.Take(m_input.Below(16));
    std::size_t size = bytes.size();
    bytes.push_back(0);
    const bool incomplete = (m_input.Byte() & 0x0F) == 1;
    const int result = GenTL::GCWritePort(port, address, bytes.data(), incomplete ? nullptr : &size);
    if (!Reaches("GCWritePort", result, module != nullptr))
    {
        return;
    }
    const PortMap* const map = MapOf(*module);
    if (map == nullptr || incomplete)
    {
        const int remote = incomplete ? -1009 : CameraHelps() ? 0 : -1010;
        Expect("GCWritePort", result, module->kind == Kind::Buffer ? -1003 : map == nullptr ? remote : -1009);
        return;
    }
    Expect("GCWritePort", result, map->WriteResult(address));
    NotePortWrite(*module, address);
}

void Caller::Stacked(const char* function, bool reads)
{
    void* const port = PickPort(m_model, m_input);
    const Module* const module = m_model.Find(port);
    const bool incomplete = m_input.Below(16) == 1;
    std::vector<unsigned char> memory(8 * 4);
    std::vector<GenTL::PORT_REGISTER_STACK_ENTRY> entries(1 + m_input.Below(4));
    int expected = 0;
    for (std::size_t i = 0; i < entries.size(); ++i)
    {
        const std::uint64_t address = PickAddress(module, m_input);
        entries[i] = {address, memory.data() + 8 * i, 8};
        const PortMap* const map = module == nullptr ? nullptr : MapOf(*module);
        if (map == nullptr || expected != 0 || incomplete)
        {
            continue;
        }
        if (!reads)
        {
            expected = map->WriteResult(address);
            NotePortWrite(*module, address);
        }
        else if (!map->ReadMayGive(address, 8, 0, 8) && !map->ReadMayGive(address, 8, 0, 4) && !map->IsText(address))
        {
            expected = -1015;
        }
        else if (map->IsText(address))
        {
            expected = 1; // 0 or too small: from here on both
        }
    }
    std::size_t count = entries.size();
    std::size_t* const counted = incomplete ? nullptr : &count;
    const int result = reads ? GenTL::GCReadPortStacked(port, entries.data(), counted)
                             : GenTL::GCWritePortStacked(port, entries.data(), counted);
    if (!Reaches(function, result, module != nullptr))
    {
        return;
    }
    if (module->kind == Kind::Remote)
    {
        expected = CameraHelps() ? 0 : -1010;
    }
    const int code = module->kind == Kind::Buffer ? -1003 : incomplete ? -1009 : expected;
    const bool open = code == 1 && (result == 0 || result == -1016 || result == -1015);
    Expect(function, result, open ? result : code);
}

void Caller::GCReadPortStacked()
{
    Stacked("GCReadPortStacked", true);
}

void Caller::GCWritePortStacked()
{
    Stacked("GCWritePortStacked", false);
}

void Caller::GCGetPortURL()
{
    void* const port = PickPort(m_model, m_input);
    const std::size_t space = m_input.Byte() * 8U;
    const auto text = std::make_unique<char[]>(space);
    std::size_t size = space;
    const unsigned char nulls = m_input.Byte();
    const bool noSize = (nulls & 0x0F) == 1;
    const bool noText = (nulls & 0x30) == 0x10;
    const int result = GenTL::GCGetPortURL(port, noText ? nullptr : text.get(), noSize ? nullptr : &size);
    const Module* const module = m_model.Find(port);
    if (Reaches("GCGetPortURL", result, module != nullptr))
    {
        const bool fits = noText || size <= space;
        Expect("GCGetPortURL", result, module->kind == Kind::Buffer ? -1003 : noSize ? -1009 : fits ? 0 : -1016);
    }
}

void Caller::GCGetPortInfo()
{
    void* const port = PickPort(m_model, m_input);
    InfoArguments info(m_input, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    const int result = GenTL::GCGetPortInfo(port, info.command, info.typePointer, info.buffer, info.sizePointer);
    const Module* const module = m_model.Find(port);
    if (Reaches("GCGetPortInfo", result, module != nullptr))
    {
        const bool known = info.command >= 0 && info.command <= 12 && module->kind != Kind::Buffer;
        const bool incomplete = info.Incomplete() && module->kind != Kind::Buffer;
        ExpectInfo("GCGetPortInfo", result, info, incomplete ? -1009 : known ? 0 : -1003);
    }
}

void Caller::GCGetNumPortURLs()
{
    void* const port = PickPort(m_model, m_input);
    const bool noCount = m_input.Below(16) == 1;
    std::uint32_t count = 99;
    const int result = GenTL::GCGetNumPortURLs(port, noCount ? nullptr : &count);
    const Module* const module = m_model.Find(port);
    if (Reaches("GCGetNumPortURLs", result, module != nullptr))
    {
        Expect("GCGetNumPortURLs", result, module->kind == Kind::Buffer ? -1003 : noCount ? -1009 : 0);
        Require(result != 0 || (module->kind == Kind::Remote ? count <= 2 : count == 1), "the number of URLs", count);
    }
}

void Caller::GCGetPortURLInfo()
{
    void* const port = PickPort(m_model, m_input);
    const std::uint32_t index = static_cast<std::uint32_t>(m_input.Below(4));
    InfoArguments info(m_input, {0, 0, 0, 1});
    const int result =
        GenTL::GCGetPortURLInfo(port, index, info.command, info.typePointer, info.buffer, info.sizePointer);
    const Module* const module = m_model.Find(port);
    if (!Reaches("GCGetPortURLInfo", result, module != nullptr))
    {
        return;
    }
    const int refused = module->kind == Kind::Buffer ? -1003
                        : info.Incomplete()          ? -1009
                        : info.command != 0          ? -1003
                                                     : 0;
    if (refused == 0 && module->kind == Kind::Remote && result == -1017)
    {
        Expect("GCGetPortURLInfo", result, -1017); // the camera's URLs may not have been readable
        return;
    }
    const bool past = refused == 0 && module->kind != Kind::Remote && index >= 1;
    ExpectInfo("GCGetPortURLInfo", result, info, past ? -1017 : refused);
}

} // namespace nq::fuzz
