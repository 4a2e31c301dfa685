// SPDX-License-Identifier: Apache-2.0
// Tells a write command that arrives a second time.
#pragma once

#include "gvcp.h"

#include <cstdint>
#include <span>
#include <vector>

namespace nq::camera
{

/// The latest command of each host, known by its address and port, if it was a write, with the acknowledge it got: a
/// host that missed the acknowledge sends the same bytes again before anything else. What other hosts send changes
/// nothing about it. When many hosts have written, the oldest write is forgotten. Used from one thread.
class RepeatedWrites
{
  public:
    struct Write
    {
        Endpoint from;
        std::vector<std::uint8_t> datagram;
        std::vector<std::uint8_t> acknowledge;
        /// It gave its sender control of the camera.
        bool tookControl = false;
    };

    /// The write that this command repeats, until the next call of any operation. Null when it repeats none, and then
    /// what was kept of its sender is forgotten.
    const Write* Find(const Endpoint& from, std::span<const std::uint8_t> datagram);

    void Remember(Write write);

  private:
    /// The latest is the last.
    std::vector<Write> m_writes;
};

} // namespace nq::camera
