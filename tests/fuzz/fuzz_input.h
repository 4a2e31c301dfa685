// SPDX-License-Identifier: Apache-2.0
// The bytes of one fuzz run as choices, and the end of a run that found something.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace nq::fuzz
{

using Bytes = std::vector<unsigned char>;

/// Takes numbers and blocks from the front of the bytes. Behind the end everything reads as zero.
class FuzzInput
{
  public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : m_next(data), m_left(size) {}

    bool Empty() const { return m_left == 0; }

    unsigned char Byte()
    {
        if (m_left == 0)
        {
            return 0;
        }
        --m_left;
        return *m_next++;
    }

    std::uint16_t Word()
    {
        const unsigned int high = Byte();
        return static_cast<std::uint16_t>(high << 8 | Byte());
    }

    std::uint32_t DWord()
    {
        const std::uint32_t high = Word();
        return high << 16 | Word();
    }

    std::uint64_t Quad()
    {
        const std::uint64_t high = DWord();
        return high << 32 | DWord();
    }

    bool Flag() { return (Byte() & 1) != 0; }

    /// A number below `count`, which is at most 256 and not 0.
    std::size_t Below(std::size_t count) { return Byte() % count; }

    /// The next `count` bytes, fewer at the end.
    Bytes Take(std::size_t count)
    {
        const std::size_t taken = std::min(count, m_left);
        Bytes bytes(m_next, m_next + taken);
        m_next += taken;
        m_left -= taken;
        return bytes;
    }

    /// What is left.
    Bytes Rest() { return Take(m_left); }

    std::string Text(std::size_t count)
    {
        const Bytes bytes = Take(count);
        return {bytes.begin(), bytes.end()};
    }

  private:
    const std::uint8_t* m_next;
    std::size_t m_left;
};

/// Ends the run as a finding unless `holds`. `rule` says in words what should be so.
inline void Require(bool holds, const char* rule, long value = 0)
{
    if (!holds)
    {
        std::fprintf(stderr, "broken: %s (%ld)\n", rule, value);
        std::abort();
    }
}

} // namespace nq::fuzz
