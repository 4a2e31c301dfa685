// SPDX-License-Identifier: Apache-2.0
// Keeps the loaded logging library for as long as somebody is inside it.
#pragma once

#include <atomic>
#include <cstdint>
#include <dlfcn.h>

/// Counts who needs one loaded library: its owner and every thread inside it. Whoever leaves last gives it back, so
/// nobody waits: a thread that is held up inside, or that a fork left behind, only keeps the library loaded.
/// Thread-safe; takes no lock.
///
///     nothing held --Hold()--> held, entered at will --the last Leave()--> given back, nothing held
class NQLoggerHold
{
  public:
    /// Takes over the caller's reference to `library`, to be ended by one Leave(). False when another library is held;
    /// the reference is still the caller's then.
    bool Hold(void* library)
    {
        const auto handle = reinterpret_cast<std::uint64_t>(library) << kCountBits;
        for (std::uint64_t state = m_state;;)
        {
            const bool held = (state & kCountMask) != 0;
            if (held && (state & ~kCountMask) != handle)
            {
                return false;
            }
            if (m_state.compare_exchange_weak(state, held ? state + 1 : handle + 1))
            {
                if (held)
                {
                    dlclose(library); // The reference held already serves both.
                }
                return true;
            }
        }
    }

    /// Keeps the library that is held, to be ended by one Leave(). False when nothing is held.
    bool Enter()
    {
        std::uint64_t state = m_state;
        while ((state & kCountMask) != 0)
        {
            if (m_state.compare_exchange_weak(state, state + 1))
            {
                return true;
            }
        }
        return false;
    }

    void Leave()
    {
        const std::uint64_t before = m_state.fetch_sub(1);
        if ((before & kCountMask) == 1)
        {
            dlclose(reinterpret_cast<void*>(before >> kCountBits));
        }
    }

  private:
    static constexpr unsigned int kCountBits = 16;
    static constexpr std::uint64_t kCountMask = (1U << kCountBits) - 1;

    /// The handle, which has 48 bits on this machine, above the count: one word, so that they change together.
    std::atomic<std::uint64_t> m_state = 0;
};
