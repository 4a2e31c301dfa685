// SPDX-License-Identifier: Apache-2.0
// The table of a module's virtual registers, from which its port and its register description take them.
#pragma once

#include <algorithm>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

/// What may be done with a register.
enum class NQGevAccess
{
    ReadOnly,
    ReadWrite,
};

/// Whose answers a description and a port give.
enum class NQGevText
{
    Stated,   ///< The library's own.
    Standard, ///< The standard's.
};

/// How a row differs on purpose from a register that the port serves and the description names.
enum class NQGevRowKind
{
    Register,
    PortOnly,        ///< Has no node in the description.
    DescriptionOnly, ///< Has a node, but is unknown to the port: not served, or a register of another port.
    NotListed,       ///< A register that the module's list of valid addresses leaves out.
    StatedOnly,      ///< A register of the library's own answers alone.
    StandardOnly,    ///< A register of the standard's answers alone.
};

/// Where a register lies and what may be done with it.
struct NQGevPlace
{
    unsigned long address;
    unsigned int length; ///< Bytes.
    NQGevAccess access;
};

/// One row: a register, or the start of something longer. A value of static life. What stands in the row itself holds
/// for the library's own answers.
struct NQGevRegister
{
    std::string_view name; ///< That of the node; one that has no node is called after what it holds, if that is known.
    unsigned long address;
    unsigned int length; ///< Bytes, as the description says.
    NQGevAccess access;
    NQGevRowKind kind = NQGevRowKind::Register;
    std::optional<NQGevPlace> standard = {}; ///< With the standard's answers, where that differs.

    constexpr NQGevPlace In(NQGevText text) const
    {
        return text == NQGevText::Standard && standard ? *standard : NQGevPlace{address, length, access};
    }

    /// Whether the standard's answers know the row, in the description and at the port alike.
    constexpr bool IsStandard() const
    {
        return kind == NQGevRowKind::Register || kind == NQGevRowKind::NotListed || kind == NQGevRowKind::StandardOnly;
    }
};

/// The rows of one module. Does not own them; reentrant.
class NQGevRegisterMap
{
  public:
    explicit constexpr NQGevRegisterMap(std::span<const NQGevRegister> rows) : m_rows(rows) {}

    /// The row of that name, and its address. A name without a row does not compile.
    consteval const NQGevRegister& operator[](std::string_view name) const
    {
        const auto row = std::ranges::find(m_rows, name, &NQGevRegister::name);
        return row != m_rows.end() ? *row : throw std::invalid_argument("no such register");
    }
    consteval unsigned long At(std::string_view name) const { return (*this)[name].address; }

    /// The row that the port has at exactly this address by the library's own answers; null when there is none.
    constexpr const NQGevRegister* Find(unsigned long address) const
    {
        const auto row = std::ranges::find_if(m_rows, [address](const NQGevRegister& one) {
            return one.address == address && one.kind != NQGevRowKind::DescriptionOnly &&
                   one.kind != NQGevRowKind::StandardOnly;
        });
        return row != m_rows.end() ? &*row : nullptr;
    }

    /// The row that holds all of these bytes by the standard's answers, by which no two rows overlap; null when there
    /// is none.
    constexpr const NQGevRegister* FindStandard(unsigned long address, unsigned long size) const
    {
        const auto row = std::ranges::find_if(m_rows, [address, size](const NQGevRegister& one) {
            const NQGevPlace place = one.In(NQGevText::Standard);
            return one.IsStandard() && address >= place.address && address - place.address < place.length &&
                   size <= place.length - (address - place.address);
        });
        return row != m_rows.end() ? &*row : nullptr;
    }

  private:
    std::span<const NQGevRegister> m_rows;
};
