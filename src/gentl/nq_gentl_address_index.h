// SPDX-License-Identifier: Apache-2.0
// Finds an object of a list by its address without a walk through the list.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

namespace GigERDMA
{

/// The objects of a list in the order of their addresses; one that is in the list twice is here twice. Whoever changes
/// the list under its lock changes the index with it. Reentrant. Compares addresses and follows none.
template <class Object>
class NQGenTLAddressIndex
{
  public:
    /// Lets the next Add allocate nothing. Throws std::bad_alloc.
    void MakeRoom()
    {
        if (m_objects.size() == m_objects.capacity())
        {
            m_objects.reserve(std::max<std::size_t>(16, 2 * m_objects.size()));
        }
    }

    void Add(Object* object) { m_objects.insert(Place(object), object); }

    /// Takes the object out once.
    void Remove(const Object* object)
    {
        const auto found = Place(object);
        if (found != m_objects.end() && *found == object)
        {
            m_objects.erase(found);
        }
    }

    /// Null when no object of the list is there.
    Object* Find(const void* address)
    {
        const auto found = Place(address);
        return found != m_objects.end() && *found == address ? *found : nullptr;
    }

    void Clear() { m_objects.clear(); }

  private:
    typename std::vector<Object*>::iterator Place(const void* address)
    {
        return std::lower_bound(
            m_objects.begin(), m_objects.end(), address,
            [](const Object* object, const void* sought) { return std::less<const void*>()(object, sought); });
    }

    std::vector<Object*> m_objects;
};

} // namespace GigERDMA
