// SPDX-License-Identifier: Apache-2.0
// Counts of the live objects of each kind, for leak checks.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace nq::loopback
{

enum class Kind : size_t
{
    Context,
    ProtectionDomain,
    MemoryRegion,
    CompletionChannel,
    CompletionQueue,
    QueuePair,
    EventChannel,
    CmId,
    CmEvent,
    End
};

/// One counter per kind. All threads.
class Tally
{
  public:
    static Tally& Instance()
    {
        static Tally tally;
        return tally;
    }

    std::atomic<long>& Of(Kind kind) { return m_live[static_cast<size_t>(kind)]; }

  private:
    std::array<std::atomic<long>, static_cast<size_t>(Kind::End)> m_live{};
};

/// Member or base of an object of that kind: counted while it lives.
template <Kind kind>
class Counted
{
  public:
    Counted() { Tally::Instance().Of(kind).fetch_add(1, std::memory_order_relaxed); }
    ~Counted() { Tally::Instance().Of(kind).fetch_sub(1, std::memory_order_relaxed); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
};

} // namespace nq::loopback
