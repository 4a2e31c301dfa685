// SPDX-License-Identifier: Apache-2.0
// Searching a list of modules.
#include "gentl/nq_gentl_module_container.h"

#include "gentl/nq_gentl_module_base.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

namespace GigERDMA
{

template <typename Match>
NQGenTLModuleBase* NQGenTLModuleContainer::Find(Match match, bool remove)
{
    NQGenTLLock lock(m_lock);
    // By index: a module that is asked for its name may itself come back to this list.
    for (std::size_t i = 0; i < m_modules.size(); ++i)
    {
        NQGenTLModuleBase* const module = m_modules[i];
        if (!match(module))
        {
            continue;
        }
        if (remove)
        {
            m_modules.erase(m_modules.begin() + static_cast<std::ptrdiff_t>(i));
        }
        return module;
    }
    return nullptr;
}

unsigned int NQGenTLModuleContainer::GetCount()
{
    NQGenTLLock lock(m_lock);
    return static_cast<unsigned int>(m_modules.size());
}

bool NQGenTLModuleContainer::Add(NQGenTLModuleBase* module)
{
    if (module == nullptr)
    {
        return false;
    }
    NQGenTLLock lock(m_lock);
    m_modules.push_back(module);
    return true;
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindById(const char* id, bool remove)
{
    if (id == nullptr)
    {
        return nullptr;
    }
    return Find([&](NQGenTLModuleBase* module) { return std::strcmp(module->GetId().c_str(), id) == 0; }, remove);
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindByIndex(unsigned int index, bool remove)
{
    NQGenTLLock lock(m_lock);
    if (index >= m_modules.size())
    {
        return nullptr;
    }
    NQGenTLModuleBase* const module = m_modules[index];
    if (remove)
    {
        m_modules.erase(m_modules.begin() + index);
    }
    return module;
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindByHandle(void* handle, bool remove)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    return Find([&](NQGenTLModuleBase* module) { return module == handle; }, remove);
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindByHandleAndName(void* handle, const char* name, bool remove)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    return Find(
        [&](NQGenTLModuleBase* module) {
            return module == handle && std::strcmp(module->GetName().c_str(), name) == 0;
        },
        remove);
}

NQGenTLEvent* NQGenTLModuleContainer::FindEventByHandle(void* handle, bool enter)
{
    NQGenTLLock lock(m_lock);
    for (NQGenTLModuleBase* const module : m_modules)
    {
        if (NQGenTLEvent* const event = module->FindEventByHandle(handle, enter))
        {
            return event;
        }
    }
    return nullptr;
}

void NQGenTLModuleContainer::Clear(bool destroy)
{
    NQGenTLLock lock(m_lock);
    if (destroy)
    {
        // A module that was added twice is deleted once.
        while (!m_modules.empty())
        {
            const std::unique_ptr<NQGenTLModuleBase> module(m_modules.front());
            m_modules.erase(std::remove(m_modules.begin(), m_modules.end(), module.get()), m_modules.end());
        }
    }
    m_modules.clear();
}

} // namespace GigERDMA
