// SPDX-License-Identifier: Apache-2.0
// How much memory a program may still take.
#pragma once

#include <cstdint>
#include <mutex>

namespace nq::tool
{

/// Bytes that this machine can give without swapping, or that the control group of this process leaves, whichever is
/// less.
uint64_t AvailableMemory();

/// What several may take of it, which does not show before they have written there. Any thread may call.
class MemoryBudget
{
  public:
    /// Takes `count` times `size` bytes, or nothing when there are less. Returns how many there were.
    uint64_t Take(uint64_t size, uint64_t count);
    void GiveBack(uint64_t bytes);

    /// The same for memory that others can do without: together these take half of it at most.
    uint64_t TakeHalf(uint64_t size, uint64_t count);
    void GiveBackHalf(uint64_t bytes);

    /// What all of them have taken by Take(), in bytes.
    uint64_t Taken();

  private:
    void Look();

    std::mutex m_mutex; ///< guards what follows
    uint64_t m_all = 0; ///< what there was before anybody took any
    uint64_t m_taken = 0;
    uint64_t m_takenHalf = 0;
};

} // namespace nq::tool
