// SPDX-License-Identifier: Apache-2.0
// What a consumer may expect of the library at each moment: which handles are good, what is open, what is in which
// queue. Written from the interface's rules; the library is asked nothing.
#pragma once

#include "fuzz/fuzz_input.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace nq::fuzz
{

enum class Kind
{
    None,
    System,
    Interface,
    Device,
    Remote,
    Stream,
    Buffer,
    Event,
};

struct Module;

/// A registered event.
struct Event
{
    void* handle = nullptr;
    int id = 0;
    Module* owner = nullptr;
    bool killed = false;       ///< A kill is pending.
    std::deque<void*> waiting; ///< Buffers that wait for delivery, by handle.
};

/// A module whose handle is good.
struct Module
{
    void* handle = nullptr;
    Kind kind = Kind::None;
    Module* parent = nullptr;
    std::map<int, std::unique_ptr<Event>> events;

    // Interface
    bool cameraListed = false;

    // Device
    bool hasStream = false;

    // Stream
    bool open = false;
    bool started = false;
    bool connected = false; ///< From a start to a stop. A closed stream that is started stays so when it is opened.
    std::vector<void*> announced; ///< Buffers by handle.
    std::deque<void*> input;

    // Buffer
    void* memory = nullptr;
    void* user = nullptr;
    bool queued = false;
};

/// The state of the library as its consumer knows it.
class Model
{
  public:
    bool initialised = false;
    bool adapterListed = false;
    void* systemHandle = nullptr; ///< Of this initialisation, once it was opened.

    /// Survives everything, as it belongs to the thread.
    static int& LastError()
    {
        static int code = 0;
        return code;
    }

    /// The module of a good handle, null for any other.
    Module* Find(void* handle) const
    {
        const auto found = Place(handle);
        return found == m_modules.end() ? nullptr : found->get();
    }

    Module* Find(void* handle, Kind kind) const
    {
        Module* const module = Find(handle);
        return module != nullptr && module->kind == kind ? module : nullptr;
    }

    Event* FindEvent(void* handle) const
    {
        for (const auto& module : m_modules)
        {
            for (const auto& [id, event] : module->events)
            {
                if (event->handle == handle)
                {
                    return event.get();
                }
            }
        }
        return nullptr;
    }

    Module* Child(const Module* parent, Kind kind) const
    {
        for (const auto& module : m_modules)
        {
            if (module->parent == parent && module->kind == kind)
            {
                return module.get();
            }
        }
        return nullptr;
    }

    Module& Add(void* handle, Kind kind, Module* parent)
    {
        Require(handle != nullptr && Find(handle) == nullptr, "a new handle is new", static_cast<long>(kind));
        auto& module = m_modules.emplace_back(std::make_unique<Module>());
        module->handle = handle;
        module->kind = kind;
        module->parent = parent;
        return *module;
    }

    /// Ends a module and all below it; their handles are stale from now on.
    void Remove(Module* module)
    {
        std::vector<Module*> children;
        for (const auto& other : m_modules)
        {
            if (other->parent == module)
            {
                children.push_back(other.get());
            }
        }
        for (Module* const child : children)
        {
            Remove(child);
        }
        for (const auto& [id, event] : module->events)
        {
            stale.push_back(event->handle);
        }
        stale.push_back(module->handle);
        m_modules.erase(Place(module->handle));
    }

    void Close()
    {
        if (Module* const system = Find(systemHandle))
        {
            Remove(system);
        }
        initialised = false;
        adapterListed = false;
        systemHandle = nullptr;
    }

    /// The handles of one kind, in the order of their making; of all modules for no kind.
    std::vector<void*> Handles(Kind kind) const
    {
        std::vector<void*> handles;
        for (const auto& module : m_modules)
        {
            if (kind == Kind::Event)
            {
                for (const auto& [id, event] : module->events)
                {
                    handles.push_back(event->handle);
                }
            }
            else if (kind == Kind::None || module->kind == kind)
            {
                handles.push_back(module->handle);
            }
        }
        return handles;
    }

    /// A handle for a call: mostly a good one of that kind, else another module's, a stale one or none at all.
    void* Pick(FuzzInput& input, Kind kind) const
    {
        static char garbage[64];
        switch (input.Below(16))
        {
        case 0:
            return nullptr;
        case 1:
            return garbage + input.Below(64);
        case 2:
            return stale.empty() ? nullptr : stale[input.Byte() % stale.size()];
        case 3:
            return Choose(input, Kind::None);
        default:
            return Choose(input, kind);
        }
    }

    std::vector<void*> stale;

  private:
    void* Choose(FuzzInput& input, Kind kind) const
    {
        const std::vector<void*> handles = Handles(kind);
        const unsigned char choice = input.Byte();
        return handles.empty() ? systemHandle : handles[choice % handles.size()];
    }

    std::vector<std::unique_ptr<Module>>::const_iterator Place(void* handle) const
    {
        return std::find_if(m_modules.begin(), m_modules.end(),
                            [handle](const auto& module) { return module->handle == handle; });
    }

    std::vector<std::unique_ptr<Module>> m_modules;
};

} // namespace nq::fuzz
