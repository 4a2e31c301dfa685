// SPDX-License-Identifier: Apache-2.0
// A locked list of modules that does not own them.
#pragma once

#include "gentl/nq_gentl_address_index.h"
#include "gentl/nq_gentl_mutex.h"

#include <cstddef>
#include <vector>

namespace GigERDMA
{

class NQGenTLEvent;
class NQGenTLModuleBase;

/// The controller keeps one of every live module, which is what makes a handle valid; the other modules keep one of
/// their children. Entries stay in the order of their adding; one is found by its handle without a walk.
///
/// Thread-safe: every operation holds the recursive mutex for its whole run. Names and ids are asked
/// for with the mutex held, so only of modules that the list knows: an unknown address is compared, never dereferenced.
/// A found pointer is used without the mutex; who removes an entry decides what becomes of it.
class NQGenTLModuleContainer
{
  public:
    NQGenTLModuleContainer() = default;
    NQGenTLModuleContainer(const NQGenTLModuleContainer&) = delete;
    NQGenTLModuleContainer& operator=(const NQGenTLModuleContainer&) = delete;

    unsigned int GetCount();

    /// Appends; false for null. The same module can be added twice.
    bool Add(NQGenTLModuleBase* module);

    /// The first module of exactly that id, or null. With `remove` it also leaves the list; the same holds below.
    NQGenTLModuleBase* FindById(const char* id, bool remove);

    NQGenTLModuleBase* FindByIndex(unsigned int index, bool remove);
    NQGenTLModuleBase* FindByHandle(void* handle, bool remove);

    /// The module at that address if its GetName() is `name`; otherwise null, and nothing is removed.
    NQGenTLModuleBase* FindByHandleAndName(void* handle, const char* name, bool remove);

    /// The event at that address on any module of the list, or null. Unlike a walk by index, no module that leaves the
    /// list before it is deleted can vanish under the search.
    NQGenTLEvent* FindEventByHandle(void* handle, bool enter = false);

    /// Empties the list. With `destroy` deletes the modules first, without closing them.
    void Clear(bool destroy);

  private:
    void Erase(std::size_t index) NQ_REQUIRES(m_lock);
    void EraseFirst(const NQGenTLModuleBase* module) NQ_REQUIRES(m_lock);

    NQGenTLMutex m_lock;
    std::vector<NQGenTLModuleBase*> m_modules NQ_GUARDED_BY(m_lock);
    NQGenTLAddressIndex<NQGenTLModuleBase> m_index NQ_GUARDED_BY(m_lock);
};

} // namespace GigERDMA
