// SPDX-License-Identifier: Apache-2.0
// What an info function answers, whatever its type.
#include "info_value.h"

#include "printable.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace nq::tool
{

using nlohmann::ordered_json;

namespace
{

constexpr size_t kLargestInfo = size_t{64} * 1024;

/// The first bytes as a value of the type; zeros stand for what is missing.
template <typename Value>
Value FirstAs(const std::string& bytes)
{
    Value value{};
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    return value;
}

/// The texts of a list, each of which ends in 0.
std::vector<std::string> TextsIn(const std::string& bytes)
{
    std::vector<std::string> texts;
    for (size_t at = 0; at < bytes.size() && bytes[at] != '\0';)
    {
        texts.emplace_back(bytes.c_str() + at);
        at += texts.back().size() + 1;
    }
    return texts;
}

} // namespace

InfoAnswer AskInfo(const GenTLLibrary::InfoCall& call)
{
    InfoAnswer answer;
    size_t size = 0;
    answer.code = call(&answer.type, nullptr, &size);
    if (answer.code != GenTL::GC_ERR_SUCCESS)
    {
        return answer;
    }
    if (size > kLargestInfo)
    {
        answer.code = GenTL::GC_ERR_ERROR;
        return answer;
    }
    answer.bytes.assign(size, '\0');
    answer.code = call(&answer.type, answer.bytes.data(), &size);
    answer.bytes.resize(std::min(answer.bytes.size(), size));
    return answer;
}

std::string InfoTypeText(GenTL::INFO_DATATYPE type)
{
    static constexpr const char* kNames[] = {"UNKNOWN", "STRING", "STRINGLIST", "INT16",  "UINT16",
                                             "INT32",   "UINT32", "INT64",      "UINT64", "FLOAT64",
                                             "PTR",     "BOOL8",  "SIZET",      "BUFFER", "PTRDIFF"};
    return type >= 0 && static_cast<size_t>(type) < std::size(kNames) ? kNames[type] : std::to_string(type);
}

ordered_json InfoValueJson(const InfoAnswer& answer)
{
    const std::string& bytes = answer.bytes;
    switch (answer.type)
    {
    case GenTL::INFO_DATATYPE_STRING:
        return bytes.c_str(); // up to its end
    case GenTL::INFO_DATATYPE_STRINGLIST:
        return TextsIn(bytes);
    case GenTL::INFO_DATATYPE_INT16:
        return FirstAs<int16_t>(bytes);
    case GenTL::INFO_DATATYPE_UINT16:
        return FirstAs<uint16_t>(bytes);
    case GenTL::INFO_DATATYPE_INT32:
        return FirstAs<int32_t>(bytes);
    case GenTL::INFO_DATATYPE_UINT32:
        return FirstAs<uint32_t>(bytes);
    case GenTL::INFO_DATATYPE_INT64:
    case GenTL::INFO_DATATYPE_PTRDIFF:
        return FirstAs<int64_t>(bytes);
    case GenTL::INFO_DATATYPE_UINT64:
    case GenTL::INFO_DATATYPE_SIZET:
        return FirstAs<uint64_t>(bytes);
    case GenTL::INFO_DATATYPE_FLOAT64:
        return FirstAs<double>(bytes);
    case GenTL::INFO_DATATYPE_PTR:
        return fmt::format("0x{:x}", FirstAs<uint64_t>(bytes));
    case GenTL::INFO_DATATYPE_BOOL8:
        return FirstAs<uint8_t>(bytes) != 0;
    default:
        return HexText(bytes);
    }
}

std::optional<std::string> InfoString(const InfoAnswer& answer)
{
    const bool text = answer.code == GenTL::GC_ERR_SUCCESS && answer.type == GenTL::INFO_DATATYPE_STRING;
    return text ? std::optional<std::string>(answer.bytes.c_str()) : std::nullopt;
}

std::optional<int64_t> InfoInteger(const InfoAnswer& answer)
{
    if (answer.code != GenTL::GC_ERR_SUCCESS)
    {
        return std::nullopt;
    }
    const ordered_json value = InfoValueJson(answer);
    return value.is_number_integer() ? std::optional(value.get<int64_t>()) : std::nullopt;
}

std::optional<int64_t> EventNumber(GenTLLibrary& library, GenTL::EVENT_HANDLE event, std::string_view record)
{
    const auto ask = [&](GenTL::EVENT_DATA_INFO_CMD command) {
        return AskInfo([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
            return library.EventGetDataInfo(event, record.data(), record.size(), command, type, buffer, size);
        });
    };
    const InfoAnswer number = ask(GenTL::EVENT_DATA_NUMID);
    if (number.code == GenTL::GC_ERR_SUCCESS)
    {
        return InfoInteger(number);
    }
    const std::string text = InfoString(ask(GenTL::EVENT_DATA_ID)).value_or("");
    return text.empty() ? std::nullopt : std::optional<int64_t>(std::strtoll(text.c_str(), nullptr, 16));
}

} // namespace nq::tool
