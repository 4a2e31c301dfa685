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

void NQGenTLModuleContainer::Erase(std::size_t index)
{
    m_index.Remove(m_modules[index]);
    m_modules.erase(m_modules.begin() + static_cast<std::ptrdiff_t>(index));
}

void NQGenTLModuleContainer::EraseFirst(const NQGenTLModuleBase* module)
{
    const auto found = std::find(m_modules.begin(), m_modules.end(), module);
    if (found != m_modules.end())
    {
        Erase(static_cast<std::size_t>(found - m_modules.begin()));
    }
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
    m_index.MakeRoom();
    m_modules.push_back(module);
    m_index.Add(module);
    return true;
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindById(const char* id, bool remove)
{
    if (id == nullptr)
    {
        return nullptr;
    }
    NQGenTLLock lock(m_lock);
    // By index: a module that is asked for its id may itself come back to this list.
    for (std::size_t i = 0; i < m_modules.size(); ++i)
    {
        NQGenTLModuleBase* const module = m_modules[i];
        if (std::strcmp(module->GetId().c_str(), id) != 0)
        {
            continue;
        }
        if (remove)
        {
            Erase(i);
        }
        return module;
    }
    return nullptr;
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
        Erase(index);
    }
    return module;
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindByHandle(void* handle, bool remove)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    NQGenTLLock lock(m_lock);
    NQGenTLModuleBase* const module = m_index.Find(handle);
    if (module != nullptr && remove)
    {
        EraseFirst(module);
    }
    return module;
}

NQGenTLModuleBase* NQGenTLModuleContainer::FindByHandleAndName(void* handle, const char* name, bool remove)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    NQGenTLLock lock(m_lock);
    NQGenTLModuleBase* const module = m_index.Find(handle);
    if (module == nullptr || std::strcmp(module->GetName().c_str(), name) != 0)
    {
        return nullptr;
    }
    if (remove)
    {
        EraseFirst(module);
    }
    return module;
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
            while (m_index.Find(module.get()) != nullptr)
            {
                EraseFirst(module.get());
            }
        }
    }
    m_modules.clear();
    m_index.Clear();
}

} // namespace GigERDMA
