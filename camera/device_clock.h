// SPDX-License-Identifier: Apache-2.0
// The camera's own clock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace nq::camera
{

/// Counts nanoseconds since the camera was switched on or the clock was last reset. Any thread may call.
class DeviceClock
{
  public:
    static constexpr std::uint32_t kTicksPerSecond = 1000000000;

    DeviceClock() { Reset(); }

    std::uint64_t Now() const { return Steady() - m_start.load(std::memory_order_relaxed); }
    void Reset() { m_start.store(Steady(), std::memory_order_relaxed); }

  private:
    static std::uint64_t Steady()
    {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
    }

    std::atomic<std::uint64_t> m_start{0};
};

} // namespace nq::camera
