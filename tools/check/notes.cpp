// SPDX-License-Identifier: Apache-2.0
// Calls as lines of C.
#include "notes.h"

#include "context.h"
#include "gentl_library.h"
#include "record.h"

#include <fmt/format.h>
#include <map>
#include <mutex>

namespace nq::check
{

namespace
{

constexpr uintptr_t kLowestMemory = 0x10000; // what is below stands for no memory

struct Names
{
    std::mutex mutex;
    std::map<void*, size_t> handles;
    std::map<void*, size_t> memory;
    size_t handleCount = 0;
    size_t lines = 0;
};

Names& TheNames()
{
    static Names names;
    return names;
}

std::atomic<size_t> g_threads{0};

size_t SlotOfThisThread()
{
    thread_local const size_t kSlot = g_threads++ % kMostThreads;
    return kSlot;
}

std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte >= 0x20 && byte < 0x7F && c != '"' && c != '\\' && c != '?';
        quoted += plain ? std::string(1, c) : fmt::format("\\{:03o}", byte);
    }
    return quoted + '"';
}

} // namespace

Record*& CurrentRecord()
{
    static Record* record = nullptr;
    return record;
}

std::string CallsIn(const Record& record)
{
    std::string all;
    for (const auto& call : record.calls)
    {
        if (const char* name = call; name != nullptr && all.find(name) == std::string::npos)
        {
            all += (all.empty() ? "" : ", ") + std::string(name);
        }
    }
    return all;
}

const char* FunctionOfThisThread()
{
    return CurrentRecord() == nullptr ? nullptr : CurrentRecord()->calls[SlotOfThisThread()].load();
}

void SetFunctionOfThisThread(const char* name)
{
    if (CurrentRecord() != nullptr)
    {
        CurrentRecord()->calls[SlotOfThisThread()] = name;
    }
}

void Note::Add(const std::string& argument)
{
    m_line += (m_line.back() == '(' ? "" : ", ") + argument;
}

void Note::Argument(void* handleOrMemory)
{
    Names& names = TheNames();
    const std::lock_guard lock(names.mutex);
    const auto handle = names.handles.find(handleOrMemory);
    if (handleOrMemory == nullptr)
    {
        Add("NULL");
    }
    else if (handle != names.handles.end())
    {
        Add(fmt::format("h[{}]", handle->second));
    }
    else if (reinterpret_cast<uintptr_t>(handleOrMemory) < kLowestMemory)
    {
        Add(fmt::format("(void*){}", handleOrMemory));
    }
    else
    {
        Add(fmt::format("M({})", names.memory.emplace(handleOrMemory, names.memory.size()).first->second));
    }
}

void Note::Argument(void** out)
{
    if (out == nullptr)
    {
        Add("NULL");
        return;
    }
    const std::lock_guard lock(TheNames().mutex);
    m_outs.emplace_back(out, TheNames().handleCount);
    Add(fmt::format("&h[{}]", TheNames().handleCount++));
}

void Note::Argument(size_t* inOut)
{
    Add(inOut == nullptr ? "NULL" : fmt::format("S({:#x})", *inOut));
}

void Note::Argument(const char* text)
{
    Add(text == nullptr ? "NULL" : Quoted(text));
}

void Note::Argument(uint64_t number)
{
    Add(number == GENTL_INFINITE ? "GENTL_INFINITE" : fmt::format("{:#x}", number));
}

void Note::Begin()
{
    Names& names = TheNames();
    const std::lock_guard lock(names.mutex);
    CurrentRecord()->lines.Append(fmt::format("{}say(\"{}\", {}));", names.lines == 0 ? "" : "\n", m_function, m_line));
    m_number = ++names.lines;
    ++CurrentRecord()->begun;
    SetFunctionOfThisThread(m_function);
}

void Note::End(GenTL::GC_ERROR code)
{
    SetFunctionOfThisThread(nullptr);
    Names& names = TheNames();
    const std::lock_guard lock(names.mutex);
    // Another thread may have begun a line meanwhile.
    const bool alone = names.lines == m_number;
    const std::string name = code == GenTL::GC_ERR_SUCCESS ? "GC_ERR_SUCCESS" : tool::ErrorName(code);
    CurrentRecord()->lines.Append(alone ? fmt::format(" // {}", name)
                                        : fmt::format("\n// {} above: {}", m_function, name));
    for (const auto& [out, index] : m_outs)
    {
        if (code == GenTL::GC_ERR_SUCCESS)
        {
            names.handles[*out] = index;
        }
    }
}

void NoteLine(const std::string& line)
{
    Names& names = TheNames();
    const std::lock_guard lock(names.mutex);
    CurrentRecord()->lines.Append((names.lines++ == 0 ? "" : "\n") + line);
}

void NoteBytes(const void* to, const void* bytes, size_t size)
{
    Note note("");
    note.Argument(to);
    Names& names = TheNames();
    size_t index = 0;
    {
        const std::lock_guard lock(names.mutex);
        index = names.memory.at(const_cast<void*>(to));
    }
    const std::string text = Quoted({static_cast<const char*>(bytes), size});
    NoteLine(fmt::format("memcpy(M({}), {}, {});", index, text, size));
}

void ForgetNotes()
{
    Names& names = TheNames();
    const std::lock_guard lock(names.mutex);
    names.handles.clear();
    names.memory.clear();
    names.handleCount = 0;
    names.lines = 0;
    CurrentRecord()->lines.Clear();
}

void ThrowMissing(const char* function)
{
    throw RuleEnded{Outcome::NotTried, fmt::format("the producer has no {}", function)};
}

} // namespace nq::check
