// SPDX-License-Identifier: Apache-2.0
// Texts and bytes of cameras, producers and files, made fit for a terminal.
#include "printable.h"

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

struct Character
{
    uint32_t code;
    size_t bytes; ///< 0 when the text does not begin with UTF-8
};

Character FirstOf(std::string_view text)
{
    const auto byteAt = [&](size_t at) { return static_cast<uint8_t>(text[at]); };
    const uint8_t lead = byteAt(0);
    if (lead < 0x80)
    {
        return {lead, 1};
    }
    const size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < bytes)
    {
        return {0, 0};
    }
    uint32_t code = lead & (0x7FU >> bytes);
    for (size_t at = 1; at < bytes; ++at)
    {
        if ((byteAt(at) & 0xC0) != 0x80)
        {
            return {0, 0};
        }
        code = code << 6 | (byteAt(at) & 0x3FU);
    }
    const bool overlong = (bytes == 3 && code < 0x800) || (bytes == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return {code, overlong || surrogate || code > 0x10FFFF ? 0 : bytes};
}

bool IsObeyedOrInvisible(uint32_t code)
{
    struct Range
    {
        uint32_t first;
        uint32_t last;
    };
    static constexpr Range kRanges[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C}, {0x200B, 0x200F},
                                        {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xE0000, 0xE0FFF}};
    return std::any_of(std::begin(kRanges), std::end(kRanges),
                       [&](const Range& range) { return code >= range.first && code <= range.last; });
}

} // namespace

std::string Printable(std::string_view text)
{
    std::string printable;
    while (!text.empty())
    {
        const Character character = FirstOf(text);
        const std::string_view bytes = text.substr(0, std::max<size_t>(character.bytes, 1));
        if (character.bytes == 0 || IsObeyedOrInvisible(character.code))
        {
            for (const char byte : bytes)
            {
                printable += fmt::format("\\x{:02x}", static_cast<uint8_t>(byte));
            }
        }
        else
        {
            printable += bytes;
        }
        text.remove_prefix(bytes.size());
    }
    return printable;
}

std::string HexText(std::string_view bytes, std::string_view between)
{
    std::string text;
    for (const char byte : bytes)
    {
        text += fmt::format("{}{:02x}", text.empty() ? "" : between, static_cast<uint8_t>(byte));
    }
    return text;
}

} // namespace nq::tool
