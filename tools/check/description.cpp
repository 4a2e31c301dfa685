// SPDX-License-Identifier: Apache-2.0
// The description behind a port.
#include "description.h"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <zlib.h>

namespace nq::check
{

namespace
{

constexpr uint64_t kLargestFile = uint64_t{64} << 20;
constexpr size_t kLongestText = 4096;

template <class Value>
Value At(const std::string& bytes, size_t at)
{
    Value value{};
    if (at + sizeof value > bytes.size())
    {
        throw std::runtime_error("the zip ends early");
    }
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

/// Where a register node lies; nothing without a fixed address.
std::optional<Register> PlaceOf(const Element* node)
{
    const auto address = node == nullptr ? std::nullopt : ToNumber(node->TextOf("Address"));
    const auto length = node == nullptr ? std::nullopt : ToNumber(node->TextOf("Length"));
    const bool fixed = address && length && node->TextOf("pAddress").empty();
    return fixed ? std::optional(Register{*address, *length, node->TextOf("Endianess") == "BigEndian"}) : std::nullopt;
}

/// The numbers of a zip's central directory.
struct ZipEntry
{
    uint16_t method = 0;
    uint32_t packed = 0;
    uint32_t size = 0;
    uint32_t header = 0;
};

ZipEntry FirstEntry(const std::string& file)
{
    const size_t entry = file.find(std::string("PK\x01\x02", 4));
    if (entry == std::string::npos)
    {
        throw std::runtime_error("the zip has no directory");
    }
    return {At<uint16_t>(file, entry + 10), At<uint32_t>(file, entry + 20), At<uint32_t>(file, entry + 24),
            At<uint32_t>(file, entry + 42)};
}

std::string Inflated(const std::string& packed, size_t size)
{
    std::string out(size, '\0');
    z_stream stream{};
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    inflateInit2(&stream, -MAX_WBITS);
    const int code = inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    if (code != Z_STREAM_END)
    {
        throw std::runtime_error("the zip cannot be unpacked");
    }
    return out;
}

} // namespace

std::optional<std::string> FirstUrl(Context& context, GenTL::PORT_HANDLE port)
{
    return TextInfo([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.GCGetPortURLInfo(port, 0, GenTL::URL_INFO_URL, type, buffer, size);
    });
}

std::optional<std::string> ReadBytes(Context& context, GenTL::PORT_HANDLE port, uint64_t address, size_t size)
{
    std::string bytes(size, '\0');
    size_t moved = size;
    const bool read = context.gentl.GCReadPort(port, address, bytes.data(), &moved) == GenTL::GC_ERR_SUCCESS;
    return read && moved == size ? std::optional(bytes) : std::nullopt;
}

std::string Unzipped(const std::string& file)
{
    if (!file.starts_with("PK\x03\x04"))
    {
        return file;
    }
    const ZipEntry entry = FirstEntry(file);
    const size_t data = entry.header + 30 + At<uint16_t>(file, entry.header + size_t{26}) +
                        At<uint16_t>(file, entry.header + size_t{28});
    if (entry.size > kLargestFile || data > file.size() || entry.packed > file.size() - data)
    {
        throw std::runtime_error("the zip tells wrong sizes");
    }
    const std::string packed = file.substr(data, entry.packed);
    return entry.method == 0 ? packed : Inflated(packed, entry.size);
}

Description::Description(std::string_view xml) : m_root(ParseXml(xml))
{
    Collect(m_root);
}

void Description::Collect(const Element& element)
{
    for (const Element& child : element.children)
    {
        if (const auto name = child.attributes.find("Name"); name != child.attributes.end())
        {
            m_nodes.push_back(&child);
            m_byName.emplace(name->second, &child);
        }
        Collect(child);
    }
}

const Element* Description::Find(const std::string& name) const
{
    const auto found = m_byName.find(name);
    return found == m_byName.end() ? nullptr : found->second;
}

/// The node of one of the kinds that the feature's value comes from; null where the way to it ends before.
const Element* Description::EndOf(const std::string& feature, std::initializer_list<std::string_view> kinds) const
{
    const Element* node = Find(feature);
    for (int steps = 0; node != nullptr && steps < 10; ++steps)
    {
        if (std::find(kinds.begin(), kinds.end(), node->name) != kinds.end())
        {
            return node;
        }
        node = Find(node->TextOf("pValue"));
    }
    return nullptr;
}

std::optional<Register> Description::RegisterOf(const std::string& feature) const
{
    const auto place = PlaceOf(EndOf(feature, {"IntReg", "MaskedIntReg"}));
    return place && place->length <= sizeof(uint64_t) ? place : std::nullopt;
}

std::optional<Register> Description::TextRegisterOf(const std::string& feature) const
{
    const auto place = PlaceOf(EndOf(feature, {"StringReg"}));
    return place && place->length <= kLongestText ? place : std::nullopt;
}

Description DescriptionOf(Context& context, GenTL::PORT_HANDLE port)
{
    const auto url = ParseLocalUrl(FirstUrl(context, port).value_or(""));
    if (!url || url->length > kLargestFile)
    {
        Context::NotTried("the port has no description in its registers");
    }
    const auto file = ReadBytes(context, port, url->address, url->length);
    if (!file)
    {
        Context::NotTried("the description of the port cannot be read");
    }
    try
    {
        return Description(Unzipped(*file));
    }
    catch (const std::runtime_error& failure)
    {
        Context::NotTried(fmt::format("the description of the port is broken: {}", failure.what()));
    }
}

std::optional<uint64_t> ToNumber(const std::string& text)
{
    const bool number =
        !text.empty() && text.size() <= 18 && std::isxdigit(static_cast<unsigned char>(text.back())) != 0;
    return number ? std::optional<uint64_t>(std::strtoull(text.c_str(), nullptr, 0)) : std::nullopt;
}

bool ExecuteCommand(Context& context, GenTL::PORT_HANDLE port, const Description& description, const std::string& name)
{
    const Element* command = description.Find(name);
    return command != nullptr &&
           WriteFeature(context, port, description, name, ToNumber(command->TextOf("CommandValue")).value_or(1));
}

bool WriteFeature(Context& context, GenTL::PORT_HANDLE port, const Description& description, const std::string& name,
                  uint64_t value)
{
    const auto place = description.RegisterOf(name);
    if (!place)
    {
        return false;
    }
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    if (place->bigEndian)
    {
        std::reverse(bytes, bytes + place->length);
    }
    NoteBytes(bytes, bytes, place->length);
    size_t size = place->length;
    return context.gentl.GCWritePort(port, place->address, bytes, &size) == GenTL::GC_ERR_SUCCESS;
}

std::optional<std::string> ReadText(Context& context, GenTL::PORT_HANDLE port, const Description& description,
                                    const std::string& name)
{
    const auto place = description.TextRegisterOf(name);
    const auto bytes = place ? ReadBytes(context, port, place->address, place->length) : std::nullopt;
    return bytes ? std::optional<std::string>(bytes->c_str()) : std::nullopt;
}

std::optional<uint64_t> ReadFeature(Context& context, GenTL::PORT_HANDLE port, const Description& description,
                                    const std::string& name)
{
    const auto place = description.RegisterOf(name);
    auto bytes = place ? ReadBytes(context, port, place->address, place->length) : std::nullopt;
    if (!bytes)
    {
        return std::nullopt;
    }
    if (place->bigEndian)
    {
        std::reverse(bytes->begin(), bytes->end());
    }
    bytes->resize(sizeof(uint64_t), '\0');
    return At<uint64_t>(*bytes, 0);
}

} // namespace nq::check
