// SPDX-License-Identifier: Apache-2.0
// A growing first-in-first-out list in one block of memory.
#pragma once

#include <cstddef>
#include <vector>

namespace GigERDMA
{

/// Holds small values in order. It allocates only to grow and keeps its memory, so that a list whose length goes up and
/// down with every frame costs no allocation. Reentrant.
template <typename Value>
class NQGenTLRing
{
  public:
    std::size_t Size() const { return m_count; }
    bool IsEmpty() const { return m_count == 0; }

    /// The entry at `index` behind the front; `index` is below Size().
    const Value& operator[](std::size_t index) const { return m_slots[Slot(index)]; }

    void PushBack(Value value)
    {
        if (m_count == m_slots.size())
        {
            Grow();
        }
        m_slots[Slot(m_count)] = value;
        ++m_count;
    }

    /// Takes the oldest entry out. There is one.
    Value PopFront()
    {
        const Value front = m_slots[m_front];
        m_front = Slot(1);
        --m_count;
        return front;
    }

    void Clear() { m_front = m_count = 0; }

  private:
    std::size_t Slot(std::size_t index) const { return (m_front + index) % m_slots.size(); }

    void Grow()
    {
        std::vector<Value> larger(m_slots.empty() ? 16 : m_slots.size() * 2);
        for (std::size_t index = 0; index < m_count; ++index)
        {
            larger[index] = (*this)[index];
        }
        m_slots.swap(larger);
        m_front = 0;
    }

    std::vector<Value> m_slots;
    std::size_t m_front = 0;
    std::size_t m_count = 0;
};

} // namespace GigERDMA
