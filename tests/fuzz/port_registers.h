// SPDX-License-Identifier: Apache-2.0
// The virtual register maps of the four kinds of module: what each address answers to a read and to a write.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace nq::fuzz
{

enum class Kind
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
    Kind kind;
    Writing writing;
};

inline constexpr PortRegister kSystemRegisters[] = {
    {0x10000, Kind::Map, Writing::Denied},    {0x50000, Kind::Text, Writing::Denied},
    {0x50100, Kind::Text, Writing::Denied},   {0x50200, Kind::Text, Writing::Denied},
    {0x50300, Kind::Text, Writing::Denied},   {0x50400, Kind::Text, Writing::Denied},
    {0x50504, Kind::Number, Writing::Denied}, {0x50508, Kind::Number, Writing::Denied},
    {0x5050C, Kind::Number, Writing::Taken},  {0x50510, Kind::Number, Writing::Stored},
    {0x50514, Kind::Text, Writing::Denied},   {0x50614, Kind::Number, Writing::Denied},
    {0x50618, Kind::Long, Writing::Denied},   {0x50620, Kind::Number, Writing::Denied},
    {0x50624, Kind::Number, Writing::Denied}, {0x50628, Kind::Number, Writing::Denied},
};

inline constexpr PortRegister kInterfaceRegisters[] = {
    {0x10000, Kind::Map, Writing::Denied},    {0x60000, Kind::Text, Writing::Denied},
    {0x60104, Kind::Number, Writing::Taken},  {0x60108, Kind::Number, Writing::Stored},
    {0x6010C, Kind::Text, Writing::Denied},   {0x6020C, Kind::Text, Writing::Denied},
    {0x6030C, Kind::Text, Writing::Denied},   {0x6040C, Kind::Number, Writing::Denied},
    {0x60410, Kind::Number, Writing::Denied}, {0x60414, Kind::Number, Writing::Taken},
    {0x60418, Kind::Number, Writing::Denied}, {0x6041C, Kind::Number, Writing::Denied},
    {0x60420, Kind::Long, Writing::Denied},   {0x60428, Kind::Number, Writing::Taken},
    {0x60430, Kind::Number, Writing::Denied}, {0x60434, Kind::Number, Writing::Denied},
    {0x60438, Kind::Number, Writing::Denied}, {0x6043C, Kind::Number, Writing::Denied},
    {0x60440, Kind::Number, Writing::Denied}, {0x60444, Kind::Long, Writing::Denied},
    {0x60448, Kind::Hidden, Writing::Taken},
};

inline constexpr PortRegister kDeviceRegisters[] = {
    {0x10000, Kind::Map, Writing::Denied},    {0x70000, Kind::Text, Writing::Denied},
    {0x70100, Kind::Text, Writing::Denied},   {0x70200, Kind::Text, Writing::Denied},
    {0x70300, Kind::Number, Writing::Denied}, {0x70304, Kind::Number, Writing::Stored},
    {0x70308, Kind::Text, Writing::Denied},   {0x70408, Kind::Number, Writing::Denied},
    {0x7040C, Kind::Long, Writing::Denied},   {0x70410, Kind::Number, Writing::Denied},
    {0x70414, Kind::Number, Writing::Denied}, {0x70418, Kind::Number, Writing::Denied},
    {0x7041C, Kind::Text, Writing::Taken},    {0x7051C, Kind::Hidden, Writing::Denied},
    {0x7052C, Kind::Number, Writing::Taken},  {0x70530, Kind::Number, Writing::Stored},
};

inline constexpr PortRegister kStreamRegisters[] = {
    {0x10000, Kind::Map, Writing::Denied},    {0x80000, Kind::Text, Writing::Denied},
    {0x80100, Kind::Number, Writing::Denied}, {0x80104, Kind::Number, Writing::Taken},
    {0x80108, Kind::Number, Writing::Denied}, {0x8010C, Kind::Long, Writing::Denied},
    {0x80110, Kind::Long, Writing::Denied},   {0x80114, Kind::Long, Writing::Denied},
    {0x80118, Kind::Hidden, Writing::Denied}, {0x80218, Kind::Hidden, Writing::Denied},
    {0x80418, Kind::Hidden, Writing::Denied}, {0x8041C, Kind::Hidden, Writing::Denied},
    {0x80420, Kind::Hidden, Writing::Denied}, {0x80424, Kind::Hidden, Writing::Denied},
    {0x80428, Kind::Hidden, Writing::Denied}, {0x8042C, Kind::Long, Writing::Denied},
    {0x80430, Kind::Long, Writing::Denied},   {0x80434, Kind::Number, Writing::Stored},
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
        return found != nullptr && found->kind == Kind::Text;
    }

    /// Whether a read of `space` bytes may end with `result` when the size came back as `size`.
    bool ReadMayGive(std::uint64_t address, std::size_t space, int result, std::size_t size) const
    {
        const PortRegister* const found = Find(address);
        if (found == nullptr || found->kind == Kind::Hidden)
        {
            return result == -1015 && size == space;
        }
        if (found->kind == Kind::Map)
        {
            return result == 0 && size == space;
        }
        const bool sized = found->kind == Kind::Text || size == (found->kind == Kind::Number ? 4U : 8U);
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
