// SPDX-License-Identifier: Apache-2.0
// The ports of the four kinds of module with a register map: what each address answers to a read and to a write.
#pragma once

#include "support/register_map_rows.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nq::fuzz
{

using test::PortForm;
using test::PortWriting;
using test::RegisterRow;

/// What the port of one module knows, by address.
struct PortMap
{
    explicit PortMap(const test::RegisterMapRows& map) : rows(map.registers)
    {
        std::erase_if(rows, [](const RegisterRow& row) {
            return row.form == PortForm::None && row.writing == PortWriting::None;
        });
        std::ranges::sort(rows, {}, &RegisterRow::address);
    }

    /// The register that begins at an address, null when there is none.
    const RegisterRow* Find(std::uint64_t address) const
    {
        const auto found = std::ranges::find(rows, address, &RegisterRow::address);
        return found == rows.end() ? nullptr : &*found;
    }

    bool IsText(std::uint64_t address) const
    {
        const RegisterRow* const found = Find(address);
        return found != nullptr && found->form == PortForm::Text;
    }

    /// Whether a read of `space` bytes may end with `result` when the size came back as `size`.
    bool ReadMayGive(std::uint64_t address, std::size_t space, int result, std::size_t size) const
    {
        const RegisterRow* const found = Find(address);
        if (found == nullptr || found->form == PortForm::None)
        {
            return result == -1015 && size == space;
        }
        if (found->form == PortForm::Map)
        {
            return result == 0 && size == space;
        }
        const bool sized = found->form == PortForm::Text || size == (found->form == PortForm::Number ? 4U : 8U);
        return sized && (space < size ? result == -1016 : result == 0);
    }

    int WriteResult(std::uint64_t address) const
    {
        const RegisterRow* const found = Find(address);
        if (found == nullptr)
        {
            return -1015;
        }
        return found->writing == PortWriting::Denied ? -1005 : 0;
    }

    std::vector<RegisterRow> rows;
};

inline const PortMap kPortMaps[] = {PortMap(test::kSystemRows), PortMap(test::kInterfaceRows),
                                    PortMap(test::kDeviceRows), PortMap(test::kDataStreamRows)};

} // namespace nq::fuzz
