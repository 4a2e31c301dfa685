// SPDX-License-Identifier: Apache-2.0
// Memory that shows where it was written.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace nq::test
{

/// A buffer of which the callee may touch the first `space` bytes. Every byte starts as 0xA5.
class Guarded
{
  public:
    explicit Guarded(std::size_t space) : m_space(space), m_bytes(space + 4096, 0xA5) {}

    void* Data() { return m_bytes.data(); }
    char* Text() { return reinterpret_cast<char*>(m_bytes.data()); }

    /// The bytes that may be touched.
    std::string Bytes() const { return std::string(m_bytes.begin(), m_bytes.begin() + Offset(m_space)); }

    /// False when a byte beyond them was.
    bool IsIntact() const
    {
        return std::all_of(m_bytes.begin() + Offset(m_space), m_bytes.end(),
                           [](unsigned char byte) { return byte == 0xA5; });
    }

  private:
    static std::ptrdiff_t Offset(std::size_t space) { return static_cast<std::ptrdiff_t>(space); }

    std::size_t m_space;
    std::vector<unsigned char> m_bytes;
};

} // namespace nq::test
