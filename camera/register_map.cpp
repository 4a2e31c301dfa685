// SPDX-License-Identifier: Apache-2.0
// The address space of the camera: blocks of bytes with a right of access each.
#include "register_map.h"

#include "bootstrap.h"
#include "byte_order.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace nq::camera
{

void RegisterMap::Add(std::uint32_t address, std::uint32_t size, Access access)
{
    m_blocks[address] = Block{access, std::vector<std::uint8_t>(size)};
}

void RegisterMap::AddRegister(std::uint32_t address, Access access, std::uint32_t value)
{
    Add(address, 4, access);
    Set(address, value);
}

void RegisterMap::AddText(std::uint32_t address, std::uint32_t size, Access access, std::string_view text)
{
    Add(address, size, access);
    std::copy_n(text.begin(), std::min<std::size_t>(text.size(), size), m_blocks[address].bytes.begin());
}

void RegisterMap::AddBlob(std::uint32_t address, std::span<const std::uint8_t> bytes)
{
    Add(address, static_cast<std::uint32_t>((bytes.size() + 3) & ~std::size_t{3}), Access::ReadOnly);
    std::copy(bytes.begin(), bytes.end(), m_blocks[address].bytes.begin());
}

const RegisterMap::Block* RegisterMap::Find(std::uint32_t address, std::uint32_t& offset) const
{
    auto next = m_blocks.upper_bound(address);
    if (next == m_blocks.begin())
    {
        return nullptr;
    }
    const auto& [start, block] = *--next;
    offset = address - start;
    return offset < block.bytes.size() ? &block : nullptr;
}

GvcpStatus RegisterMap::ReadWord(std::uint32_t address, std::uint32_t& value) const
{
    if (address % 4 != 0)
    {
        return GvcpStatus::BadAlignment;
    }
    std::uint32_t offset = 0;
    const Block* block = Find(address, offset);
    if (block == nullptr)
    {
        return GvcpStatus::InvalidAddress;
    }
    value = GetBig<std::uint32_t>(&block->bytes[offset]);
    return GvcpStatus::Success;
}

GvcpStatus RegisterMap::ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes) const
{
    if (address % 4 != 0)
    {
        return GvcpStatus::BadAlignment;
    }
    if (bytes.size() % 4 != 0)
    {
        return GvcpStatus::InvalidParameter;
    }
    for (std::size_t i = 0; i < bytes.size(); i += 4)
    {
        const std::uint64_t at = std::uint64_t{address} + i;
        std::uint32_t value = 0;
        if (at > 0xFFFFFFFF ||
            (ReadWord(static_cast<std::uint32_t>(at), value) != GvcpStatus::Success && at >= bootstrap::kBootstrapEnd))
        {
            return GvcpStatus::InvalidAddress;
        }
        PutBig(&bytes[i], value);
    }
    return GvcpStatus::Success;
}

GvcpStatus RegisterMap::CheckWrite(std::uint32_t address) const
{
    if (address % 4 != 0)
    {
        return GvcpStatus::BadAlignment;
    }
    std::uint32_t offset = 0;
    const Block* block = Find(address, offset);
    if (block == nullptr)
    {
        return GvcpStatus::InvalidAddress;
    }
    return block->access == Access::ReadWrite ? GvcpStatus::Success : GvcpStatus::WriteProtect;
}

std::uint32_t RegisterMap::Get(std::uint32_t address) const
{
    std::uint32_t value = 0;
    if (ReadWord(address, value) != GvcpStatus::Success)
    {
        throw std::logic_error("the camera reads a register that it does not have");
    }
    return value;
}

void RegisterMap::Set(std::uint32_t address, std::uint32_t value)
{
    PutBig(Bytes(address).data(), value);
}

float RegisterMap::GetFloat(std::uint32_t address) const
{
    return std::bit_cast<float>(Get(address));
}

void RegisterMap::SetFloat(std::uint32_t address, float value)
{
    Set(address, std::bit_cast<std::uint32_t>(value));
}

std::span<std::uint8_t> RegisterMap::Bytes(std::uint32_t address)
{
    std::uint32_t offset = 0;
    if (Find(address, offset) == nullptr)
    {
        throw std::logic_error("the camera writes a register that it does not have");
    }
    return std::span(m_blocks[address - offset].bytes).subspan(offset);
}

} // namespace nq::camera
