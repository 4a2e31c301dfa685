// SPDX-License-Identifier: Apache-2.0
// The address space of the camera: blocks of bytes with a right of access each.
#pragma once

#include "gvcp.h"

#include <cstdint>
#include <map>
#include <span>
#include <string_view>
#include <vector>

namespace nq::camera
{

enum class Access
{
    ReadOnly,
    ReadWrite
};

/// Holds the bytes of all registers and texts. Knows nothing of what a register does. Numbers lie with the most
/// significant byte first. Not safe for concurrent use; its owner locks.
class RegisterMap
{
  public:
    /// Adds a block filled with zeros. Blocks neither overlap nor start off a multiple of 4.
    void Add(std::uint32_t address, std::uint32_t size, Access access);
    void AddRegister(std::uint32_t address, Access access, std::uint32_t value = 0);
    void AddText(std::uint32_t address, std::uint32_t size, Access access, std::string_view text);
    /// Adds a read-only block with these bytes, zero-padded to a multiple of 4.
    void AddBlob(std::uint32_t address, std::span<const std::uint8_t> bytes);

    /// Reads one register: the address lies in a block.
    GvcpStatus ReadWord(std::uint32_t address, std::uint32_t& value) const;
    /// Reads memory, over the borders of neighbouring blocks. Reserved bootstrap bytes read as zero.
    GvcpStatus ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes) const;
    /// Success when four bytes may be written at `address`.
    GvcpStatus CheckWrite(std::uint32_t address) const;

    /// For the camera itself: no right of access is asked. The address must lie in a block.
    std::uint32_t Get(std::uint32_t address) const;
    void Set(std::uint32_t address, std::uint32_t value);
    float GetFloat(std::uint32_t address) const;
    void SetFloat(std::uint32_t address, float value);
    std::span<std::uint8_t> Bytes(std::uint32_t address);

  private:
    struct Block
    {
        Access access;
        std::vector<std::uint8_t> bytes;
    };

    const Block* Find(std::uint32_t address, std::uint32_t& offset) const;

    std::map<std::uint32_t, Block> m_blocks;
};

} // namespace nq::camera
