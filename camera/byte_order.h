// SPDX-License-Identifier: Apache-2.0
// Reads and writes numbers of a given byte order at any place of a byte block.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nq::camera
{

/// Stores `value` with the most significant byte first (GVCP, GigE Vision registers).
template <typename T>
void PutBig(std::uint8_t* to, T value)
{
    for (std::size_t i = 0; i < sizeof(T); ++i)
    {
        to[i] = static_cast<std::uint8_t>(value >> (8 * (sizeof(T) - 1 - i)));
    }
}

/// Stores `value` with the least significant byte first (GenDC descriptors, RDMA settings).
template <typename T>
void PutLittle(std::uint8_t* to, T value)
{
    for (std::size_t i = 0; i < sizeof(T); ++i)
    {
        to[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

template <typename T>
T GetBig(const std::uint8_t* from)
{
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
    {
        value = static_cast<T>((static_cast<std::uint64_t>(value) << 8) | from[i]);
    }
    return value;
}

} // namespace nq::camera
