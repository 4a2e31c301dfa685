// SPDX-License-Identifier: Apache-2.0
// The virtual register maps of the four kinds of module: what each address answers to a read and to a write.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace nq::fuzz
{

enum class Form
{
    Map,    ///< the map's own text: any size is served
    Text,   ///< needs as much as it says
    Number, ///< four bytes
    Long,   ///< eight bytes
    Hidden, ///< no read, only the write below
};

enum class Writing
{
    Denied,
    Taken,  ///< accepted without an effect that can be read
    Stored, ///< a number that can be read back
};

struct PortRegister
{
    std::uint64_t address;
    Form form;
    Writing writing;
};

inline constexpr PortRegister kSystemRegisters[] = {
    {0x10000, Form::Map, Writing::Denied},    {0x50000, Form::Text, Writing::Denied},
    {0x50100, Form::Text, Writing::Denied},   {0x50200, Form::Text, Writing::Denied},
    {0x50300, Form::Text, Writing::Denied},   {0x50400, Form::Text, Writing::Denied},
    {0x50504, Form::Number, Writing::Denied}, {0x50508, Form::Number, Writing::Denied},
    {0x5050C, Form::Number, Writing::Taken},  {0x50510, Form::Number, Writing::Stored},
    {0x50514, Form::Text, Writing::Denied},   {0x50614, Form::Number, Writing::Denied},
    {0x50618, Form::Long, Writing::Denied},   {0x50620, Form::Number, Writing::Denied},
    {0x50624, Form::Number, Writing::Denied}, {0x50628, Form::Number, Writing::Denied},
};

inline constexpr PortRegister kInterfaceRegisters[] = {
    {0x10000, Form::Map, Writing::Denied},    {0x60000, Form::Text, Writing::Denied},
    {0x60104, Form::Number, Writing::Taken},  {0x60108, Form::Number, Writing::Stored},
    {0x6010C, Form::Text, Writing::Denied},   {0x6020C, Form::Text, Writing::Denied},
    {0x6030C, Form::Text, Writing::Denied},   {0x6040C, Form::Number, Writing::Denied},
    {0x60410, Form::Number, Writing::Denied}, {0x60414, Form::Number, Writing::Taken},
    {0x60418, Form::Number, Writing::Denied}, {0x6041C, Form::Number, Writing::Denied},
    {0x60420, Form::Long, Writing::Denied},   {0x60428, Form::Number, Writing::Taken},
    {0x60430, Form::Number, Writing::Denied}, {0x60434, Form::Number, Writing::Denied},
    {0x60438, Form::Number, Writing::Denied}, {0x6043C, Form::Number, Writing::Denied},
    {0x60440, Form::Number, Writing::Denied}, {0x60444, Form::Long, Writing::Denied},
    {0x60448, Form::Hidden, Writing::Taken},
};

inline constexpr PortRegister kDeviceRegisters[] = {
    {0x10000, Form::Map, Writing::Denied},    {0x70000, Form::Text, Writing::Denied},
    {0x70100, Form::Text, Writing::Denied},   {0x70200, Form::Text, Writing::Denied},
    {0x70300, Form::Number, Writing::Denied}, {0x70304, Form::Number, Writing::Stored},
    {0x70308, Form::Text, Writing::Denied},   {0x70408, Form::Number, Writing::Denied},
    {0x7040C, Form::Long, Writing::Denied},   {0x70410, Form::Number, Writing::Denied},
    {0x70414, Form::Number, Writing::Denied}, {0x70418, Form::Number, Writing::Denied},
    {0x7041C, Form::Text, Writing::Taken},    {0x7051C, Form::Hidden, Writing::Denied},
    {0x7052C, Form::Number, Writing::Taken},  {0x70530, Form::Number, Writing::Stored},
};

inline constexpr PortRegister kStreamRegisters[] = {
    {0x10000, Form::Map, Writing::Denied},    {0x80000, Form::Text, Writing::Denied},
    {0x80100, Form::Number, Writing::Denied}, {0x80104, Form::Number, Writing::Taken},
    {0x80108, Form::Number, Writing::Denied}, {0x8010C, Form::Long, Writing::Denied},
    {0x80110, Form::Long, Writing::Denied},   {0x80114, Form::Long, Writing::Denied},
    {0x80118, Form::Hidden, Writing::Denied}, {0x80218, Form::Hidden, Writing::Denied},
    {0x80418, Form::Hidden, Writing::Denied}, {0x8041C, Form::Hidden, Writing::Denied},
    {0x80420, Form::Hidden, Writing::Denied}, {0x80424, Form::Hidden, Writing::Denied},
    {0x80428, Form::Hidden, Writing::Denied}, {0x8042C, Form::Long, Writing::Denied},
    {0x80430, Form::Long, Writing::Denied},   {0x80434, Form::Number, Writing::Stored},
};

/// A register map of one of these tables.
struct PortMap
{
    const PortRegister* begin;
    std::size_t count;

    /// The register that begins at an address, null when there is none.
    const PortRegister* Find(std::uint64_t address) const
    {
        const PortRegister* const end = begin + count;
        const PortRegister* const found =
            std::find_if(begin, end, [&](const PortRegister& other) { return other.address == address; });
        return found == end ? nullptr : found;
    }

    bool IsText(std::uint64_t address) const
    {
        const PortRegister* const found = Find(address);
        return found != nullptr && found->form == Form::Text;
    }

    /// Whether a read of `space` bytes may end with `result` when the size came back as `size`.
    bool ReadMayGive(std::uint64_t address, std::size_t space, int result, std::size_t size) const
    {
        const PortRegister* const found = Find(address);
        if (found == nullptr || found->form == Form::Hidden)
        {
            return result == -1015 && size == space;
        }
        if (found->form == Form::Map)
        {
            return result == 0 && size == space;
        }
        const bool sized = found->form == Form::Text || size == (found->form == Form::Number ? 4U : 8U);
        return sized && (space < size ? result == -1016 : result == 0);
    }

    int WriteResult(std::uint64_t address) const
    {
        const PortRegister* const found = Find(address);
        if (found == nullptr)
        {
            return -1015;
        }
        return found->writing == Writing::Denied ? -1005 : 0;
    }
};

inline constexpr PortMap kPortMaps[] = {
    {kSystemRegisters, std::size(kSystemRegisters)},
    {kInterfaceRegisters, std::size(kInterfaceRegisters)},
    {kDeviceRegisters, std::size(kDeviceRegisters)},
    {kStreamRegisters, std::size(kStreamRegisters)},
};

} // namespace nq::fuzz
